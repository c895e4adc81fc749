// 1,000 open/close cycles of each example database: descriptors and threads may not end above a
// reading taken after a warm-up; resident memory may grow within a margin.
#include <cstdio>
#include <string>

#include "dbapi_test_support.h"
#include "support/process_usage.h"

using namespace kelo_testing;
using namespace kelo_dbapi_test;

namespace {

// A leak of 2 kB per cycle adds 2 MB; what malloc keeps of the freed chunks stays below 100 kB.
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
    for (int n = 0; n < 1000; ++n) {
        ASSERT_EQ(f.open(f.example.c_str()), 0) << "open " << n;
        ASSERT_EQ(f.close(), 0) << "close " << n;
    }
    const ProcessUsage end = settledUsage(start);
    std::printf(
        "[ soak     ] 1000 %s open/close cycles: start %d fds, %d threads, %ld kB; "
        "end %d fds, %d threads, %ld kB\n",
        f.name, start.fds, start.threads, start.residentKb, end.fds, end.threads, end.residentKb);
    std::fflush(stdout);

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
