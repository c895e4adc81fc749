#include "xml/slot_table.h"

namespace kelo {
namespace xml {

void enterFrameName(FrameNameTable& table, std::uint16_t slot, unsigned baseCycle,
                    unsigned repetition, const std::string& name) {
    if (slot == 0 || name.empty()) return;
    const unsigned step = repetition == 0 ? 1u : repetition;
    CycleNames* cycles = nullptr;
    for (unsigned cycle = baseCycle; cycle < 64; cycle += step) {
        if (!cycles) cycles = &table[slot];
        if ((*cycles)[cycle].empty()) (*cycles)[cycle] = name;
    }
}

const std::string& frameNameAt(const FrameNameTable& table, std::uint16_t slot,
                               std::uint8_t cycle) {
    static const std::string kNone;
    if (cycle >= 64) return kNone;
    const auto it = table.find(slot);
    if (it == table.end()) return kNone;
    return it->second[cycle];
}

}  // namespace xml
}  // namespace kelo
