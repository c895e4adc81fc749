#include "device/receive_queues.h"

#include <algorithm>
#include <cstring>

#include "device/byte_order.h"

namespace kelo {

bool ReceiveQueues::takeFlexRay(const std::uint8_t* p, std::size_t n) {
    if (n < 2) return false;
    const unsigned entries = p[1];
    std::size_t at = 2;
    unsigned taken = 0;
    LockGuard g(frQueueLock_);
    for (; taken < entries; ++taken) {
        if (at + kFrUploadEntryHead > n) break;
        const std::uint8_t* e = p + at;
        const std::size_t bytes = 2u * e[21];
        if (at + kFrUploadEntryHead + bytes > n) break;  // truncated entry
        at += kFrUploadEntryHead + bytes;
        if (frQueue_.size() >= kFrQueueCap) continue;  // dropped, still signalled
        auto& r = frQueue_.emplaceBack();
        std::memcpy(r.data(), e, 12);
        r[12] = e[13];
        std::memcpy(r.data() + 13, e + 14, 3);
        r[16] = e[18];
        r[17] = e[19];
        r[18] = 0;
        r[19] = e[20];
        r[20] = e[21];
        r[21] = 0;
        std::memcpy(r.data() + 22, e + 22, 4);
        // A record holds 254 payload bytes; a longer entry is cut, its length kept.
        const std::size_t kept = std::min(bytes, kFrRecordMaxPayload);
        std::memcpy(r.data() + kFrRecordPayloadOffset, e + kFrUploadEntryHead, kept);
        std::memset(r.data() + kFrRecordPayloadOffset + kept, 0, kFrRecordMaxPayload - kept);
    }
    frCount_.store(frQueue_.size());
    return taken != 0;
}

bool ReceiveQueues::takeCan(const std::uint8_t* p, std::size_t n, bool bounded) {
    if (n < kMultiHeaderSize) return false;
    const std::uint32_t entries = le32(p + 16);
    std::size_t at = kMultiHeaderSize;
    std::uint32_t taken = 0;
    LockGuard g(canQueueLock_);
    for (; taken < entries; ++taken) {
        if (at + kCanUploadEntryHead > n) break;
        const std::uint8_t* e = p + at;
        const std::size_t length = e[32];
        if (at + kCanUploadEntryHead + length > n) break;
        at += (kCanUploadEntryHead + length + 3) & ~std::size_t{3};
        if (bounded && canQueue_.size() >= kCanQueueCap) continue;  // dropped, still signalled
        const std::uint64_t stamp = le64(e + 8);
        const std::uint32_t flags = le32(e + 24);
        auto& r = canQueue_.emplaceBack();
        r.fill(0);
        std::memcpy(r.data() + 4, e + 4, 4);
        putLe32(r.data() + 8, static_cast<std::uint32_t>(stamp / 1000000u));
        putLe32(r.data() + 12, static_cast<std::uint32_t>(stamp % 1000000u));
        std::memcpy(r.data() + 16, e + 28, 4);
        r[20] = static_cast<std::uint8_t>(flags >> 30);
        r[21] = static_cast<std::uint8_t>((flags >> 21) & 1u);
        r[22] = static_cast<std::uint8_t>((flags >> 20) & 1u);
        r[23] = static_cast<std::uint8_t>(length);
        std::memcpy(r.data() + kCanRecordDataOffset, e + kCanUploadEntryHead,
                    std::min(length, kCanMaxData));
    }
    canCount_.store(canQueue_.size());
    return taken != 0;
}

bool ReceiveQueues::popFlexRay(std::uint8_t* record) {
    {
        LockGuard g(frQueueLock_);
        if (!frQueue_.popFront(record)) return false;  // emptied by a concurrent clear
        frCount_.store(frQueue_.size());
    }
    // Channel flags from the status word: bit 1 = its bit 15, bit 0 = its bit 7.
    const std::uint16_t statusWord = le16(record + 24);
    record[18] =
        static_cast<std::uint8_t>(((statusWord >> 15) & 1u) << 1 | ((statusWord >> 7) & 1u));
    return true;
}

bool ReceiveQueues::popCan(std::uint8_t* record) {
    LockGuard g(canQueueLock_);
    if (!canQueue_.popFront(record)) return false;
    canCount_.store(canQueue_.size());
    return true;
}

void ReceiveQueues::clearFlexRay() {
    LockGuard g(frQueueLock_);
    frQueue_.clear();
    frCount_.store(0);
}

void ReceiveQueues::clearCan() {
    LockGuard g(canQueueLock_);
    canQueue_.clear();
    canCount_.store(0);
}

void ReceiveQueues::reserveFlexRay() {
    if (frQueueReserved_) return;
    LockGuard g(frQueueLock_);
    frQueue_.reserve(kFrQueueCap);
    frQueueReserved_ = true;
}

void takeBusStates(const std::uint8_t* p, std::size_t n, std::atomic<std::uint8_t>& busActive) {
    if (n < kMultiHeaderSize) return;
    const std::uint32_t entries = le32(p + 16);
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::size_t at = kMultiHeaderSize + std::size_t{i} * kStatusEntrySize;
        if (at + kStatusEntrySize > n) break;
        const std::uint8_t* e = p + at;
        if (le16(e + 8) != 4) continue;
        const std::uint16_t state = le16(e + 24);
        if (state == 1) busActive.store(1);
        if (state == 2) busActive.store(0);
    }
}

}  // namespace kelo
