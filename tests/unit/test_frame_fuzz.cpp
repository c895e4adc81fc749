// Robustness of the receive parser against random input and random damage to valid frames.
// Every frame the parser dispatches must exist, byte for byte and with valid CRCs, in what it was
// fed. The seed is printed; set KELO_FUZZ_SEED to replay a run.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

#include "device/frame_engine.h"
#include "unit/frame_test_support.h"

using kelo::FrameEngine;
using kelo_test::Bytes;
using kelo_test::EngineRig;
using kelo_test::referenceFrame;

namespace {

std::uint32_t fuzzSeed() {
    if (const char* env = std::getenv("KELO_FUZZ_SEED"))
        return static_cast<std::uint32_t>(std::strtoul(env, nullptr, 0));
    return 0x4B4C4F31u;
}

// Feeds `stream` in random pieces with occasional idle ticks in between.
void feedInPieces(EngineRig& rig, const Bytes& stream, std::mt19937& rng, bool withTicks) {
    std::size_t at = 0;
    while (at < stream.size()) {
        std::size_t piece = 1 + rng() % 1500;
        piece = std::min(piece, stream.size() - at);
        rig.engine->feed(stream.data() + at, piece);
        at += piece;
        if (withTicks && rng() % 8 == 0) rig.ticks(static_cast<int>(rng() % 12));
    }
}

// Every dispatched frame, rebuilt from what the handler saw, must occur in the input.
void expectDispatchedFramesAreGenuine(const EngineRig& rig, const Bytes& stream) {
    for (const auto& f : rig.recorder.calls) {
        ASSERT_LE(f.payload.size(), FrameEngine::kMaxPayload);
        ASSERT_EQ(f.payloadNull, f.payload.empty());
        const Bytes wire = referenceFrame(f.sequence, f.command, f.payload);
        ASSERT_NE(std::search(stream.begin(), stream.end(), wire.begin(), wire.end()), stream.end())
            << "dispatched a frame that is not in the input: seq " << f.sequence << " cmd "
            << int(f.command) << " len " << f.payload.size();
    }
}

Bytes randomBytes(std::mt19937& rng, std::size_t n, bool manyStarts) {
    Bytes b(n);
    for (auto& x : b)
        x = (manyStarts && rng() % 6 == 0) ? 0xAA : static_cast<std::uint8_t>(rng());
    return b;
}

Bytes randomFrame(std::mt19937& rng) {
    const std::size_t sizes[] = {0, 1, 2, 16, 300, 1390, 1391, 2048};
    const std::size_t n = rng() % 3 == 0 ? sizes[rng() % 8] : rng() % 64;
    return referenceFrame(static_cast<std::uint16_t>(rng()), static_cast<std::uint8_t>(rng()),
                          randomBytes(rng, n, true));
}

void mutate(Bytes& b, std::mt19937& rng) {
    const int edits = 1 + static_cast<int>(rng() % 4);
    for (int e = 0; e < edits && !b.empty(); ++e) {
        const std::size_t at = rng() % b.size();
        switch (rng() % 6) {
            case 0:
                b[at] ^= static_cast<std::uint8_t>(1u << (rng() % 8));
                break;
            case 1:
                b[at] = static_cast<std::uint8_t>(rng());
                break;
            case 2:
                b.erase(b.begin() + static_cast<long>(at));
                break;
            case 3:
                b.insert(b.begin() + static_cast<long>(at), static_cast<std::uint8_t>(rng()));
                break;
            case 4:
                b.resize(at);
                break;  // truncate
            case 5:
                b.insert(b.begin() + static_cast<long>(at), 0xAA);
                break;
        }
    }
}

}  // namespace

TEST(FrameFuzz, RandomBuffers) {
    const std::uint32_t seed = fuzzSeed();
    SCOPED_TRACE("fuzz seed " + std::to_string(seed) + " (replay with KELO_FUZZ_SEED)");
    std::cout << "[ fuzz seed ] " << seed << std::endl;
    std::mt19937 rng(seed);
    for (int round = 0; round < 3000; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        EngineRig rig(1);
        rig.engine->addGeneralHandler(kelo_test::recordAll);
        const Bytes stream = randomBytes(rng, rng() % 4096, round % 2 == 0);
        feedInPieces(rig, stream, rng, round % 3 == 0);
        expectDispatchedFramesAreGenuine(rig, stream);
        if (HasFatalFailure()) return;
    }
}

TEST(FrameFuzz, MutatedValidFrames) {
    const std::uint32_t seed = fuzzSeed() ^ 0x9E3779B9u;
    SCOPED_TRACE("fuzz seed " + std::to_string(seed) + " (replay with KELO_FUZZ_SEED)");
    std::cout << "[ fuzz seed ] " << seed << std::endl;
    std::mt19937 rng(seed);
    std::size_t dispatched = 0;
    for (int round = 0; round < 3000; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        EngineRig rig(1);
        rig.engine->addGeneralHandler(kelo_test::recordAll);
        Bytes stream;
        const int frames = 1 + static_cast<int>(rng() % 5);
        for (int i = 0; i < frames; ++i) {
            Bytes f = randomFrame(rng);
            if (rng() % 2 == 0) mutate(f, rng);
            stream.insert(stream.end(), f.begin(), f.end());
        }
        feedInPieces(rig, stream, rng, round % 4 == 0);
        expectDispatchedFramesAreGenuine(rig, stream);
        if (HasFatalFailure()) return;
        dispatched += rig.recorder.calls.size();
    }
    // Half the frames are left intact, so a parser that drops everything shows here.
    EXPECT_GT(dispatched, 1000u);
}

TEST(FrameFuzz, IntactFramesAfterDamageAreNotLostForGood) {
    // Damaged input may leave the parser inside a half frame; an idle pause of ten ticks ends
    // it, so the next valid frame is always delivered.
    const std::uint32_t seed = fuzzSeed() ^ 0x5EEDu;
    SCOPED_TRACE("fuzz seed " + std::to_string(seed) + " (replay with KELO_FUZZ_SEED)");
    std::cout << "[ fuzz seed ] " << seed << std::endl;
    std::mt19937 rng(seed);
    const Bytes good = referenceFrame(0x8123, 0x42, {0x01, 0x02, 0x03, 0x04});
    for (int round = 0; round < 2000; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        EngineRig rig(1);
        rig.engine->addGeneralHandler(kelo_test::recordAll);
        Bytes damaged = randomFrame(rng);
        mutate(damaged, rng);
        rig.feed(damaged);
        // Whatever state the debris left, ten idle ticks end any half frame.
        rig.ticks(10);
        rig.feed(good);
        ASSERT_FALSE(rig.recorder.calls.empty());
        const auto& last = rig.recorder.calls.back();
        EXPECT_EQ(last.sequence, 0x8123);
        EXPECT_EQ(last.command, 0x42);
        EXPECT_EQ(last.payload, (Bytes{0x01, 0x02, 0x03, 0x04}));
    }
}
