// Pieces the FIBEX and the AUTOSAR exports share: the status guard at the export boundary, the
// slot field of a received header and the device half of the receive-by-name exports.
#pragma once

#include <cstdint>
#include <cstring>

#include "KeLoComm.h"
#include "exports/device_table.h"

namespace kelo {
namespace dbapi {

inline constexpr std::uint8_t kBadArgument = 5;
inline constexpr std::uint8_t kNotLoaded = 7;
inline constexpr std::uint8_t kListTooSmall = 21;
inline constexpr std::uint8_t kKeyUnknown = 22;

// Runs an export's body; anything thrown inside becomes status 3.
template <typename Body>
unsigned char guardedStatus(Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return 3;
    }
}

// The slot identifier of a received frame's 28-byte header (little-endian at offset 16).
inline std::uint16_t headerSlot(const unsigned char* header) {
    return static_cast<std::uint16_t>(header[16] | (header[17] << 8));
}

// The receive-by-name exports' own upper index bound: nothing changes it, so only index 0
// passes their check (and only while entry 0 holds a device).
inline constexpr signed char kReceiveByNameIndexBound = 0;

// The device half of a receive-by-name export: the index check, one received frame, and the
// copies of its header and payload. Returns the status to answer with when it is not 0; on 0,
// `record` holds the frame (header at 0, payload at 26).
inline unsigned char receiveForName(signed char idx, unsigned char* record,
                                    unsigned char* headerOut, unsigned char* payloadOut,
                                    unsigned int timeoutMs) {
    if (idx < 0 || idx > kReceiveByNameIndexBound) return 6;
    CommunicationLib* lib = DeviceSlotTable[idx].lib.load(std::memory_order_acquire);
    if (lib == nullptr) return 6;
    const unsigned char status = lib->Fr_Receive(record, timeoutMs);
    if (status != 0) return status;
    if (headerOut) std::memcpy(headerOut, record, 28);
    if (payloadOut) std::memcpy(payloadOut, record + 26, 2u * record[20]);
    return 0;
}

// Size of the record receiveForName fills: 26 header bytes and up to 255 16-bit words.
inline constexpr std::size_t kReceiveRecordSize = 26 + 2 * 255;

}  // namespace dbapi
}  // namespace kelo
