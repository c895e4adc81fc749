// The emulator's side of the wire: host requests as bounds-checked views, frames waiting to
// leave, and the packing of upload entries (codes 115, 146 and 212) in the device's layouts.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "device/byte_order.h"
#include "device/frame_engine.h"
#include "device/protocol_table.h"
#include "emulator.h"

namespace kelo {
namespace emu {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

// The longest upload payload the emulator packs (the frame engine's largest payload).
inline constexpr std::size_t kMaxUploadPayload = FrameEngine::kMaxPayload;

// Bounds-checked view of a host payload: bytes past the end read as 0.
struct Request {
    const std::uint8_t* data;
    std::size_t size;
    std::uint8_t operator[](std::size_t i) const { return i < size ? data[i] : 0; }
    std::uint16_t le16(std::size_t i) const {
        return static_cast<std::uint16_t>((*this)[i] | ((*this)[i + 1] << 8));
    }
    std::uint32_t le32(std::size_t i) const {
        return static_cast<std::uint32_t>(le16(i)) |
               (static_cast<std::uint32_t>(le16(i + 2)) << 16);
    }
};

struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;
};

// Drop and CRC faults for one frame, when they were decided before it was built.
struct FrameFaults {
    bool decided = false;
    bool drop = false;
    bool corruptHeader = false;
    bool corruptPayload = false;
};

// A frame waiting to leave: a reply (reusing the host's sequence) or an upload.
struct Outgoing {
    std::uint8_t code = 0;
    bool reply = false;
    std::uint16_t sequence = 0;
    Bytes payload;
    Endpoint to;
    FrameFaults faults;
};

std::size_t flexRayEntrySize(const FlexRayEntry& e);
void appendFlexRayEntry(Bytes& out, const FlexRayEntry& e);
std::size_t canEntrySize(const CanEntry& e);
void appendCanEntry(Bytes& out, const CanEntry& e, std::uint8_t channel);
// The 24-byte header of a multi-entry frame (145, 146, 212) with its entry count at 16-19.
Bytes multiHeader(std::uint32_t count);
// A status upload with one bus-state entry (type 4) stamped `micros`.
Bytes busStateUpload(std::uint16_t state, std::uint8_t controller, std::uint64_t micros);

// Packs entries into as few upload payloads as fit kMaxUploadPayload (at most 255 FlexRay entries
// each) and hands each to `send`. No entries: one empty upload.
template <typename Send>
void packFlexRay(const std::vector<FlexRayEntry>& entries, Send&& send) {
    Bytes payload{0, 0};
    for (const FlexRayEntry& e : entries) {
        if (payload[1] == 255 || payload.size() + flexRayEntrySize(e) > kMaxUploadPayload) {
            send(payload);
            payload.assign(2, 0);
        }
        appendFlexRayEntry(payload, e);
        ++payload[1];
    }
    if (payload[1] != 0 || entries.empty()) send(payload);
}

// The same for CAN entries; `channelOf(i)` gives the channel of entry i.
template <typename ChannelOf, typename Send>
void packCan(const std::vector<CanEntry>& entries, ChannelOf&& channelOf, Send&& send) {
    Bytes payload = multiHeader(0);
    std::uint32_t count = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (count != 0 && payload.size() + canEntrySize(entries[i]) > kMaxUploadPayload) {
            putLe32(payload.data() + 16, count);
            send(payload);
            payload = multiHeader(0);
            count = 0;
        }
        appendCanEntry(payload, entries[i], channelOf(i));
        ++count;
    }
    if (count != 0 || entries.empty()) {
        putLe32(payload.data() + 16, count);
        send(payload);
    }
}

}  // namespace emu
}  // namespace kelo
