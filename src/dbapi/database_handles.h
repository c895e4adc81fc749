// The process-wide state of the database-driven interface: the loaded FIBEX and AUTOSAR
// databases, the frame maps the queries and the by-name transmit exports keep, and the macrotick
// divisor the parameter queries share.
//
// Locks: DatabaseLock guards both database handles and the databases behind them (queries take
// it shared, opens, closes and the one query that may insert take it exclusively). FrameMapsLock
// guards the three frame maps. When both are needed DatabaseLock is taken first.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "fibex/bus_database.h"

namespace kelo {
namespace autosar {
class tAutoSarDatabase;
}

namespace dbapi {

extern std::shared_mutex DatabaseLock;
// The loaded FIBEX database, null when none is loaded.
extern fibex::BusDatabase* FibexDb;
// The loaded AUTOSAR database, null when none is loaded (its exports come with its reader).
extern autosar::tAutoSarDatabase* AutosarDb;

extern std::mutex FrameMapsLock;
// Frame names a signal-to-frame query has named (value 1); emptied by every successful open.
extern std::map<std::string, std::uint8_t> RegisteredFrames;
// Frame name -> transmit buffer index the device assigned, for the FIBEX exports; emptied by
// every successful open of either format.
extern std::map<std::string, std::uint8_t> FrameBufferIndexMap;
// The same for the AUTOSAR exports; no open or close empties it.
extern std::map<std::string, std::uint8_t> AutosarFrameBufferIndexMap;

// gMacroPerCycle of the cluster read by the last KFr_Fibex_GetParameter or
// KFr_AutoSar_GetParameter; 0 until one ran (the node block then uses 40 microticks per
// macrotick).
extern std::atomic<std::uint16_t> MacroPerCycleDivisor;

// A FIBEX database that is loaded; null otherwise. Call with DatabaseLock held.
inline fibex::BusDatabase* usableFibex() {
    return FibexDb != nullptr && FibexDb->loaded ? FibexDb : nullptr;
}

// Empties RegisteredFrames and FrameBufferIndexMap (what a successful open of either format
// does). Takes FrameMapsLock.
void resetFrameMaps();

// Looks a frame up in a buffer-index map, inserting 0 when it is absent. Takes FrameMapsLock.
std::uint8_t bufferIndexFor(std::map<std::string, std::uint8_t>& map, const std::string& frame);
void storeBufferIndex(std::map<std::string, std::uint8_t>& map, const std::string& frame,
                      std::uint8_t index);

// Enters a frame name into RegisteredFrames; true the first time. Takes FrameMapsLock.
bool registerFrame(const std::string& frame);

// Copies a name NUL-terminated into a caller's buffer (unbounded: the caller provides room for
// the longest name, see KFr_Fibex_GetMaxNameLength).
void copyName(const std::string& name, char* out);

// Makes "UTF-8" the text codec for the local 8-bit encoding and tells whether the path, read in
// that encoding, names an existing regular file.
bool isExistingFile(const char* path);

}  // namespace dbapi
}  // namespace kelo
