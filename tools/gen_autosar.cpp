// kelo-gen-autosar: writes a synthetic AUTOSAR 4.2 FlexRay system description of a chosen size.
//
//   kelo-gen-autosar [--frames N] [--signals-per-frame M] [--ecus N] [--size-mb X] [--seed S]
//                    [--out FILE]
//
// Without --out the document goes to standard output. A summary goes to standard error.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "autosar_generator.h"

namespace {

void usage(std::FILE* to) {
    std::fprintf(to,
                 "usage: kelo-gen-autosar [options]\n"
                 "  --frames N             number of frames (default 2000)\n"
                 "  --signals-per-frame M  average signals per frame (default 10)\n"
                 "  --ecus N               number of ECUs, at least 2 (default 8)\n"
                 "  --size-mb X            pick the frame count for a file of about X MiB\n"
                 "                         (overrides --frames)\n"
                 "  --seed S               seed; the same options and seed give the same bytes\n"
                 "                         (default 1)\n"
                 "  --out FILE             output file (default: standard output)\n"
                 "  --quiet                no summary on standard error\n");
}

bool parseUnsigned(const char* text, unsigned long long max, unsigned long long& value) {
    if (!text || !*text || *text == '-') return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoull(text, &end, 10);
    return errno == 0 && *end == '\0' && value <= max;
}

}  // namespace

int main(int argc, char** argv) {
    kelo::gen::AutosarOptions options;
    double sizeMb = 0.0;
    std::string out;
    bool quiet = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        unsigned long long n = 0;
        if (arg == "--help" || arg == "-h") {
            usage(stdout);
            return 0;
        } else if (arg == "--quiet") {
            quiet = true;
            continue;
        } else if (arg == "--frames" && parseUnsigned(value, 10000000, n) && n > 0) {
            options.frames = static_cast<std::uint32_t>(n);
        } else if (arg == "--signals-per-frame" && parseUnsigned(value, 1000, n) && n > 0) {
            options.signalsPerFrame = static_cast<std::uint32_t>(n);
        } else if (arg == "--ecus" && parseUnsigned(value, 10000, n) && n >= 2) {
            options.ecus = static_cast<std::uint32_t>(n);
        } else if (arg == "--seed" && parseUnsigned(value, ~0ull, n)) {
            options.seed = n;
        } else if (arg == "--size-mb" && value) {
            char* end = nullptr;
            sizeMb = std::strtod(value, &end);
            if (*end != '\0' || !(sizeMb > 0.0) || sizeMb > 100000.0) {
                std::fprintf(stderr, "kelo-gen-autosar: bad value for --size-mb: %s\n", value);
                return 2;
            }
        } else if (arg == "--out" && value) {
            out = value;
        } else {
            std::fprintf(stderr, "kelo-gen-autosar: bad or incomplete option: %s%s%s\n",
                         arg.c_str(), value ? " " : "", value ? value : "");
            usage(stderr);
            return 2;
        }
        ++i;
    }
    if (sizeMb > 0.0) {
        const std::uint32_t ecus = options.ecus;
        options = kelo::gen::autosarOptionsForSize(sizeMb, options.signalsPerFrame, options.seed);
        options.ecus = ecus;
    }

    const auto start = std::chrono::steady_clock::now();
    kelo::gen::AutosarStats stats;
    bool ok;
    std::string error;
    if (out.empty()) {
        const kelo::gen::AutosarSink sink = [](const char* data, std::size_t size) {
            return std::fwrite(data, 1, size, stdout) == size;
        };
        ok = kelo::gen::generateAutosar(options, sink, &stats) && std::fflush(stdout) == 0;
        if (!ok) error = std::string("cannot write standard output: ") + std::strerror(errno);
    } else {
        ok = kelo::gen::writeAutosarFile(options, out, &stats, &error);
    }
    if (!ok) {
        std::fprintf(stderr, "kelo-gen-autosar: %s\n", error.c_str());
        return 1;
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!quiet) {
        std::fprintf(stderr,
                     "kelo-gen-autosar: %s: %.1f MiB in %.2f s (seed %llu)\n"
                     "  %u frames, %u PDUs, %u signals (%u with update bits), %u compu-methods, "
                     "%u units\n"
                     "  %u frame triggerings, %u ECUs, %u ports\n",
                     out.empty() ? "stdout" : out.c_str(),
                     static_cast<double>(stats.bytes) / (1024.0 * 1024.0), seconds,
                     static_cast<unsigned long long>(options.seed), stats.frames, stats.pdus,
                     stats.signals, stats.updateBitSignals, stats.compuMethods, stats.units,
                     stats.frameTriggerings, stats.ecus, stats.ports);
    }
    return 0;
}
