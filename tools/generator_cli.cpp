#include "generator_cli.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace kelo {
namespace gen {

namespace {

void usage(const CommandLine& line, std::FILE* to) {
    std::fprintf(to,
                 "usage: %s [options]\n"
                 "  --frames N             number of frames (default 2000)\n"
                 "  --signals-per-frame M  average signals per frame (default 10)\n"
                 "%s"
                 "  --size-mb X            pick the frame count for a file of about X MiB\n"
                 "                         (overrides --frames)\n"
                 "  --seed S               seed; the same options and seed give the same bytes\n"
                 "                         (default 1)\n"
                 "  --out FILE             output file (default: standard output)\n"
                 "  --quiet                no summary on standard error\n",
                 line.tool, line.extraUsage);
}

}  // namespace

bool parseUnsigned(const char* text, unsigned long long max, unsigned long long& value) {
    if (!text || !*text || *text == '-') return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoull(text, &end, 10);
    return errno == 0 && *end == '\0' && value <= max;
}

int parseCommandLine(int argc, char** argv, CommandLine& line, const ExtraOption& extra) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        unsigned long long n = 0;
        if (arg == "--help" || arg == "-h") {
            usage(line, stdout);
            return 0;
        } else if (arg == "--quiet") {
            line.quiet = true;
            continue;
        } else if (arg == "--frames" && parseUnsigned(value, 10000000, n) && n > 0) {
            line.frames = static_cast<std::uint32_t>(n);
        } else if (arg == "--signals-per-frame" && parseUnsigned(value, 1000, n) && n > 0) {
            line.signalsPerFrame = static_cast<std::uint32_t>(n);
        } else if (arg == "--seed" && parseUnsigned(value, ~0ull, n)) {
            line.seed = n;
        } else if (arg == "--size-mb" && value) {
            char* end = nullptr;
            line.sizeMb = std::strtod(value, &end);
            if (*end != '\0' || !(line.sizeMb > 0.0) || line.sizeMb > 100000.0) {
                std::fprintf(stderr, "%s: bad value for --size-mb: %s\n", line.tool, value);
                return 2;
            }
        } else if (arg == "--out" && value) {
            line.out = value;
        } else if (!(extra && value && extra(arg, value))) {
            std::fprintf(stderr, "%s: bad or incomplete option: %s%s%s\n", line.tool, arg.c_str(),
                         value ? " " : "", value ? value : "");
            usage(line, stderr);
            return 2;
        }
        ++i;
    }
    return -1;
}

int emitDocument(const CommandLine& line, const DocumentWriter& write,
                 const std::function<void(double seconds)>& summary) {
    const auto start = std::chrono::steady_clock::now();
    std::string error;
    const bool ok = line.out.empty() ? writeDocumentToStdout(write, &error)
                                     : writeDocumentFile(line.out, write, &error);
    if (!ok) {
        std::fprintf(stderr, "%s: %s\n", line.tool, error.c_str());
        return 1;
    }
    if (!line.quiet)
        summary(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    return 0;
}

}  // namespace gen
}  // namespace kelo
