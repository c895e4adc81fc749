// Drives the device emulator over loopback UDP with a bare host: a socket and a frame engine in
// the host role, no device object. Each test binds its own emulator address (127.0.0.20-49).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device/command_codes.h"
#include "device/frame_engine.h"
#include "emulator.h"
#include "platform/platform.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using kelo::emu::DeviceEmulator;

std::uint16_t le16(const Bytes& b, std::size_t at) {
    return static_cast<std::uint16_t>(b.at(at) | (b.at(at + 1) << 8));
}
std::uint32_t le32(const Bytes& b, std::size_t at) {
    return le16(b, at) | (static_cast<std::uint32_t>(le16(b, at + 2)) << 16);
}
void putLe32(Bytes& b, std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b.at(at + i) = static_cast<std::uint8_t>(v >> (8 * i));
}

struct Frame {
    std::uint16_t sequence = 0;
    std::uint8_t command = 0;
    Bytes payload;
};

// A minimal host: sends frames to one emulator and collects every frame it answers with.
class Host : private kelo::DatagramSink {
  public:
    explicit Host(const std::string& emulator)
        : device_(kelo::parseIPv4(emulator.c_str())), engine_(1, this, this, sendLock_) {
        socket_.open();
        socket_.setReceiveBuffer(0x400000);
        socket_.setReceiveTimeout(1000);
        engine_.addGeneralHandler(&Host::onFrame);
        thread_ = std::thread([this] { receiveLoop(); });
    }
    ~Host() {
        running_.store(false);
        socket_.interrupt();
        thread_.join();
    }

    // Sends one command and returns its sequence.
    std::uint16_t send(std::uint8_t command, const Bytes& payload = {}) {
        const auto sequence =
            static_cast<std::uint16_t>((engine_.transmitCounter() & 0x7FFF) | 0x8000);
        engine_.send(command, payload.data(), static_cast<std::uint16_t>(payload.size()));
        return sequence;
    }
    void sendRaw(const Bytes& datagram) {
        socket_.sendTo(device_, DeviceEmulator::kPort, datagram.data(), datagram.size());
    }

    // Takes the oldest frame of `command` not taken yet; false after the time-out.
    bool take(std::uint8_t command, Frame& out, unsigned timeoutMs = 3000) {
        std::unique_lock<std::mutex> g(lock_);
        auto found = [&] {
            for (auto it = pending_.begin(); it != pending_.end(); ++it) {
                if (it->command != command) continue;
                out = *it;
                pending_.erase(it);
                return true;
            }
            return false;
        };
        return cv_.wait_for(g, std::chrono::milliseconds(timeoutMs), found);
    }
    Frame reply(std::uint8_t command) {
        Frame f;
        EXPECT_TRUE(take(command, f)) << "no frame " << int(command);
        return f;
    }
    // Every frame in arrival order, and every datagram size.
    std::vector<Frame> history() const {
        std::lock_guard<std::mutex> g(lock_);
        return history_;
    }
    std::vector<std::size_t> datagramSizes() const {
        std::lock_guard<std::mutex> g(lock_);
        return sizes_;
    }

  private:
    void sendDatagram(const std::uint8_t* data, std::size_t length) override {
        socket_.sendTo(device_, DeviceEmulator::kPort, data, length);
    }
    static int onFrame(kelo::FrameEngine& engine, const kelo::FrameMessage& m) {
        auto* self = static_cast<Host*>(engine.owner());
        Frame f{m.sequence, m.command, Bytes(m.payload, m.payload + (m.payload ? m.length : 0))};
        {
            std::lock_guard<std::mutex> g(self->lock_);
            self->pending_.push_back(f);
            self->history_.push_back(std::move(f));
        }
        self->cv_.notify_all();
        return 1;
    }
    void receiveLoop() {
        std::vector<std::uint8_t> buffer(65536);
        while (running_.load()) {
            const int n = socket_.receive(buffer.data(), buffer.size());
            if (n <= 0) continue;
            {
                std::lock_guard<std::mutex> g(lock_);
                sizes_.push_back(static_cast<std::size_t>(n));
            }
            engine_.feed(buffer.data(), static_cast<std::size_t>(n));
        }
    }

    std::uint32_t device_;
    kelo::UdpSocket socket_;
    kelo::Lock sendLock_;
    kelo::FrameEngine engine_;
    std::atomic<bool> running_{true};
    std::thread thread_;
    mutable std::mutex lock_;
    std::condition_variable cv_;
    std::deque<Frame> pending_;
    std::vector<Frame> history_;
    std::vector<std::size_t> sizes_;
};

// An emulator on its own address and a host talking to it.
struct Rig {
    explicit Rig(const std::string& address) : emulator(address), host(address) {
        EXPECT_TRUE(emulator.start()) << address;
    }
    DeviceEmulator emulator;
    Host host;
};

// 102 record: controller, then the slot block (index, -, slot id, -, words, -, A, B, base, rep).
Bytes slotRecord(std::uint8_t index, std::uint16_t slot, std::uint8_t words, std::uint8_t base,
                 std::uint8_t repetition, bool a = true, bool b = true) {
    Bytes r(14, 0);
    r[1] = index;
    r[3] = static_cast<std::uint8_t>(slot);
    r[4] = static_cast<std::uint8_t>(slot >> 8);
    r[6] = words;
    r[8] = a;
    r[9] = b;
    r[10] = base;
    r[11] = repetition;
    return r;
}

// 145 with one CAN entry.
Bytes canTransmit(std::uint8_t channel, std::uint32_t flags, std::uint32_t id, const Bytes& data) {
    Bytes p(24 + 40 + data.size(), 0);
    putLe32(p, 16, 1);
    p[24 + 20] = 2;
    p[24 + 21] = channel;
    putLe32(p, 24 + 24, flags);
    putLe32(p, 24 + 28, id);
    p[24 + 32] = static_cast<std::uint8_t>(data.size());
    std::copy(data.begin(), data.end(), p.begin() + 24 + 40);
    return p;
}

// 145 with one FlexRay entry.
Bytes flexRayTransmit(std::uint8_t buffer, const Bytes& data) {
    Bytes p(24 + 40 + data.size(), 0);
    putLe32(p, 16, 1);
    p[24 + 20] = 1;
    p[24 + 22] = buffer;
    p[24 + 33] = static_cast<std::uint8_t>(data.size() / 2);
    std::copy(data.begin(), data.end(), p.begin() + 24 + 40);
    return p;
}

struct Entry {
    std::uint32_t word0;
    std::uint16_t slot;
    std::uint8_t cycle;
    std::uint16_t status;
    Bytes data;
};
std::vector<Entry> flexRayEntries(const Frame& f) {
    std::vector<Entry> out;
    std::size_t at = 2;
    for (unsigned i = 0; i < f.payload.at(1); ++i) {
        const std::size_t words = f.payload.at(at + 21);
        out.push_back(
            {le32(f.payload, at), le16(f.payload, at + 18), f.payload.at(at + 20),
             le16(f.payload, at + 24),
             Bytes(f.payload.begin() + at + 28, f.payload.begin() + at + 28 + 2 * words)});
        at += 28 + 2 * words;
    }
    EXPECT_EQ(at, f.payload.size());
    return out;
}
// Bus state of a 212 upload holding one type-4 entry.
std::uint16_t busState(const Frame& f) {
    EXPECT_EQ(le32(f.payload, 16), 1u);
    EXPECT_EQ(le16(f.payload, 24 + 8), 4u);
    return le16(f.payload, 24 + 24);
}

struct Layout {
    std::uint8_t command;
    Bytes request;
    std::size_t size;      // reply payload size
    std::size_t statusAt;  // status byte position
};

std::vector<Layout> layouts() {
    return {
        {96, Bytes(40, 0), 2, 1},
        {98, Bytes(52, 0), 2, 1},
        {100, Bytes(6, 0), 2, 1},
        {102, slotRecord(255, 5, 1, 0, 1), 6, 5},
        {105, Bytes(46, 0), 3, 2},
        {107, {0}, 2, 1},
        {108, {0}, 2, 1},
        {110, {0}, 2, 1},
        {111, {0, 0, 1, 0, 7, 8}, 3, 2},
        {112, {0, 1, 2, 3}, 2, 1},
        {113, {0}, 2, 1},
        {114, {0}, 2, 1},
        {116, {0}, 13, 12},
        {120, {0}, 2, 1},
        {121, {0}, 15, 14},
        {130, Bytes(52, 2), 4, 0},
        {132, Bytes(36, 2), 4, 0},
        {137, Bytes(46, 2), 4, 0},
        {139, Bytes(8, 1), 4, 0},
        {142, {0, 1}, 4, 0},
        {143, {0, 1}, 4, 0},
        {145, canTransmit(1, 0, 0x10, {1, 2}), 8, 0},
        {149, {1, 0, 1, 2, 3, 4}, 4, 0},
        {150, {1, 0}, 7, 0},
        {153, {2, 1, 0, 1, 0, 0}, 4, 0},
        {192, {6, 0, 0, 2}, 5, 4},
        {193, {}, 4, 0},
        {194, Bytes(32, 'x'), 4, 0},
        {195, {1, 0, 0, 127}, 4, 0},
        {197, {1}, 4, 0},
        {198, {}, 72, 71},
        {210, Bytes(8, 0), 4, 0},
        {211, Bytes(9, 0), 4, 0},
    };
}

TEST(EmulatorReplies, EveryCommandAnswersWithItsLayoutAndRefusalStatus) {
    Rig rig("127.0.0.20");
    for (const Layout& l : layouts()) {
        SCOPED_TRACE(int(l.command));
        const std::uint16_t seq = rig.host.send(l.command, l.request);
        Frame f = rig.host.reply(l.command);
        EXPECT_EQ(f.sequence, seq);
        ASSERT_EQ(f.payload.size(), l.size);
        EXPECT_EQ(f.payload[l.statusAt], 0);

        rig.emulator.refuse(l.command, 0x5A, 1);
        rig.host.send(l.command, l.request);
        f = rig.host.reply(l.command);
        ASSERT_EQ(f.payload.size(), l.size);
        EXPECT_EQ(f.payload[l.statusAt], 0x5A);

        const auto got = rig.emulator.received(l.command);
        ASSERT_EQ(got.size(), 2u);
        EXPECT_EQ(got[0].payload, l.request);
        EXPECT_EQ(got[0].sequence, seq);
    }
}

TEST(EmulatorReplies, ResultFieldsCarryTheDeviceState) {
    Rig rig("127.0.0.21");
    DeviceEmulator& emu = rig.emulator;
    Host& host = rig.host;

    emu.setPsrWords({0x1111, 0x2222, 0x3333, 0x4444});
    emu.setNodeState(5, 9);
    host.send(116, {0});
    Frame f = host.reply(116);
    EXPECT_EQ(le16(f.payload, 2), 0x1511);  // POC state in bits 8-10
    EXPECT_EQ((le16(f.payload, 2) >> 8) & 7, 5);
    EXPECT_EQ(le16(f.payload, 4), 0x2222);
    EXPECT_EQ(le16(f.payload, 8), 0x4444);
    EXPECT_EQ(f.payload[10], 9);

    emu.setNmVector({1, 2, 3, 4, 5});
    host.send(121, {0});
    f = host.reply(121);
    EXPECT_EQ(f.payload[1], 5);
    EXPECT_EQ(Bytes(f.payload.begin() + 2, f.payload.begin() + 7), (Bytes{1, 2, 3, 4, 5}));

    host.send(149, {1, 2, 0xEF, 0xBE, 0xAD, 0xDE});
    host.reply(149);
    EXPECT_EQ(emu.registerWord(1, 2), 0xDEADBEEFu);
    host.send(150, {1, 2});
    EXPECT_EQ(le32(host.reply(150).payload, 3), 0xDEADBEEFu);

    // FIFO record: the group count is read from byte 44; a record shorter than 46 bytes is
    // malformed.
    Bytes fifo(46, 0);
    fifo[0] = 3;
    fifo[2] = 1;
    fifo[8] = 0x10;                    // depth
    fifo[28] = 1;                      // group 2 enabled
    fifo[30] = 0x34, fifo[31] = 0x12;  // its frame id
    fifo[44] = 1;
    host.send(105, fifo);
    EXPECT_EQ(host.reply(105).payload[2], 0);
    const kelo::emu::FifoConfig seen = emu.fifo(3);
    EXPECT_TRUE(seen.configured);
    EXPECT_EQ(seen.depth, 0x10);
    EXPECT_EQ(seen.groups[2].frameId, 0x1234);
    EXPECT_EQ(seen.groupCount, 1);
    fifo[44] = 2;
    host.send(105, Bytes(fifo.begin(), fifo.end() - 1));
    EXPECT_EQ(host.reply(105).payload[2], 2);
    EXPECT_EQ(emu.fifo(3).groupCount, 1) << "a malformed record changes nothing";

    emu.setSoftwareVersion(0x04030201);
    host.send(198);
    EXPECT_EQ(le32(host.reply(198).payload, 0), 0x04030201u);
    host.send(192, {0, 0, 0, 0});
    EXPECT_EQ(le32(host.reply(192).payload, 0), 0x04030201u);

    host.send(145, canTransmit(3, 0, 0x55, {9}));
    f = host.reply(145);
    EXPECT_EQ(f.payload[2], 3);         // channel of the entry
    EXPECT_EQ(le32(f.payload, 4), 1u);  // entries taken
}

TEST(EmulatorSlots, AssignsBufferIndicesAndStoresTransmittedData) {
    Rig rig("127.0.0.22");
    Host& host = rig.host;
    struct Step {
        Bytes record;
        std::uint8_t index;
        std::uint8_t status;
    };
    const Step steps[] = {
        {slotRecord(255, 10, 2, 0, 1), 0, 0},
        {slotRecord(255, 11, 2, 0, 1), 1, 0},
        {slotRecord(9, 12, 4, 1, 4, true, false), 9, 0},
        {slotRecord(255, 13, 1, 0, 2), 2, 0},
        {Bytes{0, 255, 1}, 255, 2},  // too short: malformed, nothing assigned
    };
    for (const Step& s : steps) {
        host.send(102, s.record);
        const Frame f = host.reply(102);
        EXPECT_EQ(f.payload[4], s.index);
        EXPECT_EQ(f.payload[5], s.status);
    }
    host.send(111, {0, 1, 2, 0, 0xA1, 0xA2, 0xA3, 0xA4});
    EXPECT_EQ(host.reply(111).payload[2], 0);
    host.send(145, flexRayTransmit(9, {1, 2, 3, 4}));
    EXPECT_EQ(host.reply(145).payload[0], 0);

    const auto buffers = rig.emulator.slotBuffers();
    ASSERT_GT(buffers.size(), 9u);
    EXPECT_EQ(buffers[1].data, (Bytes{0xA1, 0xA2, 0xA3, 0xA4}));
    EXPECT_EQ(buffers[9].data, (Bytes{1, 2, 3, 4}));
    EXPECT_TRUE(buffers[9].configured);
    EXPECT_EQ(buffers[9].slot, 12);
    EXPECT_EQ(buffers[9].words, 4);
    EXPECT_EQ(buffers[9].baseCycle, 1);
    EXPECT_EQ(buffers[9].repetition, 4);
    EXPECT_TRUE(buffers[9].channelA);
    EXPECT_FALSE(buffers[9].channelB);
    EXPECT_FALSE(buffers[3].configured);
}

TEST(EmulatorRobustness, SurvivesGarbageAndAnswersOnlyKnownCommands) {
    Rig rig("127.0.0.23");
    Host& host = rig.host;
    Bytes noise(1400);
    for (std::size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<std::uint8_t>(i * 37);
    const Bytes garbage[] = {
        {0xAA, 0x80, 0x00, 0x00, 0x05},                   // truncated header
        {0xAA, 0x80, 0x01, 0x08, 0x01, 107, 0x00, 0x00},  // 2049 bytes announced, bad header CRC
        Bytes(1500, 0xAA),
        noise,
    };
    for (const Bytes& g : garbage) {
        host.sendRaw(g);
        host.sendRaw(Bytes(16, 0));  // completes any header the garbage left open
    }
    host.send(22);
    host.send(255);
    host.send(50, {1, 2, 3});
    EXPECT_TRUE(rig.emulator.waitFor(50, 1, 3000));
    // Every answered command with an empty payload: a reply, never a crash.
    for (const Layout& l : layouts()) {
        host.send(l.command);
        Frame f;
        EXPECT_TRUE(host.take(l.command, f)) << int(l.command);
    }
    host.send(107, {0});
    host.reply(107);
    EXPECT_EQ(rig.emulator.count(22), 1u);
    EXPECT_EQ(rig.emulator.count(255), 1u);
    for (const Frame& f : host.history())
        EXPECT_TRUE(f.command != 22 && f.command != 255 && f.command != 50) << int(f.command);
}

TEST(EmulatorFaults, LostRepliesSkipOneAnswer) {
    Rig rig("127.0.0.24");
    DeviceEmulator& emu = rig.emulator;
    Host& host = rig.host;
    const std::function<void()> faults[] = {
        [&] { emu.drop(107, 1); },
        [&] { emu.corruptHeaderCrc(107, 1); },
        [&] { emu.corruptPayloadCrc(107, 1); },
    };
    for (const auto& fault : faults) {
        fault();
        host.send(107, {0});
        const std::uint16_t second = host.send(107, {0});
        host.send(120, {0});
        host.reply(120);  // replies leave in order: every 107 answer has arrived by now
        Frame f;
        ASSERT_TRUE(host.take(107, f, 0));
        EXPECT_EQ(f.sequence, second);
        EXPECT_FALSE(host.take(107, f, 0));
    }
}

TEST(EmulatorFaults, DelaySplitAndDuplicate) {
    Rig rig("127.0.0.25");
    DeviceEmulator& emu = rig.emulator;
    Host& host = rig.host;

    emu.delay(107, 300, 1);
    host.send(107, {0});
    host.send(120, {0});
    host.reply(107);
    const auto order = host.history();
    ASSERT_EQ(order.size(), 2u);
    EXPECT_EQ(order[0].command, 120);  // the delayed reply was overtaken

    emu.splitDatagrams(7);
    const std::size_t before = host.datagramSizes().size();
    host.send(198);
    EXPECT_EQ(host.reply(198).payload.size(), 72u);
    const auto sizes = host.datagramSizes();
    EXPECT_EQ(sizes.size() - before, (8u + 72 + 2 + 6) / 7);
    for (std::size_t i = before; i < sizes.size(); ++i)
        EXPECT_LE(sizes[i], 7u);

    emu.clearFaults();
    emu.duplicateDatagrams(true);
    const std::uint16_t seq = host.send(107, {0});
    EXPECT_EQ(host.reply(107).sequence, seq);
    EXPECT_EQ(host.reply(107).sequence, seq);
}

TEST(EmulatorUploads, FlexRayCyclesWhileStartedAndUploading) {
    Rig rig("127.0.0.26");
    Host& host = rig.host;
    host.send(102, slotRecord(255, 10, 2, 0, 1, true, false));
    host.send(102, slotRecord(255, 20, 1, 1, 4, false, true));
    host.send(111, {0, 0, 2, 0, 1, 2, 3, 4});
    host.send(108, {0});
    EXPECT_EQ(busState(host.reply(212)), 1);
    host.reply(108);
    EXPECT_TRUE(rig.emulator.nodeStarted());
    host.send(113, {0});
    host.reply(113);

    int slot10 = 0, slot20 = 0;
    while (slot20 < 2) {
        Frame f;
        ASSERT_TRUE(host.take(115, f));
        for (const Entry& e : flexRayEntries(f)) {
            if (e.slot == 10) {
                ++slot10;
                EXPECT_EQ(e.status, 0x0080);
                EXPECT_EQ(e.data, (Bytes{1, 2, 3, 4}));
            } else {
                ++slot20;
                EXPECT_EQ(e.slot, 20);
                EXPECT_EQ(e.cycle % 4, 1);
                EXPECT_EQ(e.status, 0x8000);
                EXPECT_EQ(e.data, (Bytes{0, 0}));
            }
        }
    }
    EXPECT_GT(slot10, slot20);

    const std::uint16_t stopUploads = host.send(114, {0});
    host.reply(114);
    host.send(110, {0});
    EXPECT_EQ(busState(host.reply(212)), 2);
    host.reply(110);
    EXPECT_FALSE(rig.emulator.nodeStarted());
    // Nothing is uploaded after the reply to 114.
    bool afterStop = false;
    for (const Frame& f : host.history()) {
        if (f.command == 114 && f.sequence == stopUploads) afterStop = true;
        EXPECT_FALSE(afterStop && f.command == 115);
    }
}

TEST(EmulatorUploads, CanEchoAndGeneratedTraffic) {
    Rig rig("127.0.0.27");
    Host& host = rig.host;
    host.send(142, {0, 3});
    host.reply(142);
    EXPECT_TRUE(rig.emulator.canStarted());

    host.send(145, canTransmit(3, 0xC0300000u, 0x1ABCDEF, {1, 2, 3, 4, 5}));
    host.reply(145);
    Frame f = host.reply(146);
    ASSERT_EQ(f.payload.size(), 24u + 48);  // 45 bytes rounded up to 48
    EXPECT_EQ(le32(f.payload, 16), 1u);
    EXPECT_EQ(f.payload[24 + 21], 3);
    EXPECT_EQ(le32(f.payload, 24 + 24), 0xC0300000u);
    EXPECT_EQ(le32(f.payload, 24 + 28), 0x1ABCDEFu);
    EXPECT_EQ(f.payload[24 + 32], 5);
    EXPECT_EQ(Bytes(f.payload.begin() + 64, f.payload.begin() + 69), (Bytes{1, 2, 3, 4, 5}));

    rig.emulator.setCanTraffic(2, 0x321, 3);
    for (int i = 0; i < 2; ++i) {
        f = host.reply(146);
        EXPECT_EQ(le32(f.payload, 24 + 28), 0x321u);
        EXPECT_EQ(f.payload[24 + 32], 3);
    }
    host.send(143, {0, 3});
    host.reply(143);
    EXPECT_FALSE(rig.emulator.canStarted());
}

TEST(EmulatorFlood, RunningCounterArrivesInOrder) {
    Rig rig("127.0.0.28");
    Host& host = rig.host;
    host.send(107, {0});  // makes the host known
    host.reply(107);
    const std::uint32_t total = 3000;
    rig.emulator.startFlood(total, 200000, 2);
    std::uint32_t next = 0;
    while (next < total) {
        Frame f;
        ASSERT_TRUE(host.take(115, f)) << "stalled at " << next;
        EXPECT_LE(f.payload.size(), 2048u);
        for (const Entry& e : flexRayEntries(f))
            ASSERT_EQ(e.word0, next++);
    }
    EXPECT_TRUE(rig.emulator.waitFlood(5000));
    EXPECT_EQ(rig.emulator.floodSent(), total);
}

TEST(EmulatorLifecycle, BindFailuresRestartAndStopUnderLoad) {
    EXPECT_FALSE(DeviceEmulator("not-an-address").start());
    EXPECT_FALSE(DeviceEmulator("192.0.2.1").start());  // not a local address

    Rig rig("127.0.0.29");
    EXPECT_FALSE(DeviceEmulator("127.0.0.29").start());  // address taken
    rig.host.send(107, {0});
    rig.host.reply(107);
    rig.emulator.delay(120, 60000);
    rig.host.send(120, {0});
    EXPECT_TRUE(rig.emulator.waitFor(120, 1, 3000));
    rig.emulator.startFlood(~0ull, ~0ull, 0);
    rig.emulator.stop();  // returns with a flood running and a reply pending
    EXPECT_TRUE(rig.emulator.waitFlood(0));
    EXPECT_LT(rig.emulator.floodSent(), ~0ull);

    ASSERT_TRUE(rig.emulator.start());
    rig.emulator.clearFaults();
    const std::uint16_t seq = rig.host.send(107, {0});
    Frame f;
    while (rig.host.take(107, f) && f.sequence != seq) {
    }
    EXPECT_EQ(f.sequence, seq);
}

}  // namespace
