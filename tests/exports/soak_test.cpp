// Open/close soaks through the exports against one emulator: what a device holds (socket,
// threads, receive queues) must all be given back by its close, and a failed open must not keep
// them either. Open descriptors and threads may not end above a reading taken after a warm-up,
// not by one; resident memory may grow within a margin (see kResidentMarginKb).
#include <chrono>
#include <cstdio>

#include "device/KeLoCommLib.h"
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

void report(const char* what, const ProcessUsage& start, const ProcessUsage& end,
            std::chrono::steady_clock::duration took) {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
    std::printf(
        "[ soak     ] %s: start %d fds, %d threads, %ld kB; end %d fds, %d threads, "
        "%ld kB; %lld ms\n",
        what, start.fds, start.threads, start.residentKb, end.fds, end.threads, end.residentKb,
        static_cast<long long>(ms));
    std::fflush(stdout);
}

void expectNoGrowth(const ProcessUsage& start, const ProcessUsage& end, long residentMarginKb) {
    // Fewer than at the start is something an earlier test left ending meanwhile, not a leak.
    EXPECT_LE(end.fds, start.fds) << "open file descriptors";
    EXPECT_LE(end.threads, start.threads) << "threads";
    if (kResidentMemoryComparable) {
        EXPECT_LT(end.residentKb - start.residentKb, residentMarginKb) << "resident memory (kB)";
    }
}

// One cycle: open, close the way it was opened. Every 20th cycle is a CAN one (its open waits
// 100 ms, which keeps the soak short with FlexRay doing most of the cycles).
::testing::AssertionResult cycle(kelo::emu::DeviceEmulator& emu, int n) {
    const bool can = n % 20 == 0;
    const signed char idx =
        can ? KCAN_Open_Wrapper(emu.address().c_str(), 2) : KFr_Open_Wrapper(emu.address().c_str());
    // The emulator keeps every frame it receives: forget them, or it grows instead of the host.
    emu.clearReceived();
    if (idx <= 0) return ::testing::AssertionFailure() << "open " << n << " returned " << int(idx);
    const unsigned char closed = can ? KCAN_Close_Wrapper(idx) : KFr_Close_Wrapper(idx);
    if (closed != 0)
        return ::testing::AssertionFailure() << "close " << n << " returned " << int(closed);
    return ::testing::AssertionSuccess();
}

TEST_F(DeviceSoakSlow, TwoThousandOpenCloseCyclesGiveEverythingBack) {
    EmulatorHost host;
    kelo::emu::DeviceEmulator& emu = host.emu;
    for (int n = 0; n < 40; ++n)  // warm-up: two CAN cycles among them
        ASSERT_TRUE(cycle(emu, n));
    const ProcessUsage start = steadyUsage();

    const auto began = std::chrono::steady_clock::now();
    for (int n = 0; n < 2000; ++n)
        ASSERT_TRUE(cycle(emu, n));
    const ProcessUsage end = settledUsage(start);
    report("2000 device open/close cycles (100 CAN)", start, end,
           std::chrono::steady_clock::now() - began);
    expectNoGrowth(start, end, kResidentMarginKb);
}

// The device refuses its information (command 198): each open fails with -1 after five tries.
// A failed open keeps its unopened instance in the entry, without its socket and threads, and
// the next open deletes it: nothing may grow.
TEST_F(DeviceSoakSlow, TwoHundredFailedOpensGiveTheirSocketsAndThreadsBack) {
    EmulatorHost host;
    kelo::emu::DeviceEmulator& emu = host.emu;
    const int idx = firstFreeIndex();
    ASSERT_GT(idx, 0);
    const char* address = emu.address().c_str();
    emu.refuse(kelo::kCmdGetDeviceInfo, 1);

    // Whatever happens, the entry ends free: a successful open takes it over and is closed.
    struct FreeEntry {
        kelo::emu::DeviceEmulator& emu;
        ~FreeEntry() {
            emu.clearFaults();
            OpenedIndices opened;
            EXPECT_EQ(opened.close(opened.add(KFr_Open_Wrapper(emu.address().c_str()))), 0);
        }
    } freeEntry{emu};

    for (int n = 0; n < 4; ++n)
        ASSERT_EQ(int(KFr_Open_Wrapper(address)), -1);
    emu.clearReceived();
    const ProcessUsage start = steadyUsage();

    const auto began = std::chrono::steady_clock::now();
    int failed = 0;
    ProcessUsage now = start;
    for (; failed < 200; ++failed) {
        const bool can = failed % 20 == 0;
        ASSERT_EQ(int(can ? KCAN_Open_Wrapper(address, 2) : KFr_Open_Wrapper(address)), -1);
        EXPECT_EQ(kelo::DeviceSlotTable[idx].inUse.load(), 0);
        emu.clearReceived();
        // A leak of a socket per open would exhaust a 1,024-descriptor limit before the end and
        // break the tests that run after this one: stop once it is plain.
        if (failed % 10 == 9) {
            now = processUsage();
            if (now.fds - start.fds > 300 || now.threads - start.threads > 300) {
                ++failed;
                break;
            }
        }
    }
    const ProcessUsage end = settledUsage(start);
    report((std::to_string(failed) + " failed device opens").c_str(), start, end,
           std::chrono::steady_clock::now() - began);
    EXPECT_EQ(failed, 200) << "stopped early: " << (end.fds - start.fds) << " descriptors and "
                           << (end.threads - start.threads) << " threads more after " << failed
                           << " failed opens";
    expectNoGrowth(start, end, kResidentMarginKb);
}

}  // namespace
