// The command line both generator tools share: --frames, --signals-per-frame, --size-mb,
// --seed, --out, --quiet and --help, plus options of the tool's own; and writing the document
// to a file or to standard output with a summary on standard error.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "generator_support.h"

namespace kelo {
namespace gen {

struct CommandLine {
    const char* tool = "";        // program name in messages
    const char* extraUsage = "";  // usage lines of the tool's own options
    std::uint32_t frames = 2000;  // default and result
    std::uint32_t signalsPerFrame = 10;
    std::uint64_t seed = 1;
    double sizeMb = 0.0;  // > 0: fit the frame count to this size (overrides --frames)
    std::string out;      // empty: standard output
    bool quiet = false;
};

// Takes an option of the tool's own with its value; false when it is not one or the value is bad.
using ExtraOption = std::function<bool(const std::string& option, const char* value)>;

// Reads an unsigned decimal no larger than `max`.
bool parseUnsigned(const char* text, unsigned long long max, unsigned long long& value);

// Parses argv into `line`. Returns -1 to go on, or the exit code: 0 after --help, 2 after a bad
// or incomplete option (with the usage on standard error).
int parseCommandLine(int argc, char** argv, CommandLine& line, const ExtraOption& extra = {});

// Writes the document to line.out (or standard output), timing it. On failure prints the
// reason and returns 1; otherwise calls `summary` with the seconds taken (unless quiet) and
// returns 0.
int emitDocument(const CommandLine& line, const DocumentWriter& write,
                 const std::function<void(double seconds)>& summary);

}  // namespace gen
}  // namespace kelo
