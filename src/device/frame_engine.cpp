#include "device/frame_engine.h"

#include <cstring>

#include "device/byte_order.h"
#include "device/crc16.h"

namespace kelo {

FrameEngine::FrameEngine(std::uint32_t role, DatagramSink* sink, Lock& sendLock,
                         FrameReceiver* receiver)
    : role_(role), sink_(sink), sendLock_(sendLock), receiver_(receiver) {}

// ---- tables --------------------------------------------------------------------------------

namespace {
inline bool isFree(const FrameHandler& h) {
    return h == nullptr;
}
template <typename Entry>
inline bool isFree(const Entry& e) {
    return e.callback == nullptr;
}
template <typename Entry>
inline void release(Entry& e) {
    e.callback = nullptr;
}
inline void release(FrameHandler& h) {
    h = nullptr;
}
}  // namespace

// First free entry; the high-water count grows to include it. -1 when the table is full.
template <typename Entry>
int FrameEngine::addEntry(Entry* table, int capacity, int& highWater, const Entry& entry) {
    for (int i = 0; i < capacity; ++i) {
        if (isFree(table[i])) {
            table[i] = entry;
            if (i + 1 > highWater) highWater = i + 1;
            return i;
        }
    }
    return -1;
}

// Frees the entry; the count drops only when it was the last one.
template <typename Entry>
void FrameEngine::removeEntry(Entry* table, int& highWater, int index) {
    release(table[index]);
    if (index == highWater - 1) --highWater;
}

bool FrameEngine::addPendingReply(std::uint16_t sequence, FrameHandler callback,
                                  std::uint16_t ticks, std::uintptr_t context0,
                                  std::uintptr_t context1) {
    if (!callback) return false;
    std::lock_guard<std::mutex> g(tableLock_);
    PendingEntry e{sequence, callback, {context0, context1}, ticks};
    return addEntry(pending_, kPendingSlots, pendingHighWater_, e) >= 0;
}

void FrameEngine::removePendingReply(std::uint16_t sequence) {
    std::lock_guard<std::mutex> g(tableLock_);
    for (int i = 0; i < pendingHighWater_; ++i)
        if (pending_[i].callback && pending_[i].sequence == sequence)
            removeEntry(pending_, pendingHighWater_, i);
}

bool FrameEngine::addCommandHandler(std::uint8_t command, FrameHandler callback) {
    if (!callback) return false;
    std::lock_guard<std::mutex> g(tableLock_);
    return addEntry(commands_, kCommandSlots, commandHighWater_, CommandEntry{command, callback}) >=
           0;
}

void FrameEngine::removeCommandHandler(std::uint8_t command) {
    std::lock_guard<std::mutex> g(tableLock_);
    for (int i = 0; i < commandHighWater_; ++i)
        if (commands_[i].callback && commands_[i].command == command)
            removeEntry(commands_, commandHighWater_, i);
}

bool FrameEngine::addGeneralHandler(FrameHandler callback) {
    if (!callback) return false;
    std::lock_guard<std::mutex> g(tableLock_);
    return addEntry(general_, kGeneralSlots, generalHighWater_, callback) >= 0;
}

void FrameEngine::removeGeneralHandler(FrameHandler callback) {
    std::lock_guard<std::mutex> g(tableLock_);
    for (int i = 0; i < generalHighWater_; ++i)
        if (general_[i] == callback) removeEntry(general_, generalHighWater_, i);
}

int FrameEngine::pendingHighWater() const {
    std::lock_guard<std::mutex> g(tableLock_);
    return pendingHighWater_;
}
int FrameEngine::commandHighWater() const {
    std::lock_guard<std::mutex> g(tableLock_);
    return commandHighWater_;
}
int FrameEngine::generalHighWater() const {
    std::lock_guard<std::mutex> g(tableLock_);
    return generalHighWater_;
}

// ---- transmit ------------------------------------------------------------------------------

bool FrameEngine::send(std::uint8_t command, const std::uint8_t* payload, std::uint16_t length,
                       FrameHandler callback, std::uint16_t ticks, std::uintptr_t context0,
                       std::uintptr_t context1) {
    LockGuard g(sendLock_);
    sentSinceKeepAlive_.store(true, std::memory_order_relaxed);
    std::uint16_t sequence = txCounter_ & 0x7FFFu;
    if (role_ != 0) sequence |= 0x8000u;
    // A frame that cannot be started does not use up a sequence number.
    if (callback && !addPendingReply(sequence, callback, ticks, context0, context1)) return false;
    ++txCounter_;
    buildAndSend(sequence, command, payload, length);
    return true;
}

void FrameEngine::sendArmed(std::uint8_t command, const std::uint8_t* payload, std::uint16_t length,
                            std::atomic<std::uint32_t>& armed) {
    LockGuard g(sendLock_);
    sentSinceKeepAlive_.store(true, std::memory_order_relaxed);
    std::uint16_t sequence = txCounter_ & 0x7FFFu;
    if (role_ != 0) sequence |= 0x8000u;
    ++txCounter_;
    armed.store(0x10000u | sequence);
    buildAndSend(sequence, command, payload, length);
}

void FrameEngine::sendReply(std::uint16_t sequence, std::uint8_t command,
                            const std::uint8_t* payload, std::uint16_t length) {
    LockGuard g(sendLock_);
    sentSinceKeepAlive_.store(true, std::memory_order_relaxed);
    buildAndSend(sequence, command, payload, length);
}

void FrameEngine::flush() {
    if (txFill_ > 0 && sink_) sink_->sendDatagram(txBuffer_, txFill_);
    txFill_ = 0;
}

inline void FrameEngine::append(std::uint8_t byte) {
    txBuffer_[txFill_++] = byte;
    if (txFill_ == kDatagramSize) flush();
}

// Every frame starts a new datagram; a full buffer goes out as one datagram of 1400 bytes and
// the payload CRC is never split across two datagrams.
void FrameEngine::buildAndSend(std::uint16_t sequence, std::uint8_t command,
                               const std::uint8_t* payload, std::uint16_t length) {
    txFill_ = 0;
    std::uint8_t header[6] = {0xAA};
    putBe16(header + 1, sequence);
    putBe16(header + 3, length);
    header[5] = command;
    std::memcpy(txBuffer_, header, sizeof header);
    putBe16(txBuffer_ + 6, crc16Arc(0, header, sizeof header));
    txFill_ = 8;
    txPayloadCrc_ = 0;

    std::size_t done = 0;
    while (done < length) {
        std::size_t chunk = kDatagramSize - txFill_;
        if (chunk > length - done) chunk = length - done;
        std::memcpy(txBuffer_ + txFill_, payload + done, chunk);
        txPayloadCrc_ = crc16Arc(txPayloadCrc_, payload + done, chunk);
        txFill_ += chunk;
        done += chunk;
        if (txFill_ == kDatagramSize) flush();
    }
    if (length != 0) {
        if (kDatagramSize - txFill_ < 2) flush();
        append(static_cast<std::uint8_t>(txPayloadCrc_ >> 8));
        append(static_cast<std::uint8_t>(txPayloadCrc_));
    }
    flush();
}

// ---- receive -------------------------------------------------------------------------------

void FrameEngine::feed(const std::uint8_t* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t b = bytes[i];
        // A frame that stalled for 10 ticks (about 500 ms) is abandoned.
        if (state_ != ParserState::Hunt &&
            idleTicks_.load(std::memory_order_relaxed) >= kIdleTickLimit)
            state_ = ParserState::Hunt;
        idleTicks_.store(0, std::memory_order_relaxed);

        switch (state_) {
            case ParserState::Hunt:
                if (b == 0xAA) {
                    rxCrc_ = crc16ArcByte(0, b);
                    overflow_ = false;
                    fieldCount_ = 0;
                    state_ = ParserState::Sequence;
                }
                break;
            case ParserState::Sequence:
                rxCrc_ = crc16ArcByte(rxCrc_, b);
                rxSequence_ = static_cast<std::uint16_t>((rxSequence_ << 8) | b);
                if (++fieldCount_ == 2) {
                    fieldCount_ = 0;
                    state_ = ParserState::Length;
                }
                break;
            case ParserState::Length:
                rxCrc_ = crc16ArcByte(rxCrc_, b);
                rxLength_ = static_cast<std::uint16_t>((rxLength_ << 8) | b);
                if (++fieldCount_ == 2) {
                    fieldCount_ = 0;
                    state_ = ParserState::Command;
                }
                break;
            case ParserState::Command:
                rxCrc_ = crc16ArcByte(rxCrc_, b);
                rxCommand_ = b;
                state_ = ParserState::HeaderCrc;
                break;
            case ParserState::HeaderCrc:
                rxReceivedCrc_ = static_cast<std::uint16_t>((rxReceivedCrc_ << 8) | b);
                if (++fieldCount_ < 2) break;
                fieldCount_ = 0;
                if (rxReceivedCrc_ != rxCrc_) {
                    state_ = ParserState::Hunt;
                } else if (rxLength_ == 0) {
                    dispatch();
                    state_ = ParserState::Hunt;
                } else {
                    rxCrc_ = 0;
                    overflow_ = rxLength_ > kMaxPayload;
                    state_ = ParserState::Payload;
                }
                break;
            case ParserState::Payload:
                if (!overflow_) {
                    rxCrc_ = crc16ArcByte(rxCrc_, b);
                    rxPayload_[fieldCount_] = b;
                }
                if (++fieldCount_ == rxLength_) {
                    fieldCount_ = 0;
                    state_ = ParserState::PayloadCrc;
                }
                break;
            case ParserState::PayloadCrc:
                rxReceivedCrc_ = static_cast<std::uint16_t>((rxReceivedCrc_ << 8) | b);
                if (++fieldCount_ < 2) break;
                fieldCount_ = 0;
                if (!overflow_ && rxReceivedCrc_ == rxCrc_) dispatch();
                state_ = ParserState::Hunt;
                break;
        }
    }
}

void FrameEngine::dispatch() {
    FrameMessage msg;
    msg.sequence = rxSequence_;
    msg.command = rxCommand_;
    msg.payload = rxLength_ ? rxPayload_ : nullptr;
    msg.length = rxLength_;

    std::unique_lock<std::mutex> g(tableLock_);
    for (int i = 0; i < pendingHighWater_; ++i) {
        PendingEntry e = pending_[i];
        if (!e.callback || e.sequence != msg.sequence) continue;
        msg.context[0] = e.context[0];
        msg.context[1] = e.context[1];
        g.unlock();
        int r = e.callback(*this, msg);
        g.lock();
        // The entry may have timed out and been reused while the callback ran.
        const bool same = pending_[i].callback == e.callback && pending_[i].sequence == e.sequence;
        if (r == 2 && same) pending_[i].countdown = 0;
        if (r == 3 && same) removeEntry(pending_, pendingHighWater_, i);
        if (r != 0) return;
    }
    msg.context[0] = msg.context[1] = 0;
    for (int i = 0; i < commandHighWater_; ++i) {
        CommandEntry e = commands_[i];
        if (!e.callback || e.command != msg.command) continue;
        g.unlock();
        int r = e.callback(*this, msg);
        g.lock();
        if (r == 3 && commands_[i].callback == e.callback)
            removeEntry(commands_, commandHighWater_, i);
        if (r != 0) return;
    }
    for (int i = 0; i < generalHighWater_; ++i) {
        FrameHandler h = general_[i];
        if (!h) continue;
        g.unlock();
        int r = h(*this, msg);
        g.lock();
        if (r == 3 && general_[i] == h) removeEntry(general_, generalHighWater_, i);
        if (r != 0) return;
    }
    g.unlock();
    if (receiver_) receiver_->onFrame(msg);
}

void FrameEngine::tick() {
    // Saturating increment; the receive thread resets the counter concurrently.
    std::uint16_t idle = idleTicks_.load(std::memory_order_relaxed);
    while (idle < kIdleTickLimit &&
           !idleTicks_.compare_exchange_weak(idle, static_cast<std::uint16_t>(idle + 1),
                                             std::memory_order_relaxed)) {
    }

    std::unique_lock<std::mutex> g(tableLock_);
    for (int i = 0; i < pendingHighWater_; ++i) {
        PendingEntry& e = pending_[i];
        if (!e.callback || e.countdown == 0) continue;
        if (--e.countdown != 0) continue;
        // Time-out: the callback sees the frame's sequence and no payload.
        FrameHandler cb = e.callback;
        FrameMessage msg;
        msg.sequence = e.sequence;
        msg.context[0] = e.context[0];
        msg.context[1] = e.context[1];
        removeEntry(pending_, pendingHighWater_, i);
        g.unlock();
        cb(*this, msg);
        g.lock();
    }
}

}  // namespace kelo
