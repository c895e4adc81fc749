// Database open/close soaks: 1,000 loads of each example database, each closed again. Every load
// builds a document and a database of several hundred kB and the close must give all of it back;
// open descriptors and threads may not end above a reading taken after a warm-up, not by one;
// resident memory may grow within a margin (see kResidentMarginKb).
#include <chrono>
#include <cstdio>
#include <string>

#include "dbapi_test_support.h"
#include "support/process_usage.h"

using namespace kelo_testing;
using namespace kelo_dbapi_test;

namespace {

// Resident-memory margin. A load that kept its document or database would add tens of MB over
// 1,000 cycles, and a leak of 2 kB per cycle adds 2 MB. Below that the reading moves with what
// malloc keeps of the freed chunks; the same sizes are asked for on every cycle, so after the
// warm-up it stays below 100 kB on the machines measured.
constexpr long kResidentMarginKb = 2048;

class DatabaseSoakSlow : public ::testing::TestWithParam<const Format*> {
  protected:
    void TearDown() override { GetParam()->close(); }
};

TEST_P(DatabaseSoakSlow, ThousandOpenCloseCyclesGiveEverythingBack) {
    const Format& f = *GetParam();
    f.close();
    for (int n = 0; n < 10; ++n) {  // warm-up
        ASSERT_EQ(f.open(f.example.c_str()), 0);
        ASSERT_EQ(f.close(), 0);
    }
    const ProcessUsage start = steadyUsage();
    const auto began = std::chrono::steady_clock::now();
    for (int n = 0; n < 1000; ++n) {
        ASSERT_EQ(f.open(f.example.c_str()), 0) << "open " << n;
        ASSERT_EQ(f.close(), 0) << "close " << n;
    }
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::steady_clock::now() - began)
                        .count();
    const ProcessUsage end = settledUsage(start);
    std::printf(
        "[ soak     ] 1000 %s open/close cycles: start %d fds, %d threads, %ld kB; "
        "end %d fds, %d threads, %ld kB; %lld ms\n",
        f.name, start.fds, start.threads, start.residentKb, end.fds, end.threads, end.residentKb,
        static_cast<long long>(ms));
    std::fflush(stdout);

    // Fewer than at the start is something an earlier test left ending meanwhile, not a leak.
    EXPECT_LE(end.fds, start.fds) << "open file descriptors";
    EXPECT_LE(end.threads, start.threads) << "threads";
    if (kResidentMemoryComparable) {
        EXPECT_LT(end.residentKb - start.residentKb, kResidentMarginKb) << "resident memory (kB)";
    }
}

INSTANTIATE_TEST_SUITE_P(ExampleDatabases, DatabaseSoakSlow, ::testing::ValuesIn(kFormats),
                         [](const ::testing::TestParamInfo<const Format*>& info) {
                             return std::string(info.param == &kFibex ? "FIBEX" : "AUTOSAR");
                         });

}  // namespace
