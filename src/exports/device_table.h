// The process-wide table of open devices behind the flat exports, and the index check they
// share.
#pragma once

#include <atomic>
#include <cstdint>

#include "CommunicationLib.h"
#include "device/device_status.h"
#include "platform/platform.h"

namespace kelo {

struct DeviceSlot {
    std::atomic<std::uint8_t> inUse{0};  // 1 after a successful open; read by the opens only
    std::atomic<CommunicationLib*> lib{nullptr};  // decides whether an index is valid
};

inline constexpr int kDeviceSlots = 127;  // indices 0..126; 1..126 are handed out

extern DeviceSlot DeviceSlotTable[kDeviceSlots];
// Held only by the two open exports, for the whole search-create-open sequence.
extern Lock DeviceTableLock;

// The device at a valid index (1..126 with an instance), else null.
inline CommunicationLib* deviceAt(signed char idx) {
    if (idx <= 0 || idx >= kDeviceSlots) return nullptr;
    return DeviceSlotTable[idx].lib.load(std::memory_order_acquire);
}

// Puts an instance into an entry, replacing what stood there. A replaced instance (left by a
// failed open, or entry 0's when every entry is in use) is deleted: nothing can reach it any
// more.
void storeDevice(int idx, CommunicationLib* lib);

// Runs `body` and turns anything thrown into `fallback`: nothing crosses the exported boundary.
template <typename Result, typename Body>
Result guarded(Result fallback, Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return fallback;
    }
}

// The shared shape of a device export: index check (kDeviceBadIndex), then one call on the device.
template <typename Call>
unsigned char forward(signed char idx, Call&& call) noexcept {
    return guarded<unsigned char>(kDeviceNotSent, [&]() -> unsigned char {
        CommunicationLib* lib = deviceAt(idx);
        return lib ? static_cast<unsigned char>(call(*lib)) : kDeviceBadIndex;
    });
}

}  // namespace kelo
