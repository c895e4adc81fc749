// The emulator's own wire facts, seen from a bare host (no device object, which tests/device and
// tests/exports run against it): reply shapes, fault plan, upload entries, start and stop.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "device/byte_order.h"
#include "device/protocol_table.h"
#include "emulator.h"
#include "platform/platform.h"
#include "support/device_harness.h"
#include "unit/frame_test_support.h"

namespace {

using namespace kelo_test;
using kelo::emu::DeviceEmulator;

// A bare host with an emulator of its own (on a free loopback address): an engine in the host
// role whose datagrams go to the emulator over UDP; its receiver keeps every frame that comes back.
struct Host : EngineRig {
    Host() : EngineRig(1) {
        socket.open();
        socket.setReceiveBuffer(0x400000);
        socket.setReceiveTimeout(50);
    }
    // Sends one command and returns its sequence.
    std::uint16_t send(std::uint8_t command, const Bytes& payload = {}) {
        const auto sequence =
            static_cast<std::uint16_t>((engine->transmitCounter() & 0x7FFF) | 0x8000);
        engine->send(command, payload.data(), static_cast<std::uint16_t>(payload.size()));
        for (const Bytes& d : sink.datagrams)
            socket.sendTo(kelo::parseIPv4(emulator.address().c_str()), DeviceEmulator::kPort,
                          d.data(), d.size());
        sink.datagrams.clear();
        return sequence;
    }
    // Reads datagrams until `done` holds or `timeoutMs` pass.
    template <typename Done>
    bool pump(Done&& done, unsigned timeoutMs = 3000) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (!done()) {
            if (std::chrono::steady_clock::now() > until) return false;
            const int n = socket.receive(buffer.data(), buffer.size());
            if (n <= 0) continue;
            sizes.push_back(static_cast<std::size_t>(n));
            engine->feed(buffer.data(), static_cast<std::size_t>(n));
        }
        return true;
    }
    // The oldest frame of `command` not taken yet; command 0 when none comes in `timeoutMs`.
    ReceivedFrame reply(std::uint8_t command, unsigned timeoutMs = 3000) {
        std::size_t& i = next[command];
        auto found = [&] {
            while (i < frames() && recorder.calls[i].command != command)
                ++i;
            return i < frames();
        };
        EXPECT_TRUE(pump(found, timeoutMs)) << "no frame " << int(command);
        return found() ? recorder.calls[i++] : ReceivedFrame{};
    }

    std::unique_ptr<DeviceEmulator> owner = kelo_testing::startedEmulator();
    DeviceEmulator& emulator = *owner;
    kelo::UdpSocket socket;
    std::array<std::uint8_t, 65536> buffer{};
    std::array<std::size_t, 256> next{};
    std::vector<std::size_t> sizes;  // every datagram's size
};

std::uint8_t status(const ReceivedFrame& reply) {
    return reply.payload.at(kelo::kReplyShapes[reply.command].status);
}

// 102 record: controller, then the slot block (index, -, slot id, -, words, -, A, B, base, rep).
Bytes slotRecord(std::uint8_t index, std::uint16_t slot, std::uint8_t words, std::uint8_t base,
                 std::uint8_t repetition, bool a, bool b) {
    return {
        0,          index, 0, std::uint8_t(slot), std::uint8_t(slot >> 8), 0, words, 0, a, b, base,
        repetition, 0,     0};
}

// 145 with one entry (kelo_testing::multiEntry).
Bytes multiTransmit(std::uint8_t kind, std::uint8_t channel, std::uint8_t buffer,
                    std::uint32_t flags, std::uint32_t id, const Bytes& data) {
    return kelo_testing::multiPayload(
        {kelo_testing::multiEntry(kind, channel, buffer, flags, id, data)});
}

// The entries of a 115 upload (byte 1 the count): 28-byte heads, the word count at 21, each
// followed by its payload.
std::vector<const std::uint8_t*> flexRayEntries(const ReceivedFrame& f) {
    std::vector<const std::uint8_t*> out;
    std::size_t at = 2;
    for (unsigned i = 0; i < f.payload.at(1); ++i, at += 28 + 2u * f.payload.at(at + 21))
        out.push_back(&f.payload.at(at));
    EXPECT_EQ(at, f.payload.size());
    return out;
}

TEST(EmulatorReplies, EveryCodeOfTheReplyTableAnswersInItsShape) {
    Host host;
    const std::uint8_t silent[] = {22, 255, 50, 115};  // no row, or an upload code
    for (const std::uint8_t code : silent)
        host.send(code, {1, 2, 3});
    for (const kelo::ReplyShape& shape : kelo::kReplyShapes) {
        if (shape.reply == 0) continue;
        SCOPED_TRACE(int(shape.code));
        const Bytes request(shape.request, 0);
        const std::uint16_t seq = host.send(shape.code, request);
        ReceivedFrame f = host.reply(shape.code);
        EXPECT_EQ(f.sequence, seq);
        ASSERT_EQ(f.payload.size(), shape.reply);
        EXPECT_EQ(status(f), 0);
        if (shape.request > 0) {  // one byte short of the fields it must carry: malformed
            host.send(shape.code, Bytes(shape.request - 1u, 0));
            EXPECT_EQ(status(host.reply(shape.code)), 2);
        }
        host.emulator.refuse(shape.code, 0x5A, 1);
        host.send(shape.code, request);
        f = host.reply(shape.code);
        ASSERT_EQ(f.payload.size(), shape.reply);
        EXPECT_EQ(status(f), 0x5A);
    }
    for (const std::uint8_t code : silent)
        EXPECT_EQ(host.emulator.count(code), 1u) << int(code);
    for (const ReceivedFrame& f : host.recorder.calls)
        EXPECT_EQ(std::count(silent, silent + 4, f.command), 0) << int(f.command);
}

TEST(EmulatorFaults, EachFaultOfThePlanShowsInTheRepliesAndDatagrams) {
    // Each case sends 107, 107 and 198 (requests 0, 1, 2) and expects the replies to the requests
    // in `order` (those to request 0 with `firstStatus`), in `datagrams` of at most `largest`
    // bytes. Whole, the replies take 12, 12 and 82 bytes; cut into 7-byte pieces, 2 + 2 + 12.
    using E = DeviceEmulator;
    const struct {
        const char* fault;
        std::function<void(E&)> arm;
        std::vector<int> order;
        std::uint8_t firstStatus;
        std::size_t datagrams, largest;
    } cases[] = {
        {"none", [](E&) {}, {0, 1, 2}, 0, 3, 82},
        {"refuse", [](E& e) { e.refuse(107, 0x5A, 1); }, {0, 1, 2}, 0x5A, 3, 82},
        {"drop", [](E& e) { e.drop(107, 1); }, {1, 2}, 0, 2, 82},
        {"header CRC", [](E& e) { e.corruptHeaderCrc(107, 1); }, {1, 2}, 0, 3, 82},
        {"payload CRC", [](E& e) { e.corruptPayloadCrc(107, 1); }, {1, 2}, 0, 3, 82},
        {"delay", [](E& e) { e.delay(107, 300, 1); }, {1, 2, 0}, 0, 3, 82},  // overtaken
        {"duplicate", [](E& e) { e.duplicateDatagrams(true); }, {0, 0, 1, 1, 2, 2}, 0, 6, 82},
        {"split", [](E& e) { e.splitDatagrams(7); }, {0, 1, 2}, 0, 16, 7}};
    Host host;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        host.emulator.clearFaults();
        c.arm(host.emulator);
        const std::size_t first = host.frames(), datagrams = host.sizes.size();
        const std::uint16_t seq[] = {host.send(107, {0}), host.send(107, {0}), host.send(198)};
        host.pump([&] { return host.frames() - first >= c.order.size(); });
        ASSERT_EQ(host.frames() - first, c.order.size());
        for (std::size_t i = 0; i < c.order.size(); ++i) {
            const ReceivedFrame& reply = host.recorder.calls[first + i];
            const int r = c.order[i];
            EXPECT_EQ(reply.command, r < 2 ? 107 : 198) << i;
            EXPECT_EQ(reply.sequence, seq[r]) << i;
            EXPECT_EQ(status(reply), r == 0 ? c.firstStatus : 0) << i;
        }
        EXPECT_EQ(host.sizes.size() - datagrams, c.datagrams);
        EXPECT_EQ(*std::max_element(host.sizes.begin() + datagrams, host.sizes.end()), c.largest);
    }
}

TEST(EmulatorUploads, FlexRaySlotsCycleWithTheirDataAndCanTransmitIsEchoed) {
    Host host;
    // {record, assigned index}: 255 takes the first free index.
    const std::pair<Bytes, std::uint8_t> slots[] = {{slotRecord(255, 10, 2, 0, 1, true, false), 0},
                                                    {slotRecord(255, 20, 1, 1, 4, false, true), 1},
                                                    {slotRecord(9, 12, 4, 1, 4, true, false), 9}};
    for (const auto& s : slots) {
        host.send(102, s.first);
        const ReceivedFrame f = host.reply(102);
        EXPECT_EQ(f.payload[4], s.second);
        EXPECT_EQ(status(f), 0);
    }
    host.send(111, {0, 0, 2, 0, 1, 2, 3, 4});                    // into buffer 0 (slot 10)
    host.send(145, multiTransmit(1, 0, 9, 0, 0, {1, 2, 3, 4}));  // into buffer 9 (slot 12)
    host.send(108, {0});
    host.send(113, {0});
    for (const std::uint8_t code : {111, 145, 108, 113})
        EXPECT_EQ(status(host.reply(code)), 0);
    EXPECT_TRUE(host.emulator.nodeStarted());

    // {status word, data} per slot; slots 20 and 12 only in cycles 1, 5, 9, ...
    const std::map<std::uint16_t, std::pair<std::uint16_t, Bytes>> expected = {
        {10, {0x0080, {1, 2, 3, 4}}},
        {20, {0x8000, {0, 0}}},
        {12, {0x0080, {1, 2, 3, 4, 0, 0, 0, 0}}}};
    std::map<std::uint16_t, int> seen;
    while (seen[20] < 2) {
        const ReceivedFrame f = host.reply(115);
        ASSERT_EQ(f.command, 115);
        for (const std::uint8_t* e : flexRayEntries(f)) {
            const std::uint16_t slot = kelo::le16(e + 18);
            ++seen[slot];
            ASSERT_EQ(expected.count(slot), 1u) << slot;
            EXPECT_EQ(kelo::le16(e + 24), expected.at(slot).first);
            EXPECT_EQ(Bytes(e + 28, e + 28 + 2 * e[21]), expected.at(slot).second);
            EXPECT_TRUE(slot == 10 || e[20] % 4 == 1) << slot;  // the cycle
        }
    }
    EXPECT_GT(seen[10], seen[20]);
    EXPECT_EQ(seen[12], seen[20]);

    const std::uint16_t stopUploads = host.send(114, {0});
    host.reply(114);
    // Nothing is uploaded after the reply to 114.
    bool afterStop = false;
    for (const ReceivedFrame& f : host.recorder.calls) {
        if (f.command == 114 && f.sequence == stopUploads) afterStop = true;
        EXPECT_FALSE(afterStop && f.command == 115);
    }

    host.send(142, {0, 3});  // CAN on, channel 3
    EXPECT_EQ(status(host.reply(142)), 0);
    const Bytes request = multiTransmit(2, 3, 0, 0xC0300000u, 0x1ABCDEF, {1, 2, 3, 4, 5});
    host.send(145, request);
    host.reply(145);
    // From byte 20 on, the echo repeats the transmitted entry, padded to a multiple of 4.
    const ReceivedFrame f = host.reply(146);
    ASSERT_EQ(f.payload.size(), 24u + 48);  // 45 bytes rounded up to 48
    EXPECT_EQ(kelo::le32(&f.payload[16]), 1u);
    EXPECT_EQ(Bytes(f.payload.begin() + 44, f.payload.begin() + 69),
              Bytes(request.begin() + 44, request.end()));
}

TEST(EmulatorLifecycle, BindFailuresRestartAndStopUnderLoad) {
    EXPECT_FALSE(DeviceEmulator("not-an-address").start());
    EXPECT_FALSE(DeviceEmulator("192.0.2.1").start());  // not a local address

    Host host;
    EXPECT_FALSE(DeviceEmulator(host.emulator.address()).start());  // address taken
    host.send(107, {0});
    host.reply(107);
    host.emulator.delay(120, 60000);
    host.send(120, {0});
    EXPECT_TRUE(host.emulator.waitFor(120, 1, 3000));
    host.emulator.startFlood(~0ull, ~0ull, 0);
    host.emulator.stop();  // returns with a flood running and a reply pending
    EXPECT_TRUE(host.emulator.waitFlood(0));
    EXPECT_LT(host.emulator.floodSent(), ~0ull);

    ASSERT_TRUE(host.emulator.start());
    host.emulator.clearFaults();
    const std::uint16_t seq = host.send(107, {0});
    EXPECT_EQ(host.reply(107).sequence, seq);
}

}  // namespace
