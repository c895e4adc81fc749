// The three worker threads of a device object. Each overrides only run(); its running flag is
// set before start() and cleared to ask it to stop.
#pragma once

#include <QThread>
#include <atomic>
#include <cstdint>

#include "platform/platform.h"

class KeLoCommLib;

// Reads datagrams from the device socket and feeds them to the frame parser.
class threadUDPproc : public QThread {
  public:
    explicit threadUDPproc(KeLoCommLib* owner) : owner_(owner) {}
    std::atomic<std::uint8_t> running{0};

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
    kelo::AutoResetEvent wakeUp;

  protected:
    void run() override;

  private:
    KeLoCommLib* owner_;
};
