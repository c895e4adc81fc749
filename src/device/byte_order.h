// Reading and writing 16-, 32- and 64-bit fields at a byte pointer: little-endian for the record
// fields of the device protocol, big-endian for the frame header. No alignment is assumed.
#pragma once

#include <cstdint>

namespace kelo {

inline std::uint16_t le16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t le32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(le16(p)) | (static_cast<std::uint32_t>(le16(p + 2)) << 16);
}
inline std::uint64_t le64(const std::uint8_t* p) {
    return static_cast<std::uint64_t>(le32(p)) | (static_cast<std::uint64_t>(le32(p + 4)) << 32);
}
inline void putLe16(std::uint8_t* p, std::uint16_t v) {
    p[0] = static_cast<std::uint8_t>(v);
    p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void putLe32(std::uint8_t* p, std::uint32_t v) {
    putLe16(p, static_cast<std::uint16_t>(v));
    putLe16(p + 2, static_cast<std::uint16_t>(v >> 16));
}
inline void putLe64(std::uint8_t* p, std::uint64_t v) {
    putLe32(p, static_cast<std::uint32_t>(v));
    putLe32(p + 4, static_cast<std::uint32_t>(v >> 32));
}

inline std::uint16_t be16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}
inline std::uint32_t be32(const std::uint8_t* p) {
    return (static_cast<std::uint32_t>(be16(p)) << 16) | be16(p + 2);
}
inline std::uint64_t be64(const std::uint8_t* p) {
    return (static_cast<std::uint64_t>(be32(p)) << 32) | be32(p + 4);
}
inline void putBe16(std::uint8_t* p, std::uint16_t v) {
    p[0] = static_cast<std::uint8_t>(v >> 8);
    p[1] = static_cast<std::uint8_t>(v);
}
inline void putBe32(std::uint8_t* p, std::uint32_t v) {
    putBe16(p, static_cast<std::uint16_t>(v >> 16));
    putBe16(p + 2, static_cast<std::uint16_t>(v));
}
inline void putBe64(std::uint8_t* p, std::uint64_t v) {
    putBe32(p, static_cast<std::uint32_t>(v >> 32));
    putBe32(p + 4, static_cast<std::uint32_t>(v));
}

}  // namespace kelo
