// The slot-by-cycle frame-name table both database readers fill: for every FlexRay slot
// identifier, the name of the frame sent in each of the 64 communication cycles.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

namespace kelo {
namespace xml {

// Frame names by cycle: 64 cycle columns per slot identifier.
using CycleNames = std::array<std::string, 64>;
using FrameNameTable = std::map<std::uint16_t, CycleNames>;

// One absolutely scheduled timing of a frame triggering: the slot and the cycles baseCycle,
// baseCycle + repetition, ... below 64.
struct SlotTiming {
    std::uint16_t slot = 0;
    std::uint8_t baseCycle = 0;
    std::uint8_t repetition = 0;
};

// Enters a frame at `slot` in cycles baseCycle, baseCycle + repetition, ... below 64
// (repetition 0 counts as 1, every cycle). A cell that already holds a name keeps it, so the
// frame entered first wins. Slot 0 (no static slot) and an empty name enter nothing.
void enterFrameName(FrameNameTable& table, std::uint16_t slot, unsigned baseCycle,
                    unsigned repetition, const std::string& name);

// The frame name at this slot and cycle; "" when none (also for a cycle of 64 or more).
// A lookup inserts nothing.
const std::string& frameNameAt(const FrameNameTable& table, std::uint16_t slot, std::uint8_t cycle);

}  // namespace xml
}  // namespace kelo
