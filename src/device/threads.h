// The three worker threads of a device object. Each overrides only run(); its running flag is
// set before start() and cleared to ask it to stop.
#pragma once

#include <QThread>
#include <atomic>
#include <cstdint>

#include "platform/platform.h"

class KeLoCommLib;

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

// Reads datagrams from the device socket and feeds them to the frame parser.
class threadUDPproc : public QThread {
  public:
    explicit threadUDPproc(KeLoCommLib* owner) : owner_(owner) {}
    std::atomic<std::uint8_t> running{0};
    FinishedFlag finished;

  protected:
    void run() override;

  private:
    KeLoCommLib* owner_;
};

// The 50 ms heartbeat of the protocol engine.
class threadTFtickproc : public QThread {
  public:
    explicit threadTFtickproc(KeLoCommLib* owner) : owner_(owner) {}
    std::atomic<std::uint8_t> running{0};
    FinishedFlag finished;
    kelo::AutoResetEvent wakeUp;

  protected:
    void run() override;

  private:
    KeLoCommLib* owner_;
};

// Sends the keep-alive command when nothing else was sent for 15 s.
class threadKeepAliveproc : public QThread {
  public:
    explicit threadKeepAliveproc(KeLoCommLib* owner) : owner_(owner) {}
    std::atomic<std::uint8_t> running{0};
    FinishedFlag finished;
    kelo::AutoResetEvent wakeUp;

  protected:
    void run() override;

  private:
    KeLoCommLib* owner_;
};
