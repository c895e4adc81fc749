// The strict link (KELO_DEVICE_STRICT) beside the default one, and what every link does on a
// close: a reply completes only the call that sent its command, a late or duplicated reply
// answers nobody, CAN uploads need an open CAN channel and stop at the queue's cap, an address
// that is not dotted IPv4 fails the open at once, and a close wakes the callers still waiting.
#include "KeLoComm.h"
#include "support/device_harness.h"

namespace kelo_testing {
namespace {

// A reply with a foreign sequence (refusing) is dropped; the right one (accepting) completes the
// call. Then one reply that comes after its caller gave up, and every reply twice: each later call
// still gets its own answer. (The default link matches by code alone: the fault tests.)
TEST(StrictLink, ForeignLateAndDuplicatedRepliesAnswerNobody) {
    Link link;
    link.dev->setStrict(true);
    ASSERT_TRUE(link.open());
    const std::uint8_t code = kelo::kCmdConfigureNode;
    for (std::uint16_t sequence : {std::uint16_t{0x7777}, std::uint16_t{0}}) {
        SCOPED_TRACE(sequence);
        auto foreignReply = [&] {
            const std::uint16_t right = link.emu.received(code).back().sequence;
            link.emu.sendFrame(code, {1, 9}, sequence == right ? right ^ 1 : sequence);
            EXPECT_TRUE(link.sync());
        };
        EXPECT_EQ(link.scripted(
                      code, {1, 0}, [&] { return link.dev->Fr_Configure_Node(1); }, foreignReply),
                  0);
    }
    link.emu.delay(code, 600000, 1);
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 2);
    link.emu.sendFrame(code, {1, 0}, link.emu.received(code).back().sequence);
    ASSERT_TRUE(link.sync());
    link.emu.refuse(code, 7, 1);
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 1) << "the refusal, not the late acceptance";
    link.emu.duplicateDatagrams(true);
    int accepted = 0;
    for (int i = 0; i < 200; ++i)
        accepted += link.dev->Fr_Configure_Node(1) == 0;
    EXPECT_EQ(accepted, 200);
    unsigned char state = 0, sub = 0;
    EXPECT_EQ(link.dev->Fr_GetFrNodeState(1, &state, &sub), 0);
}

// Uploads `total` CAN records, 1,000 per frame, then waits for them to be dispatched.
void uploadCanRecords(Link& link, std::size_t total) {
    const kelo::emu::CanEntry e = canEntry(0x100, {1, 2, 3, 4, 5});
    for (std::size_t sent = 0; sent < total;) {
        const std::size_t n = std::min<std::size_t>(1000, total - sent);
        link.emu.uploadCan(std::vector<kelo::emu::CanEntry>(n, e));
        sent += n;
        ASSERT_TRUE(link.sync());
    }
}

// The default link keeps CAN uploads on a FlexRay link; the strict one only with CAN open.
TEST(StrictLink, CanQueueNeedsAnOpenChannelAndStopsAtItsCap) {
    for (bool strict : {false, true}) {
        Link flexRay;
        flexRay.dev->setStrict(strict);
        ASSERT_TRUE(flexRay.open(Bus::FlexRay));
        uploadCanRecords(flexRay, 10);
        EXPECT_EQ(flexRay.dev->CAN_framesAvailable(), strict ? 0u : 10u) << strict;
    }
    Link can;
    can.dev->setStrict(true);
    ASSERT_TRUE(can.open(Bus::Can));
    uploadCanRecords(can, kelo::kCanQueueCap + 10);
    EXPECT_EQ(can.dev->CAN_framesAvailable(), kelo::kCanQueueCap);
    unsigned char record[kelo::kCanRecordSize];
    EXPECT_EQ(can.dev->CAN_Receive(record, 0), 0);
    EXPECT_EQ(can.dev->CAN_ClearRcvBuffer(), 0);
    EXPECT_EQ(can.dev->CAN_framesAvailable(), 0u);
}

TEST(StrictLink, AddressThatIsNotDottedIPv4FailsAtOnce) {
    for (const char* address : {"not-an-ip", "", "999.1.1.1", "1.2.3", "1.2.3.4.5", " 1.2.3.4",
                                "1.2.3.4 ", "0x7f.0.0.1", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(address ? address : "(null)");
        KeLoCommLib dev;
        dev.setStrict(true);
        EXPECT_EQ(dev.Fr_Open(address), 3);
        EXPECT_EQ(KFr_OpenEx_Wrapper(address, KELO_DEVICE_STRICT), -3);
    }
    KeLoCommLib plain;
    EXPECT_EQ(plain.Fr_Open(nullptr), 3) << "no address at all fails at once on any link";
    // A dotted address opens as usual; the strict link gives the device only dotted addresses.
    Link link;
    link.dev->setStrict(true);
    ASSERT_TRUE(link.open());
    EXPECT_EQ(link.dev->FrSetDevIp("10.1"), 5);
    EXPECT_EQ(link.dev->FrSetDevIp("10.0.0.9"), 0);
    EXPECT_EQ(link.emu.count(kelo::kCmdSetDeviceIp), 1u);
}

// A caller waiting for a reply when another thread closes the device returns 4 (link not open)
// as soon as the close has its own answer; here through the exports, where the index is closed
// while the waiting call still uses its device.
TEST(CloseWakesWaiters, ExportWaitingWhileTheIndexIsClosed) {
    EmulatorHost host;
    for (bool can : {false, true}) {
        SCOPED_TRACE(can ? "CAN" : "FlexRay");
        const signed char idx =
            can ? KCAN_Open_Wrapper(host.addr(), 2) : KFr_Open_Wrapper(host.addr());
        ASSERT_GT(idx, 0);
        const std::size_t before = host.emu.count(kelo::kCmdGetNodeState);
        host.emu.delay(kelo::kCmdGetNodeState, 600000, 1);
        auto op = std::async(std::launch::async, [&] {
            unsigned char state = 0, sub = 0;
            return KFr_GetFrNodeState_Wrapper(idx, 1, &state, &sub);
        });
        ASSERT_TRUE(host.emu.waitFor(kelo::kCmdGetNodeState, before + 1, 2000));
        EXPECT_EQ(can ? KCAN_Close_Wrapper(idx) : KFr_Close_Wrapper(idx), 0);
        EXPECT_EQ(op.get(), 4);
    }
}

}  // namespace
}  // namespace kelo_testing
