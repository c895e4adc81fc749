// Synthetic AUTOSAR 4.2 FlexRay system descriptions of any size, for load benchmarks and soak
// runs of the AUTOSAR reader.
//
// The document is written in one pass through a small buffer (no DOM). One top package holds
// eleven sub-packages: base types, units, compu-methods (LINEAR and TEXTTABLE), a composition
// with R-ports, system signals, I-signals, PDUs (I-signal I-PDUs with update bits and some
// event-controlled timing, one NM-PDU per ECU), FlexRay frames, ECU instances with FlexRay
// controllers, connectors and frame ports, one FlexRay cluster with channels A and B and their
// frame and PDU triggerings, and the system with its signal mappings. The same options and seed
// always give the same bytes.
#pragma once

#include <cstdint>
#include <string>

#include "generator_support.h"

namespace kelo {
namespace gen {

struct AutosarOptions {
    std::uint32_t frames = 2000;
    // Average; each frame carries between half and one and a half times this many signals
    // (fewer when its 254-byte payload is full).
    std::uint32_t signalsPerFrame = 10;
    std::uint32_t ecus = 8;
    std::uint64_t seed = 1;
};

// What one document holds.
struct AutosarStats {
    std::uint64_t bytes = 0;
    std::uint32_t units = 0;
    std::uint32_t compuMethods = 0;
    std::uint32_t signals = 0;
    std::uint32_t updateBitSignals = 0;
    std::uint32_t pdus = 0;
    std::uint32_t frames = 0;
    std::uint32_t frameTriggerings = 0;
    std::uint32_t ecus = 0;
    std::uint32_t ports = 0;
};

// Writes one document to the sink. False when the sink refused a chunk.
bool generateAutosar(const AutosarOptions& options, const Sink& sink,
                     AutosarStats* stats = nullptr);

// Writes one document to a file; on failure `error` (when given) says why.
bool writeAutosarFile(const AutosarOptions& options, const std::string& path,
                      AutosarStats* stats = nullptr, std::string* error = nullptr);

// Options whose document is about `megabytes` MiB (the frame count fitted to two small
// calibration documents written to a counter); within a few percent.
AutosarOptions autosarOptionsForSize(double megabytes, std::uint32_t signalsPerFrame,
                                     std::uint64_t seed);

}  // namespace gen
}  // namespace kelo
