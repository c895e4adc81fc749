// Pieces the FIBEX and the AUTOSAR exports share: the status guard at the export boundary, the
// slot field of a received header and the device half of the receive-by-name exports.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "KeLoComm.h"
#include "dbapi/database_handles.h"
#include "dbapi/signal_codec.h"
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

// Whether a signal name ends in "_UB": the encoders write such a name as an update bit.
inline bool endsWithUpdateBitSuffix(const char* name) {
    const std::size_t n = std::strlen(name);
    return n >= 3 && std::strcmp(name + n - 3, "_UB") == 0;
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

// The steps both formats' exports share. `usable` is the format's "loaded database or null"
// function; both database types answer frameNameAt(slot, cycle).

// Puts a freshly read database into its handle (none when it did not load), deleting the one it
// replaces; a successful load empties the frame maps. 0, or 7 when it did not load.
template <typename Db>
unsigned char installDatabase(Db*& handle, std::unique_ptr<Db> fresh, bool loaded) {
    {
        std::unique_lock<std::shared_mutex> lock(DatabaseLock);
        delete handle;
        handle = loaded ? fresh.release() : nullptr;
    }
    if (!loaded) return kNotLoaded;
    resetFrameMaps();
    return kOk;
}

// Deletes the database of a handle. 0, or 9 when none is there. The frame maps stay.
template <typename Db>
unsigned char closeDatabase(Db*& handle) {
    std::unique_lock<std::shared_mutex> lock(DatabaseLock);
    if (handle == nullptr) return kNoDatabase;
    delete handle;
    handle = nullptr;
    return kOk;
}

// The frame name at a received header's slot and cycle ("" when none). 0, 5 or 9.
template <typename Usable>
unsigned char frameNameOfHeader(const unsigned char* header, char* nameOut, Usable usable) {
    if (header == nullptr || nameOut == nullptr) return kBadArgument;
    std::shared_lock<std::shared_mutex> lock(DatabaseLock);
    const auto* db = usable();
    if (db == nullptr) return kNoDatabase;
    copyName(db->frameNameAt(headerSlot(header), header[19]), nameOut);
    return kOk;
}

// The buffer size the name outputs need: the longest key of the maps plus the terminator.
template <typename... Maps>
unsigned int nameBufferSize(const Maps&... maps) {
    std::size_t longest = 0;
    auto scan = [&longest](const auto& map) {
        for (const auto& entry : map)
            longest = std::max(longest, entry.first.size());
    };
    (scan(maps), ...);
    return static_cast<unsigned int>(longest + 1);
}

// Receive by name: the device half, then the frame's name from the database (9 without one,
// the header and payload copies already made).
template <typename Usable>
unsigned char receiveByName(signed char idx, unsigned char* headerOut, unsigned char* payloadOut,
                            char* frameNameOut, unsigned int timeoutMs, Usable usable) {
    unsigned char record[kReceiveRecordSize] = {};
    const unsigned char status = receiveForName(idx, record, headerOut, payloadOut, timeoutMs);
    if (status != 0) return status;
    std::shared_lock<std::shared_mutex> lock(DatabaseLock);
    const auto* db = usable();
    if (db == nullptr) return kNoDatabase;
    if (frameNameOut) copyName(db->frameNameAt(headerSlot(record), record[19]), frameNameOut);
    return kOk;
}

using SlotQuery = unsigned char (*)(const char*, unsigned char, unsigned char, unsigned char*);

// Slot configuration by name: the format's slot query, the device export, and on success the
// buffer index the device wrote back remembered under the frame's name.
inline unsigned char setSlotByName(unsigned char idx, unsigned char node, const char* frameName,
                                   unsigned char p3, unsigned char p4, SlotQuery query,
                                   std::map<std::string, std::uint8_t>& map) {
    unsigned char block[12] = {};
    const unsigned char found = query(frameName, p3, p4, block);
    if (found != 0) return found;
    const unsigned char set =
        KFr_Set_Slot_Parameter_Wrapper(static_cast<signed char>(idx), node, block);
    if (set != 0) return set;
    storeBufferIndex(map, frameName, block[0]);
    return kOk;
}

// Transmit by name: the remembered buffer (0, and entered, for a name never configured) and the
// byte length halved to 16-bit words.
inline unsigned char transmitByName(std::map<std::string, std::uint8_t>& map, unsigned char idx,
                                    unsigned char node, const char* frameName, unsigned char* data,
                                    unsigned char length) {
    if (frameName == nullptr) return kBadArgument;
    const std::uint8_t buffer = bufferIndexFor(map, frameName);
    return KFr_Transmit_Wrapper(static_cast<signed char>(idx), node, buffer, data,
                                static_cast<unsigned char>(length >> 1));
}

}  // namespace dbapi
}  // namespace kelo
