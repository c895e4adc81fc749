// An open/close soak through the exports against one emulator: what a device holds (socket,
// threads, receive queues) must all be given back by its close, and a failed open must not keep
// them either. Open descriptors and threads may not end above a reading taken after a warm-up,
// not by one; resident memory may grow within a margin (see kResidentMarginKb).
#include "export_fixture.h"
#include "support/process_usage.h"

using namespace kelo_export_test;

namespace {

class DeviceSoakSlow : public ExportTest {};

// Resident-memory margin. Everything a cycle allocates is freed by its close; a leak of as little
// as 1 kB per cycle adds 2 MB over 2,000 cycles and shows. Below that the reading moves for
// reasons that are not leaks: malloc keeps freed chunks in its per-thread arenas (the three
// device threads of each open may land in different arenas) and Qt keeps per-thread caches. After
// the warm-up that noise stays below 100 kB over the whole soak on the machines measured.
constexpr long kResidentMarginKb = 2048;

// 2,000 cycles of open and close (the way it was opened; every 20th a CAN one, whose open waits
// 100 ms, so that FlexRay does most of the cycles). Every 10th cycle starts with a failed open:
// the device refuses its information (command 198) five times and the open returns -1. A failed
// open keeps its unopened instance in the entry, without its socket and threads, and the
// cycle's open deletes it.
TEST_F(DeviceSoakSlow, OpenCloseCyclesAndFailedOpensGiveEverythingBack) {
    EmulatorHost host;
    const char* address = host.addr();
    auto open = [&](int n) {
        return n % 20 == 0 ? KCAN_Open_Wrapper(address, 2) : KFr_Open_Wrapper(address);
    };
    auto cycle = [&](int n) -> ::testing::AssertionResult {
        if (n % 10 == 9) {
            host.emu.refuse(kelo::kCmdGetDeviceInfo, 1, 5);
            const signed char failed = open(n + 1);  // every second one a CAN open
            if (failed != -1)
                return ::testing::AssertionFailure()
                       << "failed open " << n << " returned " << int(failed);
        }
        const signed char idx = open(n);
        if (idx <= 0)
            return ::testing::AssertionFailure() << "open " << n << " returned " << int(idx);
        const unsigned char closed = n % 20 == 0 ? KCAN_Close_Wrapper(idx) : KFr_Close_Wrapper(idx);
        if (closed != 0)
            return ::testing::AssertionFailure() << "close " << n << " returned " << int(closed);
        // The emulator keeps every frame it receives: forget them, or it grows instead of the host.
        host.emu.clearReceived();
        return ::testing::AssertionSuccess();
    };
    for (int n = 0; n < 40; ++n)  // warm-up: two CAN cycles and four failed opens among them
        ASSERT_TRUE(cycle(n));
    const ProcessUsage start = steadyUsage();
    for (int n = 0; n < 2000; ++n) {
        ASSERT_TRUE(cycle(n));
        // A leak of a socket per cycle would exhaust a 1,024-descriptor limit before the end and
        // break the tests that run after this one: stop once it is plain.
        ASSERT_LT(processUsage().fds - start.fds, 300) << "after " << n + 1 << " cycles";
    }
    const ProcessUsage end = settledUsage(start);
    SCOPED_TRACE(::testing::Message() << "start " << start << "; end " << end);
    // Fewer than at the start is something an earlier test left ending meanwhile, not a leak.
    EXPECT_LE(end.fds, start.fds) << "open file descriptors";
    EXPECT_LE(end.threads, start.threads) << "threads";
    if (kResidentMemoryComparable) {
        EXPECT_LT(end.residentKb - start.residentKb, kResidentMarginKb) << "resident memory (kB)";
    }
}

}  // namespace
