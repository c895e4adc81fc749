// The link under a misbehaving device: split and duplicated datagrams, garbage, truncated and
// corrupted frames, replies that are too short or of unknown codes, closes under load or with no
// answers at all, and the keep-alive.
#include <array>
#include <random>

#include "device/crc16.h"
#include "device_fixture.h"

namespace kelo_test {
namespace {

using kelo::emu::CanEntry;
using kelo::emu::FlexRayEntry;

constexpr std::uint8_t kCanChannel = 3;

// A frame as it goes on the wire (big-endian header, CRC-16/ARC), for hand-made traffic.
Bytes wireFrame(std::uint16_t sequence, std::uint8_t command, const Bytes& payload) {
    Bytes f = {0xAA,
               std::uint8_t(sequence >> 8),
               std::uint8_t(sequence),
               std::uint8_t(payload.size() >> 8),
               std::uint8_t(payload.size()),
               command};
    const std::uint16_t hc = kelo::crc16Arc(0, f.data(), f.size());
    f.push_back(std::uint8_t(hc >> 8));
    f.push_back(std::uint8_t(hc));
    if (!payload.empty()) {
        f.insert(f.end(), payload.begin(), payload.end());
        const std::uint16_t pc = kelo::crc16Arc(0, payload.data(), payload.size());
        f.push_back(std::uint8_t(pc >> 8));
        f.push_back(std::uint8_t(pc));
    }
    return f;
}

FlexRayEntry flexRayEntry(std::uint16_t slot) {
    FlexRayEntry e;
    e.words[0] = 0x11223344u;
    e.slot = slot;
    e.cycle = 9;
    e.statusWord = 0x0080;
    e.payload = {0xA0, 0xA1, 0xA2, 0xA3};
    return e;
}

// ---- datagram faults ----------------------------------------------------------------------------

// Frames cut into small datagrams are put together again by the parser.
TEST(DeviceFaults, SplitDatagramsStillComplete) {
    Link link(host::kFaultSplit);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    for (std::size_t piece : {1u, 3u, 7u, 100u}) {
        SCOPED_TRACE(piece);
        link.emu.splitDatagrams(piece);
        EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
        unsigned char info[72];
        EXPECT_EQ(link.dev->GetDeviceInfo(info), 0);
        EXPECT_EQ(rd32(info), 0x01000203u);
        unsigned int word = 0;
        link.emu.setRegisterWord(1, 1, 0x89ABCDEFu);
        EXPECT_EQ(link.dev->Fr_ReadRegister(1, 1, &word), 0);
        EXPECT_EQ(word, 0x89ABCDEFu);

        link.emu.uploadFlexRay({flexRayEntry(0x0155)});
        std::array<std::uint8_t, kelo::kFrRecordSize> fr;
        ASSERT_EQ(link.dev->Fr_Receive(fr.data(), 2000), 0);
        EXPECT_EQ(rd16(&fr[16]), 0x0155);
        EXPECT_EQ(Bytes(fr.begin() + 26, fr.begin() + 30), (Bytes{0xA0, 0xA1, 0xA2, 0xA3}));

        CanEntry c;
        c.identifier = 0x1CAFE;
        c.data = {5, 6, 7};
        link.emu.uploadCan({c});
        std::array<std::uint8_t, kelo::kCanRecordSize> can;
        ASSERT_EQ(link.dev->CAN_Receive(can.data(), 2000), 0);
        EXPECT_EQ(rd32(&can[16]), 0x1CAFEu);
    }
}

// Every datagram twice: each command still completes with 0 (each command is used once, since a
// second copy may leave its event signalled). Uploads are taken twice.
TEST(DeviceFaults, DuplicatedDatagramsStillComplete) {
    Link link(host::kFaultDuplicate);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
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

    link.emu.uploadFlexRay({flexRayEntry(1), flexRayEntry(2)});
    link.emu.duplicateDatagrams(false);
    ASSERT_EQ(link.dev->SetDeviceOption(0), 0);  // round trip after the upload
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 4u);
}

// ---- garbage and malformed frames ---------------------------------------------------------------

// Noise between frames: bytes without a start byte, start bytes with a bad header CRC, empty
// datagrams, and frames with a bad payload CRC. None ends in the middle of a header, so the
// next reply is parsed normally.
TEST(DeviceFaults, GarbageIsSkipped) {
    Link link(host::kFaultGarbage);
    ASSERT_TRUE(link.open());
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);

    std::vector<Bytes> garbage = {
        {},
        {0x00},
        {0x55, 0x01, 0xFF, 0x00, 0x7E, 0x80, 0x10, 0x20, 0x30, 0x40},
        {0xAA, 0x80, 0x00, 0x00, 0x02, 0x6B, 0x12, 0x34, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
        {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
    };
    Bytes badPayload = wireFrame(0x0001, kelo::kCmdConfigureNode, {1, 0});
    badPayload[badPayload.size() - 1] ^= 0xFF;
    garbage.push_back(badPayload);
    Bytes badUpload = wireFrame(0x0002, kelo::kUploadFlexRay, {0, 0});
    badUpload[9] ^= 0x01;  // upload claims one entry, CRC no longer matches
    garbage.push_back(badUpload);
    // Random noise without start bytes.
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(::testing::Message() << "noise seed " << seed);
    std::mt19937 random(seed);
    for (std::size_t n : {1u, 17u, 700u, 1400u}) {
        Bytes noise(n);
        for (auto& b : noise) {
            b = std::uint8_t(random());
            if (b == 0xAA) b = 0xAB;
        }
        garbage.push_back(noise);
    }

    for (const Bytes& g : garbage)
        link.emu.sendRaw(g);
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u);
    link.emu.uploadFlexRay({flexRayEntry(7)});
    std::array<std::uint8_t, kelo::kFrRecordSize> r;
    ASSERT_EQ(link.dev->Fr_Receive(r.data(), 2000), 0);
    EXPECT_EQ(rd16(&r[16]), 7);
}

// Replies shorter than their layout are survived. Each round injects short replies, then checks
// the link with a command whose code was not injected in that round.
TEST(DeviceFaults, TooShortRepliesAreSurvived) {
    Link link(host::kFaultShortReply);
    ASSERT_TRUE(link.open());
    // Layout length of every reply code (status position + 1 at least).
    const std::pair<std::uint8_t, std::size_t> layouts[] = {
        {96, 2},  {98, 2},  {100, 2},  {102, 6},  {105, 3},  {107, 2}, {108, 2},  {110, 2},
        {111, 3}, {112, 2}, {113, 2},  {114, 2},  {116, 13}, {120, 2}, {121, 15}, {130, 1},
        {132, 1}, {137, 1}, {139, 1},  {142, 1},  {143, 1},  {145, 8}, {149, 1},  {150, 7},
        {153, 1}, {192, 5}, {193, 1},  {194, 1},  {195, 1},  {197, 1}, {198, 72}, {210, 1},
        {211, 1}, {115, 2}, {146, 24}, {212, 24},
    };
    auto inject = [&](std::uint8_t code, std::size_t full) {
        for (std::size_t n : {std::size_t{0}, std::size_t{1}, full - 1}) {
            if (n >= full) continue;
            Bytes p(n, 0x00);
            if (n > 1) p[1] = 0xFF;  // e.g. an NM vector length or an entry count
            link.emu.sendFrame(code, p);
        }
    };
    for (auto& [code, full] : layouts)
        if (code != 198 && code != 107 && code != 120) inject(code, full);
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

// Well-formed frames of codes the host does not know (or does not expect from a device) change
// nothing, including a maximum-size frame and an oversize one (2049 bytes) that is consumed and
// dropped.
TEST(DeviceFaults, UnknownCodesAreIgnored) {
    Link link(host::kFaultUnknownCode);
    ASSERT_TRUE(link.open());
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    const std::uint8_t codes[] = {0,   1,   22,  50,  95,  97,  99,  101, 103, 104,
                                  106, 109, 117, 118, 119, 122, 147, 148, 151, 152,
                                  154, 191, 196, 199, 209, 213, 214, 254, 255};
    for (std::uint8_t code : codes) {
        link.emu.sendFrame(code, {});
        link.emu.sendFrame(code, {0x00});
        link.emu.sendFrame(code, ramp(100, 0));
    }
    link.emu.sendFrame(213, ramp(2048, 0));
    link.emu.sendFrame(213, ramp(2049, 0));
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
    unsigned char info[72];
    EXPECT_EQ(link.dev->GetDeviceInfo(info), 0);
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u);
    EXPECT_EQ(link.dev->CAN_framesAvailable(), 0u);
    EXPECT_TRUE(link.dev->busActive());
}

// Replies are matched by command code alone: a reply with another sequence, or one the device
// numbered itself, completes the waiting command.
TEST(DeviceFaults, ReplySequenceIsNotMatched) {
    Link link(host::kFaultReplySequence);
    ASSERT_TRUE(link.open());
    for (std::uint16_t sequence : {std::uint16_t{0x7777}, std::uint16_t{0}}) {
        SCOPED_TRACE(sequence);
        link.emu.delay(kelo::kCmdConfigureNode, 600000, 1);
        const std::size_t before = link.emu.count(kelo::kCmdConfigureNode);
        auto op = std::async(std::launch::async, [&] { return link.dev->Fr_Configure_Node(1); });
        ASSERT_TRUE(link.emu.waitFor(kelo::kCmdConfigureNode, before + 1, 2000));
        link.emu.sendFrame(kelo::kCmdConfigureNode, {1, 0}, sequence);
        EXPECT_EQ(op.get(), 0);
    }
}

// ---- closing under load -------------------------------------------------------------------------

TEST(DeviceFaults, FrCloseDuringAFloodReturns) {
    Link link(host::kFaultCloseFlood);
    ASSERT_TRUE(link.open());
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    link.emu.startFlood(100000000ull, 2000000, 8);
    std::array<std::uint8_t, kelo::kFrRecordSize> r;
    ASSERT_EQ(link.dev->Fr_Receive(r.data(), 5000), 0) << "the flood is running";

    link.forget();
    KeLoCommLib* dev = link.dev.get();
    std::atomic<int> closed{-1};
    const bool returned =
        finishesWithin(std::chrono::seconds(20), [dev, &closed] { closed.store(dev->Fr_Close()); });
    if (!returned) {
        link.dev.release();  // still in use by the stuck close: leak it rather than crash
        FAIL() << "Fr_Close did not return during a flood";
    }
    // The reply to 193 may be lost among the flood's datagrams; either way the link is down.
    EXPECT_TRUE(closed.load() == 0 || closed.load() == 2) << closed.load();
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u);
    EXPECT_EQ(link.dev->Fr_Receive(r.data(), 1000), 4);
    link.emu.stop();
}

TEST(DeviceFaults, CanCloseDuringCanTrafficReturns) {
    Link link(host::kFaultCloseCanTraffic);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    link.emu.setCanTraffic(1, 0x123, 8);
    ASSERT_EQ(link.dev->CAN_Start(1), 0);
    std::array<std::uint8_t, kelo::kCanRecordSize> r;
    ASSERT_EQ(link.dev->CAN_Receive(r.data(), 5000), 0) << "the traffic is running";

    link.forget();
    KeLoCommLib* dev = link.dev.get();
    std::atomic<int> closed{-1};
    const bool returned = finishesWithin(std::chrono::seconds(20),
                                         [dev, &closed] { closed.store(dev->CAN_Close()); });
    if (!returned) {
        link.dev.release();
        FAIL() << "CAN_Close did not return during CAN traffic";
    }
    EXPECT_EQ(closed.load(), 0);
    link.emu.stop();
}

// ---- real waits ---------------------------------------------------------------------------------

// A corrupted reply is dropped by the parser: the caller times out, and the next exchange works.
TEST(DeviceFaultsSlow, CorruptedHeaderCrcGivesTwo) {
    Link link(host::kSlowCrcHeader);
    ASSERT_TRUE(link.open());
    link.emu.corruptHeaderCrc(kelo::kCmdConfigureNode, 1);
    Stopwatch watch;
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 2);
    EXPECT_GE(watch.ms(), 900);
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
}

TEST(DeviceFaultsSlow, CorruptedPayloadCrcGivesTwo) {
    Link link(host::kSlowCrcPayload);
    ASSERT_TRUE(link.open());
    link.emu.corruptPayloadCrc(kelo::kCmdConfigureNode, 1);
    Stopwatch watch;
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 2);
    EXPECT_GE(watch.ms(), 900);
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
}

// A frame cut short leaves the parser inside it: the reply right behind it is swallowed (2), and
// after half a second of quiet the parser starts over, so the next command works.
TEST(DeviceFaultsSlow, TruncatedFrameSwallowsTheNextReplyUntilTheLinkIsQuiet) {
    Link link(host::kSlowTruncated);
    ASSERT_TRUE(link.open());
    const Bytes whole = wireFrame(0x0003, kelo::kCmdSetDeviceOption, ramp(40, 0));
    const Bytes cuts[] = {Bytes(whole.begin(), whole.begin() + 5),    // inside the header
                          Bytes(whole.begin(), whole.begin() + 20)};  // inside the payload
    for (const Bytes& cut : cuts) {
        SCOPED_TRACE(cut.size());
        link.emu.sendRaw(cut);
        EXPECT_EQ(link.dev->Fr_Configure_Node(1), 2);
        EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
    }
}

// Closing never hangs: with every reply dropped, and with the device gone altogether.
TEST(DeviceFaultsSlow, CloseReturnsWhenNothingIsAnswered) {
    Link link(host::kSlowCloseDropAll);
    ASSERT_TRUE(link.open());
    for (int code = 0; code < 256; ++code)
        link.emu.drop(std::uint8_t(code));
    link.forget();
    KeLoCommLib* dev = link.dev.get();
    std::atomic<int> closed{-1};
    Stopwatch watch;
    if (!finishesWithin(std::chrono::seconds(20),
                        [dev, &closed] { closed.store(dev->Fr_Close()); })) {
        link.dev.release();
        FAIL() << "Fr_Close did not return";
    }
    EXPECT_EQ(closed.load(), 2);
    EXPECT_GE(watch.ms(), 900);
}

TEST(DeviceFaultsSlow, CloseReturnsWhenTheDeviceIsGone) {
    Link link(host::kSlowCloseEmulatorGone);
    ASSERT_TRUE(link.open());
    link.emu.stop();
    link.forget();
    KeLoCommLib* dev = link.dev.get();
    std::atomic<int> closed{-1};
    if (!finishesWithin(std::chrono::seconds(20),
                        [dev, &closed] { closed.store(dev->Fr_Close()); })) {
        link.dev.release();
        FAIL() << "Fr_Close did not return";
    }
    EXPECT_EQ(closed.load(), 2);
}

// Keep-alive: command 255, no payload, once nothing was sent for a whole 15 s cycle; never while
// commands flow. The open's own frames fill the first cycle, so the quiet link's keep-alive comes
// with the second (about 30 s after the open).
TEST(DeviceKeepAliveSlow, SentAfterFifteenSecondsOfSilenceOnly) {
    Link quiet(host::kSlowKeepAliveQuiet);
    Link busy(host::kSlowKeepAliveBusy);
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
    // Carry the busy link past its own second cycle too.
    std::this_thread::sleep_for(std::chrono::milliseconds(2000));
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
}  // namespace kelo_test
