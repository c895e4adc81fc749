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
