// Synthetic FIBEX 3.1 databases of any size, for load benchmarks and soak runs of the reader.
//
// The document is written in one pass through a small buffer (no DOM): units, codings (LINEAR,
// IDENTICAL, TEXTTABLE), signals, PDUs with signal instances (some with update bits), frames with
// PDU instances, channels A and B with PDU and frame triggerings (absolutely scheduled: slot,
// base cycle, repetition), ECUs with FlexRay controllers, connectors and ports, and one FlexRay
// cluster. The same options and seed always give the same bytes.
#pragma once

#include <cstdint>
#include <string>

#include "generator_support.h"

namespace kelo {
namespace gen {

struct FibexOptions {
    std::uint32_t frames = 2000;
    // Average; each frame carries between half and one and a half times this many signals
    // (fewer when its 254-byte payload is full).
    std::uint32_t signalsPerFrame = 10;
    std::uint64_t seed = 1;
};

// What one document holds.
struct FibexStats {
    std::uint64_t bytes = 0;
    std::uint32_t units = 0;
    std::uint32_t codings = 0;
    std::uint32_t signals = 0;
    std::uint32_t updateBitSignals = 0;  // signal instances with an update bit
    std::uint32_t pdus = 0;
    std::uint32_t frames = 0;
    std::uint32_t pduTriggerings = 0;
    std::uint32_t frameTriggerings = 0;
    std::uint32_t ecus = 0;
    std::uint32_t ports = 0;
    std::uint32_t scheduleWraps = 0;  // times the 2047 x 64 slot/cycle grid was full and reused
};

// Writes one document to the sink. False when the sink refused a chunk.
bool generateFibex(const FibexOptions& options, const Sink& sink, FibexStats* stats = nullptr);

// Writes one document to a file; on failure `error` (when given) says why.
bool writeFibexFile(const FibexOptions& options, const std::string& path,
                    FibexStats* stats = nullptr, std::string* error = nullptr);

// Options whose document is about `megabytes` MiB: the frame count is fitted to the size of two
// small calibration documents (written to a counter, not to disk); within a few percent.
FibexOptions optionsForSize(double megabytes, std::uint32_t signalsPerFrame, std::uint64_t seed);

}  // namespace gen
}  // namespace kelo
