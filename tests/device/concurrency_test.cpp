// Several caller threads on one device object: the same queries and transmissions from several
// threads (so nobody takes another caller's reply), and a consumer draining the FlexRay queue
// while it fills.
#include <array>
#include <thread>

#include "support/device_harness.h"

namespace kelo_testing {
namespace {

constexpr int kRounds = 50;

// Runs body(thread, round) on `threads` threads for kRounds rounds; returns the number of calls
// whose result was not 0 (results are collected, not asserted, off the main thread).
int runConcurrently(int threads, const std::function<int(int, int)>& body) {
    std::atomic<int> failures{0};
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&, t] {
            for (int round = 0; round < kRounds; ++round)
                if (body(t, round) != 0) ++failures;
        });
    for (auto& th : pool)
        th.join();
    return failures.load();
}

// Node-state queries, PSR queries (built on them), FlexRay and CAN transmissions, each from four
// threads at once: every call gets its own reply (the CAN one naming the object's channel), and
// each FlexRay buffer ends with its thread's last data.
TEST(DeviceConcurrency, QueriesAndTransmissionsFromManyThreads) {
    Link link;
    ASSERT_TRUE(link.open(Bus::Can, 2));
    link.emu.setPsrWords({0x0000, 0xBBBB, 0xCCCC, 0xDDDD});
    link.emu.setNodeState(5, 0x21);
    const int failures = runConcurrently(16, [&](int t, int round) -> int {
        unsigned char state = 0, sub = 0, psr[8] = {};
        Bytes data = {std::uint8_t(t), std::uint8_t(round), 0xAB, 0xCD};
        Bytes frame = {std::uint8_t(t), std::uint8_t(round), 0, 0, 0, 0, 0, 0, 3, 0, 0, 0};
        int r = 0;
        switch (t % 4) {
            case 0:
                r = link.dev->Fr_GetFrNodeState(1, &state, &sub);
                return r != 0 ? r : state == 5 && sub == 0x21 ? 0 : 100;
            case 1:
                r = link.dev->Fr_GetFrPSRState(1, psr);
                return r != 0 ? r : rd16(psr + 2) == 0xBBBB && rd16(psr + 6) == 0xDDDD ? 0 : 100;
            case 2:
                return link.dev->Fr_Transmit(1, std::uint8_t(10 + t), data.data(), 2);
            default:
                return link.dev->CAN_Transmit(frame.data(), data.data());
        }
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(link.emu.count(kelo::kCmdGetNodeState), std::size_t(8 * kRounds));
    EXPECT_EQ(link.emu.count(kelo::kCmdTransmit), std::size_t(4 * kRounds));
    EXPECT_EQ(link.emu.count(kelo::kCmdMultiTransmit), std::size_t(4 * kRounds));
    const auto buffers = link.emu.slotBuffers();
    for (int t = 2; t < 16; t += 4)
        EXPECT_EQ(buffers[10 + t].data, (Bytes{std::uint8_t(t), kRounds - 1, 0xAB, 0xCD})) << t;
}

// A consumer draining the queue while the device uploads: every record, once, in order.
TEST_F(OpenLink, ConsumerDrainsWhileUploadsArrive) {
    ASSERT_EQ(link.dev->Fr_StartFrRxUpload(0), 0);
    constexpr std::uint32_t kRecords = 30000;
    std::uint32_t taken = 0, outOfOrder = 0;
    std::thread consumer([&] {
        std::array<std::uint8_t, kelo::kFrRecordSize> r;
        while (taken < kRecords && link.dev->Fr_Receive(r.data(), 3000) == 0) {
            if (rd32(&r[0]) != taken) ++outOfOrder;
            ++taken;
        }
    });
    link.emu.startFlood(kRecords, 300000, 2);
    consumer.join();
    EXPECT_TRUE(link.emu.waitFlood(10000));
    EXPECT_EQ(taken, kRecords);
    EXPECT_EQ(outOfOrder, 0u);
    EXPECT_EQ(link.dev->Fr_framesAvailable(), 0u);
}

}  // namespace
}  // namespace kelo_testing
