// The protocol engine: CRC-16/ARC, built frames byte for byte, datagram packing, the receive
// parser (damage, resync, idle abandonment) and the handler tables. (A CRC carried on across
// pieces and the byte-order helpers: every frame built and parsed here and in the device tests.)
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>

#include "device/byte_order.h"
#include "device/crc16.h"
#include "unit/frame_test_support.h"

using kelo::FrameEngine;
using namespace kelo_test;

namespace {

const Bytes kNext = referenceFrame(0x0042, 0x73, {0x10, 0x20, 0x30});

std::vector<std::size_t> sizes(const VectorSink& sink) {
    std::vector<std::size_t> out;
    for (const Bytes& d : sink.datagrams)
        out.push_back(d.size());
    return out;
}

void expectOnlyNext(const EngineRig& rig) {
    ASSERT_EQ(rig.frames(), 1u);
    const ReceivedFrame& f = rig.recorder.calls[0];
    EXPECT_EQ(referenceFrame(f.sequence, f.command, f.payload), kNext);  // 0x0042, 0x73, 3 bytes
}

}  // namespace

TEST(Crc16Arc, CheckValues) {
    // The check value, then single bytes (for the engine and the tests' own bit-by-bit CRC);
    // header and payload CRCs: the FrameBytes test.
    const struct {
        Bytes data;
        std::uint16_t crc;
    } cases[] = {{{'1', '2', '3', '4', '5', '6', '7', '8', '9'}, 0xBB3D},
                 {{}, 0x0000},
                 {{0x01}, 0xC0C1},
                 {{0xFF}, 0x4040},
                 {{0xAA}, 0x7F80}};
    for (const auto& c : cases) {
        EXPECT_EQ(kelo::crc16Arc(0, c.data.data(), c.data.size()), c.crc);
        EXPECT_EQ(naiveCrc16Arc(c.data.data(), c.data.size()), c.crc);
    }
}

// Big-endian sequence (bit 15 set in the host role) and length, then the CRCs; no payload CRC
// without a payload. Sequences count up and wrap within 15 bits, a reply reuses the sequence it
// answers and leaves the counter alone, and the keep-alive sees every send.
TEST(FrameBytes, ExactBytesSequencesAndKeepAlive) {
    const Bytes three = {0x01, 0x02, 0x03};
    for (const std::uint32_t role : {1u, 0u}) {
        SCOPED_TRACE(role);
        const std::uint16_t bit15 = role ? 0x8000 : 0;
        EngineRig rig(role);
        EXPECT_FALSE(rig.engine->sentSinceKeepAlive());
        rig.engine->setTransmitCounter(0x0034);
        ASSERT_TRUE(rig.engine->send(0x12, three.data(), 3));
        rig.engine->setTransmitCounter(0x0007);
        ASSERT_TRUE(rig.engine->send(0xFF, nullptr, 0));
        EXPECT_EQ(rig.sink.datagrams, (std::vector<Bytes>{referenceFrame(bit15 | 0x34, 0x12, three),
                                                          referenceFrame(bit15 | 0x07, 0xFF, {})}));
        rig.sink.datagrams.clear();
        rig.engine->setTransmitCounter(0x7FFE);
        rig.engine->clearSentSinceKeepAlive();
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(rig.engine->send(9, nullptr, 0));
            EXPECT_TRUE(rig.engine->sentSinceKeepAlive());
            rig.engine->clearSentSinceKeepAlive();
        }
        rig.engine->sendReply(0x8123, 0x21, nullptr, 0);  // leaves the counter alone
        EXPECT_TRUE(rig.engine->sentSinceKeepAlive());
        EXPECT_EQ(rig.engine->transmitCounter(), 0x8001);
        EXPECT_EQ(rig.sink.datagrams,
                  (std::vector<Bytes>{
                      referenceFrame(bit15 | 0x7FFE, 9, {}), referenceFrame(bit15 | 0x7FFF, 9, {}),
                      referenceFrame(bit15, 9, {}), referenceFrame(0x8123, 0x21, {})}));
    }
}

TEST(DatagramPacking, FullDatagramsNeverSplitTheCrcAndEveryFrameStartsOne) {
    const struct {
        std::size_t payload;
        std::vector<std::size_t> datagrams;
    } cases[] = {{0, {8}},          {1, {11}},         {1389, {1399}},    {1390, {1400}},
                 {1391, {1399, 2}}, {1392, {1400, 2}}, {1393, {1400, 3}}, {2048, {1400, 658}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.payload);
        EngineRig rig(1);
        const Bytes payload = patternPayload(c.payload, 5);
        ASSERT_TRUE(rig.engine->send(0x73, payload.data(), static_cast<std::uint16_t>(c.payload)));
        EXPECT_EQ(sizes(rig.sink), c.datagrams);
        EXPECT_EQ(concat(rig.sink.datagrams), referenceFrame(0x8000, 0x73, payload));
    }
    EngineRig rig(1);
    const Bytes big = patternPayload(1392, 2);
    const Bytes small = {0x01};
    ASSERT_TRUE(rig.engine->send(1, big.data(), 1391));
    ASSERT_TRUE(rig.engine->send(2, small.data(), 1));
    ASSERT_TRUE(rig.engine->send(3, nullptr, 0));
    ASSERT_TRUE(rig.engine->send(4, big.data(), 1392));
    EXPECT_EQ(sizes(rig.sink), (std::vector<std::size_t>{1399, 2, 11, 8, 1400, 2}));
    EXPECT_EQ(rig.sink.datagrams[2], referenceFrame(0x8001, 2, small));
}

TEST(RoundTrip, EverySizeBytewiseAndSplitAnywhere) {
    for (const std::size_t size : {0, 1, 2, 7, 256, 1389, 1390, 1391, 1392, 2047, 2048}) {
        SCOPED_TRACE(size);
        const Bytes payload = patternPayload(size, 11);
        EngineRig tx(1);
        tx.engine->setTransmitCounter(0x1234);
        ASSERT_TRUE(tx.engine->send(0x5A, payload.data(), static_cast<std::uint16_t>(size)));
        const Bytes wire = concat(tx.sink.datagrams);
        EngineRig rx(0);
        auto expectOne = [&] {
            ASSERT_EQ(rx.frames(), 1u);
            const ReceivedFrame& f = rx.recorder.calls[0];
            EXPECT_EQ(f.sequence, 0x9234);
            EXPECT_EQ(f.command, 0x5A);
            EXPECT_EQ(f.payload, payload);
            EXPECT_EQ(f.payloadNull, payload.empty());
            EXPECT_EQ(rx.engine->parserState(), FrameEngine::ParserState::Hunt);
            rx.recorder.calls.clear();
        };
        for (std::size_t i = 0; i < wire.size(); ++i) {
            ASSERT_EQ(rx.frames(), 0u) << "dispatched before byte " << i;
            rx.engine->feed(&wire[i], 1);
        }
        expectOne();
        // One parser, reused: each frame must leave it ready for the next split.
        const std::size_t step = size > 300 ? 97 : 1;
        for (std::size_t split = 0; split <= wire.size(); split += step) {
            rx.engine->feed(wire.data(), split);
            rx.engine->feed(wire.data() + split, wire.size() - split);
            expectOne();
            if (HasFailure()) return;
        }
    }
}

TEST(FrameParser, DamagedFramesAreDroppedAndTheNextFrameIsFound) {
    auto flipped = [](Bytes b, std::size_t at, std::uint8_t bits) {
        b[at] ^= bits;
        return b;
    };
    const Bytes twenty = referenceFrame(0x8005, 0x10, patternPayload(20));
    const Bytes fifty = referenceFrame(0x8006, 0x20, patternPayload(50, 3));
    // A payload CRC that went on from the header CRC instead of starting at zero.
    Bytes chainedCrc = referenceFrame(0x8007, 0x30, {1, 2, 3});
    const std::uint16_t chained =
        naiveCrc16Arc(chainedCrc.data() + 8, 3, naiveCrc16Arc(chainedCrc.data(), 8));
    kelo::putBe16(chainedCrc.data() + 11, chained);
    // An oversize payload holding a complete frame and its correct CRC: consumed as a whole.
    const Bytes oversize =
        referenceFrame(0x0002, 0x73, concat({kNext, patternPayload(2049 - kNext.size(), 6)}));
    const Bytes debris[] = {
        {},
        {0x01, 0x02, 0x03, 0x55, 0xFF},
        {0xAA, 0x00, 0x01, 0x00, 0x00, 0x05, 0x12, 0x34},  // announces 0 bytes, bad CRC
        flipped(twenty, 6, 0x01),                          // header CRC
        flipped(twenty, 3, 0x04),  // the length (sequence and command: under the same CRC)
        flipped(fifty, 25, 0x80),  // a payload byte
        flipped(fifty, fifty.size() - 1, 0x01),  // payload CRC
        chainedCrc,
        oversize,
        concat({referenceFrame(0x0004, 0x73, {}, 0xFFFF), Bytes(0xFFFF + 2, 0xAA)}),
    };
    for (const Bytes& d : debris) {
        SCOPED_TRACE("debris " + std::to_string(&d - debris));
        EngineRig rig(1);
        rig.feed(concat({d, kNext}));
        expectOnlyNext(rig);
    }
    // After a bad header the parser hunts through the dropped frame's bytes.
    EngineRig rig(1);
    rig.feed(flipped(referenceFrame(0x8005, 0x10, kNext), 7, 0xFF));
    expectOnlyNext(rig);
}

TEST(FrameParser, TenIdleTicksInsideAFrameAbandonIt) {
    const Bytes f = referenceFrame(0x8100, 0x40, patternPayload(10, 8));
    // Cut after `cut` bytes and paused for `ticks`; 65536 ticks: the count saturates, it does not
    // wrap to zero.
    const struct {
        std::size_t cut;
        int ticks;
        bool delivered;
    } cases[] = {{3, 9, true},       {3, 10, false},  {1, 10, false},
                 {12, 9, true},      {12, 10, false}, {12, 1000, false},
                 {12, 65536, false}, {19, 10, false}, {19, 9, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.cut) + " bytes, " + std::to_string(c.ticks) + " ticks");
        EngineRig rig(1);
        rig.feed(Bytes(f.begin(), f.begin() + static_cast<long>(c.cut)));
        rig.ticks(c.ticks);
        rig.feed(Bytes(f.begin() + static_cast<long>(c.cut), f.end()));
        EXPECT_EQ(rig.frames(), c.delivered ? 1u : 0u);
        rig.feed(kNext);
        EXPECT_EQ(rig.frames(), c.delivered ? 2u : 1u);
    }
    // Bytes reset the count: nine ticks between every two bytes never abandon the frame.
    EngineRig rig(1);
    rig.ticks(50);  // idle while hunting: harmless
    for (std::uint8_t b : f) {
        rig.engine->feed(&b, 1);
        rig.ticks(9);
    }
    EXPECT_EQ(rig.frames(), 1u);
}

namespace {

// Handlers are plain function pointers: each is a template instance with its own name, recording
// into the current table rig and returning its configured result.
struct TableRig;
TableRig* g_rig = nullptr;
constexpr int kHandlerCount = 24;

struct TableRig : EngineRig {
    TableRig() : EngineRig(1) { g_rig = this; }
    void frame(std::uint16_t sequence, std::uint8_t command, const Bytes& payload = {}) {
        feed(referenceFrame(sequence, command, payload));
    }
    std::vector<std::string> callOrder() const {
        std::vector<std::string> out;
        for (const auto& c : recorder.calls)
            out.push_back(c.handler);
        return out;
    }
    std::array<int, kHandlerCount> result{};
};

template <int Id>
int numberedHandler(FrameEngine&, const kelo::FrameMessage& m) {
    g_rig->recorder.record("h" + std::to_string(Id), m);
    return g_rig->result[Id];
}
template <std::size_t... I>
constexpr std::array<kelo::FrameHandler, sizeof...(I)> makeHandlers(std::index_sequence<I...>) {
    return {&numberedHandler<static_cast<int>(I)>...};
}
const auto kHandlers = makeHandlers(std::make_index_sequence<kHandlerCount>{});

// The three tables behind one face, so that their shared rule is tested once for all of them.
// Entry `key` is a sequence, a command code or a handler number.
struct TableOps {
    const char* name;
    int capacity;
    bool (*add)(FrameEngine&, int key);
    void (*remove)(FrameEngine&, int key);
    int (FrameEngine::*highWater)() const;
    void (*hit)(TableRig&, int key);  // a frame that reaches entry `key`
};
const TableOps kTables[] = {
    {"pending", FrameEngine::kPendingSlots,
     [](FrameEngine& e, int k) {
         return e.addPendingReply(static_cast<std::uint16_t>(0x8000 + k), kHandlers[k], 0);
     },
     [](FrameEngine& e, int k) { e.removePendingReply(static_cast<std::uint16_t>(0x8000 + k)); },
     &FrameEngine::pendingHighWater,
     [](TableRig& r, int k) { r.frame(static_cast<std::uint16_t>(0x8000 + k), 0x01); }},
    {"command", FrameEngine::kCommandSlots,
     [](FrameEngine& e, int k) {
         return e.addCommandHandler(static_cast<std::uint8_t>(100 + k), kHandlers[k]);
     },
     [](FrameEngine& e, int k) { e.removeCommandHandler(static_cast<std::uint8_t>(100 + k)); },
     &FrameEngine::commandHighWater,
     [](TableRig& r, int k) { r.frame(0x0001, static_cast<std::uint8_t>(100 + k)); }},
    {"general", FrameEngine::kGeneralSlots,
     [](FrameEngine& e, int k) { return e.addGeneralHandler(kHandlers[k]); },
     [](FrameEngine& e, int k) { e.removeGeneralHandler(kHandlers[k]); },
     &FrameEngine::generalHighWater, [](TableRig& r, int) { r.frame(0x0001, 0x01); }},
};

}  // namespace

TEST(HandlerTables, CapacityAndResults) {
    for (const TableOps& t : kTables) {
        SCOPED_TRACE(t.name);
        TableRig rig;
        FrameEngine& e = *rig.engine;
        // Full: refused until an entry is freed; removing an absent entry frees nothing.
        for (int k = 4; k < 4 + t.capacity; ++k)
            ASSERT_TRUE(t.add(e, k)) << k;
        t.remove(e, 0);
        EXPECT_FALSE(t.add(e, 0));
        t.remove(e, 4);
        EXPECT_TRUE(t.add(e, 0));
        // Results 1 and 2 keep an entry, 3 removes it.
        TableRig results;
        ASSERT_TRUE(t.add(*results.engine, 0));
        ASSERT_TRUE(t.add(*results.engine, 1));
        for (int r : {1, 2, 3}) {
            results.result[1] = r;
            results.recorder.calls.clear();
            t.hit(results, 1);
            EXPECT_EQ(results.callOrder().back(), "h1");
        }
        EXPECT_EQ((*results.engine.*t.highWater)(), 1);
        results.recorder.calls.clear();
        t.hit(results, 1);
        for (const auto& c : results.recorder.calls)
            EXPECT_NE(c.handler, "h1");
    }
    TableRig rig;
    EXPECT_FALSE(rig.engine->addPendingReply(1, nullptr, 5));
    EXPECT_FALSE(rig.engine->addCommandHandler(1, nullptr));
    EXPECT_FALSE(rig.engine->addGeneralHandler(nullptr));
}

TEST(HandlerTables, PendingThenCommandThenGeneralThenReceiverUntilNonZero) {
    // Results of the first pending, command and general handler, and how many of the calls in
    // `order` they let happen.
    const std::vector<std::string> order = {"h0", "h1", "h2", "h3", "h4", "h5", "receiver"};
    const struct {
        int pending, command, general, calls;
    } cases[] = {{0, 0, 0, 7}, {1, 0, 0, 1}, {2, 0, 0, 1},  {3, 0, 0, 1}, {7, 0, 0, 1},
                 {0, 1, 0, 3}, {0, 3, 0, 3}, {0, -1, 0, 3}, {0, 0, 1, 5}, {0, 0, 3, 5}};
    for (const auto& c : cases) {
        TableRig rig;
        FrameEngine& e = *rig.engine;
        // Two of each kind; the second runs only when the first returns 0.
        ASSERT_TRUE(e.addPendingReply(0x8033, kHandlers[0], 5, 0x1111, 0x2222));
        ASSERT_TRUE(e.addPendingReply(0x8033, kHandlers[1], 5));
        ASSERT_TRUE(e.addPendingReply(0x8034, kHandlers[9], 5));  // another sequence
        ASSERT_TRUE(e.addCommandHandler(0x44, kHandlers[2]));
        ASSERT_TRUE(e.addCommandHandler(0x45, kHandlers[9]));  // another code
        ASSERT_TRUE(e.addCommandHandler(0x44, kHandlers[3]));
        ASSERT_TRUE(e.addGeneralHandler(kHandlers[4]));
        ASSERT_TRUE(e.addGeneralHandler(kHandlers[5]));
        rig.result = {c.pending, 0, c.command, 0, c.general};
        rig.frame(0x8033, 0x44, {0x07});
        EXPECT_EQ(rig.callOrder(),
                  std::vector<std::string>(order.begin(), order.begin() + c.calls));
        for (const auto& call : rig.recorder.calls) {
            EXPECT_EQ(call.payload, Bytes{0x07});
            // The pending entry's context reaches only the pending callback.
            EXPECT_EQ(call.context[0], call.handler == "h0" ? 0x1111u : 0u);
        }
    }
}

TEST(HandlerTables, PendingRepliesTimeOutAfterTheirTicks) {
    TableRig rig;
    FrameEngine& e = *rig.engine;
    ASSERT_TRUE(e.addPendingReply(1, kHandlers[0], 2));
    ASSERT_TRUE(e.addPendingReply(0x8077, kHandlers[1], 1, 0xAB, 0xCD));
    ASSERT_TRUE(e.addPendingReply(3, kHandlers[2], 3));
    ASSERT_TRUE(e.addPendingReply(5, kHandlers[3], 0));  // never times out
    rig.ticks(1);
    ASSERT_EQ(rig.callOrder(), (std::vector<std::string>{"h1"}));
    const ReceivedFrame& timeout = rig.recorder.calls[0];
    EXPECT_EQ(timeout.sequence, 0x8077);
    EXPECT_TRUE(timeout.payloadNull);
    EXPECT_EQ(timeout.context[1], 0xCDu);
    rig.ticks(2);
    EXPECT_EQ(rig.callOrder(), (std::vector<std::string>{"h1", "h0", "h2"}));
    rig.ticks(100);
    rig.frame(0x8077, 1);  // removed: a late reply reaches the receiver
    EXPECT_EQ(rig.callOrder(), (std::vector<std::string>{"h1", "h0", "h2", "receiver"}));
    EXPECT_EQ(e.pendingHighWater(), 4);
    // Result 2 clears the count-down, 1 keeps it running, 3 removes the entry.
    for (int result : {1, 2, 3}) {
        TableRig r;
        ASSERT_TRUE(r.engine->addPendingReply(0x8010, kHandlers[0], 3));
        r.result[0] = result;
        r.frame(0x8010, 1);
        r.ticks(10);
        EXPECT_EQ(r.frames(), result == 1 ? 2u : 1u) << result;
        EXPECT_EQ(r.engine->pendingHighWater(), result == 2 ? 1 : 0) << result;
    }
}
