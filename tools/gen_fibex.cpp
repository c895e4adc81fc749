// kelo-gen-fibex: writes a synthetic FIBEX 3.1 FlexRay database of a chosen size.
//
//   kelo-gen-fibex [--frames N] [--signals-per-frame M] [--size-mb X] [--seed S] [--out FILE]
//
// Without --out the document goes to standard output. A summary goes to standard error.
#include <cstdio>

#include "fibex_generator.h"
#include "generator_cli.h"

int main(int argc, char** argv) {
    kelo::gen::CommandLine line;
    line.tool = "kelo-gen-fibex";
    const int exitCode = kelo::gen::parseCommandLine(argc, argv, line);
    if (exitCode >= 0) return exitCode;

    kelo::gen::FibexOptions options;
    options.frames = line.frames;
    options.signalsPerFrame = line.signalsPerFrame;
    options.seed = line.seed;
    if (line.sizeMb > 0.0)
        options = kelo::gen::optionsForSize(line.sizeMb, line.signalsPerFrame, line.seed);

    kelo::gen::FibexStats stats;
    return kelo::gen::emitDocument(
        line,
        [&](const kelo::gen::Sink& sink) {
            return kelo::gen::generateFibex(options, sink, &stats);
        },
        [&](double seconds) {
            std::fprintf(stderr,
                         "kelo-gen-fibex: %s: %.1f MiB in %.2f s (seed %llu)\n"
                         "  %u frames, %u PDUs, %u signals (%u with update bits), %u codings, "
                         "%u units\n"
                         "  %u frame triggerings, %u PDU triggerings, %u ECUs, %u ports%s\n",
                         line.out.empty() ? "stdout" : line.out.c_str(),
                         static_cast<double>(stats.bytes) / (1024.0 * 1024.0), seconds,
                         static_cast<unsigned long long>(options.seed), stats.frames, stats.pdus,
                         stats.signals, stats.updateBitSignals, stats.codings, stats.units,
                         stats.frameTriggerings, stats.pduTriggerings, stats.ecus, stats.ports,
                         stats.scheduleWraps ? " (slot grid full: schedule reused slots)" : "");
        });
}
