// The result numbers of the device operations and of the device exports, by name.
//
// Every device operation and every device export with an index returns one of these as an
// unsigned byte. The two open exports return the device index on success and the negated
// result on failure: -3 is kDeviceNotSent, -5 kDeviceBadArgument, -2 kDeviceNoReply, and so on
// (as a signed byte; -kDeviceNoFreeEntry is the one result only an open produces).
#pragma once

namespace kelo {

// The general results: 0-3 come from every operation that sends a command.
// The device accepted.
inline constexpr unsigned char kDeviceOk = 0;
// The device answered with a non-zero status.
inline constexpr unsigned char kDeviceRefused = 1;
// No reply (or, for a receive, no record) within the wait.
inline constexpr unsigned char kDeviceNoReply = 2;
// The frame could not be sent; also what an export returns when something threw.
inline constexpr unsigned char kDeviceNotSent = 3;
// The link is not open, or it was closed while the call waited.
inline constexpr unsigned char kDeviceLinkClosed = 4;
// A null or out-of-range argument, an unknown selector or an unknown open flag.
inline constexpr unsigned char kDeviceBadArgument = 5;
// The device index is not 1..126, or its table entry holds no device.
inline constexpr unsigned char kDeviceBadIndex = 6;

// CAN_Configure: the step of its four commands that failed.
inline constexpr unsigned char kDeviceCanModeFailed = 10;    // controller mode
inline constexpr unsigned char kDeviceCanBusFailed = 11;     // bus timing parameters
inline constexpr unsigned char kDeviceCanFilterFailed = 12;  // acceptance filters
inline constexpr unsigned char kDeviceCanOptionFailed = 13;  // option byte

// Fr_Transmit_MultiFrame: the staged frames make a payload of 1300 bytes or more; nothing is sent.
inline constexpr unsigned char kDeviceBatchTooLong = 15;
// Fr_Transmit (and Fr_Transmit_MultiFrame without waiting): a status upload reported the bus
// inactive; nothing is sent until a later upload reports it active again.
inline constexpr unsigned char kDeviceBusInactive = 18;
// Fr_Transmit_MultiFrame: a staging entry below the count is not filled; nothing is sent.
inline constexpr unsigned char kDeviceStageEmpty = 19;

// The opens only, negated (-20): no free entry in the device table. The search for an entry
// stops at the last one, so this result never occurs; it is kept as a documented value.
inline constexpr unsigned char kDeviceNoFreeEntry = 20;

// What an open export returns for a failed open: the result negated, as a signed byte.
constexpr signed char openFailure(unsigned char status) {
    return static_cast<signed char>(-static_cast<int>(status));
}

// A short English sentence for a result; "unknown device status N" for a number not listed
// above. The text lives as long as the process; safe to call from any thread.
const char* deviceStatusText(unsigned char status);

}  // namespace kelo
