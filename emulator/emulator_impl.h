// The parts of a DeviceEmulator: the link (socket, frame engine, receive thread; emulator.cpp),
// the device model (device_model.cpp), the fault plan (fault_plan.cpp) and the traffic the
// device sends on its own (simulation and flood threads; traffic.cpp).
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device/frame_engine.h"
#include "device_model.h"
#include "emulator.h"
#include "fault_plan.h"
#include "platform/platform.h"
#include "restbus.h"
#include "wire.h"

namespace kelo {
namespace emu {

struct DeviceEmulator::Impl final : DatagramSink, FrameReceiver {
    Impl(std::string addr, std::uint16_t p);

    // ---- link (emulator.cpp) ----
    bool host(Endpoint& out) const;
    void sendDatagram(const std::uint8_t* data, std::size_t length) override;
    // Frames one command or upload with the engine and sends it to `to`, applying the fault plan
    // (drop and CRC corruption by the frame's code; split and duplicate for every datagram).
    void emit(std::uint8_t code, const std::uint8_t* payload, std::size_t length, bool reply,
              std::uint16_t sequence, const Endpoint& to, const FrameFaults& decided = {});
    void emit(const Outgoing& o);
    bool upload(std::uint8_t code, const Bytes& payload);
    void rxLoop();
    // Traffic log: one line when `level` is at least `needs`.
    bool logs(int needs) const { return logLevel.load() >= needs; }
    void log(const char* direction, std::uint8_t code, const std::string& detail);
    // One host frame: recorded, executed by the model and answered.
    void onFrame(const FrameMessage& m) override;

    // ---- traffic (traffic.cpp) ----
    void poke();  // the schedule changed: the simulation thread plans again
    void delayReply(Outgoing reply, unsigned ms);
    void uploadFlexRayEntries(const std::vector<FlexRayEntry>& entries);
    void uploadCanEntries(const std::vector<CanEntry>& entries, std::uint8_t channel);
    void simLoop();
    void runCycles(Clock::time_point now);
    void uploadCycle();
    void runCanTraffic(Clock::time_point now);
    // Sends `total` records at `rate`; `whileUploading`: only while uploads are on, pausing
    // (and starting the pace over) while they are off.
    void floodLoop(std::uint64_t total, std::uint64_t rate, std::uint8_t words,
                   bool whileUploading);
    void startFloodThread(std::uint64_t total, std::uint64_t rate, std::uint8_t words,
                          bool whileUploading);
    void stopFlood();

    // ---- configuration ----
    const std::string address;
    const std::uint16_t port;

    // ---- link ----
    std::mutex lifecycleLock;  // start / stop
    UdpSocket socket;
    Lock engineLock;  // the engine's send lock
    FrameEngine engine;
    std::atomic<bool> running{false};
    std::thread rxThread;
    Endpoint from;                             // source of the datagram being parsed (rx thread)
    std::atomic<std::uint64_t> hostPacked{0};  // 1 << 48 | address << 16 | port; 0 = unknown
    std::atomic<bool> resetOnNewClient{false};

    // Traffic log (level 0: off).
    std::atomic<int> logLevel{0};
    std::mutex logLock;
    std::function<void(const std::string&)> logSink;

    // Outgoing frames: outLock keeps the datagrams of one frame together and in order.
    std::mutex outLock;
    Bytes outBytes;
    std::vector<std::size_t> outSizes;

    DeviceModel model;
    FaultPlan faults;
    std::unique_ptr<Restbus> restbus;  // guarded by model.lock; null when none is loaded

    // ---- host frames received ----
    mutable std::mutex rxLock;
    mutable std::condition_variable rxCv;
    std::vector<ReceivedFrame> frames;
    std::array<std::size_t, 256> counts{};

    // ---- simulation thread: engine tick, delayed replies, FlexRay cycles, CAN traffic ----
    std::mutex simLock;
    std::condition_variable simCv;
    bool simStop = false;
    bool simDirty = false;
    std::multimap<Clock::time_point, Outgoing> delayed;
    std::thread simThread;
    // Owned by the simulation thread.
    bool cycling = false;
    std::uint32_t seenGeneration = 0;
    Clock::time_point nextCycle;
    std::uint8_t cycle = 0;
    std::uint32_t cycleCount = 0;
    bool canTicking = false;  // some generated CAN frame is due at nextCan
    Clock::time_point nextCan;

    // ---- flood ----
    std::mutex floodLock;
    std::condition_variable floodCv;
    bool floodStop = false;
    bool floodDone = true;
    std::thread floodThread;
    std::atomic<std::uint64_t> floodCount{0};
};

}  // namespace emu
}  // namespace kelo
