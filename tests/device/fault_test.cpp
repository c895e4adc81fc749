// The link under a misbehaving device: split and duplicated datagrams, garbage, truncated and
// corrupted frames, replies that are too short or of unknown codes, closes under load or with no
// answers at all, and the keep-alive.
#include <array>
#include <atomic>
#include <random>

#include "support/device_harness.h"
#include "unit/frame_test_support.h"

namespace kelo_testing {
namespace {

using kelo_test::referenceFrame;  // a frame as it goes on the wire, for hand-made traffic

const Bytes kFrData = {0xA0, 0xA1, 0xA2, 0xA3};

// Commands, a FlexRay and a CAN upload all complete through the fault.
void expectTrafficWorks(Link& link) {
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
    unsigned char info[72];
    EXPECT_EQ(link.dev->GetDeviceInfo(info), 0);
    EXPECT_EQ(rd32(info), 0x01000203u);
    link.emu.uploadFlexRay({flexRayEntry(0x0155, kFrData)});
    std::array<std::uint8_t, kelo::kFrRecordSize> fr;
    ASSERT_EQ(link.dev->Fr_Receive(fr.data(), 2000), 0);
    EXPECT_EQ(rd16(&fr[16]), 0x0155);
    EXPECT_EQ(Bytes(fr.begin() + 26, fr.begin() + 30), kFrData);
    link.emu.uploadCan({canEntry(0x1CAFE, {5, 6, 7})});
    std::array<std::uint8_t, kelo::kCanRecordSize> can;
    ASSERT_EQ(link.dev->CAN_Receive(can.data(), 2000), 0);
    EXPECT_EQ(rd32(&can[16]), 0x1CAFEu);
}

// Noise between frames (bytes without a start byte, start bytes with a bad header CRC, empty
// datagrams, frames with a bad payload CRC), frames of codes the host does not know (one of the
// maximum size, one oversize at 2049 bytes) and datagrams cut into small pieces: the traffic
// after them goes on. None ends in the middle of a header.
TEST(DeviceFaults, TrafficSurvivesMalformedInput) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(::testing::Message() << "noise seed " << seed);
    std::mt19937 random(seed);
    const std::pair<const char*, std::function<void(Link&)>> faults[] = {
        {"garbage",
         [&random](Link& link) {
             std::vector<Bytes> garbage = {
                 {},
                 {0x00},
                 {0x55, 0x01, 0xFF, 0x00, 0x7E, 0x80, 0x10, 0x20, 0x30, 0x40},
                 {0xAA, 0x80, 0, 0, 0x02, 0x6B, 0x12, 0x34, 0x01, 0, 0, 0, 0, 0, 0},
                 {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0, 0, 0, 0, 0, 0, 0},
                 referenceFrame(0x0001, kelo::kCmdConfigureNode, {1, 0}),
                 referenceFrame(0x0002, kelo::kUploadFlexRay, {0, 0})};
             garbage[5].back() ^= 0xFF;
             garbage[6][9] ^= 0x01;  // the upload claims one entry, the CRC no longer matches
             for (std::size_t n : {1u, 17u, 700u, 1400u}) {
                 Bytes noise(n);
                 for (auto& b : noise)
                     if ((b = std::uint8_t(random())) == 0xAA) b = 0xAB;
                 garbage.push_back(noise);
             }
             for (const Bytes& g : garbage)
                 link.emu.sendRaw(g);
         }},
        {"unknown codes",
         [](Link& link) {
             for (std::uint8_t code : {0, 1, 22, 97, 104, 117, 151, 199, 213, 254, 255}) {
                 link.emu.sendFrame(code, {});
                 link.emu.sendFrame(code, {0x00});
                 link.emu.sendFrame(code, ramp(100, 0));
             }
             link.emu.sendFrame(213, ramp(2048, 0));
             link.emu.sendFrame(213, ramp(2049, 0));
         }},
        {"split into 1 byte", [](Link& link) { link.emu.splitDatagrams(1); }},
        {"split into 7 bytes", [](Link& link) { link.emu.splitDatagrams(7); }},
    };
    for (const auto& [name, inject] : faults) {
        SCOPED_TRACE(name);
        Link link;
        ASSERT_TRUE(link.open(Bus::Can, 3));
        ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
        inject(link);
        EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u);
        EXPECT_EQ(link.dev->CAN_framesAvailable(), 0u);
        EXPECT_TRUE(link.dev->busActive());
        expectTrafficWorks(link);
    }
}

// Replies shorter than the length the host accepts, and uploads shorter than their headers, are
// survived. Each round injects short replies, then checks the link with a command whose code was
// not injected in that round.
TEST_F(OpenLink, TooShortRepliesAreSurvived) {
    auto inject = [&](std::uint8_t code, std::size_t full) {
        for (std::size_t n : {std::size_t{0}, std::size_t{1}, full - 1}) {
            if (n >= full) continue;
            Bytes p(n, 0x00);
            if (n > 1) p[1] = 0xFF;  // e.g. an NM vector length or an entry count
            link.emu.sendFrame(code, p);
        }
    };
    for (std::uint8_t code : kelo::kEventCodes)  // the uploads among them accept any length
        if (code != 198 && code != 107 && code != 120)
            inject(code, kelo::kReplyShapes[code].accept);
    inject(kelo::kUploadFlexRay, 2);
    inject(kelo::kUploadCan, 24);
    inject(kelo::kUploadStatus, 24);
    unsigned char info[72];
    EXPECT_EQ(link.dev->GetDeviceInfo(info), 0);
    inject(198, 72);
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
    inject(107, 2);
    EXPECT_EQ(link.dev->Fr_SendWakeUp(1), 0);
    // Full-length uploads whose counts promise more entries than the payload holds.
    link.emu.sendFrame(kelo::kUploadFlexRay, cat({{0, 200}, zeros(28)}));
    link.emu.sendFrame(kelo::kUploadCan, cat({zeros(16), le32(0xFFFFFFFFu), zeros(4), zeros(40)}));
    link.emu.sendFrame(kelo::kUploadStatus, cat({zeros(16), le32(0xFFFFFFFFu), zeros(4)}));
    EXPECT_EQ(link.dev->SetDeviceOption(1), 0);
}

// Every datagram twice: each command still completes with 0 (each is used once, here and after,
// since a second copy may leave its event signalled), and uploads are taken twice. Replies are
// matched by command code alone: one with another sequence, or one the device numbered itself,
// completes the call.
TEST(DeviceFaults, DuplicatedDatagramsAndForeignSequences) {
    Link link;
    ASSERT_TRUE(link.open(Bus::Can, 3));
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    link.emu.duplicateDatagrams(true);
    unsigned char info[72], state = 0, sub = 0, vector[12], length = 0;
    unsigned int word = 0;
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
    EXPECT_EQ(link.dev->GetDeviceInfo(info), 0);
    EXPECT_EQ(link.dev->Fr_GetFrNodeState(1, &state, &sub), 0);
    EXPECT_EQ(link.dev->Fr_GetFrNWVector(1, vector, &length), 0);
    EXPECT_EQ(link.dev->Fr_ReadRegister(1, 1, &word), 0);
    EXPECT_EQ(link.dev->CAN_Start(1), 0);
    link.emu.uploadFlexRay({flexRayEntry(1, kFrData), flexRayEntry(2, kFrData)});
    link.emu.duplicateDatagrams(false);
    ASSERT_EQ(link.dev->SetDeviceOption(0), 0);  // round trip after the upload
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 4u);

    for (std::uint16_t sequence : {std::uint16_t{0x7777}, std::uint16_t{0}}) {
        EXPECT_EQ(link.scripted(
                      kelo::kCmdSendWakeUp, {1, 0}, [&] { return link.dev->Fr_SendWakeUp(1); },
                      nullptr, sequence),
                  0)
            << sequence;
    }
}

// A corrupted reply is dropped: the caller times out with 2 and the next exchange works. A frame
// cut short leaves the parser inside it, so the reply right behind it is swallowed, and after
// half a second of quiet the parser starts over.
TEST(DeviceFaultsSlow, LostReplyGivesTwoAndTheNextExchangeWorks) {
    const Bytes whole = referenceFrame(0x0003, kelo::kCmdSetDeviceOption, ramp(40, 0));
    const std::pair<const char*, std::function<void(Link&)>> faults[] = {
        {"header CRC", [](Link& l) { l.emu.corruptHeaderCrc(kelo::kCmdConfigureNode, 1); }},
        {"cut inside the header",
         [&whole](Link& l) { l.emu.sendRaw(Bytes(whole.begin(), whole.begin() + 5)); }},
        {"cut inside the payload",
         [&whole](Link& l) { l.emu.sendRaw(Bytes(whole.begin(), whole.begin() + 20)); }},
    };
    Link link;
    ASSERT_TRUE(link.open());
    for (const auto& [name, inject] : faults) {
        SCOPED_TRACE(name);
        inject(link);
        Stopwatch watch;
        EXPECT_EQ(link.dev->Fr_Configure_Node(1), 2);
        EXPECT_GE(watch.ms(), 900);
        EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
    }
}

// Closing never hangs: during a FlexRay flood, during CAN traffic, with every reply dropped and
// with the device gone. `results` holds what the close may return.
struct CloseRow {
    const char* name;
    Bus bus;
    std::function<void(Link&)> fault;
    std::vector<int> results;
};

void expectCloseReturns(const CloseRow& row) {
    SCOPED_TRACE(row.name);
    Link link;
    ASSERT_TRUE(link.open(row.bus, 3));
    row.fault(link);
    link.forget();
    KeLoCommLib* dev = link.dev.get();
    std::atomic<int> closed{-1};
    const bool returned = finishesWithin(std::chrono::seconds(20), [dev, &closed, &row] {
        closed.store(row.bus == Bus::FlexRay ? dev->Fr_Close() : dev->CAN_Close());
    });
    if (!returned) {
        link.dev.release();  // still in use by the stuck close: leak it rather than crash
        FAIL() << "the close did not return";
    }
    EXPECT_NE(std::find(row.results.begin(), row.results.end(), closed.load()), row.results.end())
        << closed.load();
    link.emu.stop();
}

TEST(DeviceFaults, CloseReturnsUnderLoad) {
    const CloseRow rows[] = {
        // The reply to the close may be lost among the flood's datagrams.
        {"FlexRay flood",
         Bus::FlexRay,
         [](Link& l) {
             ASSERT_EQ(l.dev->Fr_StartFrRxUpload(0), 0);
             l.emu.startFlood(100000000ull, 2000000, 8);
             std::array<std::uint8_t, kelo::kFrRecordSize> r;
             ASSERT_EQ(l.dev->Fr_Receive(r.data(), 5000), 0) << "the flood is running";
         },
         {0, 2}},
        {"CAN traffic",
         Bus::Can,
         [](Link& l) {
             l.emu.setCanTraffic(1, 0x123, 8);
             ASSERT_EQ(l.dev->CAN_Start(1), 0);
             std::array<std::uint8_t, kelo::kCanRecordSize> r;
             ASSERT_EQ(l.dev->CAN_Receive(r.data(), 5000), 0) << "the traffic is running";
         },
         {0}},
    };
    for (const CloseRow& row : rows)
        expectCloseReturns(row);
}

TEST(DeviceFaultsSlow, CloseReturnsWhenNothingIsAnswered) {
    const CloseRow rows[] = {
        {"every reply dropped",
         Bus::FlexRay,
         [](Link& l) {
             for (int code = 0; code < 256; ++code)
                 l.emu.drop(std::uint8_t(code));
         },
         {2}},
        {"device gone", Bus::FlexRay, [](Link& l) { l.emu.stop(); }, {2}},
    };
    for (const CloseRow& row : rows)
        expectCloseReturns(row);
}

// Keep-alive: command 255, no payload, once nothing was sent for a whole 15 s cycle; never while
// commands flow. The open's own frames fill the first cycle, so the quiet link's keep-alive comes
// with the second (about 30 s after the open).
TEST(DeviceKeepAliveSlow, SentAfterFifteenSecondsOfSilenceOnly) {
    Link quiet, busy;
    ASSERT_TRUE(quiet.open());
    Stopwatch sinceOpen;
    ASSERT_TRUE(busy.open());
    std::atomic<bool> stop{false};
    std::atomic<int> busyFailures{0};
    std::thread traffic([&] {
        while (!stop.load()) {
            if (busy.dev->SetDeviceOption(0) != 0) ++busyFailures;
            std::this_thread::sleep_for(std::chrono::milliseconds(500));  // pacing, not a wait
        }
    });
    const bool keptAlive = quiet.emu.waitFor(kelo::kCmdKeepAlive, 1, 40000);
    const long long at = sinceOpen.ms();
    std::this_thread::sleep_for(std::chrono::milliseconds(2000));  // the busy link's second cycle
    stop.store(true);
    traffic.join();
    ASSERT_TRUE(keptAlive);
    EXPECT_GE(at, 15000 - 500);
    const auto frames = quiet.emu.received();
    ASSERT_EQ(frames.size(), 1u) << "nothing but the keep-alive on the quiet link";
    EXPECT_EQ(frames[0].command, kelo::kCmdKeepAlive);
    EXPECT_TRUE(frames[0].payload.empty());
    EXPECT_NE(frames[0].sequence & 0x8000, 0);
    EXPECT_EQ(busy.emu.count(kelo::kCmdKeepAlive), 0u);
    EXPECT_GT(busy.emu.count(kelo::kCmdSetDeviceOption), 50u);
    EXPECT_EQ(busyFailures.load(), 0);
}

}  // namespace
}  // namespace kelo_testing
