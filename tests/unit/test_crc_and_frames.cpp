// CRC-16/ARC, the exact bytes of built frames, datagram packing and send/receive round trips.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "device/crc16.h"
#include "device/frame_engine.h"
#include "unit/frame_test_support.h"

using kelo::FrameEngine;
using kelo_test::Bytes;
using kelo_test::EngineRig;
using kelo_test::naiveCrc16Arc;
using kelo_test::patternPayload;
using kelo_test::referenceFrame;

// ---- CRC ------------------------------------------------------------------------------------

TEST(Crc16Arc, CheckValueOf123456789) {
    const char* text = "123456789";
    EXPECT_EQ(kelo::crc16Arc(0, reinterpret_cast<const std::uint8_t*>(text), 9), 0xBB3D);
}

TEST(Crc16Arc, EmptyInputKeepsInitialValue) {
    EXPECT_EQ(kelo::crc16Arc(0, nullptr, 0), 0x0000);
    EXPECT_EQ(kelo::crc16Arc(0x1234, nullptr, 0), 0x1234);
}

TEST(Crc16Arc, KnownVectors) {
    struct Case {
        Bytes data;
        std::uint16_t crc;
    };
    const Case cases[] = {
        {{0x00}, 0x0000},
        {{0x01}, 0xC0C1},
        {{0xFF}, 0x4040},
        {{0xAA}, 0x7F80},
        // Headers: start, sequence, length, command.
        {{0xAA, 0x80, 0x34, 0x00, 0x03, 0x12}, 0x1997},
        {{0xAA, 0x00, 0x34, 0x00, 0x03, 0x12}, 0xC796},
        {{0xAA, 0x00, 0x07, 0x00, 0x00, 0xFF}, 0x3E59},
        {{0x01, 0x02, 0x03}, 0xA110},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.data));
        EXPECT_EQ(kelo::crc16Arc(0, c.data.data(), c.data.size()), c.crc);
        EXPECT_EQ(naiveCrc16Arc(c.data), c.crc);
    }
}

TEST(Crc16Arc, TableMatchesBitwiseOnRandomData) {
    const unsigned seed = 20240611u;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    for (int round = 0; round < 500; ++round) {
        Bytes data(rng() % 300);
        for (auto& b : data)
            b = static_cast<std::uint8_t>(rng());
        const std::uint16_t start = static_cast<std::uint16_t>(rng());
        ASSERT_EQ(kelo::crc16Arc(start, data.data(), data.size()),
                  naiveCrc16Arc(data.data(), data.size(), start));
    }
}

TEST(Crc16Arc, ByteAtATimeChainsLikeOneCall) {
    Bytes data = patternPayload(100, 3);
    std::uint16_t crc = 0;
    for (std::uint8_t b : data)
        crc = kelo::crc16ArcByte(crc, b);
    EXPECT_EQ(crc, kelo::crc16Arc(0, data.data(), data.size()));
    const std::uint16_t split = kelo::crc16Arc(0, data.data(), 37);
    EXPECT_EQ(kelo::crc16Arc(split, data.data() + 37, data.size() - 37), crc);
}

// ---- exact frame bytes ----------------------------------------------------------------------

TEST(FrameBytes, SmallCommandFromHost) {
    EngineRig rig(1);
    rig.engine->setTransmitCounter(0x0034);
    const std::uint8_t payload[] = {0x01, 0x02, 0x03};
    ASSERT_TRUE(rig.engine->send(0x12, payload, 3));
    const Bytes expected = {0xAA, 0x80, 0x34, 0x00, 0x03, 0x12, 0x19,
                            0x97, 0x01, 0x02, 0x03, 0xA1, 0x10};
    ASSERT_EQ(rig.sink.datagrams.size(), 1u);
    EXPECT_EQ(rig.sink.datagrams[0], expected);
}

TEST(FrameBytes, SmallCommandFromDeviceRoleHasBit15Clear) {
    EngineRig rig(0);
    rig.engine->setTransmitCounter(0x0034);
    const std::uint8_t payload[] = {0x01, 0x02, 0x03};
    ASSERT_TRUE(rig.engine->send(0x12, payload, 3));
    const Bytes expected = {0xAA, 0x00, 0x34, 0x00, 0x03, 0x12, 0xC7,
                            0x96, 0x01, 0x02, 0x03, 0xA1, 0x10};
    ASSERT_EQ(rig.sink.datagrams.size(), 1u);
    EXPECT_EQ(rig.sink.datagrams[0], expected);
}

TEST(FrameBytes, ZeroLengthFrameIsEightBytesWithoutPayloadCrc) {
    EngineRig rig(0);
    rig.engine->setTransmitCounter(7);
    ASSERT_TRUE(rig.engine->send(0xFF, nullptr, 0));
    const Bytes expected = {0xAA, 0x00, 0x07, 0x00, 0x00, 0xFF, 0x3E, 0x59};
    ASSERT_EQ(rig.sink.datagrams.size(), 1u);
    EXPECT_EQ(rig.sink.datagrams[0], expected);
}

TEST(FrameBytes, MultiByteFieldsAreBigEndian) {
    // Sequence 0x0102 and length 0x0304 use distinct bytes so a swapped field shows.
    EngineRig rig(0);
    rig.engine->setTransmitCounter(0x0102);
    const Bytes payload = patternPayload(0x0304, 1);
    ASSERT_TRUE(rig.engine->send(0x42, payload.data(), static_cast<std::uint16_t>(payload.size())));
    const Bytes all = rig.sink.joined();
    ASSERT_GE(all.size(), 8u);
    EXPECT_EQ(all[1], 0x01);
    EXPECT_EQ(all[2], 0x02);
    EXPECT_EQ(all[3], 0x03);
    EXPECT_EQ(all[4], 0x04);
    EXPECT_EQ(all[5], 0x42);
    EXPECT_EQ(all, referenceFrame(0x0102, 0x42, payload));
}

TEST(FrameBytes, SequenceCountsUpOnePerFrame) {
    EngineRig rig(1);
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(rig.engine->send(1, nullptr, 0));
    ASSERT_EQ(rig.sink.datagrams.size(), 3u);
    EXPECT_EQ(rig.sink.datagrams[0], referenceFrame(0x8000, 1, {}));
    EXPECT_EQ(rig.sink.datagrams[1], referenceFrame(0x8001, 1, {}));
    EXPECT_EQ(rig.sink.datagrams[2], referenceFrame(0x8002, 1, {}));
    EXPECT_EQ(rig.engine->transmitCounter(), 3);
}

TEST(FrameBytes, SequenceWrapsAfter7FFF) {
    struct Case {
        std::uint32_t role;
        std::uint16_t first;
        std::uint16_t second;
    };
    for (const Case c : {Case{1, 0xFFFF, 0x8000}, Case{0, 0x7FFF, 0x0000}}) {
        SCOPED_TRACE("role " + std::to_string(c.role));
        EngineRig rig(c.role);
        rig.engine->setTransmitCounter(0x7FFF);
        ASSERT_TRUE(rig.engine->send(9, nullptr, 0));
        ASSERT_TRUE(rig.engine->send(9, nullptr, 0));
        ASSERT_TRUE(rig.engine->send(9, nullptr, 0));
        ASSERT_EQ(rig.sink.datagrams.size(), 3u);
        EXPECT_EQ(rig.sink.datagrams[0], referenceFrame(c.first, 9, {}));
        EXPECT_EQ(rig.sink.datagrams[1], referenceFrame(c.second, 9, {}));
        EXPECT_EQ(rig.sink.datagrams[2],
                  referenceFrame(static_cast<std::uint16_t>(c.second + 1), 9, {}));
    }
}

TEST(FrameBytes, ReplyReusesTheGivenSequenceAndLeavesTheCounter) {
    EngineRig rig(0);
    rig.engine->setTransmitCounter(5);
    const Bytes payload = {0x00, 0x10};
    rig.engine->sendReply(0x8123, 0x21, payload.data(), 2);
    ASSERT_EQ(rig.sink.datagrams.size(), 1u);
    EXPECT_EQ(rig.sink.datagrams[0], referenceFrame(0x8123, 0x21, payload));
    EXPECT_EQ(rig.engine->transmitCounter(), 5);
}

TEST(FrameBytes, EverySendSetsSentSinceKeepAlive) {
    EngineRig rig(1);
    EXPECT_FALSE(rig.engine->sentSinceKeepAlive());
    ASSERT_TRUE(rig.engine->send(255, nullptr, 0, nullptr, 0));
    EXPECT_TRUE(rig.engine->sentSinceKeepAlive());
    rig.engine->clearSentSinceKeepAlive();
    EXPECT_FALSE(rig.engine->sentSinceKeepAlive());
    const std::uint8_t one = 1;
    ASSERT_TRUE(rig.engine->send(3, &one, 1));
    EXPECT_TRUE(rig.engine->sentSinceKeepAlive());
    rig.engine->clearSentSinceKeepAlive();
    rig.engine->sendReply(0x8001, 3, nullptr, 0);
    EXPECT_TRUE(rig.engine->sentSinceKeepAlive());
    rig.engine->clearSentSinceKeepAlive();
    EXPECT_FALSE(rig.engine->sentSinceKeepAlive());
}

// ---- datagram packing -----------------------------------------------------------------------

struct PackingCase {
    std::size_t payload;
    std::vector<std::size_t> datagrams;
};

void PrintTo(const PackingCase& c, std::ostream* os) {
    *os << "payload " << c.payload << " bytes";
}

class DatagramPacking : public ::testing::TestWithParam<PackingCase> {};

TEST_P(DatagramPacking, SplitsAtFullDatagramsAndNeverSplitsTheCrc) {
    const PackingCase& c = GetParam();
    EngineRig rig(1);
    const Bytes payload = patternPayload(c.payload, 5);
    ASSERT_TRUE(rig.engine->send(0x73, payload.data(), static_cast<std::uint16_t>(c.payload)));
    EXPECT_EQ(rig.sink.sizes(), c.datagrams);
    for (const auto& d : rig.sink.datagrams)
        EXPECT_LE(d.size(), FrameEngine::kDatagramSize);
    EXPECT_EQ(rig.sink.joined(), referenceFrame(0x8000, 0x73, payload));
}

INSTANTIATE_TEST_SUITE_P(Sizes, DatagramPacking,
                         ::testing::Values(PackingCase{0, {8}}, PackingCase{1, {11}},
                                           PackingCase{1389, {1399}}, PackingCase{1390, {1400}},
                                           PackingCase{1391, {1399, 2}},
                                           PackingCase{1392, {1400, 2}},
                                           PackingCase{1393, {1400, 3}},
                                           PackingCase{2048, {1400, 658}}),
                         [](const ::testing::TestParamInfo<PackingCase>& info) {
                             return "Payload" + std::to_string(info.param.payload);
                         });

TEST(DatagramPackingTail, CrcOnlyDatagramHoldsExactlyTheTwoCrcBytes) {
    EngineRig rig(1);
    const Bytes payload = patternPayload(1391, 9);
    ASSERT_TRUE(rig.engine->send(1, payload.data(), 1391));
    ASSERT_EQ(rig.sink.datagrams.size(), 2u);
    const std::uint16_t crc = naiveCrc16Arc(payload);
    EXPECT_EQ(rig.sink.datagrams[1],
              (Bytes{static_cast<std::uint8_t>(crc >> 8), static_cast<std::uint8_t>(crc)}));
}

TEST(DatagramPackingTail, EveryFrameStartsANewDatagram) {
    EngineRig rig(1);
    const Bytes big = patternPayload(1392, 2);
    const Bytes small = {0x01};
    ASSERT_TRUE(rig.engine->send(1, big.data(), 1391));
    ASSERT_TRUE(rig.engine->send(2, small.data(), 1));
    ASSERT_TRUE(rig.engine->send(3, nullptr, 0));
    ASSERT_TRUE(rig.engine->send(4, big.data(), 1392));
    EXPECT_EQ(rig.sink.sizes(), (std::vector<std::size_t>{1399, 2, 11, 8, 1400, 2}));
    EXPECT_EQ(rig.sink.datagrams[2][0], 0xAA);
    EXPECT_EQ(rig.sink.datagrams[3][0], 0xAA);
    EXPECT_EQ(rig.sink.datagrams[4][0], 0xAA);
    EXPECT_EQ(rig.sink.datagrams[2], referenceFrame(0x8001, 2, small));
}

// ---- round trip -----------------------------------------------------------------------------

class RoundTrip : public ::testing::TestWithParam<std::size_t> {
  protected:
    // Sends one frame from a host engine and returns its bytes, checking the datagram sizes.
    Bytes sendOne(const Bytes& payload) {
        EngineRig tx(1);
        tx.engine->setTransmitCounter(0x1234);
        EXPECT_TRUE(
            tx.engine->send(0x5A, payload.data(), static_cast<std::uint16_t>(payload.size())));
        datagrams_ = tx.sink.datagrams;
        return tx.sink.joined();
    }
    static void expectSingleFrame(const EngineRig& rx, const Bytes& payload) {
        ASSERT_EQ(rx.recorder.calls.size(), 1u);
        const auto& f = rx.recorder.calls[0];
        EXPECT_EQ(f.sequence, 0x9234);
        EXPECT_EQ(f.command, 0x5A);
        EXPECT_EQ(f.payload, payload);
        EXPECT_EQ(f.payloadNull, payload.empty());
        EXPECT_EQ(rx.engine->parserState(), FrameEngine::ParserState::Hunt);
    }
    std::vector<Bytes> datagrams_;
};

TEST_P(RoundTrip, InOnePiece) {
    const Bytes payload = patternPayload(GetParam(), 11);
    const Bytes wire = sendOne(payload);
    EngineRig rx(0);
    rx.engine->addGeneralHandler(kelo_test::recordAll);
    rx.feed(wire);
    expectSingleFrame(rx, payload);
}

TEST_P(RoundTrip, DatagramByDatagram) {
    const Bytes payload = patternPayload(GetParam(), 12);
    sendOne(payload);
    EngineRig rx(0);
    rx.engine->addGeneralHandler(kelo_test::recordAll);
    for (const auto& d : datagrams_)
        rx.feed(d);
    expectSingleFrame(rx, payload);
}

TEST_P(RoundTrip, ByteByByte) {
    const Bytes payload = patternPayload(GetParam(), 13);
    const Bytes wire = sendOne(payload);
    EngineRig rx(0);
    rx.engine->addGeneralHandler(kelo_test::recordAll);
    for (std::size_t i = 0; i < wire.size(); ++i) {
        EXPECT_TRUE(rx.recorder.calls.empty()) << "dispatched early, before byte " << i;
        rx.engine->feed(&wire[i], 1);
    }
    expectSingleFrame(rx, payload);
}

TEST_P(RoundTrip, SplitAtEveryPoint) {
    const Bytes payload = patternPayload(GetParam(), 14);
    const Bytes wire = sendOne(payload);
    // One parser, reused: each frame must leave it in Hunt, ready for the next split.
    EngineRig rx(0);
    rx.engine->addGeneralHandler(kelo_test::recordAll);
    for (std::size_t split = 0; split <= wire.size(); ++split) {
        SCOPED_TRACE("split at " + std::to_string(split));
        rx.recorder.calls.clear();
        rx.engine->feed(wire.data(), split);
        rx.engine->feed(wire.data() + split, wire.size() - split);
        expectSingleFrame(rx, payload);
        if (HasFatalFailure() || HasNonfatalFailure()) break;
    }
}

INSTANTIATE_TEST_SUITE_P(PayloadSizes, RoundTrip,
                         ::testing::Values(0, 1, 2, 7, 255, 256, 1389, 1390, 1391, 1392, 2047,
                                           2048),
                         [](const ::testing::TestParamInfo<std::size_t>& info) {
                             return "Payload" + std::to_string(info.param);
                         });

TEST(RoundTripMany, BackToBackFramesOfMixedSizesArriveInOrder) {
    EngineRig tx(1);
    EngineRig rx(0);
    rx.engine->addGeneralHandler(kelo_test::recordAll);
    const std::size_t sizes[] = {0, 3, 1391, 0, 2048, 1, 1390, 1392};
    std::vector<Bytes> payloads;
    for (std::size_t i = 0; i < sizeof sizes / sizeof sizes[0]; ++i) {
        payloads.push_back(patternPayload(sizes[i], static_cast<std::uint8_t>(i)));
        // Put frame-start bytes into the payloads too; the parser must not be fooled by them.
        if (!payloads.back().empty()) payloads.back()[0] = 0xAA;
        ASSERT_TRUE(tx.engine->send(static_cast<std::uint8_t>(i), payloads.back().data(),
                                    static_cast<std::uint16_t>(sizes[i])));
    }
    for (const auto& d : tx.sink.datagrams)
        rx.feed(d);
    ASSERT_EQ(rx.recorder.calls.size(), payloads.size());
    for (std::size_t i = 0; i < payloads.size(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(i));
        EXPECT_EQ(rx.recorder.calls[i].command, i);
        EXPECT_EQ(rx.recorder.calls[i].sequence, 0x8000 + i);
        EXPECT_EQ(rx.recorder.calls[i].payload, payloads[i]);
    }
}
