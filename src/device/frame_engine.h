// The frame protocol engine: builds CRC-protected frames into datagrams of at most 1400 bytes and
// parses received bytes back into frames, which it dispatches to registered handlers. It knows
// nothing about what the commands mean.
//
// Frame: 0xAA, sequence (16, big-endian), length (16, BE), command, header CRC (16, BE) over the
// first six bytes, then the payload and, when length > 0, the payload CRC (16, BE).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "platform/platform.h"

namespace kelo {

class FrameEngine;

struct FrameMessage {
    std::uint16_t sequence = 0;
    std::uint8_t command = 0;
    const std::uint8_t* payload = nullptr;
    std::uint16_t length = 0;
    std::uintptr_t context[2] = {0, 0};
};

// Handler result: 0 = not handled, go on; any other value ends dispatch. For a pending reply
// 2 also clears its count-down; 3 removes the entry (or the handler) that returned it.
using FrameHandler = int (*)(FrameEngine& engine, const FrameMessage& message);

// Where finished datagrams go (a UDP socket on the host and in the emulator, a vector in tests).
class DatagramSink {
  public:
    virtual ~DatagramSink() = default;
    virtual void sendDatagram(const std::uint8_t* data, std::size_t length) = 0;
};

// Takes every frame that no handler in the engine's tables took (the host's reply dispatcher,
// the emulator's command execution). Runs on the thread that feeds the engine.
class FrameReceiver {
  public:
    virtual ~FrameReceiver() = default;
    virtual void onFrame(const FrameMessage& message) = 0;
};

class FrameEngine {
  public:
    static constexpr std::size_t kDatagramSize = 1400;
    static constexpr std::size_t kMaxPayload = 2048;
    static constexpr std::uint16_t kIdleTickLimit = 10;
    static constexpr int kPendingSlots = 20;
    static constexpr int kCommandSlots = 10;
    static constexpr int kGeneralSlots = 5;

    enum class ParserState : std::uint8_t {
        Hunt,
        Sequence,
        Length,
        Command,
        HeaderCrc,
        Payload,
        PayloadCrc
    };

    // role != 0: host, which sets bit 15 of the sequences it originates. sendLock serialises
    // every frame that leaves (the device object's send lock). The receiver, when given, sees
    // every frame the handler tables left unhandled.
    FrameEngine(std::uint32_t role, DatagramSink* sink, Lock& sendLock,
                FrameReceiver* receiver = nullptr);
    FrameEngine(const FrameEngine&) = delete;
    FrameEngine& operator=(const FrameEngine&) = delete;

    std::uint32_t role() const { return role_; }

    // Frames and sends a command. With a callback the frame's sequence is entered in the pending
    // table with `ticks` as its count-down; false only when that table is full.
    bool send(std::uint8_t command, const std::uint8_t* payload, std::uint16_t length,
              FrameHandler callback = nullptr, std::uint16_t ticks = 20,
              std::uintptr_t context0 = 0, std::uintptr_t context1 = 0);
    // As send() without a callback, and stores 0x10000 | the frame's sequence in `armed` before
    // the frame leaves, so that the receive thread can match the reply against it.
    void sendArmed(std::uint8_t command, const std::uint8_t* payload, std::uint16_t length,
                   std::atomic<std::uint32_t>& armed);
    // Frames and sends an answer that reuses the sequence of the frame it answers.
    void sendReply(std::uint16_t sequence, std::uint8_t command, const std::uint8_t* payload,
                   std::uint16_t length);

    // Runs the receive parser over the bytes, dispatching every complete frame.
    void feed(const std::uint8_t* bytes, std::size_t count);
    // The 50 ms heartbeat: ages the parser's idle counter and the pending replies.
    void tick();

    bool addPendingReply(std::uint16_t sequence, FrameHandler callback, std::uint16_t ticks,
                         std::uintptr_t context0 = 0, std::uintptr_t context1 = 0);
    void removePendingReply(std::uint16_t sequence);
    bool addCommandHandler(std::uint8_t command, FrameHandler callback);
    void removeCommandHandler(std::uint8_t command);
    bool addGeneralHandler(FrameHandler callback);
    void removeGeneralHandler(FrameHandler callback);

    // Set by every send; the keep-alive thread reads and clears it.
    bool sentSinceKeepAlive() const { return sentSinceKeepAlive_.load(std::memory_order_relaxed); }
    void clearSentSinceKeepAlive() { sentSinceKeepAlive_.store(false, std::memory_order_relaxed); }

    // Introspection for tests and diagnostics.
    ParserState parserState() const { return state_; }
    std::uint16_t transmitCounter() const { return txCounter_; }
    void setTransmitCounter(std::uint16_t value) { txCounter_ = value; }
    int pendingHighWater() const;
    int commandHighWater() const;
    int generalHighWater() const;

  private:
    struct PendingEntry {
        std::uint16_t sequence;
        FrameHandler callback;
        std::uintptr_t context[2];
        std::uint16_t countdown;
    };
    struct CommandEntry {
        std::uint8_t command;
        FrameHandler callback;
    };

    void buildAndSend(std::uint16_t sequence, std::uint8_t command, const std::uint8_t* payload,
                      std::uint16_t length);
    void flush();
    void append(std::uint8_t byte);
    void dispatch();
    template <typename Entry>
    static int addEntry(Entry* table, int capacity, int& highWater, const Entry& entry);
    template <typename Entry>
    static void removeEntry(Entry* table, int& highWater, int index);

    const std::uint32_t role_;
    DatagramSink* const sink_;
    Lock& sendLock_;
    FrameReceiver* const receiver_;

    // Transmit side (guarded by sendLock_).
    std::uint16_t txCounter_ = 0;
    std::uint8_t txBuffer_[kDatagramSize] = {};
    std::size_t txFill_ = 0;
    std::uint16_t txPayloadCrc_ = 0;
    std::atomic<bool> sentSinceKeepAlive_{false};

    // Receive parser (receive thread only, apart from the idle counter the tick ages).
    ParserState state_ = ParserState::Hunt;
    std::atomic<std::uint16_t> idleTicks_{0};
    std::uint16_t rxSequence_ = 0;
    std::uint16_t rxLength_ = 0;
    std::uint8_t rxCommand_ = 0;
    std::uint16_t fieldCount_ = 0;
    std::uint16_t rxCrc_ = 0;
    std::uint16_t rxReceivedCrc_ = 0;
    bool overflow_ = false;
    std::uint8_t rxPayload_[kMaxPayload] = {};

    // Handler tables: a free entry has a null callback; the high-water count covers the last
    // entry in use. The lock keeps registration on one thread safe against dispatch and the tick
    // on others; callbacks run without it.
    mutable std::mutex tableLock_;
    PendingEntry pending_[kPendingSlots] = {};
    int pendingHighWater_ = 0;
    CommandEntry commands_[kCommandSlots] = {};
    int commandHighWater_ = 0;
    FrameHandler general_[kGeneralSlots] = {};
    int generalHighWater_ = 0;
};

}  // namespace kelo
