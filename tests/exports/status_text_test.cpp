// KeLo_DeviceStatusText: a sentence for every result a device operation or export returns, the
// number itself for any other, and the same pointer for the same code from any thread, however
// often asked.
#include <atomic>
#include <thread>

#include "export_fixture.h"

namespace {

TEST(DeviceStatusText, EveryDeviceCodeHasASentenceOthersNameTheirNumberAndTextsStayPut) {
    const std::set<int> codes = {0, 1, 2, 3, 4, 5, 6, 10, 11, 12, 13, 15, 18, 19, 20};
    std::set<std::string> sentences;
    std::vector<const char*> first(256);
    for (int n = 0; n < 256; ++n) {
        const char* text = first[n] = KeLo_DeviceStatusText(static_cast<unsigned char>(n));
        ASSERT_NE(text, nullptr) << n;
        if (codes.count(n)) {
            EXPECT_GT(std::string(text).size(), 10u) << n;
            EXPECT_EQ(std::string(text).find("unknown device status"), std::string::npos) << n;
            EXPECT_TRUE(sentences.insert(text).second) << "code " << n << " repeats a sentence";
        } else {
            EXPECT_EQ(std::string(text), "unknown device status " + std::to_string(n));
        }
    }

    std::atomic<int> moved{0};
    std::vector<std::thread> threads;
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
