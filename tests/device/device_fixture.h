// Shared harness of the device tests: an emulator on 127.0.0.<n>:5055 and a KeLoCommLib opened
// on it, byte helpers, a round-trip barrier, scripted replies and a deadline runner.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "device/KeLoCommLib.h"
#include "device/command_codes.h"
#include "emulator.h"
#include "support/wire_bytes.h"

namespace kelo_test {

using namespace kelo_testing;

// ---- emulator addresses ------------------------------------------------------------------------
// Every test binds its own 127.0.0.<n> (n in 50..149 and 220..229). The fast and the slow suites
// run as two processes at the same time, so a number is never shared between tests; the instances
// of one parameterised test run one after the other and share their test's number. Free: 108, 124.
namespace host {
// open_test.cpp
constexpr int kOpenWire = 50;
constexpr int kOpenRetry = 51;
constexpr int kOpenFiveRefusals = 52;
constexpr int kOpenVersion = 53;
constexpr int kOpenConnectRefused = 54;
constexpr int kOpenCanChannel = 55;
constexpr int kOpenFrDefaultChannel = 56;
constexpr int kOpenDeviceInfo = 57;
// behaviour_test.cpp (continued below)
constexpr int kSlotScripted = 58;
constexpr int kReadValueBits = 59;
constexpr int kMultiOrder = 63;
constexpr int kBusActiveNode = 64;
// receive_test.cpp (continued below)
constexpr int kRxCanSizes = 89;
constexpr int kRxCanClosed = 114;
// operations_test.cpp
constexpr int kOpsAccepted = 60;
constexpr int kOpsRefused = 61;
constexpr int kOpsClosed = 62;
// behaviour_test.cpp
constexpr int kTimeOffset = 65;
constexpr int kTimeOffsetStale = 66;
constexpr int kFifo = 67;
constexpr int kFifoSecondRefused = 68;
constexpr int kCluster = 69;
constexpr int kSlot = 70;
constexpr int kReadValue = 71;
constexpr int kWriteValue = 72;
constexpr int kWorkMode = 73;
constexpr int kResetCpu = 74;
constexpr int kCanConfigure = 75;
constexpr int kCanConfigureFail = 76;
constexpr int kCanTransmit = 77;
constexpr int kCanTransmitChannel = 78;
constexpr int kMultiStaging = 79;
constexpr int kMultiResults = 80;
constexpr int kMultiCounter = 81;
constexpr int kMultiReply = 82;
constexpr int kBusActive = 83;
constexpr int kNodeState = 84;
constexpr int kNodeStateScripted = 85;
constexpr int kNmVector = 86;
constexpr int kDeviceText = 87;
constexpr int kStatusEntries = 88;
// receive_test.cpp
constexpr int kRxFlexRayRecord = 90;
constexpr int kRxChannelFlags = 91;
constexpr int kRxCanRecord = 92;
constexpr int kRxCanFlags = 93;
constexpr int kRxCanStamp = 94;
constexpr int kRxSizes = 95;
constexpr int kRxCanPacking = 96;
constexpr int kRxFlexRayPacking = 97;
constexpr int kRxUploadsStopped = 98;
constexpr int kRxCap = 99;
constexpr int kRxClosed = 100;
constexpr int kRxQuiet = 101;
constexpr int kRxCloseWakesFr = 102;
constexpr int kRxCloseWakesCan = 103;
constexpr int kRxClear = 104;
// fault_test.cpp
constexpr int kFaultSplit = 105;
constexpr int kFaultDuplicate = 106;
constexpr int kFaultGarbage = 107;
constexpr int kFaultShortReply = 109;
constexpr int kFaultUnknownCode = 110;
constexpr int kFaultCloseFlood = 111;
constexpr int kFaultCloseCanTraffic = 112;
constexpr int kFaultReplySequence = 113;
// slow suites
constexpr int kSlowOpenDropped = 115;
constexpr int kSlowCrcHeader = 116;
constexpr int kSlowCrcPayload = 117;
constexpr int kSlowCloseDropAll = 118;
constexpr int kSlowCloseEmulatorGone = 119;
constexpr int kSlowKeepAliveQuiet = 120;
constexpr int kSlowKeepAliveBusy = 121;
constexpr int kSlowTimeOffset = 122;
constexpr int kSlowTruncated = 123;
// operations_test.cpp, dropped replies: one emulator per lane, all lanes at once.
constexpr int kSlowDroppedFirst = 125;
constexpr int kSlowDroppedLast = 142;
// receive_test.cpp (continued)
constexpr int kRxUploadSwitch = 143;
constexpr int kRxUploadSwitchStop = 144;
// concurrency_test.cpp
constexpr int kConcurrentCommands = 145;
constexpr int kConcurrentNodeState = 146;
constexpr int kConcurrentTransmit = 147;
constexpr int kConcurrentCanTransmit = 148;
constexpr int kConcurrentReceive = 149;
// strict_link_test.cpp
constexpr int kStrictSequence = 220;
constexpr int kStrictLateAndDuplicated = 221;
constexpr int kStrictCanQueue = 222;
constexpr int kDefaultCanQueue = 223;
constexpr int kCloseWakesCommand = 224;
constexpr int kCloseWakesExport = 225;
constexpr int kStrictAddress = 226;
}  // namespace host

// ---- time --------------------------------------------------------------------------------------

class Stopwatch {
  public:
    Stopwatch() : start_(std::chrono::steady_clock::now()) {}
    long long ms() const {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now() - start_)
            .count();
    }

  private:
    std::chrono::steady_clock::time_point start_;
};

// Runs fn on its own thread and waits up to `limit` for it. False when it did not finish: the
// thread is then left behind (with whatever it holds) so that the test can fail instead of hang.
inline bool finishesWithin(std::chrono::milliseconds limit, std::function<void()> fn) {
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> f = done->get_future();
    std::thread([fn = std::move(fn), done] {
        fn();
        done->set_value();
    }).detach();
    return f.wait_for(limit) == std::future_status::ready;
}

// ---- an emulator with a device object opened on it ---------------------------------------------

enum class Bus { FlexRay, Can };

class Link {
  public:
    explicit Link(int hostNumber) : address_(emulatorAddress(hostNumber)), emu(address_) {}
    ~Link() { shutDown(); }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    // Starts the emulator and opens the device (Fr_Open, or CAN_Open on `canChannel`), then
    // forgets the frames of the open so that a test sees only its own.
    ::testing::AssertionResult open(Bus bus = Bus::FlexRay, std::uint8_t canChannel = 3) {
        if (!emu.start()) return ::testing::AssertionFailure() << "emulator bind " << address_;
        bus_ = bus;
        const unsigned char r = bus == Bus::FlexRay ? dev->Fr_Open(address_.c_str())
                                                    : dev->CAN_Open(address_.c_str(), canChannel);
        if (r != 0) return ::testing::AssertionFailure() << "open returned " << int(r);
        open_ = true;
        emu.clearReceived();
        return ::testing::AssertionSuccess();
    }

    // A full round trip with a command that changes nothing: every datagram the emulator sent
    // before it answers has been through the host's dispatcher when this returns.
    ::testing::AssertionResult sync() {
        unsigned char info[kelo::kDeviceInfoSize];
        const unsigned char r = dev->GetDeviceInfo(info);
        if (r != 0)
            return ::testing::AssertionFailure() << "barrier GetDeviceInfo returned " << int(r);
        return ::testing::AssertionSuccess();
    }

    // Runs `op` while the emulator holds its own reply to `command` back (for longer than any
    // test lasts), and answers in its place with `reply` once the host's frame has arrived
    // (after running `meanwhile`, while the host still waits). Returns what `op` returned.
    unsigned char scripted(std::uint8_t command, const Bytes& reply,
                           const std::function<unsigned char()>& op,
                           const std::function<void()>& meanwhile = nullptr) {
        const std::size_t before = emu.count(command);
        emu.delay(command, 600000, 1);
        auto result = std::async(std::launch::async, op);
        if (emu.waitFor(command, before + 1, 2000)) {
            if (meanwhile) meanwhile();
            const auto frames = emu.received(command);
            emu.sendFrame(command, reply, frames.back().sequence);
        }
        return result.get();
    }

    // Closes the way the bus was opened (faults cleared first so the close is answered).
    void shutDown() {
        if (!open_) return;
        open_ = false;
        emu.clearFaults();
        if (bus_ == Bus::FlexRay)
            dev->Fr_Close();
        else
            dev->CAN_Close();
    }
    // The test closed (or gave up on) the device itself.
    void forget() { open_ = false; }

    const std::string& address() const { return address_; }
    const char* addr() const { return address_.c_str(); }

  private:
    std::string address_;

  public:
    kelo::emu::DeviceEmulator emu;
    std::unique_ptr<KeLoCommLib> dev{new KeLoCommLib};

  private:
    Bus bus_ = Bus::FlexRay;
    bool open_ = false;
};

}  // namespace kelo_test
