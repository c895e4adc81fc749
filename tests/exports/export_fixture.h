// Shared harness of the flat-export tests: emulator addresses, an emulator with a device opened on
// it through the exports, byte helpers, the device-table snapshot every test is checked against,
// and the table of every export that takes a device index.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <initializer_list>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "KeLoComm.h"
#include "device/command_codes.h"
#include "emulator.h"
#include "exports/device_table.h"
#include "support/wire_bytes.h"

namespace kelo_export_test {

using namespace kelo_testing;

// ---- emulator addresses ------------------------------------------------------------------------
// Each test binds its own 127.0.0.<n> (n in 150..199): the fast and the slow suites run as two
// processes at the same time, and next to the other suites, so a number is never shared.
namespace host {
// c_interface_test.cpp
constexpr int kCSmokeFlexRay = 150;
constexpr int kCSmokeCan = 151;
// index_check_test.cpp
constexpr int kBadIndices = 152;
constexpr int kClosedIndex = 155;
// open_close_test.cpp
constexpr int kReuseAfterClose = 153;
constexpr int kFailedOpen = 156;
constexpr int kCanOpenSequence = 157;
constexpr int kSlowFullTable = 158;
constexpr int kSlowConnectTimeout = 159;
// repack_test.cpp
constexpr int kCluster = 160;
constexpr int kClusterClears = 161;
constexpr int kFlexRayRecords = 162;
constexpr int kSlot = 163;
constexpr int kSlotScripted = 164;
constexpr int kFifo = 165;
constexpr int kCanRecords = 166;
constexpr int kReadValue = 167;
constexpr int kSlowClusterStopTimeout = 171;
// receive_test.cpp
constexpr int kFlexRayReceive = 175;
constexpr int kFlexRayReceiveEmpty = 176;
constexpr int kCanReceive = 177;
constexpr int kCanReceiveEmpty = 178;
constexpr int kCanDataLengths = 179;
constexpr int kCanFramesAvailable = 180;
constexpr int kFlexRayFramesAvailable = 181;
}  // namespace host

// bad_input_test.cpp and soak_test.cpp bind 127.0.2.<n> (n in 1..9).
namespace host2 {
constexpr int kNullArguments = 1;
constexpr int kBadOpens = 2;
constexpr int kSlowSoak = 3;
constexpr int kSlowFailedOpens = 4;
}  // namespace host2
inline std::string emulatorAddress2(int n) {
    return "127.0.2." + std::to_string(n);
}

// ---- the device table --------------------------------------------------------------------------

using TableSnapshot = std::array<std::pair<int, const void*>, kelo::kDeviceSlots>;

inline TableSnapshot snapshotTable() {
    TableSnapshot s;
    for (int i = 0; i < kelo::kDeviceSlots; ++i)
        s[i] = {kelo::DeviceSlotTable[i].inUse.load(), kelo::DeviceSlotTable[i].lib.load()};
    return s;
}

// True when no entry holds a device and none is in use.
inline ::testing::AssertionResult tableEmpty() {
    for (int i = 0; i < kelo::kDeviceSlots; ++i) {
        if (kelo::DeviceSlotTable[i].inUse.load() != 0 || kelo::DeviceSlotTable[i].lib.load())
            return ::testing::AssertionFailure() << "entry " << i << " is not free";
    }
    return ::testing::AssertionSuccess();
}

// The first entry in 1..126 that is not in use: where the next open goes.
inline int firstFreeIndex() {
    for (int i = 1; i < kelo::kDeviceSlots; ++i)
        if (kelo::DeviceSlotTable[i].inUse.load() == 0) return i;
    return 0;
}

// Every export test leaves the process-wide device table as it found it.
class ExportTest : public ::testing::Test {
  protected:
    void SetUp() override { before_ = snapshotTable(); }
    void TearDown() override {
        const TableSnapshot after = snapshotTable();
        for (int i = 0; i < kelo::kDeviceSlots; ++i) {
            EXPECT_EQ(after[i].first, before_[i].first) << "inUse of entry " << i << " changed";
            EXPECT_EQ(after[i].second, before_[i].second) << "lib of entry " << i << " changed";
        }
    }

  private:
    TableSnapshot before_{};
};

// Indices a test opened itself: whatever it has not closed when it ends (an assertion failed) is
// closed with KFr_Close_Wrapper, so that the table is left as it was found.
class OpenedIndices {
  public:
    OpenedIndices() = default;
    ~OpenedIndices() {
        for (signed char idx : open_)
            KFr_Close_Wrapper(idx);
    }
    OpenedIndices(const OpenedIndices&) = delete;
    OpenedIndices& operator=(const OpenedIndices&) = delete;

    // Records a successful open; returns the index.
    signed char add(signed char idx) {
        if (idx > 0) open_.push_back(idx);
        return idx;
    }
    // Closes one with `close`; returns its status.
    unsigned char close(signed char idx, unsigned char (*close)(signed char) = &KFr_Close_Wrapper) {
        open_.erase(std::remove(open_.begin(), open_.end(), idx), open_.end());
        return close(idx);
    }

  private:
    std::vector<signed char> open_;
};

// ---- an emulator with a device opened on it through the exports --------------------------------

enum class Bus { FlexRay, Can };

class ExportDevice {
  public:
    explicit ExportDevice(int hostNumber) : address_(emulatorAddress(hostNumber)), emu(address_) {}
    explicit ExportDevice(std::string address) : address_(std::move(address)), emu(address_) {}
    ~ExportDevice() { close(); }
    ExportDevice(const ExportDevice&) = delete;
    ExportDevice& operator=(const ExportDevice&) = delete;

    // Starts the emulator and opens the device with KFr_Open_Wrapper or KCAN_Open_Wrapper, then
    // forgets the frames of the open so that a test sees only its own.
    ::testing::AssertionResult open(Bus bus = Bus::FlexRay, std::uint8_t canChannel = 3) {
        if (!emu.start()) return ::testing::AssertionFailure() << "emulator bind " << address_;
        bus_ = bus;
        const signed char r =
            bus == Bus::FlexRay ? KFr_Open_Wrapper(addr()) : KCAN_Open_Wrapper(addr(), canChannel);
        if (r <= 0) return ::testing::AssertionFailure() << "open returned " << int(r);
        idx_ = r;
        emu.clearReceived();
        return ::testing::AssertionSuccess();
    }

    // A round trip with a command that changes nothing: every datagram the emulator sent before
    // it answered has been through the host's dispatcher when this returns.
    ::testing::AssertionResult sync() {
        unsigned char state = 0, sub = 0;
        const unsigned char r = KFr_GetFrNodeState_Wrapper(idx_, 0, &state, &sub);
        if (r != 0)
            return ::testing::AssertionFailure() << "barrier node state returned " << int(r);
        return ::testing::AssertionSuccess();
    }

    // Runs `op` while the emulator holds its own reply to `command` back (for longer than any
    // test lasts) and answers in its place with `reply` once the host's frame has arrived.
    unsigned char scripted(std::uint8_t command, const Bytes& reply,
                           const std::function<unsigned char()>& op) {
        const std::size_t before = emu.count(command);
        emu.delay(command, 600000, 1);
        auto result = std::async(std::launch::async, op);
        if (emu.waitFor(command, before + 1, 5000)) {
            const auto frames = emu.received(command);
            emu.sendFrame(command, reply, frames.back().sequence);
        }
        return result.get();
    }

    // Closes the way the device was opened (faults cleared first so that the close is answered).
    unsigned char close() {
        if (idx_ <= 0) return 0;
        emu.clearFaults();
        const signed char idx = idx_;
        idx_ = 0;
        return bus_ == Bus::FlexRay ? KFr_Close_Wrapper(idx) : KCAN_Close_Wrapper(idx);
    }

    signed char idx() const { return idx_; }
    const char* addr() const { return address_.c_str(); }

  private:
    std::string address_;

  public:
    kelo::emu::DeviceEmulator emu;

  private:
    Bus bus_ = Bus::FlexRay;
    signed char idx_ = 0;
};

// ---- every export that takes a device index ----------------------------------------------------

// A function declared with KELOCOMM_API in the public header.
struct HeaderFunction {
    std::string name;
    bool takesDeviceIndex = false;  // the first parameter is `signed char idx`
    bool cLinkage = false;          // declared inside the header's extern "C" block
};
std::vector<HeaderFunction> headerDeclarations();
// Their names.
std::set<std::string> headerFunctions();

// The names of the exports in the index-check table.
std::vector<std::string> indexedExportNames();

// Calls every export that takes a device index with `idx` and expects each to return 6 and to
// leave every buffer it was given as it was (KeLo_get_software_version_Wrapper still writes the
// library version to its first output). Exports named in `passing` are skipped: the caller checks
// them on its own.
void expectEveryExportRejects(signed char idx, const std::set<std::string>& passing = {});

}  // namespace kelo_export_test
