// The signal codec against a naive bit-by-bit reference over generated fields, seeded from
// KELO_CODEC_SEED (or the clock, printed for a replay); then the odd results kept on purpose.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "dbapi/signal_codec.h"
#include "dbapi_test_support.h"

using namespace kelo::dbapi;
using kelo_dbapi_test::table;

namespace {

std::uint64_t codecSeed() {
    static const std::uint64_t seed = [] {
        const char* env = std::getenv("KELO_CODEC_SEED");
        const std::uint64_t s =
            env ? std::strtoull(env, nullptr, 0)
                : static_cast<std::uint64_t>(
                      std::chrono::steady_clock::now().time_since_epoch().count());
        std::printf("codec tests: KELO_CODEC_SEED=%llu\n", static_cast<unsigned long long>(s));
        return s;
    }();
    return seed;
}

// Payload bit of field bit j. Least significant byte first: bit j is payload bit s + j (j = 0
// the least significant). Most significant byte first: j = 0 is the most significant bit, at
// payload bit s; the following bits run down to bit 0 of that byte and on from bit 7 of the
// next byte.
struct BitAddress {
    unsigned byte;
    unsigned bit;
};
BitAddress addressOf(unsigned s, unsigned n, unsigned j, bool msbFirst) {
    if (!msbFirst) return {(s + j) / 8, (s + j) % 8};
    const unsigned fromTop = (7 - s % 8) + (n - 1 - j);  // j counted from the LSB
    return {s / 8 + fromTop / 8, 7 - fromTop % 8};
}

// A field longer than 64 bits: shift counts are taken modulo 64 (a result kept on purpose),
// so it reads as its lowest n mod 64 bits and a 64-bit field reads as 0 (its mask is empty).
std::uint64_t referenceRead(const std::vector<std::uint8_t>& p, unsigned s, unsigned n,
                            bool msbFirst, bool isSigned) {
    const unsigned low = n % 64;
    std::uint64_t v = 0;
    for (unsigned j = 0; j < low; ++j) {
        const BitAddress a = addressOf(s, n, j, msbFirst);
        if ((p[a.byte] >> a.bit) & 1u) v |= std::uint64_t{1} << j;
    }
    if (isSigned && low && ((v >> (low - 1)) & 1u)) v |= ~std::uint64_t{0} << low;
    return v;
}

// Past 64 bits, least significant byte first field bit j takes raw bit j mod 64; most
// significant byte first only the lowest n mod 64 bits are written.
void referenceWrite(std::vector<std::uint8_t>& p, unsigned s, unsigned n, bool msbFirst,
                    std::uint64_t raw) {
    for (unsigned j = 0; j < (msbFirst && n > 64 ? n % 64 : n); ++j) {
        const BitAddress a = addressOf(s, n, j, msbFirst);
        const unsigned bit = unsigned(raw >> (j % 64)) & 1u;
        p[a.byte] = static_cast<std::uint8_t>((p[a.byte] & ~(1u << a.bit)) | (bit << a.bit));
    }
}

struct Case {
    unsigned start, length;
    bool msbFirst, isSigned;
};

// Every length from 1 to 64 bits and a few longer ones a database may declare, each at every bit
// of a byte, in both byte orders, signed and unsigned.
std::vector<Case> generatedCases(std::mt19937_64& rng) {
    std::vector<unsigned> lengths = {65, 83, 127, 130};
    for (unsigned n = 1; n <= 64; ++n)
        lengths.push_back(n);
    std::vector<Case> cases;
    for (int order = 0; order < 2; ++order)
        for (unsigned n : lengths)
            for (unsigned b = 0; b < 8; ++b)
                for (int sign = 0; sign < 2; ++sign)
                    cases.push_back({8 * unsigned(rng() % 4) + b, n, order == 1, sign == 1});
    return cases;  // 2 x 68 x 8 x 2 = 2176 layouts
}

constexpr std::size_t kPayload = 24;

// Each layout read from random bytes and a value placed into them. A 64-bit field always reads
// as 0 (its mask is empty), and most significant byte first it has no mask to clear with (a
// placement oddity below); a longer field follows the reference's modulo-64 rules and reads
// sign-extended from bit (n - 1) mod 64.
TEST(CodecReference, ExtractionAndPlacementMatchTheBitByBitReference) {
    std::mt19937_64 rng(codecSeed());
    int checked = 0;
    for (const Case& c : generatedCases(rng))
        for (int round = 0; round < 4; ++round) {
            SCOPED_TRACE(::testing::Message() << "start " << c.start << " length " << c.length
                                              << (c.msbFirst ? " MSB first" : " LSB first")
                                              << (c.isSigned ? " signed" : ""));
            std::vector<std::uint8_t> p(kPayload);
            for (auto& byte : p)
                byte = static_cast<std::uint8_t>(rng());
            const std::int64_t got =
                extractField(p.data(), p.size(), c.start, c.length, c.msbFirst, c.isSigned);
            ASSERT_EQ(static_cast<std::uint64_t>(got),
                      referenceRead(p, c.start, c.length, c.msbFirst, c.isSigned));
            ++checked;
            if (c.length == 64 && c.msbFirst) continue;
            // A value that fits the field (most significant byte first does not mask it).
            const std::uint64_t raw =
                c.length == 64 ? rng() : rng() & ((std::uint64_t{1} << c.length % 64) - 1);
            std::vector<std::uint8_t> want = p;
            referenceWrite(want, c.start, c.length, c.msbFirst, raw);
            ASSERT_EQ(placeField(p.data(), kPayload, c.start, c.length, c.msbFirst, true,
                                 static_cast<std::int64_t>(raw)),
                      kOk);
            ASSERT_EQ(p, want) << "raw " << raw;
            if (c.length < 64) {
                ASSERT_EQ(static_cast<std::uint64_t>(extractField(p.data(), kPayload, c.start,
                                                                  c.length, c.msbFirst, false)),
                          raw);
            }
        }
    EXPECT_EQ(checked, 8704);
}

// ---- results kept on purpose ------------------------------------------------------------------

// A LINEAR coding with a factor and offset; one without the pair; TEXTTABLE; no method.
SignalCoding coding(Scaling scaling, bool hasScale, float factor, float offset, unsigned bits) {
    SignalCoding c;
    c.bitLength = bits;
    c.scaling = scaling;
    c.hasScale = hasScale;
    c.factor = factor;
    c.offset = offset;
    return c;
}
SignalCoding lin(float factor, float offset, unsigned bits = 8) {
    return coding(Scaling::Linear, true, factor, offset, bits);
}
const SignalCoding kNoPair = coding(Scaling::Linear, false, 1.0f, 0.0f, 8);
const SignalCoding kTextTable = coding(Scaling::Other, false, 10.0f, 0.0f, 4);
const SignalCoding kNoMethod = coding(Scaling::None, false, 10.0f, 0.0f, 4);

// A decoding of `raw` (or, with `before`, an encoding of `value` into that byte).
struct Scaled {
    SignalCoding c;
    std::uint32_t raw;
    float value;
    std::uint8_t status;
    int before;
};
Scaled dec(SignalCoding c, std::uint32_t raw, float value, std::uint8_t status = kOk) {
    return {c, raw, value, status, -1};
}
Scaled enc(SignalCoding c, float value, std::uint8_t before, std::uint8_t after) {
    return {c, after, value, kOk, before};
}

// LINEAR: a whole-number factor and offset take the integer path, which truncates the
// single-precision product toward zero; encoding rounds (2.6 to 3). Without a factor/offset pair
// decoding answers 16 and encoding is the identity. TEXTTABLE and no method pass the raw value
// through (encoding truncates toward zero). 16777215 * 3 is not exact in float.
TEST(CodecKeptResults, ScalingRules) {
    const auto rows = table(
        dec(lin(0.5f, 0), 3, 1.5f), dec(lin(2, 1), 3, 7.0f), dec(lin(0.1f, 0), 3, 0.3f),
        dec(lin(1, 0.25f), 3, 3.25f), dec(lin(-3, -2), 3, -11.0f),
        dec(kNoPair, 9, -99.0f, kNotInFrame), dec(kNoMethod, 5, 5.0f), dec(kTextTable, 5, 5.0f),
        dec(lin(3, 0, 24), 0xFFFFFF, float(std::int64_t(16777215.0f * 3.0f))),
        enc(lin(0.5f, 0), 1.5f, 0, 3), enc(lin(0.5f, 0), 1.3f, 0, 3), enc(kNoPair, 9.4f, 0, 9),
        enc(kNoMethod, 6.9f, 0xF0, 0xF6), enc(kTextTable, 6.9f, 0xF0, 0xF6));
    for (const Scaled& r : rows) {
        SCOPED_TRACE(::testing::Message() << "factor " << r.c.factor << " offset " << r.c.offset
                                          << " value " << r.value);
        std::uint8_t p[3] = {std::uint8_t(r.raw), std::uint8_t(r.raw >> 8),
                             std::uint8_t(r.raw >> 16)};
        float value = -99.0f;
        if (r.before < 0) {
            ASSERT_EQ(decodeValue(r.c, p, 3, &value), r.status);
            EXPECT_FLOAT_EQ(value, r.value);
            continue;
        }
        p[0] = std::uint8_t(r.before);
        ASSERT_EQ(encodeValue(r.c, r.value, p, 1), kOk);
        EXPECT_EQ(p[0], r.raw);
    }
}

struct Placement {
    unsigned start, length;
    bool msbFirst, wide;
    std::int64_t raw;
    std::vector<std::uint8_t> before, after;
    std::uint8_t status;
};
Placement placed(unsigned start, unsigned length, bool msbFirst, bool wide, std::int64_t raw,
                 std::vector<std::uint8_t> before, std::vector<std::uint8_t> after) {
    return {start, length, msbFirst, wide, raw, before, after, kOk};
}
Placement refusedAt(unsigned start, unsigned length, bool msbFirst,
                    std::vector<std::uint8_t> before) {
    return {start, length, msbFirst, true, 1, before, before, kDoesNotFit};
}

// Most significant byte first a negative raw value is placed unmasked (-1 into the 4-bit field at
// bit 3 fills the byte's bits 7..4 as well) and a 64-bit field is ORed in without clearing; the
// 32-bit placement (wide false, outside the linear categories) drops raw bits above bit 31 most
// significant byte first and repeats them least significant byte first. Refused: bit position +
// length past the payload, or most significant byte first ending in a byte after it.
TEST(CodecKeptResults, PlacementOddities) {
    const auto rows = table(
        placed(3, 4, true, true, -1, {0, 0}, {0xFF, 0}), placed(0, 4, false, true, -1, {0}, {0x0F}),
        placed(7, 64, true, true, 0x0102, {0x80, 0, 0, 0, 0, 0, 0, 0x01, 0x77},
               {0x80, 0, 0, 0, 0, 0, 0x01, 0x03, 0x77}),
        refusedAt(7, 64, true, {0x80, 0, 0, 0, 0, 0, 0, 0x01}),
        placed(7, 40, true, false, 0x12'3456'789A, {0, 0, 0, 0, 0, 0},
               {0, 0x34, 0x56, 0x78, 0x9A, 0}),
        placed(7, 40, true, true, 0x12'3456'789A, {0, 0, 0, 0, 0, 0},
               {0x12, 0x34, 0x56, 0x78, 0x9A, 0}),
        placed(0, 40, false, false, 0x12'0000'00A5, {0, 0, 0, 0, 0, 0}, {0xA5, 0, 0, 0, 0xA5, 0}),
        placed(0, 40, false, true, 0x12'0000'00A5, {0, 0, 0, 0, 0, 0}, {0xA5, 0, 0, 0, 0x12, 0}),
        refusedAt(10, 8, false, {0xAA, 0xBB}), refusedAt(0, 16, true, {0xAA, 0xBB}));
    for (auto r : rows) {
        SCOPED_TRACE(::testing::Message() << "start " << r.start << " length " << r.length
                                          << (r.msbFirst ? " MSB" : " LSB") << " raw " << r.raw);
        EXPECT_EQ(placeField(r.before.data(), r.before.size(), r.start, r.length, r.msbFirst,
                             r.wide, r.raw),
                  r.status);
        EXPECT_EQ(r.before, r.after);
    }
    const std::uint8_t p[2] = {0xAA, 0xBB};
    EXPECT_EQ(extractField(p, 2, 8, 16, false, false), 0xBB) << "reads past the buffer see zeros";
}

TEST(CodecKeptResults, UpdateBitsSetExactlyOneBit) {
    std::uint8_t p[4] = {0x00, 0xFF, 0x00, 0x00};
    ASSERT_EQ(encodeUpdateBit(19, 1.0f, p, 4), kOk);
    EXPECT_EQ(p[2], 0x08);
    ASSERT_EQ(encodeUpdateBit(9, 0.0f, p, 4), kOk);
    EXPECT_EQ(p[1], 0xFD);
    EXPECT_EQ(decodeUpdateBit(p, 4, 19), 1.0f);
    EXPECT_EQ(decodeUpdateBit(p, 4, 9), 0.0f);
    EXPECT_EQ(encodeUpdateBit(32, 1.0f, p, 4), kDoesNotFit);
}

}  // namespace
