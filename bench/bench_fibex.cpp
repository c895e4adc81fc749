// FIBEX database load against a bare XML parse of the same file, for files of about 1, 20 and
// 100 MiB written by the FIBEX generator (tools/fibex_generator.h) into a temporary directory
// once per run.
//
// Per size, two benchmarks run back to back:
//   BM_FibexBareParse/<n>MB  pugi::xml_document::load_file (default options) of the file.
//   BM_FibexLoad/<n>MB       a fresh BusDatabase filled by FibexReader::ReadFIBEXData.
// Only the call itself is timed (manual time); building and destroying the database and the
// document are not. Before each timed call the freed heap is handed back to the system, so that
// both benchmarks pay for fresh memory the way a process loading its first database does (with
// warm heap pages a parse of these files is several times faster). Counters:
//   file_mb               file size in MiB (bytes_per_second gives the throughput)
//   ratio_to_bare_parse   load time / bare parse time of the same file in the same run
//                         (target: <= 2)
//   cpu_ratio_to_bare_parse  the same with the thread's CPU time, which other load on the
//                         machine disturbs less
//   rss_over_file         resident memory added by one loaded database that is kept alive, over
//                         the file size; it includes the DOM that the reader keeps after loading
//                         (target: <= 4)
//   kept_dom_rss_over_file  the reader's document alone (same parser options as the reader)
//   peak_rss_over_file    peak resident growth during that load, over the file size
//   dom_rss_over_file     (bare parse) a default-options pugixml document, over the file size
// Memory is read from VmRSS/VmHWM in /proc/self/status (Linux; elsewhere the memory counters
// are left out). Freed heap is handed back to the system first (malloc_trim) so that earlier
// iterations do not hide the growth.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <QString>
#include <pugixml.hpp>

#include "fibex/bus_database.h"
#include "fibex/fibex_reader.h"
#include "fibex_generator.h"
#include "xml/xml_access.h"

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
    int iterations;  // per benchmark; the largest file is loaded only twice
};
const SizeSpec kSizes[] = {{1, 50}, {20, 4}, {100, 2}};
constexpr int kSizeCount = sizeof kSizes / sizeof kSizes[0];

struct BenchFile {
    std::string path;
    std::uint64_t bytes = 0;
    kelo::gen::FibexStats stats;
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
        std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/kelo-bench-fibex-XXXXXX";
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
            file.path = dir_ + "/fibex-" + std::to_string(kSizes[i].megabytes) + "mb.xml";
            const kelo::gen::FibexOptions options =
                kelo::gen::optionsForSize(kSizes[i].megabytes, 10, kSeed);
            if (!kelo::gen::writeFibexFile(options, file.path, &file.stats, &error_)) return;
            file.bytes = file.stats.bytes;
        }
        std::fprintf(stderr, "fibex bench: files in %s (seed %llu), written in %.2f s\n",
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

// Wall and CPU time of one timed call.
struct Elapsed {
    double wall = 0.0;
    double cpu = 0.0;
};

// CPU time of the calling thread in seconds (user and system), or 0 where not available.
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

// Mean bare parse times per file, as measured by the bare benchmark of this run.
Elapsed gBare[kSizeCount];

// VmRSS or VmHWM of this process in bytes, or -1 when it cannot be read.
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

// Returns freed heap to the system so that a following VmRSS difference sees new allocations.
void releaseFreedMemory() {
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}

// Resets VmHWM to the current resident size (Linux 4.0 and later); false where unsupported.
bool resetPeak() {
    std::FILE* f = std::fopen("/proc/self/clear_refs", "w");
    if (!f) return false;
    const bool ok = std::fputs("5", f) >= 0;
    return std::fclose(f) == 0 && ok;
}

std::string labelOf(const BenchFile& file) {
    const kelo::gen::FibexStats& s = file.stats;
    return std::to_string(s.frames) + " frames, " + std::to_string(s.pdus) + " PDUs, " +
           std::to_string(s.signals) + " signals, " + std::to_string(s.codings) + " codings";
}

Elapsed parseOnce(const std::string& path, bool& ok) {
    pugi::xml_document doc;
    const Elapsed e = timed([&] {
        ok = static_cast<bool>(
            doc.load_file(path.c_str(), pugi::parse_default, pugi::encoding_auto));
    });
    return e;
}

void BM_FibexBareParse(benchmark::State& state, int index) {
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

    const double bytes = static_cast<double>(file->bytes);
    state.SetBytesProcessed(static_cast<std::int64_t>(file->bytes) * state.iterations());
    state.counters["file_mb"] = bytes / (1024.0 * 1024.0);
    releaseFreedMemory();
    const double before = statusBytes("VmRSS");
    {
        pugi::xml_document doc;
        doc.load_file(file->path.c_str(), pugi::parse_default, pugi::encoding_auto);
        const double after = statusBytes("VmRSS");
        if (before >= 0 && after >= 0)
            state.counters["dom_rss_over_file"] = (after - before) / bytes;
    }
    state.SetLabel(labelOf(*file));
}

void BM_FibexLoad(benchmark::State& state, int index) {
    using kelo::fibex::BusDatabase;
    using kelo::fibex::FibexReader;
    const BenchFile* file = Files::instance().get(index);
    if (!file) {
        state.SkipWithError(Files::instance().error().c_str());
        return;
    }
    // Without a bare parse from this run (e.g. under a filter), measure one here.
    if (gBare[index].wall <= 0.0) {
        bool ok = false;
        parseOnce(file->path, ok);  // warm the page cache like the bare benchmark's first run
        releaseFreedMemory();
        gBare[index] = parseOnce(file->path, ok);
    }

    Elapsed total;
    for (auto _ : state) {
        auto db = std::make_unique<BusDatabase>();
        auto reader = std::make_unique<FibexReader>(*db);
        releaseFreedMemory();
        const Elapsed e = timed([&] { reader->ReadFIBEXData(file->path); });
        state.SetIterationTime(e.wall);
        total.wall += e.wall;
        total.cpu += e.cpu;
        if (!db->loaded) {
            state.SkipWithError("ReadFIBEXData did not load the generated file");
            return;
        }
        benchmark::DoNotOptimize(db->signals.size());
    }
    const double n = static_cast<double>(state.iterations());
    const double bytes = static_cast<double>(file->bytes);
    state.SetBytesProcessed(static_cast<std::int64_t>(file->bytes) * state.iterations());
    state.counters["file_mb"] = bytes / (1024.0 * 1024.0);
    state.counters["ratio_to_bare_parse"] = total.wall / n / gBare[index].wall;
    if (gBare[index].cpu > 0.0)
        state.counters["cpu_ratio_to_bare_parse"] = total.cpu / n / gBare[index].cpu;

    // Memory of one loaded database, kept alive while it is measured (with its reader, which
    // keeps the parsed document).
    releaseFreedMemory();
    const bool peakKnown = resetPeak();
    const double before = statusBytes("VmRSS");
    {
        auto db = std::make_unique<BusDatabase>();
        auto reader = std::make_unique<FibexReader>(*db);
        reader->ReadFIBEXData(file->path);
        const double after = statusBytes("VmRSS");
        const double peak = statusBytes("VmHWM");
        if (before >= 0 && after >= 0) state.counters["rss_over_file"] = (after - before) / bytes;
        if (peakKnown && before >= 0 && peak >= 0)
            state.counters["peak_rss_over_file"] = (peak - before) / bytes;
        benchmark::DoNotOptimize(db->loaded);
    }
    // The reader's document on its own, parsed the way the reader parses it.
    releaseFreedMemory();
    const double domBefore = statusBytes("VmRSS");
    {
        kelo::xml::Document document;
        document.loadFile(QString::fromStdString(file->path));
        const double after = statusBytes("VmRSS");
        if (domBefore >= 0 && after >= 0)
            state.counters["kept_dom_rss_over_file"] = (after - domBefore) / bytes;
    }
    state.SetLabel(labelOf(*file));
}

// Bare parse and load of each size next to each other, smallest first.
[[maybe_unused]] const bool gRegistered = [] {
    for (int i = 0; i < kSizeCount; ++i) {
        const std::string size = std::to_string(kSizes[i].megabytes) + "MB";
        benchmark::RegisterBenchmark(("BM_FibexBareParse/" + size).c_str(), BM_FibexBareParse, i)
            ->Iterations(kSizes[i].iterations)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("BM_FibexLoad/" + size).c_str(), BM_FibexLoad, i)
            ->Iterations(kSizes[i].iterations)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace
