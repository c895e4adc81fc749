// The harness of the device and export tests: an emulator on a loopback address of its own, a
// device opened on it (as a KeLoCommLib object or through the exports), scripted replies, a
// round-trip barrier and a deadline runner.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "KeLoComm.h"
#include "device/KeLoCommLib.h"
#include "device/protocol_table.h"
#include "emulator.h"
#include "support/loopback.h"
#include "support/wire_bytes.h"

namespace kelo_testing {

// An emulator started on a loopback address that nobody else holds.
inline std::unique_ptr<kelo::emu::DeviceEmulator> startedEmulator() {
    std::unique_ptr<kelo::emu::DeviceEmulator> emu;
    bindFreeLoopback([&](const std::string& address) {
        emu.reset(new kelo::emu::DeviceEmulator(address));
        return emu->start();
    });
    return emu;
}

struct Stopwatch {
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    long long ms() const {
        using namespace std::chrono;
        return duration_cast<milliseconds>(steady_clock::now() - start).count();
    }
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

enum class Bus { FlexRay, Can };

// A started emulator and what both kinds of device fixture do with it.
class EmulatorHost {
  public:
    EmulatorHost() = default;
    EmulatorHost(const EmulatorHost&) = delete;
    EmulatorHost& operator=(const EmulatorHost&) = delete;

    const char* addr() const { return emu.address().c_str(); }

    // Runs `op` while the emulator holds its own reply to `command` back, and answers in its
    // place with `reply` once the host's frame arrived (after `meanwhile`), under that frame's
    // sequence or under `sequence` when one is given (0-0xFFFF). Returns op's result.
    unsigned char scripted(std::uint8_t command, const Bytes& reply,
                           const std::function<unsigned char()>& op,
                           const std::function<void()>& meanwhile = nullptr, long sequence = -1) {
        const std::size_t before = emu.count(command);
        emu.delay(command, 600000, 1);
        auto result = std::async(std::launch::async, op);
        if (emu.waitFor(command, before + 1, 5000)) {
            if (meanwhile) meanwhile();
            emu.sendFrame(
                command, reply,
                sequence >= 0 ? std::uint16_t(sequence) : emu.received(command).back().sequence);
        }
        return result.get();
    }

  private:
    std::unique_ptr<kelo::emu::DeviceEmulator> owner_ = startedEmulator();

  public:
    kelo::emu::DeviceEmulator& emu = *owner_;
};

// A KeLoCommLib object on its own emulator.
class Link : public EmulatorHost {
  public:
    ~Link() { shutDown(); }

    // Opens (Fr_Open, or CAN_Open on `canChannel`) and forgets the open's frames.
    ::testing::AssertionResult open(Bus bus = Bus::FlexRay, std::uint8_t canChannel = 3) {
        bus_ = bus;
        const unsigned char r =
            bus == Bus::FlexRay ? dev->Fr_Open(addr()) : dev->CAN_Open(addr(), canChannel);
        if (r != 0) return ::testing::AssertionFailure() << "open returned " << int(r);
        open_ = true;
        emu.clearReceived();
        return ::testing::AssertionSuccess();
    }

    // A round trip with a command that changes nothing: every datagram the emulator sent before
    // has been dispatched when this returns.
    ::testing::AssertionResult sync() {
        unsigned char info[kelo::kDeviceInfoSize];
        const unsigned char r = dev->GetDeviceInfo(info);
        if (r != 0) return ::testing::AssertionFailure() << "barrier returned " << int(r);
        return ::testing::AssertionSuccess();
    }

    // Closes the way the bus was opened (faults cleared first so the close is answered).
    void shutDown() {
        if (!open_) return;
        open_ = false;
        emu.clearFaults();
        bus_ == Bus::FlexRay ? dev->Fr_Close() : dev->CAN_Close();
    }
    // The test closed (or gave up on) the device itself.
    void forget() { open_ = false; }

    std::unique_ptr<KeLoCommLib> dev{new KeLoCommLib};

  private:
    Bus bus_ = Bus::FlexRay;
    bool open_ = false;
};

// A test on a KeLoCommLib object opened for FlexRay.
class OpenLink : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(link.open()); }
    Link link;
};

// A device opened through the exports on its own emulator.
class ExportDevice : public EmulatorHost {
  public:
    ~ExportDevice() { close(); }

    ::testing::AssertionResult open(Bus bus = Bus::FlexRay, std::uint8_t canChannel = 3) {
        bus_ = bus;
        const signed char r =
            bus == Bus::FlexRay ? KFr_Open_Wrapper(addr()) : KCAN_Open_Wrapper(addr(), canChannel);
        if (r <= 0) return ::testing::AssertionFailure() << "open returned " << int(r);
        idx_ = r;
        emu.clearReceived();
        return ::testing::AssertionSuccess();
    }

    // A round trip with a command that changes nothing (see Link::sync).
    ::testing::AssertionResult sync() {
        unsigned char state = 0, sub = 0;
        const unsigned char r = KFr_GetFrNodeState_Wrapper(idx_, 0, &state, &sub);
        if (r != 0) return ::testing::AssertionFailure() << "barrier returned " << int(r);
        return ::testing::AssertionSuccess();
    }

    unsigned char close() {
        if (idx_ <= 0) return 0;
        emu.clearFaults();
        const signed char idx = idx_;
        idx_ = 0;
        return bus_ == Bus::FlexRay ? KFr_Close_Wrapper(idx) : KCAN_Close_Wrapper(idx);
    }

    signed char idx() const { return idx_; }

  private:
    Bus bus_ = Bus::FlexRay;
    signed char idx_ = 0;
};

}  // namespace kelo_testing
