// kelo-gen-autosar: writes a synthetic AUTOSAR 4.2 FlexRay system description of a chosen size.
//
//   kelo-gen-autosar [--frames N] [--signals-per-frame M] [--ecus N] [--size-mb X] [--seed S]
//                    [--out FILE]
//
// Without --out the document goes to standard output. A summary goes to standard error.
#include <cstdio>

#include "autosar_generator.h"
#include "generator_cli.h"

int main(int argc, char** argv) {
    kelo::gen::CommandLine line;
    line.tool = "kelo-gen-autosar";
    line.extraUsage = "  --ecus N               number of ECUs, at least 2 (default 8)\n";
    kelo::gen::AutosarOptions options;
    const int exitCode = kelo::gen::parseCommandLine(
        argc, argv, line, [&](const std::string& option, const char* value) {
            unsigned long long n = 0;
            if (option != "--ecus" || !kelo::gen::parseUnsigned(value, 10000, n) || n < 2)
                return false;
            options.ecus = static_cast<std::uint32_t>(n);
            return true;
        });
    if (exitCode >= 0) return exitCode;

    if (line.sizeMb > 0.0) {
        const std::uint32_t ecus = options.ecus;
        options = kelo::gen::autosarOptionsForSize(line.sizeMb, line.signalsPerFrame, line.seed);
        options.ecus = ecus;
    } else {
        options.frames = line.frames;
        options.signalsPerFrame = line.signalsPerFrame;
        options.seed = line.seed;
    }

    kelo::gen::AutosarStats stats;
    return kelo::gen::emitDocument(
        line,
        [&](const kelo::gen::Sink& sink) {
            return kelo::gen::generateAutosar(options, sink, &stats);
        },
        [&](double seconds) {
            std::fprintf(stderr,
                         "kelo-gen-autosar: %s: %.1f MiB in %.2f s (seed %llu)\n"
                         "  %u frames, %u PDUs, %u signals (%u with update bits), "
                         "%u compu-methods, %u units\n"
                         "  %u frame triggerings, %u ECUs, %u ports\n",
                         line.out.empty() ? "stdout" : line.out.c_str(),
                         static_cast<double>(stats.bytes) / (1024.0 * 1024.0), seconds,
                         static_cast<unsigned long long>(options.seed), stats.frames, stats.pdus,
                         stats.signals, stats.updateBitSignals, stats.compuMethods, stats.units,
                         stats.frameTriggerings, stats.ecus, stats.ports);
        });
}
