// Result codes of the database readers and the XML layer under them. The numbers are part of the
// readers' interface (the database exports pass them on) and never change.
#pragma once

namespace kelo {
namespace xml {

enum ReaderStatus : int {
    // Success.
    kOk = 0,
    // The file cannot be opened (missing, not a regular file, unreadable), or a step found a
    // required item missing (a unit, coding or AUTOSAR package item without SHORT-NAME, a FIBEX
    // file without CHANNELS).
    kMissing = 2,
    // The file is not well-formed XML or is beyond the limits below; also a FIBEX ECU without
    // SHORT-NAME.
    kMalformed = 3,
    // A path given to the element finder or lister is empty.
    kEmptyPath = 4,
    // A path leads to no element (for a list: an element before the last name is missing).
    kNotFound = 5,
    // The FIBEX version or AUTOSAR release is not supported; the database exports also use it
    // for a database that is not loaded.
    kUnsupported = 7,
};

// File limits, refused with kMalformed before they can exhaust memory or a walk's stack: a
// larger file, or one whose elements nest deeper. Real FIBEX and AUTOSAR files stay far below
// both (tens of megabytes, a few dozen levels).
inline constexpr long long kMaxFileBytes = 512ll * 1024 * 1024;
inline constexpr unsigned kMaxElementDepth = 1000;

// Runs one step of a load. A failing step runs once more on the same document, and the second
// run's code is the step's result (a kept behaviour of both readers: the second run adds to what
// the first one stored).
template <typename Step>
int runStep(Step&& step) {
    const int code = step();
    return code == kOk ? code : step();
}

}  // namespace xml
}  // namespace kelo
