// The receive queues of the device object (the records themselves: the receive exports' tests):
// the upload switch, the 100,000-record cap, and Fr_Receive / CAN_Receive results on closed and
// closing links.
#include <array>

#include "support/device_harness.h"

namespace kelo_testing {
namespace {

using FrRecord = std::array<std::uint8_t, kelo::kFrRecordSize>;
using CanRecord = std::array<std::uint8_t, kelo::kCanRecordSize>;

constexpr std::uint8_t kCanChannel = 3;

const kelo::emu::FlexRayEntry kFrEntry = flexRayEntry(0x6261, ramp(6, 0xA0));
const kelo::emu::CanEntry kCanEntry = canEntry(0x1ABCDEF0u, ramp(8, 0xD0));

// Uploads are taken only between Fr_StartFrRxUpload and Fr_StopFrRxUpload, whatever the device
// answered to them. The switch flips before the command goes out: an upload that arrives while
// the start waits for its reply is taken, one that arrives while the stop waits is discarded.
TEST_F(OpenLink, UploadsAreTakenOnlyWhileSwitchedOn) {
    auto upload = [&] { link.emu.uploadFlexRay({kFrEntry}); };
    upload();
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u) << "before the start";
    EXPECT_EQ(link.scripted(
                  kelo::kCmdStartRxUpload, {0, 0x21},
                  [&] { return link.dev->Fr_StartFrRxUpload(0); }, upload),
              1);
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 1u);
    EXPECT_EQ(link.scripted(
                  kelo::kCmdStopRxUpload, {0, 0x21}, [&] { return link.dev->Fr_StopFrRxUpload(0); },
                  upload),
              1);
    upload();
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 1u) << "after the stop";
    FrRecord r;
    EXPECT_EQ(link.dev->Fr_Receive(r.data(), 1000), 0);
    EXPECT_EQ(link.dev->Fr_Receive(r.data(), 0), 2);
}

// With nobody draining, the queue stops at 100,000 records: the oldest are kept, in order.
TEST_F(OpenLink, FlexRayQueueStopsAtOneHundredThousandRecords) {
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    link.emu.startFlood(kelo::kFrQueueCap + 50, 150000, 0);
    ASSERT_TRUE(link.emu.waitFlood(60000));
    ASSERT_EQ(link.emu.floodSent(), kelo::kFrQueueCap + 50);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_framesAvailable(), kelo::kFrQueueCap);
    FrRecord r;
    std::uint32_t outOfOrder = 0;
    for (std::uint32_t i = 0; i < kelo::kFrQueueCap; ++i) {
        ASSERT_EQ(link.dev->Fr_Receive(r.data(), 0), 0) << "record " << i;
        if (rd32(&r[0]) != i) ++outOfOrder;  // the flood numbers its records in bytes 0-3
    }
    EXPECT_EQ(outOfOrder, 0u);
    EXPECT_EQ(link.dev->Fr_Receive(r.data(), 20), 2);
}

// A closed or never opened object returns 4 at once; Fr_Close empties the FlexRay queue, while
// CAN_Close leaves the CAN queue to be taken. (A quiet open link times out with 2: the receive
// exports' tests.)
TEST(DeviceReceiveResult, ClosedAndNeverOpenedLinks) {
    FrRecord fr;
    CanRecord can;
    std::unique_ptr<CommunicationLib> fresh(GetKeLoComm());
    EXPECT_EQ(fresh->Fr_Receive(fr.data(), 60000), 4);
    EXPECT_EQ(fresh->CAN_Receive(can.data(), 60000), 4);

    Link flexRay;
    ASSERT_TRUE(flexRay.open());
    ASSERT_EQ(flexRay.dev->Fr_StartFrRxUpload(0), 0);
    flexRay.emu.uploadFlexRay({kFrEntry});
    ASSERT_TRUE(flexRay.sync());
    ASSERT_EQ(flexRay.dev->Fr_framesAvailable(), 1u);
    flexRay.forget();
    ASSERT_EQ(flexRay.dev->Fr_Close(), 0);
    EXPECT_EQ(flexRay.dev->Fr_framesAvailable(), 0u) << "the close empties the FlexRay queue";
    EXPECT_EQ(flexRay.dev->Fr_Receive(fr.data(), 60000), 4);

    Link link;
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    link.emu.uploadCan({kCanEntry});
    ASSERT_TRUE(link.sync());
    link.forget();
    ASSERT_EQ(link.dev->CAN_Close(), 0);
    EXPECT_EQ(link.dev->CAN_Receive(can.data(), 60000), 0);
    EXPECT_EQ(rd32(&can[16]), kCanEntry.identifier);
    EXPECT_EQ(link.dev->CAN_Receive(can.data(), 60000), 4);
}

// A waiter is released by a close from another thread with 4, long before its time-out. The
// waiter takes one record first, so it is known to be running when the close starts.
TEST(DeviceReceiveResult, CloseFromAnotherThreadReleasesTheReceiver) {
    for (Bus bus : {Bus::FlexRay, Bus::Can}) {
        SCOPED_TRACE(bus == Bus::FlexRay ? "Fr_Close, Fr_Receive" : "CAN_Close, CAN_Receive");
        Link link;
        ASSERT_TRUE(link.open(bus, kCanChannel));
        if (bus == Bus::FlexRay) {
            ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
        }
        link.forget();
        KeLoCommLib& dev = *link.dev;
        std::promise<void> tookFirst;
        auto waiter = std::async(std::launch::async, [&] {
            FrRecord r;
            auto receive = [&] {
                return bus == Bus::FlexRay ? dev.Fr_Receive(r.data(), 10000)
                                           : dev.CAN_Receive(r.data(), 10000);
            };
            const int first = receive();
            tookFirst.set_value();
            return first == 0 ? int(receive()) : 100 + first;  // 100 + x: the first failed with x
        });
        bus == Bus::FlexRay ? link.emu.uploadFlexRay({kFrEntry}) : link.emu.uploadCan({kCanEntry});
        tookFirst.get_future().wait();
        EXPECT_EQ(bus == Bus::FlexRay ? dev.Fr_Close() : dev.CAN_Close(), 0);
        EXPECT_EQ(waiter.get(), 4);
    }
}

}  // namespace
}  // namespace kelo_testing
