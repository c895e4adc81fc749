// CRC-16/ARC: reflected polynomial 0x8005 (table constant 0xA001), initial 0, no final XOR,
// table-driven one byte at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kelo {

namespace detail {
constexpr std::array<std::uint16_t, 256> makeCrc16ArcTable() {
    std::array<std::uint16_t, 256> table{};
    for (unsigned i = 0; i < 256; ++i) {
        unsigned crc = i;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1u) ? (crc >> 1) ^ 0xA001u : crc >> 1;
        table[i] = static_cast<std::uint16_t>(crc);
    }
    return table;
}
}  // namespace detail

inline constexpr std::array<std::uint16_t, 256> kCrc16ArcTable = detail::makeCrc16ArcTable();

inline std::uint16_t crc16ArcByte(std::uint16_t crc, std::uint8_t byte) {
    return static_cast<std::uint16_t>((crc >> 8) ^ kCrc16ArcTable[(crc ^ byte) & 0xFFu]);
}

inline std::uint16_t crc16Arc(std::uint16_t crc, const std::uint8_t* data, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i)
        crc = crc16ArcByte(crc, data[i]);
    return crc;
}

}  // namespace kelo
