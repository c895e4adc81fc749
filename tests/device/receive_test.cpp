// The receive path: FlexRay (115) and CAN (146) uploads turned into 280- and 88-byte records,
// entry packing, the upload switch, the 100,000-record cap, and Fr_Receive / CAN_Receive results
// on closed, quiet and closing links.
#include <array>

#include "device_fixture.h"

namespace kelo_test {
namespace {

using kelo::emu::CanEntry;
using kelo::emu::FlexRayEntry;

using FrRecord = std::array<std::uint8_t, kelo::kFrRecordSize>;
using CanRecord = std::array<std::uint8_t, kelo::kCanRecordSize>;

constexpr std::uint8_t kCanChannel = 3;

Bytes slice(const std::uint8_t* p, std::size_t from, std::size_t n) {
    return Bytes(p + from, p + from + n);
}

// Every field its own sentinel, so that a swapped or shifted field shows.
FlexRayEntry sentinelEntry() {
    FlexRayEntry e;
    e.words[0] = 0x14131211u;
    e.words[1] = 0x24232221u;
    e.words[2] = 0x34333231u;
    e.byte13 = 0x41;
    e.bytes14to16[0] = 0x51;
    e.bytes14to16[1] = 0x52;
    e.bytes14to16[2] = 0x53;
    e.slot = 0x6261;
    e.cycle = 0x71;
    e.bytes22to23 = 0x8281;
    e.statusWord = 0x9A85;  // bit 15 and bit 7 set
    e.payload = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5};
    return e;
}

// ---- FlexRay record -----------------------------------------------------------------------------

TEST(DeviceReceiveFlexRay, EveryFieldOfTheRecord) {
    Link link(host::kRxFlexRayRecord);
    ASSERT_TRUE(link.open());
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    link.emu.uploadFlexRay({sentinelEntry()});
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 1u);

    FrRecord r;
    r.fill(0xEE);
    ASSERT_EQ(link.dev->Fr_Receive(r.data(), 1000), 0);
    EXPECT_EQ(slice(r.data(), 0, 12),
              (Bytes{0x11, 0x12, 0x13, 0x14, 0x21, 0x22, 0x23, 0x24, 0x31, 0x32, 0x33, 0x34}));
    EXPECT_EQ(r[12], 0x41);
    EXPECT_EQ(slice(r.data(), 13, 3), (Bytes{0x51, 0x52, 0x53}));
    EXPECT_EQ(slice(r.data(), 16, 2), (Bytes{0x61, 0x62})) << "slot";
    EXPECT_EQ(r[18], 3) << "channel flags";
    EXPECT_EQ(r[19], 0x71) << "cycle";
    EXPECT_EQ(r[20], 3) << "payload words";
    EXPECT_EQ(slice(r.data(), 22, 2), (Bytes{0x81, 0x82}));
    EXPECT_EQ(slice(r.data(), 24, 2), (Bytes{0x85, 0x9A})) << "status word";
    EXPECT_EQ(slice(r.data(), 26, 6), (Bytes{0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5}));
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u);
}

// Offset 18: bit 1 = status bit 15 (channel B), bit 0 = status bit 7 (channel A).
TEST(DeviceReceiveFlexRay, ChannelFlagsFromStatusBitsFifteenAndSeven) {
    Link link(host::kRxChannelFlags);
    ASSERT_TRUE(link.open());
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    const struct {
        std::uint16_t status;
        std::uint8_t flags;
    } cases[] = {{0x0000, 0}, {0x0080, 1}, {0x8000, 2}, {0x8080, 3}, {0x7F7F, 0},
                 {0xFFFF, 3}, {0x807F, 2}, {0x00FF, 1}, {0x0100, 0}, {0x4040, 0}};
    std::vector<FlexRayEntry> entries;
    for (auto& c : cases) {
        FlexRayEntry e = sentinelEntry();
        e.statusWord = c.status;
        entries.push_back(e);
    }
    link.emu.uploadFlexRay(entries);
    for (auto& c : cases) {
        SCOPED_TRACE(c.status);
        FrRecord r;
        ASSERT_EQ(link.dev->Fr_Receive(r.data(), 1000), 0);
        EXPECT_EQ(r[18], c.flags);
        EXPECT_EQ(rd16(&r[24]), c.status);
    }
}

TEST(DeviceReceiveFlexRay, EntriesWithNoPayloadAndWith127Words) {
    Link link(host::kRxSizes);
    ASSERT_TRUE(link.open());
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    FlexRayEntry empty = sentinelEntry();
    empty.payload.clear();
    FlexRayEntry full = sentinelEntry();
    full.payload = ramp(254, 0x01);
    FlexRayEntry after = sentinelEntry();
    after.slot = 0x0102;
    link.emu.uploadFlexRay({empty, full, after});

    FrRecord r;
    ASSERT_EQ(link.dev->Fr_Receive(r.data(), 1000), 0);
    EXPECT_EQ(r[20], 0);
    EXPECT_EQ(rd16(&r[16]), 0x6261);
    ASSERT_EQ(link.dev->Fr_Receive(r.data(), 1000), 0);
    EXPECT_EQ(r[20], 127);
    EXPECT_EQ(slice(r.data(), 26, 254), ramp(254, 0x01));
    ASSERT_EQ(link.dev->Fr_Receive(r.data(), 1000), 0);
    EXPECT_EQ(rd16(&r[16]), 0x0102) << "the entry after a 127-word entry";
    EXPECT_EQ(slice(r.data(), 26, 6), (Bytes{0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5}));
}

// Entries are 28 + 2 x words bytes, packed without padding; entry bytes 12, 17, 26 and 27 and
// payload byte 0 are not used.
TEST(DeviceReceiveFlexRay, EntriesArePackedWithoutPadding) {
    Link link(host::kRxFlexRayPacking);
    ASSERT_TRUE(link.open());
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    auto entry = [](std::uint16_t slot, Bytes data) {
        Bytes e = ramp(28, 0x20);
        e[12] = e[17] = e[26] = e[27] = 0xEE;
        e[18] = std::uint8_t(slot);
        e[19] = std::uint8_t(slot >> 8);
        e[21] = std::uint8_t(data.size() / 2);
        e[24] = 0x80;  // channel A
        e[25] = 0x00;
        return cat({e, data});
    };
    const Bytes payload = cat({{0xEE, 3},
                               entry(0x0A01, {0xB0, 0xB1}),
                               entry(0x0A02, {}),
                               entry(0x0A03, {0xC0, 0xC1, 0xC2, 0xC3})});
    link.emu.sendFrame(kelo::kUploadFlexRay, payload);

    const struct {
        std::uint16_t slot;
        Bytes data;
    } expected[] = {{0x0A01, {0xB0, 0xB1}}, {0x0A02, {}}, {0x0A03, {0xC0, 0xC1, 0xC2, 0xC3}}};
    for (auto& x : expected) {
        SCOPED_TRACE(x.slot);
        FrRecord r;
        ASSERT_EQ(link.dev->Fr_Receive(r.data(), 1000), 0);
        EXPECT_EQ(rd16(&r[16]), x.slot);
        EXPECT_EQ(r[20], x.data.size() / 2);
        EXPECT_EQ(slice(r.data(), 0, 12), ramp(12, 0x20));
        EXPECT_EQ(r[12], 0x2D) << "entry byte 13";
        EXPECT_EQ(slice(r.data(), 13, 3), (Bytes{0x2E, 0x2F, 0x30}));
        EXPECT_EQ(r[18], 1);
        EXPECT_EQ(r[19], 0x34) << "entry byte 20";
        EXPECT_EQ(slice(r.data(), 22, 2), (Bytes{0x36, 0x37}));
        EXPECT_EQ(slice(r.data(), 26, x.data.size()), x.data);
    }
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u);
}

// Uploads are taken only between Fr_StartFrRxUpload and Fr_StopFrRxUpload.
TEST(DeviceReceiveFlexRay, UploadsWhileStoppedAreDiscarded) {
    Link link(host::kRxUploadsStopped);
    ASSERT_TRUE(link.open());
    link.emu.uploadFlexRay({sentinelEntry(), sentinelEntry()});
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u) << "before the start";

    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    link.emu.uploadFlexRay({sentinelEntry()});
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 1u);

    ASSERT_EQ(link.dev->Fr_StopFrRxUpload(0), 0);
    link.emu.uploadFlexRay({sentinelEntry(), sentinelEntry()});
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 1u) << "after the stop";
    FrRecord r;
    EXPECT_EQ(link.dev->Fr_Receive(r.data(), 1000), 0);
    EXPECT_EQ(link.dev->Fr_Receive(r.data(), 0), 2);
}

// The upload switch flips before the command goes out: uploads that arrive while
// Fr_StartFrRxUpload waits for its reply are taken, those that arrive while Fr_StopFrRxUpload
// waits are discarded.
TEST(DeviceReceiveFlexRay, UploadSwitchFlipsBeforeTheCommandIsSent) {
    Link link(host::kRxUploadSwitch);
    ASSERT_TRUE(link.open());
    auto upload = [&] { link.emu.uploadFlexRay({sentinelEntry()}); };
    EXPECT_EQ(link.scripted(
                  kelo::kCmdStartRxUpload, {0, 0}, [&] { return link.dev->Fr_StartFrRxUpload(0); },
                  upload),
              0);
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 1u);
    EXPECT_EQ(
        link.scripted(
            kelo::kCmdStopRxUpload, {0, 0}, [&] { return link.dev->Fr_StopFrRxUpload(0); }, upload),
        0);
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 1u);
}

// The switch stays where the call put it whatever the device answered.
TEST(DeviceReceiveFlexRay, UploadSwitchDoesNotDependOnTheReply) {
    Link link(host::kRxUploadSwitchStop);
    ASSERT_TRUE(link.open());
    link.emu.refuse(kelo::kCmdStartRxUpload, 0x21, 1);
    EXPECT_EQ(link.dev->Fr_StartFrRxUpload(0), 1);
    link.emu.uploadFlexRay({sentinelEntry()});
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 1u);
    link.emu.refuse(kelo::kCmdStopRxUpload, 0x21, 1);
    EXPECT_EQ(link.dev->Fr_StopFrRxUpload(0), 1);
    link.emu.uploadFlexRay({sentinelEntry()});
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 1u);
}

// With nobody draining, the queue stops at 100,000 records: the oldest are kept, in order.
TEST(DeviceReceiveFlexRay, QueueStopsAtOneHundredThousandRecords) {
    Link link(host::kRxCap);
    ASSERT_TRUE(link.open());
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    link.emu.startFlood(kelo::kFrQueueCap + 50, 150000, 0);
    ASSERT_TRUE(link.emu.waitFlood(60000));
    ASSERT_EQ(link.emu.floodSent(), kelo::kFrQueueCap + 50);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), kelo::kFrQueueCap);

    // The flood numbers its records in bytes 0-3.
    FrRecord r;
    std::uint32_t outOfOrder = 0;
    for (std::uint32_t i = 0; i < kelo::kFrQueueCap; ++i) {
        ASSERT_EQ(link.dev->Fr_Receive(r.data(), 0), 0) << "record " << i;
        if (rd32(&r[0]) != i) ++outOfOrder;
    }
    EXPECT_EQ(outOfOrder, 0u);
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u);
    EXPECT_EQ(link.dev->Fr_Receive(r.data(), 20), 2);
}

TEST(DeviceReceiveFlexRay, ClearEmptiesTheQueue) {
    Link link(host::kRxClear);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    link.emu.uploadFlexRay({sentinelEntry(), sentinelEntry(), sentinelEntry()});
    CanEntry c;
    c.data = {1, 2};
    link.emu.uploadCan({c, c});
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 3u);
    EXPECT_EQ(link.dev->CAN_framesAvailable(), 2u);

    EXPECT_EQ(link.dev->Fr_ClearRcvBuffer(7), 0);
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u);
    EXPECT_EQ(link.dev->CAN_framesAvailable(), 2u) << "the other queue is left alone";
    EXPECT_EQ(link.dev->CAN_ClearRcvBuffer(), 0);
    EXPECT_EQ(link.dev->CAN_framesAvailable(), 0u);
    FrRecord fr;
    CanRecord can;
    EXPECT_EQ(link.dev->Fr_Receive(fr.data(), 0), 2);
    EXPECT_EQ(link.dev->CAN_Receive(can.data(), 0), 2);
}

// ---- CAN record ---------------------------------------------------------------------------------

CanEntry sentinelCan() {
    CanEntry c;
    c.word4 = 0xA4A3A2A1u;
    c.timestampUs = 1234567890123ull;
    c.flags = 0x80200000u;  // frame type 2, bit 21
    c.identifier = 0x1ABCDEF0u;
    c.data = {0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7};
    return c;
}

TEST(DeviceReceiveCan, EveryFieldOfTheRecord) {
    Link link(host::kRxCanRecord);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    link.emu.uploadCan({sentinelCan()});
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->CAN_framesAvailable(), 1u);

    CanRecord r;
    r.fill(0xEE);
    ASSERT_EQ(link.dev->CAN_Receive(r.data(), 1000), 0);
    EXPECT_EQ(r[0], kCanChannel) << "the object's channel";
    EXPECT_EQ(slice(r.data(), 4, 4), (Bytes{0xA1, 0xA2, 0xA3, 0xA4}));
    EXPECT_EQ(rd32(&r[8]), 1234567u) << "seconds";
    EXPECT_EQ(rd32(&r[12]), 890123u) << "microseconds";
    EXPECT_EQ(slice(r.data(), 16, 4), (Bytes{0xF0, 0xDE, 0xBC, 0x1A}));
    EXPECT_EQ(r[20], 2) << "frame type";
    EXPECT_EQ(r[21], 1) << "bit 21";
    EXPECT_EQ(r[22], 0) << "bit 20";
    EXPECT_EQ(r[23], 8) << "length";
    EXPECT_EQ(slice(r.data(), 24, 8), sentinelCan().data);
    EXPECT_EQ(link.dev->CAN_framesAvailable(), 0u);
}

TEST(DeviceReceiveCan, FlagBitsThirtyAndThirtyOneTwentyOneAndTwenty) {
    Link link(host::kRxCanFlags);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    const struct {
        std::uint32_t flags;
        std::uint8_t type, bit21, bit20;
    } cases[] = {
        {0x00000000u, 0, 0, 0}, {0x40000000u, 1, 0, 0}, {0x80000000u, 2, 0, 0},
        {0xC0000000u, 3, 0, 0}, {0x00200000u, 0, 1, 0}, {0x00100000u, 0, 0, 1},
        {0x00800000u, 0, 0, 0}, {0x3FCFFFFFu, 0, 0, 0}, {0xFFFFFFFFu, 3, 1, 1},
    };
    std::vector<CanEntry> entries;
    for (auto& c : cases) {
        CanEntry e = sentinelCan();
        e.flags = c.flags;
        entries.push_back(e);
    }
    link.emu.uploadCan(entries);
    for (auto& c : cases) {
        SCOPED_TRACE(c.flags);
        CanRecord r;
        ASSERT_EQ(link.dev->CAN_Receive(r.data(), 1000), 0);
        EXPECT_EQ(r[20], c.type);
        EXPECT_EQ(r[21], c.bit21);
        EXPECT_EQ(r[22], c.bit20);
    }
}

TEST(DeviceReceiveCan, TimeStampSplitsIntoSecondsAndMicroseconds) {
    Link link(host::kRxCanStamp);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    const struct {
        std::uint64_t us;
        std::uint32_t seconds, micros;
    } cases[] = {
        {0, 0, 0},
        {999999, 0, 999999},
        {1000000, 1, 0},
        {1000001, 1, 1},
        {4294967295999999ull, 4294967295u, 999999},
    };
    std::vector<CanEntry> entries;
    for (auto& c : cases) {
        CanEntry e = sentinelCan();
        e.timestampUs = c.us;
        entries.push_back(e);
    }
    link.emu.uploadCan(entries);
    for (auto& c : cases) {
        SCOPED_TRACE(c.us);
        CanRecord r;
        ASSERT_EQ(link.dev->CAN_Receive(r.data(), 1000), 0);
        EXPECT_EQ(rd32(&r[8]), c.seconds);
        EXPECT_EQ(rd32(&r[12]), c.micros);
    }
}

TEST(DeviceReceiveCan, EntriesWithNoDataAndWithSixtyFourBytes) {
    Link link(host::kRxCanSizes);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    CanEntry empty = sentinelCan();
    empty.data.clear();
    CanEntry full = sentinelCan();
    full.data = ramp(64, 0x80);
    CanEntry after = sentinelCan();
    after.identifier = 0x7FF;
    link.emu.uploadCan({empty, full, after});

    CanRecord r;
    ASSERT_EQ(link.dev->CAN_Receive(r.data(), 1000), 0);
    EXPECT_EQ(r[23], 0);
    ASSERT_EQ(link.dev->CAN_Receive(r.data(), 1000), 0);
    EXPECT_EQ(r[23], 64);
    EXPECT_EQ(slice(r.data(), 24, 64), ramp(64, 0x80));
    ASSERT_EQ(link.dev->CAN_Receive(r.data(), 1000), 0);
    EXPECT_EQ(rd32(&r[16]), 0x7FFu) << "the entry after a 64-byte entry";
    EXPECT_EQ(slice(r.data(), 24, 8), sentinelCan().data);
}

// A CAN entry is (40 + length) rounded up to 4 bytes: with 5 data bytes it takes 48, and the next
// entry starts right after the padding.
TEST(DeviceReceiveCan, FiveDataBytesOccupyFortyEightBytes) {
    Link link(host::kRxCanPacking);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    auto entry = [](std::uint32_t identifier, Bytes data) {
        Bytes e = zeros(40);
        const Bytes id = le32(identifier);
        std::copy(id.begin(), id.end(), e.begin() + 28);
        e[32] = std::uint8_t(data.size());
        e = cat({e, data});
        while (e.size() % 4)
            e.push_back(0xEE);  // padding the host must skip
        return e;
    };
    const Bytes first = entry(0x111, {1, 2, 3, 4, 5});
    ASSERT_EQ(first.size(), 48u);
    const Bytes payload =
        cat({zeros(16), le32(3), zeros(4), first, entry(0x222, {6, 7}), entry(0x333, {})});
    link.emu.sendFrame(kelo::kUploadCan, payload);

    const struct {
        std::uint32_t identifier;
        Bytes data;
    } expected[] = {{0x111, {1, 2, 3, 4, 5}}, {0x222, {6, 7}}, {0x333, {}}};
    for (auto& x : expected) {
        SCOPED_TRACE(x.identifier);
        CanRecord r;
        ASSERT_EQ(link.dev->CAN_Receive(r.data(), 1000), 0);
        EXPECT_EQ(rd32(&r[16]), x.identifier);
        EXPECT_EQ(r[23], x.data.size());
        EXPECT_EQ(slice(r.data(), 24, x.data.size()), x.data);
    }

    // The emulator packs the same way.
    CanEntry five = sentinelCan();
    five.data = {9, 8, 7, 6, 5};
    CanEntry next = sentinelCan();
    next.identifier = 0x444;
    link.emu.uploadCan({five, next});
    CanRecord r;
    ASSERT_EQ(link.dev->CAN_Receive(r.data(), 1000), 0);
    EXPECT_EQ(slice(r.data(), 24, 5), (Bytes{9, 8, 7, 6, 5}));
    ASSERT_EQ(link.dev->CAN_Receive(r.data(), 1000), 0);
    EXPECT_EQ(rd32(&r[16]), 0x444u);
}

// ---- receive results ----------------------------------------------------------------------------

TEST(DeviceReceiveResult, ClosedOrNeverOpenedReturnsFourAtOnce) {
    FrRecord fr;
    CanRecord can;
    std::unique_ptr<CommunicationLib> fresh(GetKeLoComm());
    EXPECT_EQ(fresh->Fr_Receive(fr.data(), 60000), 4);
    EXPECT_EQ(fresh->CAN_Receive(can.data(), 60000), 4);

    Link link(host::kRxClosed);
    ASSERT_TRUE(link.open());
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    link.emu.uploadFlexRay({sentinelEntry()});
    ASSERT_TRUE(link.sync());
    ASSERT_EQ(link.dev->Fr_framesAvailable(), 1u);
    link.forget();
    ASSERT_EQ(link.dev->Fr_Close(), 0);
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u) << "the close empties the FlexRay queue";
    EXPECT_EQ(link.dev->Fr_Receive(fr.data(), 60000), 4);
}

// CAN_Close leaves the CAN queue as it is: what was queued can still be taken, then 4.
TEST(DeviceReceiveResult, CanCloseKeepsQueuedRecords) {
    Link link(host::kRxCanClosed);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    link.emu.uploadCan({sentinelCan()});
    ASSERT_TRUE(link.sync());
    link.forget();
    ASSERT_EQ(link.dev->CAN_Close(), 0);
    CanRecord r;
    EXPECT_EQ(link.dev->CAN_Receive(r.data(), 60000), 0);
    EXPECT_EQ(rd32(&r[16]), sentinelCan().identifier);
    EXPECT_EQ(link.dev->CAN_Receive(r.data(), 60000), 4);
}

TEST(DeviceReceiveResult, QuietOpenLinkTimesOutWithTwo) {
    Link link(host::kRxQuiet);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    FrRecord fr;
    CanRecord can;
    Stopwatch watch;
    EXPECT_EQ(link.dev->Fr_Receive(fr.data(), 200), 2);
    EXPECT_GE(watch.ms(), 180);
    Stopwatch watch2;
    EXPECT_EQ(link.dev->CAN_Receive(can.data(), 200), 2);
    EXPECT_GE(watch2.ms(), 180);
}

// A waiter is released by a close from another thread with 4, long before its time-out. The
// waiter takes one record first, so it is known to be running when the close starts.
template <typename Record, typename Receive, typename Upload, typename Close>
void closeReleasesWaiter(Receive receive, Upload upload, Close close) {
    std::promise<unsigned char> first;
    std::future<unsigned char> firstResult = first.get_future();
    std::atomic<int> second{-1};
    std::thread waiter([&] {
        Record r;
        const unsigned char f = receive(r.data(), 10000);
        first.set_value(f);
        if (f == 0) second.store(receive(r.data(), 10000));
    });
    upload();
    const unsigned char f = firstResult.get();
    EXPECT_EQ(f, 0);
    close();
    waiter.join();
    if (f == 0) {
        EXPECT_EQ(second.load(), 4);
    }
}

TEST(DeviceReceiveResult, FrCloseFromAnotherThreadReleasesFrReceive) {
    Link link(host::kRxCloseWakesFr);
    ASSERT_TRUE(link.open());
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    link.forget();
    closeReleasesWaiter<FrRecord>(
        [&](unsigned char* r, unsigned t) { return link.dev->Fr_Receive(r, t); },
        [&] { link.emu.uploadFlexRay({sentinelEntry()}); },
        [&] { EXPECT_EQ(link.dev->Fr_Close(), 0); });
}

TEST(DeviceReceiveResult, CanCloseFromAnotherThreadReleasesCanReceive) {
    Link link(host::kRxCloseWakesCan);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    link.forget();
    closeReleasesWaiter<CanRecord>(
        [&](unsigned char* r, unsigned t) { return link.dev->CAN_Receive(r, t); },
        [&] { link.emu.uploadCan({sentinelCan()}); }, [&] { EXPECT_EQ(link.dev->CAN_Close(), 0); });
}

}  // namespace
}  // namespace kelo_test
