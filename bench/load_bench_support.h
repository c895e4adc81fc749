// What the database load benchmarks share: generated input files in a temporary directory,
// wall and thread-CPU timing of one call, resident-memory readings, the bare pugixml parse that
// a load is compared with, and the registration of bare-parse/load pairs per file size.
//
// Only the call itself is timed (manual time). Before each timed call the freed heap is handed
// back to the system (malloc_trim), so that every call pays for fresh memory the way a process
// loading its first database does, and so that a following VmRSS difference sees new
// allocations. Memory is read from VmRSS/VmHWM in /proc/self/status (Linux; elsewhere the memory
// counters are left out).
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <pugixml.hpp>

#if defined(__GLIBC__)
#include <malloc.h>
#endif
#if defined(__unix__)
#include <time.h>
#include <unistd.h>
#endif

namespace kelo {
namespace bench {

using Clock = std::chrono::steady_clock;

// Wall and CPU time of one timed call, in seconds.
struct Elapsed {
    double wall = 0.0;
    double cpu = 0.0;
};

// CPU time of the calling thread in seconds (user and system), or 0 where not available.
inline double threadCpuSeconds() {
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

// VmRSS or VmHWM of this process in bytes, or -1 when it cannot be read.
inline double statusBytes(const char* field) {
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
inline void releaseFreedMemory() {
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}

// Resets VmHWM to the current resident size (Linux 4.0 and later); false where unsupported.
inline bool resetPeak() {
    std::FILE* f = std::fopen("/proc/self/clear_refs", "w");
    if (!f) return false;
    const bool ok = std::fputs("5", f) >= 0;
    return std::fclose(f) == 0 && ok;
}

// Resident memory added while `hold` runs, over `bytes`; -1 when it cannot be read. `hold`
// builds what is measured and keeps it alive until it returns.
template <typename F>
double rssGrowthOver(double bytes, F&& hold) {
    releaseFreedMemory();
    const double before = statusBytes("VmRSS");
    double after = -1.0;
    hold([&] { after = statusBytes("VmRSS"); });
    return before >= 0 && after >= 0 ? (after - before) / bytes : -1.0;
}

// One bare parse of the file with default options, timed.
inline Elapsed parseOnce(const std::string& path, bool& ok) {
    pugi::xml_document doc;
    return timed([&] {
        ok = static_cast<bool>(
            doc.load_file(path.c_str(), pugi::parse_default, pugi::encoding_auto));
    });
}

struct SizeSpec {
    int megabytes;
    int iterations;  // per benchmark
};

// A generated input file and what the generator says it holds.
template <typename Stats>
struct BenchFile {
    std::string path;
    std::uint64_t bytes = 0;
    Stats stats;
};

// Input files of the given sizes in a fresh temporary directory, written on first use and
// removed at exit.
template <typename Stats>
class GeneratedFiles {
  public:
    // Writes a file of about `megabytes` MiB to `path`; false with `error` set on failure.
    using Writer = std::function<bool(int megabytes, const std::string& path, Stats* stats,
                                      std::string* error)>;

    // `name` tags the directory, the file names and the progress line; `extension` includes
    // the dot.
    GeneratedFiles(std::string name, std::string extension, std::vector<SizeSpec> sizes,
                   Writer writer)
        : name_(std::move(name)),
          extension_(std::move(extension)),
          sizes_(std::move(sizes)),
          writer_(std::move(writer)),
          files_(sizes_.size()) {}
    GeneratedFiles(const GeneratedFiles&) = delete;
    GeneratedFiles& operator=(const GeneratedFiles&) = delete;

    ~GeneratedFiles() {
        for (const BenchFile<Stats>& f : files_)
            if (!f.path.empty()) std::remove(f.path.c_str());
        if (!dir_.empty()) std::remove(dir_.c_str());
    }

    const std::vector<SizeSpec>& sizes() const { return sizes_; }
    int count() const { return static_cast<int>(sizes_.size()); }
    const BenchFile<Stats>* get(int index) {
        if (!generated_) generate();
        return ok_ ? &files_[static_cast<std::size_t>(index)] : nullptr;
    }
    const std::string& error() const { return error_; }

  private:
    void generate() {
        generated_ = true;
        const char* tmp = std::getenv("TMPDIR");
        const std::string pattern =
            std::string(tmp && *tmp ? tmp : "/tmp") + "/kelo-bench-" + name_ + "-XXXXXX";
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
        for (std::size_t i = 0; i < sizes_.size(); ++i) {
            BenchFile<Stats>& file = files_[i];
            file.path =
                dir_ + "/" + name_ + "-" + std::to_string(sizes_[i].megabytes) + "mb" + extension_;
            if (!writer_(sizes_[i].megabytes, file.path, &file.stats, &error_)) return;
            file.bytes = file.stats.bytes;
        }
        std::fprintf(stderr, "%s bench: files in %s, written in %.2f s\n", name_.c_str(),
                     dir_.c_str(), std::chrono::duration<double>(Clock::now() - start).count());
        ok_ = true;
    }

    std::string name_;
    std::string extension_;
    std::vector<SizeSpec> sizes_;
    Writer writer_;
    bool generated_ = false;
    bool ok_ = false;
    std::string dir_;
    std::string error_;
    std::vector<BenchFile<Stats>> files_;
};

inline double megabytesOf(std::uint64_t bytes) {
    return static_cast<double>(bytes) / (1024.0 * 1024.0);
}

// The bare-parse benchmark of one file: the mean times go to `mean` for the load benchmark to
// compare with. Counters: file_mb, and dom_rss_over_file (a default-options document over the
// file size).
inline void runBareParse(benchmark::State& state, const std::string& path, std::uint64_t bytes,
                         Elapsed& mean) {
    Elapsed total;
    for (auto _ : state) {
        bool ok = false;
        releaseFreedMemory();
        const Elapsed e = parseOnce(path, ok);
        if (!ok) {
            state.SkipWithError("pugixml could not parse the generated file");
            return;
        }
        state.SetIterationTime(e.wall);
        total.wall += e.wall;
        total.cpu += e.cpu;
    }
    const double n = static_cast<double>(state.iterations());
    mean = Elapsed{total.wall / n, total.cpu / n};
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
    state.counters["file_mb"] = megabytesOf(bytes);
    const double dom = rssGrowthOver(static_cast<double>(bytes), [&](auto&& measure) {
        pugi::xml_document doc;
        doc.load_file(path.c_str(), pugi::parse_default, pugi::encoding_auto);
        measure();
    });
    if (dom >= 0) state.counters["dom_rss_over_file"] = dom;
}

// A bare parse time for the load benchmark when its bare benchmark did not run (e.g. under a
// filter): one parse to warm the page cache, then one measured.
inline void ensureBareParse(const std::string& path, Elapsed& mean) {
    if (mean.wall > 0.0) return;
    bool ok = false;
    parseOnce(path, ok);
    releaseFreedMemory();
    mean = parseOnce(path, ok);
}

// The load benchmark of one file. Per iteration `once(time)` builds what the load needs
// (untimed), passes the load call to `time`, which times it after handing freed heap back, and
// returns whether the file loaded. Counters: file_mb, ratio_to_bare_parse and
// cpu_ratio_to_bare_parse (the thread's CPU time, which other load on the machine disturbs
// less). Returns the mean load time, or a zero Elapsed when the benchmark was skipped.
template <typename Once>
Elapsed runLoad(benchmark::State& state, std::uint64_t bytes, const Elapsed& bare,
                const char* failure, Once&& once) {
    Elapsed total;
    for (auto _ : state) {
        Elapsed e;
        const bool loaded = once([&](auto&& call) {
            releaseFreedMemory();
            e = timed(call);
        });
        state.SetIterationTime(e.wall);
        total.wall += e.wall;
        total.cpu += e.cpu;
        if (!loaded) {
            state.SkipWithError(failure);
            return Elapsed{};
        }
    }
    const double n = static_cast<double>(state.iterations());
    const Elapsed mean{total.wall / n, total.cpu / n};
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
    state.counters["file_mb"] = megabytesOf(bytes);
    state.counters["ratio_to_bare_parse"] = mean.wall / bare.wall;
    if (bare.cpu > 0.0) state.counters["cpu_ratio_to_bare_parse"] = mean.cpu / bare.cpu;
    return mean;
}

// Registers "<bareName>/<n>MB" and "<loadName>/<n>MB" for each size, next to each other,
// smallest first; the functions take the size's index.
inline void registerLoadPairs(const std::vector<SizeSpec>& sizes, const std::string& bareName,
                              void (*bare)(benchmark::State&, int), const std::string& loadName,
                              void (*load)(benchmark::State&, int)) {
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const std::string size = "/" + std::to_string(sizes[i].megabytes) + "MB";
        for (const auto& [name, function] : {std::pair{bareName, bare}, std::pair{loadName, load}})
            benchmark::RegisterBenchmark((name + size).c_str(), function, static_cast<int>(i))
                ->Iterations(sizes[i].iterations)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
    }
}

}  // namespace bench
}  // namespace kelo
