// The three worker threads of a device object. Each overrides only run(); its running flag is
// set before start() and cleared to ask it to stop.
#pragma once

#include <QThread>
#include <atomic>
#include <cstdint>

#include "device/frame_engine.h"
#include "platform/platform.h"

// Set with release ordering as run() returns; the stopping thread reads it with acquire ordering
// after QThread::wait(), which makes the thread's last writes visible in a way the sanitizers
// can see (QThread::wait synchronises inside Qt, out of their sight).
class FinishedFlag {
  public:
    void mark() { finished_.store(true, std::memory_order_release); }
    bool observed() const { return finished_.load(std::memory_order_acquire); }

  private:
    std::atomic<bool> finished_{false};
};

// What every worker thread of a device object holds: the protocol engine of the link (which
// outlives the thread), a running flag (set before start(), cleared to ask the thread to stop)
// and the finished flag.
class DeviceThread : public QThread {
  public:
    explicit DeviceThread(kelo::FrameEngine& engine) : engine_(engine) {}
    std::atomic<std::uint8_t> running{0};
    FinishedFlag finished;

  protected:
    kelo::FrameEngine& engine_;
};

// A worker thread that sleeps on a wake-up event between its rounds.
class WakeableThread : public DeviceThread {
  public:
    using DeviceThread::DeviceThread;
    kelo::AutoResetEvent wakeUp;
};

// Reads datagrams from the device socket and feeds them to the frame parser.
class threadUDPproc : public DeviceThread {
  public:
    threadUDPproc(kelo::UdpSocket& socket, kelo::FrameEngine& engine)
        : DeviceThread(engine), socket_(socket) {}

  protected:
    void run() override;

  private:
    kelo::UdpSocket& socket_;
};

// The 50 ms heartbeat of the protocol engine.
class threadTFtickproc : public WakeableThread {
  public:
    using WakeableThread::WakeableThread;

  protected:
    void run() override;
};

// Sends the keep-alive command when nothing else was sent for 15 s.
class threadKeepAliveproc : public WakeableThread {
  public:
    using WakeableThread::WakeableThread;

  protected:
    void run() override;
};
