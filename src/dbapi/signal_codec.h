// The signal codec: raw bit fields in a FlexRay payload and their physical values. It works on a
// neutral description of one signal (where it sits, how long it is, its byte order, signedness
// and scaling), so the FIBEX and the AUTOSAR exports share one implementation and differ only in
// how they fill that description from their databases.
//
// Bit numbering: bit position p is bit (p mod 8) of payload byte (p div 8), bit 7 being the most
// significant bit of a byte. Most-significant-byte-first fields start at their most significant
// bit; least-significant-byte-first fields start at their least significant bit. The detailed
// rules, including the results kept on purpose (64-bit fields read as 0, unmasked placement),
// are in docs/api.md under "Signal encoding and decoding".
#pragma once

#include <cstddef>
#include <cstdint>

#include "dbapi/database_status.h"

namespace kelo {
namespace dbapi {

// How a raw value relates to the physical one.
enum class Scaling : std::uint8_t {
    None,    // no compu method: physical = raw
    Linear,  // "LINEAR" or "IDENTICAL": physical = raw * factor + offset
    Other,   // any other category ("TEXTTABLE", ...): physical = raw
};

struct SignalCoding {
    std::uint16_t bitPosition = 0;
    std::uint16_t bitLength = 0;
    bool msbFirst = false;  // most significant byte first (big-endian)
    bool isSigned = false;
    Scaling scaling = Scaling::None;
    bool hasScale = false;  // Linear: a factor/offset pair exists
    float factor = 1.0f;
    float offset = 0.0f;
};

// The payload size decoding assumes: the buffer KFr_Receive_Wrapper fills (2 x 255 bytes).
// Bytes at or past it read as 0.
inline constexpr std::size_t kDecodePayloadSize = 510;

// The raw value of a field: bytes outside [0, size) read as 0. A length of 64 reads as 0 (its
// mask is empty); signed fields are sign-extended from bit n - 1.
std::int64_t extractField(const std::uint8_t* payload, std::size_t size, std::uint16_t bitPosition,
                          std::uint16_t bitLength, bool msbFirst, bool isSigned);

// Physical value of a signal. kOk, or kNoScalePair for a linear method without a factor/offset
// pair.
std::uint8_t decodeValue(const SignalCoding& coding, const std::uint8_t* payload, std::size_t size,
                         float* value);

// An update bit: one bit at bitPosition, read most significant byte first, unsigned.
float decodeUpdateBit(const std::uint8_t* payload, std::size_t size, std::uint16_t bitPosition);

// Writes a physical value into a payload of `length` bytes. kOk, or kDoesNotFit when the field
// does not fit.
std::uint8_t encodeValue(const SignalCoding& coding, float value, std::uint8_t* payload,
                         std::uint8_t length);

// Writes the lowest bit of the truncated value at bitPosition. kOk, or kDoesNotFit when the bit
// lies past the payload.
std::uint8_t encodeUpdateBit(std::uint16_t bitPosition, float value, std::uint8_t* payload,
                             std::uint8_t length);

// The raw value a physical value encodes to (before placement).
std::int64_t rawFromPhysical(const SignalCoding& coding, float value);

// Places raw into the field, as encodeValue does after scaling. kOk or kDoesNotFit.
std::uint8_t placeField(std::uint8_t* payload, std::uint8_t length, std::uint16_t bitPosition,
                        std::uint16_t bitLength, bool msbFirst, bool wide, std::int64_t raw);

}  // namespace dbapi
}  // namespace kelo
