// The pending-reply, command-handler and general-handler tables: their shared add/remove rule,
// capacities, dispatch order and handler results, and the tick that times out pending replies.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>
#include <utility>

#include "device/frame_engine.h"
#include "unit/frame_test_support.h"

using kelo::FrameEngine;
using kelo::FrameMessage;
using kelo_test::Bytes;
using kelo_test::EngineRig;
using kelo_test::Recorder;
using kelo_test::referenceFrame;

namespace {

// Handlers are plain function pointers, so each one is a template instance with its own name and
// its own configurable result. The results live in the rig's recorder.
constexpr int kHandlerCount = 24;

struct TableRecorder : Recorder {
    std::array<int, kHandlerCount> result{};
};

template <int Id>
int numberedHandler(FrameEngine& engine, const FrameMessage& m) {
    auto* rec = static_cast<TableRecorder*>(engine.owner());
    rec->record(("h" + std::to_string(Id)).c_str(), m);
    return rec->result[Id];
}

template <std::size_t... I>
constexpr std::array<kelo::FrameHandler, sizeof...(I)> makeHandlers(std::index_sequence<I...>) {
    return {&numberedHandler<static_cast<int>(I)>...};
}
const std::array<kelo::FrameHandler, kHandlerCount> kHandlers =
    makeHandlers(std::make_index_sequence<kHandlerCount>{});

std::string name(int id) {
    return "h" + std::to_string(id);
}

// An engine whose owner is a TableRecorder.
struct TableRig {
    TableRig() : engine(1, &recorder, &sink, lock) {}
    void feed(const Bytes& b) { engine.feed(b.data(), b.size()); }
    void frame(std::uint16_t sequence, std::uint8_t command, const Bytes& payload = {}) {
        feed(referenceFrame(sequence, command, payload));
    }
    std::vector<std::string> callOrder() const {
        std::vector<std::string> out;
        for (const auto& c : recorder.calls)
            out.push_back(c.handler);
        return out;
    }
    std::mutex lock;
    kelo_test::VectorSink sink;
    TableRecorder recorder;
    FrameEngine engine;
};

// The three tables behind one face, so that their shared rule is tested once for all of them.
// Entry `key` is a sequence, a command code or a handler number.
struct TableOps {
    const char* name;
    int capacity;
    std::function<bool(FrameEngine&, int key)> add;
    std::function<void(FrameEngine&, int key)> remove;
    std::function<int(const FrameEngine&)> highWater;
    // Dispatches a frame that reaches entry `key`.
    std::function<void(TableRig&, int key)> hit;
};

const TableOps kTables[] = {
    {"Pending", FrameEngine::kPendingSlots,
     [](FrameEngine& e, int key) {
         return e.addPendingReply(static_cast<std::uint16_t>(0x8000 + key), kHandlers[key], 0);
     },
     [](FrameEngine& e, int key) {
         e.removePendingReply(static_cast<std::uint16_t>(0x8000 + key));
     },
     [](const FrameEngine& e) { return e.pendingHighWater(); },
     [](TableRig& r, int key) { r.frame(static_cast<std::uint16_t>(0x8000 + key), 0x01); }},
    {"Command", FrameEngine::kCommandSlots,
     [](FrameEngine& e, int key) {
         return e.addCommandHandler(static_cast<std::uint8_t>(100 + key), kHandlers[key]);
     },
     [](FrameEngine& e, int key) { e.removeCommandHandler(static_cast<std::uint8_t>(100 + key)); },
     [](const FrameEngine& e) { return e.commandHighWater(); },
     [](TableRig& r, int key) { r.frame(0x0001, static_cast<std::uint8_t>(100 + key)); }},
    {"General", FrameEngine::kGeneralSlots,
     [](FrameEngine& e, int key) { return e.addGeneralHandler(kHandlers[key]); },
     [](FrameEngine& e, int key) { e.removeGeneralHandler(kHandlers[key]); },
     [](const FrameEngine& e) { return e.generalHighWater(); },
     [](TableRig& r, int) { r.frame(0x0001, 0x01); }},
};

void PrintTo(const TableOps& t, std::ostream* os) {
    *os << t.name;
}

class HandlerTable : public ::testing::TestWithParam<TableOps> {};

}  // namespace

TEST_P(HandlerTable, StartsEmpty) {
    TableRig rig;
    EXPECT_EQ(GetParam().highWater(rig.engine), 0);
}

TEST_P(HandlerTable, HighWaterRule) {
    const TableOps& t = GetParam();
    TableRig rig;
    ASSERT_TRUE(t.add(rig.engine, 0));
    ASSERT_TRUE(t.add(rig.engine, 1));
    ASSERT_TRUE(t.add(rig.engine, 2));
    EXPECT_EQ(t.highWater(rig.engine), 3);
    t.remove(rig.engine, 1);  // a middle entry: count unchanged
    EXPECT_EQ(t.highWater(rig.engine), 3);
    ASSERT_TRUE(t.add(rig.engine, 3));  // takes the free middle entry, not a new one
    EXPECT_EQ(t.highWater(rig.engine), 3);
    t.remove(rig.engine, 2);  // the last entry: count lowered by one
    EXPECT_EQ(t.highWater(rig.engine), 2);
    t.remove(rig.engine, 0);  // the first entry while entry 1 is in use: unchanged
    EXPECT_EQ(t.highWater(rig.engine), 2);
    t.remove(rig.engine, 3);  // the last entry again: lowered by one only, entry 0 is free
    EXPECT_EQ(t.highWater(rig.engine), 1);
    ASSERT_TRUE(t.add(rig.engine, 4));  // first free entry is entry 0: count stays
    EXPECT_EQ(t.highWater(rig.engine), 1);
    ASSERT_TRUE(t.add(rig.engine, 5));
    EXPECT_EQ(t.highWater(rig.engine), 2);
}

TEST_P(HandlerTable, RemovingAnAbsentEntryChangesNothing) {
    const TableOps& t = GetParam();
    TableRig rig;
    ASSERT_TRUE(t.add(rig.engine, 0));
    ASSERT_TRUE(t.add(rig.engine, 1));
    t.remove(rig.engine, 7);
    EXPECT_EQ(t.highWater(rig.engine), 2);
    t.hit(rig, 1);
    EXPECT_EQ(rig.recorder.calls.size(), t.name == std::string("General") ? 2u : 1u);
}

TEST_P(HandlerTable, FullTableRefusesAndAcceptsAgainAfterARemove) {
    const TableOps& t = GetParam();
    TableRig rig;
    for (int i = 0; i < t.capacity; ++i)
        ASSERT_TRUE(t.add(rig.engine, i)) << "entry " << i;
    EXPECT_EQ(t.highWater(rig.engine), t.capacity);
    EXPECT_FALSE(t.add(rig.engine, t.capacity));
    EXPECT_EQ(t.highWater(rig.engine), t.capacity);
    t.remove(rig.engine, 2);
    EXPECT_TRUE(t.add(rig.engine, t.capacity));
    EXPECT_FALSE(t.add(rig.engine, t.capacity + 1));
    EXPECT_EQ(t.highWater(rig.engine), t.capacity);
}

TEST_P(HandlerTable, NullCallbackIsRefused) {
    const TableOps& t = GetParam();
    TableRig rig;
    bool added = false;
    if (t.name == std::string("Pending")) added = rig.engine.addPendingReply(1, nullptr, 5);
    if (t.name == std::string("Command")) added = rig.engine.addCommandHandler(1, nullptr);
    if (t.name == std::string("General")) added = rig.engine.addGeneralHandler(nullptr);
    EXPECT_FALSE(added);
    EXPECT_EQ(t.highWater(rig.engine), 0);
}

TEST_P(HandlerTable, ResultThreeRemovesTheEntry) {
    const TableOps& t = GetParam();
    TableRig rig;
    ASSERT_TRUE(t.add(rig.engine, 0));
    ASSERT_TRUE(t.add(rig.engine, 1));
    rig.recorder.result[1] = 3;
    t.hit(rig, 1);
    EXPECT_EQ(t.highWater(rig.engine), 1);
    rig.recorder.calls.clear();
    t.hit(rig, 1);
    for (const auto& c : rig.recorder.calls)
        EXPECT_NE(c.handler, name(1));
}

TEST_P(HandlerTable, ResultsOneAndTwoKeepTheEntry) {
    const TableOps& t = GetParam();
    for (int result : {1, 2}) {
        SCOPED_TRACE("result " + std::to_string(result));
        TableRig rig;
        ASSERT_TRUE(t.add(rig.engine, 0));
        rig.recorder.result[0] = result;
        t.hit(rig, 0);
        t.hit(rig, 0);
        EXPECT_EQ(rig.callOrder(), (std::vector<std::string>{name(0), name(0)}));
        EXPECT_EQ(t.highWater(rig.engine), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Tables, HandlerTable, ::testing::ValuesIn(kTables),
                         [](const ::testing::TestParamInfo<TableOps>& info) {
                             return std::string(info.param.name);
                         });

// ---- dispatch order and results -------------------------------------------------------------

TEST(Dispatch, GeneralHandlersRunInTableOrderAndReuseFreedEntries) {
    TableRig rig;
    for (int id : {0, 1, 2})
        ASSERT_TRUE(rig.engine.addGeneralHandler(kHandlers[id]));
    rig.engine.removeGeneralHandler(kHandlers[1]);
    ASSERT_TRUE(rig.engine.addGeneralHandler(kHandlers[3]));  // lands in entry 1
    rig.frame(1, 1);
    EXPECT_EQ(rig.callOrder(), (std::vector<std::string>{name(0), name(3), name(2)}));
}

TEST(Dispatch, CommandHandlersOnlySeeTheirCode) {
    TableRig rig;
    ASSERT_TRUE(rig.engine.addCommandHandler(10, kHandlers[0]));
    ASSERT_TRUE(rig.engine.addCommandHandler(11, kHandlers[1]));
    ASSERT_TRUE(rig.engine.addCommandHandler(10, kHandlers[2]));
    rig.frame(1, 10);
    EXPECT_EQ(rig.callOrder(), (std::vector<std::string>{name(0), name(2)}));
    rig.recorder.calls.clear();
    rig.frame(1, 12);
    EXPECT_TRUE(rig.recorder.calls.empty());
}

TEST(Dispatch, PendingRepliesOnlySeeTheirSequence) {
    TableRig rig;
    ASSERT_TRUE(rig.engine.addPendingReply(0x8001, kHandlers[0], 5));
    ASSERT_TRUE(rig.engine.addPendingReply(0x8002, kHandlers[1], 5));
    rig.frame(0x8002, 1);
    EXPECT_EQ(rig.callOrder(), (std::vector<std::string>{name(1)}));
    rig.recorder.calls.clear();
    rig.frame(0x0002, 1);  // bit 15 is part of the sequence
    EXPECT_TRUE(rig.recorder.calls.empty());
}

struct OrderCase {
    const char* name;
    int pendingResult;
    int commandResult;
    int generalResult;
    std::vector<std::string> calls;
};

void PrintTo(const OrderCase& c, std::ostream* os) {
    *os << c.name;
}

class DispatchOrder : public ::testing::TestWithParam<OrderCase> {};

TEST_P(DispatchOrder, PendingThenCommandThenGeneralUntilNonZero) {
    const OrderCase& c = GetParam();
    TableRig rig;
    // Two of each kind; the second entry of a kind only runs when the first returns 0.
    ASSERT_TRUE(rig.engine.addPendingReply(0x8033, kHandlers[0], 5));
    ASSERT_TRUE(rig.engine.addPendingReply(0x8033, kHandlers[1], 5));
    ASSERT_TRUE(rig.engine.addCommandHandler(0x44, kHandlers[2]));
    ASSERT_TRUE(rig.engine.addCommandHandler(0x44, kHandlers[3]));
    ASSERT_TRUE(rig.engine.addGeneralHandler(kHandlers[4]));
    ASSERT_TRUE(rig.engine.addGeneralHandler(kHandlers[5]));
    rig.recorder.result[0] = c.pendingResult;
    rig.recorder.result[2] = c.commandResult;
    rig.recorder.result[4] = c.generalResult;
    rig.frame(0x8033, 0x44, {0x07});
    EXPECT_EQ(rig.callOrder(), c.calls);
    for (const auto& call : rig.recorder.calls) {
        EXPECT_EQ(call.sequence, 0x8033);
        EXPECT_EQ(call.command, 0x44);
        EXPECT_EQ(call.payload, Bytes{0x07});
    }
}

INSTANTIATE_TEST_SUITE_P(
    Results, DispatchOrder,
    ::testing::Values(OrderCase{"AllZero", 0, 0, 0, {"h0", "h1", "h2", "h3", "h4", "h5"}},
                      OrderCase{"PendingOne", 1, 0, 0, {"h0"}},
                      OrderCase{"PendingTwo", 2, 0, 0, {"h0"}},
                      OrderCase{"PendingThree", 3, 0, 0, {"h0"}},
                      OrderCase{"PendingOther", 7, 0, 0, {"h0"}},
                      OrderCase{"CommandOne", 0, 1, 0, {"h0", "h1", "h2"}},
                      OrderCase{"CommandTwo", 0, 2, 0, {"h0", "h1", "h2"}},
                      OrderCase{"CommandThree", 0, 3, 0, {"h0", "h1", "h2"}},
                      OrderCase{"GeneralOne", 0, 0, 1, {"h0", "h1", "h2", "h3", "h4"}},
                      OrderCase{"GeneralThree", 0, 0, 3, {"h0", "h1", "h2", "h3", "h4"}},
                      OrderCase{"NegativeEndsToo", 0, -1, 0, {"h0", "h1", "h2"}}),
    [](const ::testing::TestParamInfo<OrderCase>& info) { return info.param.name; });

TEST(Dispatch, PendingContextReachesOnlyThePendingCallback) {
    TableRig rig;
    ASSERT_TRUE(rig.engine.addPendingReply(0x8009, kHandlers[0], 5, 0x1111, 0x2222));
    ASSERT_TRUE(rig.engine.addCommandHandler(0x09, kHandlers[1]));
    ASSERT_TRUE(rig.engine.addGeneralHandler(kHandlers[2]));
    rig.frame(0x8009, 0x09);
    ASSERT_EQ(rig.recorder.calls.size(), 3u);
    EXPECT_EQ(rig.recorder.calls[0].context[0], 0x1111u);
    EXPECT_EQ(rig.recorder.calls[0].context[1], 0x2222u);
    EXPECT_EQ(rig.recorder.calls[1].context[0], 0u);
    EXPECT_EQ(rig.recorder.calls[1].context[1], 0u);
    EXPECT_EQ(rig.recorder.calls[2].context[0], 0u);
    EXPECT_EQ(rig.recorder.calls[2].context[1], 0u);
}

// ---- tick and pending count-downs -----------------------------------------------------------

TEST(PendingTick, CountsDownThenTimesOutWithoutPayloadAndRemoves) {
    TableRig rig;
    ASSERT_TRUE(rig.engine.addPendingReply(0x8077, kHandlers[0], 3, 0xAB, 0xCD));
    rig.engine.tick();
    rig.engine.tick();
    EXPECT_TRUE(rig.recorder.calls.empty());
    EXPECT_EQ(rig.engine.pendingHighWater(), 1);
    rig.engine.tick();
    ASSERT_EQ(rig.recorder.calls.size(), 1u);
    const auto& timeout = rig.recorder.calls[0];
    EXPECT_EQ(timeout.sequence, 0x8077);
    EXPECT_TRUE(timeout.payloadNull);
    EXPECT_TRUE(timeout.payload.empty());
    EXPECT_EQ(timeout.context[0], 0xABu);
    EXPECT_EQ(timeout.context[1], 0xCDu);
    EXPECT_EQ(rig.engine.pendingHighWater(), 0);
    // Removed: neither another tick nor a late reply reaches it.
    rig.engine.tick();
    rig.frame(0x8077, 1);
    EXPECT_EQ(rig.recorder.calls.size(), 1u);
}

TEST(PendingTick, EachEntryHasItsOwnCountDown) {
    TableRig rig;
    ASSERT_TRUE(rig.engine.addPendingReply(1, kHandlers[0], 2));
    ASSERT_TRUE(rig.engine.addPendingReply(2, kHandlers[1], 1));
    ASSERT_TRUE(rig.engine.addPendingReply(3, kHandlers[2], 3));
    rig.engine.tick();
    EXPECT_EQ(rig.callOrder(), (std::vector<std::string>{name(1)}));
    EXPECT_EQ(rig.engine.pendingHighWater(), 3);  // entry 1 of 3 is not the last
    rig.engine.tick();
    EXPECT_EQ(rig.callOrder(), (std::vector<std::string>{name(1), name(0)}));
    rig.engine.tick();
    EXPECT_EQ(rig.callOrder(), (std::vector<std::string>{name(1), name(0), name(2)}));
    EXPECT_EQ(rig.engine.pendingHighWater(), 2);  // lowered by one with the last entry only
}

TEST(PendingTick, ZeroCountDownNeverTimesOut) {
    TableRig rig;
    ASSERT_TRUE(rig.engine.addPendingReply(5, kHandlers[0], 0));
    for (int i = 0; i < 100; ++i)
        rig.engine.tick();
    EXPECT_TRUE(rig.recorder.calls.empty());
    EXPECT_EQ(rig.engine.pendingHighWater(), 1);
}

TEST(PendingTick, ResultTwoClearsTheCountDown) {
    TableRig rig;
    ASSERT_TRUE(rig.engine.addPendingReply(0x8010, kHandlers[0], 3));
    rig.recorder.result[0] = 2;
    rig.engine.tick();
    rig.frame(0x8010, 1);
    for (int i = 0; i < 10; ++i)
        rig.engine.tick();
    EXPECT_EQ(rig.recorder.calls.size(), 1u) << "a cleared count-down must not time out";
    EXPECT_EQ(rig.engine.pendingHighWater(), 1);
    rig.frame(0x8010, 1);  // still registered
    EXPECT_EQ(rig.recorder.calls.size(), 2u);
}

TEST(PendingTick, ResultOneKeepsCountingDown) {
    TableRig rig;
    ASSERT_TRUE(rig.engine.addPendingReply(0x8011, kHandlers[0], 3));
    rig.recorder.result[0] = 1;
    rig.frame(0x8011, 1);
    rig.engine.tick();
    rig.engine.tick();
    EXPECT_EQ(rig.recorder.calls.size(), 1u);
    rig.engine.tick();
    ASSERT_EQ(rig.recorder.calls.size(), 2u);
    EXPECT_TRUE(rig.recorder.calls[1].payloadNull);
    EXPECT_EQ(rig.engine.pendingHighWater(), 0);
}

TEST(PendingTick, ResultThreeStopsTheTimeOut) {
    TableRig rig;
    ASSERT_TRUE(rig.engine.addPendingReply(0x8012, kHandlers[0], 3));
    rig.recorder.result[0] = 3;
    rig.frame(0x8012, 1);
    for (int i = 0; i < 10; ++i)
        rig.engine.tick();
    EXPECT_EQ(rig.recorder.calls.size(), 1u);
    EXPECT_EQ(rig.engine.pendingHighWater(), 0);
}

// ---- send with a callback -------------------------------------------------------------------

TEST(SendWithCallback, EntersThePendingTableUnderTheFrameSequence) {
    TableRig rig;
    rig.engine.setTransmitCounter(0x0021);
    const std::uint8_t payload[] = {0x05};
    ASSERT_TRUE(rig.engine.send(0x30, payload, 1, kHandlers[0], 4, 0x10, 0x20));
    EXPECT_EQ(rig.engine.pendingHighWater(), 1);
    ASSERT_EQ(rig.sink.datagrams.size(), 1u);
    EXPECT_EQ(rig.sink.datagrams[0], referenceFrame(0x8021, 0x30, {0x05}));
    rig.frame(0x8021, 0x30, {0x00});
    ASSERT_EQ(rig.recorder.calls.size(), 1u);
    EXPECT_EQ(rig.recorder.calls[0].context[0], 0x10u);
    EXPECT_EQ(rig.recorder.calls[0].context[1], 0x20u);
    EXPECT_EQ(rig.recorder.calls[0].payload, Bytes{0x00});
}

TEST(SendWithCallback, TimesOutAfterTheGivenTicks) {
    TableRig rig;
    ASSERT_TRUE(rig.engine.send(0x30, nullptr, 0, kHandlers[0], 4));
    for (int i = 0; i < 3; ++i)
        rig.engine.tick();
    EXPECT_TRUE(rig.recorder.calls.empty());
    rig.engine.tick();
    ASSERT_EQ(rig.recorder.calls.size(), 1u);
    EXPECT_EQ(rig.recorder.calls[0].sequence, 0x8000);
    EXPECT_TRUE(rig.recorder.calls[0].payloadNull);
}

TEST(SendWithCallback, FailsWhenThePendingTableIsFullAndSendsNothing) {
    TableRig rig;
    for (int i = 0; i < FrameEngine::kPendingSlots; ++i)
        ASSERT_TRUE(rig.engine.send(0x30, nullptr, 0, kHandlers[0], 20)) << "send " << i;
    EXPECT_EQ(rig.sink.datagrams.size(), static_cast<std::size_t>(FrameEngine::kPendingSlots));
    EXPECT_FALSE(rig.engine.send(0x30, nullptr, 0, kHandlers[0], 20));
    EXPECT_EQ(rig.sink.datagrams.size(), static_cast<std::size_t>(FrameEngine::kPendingSlots));
    // Without a callback the table does not matter.
    EXPECT_TRUE(rig.engine.send(0x30, nullptr, 0));
    EXPECT_EQ(rig.sink.datagrams.size(), static_cast<std::size_t>(FrameEngine::kPendingSlots) + 1);
}

namespace {
// A device-side handler that answers every command 0x30 with status 0 under its sequence.
int answerWithStatusZero(FrameEngine& engine, const FrameMessage& m) {
    const std::uint8_t status[] = {0x00, m.command};
    engine.sendReply(m.sequence, m.command, status, sizeof status);
    return 1;
}
}  // namespace

TEST(SendWithCallback, ReplyFromAPeerEngineReachesThePendingCallback) {
    TableRig host;
    EngineRig device(0);
    ASSERT_TRUE(device.engine->addCommandHandler(0x30, answerWithStatusZero));
    host.engine.setTransmitCounter(0x0100);
    ASSERT_TRUE(host.engine.addGeneralHandler(kHandlers[9]));  // sees only what is not taken
    host.recorder.result[1] = 3;
    ASSERT_TRUE(host.engine.send(0x30, nullptr, 0, kHandlers[1], 20, 77, 88));
    for (const auto& d : host.sink.datagrams)
        device.feed(d);
    ASSERT_EQ(device.sink.datagrams.size(), 1u);
    EXPECT_EQ(device.sink.datagrams[0], referenceFrame(0x8100, 0x30, {0x00, 0x30}));
    host.feed(device.sink.datagrams[0]);
    EXPECT_EQ(host.callOrder(), (std::vector<std::string>{name(1)}));
    EXPECT_EQ(host.recorder.calls[0].context[0], 77u);
    EXPECT_EQ(host.engine.pendingHighWater(), 0);
}
