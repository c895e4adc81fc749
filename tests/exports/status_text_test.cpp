// KeLo_DeviceStatusText: a sentence for every result a device operation or export returns, the
// number itself for any other, and texts that stay put.
#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "device/device_status.h"
#include "export_fixture.h"

namespace {

TEST(DeviceStatusText, EveryDeviceCodeHasASentenceAndOthersNameTheirNumber) {
    using namespace kelo;
    const std::vector<unsigned char> codes = {
        kDeviceOk,           kDeviceRefused,         kDeviceNoReply,         kDeviceNotSent,
        kDeviceLinkClosed,   kDeviceBadArgument,     kDeviceBadIndex,        kDeviceCanModeFailed,
        kDeviceCanBusFailed, kDeviceCanFilterFailed, kDeviceCanOptionFailed, kDeviceBatchTooLong,
        kDeviceBusInactive,  kDeviceStageEmpty,      kDeviceNoFreeEntry};
    EXPECT_EQ(codes,
              (std::vector<unsigned char>{0, 1, 2, 3, 4, 5, 6, 10, 11, 12, 13, 15, 18, 19, 20}));
    std::set<std::string> sentences;
    for (int n = 0; n < 256; ++n) {
        const char* text = KeLo_DeviceStatusText(static_cast<unsigned char>(n));
        ASSERT_NE(text, nullptr) << n;
        const bool known = std::find(codes.begin(), codes.end(), n) != codes.end();
        if (known) {
            EXPECT_GT(std::string(text).size(), 10u) << n;
            EXPECT_EQ(std::string(text).find("unknown device status"), std::string::npos) << n;
            EXPECT_TRUE(sentences.insert(text).second) << "code " << n << " repeats a sentence";
        } else {
            EXPECT_EQ(std::string(text), "unknown device status " + std::to_string(n));
        }
    }
    // A failed open's result, negated, is the status.
    EXPECT_STREQ(KeLo_DeviceStatusText(static_cast<unsigned char>(-openFailure(kDeviceNotSent))),
                 KeLo_DeviceStatusText(kDeviceNotSent));
}

// The same pointer for the same code, from any thread, however often asked.
TEST(DeviceStatusText, TextsAreStableAcrossThreads) {
    std::vector<const char*> first(256);
    for (int n = 0; n < 256; ++n)
        first[n] = KeLo_DeviceStatusText(static_cast<unsigned char>(n));
    std::vector<std::thread> threads;
    std::atomic<int> moved{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int round = 0; round < 100; ++round)
                for (int n = 0; n < 256; ++n)
                    if (KeLo_DeviceStatusText(static_cast<unsigned char>(n)) != first[n]) ++moved;
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(moved.load(), 0);
}

}  // namespace
