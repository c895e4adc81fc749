// The receive exports' copies (header, then 2 x the length byte of payload) of entries packed as
// the device sends them, the frame counts, and the CAN data lengths that KCAN_Transmit_Wrapper
// lets through.
#include <algorithm>

#include "export_fixture.h"

using namespace kelo_export_test;

namespace {

class ReceiveCopy : public ExportTest {};
class CanDataLength : public ExportTest {};

constexpr std::uint8_t kSentinel = 0xA5;

// Caller buffers of exactly the documented sizes, on the heap so that the sanitizer build sees
// any write or read past them.
Bytes sentinelBuffer(std::size_t n) {
    return Bytes(n, kSentinel);
}
Bytes slice(const Bytes& b, std::size_t from, std::size_t to) {
    return Bytes(b.begin() + std::ptrdiff_t(from), b.begin() + std::ptrdiff_t(to));
}

// One upload of five entries, each 28 + 2 x words bytes without padding (entry bytes 12, 17, 26
// and 27 unused). The record: entry bytes 0-11, 13-16, the slot, the channel bits (bit 1 =
// status bit 15, channel B; bit 0 = status bit 7, channel A), cycle, words, 0, bytes 22-23, the
// status word and the first two payload bytes; then 2 x words payload bytes, of which a record
// holds 254 (the rest are zero) and the caller's buffer past them is not touched. Once the queue
// is drained a receive times out with 2 and touches no buffer.
TEST_F(ReceiveCopy, FlexRayCopiesHeaderAndTwiceTheWordCount) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open());
    ASSERT_EQ(KFr_StartFrRxUpload_Wrapper(dev.idx(), 0), 0);

    const std::uint16_t rows[][3] = {
        {0, 0x8080, 3}, {4, 0x0080, 1}, {127, 0x8000, 2}, {128, 0x7F7F, 0}, {255, 0x807F, 2}};
    std::vector<Bytes> entries;
    Bytes upload = {0xEE, 5};
    for (const auto& [words, status, channels] : rows) {
        Bytes e = ramp(28, std::uint8_t(words));
        e[12] = e[17] = e[26] = e[27] = 0xEE;
        e[20] = std::uint8_t(words % 64);  // cycle
        e[21] = std::uint8_t(words);
        e[24] = std::uint8_t(status);
        e[25] = std::uint8_t(status >> 8);
        entries.push_back(cat({e, ramp(2 * words, std::uint8_t(0x40 + words))}));
        upload = cat({upload, entries.back()});
    }
    dev.emu.sendFrame(kelo::kUploadFlexRay, upload);
    ASSERT_TRUE(dev.sync());
    EXPECT_EQ(KFr_framesAvailable_Wrapper(dev.idx()), 5);

    for (std::size_t r = 0; r < entries.size(); ++r) {
        const unsigned words = rows[r][0];
        SCOPED_TRACE(std::to_string(words) + " words, status " + std::to_string(rows[r][1]));
        const Bytes& e = entries[r];
        Bytes header = sentinelBuffer(28), payload = sentinelBuffer(510);
        ASSERT_EQ(KFr_Receive_Wrapper(dev.idx(), header.data(), payload.data(), 5000), 0);

        const std::size_t kept = std::min<std::size_t>(2 * words, 254);
        EXPECT_TRUE(sameBytes(header, cat({slice(e, 0, 12),
                                           slice(e, 13, 17),
                                           slice(e, 18, 20),
                                           {std::uint8_t(rows[r][2]), e[20], e[21], 0},
                                           slice(e, 22, 26),
                                           kept ? slice(e, 28, 30) : zeros(2)})))
            << "header";
        Bytes expectedPayload = slice(e, 28, 28 + kept);
        expectedPayload.resize(2 * words, 0);  // past the record's 254 bytes: zero
        expectedPayload.resize(510, kSentinel);
        EXPECT_TRUE(sameBytes(payload, expectedPayload)) << "payload";
    }

    Bytes header = sentinelBuffer(28), payload = sentinelBuffer(510);
    EXPECT_EQ(KFr_Receive_Wrapper(dev.idx(), header.data(), payload.data(), 50), 2);
    EXPECT_TRUE(sameBytes(header, sentinelBuffer(28)));
    EXPECT_TRUE(sameBytes(payload, sentinelBuffer(510)));
}

// One upload of four entries, each (40 + length) bytes rounded up to 4. The record: the channel,
// entry bytes 4-7, the time stamp (entry bytes 8-15, microseconds) as seconds and microseconds,
// the identifier, the frame type (flag bits 30-31), flag bits 21 and 20, the length; then 2 x the
// length: the data, then as many zero bytes, and the caller's buffer past that is not touched.
// Once the queue is drained a receive times out with 2 and touches no buffer.
TEST_F(ReceiveCopy, CanCopiesHeaderAndTwiceTheDataLength) {
    ExportDevice dev;
    const std::uint8_t channel = 6;
    ASSERT_TRUE(dev.open(Bus::Can, channel));

    struct Row {
        std::uint8_t length;
        std::uint32_t flags;
        std::uint8_t type, bit21, bit20;
    };
    const Row rows[] = {{0, 0x00000000u, 0, 0, 0},
                        {8, 0x40A00000u, 1, 1, 0},
                        {64, 0x80B00000u, 2, 1, 1},
                        {2, 0x3FCFFFFFu, 0, 0, 0}};
    Bytes upload = cat({zeros(16), le32(4), zeros(4)});
    for (const Row& row : rows) {
        Bytes e = cat({zeros(4),
                       le32(0x44332211u + row.length),
                       le64(3123456789ull + row.length),
                       zeros(4),
                       {2, channel, 0, 0},
                       le32(row.flags),
                       le32(0x18DAF100u + row.length),
                       {row.length},
                       zeros(7),
                       ramp(row.length, std::uint8_t(0x80 + row.length))});
        while (e.size() % 4)
            e.push_back(0xEE);  // padding the host must skip
        upload = cat({upload, e});
    }
    dev.emu.sendFrame(kelo::kUploadCan, upload);
    ASSERT_TRUE(dev.sync());
    unsigned int count = 0xDEADBEEF;
    EXPECT_EQ(KCAN_framesAvailable_Wrapper(dev.idx(), &count), 0);
    EXPECT_EQ(count, 4u);

    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.length) + " data bytes");
        Bytes header = sentinelBuffer(24), payload = sentinelBuffer(510);
        ASSERT_EQ(KCAN_Receive_Wrapper(dev.idx(), header.data(), payload.data(), 5000), 0);

        const std::uint64_t us = 3123456789ull + row.length;
        EXPECT_TRUE(sameBytes(header, cat({{channel, 0, 0, 0},
                                           le32(0x44332211u + row.length),
                                           le32(std::uint32_t(us / 1000000)),
                                           le32(std::uint32_t(us % 1000000)),
                                           le32(0x18DAF100u + row.length),
                                           {row.type, row.bit21, row.bit20, row.length}})))
            << "header";
        Bytes expectedPayload = ramp(row.length, std::uint8_t(0x80 + row.length));
        expectedPayload.resize(2u * row.length, 0);
        expectedPayload.resize(510, kSentinel);
        EXPECT_TRUE(sameBytes(payload, expectedPayload)) << "payload";
    }

    Bytes header = sentinelBuffer(24), payload = sentinelBuffer(510);
    EXPECT_EQ(KCAN_Receive_Wrapper(dev.idx(), header.data(), payload.data(), 50), 2);
    EXPECT_TRUE(sameBytes(header, sentinelBuffer(24)));
    EXPECT_TRUE(sameBytes(payload, sentinelBuffer(510)));
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
}

}  // namespace
