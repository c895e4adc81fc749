// AUTOSAR system-description load against a bare XML parse of the same file, for files of about
// 20 and 100 MiB written by the AUTOSAR generator (tools/autosar_generator.h) into a temporary
// directory once per run. Timing and memory readings as described in load_bench_support.h.
//
// Per size, two benchmarks run back to back:
//   BM_AutosarBareParse/<n>MB  pugi::xml_document::load_file (default options) of the file.
//   BM_AutosarLoad/<n>MB       a fresh AutoSarReader filled by ReadAUTOSARData.
// and after them, per size, BM_AutosarLoadReadAll/<n>MB: the same with the read-all rules
// (KELO_DB_READ_ALL), whose element index must stay linear in the file too.
// Building and destroying the reader is not timed. Counters:
//   file_mb                  file size in MiB (bytes_per_second gives the throughput)
//   ratio_to_bare_parse      load time / bare parse time of the same file in the same run
//   cpu_ratio_to_bare_parse  the same with the thread's CPU time
//   ms_per_mb                load time per MiB of file
//   growth_per_mb            (largest size only) ms_per_mb of this size over ms_per_mb of the
//                            smallest size in the same run: about 1 when the load grows linearly
//                            with the file, far above 1 if a package walk turned quadratic
//   rss_over_file            resident memory added by one loaded reader (database and kept
//                            document) over the file size (Linux)
//   dom_rss_over_file        (bare parse) a default-options pugixml document, over the file size
#include <memory>
#include <string>
#include <vector>

#include "autosar/autosar_reader.h"
#include "autosar_generator.h"
#include "load_bench_support.h"

namespace {

using namespace kelo::bench;
using kelo::autosar::AutoSarReader;

constexpr std::uint64_t kSeed = 1;

GeneratedFiles<kelo::gen::AutosarStats> gFiles(
    "autosar", ".arxml", {{20, 3}, {100, 2}},
    [](int megabytes, const std::string& path, kelo::gen::AutosarStats* stats, std::string* error) {
        return kelo::gen::writeAutosarFile(kelo::gen::autosarOptionsForSize(megabytes, 10, kSeed),
                                           path, stats, error);
    });

std::vector<Elapsed> gBare(gFiles.sizes().size());        // mean bare parse per file in this run
std::vector<double> gLoadMsPerMb(gFiles.sizes().size());  // mean load time per MiB in this run

std::string labelOf(const kelo::gen::AutosarStats& s) {
    return std::to_string(s.frames) + " frames, " + std::to_string(s.pdus) + " PDUs, " +
           std::to_string(s.signals) + " signals, " + std::to_string(s.ecus) + " ECUs";
}

void BM_AutosarBareParse(benchmark::State& state, int index) {
    const auto* file = gFiles.get(index);
    if (!file) return state.SkipWithError(gFiles.error().c_str());
    runBareParse(state, file->path, file->bytes, gBare[index]);
    state.SetLabel(labelOf(file->stats));
}

Elapsed timeLoads(benchmark::State& state, int index, bool readAll) {
    const auto* file = gFiles.get(index);
    ensureBareParse(file->path, gBare[index]);
    return runLoad(state, file->bytes, gBare[index],
                   "ReadAUTOSARData did not load the generated file", [&](auto&& time) {
                       auto reader = std::make_unique<AutoSarReader>(std::string(), readAll);
                       time([&] { reader->ReadAUTOSARData(file->path); });
                       benchmark::DoNotOptimize(reader->Database().signals.size());
                       return reader->IsLoaded();
                   });
}

void BM_AutosarLoadReadAll(benchmark::State& state, int index) {
    const auto* file = gFiles.get(index);
    if (!file) return state.SkipWithError(gFiles.error().c_str());
    const Elapsed mean = timeLoads(state, index, true);
    if (mean.wall > 0.0)
        state.counters["ms_per_mb"] = mean.wall * 1000.0 / megabytesOf(file->bytes);
    state.SetLabel(labelOf(file->stats));
}

void BM_AutosarLoad(benchmark::State& state, int index) {
    const auto* file = gFiles.get(index);
    if (!file) return state.SkipWithError(gFiles.error().c_str());
    const Elapsed mean = timeLoads(state, index, false);
    if (mean.wall <= 0.0) return;
    gLoadMsPerMb[index] = mean.wall * 1000.0 / megabytesOf(file->bytes);
    state.counters["ms_per_mb"] = gLoadMsPerMb[index];
    if (index == gFiles.count() - 1 && gLoadMsPerMb[0] > 0.0)
        state.counters["growth_per_mb"] = gLoadMsPerMb[index] / gLoadMsPerMb[0];

    const double kept = rssGrowthOver(static_cast<double>(file->bytes), [&](auto&& measure) {
        AutoSarReader reader(file->path);
        measure();
        benchmark::DoNotOptimize(reader.IsLoaded());
    });
    if (kept >= 0) state.counters["rss_over_file"] = kept;
    state.SetLabel(labelOf(file->stats));
}

[[maybe_unused]] const bool gRegistered = (
    registerLoadPairs(gFiles.sizes(), "BM_AutosarBareParse", BM_AutosarBareParse, "BM_AutosarLoad",
                      BM_AutosarLoad),
    [] {
        for (std::size_t i = 0; i < gFiles.sizes().size(); ++i)
            benchmark::RegisterBenchmark(
                ("BM_AutosarLoadReadAll/" + std::to_string(gFiles.sizes()[i].megabytes) + "MB")
                    .c_str(),
                BM_AutosarLoadReadAll, static_cast<int>(i))
                ->Iterations(gFiles.sizes()[i].iterations)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
    }(),
    true);

}  // namespace
