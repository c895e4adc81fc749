// The receive exports' copies (header, then 2 x the length byte of payload), the frame counts,
// and the CAN data lengths that KCAN_Transmit_Wrapper lets through.
#include <algorithm>
#include <memory>

#include "export_fixture.h"

using namespace kelo_export_test;

namespace {

class ReceiveCopy : public ExportTest {};
class CanDataLength : public ExportTest {};
class FramesAvailable : public ExportTest {};

constexpr std::uint8_t kSentinel = 0xA5;

// Caller buffers of exactly the documented sizes, on the heap so that the sanitizer build sees
// any write or read past them.
Bytes sentinelBuffer(std::size_t n) {
    return Bytes(n, kSentinel);
}

// The 28-byte header, then 2 x words payload bytes: a record holds 254 of them, the bytes past
// those are zero, and the caller's buffer past 2 x words is not touched. Header byte 18: bit 1 =
// status bit 15 (channel B), bit 0 = status bit 7 (channel A).
TEST_F(ReceiveCopy, FlexRayCopiesHeaderAndTwiceTheWordCount) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open());
    ASSERT_EQ(KFr_StartFrRxUpload_Wrapper(dev.idx(), 0), 0);

    const std::uint16_t kRows[][3] = {
        {0, 0x8080, 3}, {4, 0x0080, 1}, {127, 0x8000, 2}, {128, 0x7F7F, 0}, {255, 0x807F, 2}};
    for (const auto& row : kRows) {
        const unsigned words = row[0];
        SCOPED_TRACE(std::to_string(words) + " words, status " + std::to_string(row[1]));
        std::vector<kelo::emu::FlexRayEntry> upload(1);
        kelo::emu::FlexRayEntry& e = upload[0];
        e.words[0] = 0x03020100u + words;
        e.words[1] = 0x07060504u;
        e.words[2] = 0x0B0A0908u;
        e.byte13 = 0x1D;
        e.bytes14to16[0] = 0x1E;
        e.bytes14to16[1] = 0x1F;
        e.bytes14to16[2] = 0x20;
        e.slot = std::uint16_t(0x0100 + words);
        e.cycle = std::uint8_t(words % 64);
        e.bytes22to23 = 0x2322;
        e.statusWord = row[1];
        e.payload = ramp(2 * words, std::uint8_t(0x40 + words));
        // The emulator copies from payload.data() even when it is empty: give it storage (in
        // place: a copy of an empty vector has none).
        e.payload.reserve(2);
        dev.emu.uploadFlexRay(upload);

        Bytes header = sentinelBuffer(28);
        Bytes payload = sentinelBuffer(510);
        ASSERT_EQ(KFr_Receive_Wrapper(dev.idx(), header.data(), payload.data(), 5000), 0);

        const std::size_t kept = std::min<std::size_t>(2 * words, 254);
        const Bytes firstTwo = kept ? Bytes(e.payload.begin(), e.payload.begin() + 2) : zeros(2);
        const Bytes expectedHeader =
            cat({le32(e.words[0]),
                 le32(e.words[1]),
                 le32(e.words[2]),
                 {e.byte13, e.bytes14to16[0], e.bytes14to16[1], e.bytes14to16[2]},
                 le16(e.slot),
                 {std::uint8_t(row[2]), e.cycle, std::uint8_t(words), 0},
                 le16(e.bytes22to23),
                 le16(e.statusWord),
                 firstTwo});
        EXPECT_TRUE(sameBytes(header, expectedHeader)) << "header";

        Bytes expectedPayload(e.payload.begin(), e.payload.begin() + kept);
        expectedPayload.resize(2 * words, 0);  // past the record's 254 bytes: zero
        expectedPayload.resize(510, kSentinel);
        EXPECT_TRUE(sameBytes(payload, expectedPayload)) << "payload";
    }
}

// Entries as the device packs them: FlexRay entries 28 + 2 x words bytes without padding (entry
// bytes 12, 17, 26, 27 and payload byte 0 unused); CAN entries (40 + length) rounded up to 4.
TEST_F(ReceiveCopy, EntriesArePackedAsTheDeviceSendsThem) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open(Bus::Can, 1));
    ASSERT_EQ(KFr_StartFrRxUpload_Wrapper(dev.idx(), 0), 0);
    auto frEntry = [](std::uint16_t slot, Bytes data) {
        Bytes e = ramp(28, 0x20);
        e[12] = e[17] = e[26] = e[27] = 0xEE;
        e[18] = std::uint8_t(slot);
        e[19] = std::uint8_t(slot >> 8);
        e[21] = std::uint8_t(data.size() / 2);
        e[24] = 0x80;  // channel A
        e[25] = 0x00;
        return cat({e, data});
    };
    auto canEntry = [](std::uint32_t identifier, Bytes data) {
        Bytes e = zeros(40);
        const Bytes id = le32(identifier);
        std::copy(id.begin(), id.end(), e.begin() + 28);
        e[32] = std::uint8_t(data.size());
        e = cat({e, data});
        while (e.size() % 4)
            e.push_back(0xEE);  // padding the host must skip
        return e;
    };
    ASSERT_EQ(canEntry(0x111, {1, 2, 3, 4, 5}).size(), 48u);
    dev.emu.sendFrame(kelo::kUploadFlexRay, cat({{0xEE, 3},
                                                 frEntry(0x0A01, {0xB0, 0xB1}),
                                                 frEntry(0x0A02, {}),
                                                 frEntry(0x0A03, {0xC0, 0xC1, 0xC2, 0xC3})}));
    dev.emu.sendFrame(kelo::kUploadCan,
                      cat({zeros(16), le32(3), zeros(4), canEntry(0x111, {1, 2, 3, 4, 5}),
                           canEntry(0x222, {6, 7}), canEntry(0x333, {})}));
    const std::pair<std::uint16_t, Bytes> flexRay[] = {
        {0x0A01, {0xB0, 0xB1}}, {0x0A02, {}}, {0x0A03, {0xC0, 0xC1, 0xC2, 0xC3}}};
    for (const auto& [slot, data] : flexRay) {
        SCOPED_TRACE(slot);
        Bytes header = sentinelBuffer(28), payload = sentinelBuffer(510);
        ASSERT_EQ(KFr_Receive_Wrapper(dev.idx(), header.data(), payload.data(), 1000), 0);
        EXPECT_TRUE(
            sameBytes(Bytes(header.begin(), header.begin() + 26),
                      cat({ramp(12, 0x20),
                           {0x2D, 0x2E, 0x2F, 0x30},
                           le16(slot),
                           {1, 0x34, std::uint8_t(data.size() / 2), 0, 0x36, 0x37, 0x80, 0}})));
        EXPECT_TRUE(sameBytes(Bytes(payload.begin(), payload.begin() + data.size()), data));
    }
    const std::pair<std::uint32_t, Bytes> can[] = {
        {0x111, {1, 2, 3, 4, 5}}, {0x222, {6, 7}}, {0x333, {}}};
    for (const auto& [identifier, data] : can) {
        SCOPED_TRACE(identifier);
        Bytes header = sentinelBuffer(24), payload = sentinelBuffer(510);
        ASSERT_EQ(KCAN_Receive_Wrapper(dev.idx(), header.data(), payload.data(), 1000), 0);
        EXPECT_EQ(rd32(&header[16]), identifier);
        EXPECT_EQ(header[23], data.size());
        EXPECT_TRUE(sameBytes(Bytes(payload.begin(), payload.begin() + data.size()), data));
    }
}

// Nothing queued: 2 after the time-out, and no buffer is touched.
TEST_F(ReceiveCopy, NothingIsCopiedWhenNothingArrives) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open(Bus::Can, 1));
    Bytes header = sentinelBuffer(28), payload = sentinelBuffer(510);
    EXPECT_EQ(KFr_Receive_Wrapper(dev.idx(), header.data(), payload.data(), 50), 2);
    EXPECT_EQ(KCAN_Receive_Wrapper(dev.idx(), header.data(), payload.data(), 50), 2);
    EXPECT_TRUE(sameBytes(header, sentinelBuffer(28)));
    EXPECT_TRUE(sameBytes(payload, sentinelBuffer(510)));
}

// The 24-byte header, then 2 x the data length: the data, then as many zero bytes; the caller's
// buffer past that is not touched.
TEST_F(ReceiveCopy, CanCopiesHeaderAndTwiceTheDataLength) {
    ExportDevice dev;
    const std::uint8_t channel = 6;
    ASSERT_TRUE(dev.open(Bus::Can, channel));

    // Header bytes 20-22: the frame type (flag bits 30-31), flag bits 21 and 20.
    struct Row {
        std::uint8_t length;
        std::uint32_t flags;
        std::uint8_t type, bit21, bit20;
    };
    for (const Row& row : {Row{0, 0x00000000u, 0, 0, 0}, Row{8, 0x40A00000u, 1, 1, 0},
                           Row{64, 0x80B00000u, 2, 1, 1}, Row{2, 0x3FCFFFFFu, 0, 0, 0}}) {
        SCOPED_TRACE(std::to_string(row.length) + " data bytes");
        std::vector<kelo::emu::CanEntry> upload(1);
        kelo::emu::CanEntry& e = upload[0];
        e.word4 = 0x44332211u + row.length;
        e.timestampUs = 3123456789ull + row.length;
        e.flags = row.flags;
        e.identifier = 0x18DAF100u + row.length;
        e.data = ramp(row.length, std::uint8_t(0x80 + row.length));
        e.data.reserve(1);  // as above
        dev.emu.uploadCan(upload);

        Bytes header = sentinelBuffer(24);
        Bytes payload = sentinelBuffer(510);
        ASSERT_EQ(KCAN_Receive_Wrapper(dev.idx(), header.data(), payload.data(), 5000), 0);

        const Bytes expectedHeader = cat({{channel, 0, 0, 0},
                                          le32(e.word4),
                                          le32(std::uint32_t(e.timestampUs / 1000000)),
                                          le32(std::uint32_t(e.timestampUs % 1000000)),
                                          le32(e.identifier),
                                          {row.type, row.bit21, row.bit20, row.length}});
        EXPECT_TRUE(sameBytes(header, expectedHeader)) << "header";

        Bytes expectedPayload = e.data;
        expectedPayload.resize(2u * row.length, 0);
        expectedPayload.resize(510, kSentinel);
        EXPECT_TRUE(sameBytes(payload, expectedPayload)) << "payload";
    }
}

// Every length byte 0..255: the sixteen CAN lengths reach the device (one transmit each, carrying
// that length), every other value gives 5 and nothing is sent.
TEST_F(CanDataLength, OnlyTheSixteenCanLengthsReachTheDevice) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open(Bus::Can, 2));
    const std::set<int> permitted = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    const Bytes data = ramp(255, 0);

    for (int length = 0; length <= 255; ++length) {
        SCOPED_TRACE("data length " + std::to_string(length));
        const std::size_t before = dev.emu.count(kelo::kCmdMultiTransmit);
        Bytes frame = cat({le32(0x123), {0, 0, 0, 0, std::uint8_t(length), 0, 0, 0}});
        Bytes payload = data;
        const unsigned char r = KCAN_Transmit_Wrapper(dev.idx(), frame.data(), payload.data());
        const auto sent = dev.emu.received(kelo::kCmdMultiTransmit);
        if (permitted.count(length)) {
            EXPECT_EQ(r, 0);
            ASSERT_EQ(sent.size(), before + 1);
            const Bytes& p = sent.back().payload;
            ASSERT_EQ(p.size(), 24u + 40u + std::size_t(length));
            EXPECT_EQ(p[24 + 32], length);
            EXPECT_TRUE(std::equal(data.begin(), data.begin() + length, p.begin() + 64));
        } else {
            EXPECT_EQ(r, 5);
            EXPECT_EQ(sent.size(), before) << "a frame with a length the bus cannot carry went out";
        }
    }
    EXPECT_EQ(dev.emu.count(kelo::kCmdMultiTransmit), permitted.size());
}

TEST_F(FramesAvailable, CanCountIsWrittenAndZeroReturned) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open(Bus::Can, 4));

    unsigned int count = 0xDEADBEEF;
    EXPECT_EQ(KCAN_framesAvailable_Wrapper(dev.idx(), &count), 0);
    EXPECT_EQ(count, 0u);

    kelo::emu::CanEntry e;
    e.data = {9, 9};
    dev.emu.uploadCan({e, e, e});
    ASSERT_TRUE(dev.sync());
    count = 0xDEADBEEF;
    EXPECT_EQ(KCAN_framesAvailable_Wrapper(dev.idx(), &count), 0);
    EXPECT_EQ(count, 3u);

    EXPECT_EQ(KCAN_ClearRcvBuffer_Wrapper(dev.idx()), 0);
    EXPECT_EQ(KCAN_framesAvailable_Wrapper(dev.idx(), &count), 0);
    EXPECT_EQ(count, 0u);
}

TEST_F(FramesAvailable, FlexRayCountIsReturned) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open());
    EXPECT_EQ(KFr_framesAvailable_Wrapper(dev.idx()), 0);
    ASSERT_EQ(KFr_StartFrRxUpload_Wrapper(dev.idx(), 0), 0);

    kelo::emu::FlexRayEntry e;
    e.payload = {1, 2};
    dev.emu.uploadFlexRay(std::vector<kelo::emu::FlexRayEntry>(7, e));
    ASSERT_TRUE(dev.sync());
    EXPECT_EQ(KFr_framesAvailable_Wrapper(dev.idx()), 7);

    EXPECT_EQ(KFr_ClearRcvBuffer_Wrapper(dev.idx(), 0), 0);
    EXPECT_EQ(KFr_framesAvailable_Wrapper(dev.idx()), 0);
}

}  // namespace
