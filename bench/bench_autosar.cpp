// AUTOSAR system-description load against a bare XML parse of the same file, for files of about
// 20 and 100 MiB written by the AUTOSAR generator (tools/autosar_generator.h) into a temporary
// directory once per run.
//
// Per size, two benchmarks run back to back:
//   BM_AutosarBareParse/<n>MB  pugi::xml_document::load_file (default options) of the file.
//   BM_AutosarLoad/<n>MB       a fresh AutoSarReader filled by ReadAUTOSARData.
// Only the call itself is timed (manual time); building and destroying the reader is not.
// Freed heap is handed back to the system before each timed call. Counters:
//   file_mb                  file size in MiB (bytes_per_second gives the throughput)
//   ratio_to_bare_parse      load time / bare parse time of the same file in the same run
//   cpu_ratio_to_bare_parse  the same with the thread's CPU time
//   ms_per_mb                load time per MiB of file
//   growth_per_mb            (largest size only) ms_per_mb of this size over ms_per_mb of the
//                            smallest size in the same run: about 1 when the load grows linearly
//                            with the file, far above 1 if a package walk turned quadratic
//   rss_over_file            resident memory added by one loaded reader (database and kept
//                            document) over the file size (Linux)
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "autosar/autosar_reader.h"
#include "autosar_generator.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif
#if defined(__unix__)
#include <time.h>
#include <unistd.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kSeed = 1;

struct SizeSpec {
    int megabytes;
    int iterations;
};
const SizeSpec kSizes[] = {{20, 3}, {100, 2}};
constexpr int kSizeCount = sizeof kSizes / sizeof kSizes[0];

struct BenchFile {
    std::string path;
    std::uint64_t bytes = 0;
    kelo::gen::AutosarStats stats;
};

// The generated files, written on first use and removed at exit.
class Files {
  public:
    static Files& instance() {
        static Files files;
        return files;
    }
    const BenchFile* get(int index) {
        if (!generated_) generate();
        return ok_ ? &files_[index] : nullptr;
    }
    const std::string& error() const { return error_; }
    ~Files() {
        for (const BenchFile& f : files_)
            if (!f.path.empty()) std::remove(f.path.c_str());
        if (!dir_.empty()) std::remove(dir_.c_str());
    }

  private:
    void generate() {
        generated_ = true;
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern =
            std::string(tmp && *tmp ? tmp : "/tmp") + "/kelo-bench-autosar-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
#if defined(__unix__)
        if (!mkdtemp(buffer.data())) {
            error_ = "cannot create a temporary directory under " + pattern;
            return;
        }
#else
        error_ = "temporary directories are only made on POSIX systems";
        return;
#endif
        dir_ = buffer.data();
        const Clock::time_point start = Clock::now();
        for (int i = 0; i < kSizeCount; ++i) {
            BenchFile& file = files_[i];
            file.path = dir_ + "/autosar-" + std::to_string(kSizes[i].megabytes) + "mb.arxml";
            const kelo::gen::AutosarOptions options =
                kelo::gen::autosarOptionsForSize(kSizes[i].megabytes, 10, kSeed);
            if (!kelo::gen::writeAutosarFile(options, file.path, &file.stats, &error_)) return;
            file.bytes = file.stats.bytes;
        }
        std::fprintf(stderr, "autosar bench: files in %s (seed %llu), written in %.2f s\n",
                     dir_.c_str(), static_cast<unsigned long long>(kSeed),
                     std::chrono::duration<double>(Clock::now() - start).count());
        ok_ = true;
    }

    bool generated_ = false;
    bool ok_ = false;
    std::string dir_;
    std::string error_;
    BenchFile files_[kSizeCount];
};

struct Elapsed {
    double wall = 0.0;
    double cpu = 0.0;
};

double threadCpuSeconds() {
#if defined(__unix__)
    timespec ts{};
    if (clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts) == 0)
        return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
#endif
    return 0.0;
}

template <typename F>
Elapsed timed(F&& call) {
    const double cpuStart = threadCpuSeconds();
    const Clock::time_point start = Clock::now();
    call();
    Elapsed e;
    e.wall = std::chrono::duration<double>(Clock::now() - start).count();
    e.cpu = threadCpuSeconds() - cpuStart;
    return e;
}

Elapsed gBare[kSizeCount];        // mean bare parse per file in this run
double gLoadMsPerMb[kSizeCount];  // mean load time per MiB in this run

double statusBytes(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::size_t length = std::strlen(field);
    while (std::getline(status, line)) {
        if (line.compare(0, length, field) == 0 && line.size() > length && line[length] == ':')
            return std::strtod(line.c_str() + length + 1, nullptr) * 1024.0;
    }
    return -1.0;
}

void releaseFreedMemory() {
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}

std::string labelOf(const BenchFile& file) {
    const kelo::gen::AutosarStats& s = file.stats;
    return std::to_string(s.frames) + " frames, " + std::to_string(s.pdus) + " PDUs, " +
           std::to_string(s.signals) + " signals, " + std::to_string(s.ecus) + " ECUs";
}

Elapsed parseOnce(const std::string& path, bool& ok) {
    pugi::xml_document doc;
    return timed([&] {
        ok = static_cast<bool>(
            doc.load_file(path.c_str(), pugi::parse_default, pugi::encoding_auto));
    });
}

void BM_AutosarBareParse(benchmark::State& state, int index) {
    const BenchFile* file = Files::instance().get(index);
    if (!file) {
        state.SkipWithError(Files::instance().error().c_str());
        return;
    }
    Elapsed total;
    for (auto _ : state) {
        bool ok = false;
        releaseFreedMemory();
        const Elapsed e = parseOnce(file->path, ok);
        if (!ok) {
            state.SkipWithError("pugixml could not parse the generated file");
            return;
        }
        state.SetIterationTime(e.wall);
        total.wall += e.wall;
        total.cpu += e.cpu;
    }
    const double n = static_cast<double>(state.iterations());
    gBare[index] = Elapsed{total.wall / n, total.cpu / n};
    state.SetBytesProcessed(static_cast<std::int64_t>(file->bytes) * state.iterations());
    state.counters["file_mb"] = static_cast<double>(file->bytes) / (1024.0 * 1024.0);
    state.SetLabel(labelOf(*file));
}

void BM_AutosarLoad(benchmark::State& state, int index) {
    using kelo::autosar::AutoSarReader;
    const BenchFile* file = Files::instance().get(index);
    if (!file) {
        state.SkipWithError(Files::instance().error().c_str());
        return;
    }
    if (gBare[index].wall <= 0.0) {  // e.g. under a filter: measure one bare parse here
        bool ok = false;
        parseOnce(file->path, ok);
        releaseFreedMemory();
        gBare[index] = parseOnce(file->path, ok);
    }
    Elapsed total;
    for (auto _ : state) {
        auto reader = std::make_unique<AutoSarReader>();
        releaseFreedMemory();
        const Elapsed e = timed([&] { reader->ReadAUTOSARData(file->path); });
        state.SetIterationTime(e.wall);
        total.wall += e.wall;
        total.cpu += e.cpu;
        if (!reader->IsLoaded()) {
            state.SkipWithError("ReadAUTOSARData did not load the generated file");
            return;
        }
        benchmark::DoNotOptimize(reader->Database().signals.size());
    }
    const double n = static_cast<double>(state.iterations());
    const double megabytes = static_cast<double>(file->bytes) / (1024.0 * 1024.0);
    state.SetBytesProcessed(static_cast<std::int64_t>(file->bytes) * state.iterations());
    state.counters["file_mb"] = megabytes;
    state.counters["ratio_to_bare_parse"] = total.wall / n / gBare[index].wall;
    if (gBare[index].cpu > 0.0)
        state.counters["cpu_ratio_to_bare_parse"] = total.cpu / n / gBare[index].cpu;
    gLoadMsPerMb[index] = total.wall / n * 1000.0 / megabytes;
    state.counters["ms_per_mb"] = gLoadMsPerMb[index];
    if (index == kSizeCount - 1 && gLoadMsPerMb[0] > 0.0)
        state.counters["growth_per_mb"] = gLoadMsPerMb[index] / gLoadMsPerMb[0];

    releaseFreedMemory();
    const double before = statusBytes("VmRSS");
    {
        AutoSarReader reader(file->path);
        const double after = statusBytes("VmRSS");
        if (before >= 0 && after >= 0)
            state.counters["rss_over_file"] = (after - before) / static_cast<double>(file->bytes);
        benchmark::DoNotOptimize(reader.IsLoaded());
    }
    state.SetLabel(labelOf(*file));
}

// Bare parse and load of each size next to each other, smallest first.
[[maybe_unused]] const bool gRegistered = [] {
    for (int i = 0; i < kSizeCount; ++i) {
        const std::string size = std::to_string(kSizes[i].megabytes) + "MB";
        benchmark::RegisterBenchmark(("BM_AutosarBareParse/" + size).c_str(), BM_AutosarBareParse,
                                     i)
            ->Iterations(kSizes[i].iterations)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("BM_AutosarLoad/" + size).c_str(), BM_AutosarLoad, i)
            ->Iterations(kSizes[i].iterations)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace
