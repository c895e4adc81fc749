// The result numbers of the database exports (KFr_Fibex_*, KFr_AutoSar_*), one name per meaning.
// Where one number carries several meanings, each meaning has its own name with the same value,
// so the code says which case it answers; databaseStatusText has one sentence per number.
#pragma once

#include <cstdint>

namespace kelo {
namespace dbapi {

// Success.
inline constexpr std::uint8_t kOk = 0;

// Passed through from the device export a by-name export calls: the device refused the command.
inline constexpr std::uint8_t kDeviceRefused = 1;
// Passed through: no reply within the command's wait, or no frame within a receive time-out.
inline constexpr std::uint8_t kDeviceNoReply = 2;
// Something was thrown inside an export (e.g. out of memory); the export guard answers with it.
// The same number passes through from a device export whose command frame could not be sent.
inline constexpr std::uint8_t kInternalFailure = 3;
// Passed through from the receive-by-name device half: the link is not open (or closed while
// waiting).
inline constexpr std::uint8_t kLinkNotOpen = 4;

// A required pointer argument is null (every database export checks these first).
inline constexpr std::uint8_t kBadArgument = 5;
// Unknown cluster or ECU name (the parameter queries).
inline constexpr std::uint8_t kUnknownClusterOrEcu = 5;
// KFr_Fibex_GetPDUinfo: the index is not below the frame's PDU count (an unknown frame ID has
// none).
inline constexpr std::uint8_t kPduIndexOutOfRange = 5;

// Bad device index: the receive-by-name exports' own check (only index 0 passes, and only while
// entry 0 holds a device); the other by-name exports pass the device exports' 6 through.
inline constexpr std::uint8_t kBadDeviceIndex = 6;

// The file exists but is not loadable; no database of that format is loaded afterwards.
inline constexpr std::uint8_t kNotLoaded = 7;

// No database of the export's format is loaded.
inline constexpr std::uint8_t kNoDatabase = 9;
// The opens: the path is not an existing regular file (the loaded database stays).
inline constexpr std::uint8_t kNotAFile = 9;
// The parameter queries: the ECU has no controller.
inline constexpr std::uint8_t kNoController = 9;

// Signal name unknown (encode, signal-to-frame query).
inline constexpr std::uint8_t kSignalUnknown = 14;
// The signal does not fit the payload length given to the encoder.
inline constexpr std::uint8_t kDoesNotFit = 15;
// Signal not in the received frame (decode); signal carried by no frame (encode, signal-to-frame
// query).
inline constexpr std::uint8_t kNotInFrame = 16;
// Decode: a LINEAR/IDENTICAL compu method without a factor/offset pair.
inline constexpr std::uint8_t kNoScalePair = 16;
// No frame at the header's slot and cycle, or unknown frame name.
inline constexpr std::uint8_t kFrameUnknown = 17;
// Passed through from the device's FlexRay transmit: the bus is not active; nothing was sent.
inline constexpr std::uint8_t kBusInactive = 18;
// The AUTOSAR list queries: the buffer is too small (the names that fitted stay).
inline constexpr std::uint8_t kListTooSmall = 21;
// The AUTOSAR keyed list queries: unknown cluster, ECU or frame name.
inline constexpr std::uint8_t kKeyUnknown = 22;

// A short English sentence for a database export's result; "unknown database status N" for a
// number no database export returns. The text is built once and never changed or freed; safe
// from any thread.
const char* databaseStatusText(unsigned char status);

}  // namespace dbapi
}  // namespace kelo
