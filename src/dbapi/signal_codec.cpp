#include "dbapi/signal_codec.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelo {
namespace dbapi {

namespace {

// A field read most significant byte first can span nine bytes (58 to 63 bits starting low in
// a byte), so fields are gathered in a 128-bit accumulator. It is two 64-bit words rather than a
// compiler's 128-bit integer, which MSVC lacks; like one, it keeps the low 128 bits of whatever
// is pushed into it. Fields sit at most 7 bits above bit 0 of their last byte, so shifts are
// below 64.
struct Wide {
    std::uint64_t hi = 0;
    std::uint64_t lo = 0;
};

// Shifts the accumulator up by one byte and puts `byte` in its lowest byte.
inline void pushByte(Wide& w, std::uint8_t byte) {
    w.hi = (w.hi << 8) | (w.lo >> 56);
    w.lo = (w.lo << 8) | byte;
}

// The low 64 bits of w >> s, s < 64.
inline std::uint64_t lowAfterShift(const Wide& w, unsigned s) {
    return s == 0 ? w.lo : (w.lo >> s) | (w.hi << (64 - s));
}

// v << s as a 128-bit value, s < 64.
inline Wide shiftedUp(std::uint64_t v, unsigned s) {
    return {s == 0 ? 0 : v >> (64 - s), v << s};
}

// Integer division rounding toward negative infinity.
inline int floorDiv8(int v) {
    return v >= 0 ? v / 8 : -((7 - v) / 8);
}

// Bits 0 .. n-1 set, n taken modulo 64: a length of 64 (or 0) gives an empty mask.
inline std::uint64_t fieldMask(unsigned n) {
    return (std::uint64_t{1} << (n % 64)) - 1;
}

inline std::uint8_t byteAt(const std::uint8_t* p, std::size_t size, long i) {
    return (i >= 0 && static_cast<std::size_t>(i) < size) ? p[i] : 0;
}

// Layout of a most-significant-byte-first field: first byte, last byte, and how far the field's
// least significant bit sits above bit 0 of the last byte.
struct MsbSpan {
    long first;
    long last;
    unsigned shift;
};

inline MsbSpan msbSpan(unsigned s, unsigned n) {
    const int b = static_cast<int>(s % 8);
    const int k = floorDiv8(static_cast<int>(n) - b + 6);
    const long first = static_cast<long>(s / 8);
    const int shift = 8 * k + 8 - static_cast<int>(n) - (7 - b);
    return {first, first + k, static_cast<unsigned>(shift < 0 ? 0 : shift)};
}

// Float to a 64-bit integer, truncating toward zero; NaN gives 0, values beyond the range
// saturate.
inline std::int64_t truncateToInt64(float v) {
    if (std::isnan(v)) return 0;
    if (v >= 9.2233720368547758e18f) return std::numeric_limits<std::int64_t>::max();
    if (v < -9.2233720368547758e18f) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(v);
}

// llroundf with the same guard: its result is unspecified outside the range.
inline std::int64_t roundToInt64(float v) {
    if (std::isnan(v)) return 0;
    if (v >= 9.2233720368547758e18f) return std::numeric_limits<std::int64_t>::max();
    if (v < -9.2233720368547758e18f) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(std::llroundf(v));
}

inline bool isWhole(float v) {
    return std::fmod(static_cast<double>(v), 1.0) == 0.0;
}

}  // namespace

std::int64_t extractField(const std::uint8_t* p, std::size_t size, std::uint16_t s, std::uint16_t n,
                          bool msbFirst, bool isSigned) {
    const std::uint64_t mask = fieldMask(n);
    Wide acc;
    std::uint64_t raw;
    if (msbFirst) {
        const MsbSpan span = msbSpan(s, n);
        for (long i = span.first; i <= span.last; ++i)
            pushByte(acc, byteAt(p, size, i));
        raw = lowAfterShift(acc, span.shift) & mask;
    } else {
        const long first = static_cast<long>(s / 8);
        const long last = first + floorDiv8(static_cast<int>(n) + static_cast<int>(s % 8) - 1);
        for (long i = last; i >= first; --i)
            pushByte(acc, byteAt(p, size, i));
        raw = lowAfterShift(acc, s % 8u) & mask;
    }
    // Shift counts are taken modulo 64, as the hardware does: a field longer than 64 bits
    // tests bit (n - 1) mod 64 of its low 64 bits.
    if (isSigned && n > 0 && ((raw >> ((n - 1u) % 64u)) & 1u))
        raw |= std::uint64_t{0} - (std::uint64_t{1} << (n % 64));
    return static_cast<std::int64_t>(raw);
}

std::uint8_t decodeValue(const SignalCoding& c, const std::uint8_t* payload, std::size_t size,
                         float* value) {
    const std::int64_t raw =
        extractField(payload, size, c.bitPosition, c.bitLength, c.msbFirst, c.isSigned);
    if (c.scaling != Scaling::Linear) {
        *value = static_cast<float>(raw);
        return kOk;
    }
    if (!c.hasScale) return kNoScalePair;
    const float physical = static_cast<float>(raw) * c.factor + c.offset;
    if (isWhole(c.factor) && isWhole(c.offset))
        *value = static_cast<float>(truncateToInt64(physical));
    else
        *value = physical;
    return kOk;
}

float decodeUpdateBit(const std::uint8_t* payload, std::size_t size, std::uint16_t bitPosition) {
    return static_cast<float>(extractField(payload, size, bitPosition, 1, true, false));
}

std::int64_t rawFromPhysical(const SignalCoding& c, float value) {
    if (c.scaling == Scaling::Linear) {
        // A linear method without a pair scales as identity.
        const float factor = c.hasScale ? c.factor : 1.0f;
        const float offset = c.hasScale ? c.offset : 0.0f;
        return roundToInt64((value - offset) / factor);
    }
    return truncateToInt64(value);
}

std::uint8_t placeField(std::uint8_t* p, std::uint8_t length, std::uint16_t s, std::uint16_t n,
                        bool msbFirst, bool wide, std::int64_t raw) {
    if (static_cast<unsigned>(length) * 8u < static_cast<unsigned>(s) + n) return kDoesNotFit;
    if (msbFirst) {
        const MsbSpan span = msbSpan(s, n);
        if (span.last < span.first) return kOk;  // no byte to write (a length of 0)
        if (span.last >= static_cast<long>(length)) return kDoesNotFit;
        Wide acc;
        for (long i = span.first; i <= span.last; ++i)
            pushByte(acc, p[i]);
        const Wide field = shiftedUp(fieldMask(n), span.shift);
        // The raw value is not masked to the field: its bits above the field (a negative value's
        // sign bits, an oversized value) land in the bytes the field touches.
        const Wide value = wide ? shiftedUp(static_cast<std::uint64_t>(raw), span.shift)
                                : Wide{0, static_cast<std::uint32_t>(static_cast<std::uint32_t>(raw)
                                                                     << (span.shift % 32))};
        acc.hi = (acc.hi & ~field.hi) | value.hi;
        acc.lo = (acc.lo & ~field.lo) | value.lo;
        // Only the accumulator's 16 bytes are written back: the leading bytes of a field longer
        // than that (over 120 bits) stay as they were.
        const long firstWritten = std::max(span.first, span.last - 15);
        for (long i = span.last; i >= firstWritten; --i) {
            p[i] = static_cast<std::uint8_t>(acc.lo);
            acc.lo = (acc.lo >> 8) | (acc.hi << 56);
            acc.hi >>= 8;
        }
        return kOk;
    }
    const std::uint64_t bits = static_cast<std::uint64_t>(raw);
    const std::uint32_t low = static_cast<std::uint32_t>(raw);
    for (unsigned i = 0; i < n; ++i) {
        const unsigned pos = s + i;
        // Bit i of raw, the shift taken modulo the raw value's width (64, or 32 when narrow):
        // a field longer than 64 bits repeats raw's bits.
        const unsigned bit =
            wide ? unsigned((bits >> (i % 64)) & 1u) : unsigned((low >> (i % 32)) & 1u);
        std::uint8_t& byte = p[pos / 8];
        byte = static_cast<std::uint8_t>((byte & ~(1u << (pos % 8))) | (bit << (pos % 8)));
    }
    return kOk;
}

std::uint8_t encodeValue(const SignalCoding& c, float value, std::uint8_t* payload,
                         std::uint8_t length) {
    return placeField(payload, length, c.bitPosition, c.bitLength, c.msbFirst,
                      c.scaling == Scaling::Linear, rawFromPhysical(c, value));
}

std::uint8_t encodeUpdateBit(std::uint16_t bitPosition, float value, std::uint8_t* payload,
                             std::uint8_t length) {
    if (bitPosition / 8u >= length) return kDoesNotFit;
    const unsigned bit = static_cast<unsigned>(truncateToInt64(value) & 1);
    std::uint8_t& byte = payload[bitPosition / 8];
    byte =
        static_cast<std::uint8_t>((byte & ~(1u << (bitPosition % 8))) | (bit << (bitPosition % 8)));
    return kOk;
}

}  // namespace dbapi
}  // namespace kelo
