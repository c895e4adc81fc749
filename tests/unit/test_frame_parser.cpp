// The byte-wise receive parser: CRC failures, oversize frames, hunting for the start byte, frames
// spanning datagrams and the idle-tick abandonment of stalled frames.
#include <gtest/gtest.h>

#include <string>

#include "device/frame_engine.h"
#include "unit/frame_test_support.h"

using kelo::FrameEngine;
using State = kelo::FrameEngine::ParserState;
using kelo_test::Bytes;
using kelo_test::concat;
using kelo_test::EngineRig;
using kelo_test::patternPayload;
using kelo_test::referenceFrame;

namespace {

struct ParserRig : EngineRig {
    ParserRig() : EngineRig(1) { engine->addGeneralHandler(kelo_test::recordAll); }
    std::size_t frames() const { return recorder.calls.size(); }
};

const Bytes kNext = referenceFrame(0x0042, 0x73, {0x10, 0x20, 0x30});

void expectIsNext(const kelo_test::ReceivedFrame& f) {
    EXPECT_EQ(f.sequence, 0x0042);
    EXPECT_EQ(f.command, 0x73);
    EXPECT_EQ(f.payload, (Bytes{0x10, 0x20, 0x30}));
}

}  // namespace

TEST(FrameParser, WalksThroughTheStatesOfAFrame) {
    ParserRig rig;
    const Bytes f = referenceFrame(0x8001, 2, {0x01, 0x02});
    const State expected[] = {State::Sequence, State::Sequence,   State::Length,     State::Length,
                              State::Command,  State::HeaderCrc,  State::HeaderCrc,  State::Payload,
                              State::Payload,  State::PayloadCrc, State::PayloadCrc, State::Hunt};
    EXPECT_EQ(rig.engine->parserState(), State::Hunt);
    ASSERT_EQ(f.size(), sizeof expected / sizeof expected[0]);
    for (std::size_t i = 0; i < f.size(); ++i) {
        rig.engine->feed(&f[i], 1);
        EXPECT_EQ(rig.engine->parserState(), expected[i]) << "after byte " << i;
    }
    EXPECT_EQ(rig.frames(), 1u);
}

TEST(FrameParser, ZeroLengthFrameCompletesAtItsEighthByte) {
    ParserRig rig;
    const Bytes f = referenceFrame(0x0001, 0x11, {});
    rig.feed(Bytes(f.begin(), f.end() - 1));
    EXPECT_EQ(rig.frames(), 0u);
    rig.feed(Bytes{f.back()});
    ASSERT_EQ(rig.frames(), 1u);
    EXPECT_TRUE(rig.recorder.calls[0].payloadNull);
    EXPECT_TRUE(rig.recorder.calls[0].payload.empty());
    // Nothing is expected after it: the next byte is already the next frame.
    rig.feed(kNext);
    ASSERT_EQ(rig.frames(), 2u);
    expectIsNext(rig.recorder.calls[1]);
}

TEST(FrameParser, GarbageBeforeAFrameIsSkipped) {
    const Bytes garbageCases[] = {
        {},
        {0x00},
        {0x01, 0x02, 0x03, 0x55, 0xFF},
        // A lone start byte whose header fails its CRC, then the real frame.
        {0xAA, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
        // A header announcing 0 bytes whose CRC is wrong: nothing after it belongs to it.
        {0xAA, 0x00, 0x01, 0x00, 0x00, 0x05, 0x12, 0x34},
    };
    for (const Bytes& garbage : garbageCases) {
        SCOPED_TRACE(::testing::PrintToString(garbage));
        ParserRig rig;
        rig.feed(concat({garbage, kNext}));
        ASSERT_EQ(rig.frames(), 1u);
        expectIsNext(rig.recorder.calls[0]);
    }
}

TEST(FrameParser, CorruptedHeaderCrcDropsTheFrameAtItsEighthByte) {
    for (int corruptByte : {6, 7}) {
        SCOPED_TRACE("corrupt byte " + std::to_string(corruptByte));
        ParserRig rig;
        Bytes bad = referenceFrame(0x8005, 0x10, patternPayload(20));
        bad[corruptByte] ^= 0x01;
        rig.feed(Bytes(bad.begin(), bad.begin() + 7));
        EXPECT_EQ(rig.engine->parserState(), State::HeaderCrc);
        rig.feed(Bytes{bad[7]});
        EXPECT_EQ(rig.engine->parserState(), State::Hunt);
        rig.feed(Bytes(bad.begin() + 8, bad.end()));
        rig.feed(kNext);
        ASSERT_EQ(rig.frames(), 1u);
        expectIsNext(rig.recorder.calls[0]);
    }
}

TEST(FrameParser, CorruptedHeaderFieldsFailTheHeaderCrc) {
    // A flipped bit in sequence, length or command must fail the header check.
    for (int field = 1; field <= 5; ++field) {
        SCOPED_TRACE("field byte " + std::to_string(field));
        ParserRig rig;
        Bytes bad = referenceFrame(0x8005, 0x10, patternPayload(4));
        bad[field] ^= 0x04;
        rig.feed(concat({bad, kNext}));
        ASSERT_EQ(rig.frames(), 1u);
        expectIsNext(rig.recorder.calls[0]);
    }
}

TEST(FrameParser, AfterABadHeaderTheFollowingBytesAreHuntedForAStart) {
    // The dropped frame's payload holds a complete valid frame: after the bad header the parser
    // hunts through the payload bytes and finds it.
    ParserRig rig;
    Bytes bad = referenceFrame(0x8005, 0x10, kNext);
    bad[7] ^= 0xFF;
    rig.feed(bad);
    ASSERT_EQ(rig.frames(), 1u);
    expectIsNext(rig.recorder.calls[0]);
}

TEST(FrameParser, CorruptedPayloadCrcDropsTheFrame) {
    for (int which : {0, 1, 2}) {
        SCOPED_TRACE("corruption " + std::to_string(which));
        ParserRig rig;
        const Bytes payload = patternPayload(50, 3);
        Bytes bad = referenceFrame(0x8006, 0x20, payload);
        if (which == 0) bad[8 + 17] ^= 0x80;          // a payload byte
        if (which == 1) bad[bad.size() - 2] ^= 0x01;  // payload CRC, high byte
        if (which == 2) bad[bad.size() - 1] ^= 0x01;  // payload CRC, low byte
        rig.feed(bad);
        EXPECT_EQ(rig.frames(), 0u);
        EXPECT_EQ(rig.engine->parserState(), State::Hunt);
        rig.feed(kNext);
        ASSERT_EQ(rig.frames(), 1u);
        expectIsNext(rig.recorder.calls[0]);
    }
}

TEST(FrameParser, PayloadCrcStartsFromZeroNotFromTheHeaderCrc) {
    // A frame whose payload CRC continued over the header must be refused.
    ParserRig rig;
    const Bytes payload = {0x01, 0x02, 0x03};
    Bytes f = referenceFrame(0x8007, 0x30, payload);
    std::uint16_t chained = kelo_test::naiveCrc16Arc(f.data(), 8);
    chained = kelo_test::naiveCrc16Arc(payload.data(), payload.size(), chained);
    f[f.size() - 2] = static_cast<std::uint8_t>(chained >> 8);
    f[f.size() - 1] = static_cast<std::uint8_t>(chained);
    rig.feed(f);
    EXPECT_EQ(rig.frames(), 0u);
}

TEST(FrameParser, LargestPayloadOf2048IsAccepted) {
    ParserRig rig;
    const Bytes payload = patternPayload(2048, 4);
    rig.feed(referenceFrame(0x0001, 0x73, payload));
    ASSERT_EQ(rig.frames(), 1u);
    EXPECT_EQ(rig.recorder.calls[0].payload, payload);
}

TEST(FrameParser, Oversize2049IsConsumedAndDropped) {
    ParserRig rig;
    // The oversize payload carries a complete valid frame and a correct payload CRC; neither may
    // surface, because the announced length is consumed as a whole.
    Bytes payload = concat({kNext, patternPayload(2049 - kNext.size(), 6)});
    ASSERT_EQ(payload.size(), 2049u);
    const Bytes big = referenceFrame(0x0002, 0x73, payload);
    ASSERT_EQ(big.size(), 8u + 2049u + 2u);
    rig.feed(Bytes(big.begin(), big.end() - 1));
    EXPECT_EQ(rig.engine->parserState(), State::PayloadCrc);
    rig.feed(Bytes{big.back()});
    EXPECT_EQ(rig.engine->parserState(), State::Hunt);
    EXPECT_EQ(rig.frames(), 0u);

    const Bytes after = referenceFrame(0x0003, 0x74, {0x99});
    rig.feed(after);
    ASSERT_EQ(rig.frames(), 1u);
    EXPECT_EQ(rig.recorder.calls[0].sequence, 0x0003);
    EXPECT_EQ(rig.recorder.calls[0].payload, Bytes{0x99});
}

TEST(FrameParser, HugeAnnouncedLengthIsConsumedAndDropped) {
    ParserRig rig;
    const Bytes header = referenceFrame(0x0004, 0x73, {}, 0xFFFF);
    rig.feed(header);
    Bytes filler(0xFFFF + 2, 0xAA);  // start bytes everywhere, all swallowed as payload
    rig.feed(filler);
    EXPECT_EQ(rig.engine->parserState(), State::Hunt);
    EXPECT_EQ(rig.frames(), 0u);
    rig.feed(kNext);
    ASSERT_EQ(rig.frames(), 1u);
    expectIsNext(rig.recorder.calls[0]);
}

TEST(FrameParser, FramesSpanningDatagrams) {
    // Two frames cut into uneven pieces, the cuts falling inside header, payload and CRC.
    ParserRig rig;
    const Bytes a = referenceFrame(0x0010, 1, patternPayload(300, 1));
    const Bytes b = referenceFrame(0x0011, 2, patternPayload(5, 2));
    const Bytes wire = concat({a, b});
    const std::size_t cuts[] = {0, 3, 7, 100, 309, 310, 311, 315, 320, wire.size()};
    for (std::size_t i = 0; i + 1 < sizeof cuts / sizeof cuts[0]; ++i)
        rig.feed(Bytes(wire.begin() + cuts[i], wire.begin() + cuts[i + 1]));
    ASSERT_EQ(rig.frames(), 2u);
    EXPECT_EQ(rig.recorder.calls[0].sequence, 0x0010);
    EXPECT_EQ(rig.recorder.calls[0].payload, patternPayload(300, 1));
    EXPECT_EQ(rig.recorder.calls[1].sequence, 0x0011);
}

// ---- idle ticks -----------------------------------------------------------------------------

struct IdleCase {
    const char* name;
    std::size_t cut;  // bytes fed before the pause
    int ticks;
    bool delivered;
};

void PrintTo(const IdleCase& c, std::ostream* os) {
    *os << c.name;
}

class IdleAbandon : public ::testing::TestWithParam<IdleCase> {};

TEST_P(IdleAbandon, PauseInsideAFrame) {
    const IdleCase& c = GetParam();
    ParserRig rig;
    const Bytes f = referenceFrame(0x8100, 0x40, patternPayload(10, 8));
    rig.feed(Bytes(f.begin(), f.begin() + c.cut));
    rig.ticks(c.ticks);
    rig.feed(Bytes(f.begin() + c.cut, f.end()));
    EXPECT_EQ(rig.frames(), c.delivered ? 1u : 0u);
    // The parser is usable afterwards either way.
    rig.feed(kNext);
    ASSERT_EQ(rig.frames(), c.delivered ? 2u : 1u);
    expectIsNext(rig.recorder.calls.back());
}

INSTANTIATE_TEST_SUITE_P(Ticks, IdleAbandon,
                         ::testing::Values(IdleCase{"NineTicksInHeaderKeep", 3, 9, true},
                                           IdleCase{"TenTicksInHeaderDrop", 3, 10, false},
                                           IdleCase{"TenTicksAfterStartByteDrop", 1, 10, false},
                                           IdleCase{"NineTicksInPayloadKeep", 12, 9, true},
                                           IdleCase{"TenTicksInPayloadDrop", 12, 10, false},
                                           IdleCase{"ManyTicksInPayloadDrop", 12, 1000, false},
                                           // The counter must saturate, not wrap round to zero.
                                           IdleCase{"SixtyFiveThousandTicksDrop", 12, 65536, false},
                                           IdleCase{"TenTicksBeforeLastCrcByteDrop", 19, 10, false},
                                           IdleCase{"NineTicksBeforeLastCrcByteKeep", 19, 9, true}),
                         [](const ::testing::TestParamInfo<IdleCase>& info) {
                             return info.param.name;
                         });

TEST(FrameParser, BytesResetTheIdleCounter) {
    ParserRig rig;
    const Bytes f = referenceFrame(0x8101, 0x41, patternPayload(10, 9));
    std::size_t fed = 0;
    // Nine ticks between every pair of bytes: never ten in a row.
    for (; fed < f.size(); ++fed) {
        rig.engine->feed(&f[fed], 1);
        rig.ticks(9);
    }
    ASSERT_EQ(rig.frames(), 1u);
    EXPECT_EQ(rig.recorder.calls[0].sequence, 0x8101);
}

TEST(FrameParser, IdleTicksWhileHuntingDoNotHarmTheNextFrame) {
    ParserRig rig;
    rig.ticks(50);
    rig.feed(kNext);
    ASSERT_EQ(rig.frames(), 1u);
    expectIsNext(rig.recorder.calls[0]);
}

TEST(FrameParser, AbandonedFrameBytesAreHuntedForANewStart) {
    // The stalled frame is dropped when the next byte arrives, and that byte may itself start
    // a new frame.
    ParserRig rig;
    const Bytes stalled = referenceFrame(0x8102, 0x42, patternPayload(30, 1));
    rig.feed(Bytes(stalled.begin(), stalled.begin() + 15));
    rig.ticks(10);
    rig.feed(kNext);
    ASSERT_EQ(rig.frames(), 1u);
    expectIsNext(rig.recorder.calls[0]);
}
