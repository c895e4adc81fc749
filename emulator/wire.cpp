#include "wire.h"

#include <algorithm>
#include <cstring>

namespace kelo {
namespace emu {

std::size_t flexRayEntrySize(const FlexRayEntry& e) {
    return kFrUploadEntryHead + 2 * std::min<std::size_t>((e.payload.size() + 1) / 2, 255);
}

void appendFlexRayEntry(Bytes& out, const FlexRayEntry& e) {
    const std::size_t words = std::min<std::size_t>((e.payload.size() + 1) / 2, 255);
    const std::size_t at = out.size();
    out.resize(at + kFrUploadEntryHead + 2 * words, 0);
    std::uint8_t* p = out.data() + at;
    for (int i = 0; i < 3; ++i)
        putLe32(p + 4 * i, e.words[i]);
    p[13] = e.byte13;
    std::memcpy(p + 14, e.bytes14to16, 3);
    putLe16(p + 18, e.slot);
    p[20] = e.cycle;
    p[21] = static_cast<std::uint8_t>(words);
    putLe16(p + 22, e.bytes22to23);
    putLe16(p + 24, e.statusWord);
    if (!e.payload.empty())
        std::memcpy(p + kFrUploadEntryHead, e.payload.data(),
                    std::min(e.payload.size(), 2 * words));
}

std::size_t canEntrySize(const CanEntry& e) {
    return (kCanUploadEntryHead + std::min<std::size_t>(e.data.size(), 255) + 3) & ~std::size_t{3};
}

void appendCanEntry(Bytes& out, const CanEntry& e, std::uint8_t channel) {
    const std::size_t length = std::min<std::size_t>(e.data.size(), 255);
    const std::size_t at = out.size();
    out.resize(at + canEntrySize(e), 0);
    std::uint8_t* p = out.data() + at;
    putLe32(p + 4, e.word4);
    putLe64(p + 8, e.timestampUs);
    p[20] = 2;  // bus kind CAN
    p[21] = channel;
    putLe32(p + 24, e.flags);
    putLe32(p + 28, e.identifier);
    p[32] = static_cast<std::uint8_t>(length);
    if (length != 0) std::memcpy(p + kCanUploadEntryHead, e.data.data(), length);
}

Bytes multiHeader(std::uint32_t count) {
    Bytes out(kMultiHeaderSize, 0);
    putLe32(out.data() + 16, count);
    return out;
}

Bytes busStateUpload(std::uint16_t state, std::uint8_t controller, std::uint64_t micros) {
    Bytes payload = multiHeader(1);
    payload.resize(kMultiHeaderSize + kStatusEntrySize, 0);
    std::uint8_t* e = payload.data() + kMultiHeaderSize;
    putLe64(e, micros);
    putLe16(e + 8, 4);  // entry type: bus state
    e[10] = controller;
    putLe16(e + 24, state);
    return payload;
}

}  // namespace emu
}  // namespace kelo
