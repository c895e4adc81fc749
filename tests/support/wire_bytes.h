// Helpers shared by the test suites that talk to the emulator: byte strings in the device's
// little-endian layouts, and the frames the host sent.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "device/protocol_table.h"
#include "emulator.h"

namespace kelo_testing {

using Bytes = std::vector<std::uint8_t>;

inline Bytes le16(std::uint16_t v) {
    return {std::uint8_t(v), std::uint8_t(v >> 8)};
}
inline Bytes le32(std::uint32_t v) {
    return {std::uint8_t(v), std::uint8_t(v >> 8), std::uint8_t(v >> 16), std::uint8_t(v >> 24)};
}
inline Bytes zeros(std::size_t n) {
    return Bytes(n, 0);
}
// n bytes counting up from `first` (wrapping), so that every byte of a record is distinct.
inline Bytes ramp(std::size_t n, std::uint8_t first) {
    Bytes b(n);
    for (std::size_t i = 0; i < n; ++i)
        b[i] = std::uint8_t(first + i);
    return b;
}
inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}
inline Bytes le64(std::uint64_t v) {
    return cat({le32(std::uint32_t(v)), le32(std::uint32_t(v >> 32))});
}
// A multi-entry payload (145, 146, 212): a 24-byte header with the entry count at 16 and a
// counter at 20, then the entries.
inline Bytes multiPayload(std::initializer_list<Bytes> entries, std::uint32_t counter = 0) {
    Bytes out = cat({zeros(16), le32(std::uint32_t(entries.size())), le32(counter)});
    for (const Bytes& e : entries)
        out.insert(out.end(), e.begin(), e.end());
    return out;
}
// One 145 entry of `kind` (1 FlexRay, 2 CAN): channel 21, buffer 22, flags 24-27, identifier
// 28-31, data length 32 (CAN) or word count 33 (FlexRay), data from 40.
inline Bytes multiEntry(std::uint8_t kind, std::uint8_t channel, std::uint8_t buffer,
                        std::uint32_t flags, std::uint32_t id, const Bytes& data) {
    Bytes e = cat({zeros(20), {kind, channel, buffer, 0}, le32(flags), le32(id), zeros(8), data});
    e[kind == 1 ? 33 : 32] = std::uint8_t(kind == 1 ? data.size() / 2 : data.size());
    return e;
}
inline Bytes bytesOf(const void* p, std::size_t n) {
    const auto* b = static_cast<const std::uint8_t*>(p);
    return Bytes(b, b + n);
}
inline std::uint16_t rd16(const std::uint8_t* p) {
    return std::uint16_t(p[0] | (p[1] << 8));
}
inline std::uint32_t rd32(const std::uint8_t* p) {
    return std::uint32_t(p[0]) | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) |
           (std::uint32_t(p[3]) << 24);
}

// Upload entries for the emulator to pack (the fields the tests read; the rest stay 0).
inline kelo::emu::FlexRayEntry flexRayEntry(std::uint16_t slot, const Bytes& payload) {
    kelo::emu::FlexRayEntry e;
    e.slot = slot;
    e.payload = payload;
    return e;
}
inline kelo::emu::CanEntry canEntry(std::uint32_t identifier, const Bytes& data) {
    kelo::emu::CanEntry c;
    c.identifier = identifier;
    c.data = data;
    return c;
}

// Compares two byte strings and names the first difference.
inline ::testing::AssertionResult sameBytes(const Bytes& actual, const Bytes& expected) {
    if (actual == expected) return ::testing::AssertionSuccess();
    std::ostringstream out;
    out << "sizes " << actual.size() << " / " << expected.size();
    for (std::size_t i = 0; i < actual.size() && i < expected.size(); ++i) {
        if (actual[i] != expected[i]) {
            out << ", first difference at byte " << i << ": 0x" << std::hex << int(actual[i])
                << " instead of 0x" << int(expected[i]);
            break;
        }
    }
    return ::testing::AssertionFailure() << out.str();
}

// Host frames in arrival order, keep-alives left out.
inline std::vector<kelo::emu::ReceivedFrame> commandsSent(const kelo::emu::DeviceEmulator& emu) {
    std::vector<kelo::emu::ReceivedFrame> out;
    for (auto& f : emu.received())
        if (f.command != kelo::kCmdKeepAlive) out.push_back(f);
    return out;
}

inline std::vector<Bytes> payloadsOf(const kelo::emu::DeviceEmulator& emu, std::uint8_t command) {
    std::vector<Bytes> out;
    for (auto& f : emu.received(command))
        out.push_back(f.payload);
    return out;
}

inline std::vector<int> codesOf(const std::vector<kelo::emu::ReceivedFrame>& frames) {
    std::vector<int> out;
    for (const auto& f : frames)
        out.push_back(f.command);
    return out;
}

}  // namespace kelo_testing
