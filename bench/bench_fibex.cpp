// FIBEX database load against a bare XML parse of the same file, for files of about 1, 20 and
// 100 MiB written by the FIBEX generator (tools/fibex_generator.h) into a temporary directory
// once per run. Timing and memory readings as described in load_bench_support.h.
//
// Per size, two benchmarks run back to back:
//   BM_FibexBareParse/<n>MB  pugi::xml_document::load_file (default options) of the file.
//   BM_FibexLoad/<n>MB       a fresh BusDatabase filled by FibexReader::ReadFIBEXData.
// Building and destroying the database and the document are not timed. Counters:
//   file_mb               file size in MiB (bytes_per_second gives the throughput)
//   ratio_to_bare_parse   load time / bare parse time of the same file in the same run
//                         (target: <= 2)
//   cpu_ratio_to_bare_parse  the same with the thread's CPU time
//   rss_over_file         resident memory added by one loaded database that is kept alive, over
//                         the file size; it includes the DOM that the reader keeps after loading
//                         (target: <= 4)
//   kept_dom_rss_over_file  the reader's document alone (same parser options as the reader)
//   peak_rss_over_file    peak resident growth during that load, over the file size
//   dom_rss_over_file     (bare parse) a default-options pugixml document, over the file size
#include <memory>
#include <string>
#include <vector>

#include <QString>

#include "fibex/bus_database.h"
#include "fibex/fibex_reader.h"
#include "fibex_generator.h"
#include "load_bench_support.h"
#include "xml/xml_access.h"

namespace {

using namespace kelo::bench;
using kelo::fibex::BusDatabase;
using kelo::fibex::FibexReader;

constexpr std::uint64_t kSeed = 1;

// The largest file is loaded only twice.
GeneratedFiles<kelo::gen::FibexStats> gFiles(
    "fibex", ".xml", {{1, 50}, {20, 4}, {100, 2}},
    [](int megabytes, const std::string& path, kelo::gen::FibexStats* stats, std::string* error) {
        return kelo::gen::writeFibexFile(kelo::gen::optionsForSize(megabytes, 10, kSeed), path,
                                         stats, error);
    });

// Mean bare parse times per file, as measured by the bare benchmark of this run.
std::vector<Elapsed> gBare(gFiles.sizes().size());

std::string labelOf(const kelo::gen::FibexStats& s) {
    return std::to_string(s.frames) + " frames, " + std::to_string(s.pdus) + " PDUs, " +
           std::to_string(s.signals) + " signals, " + std::to_string(s.codings) + " codings";
}

void BM_FibexBareParse(benchmark::State& state, int index) {
    const auto* file = gFiles.get(index);
    if (!file) return state.SkipWithError(gFiles.error().c_str());
    runBareParse(state, file->path, file->bytes, gBare[index]);
    state.SetLabel(labelOf(file->stats));
}

void BM_FibexLoad(benchmark::State& state, int index) {
    const auto* file = gFiles.get(index);
    if (!file) return state.SkipWithError(gFiles.error().c_str());
    ensureBareParse(file->path, gBare[index]);
    runLoad(state, file->bytes, gBare[index], "ReadFIBEXData did not load the generated file",
            [&](auto&& time) {
                auto db = std::make_unique<BusDatabase>();
                auto reader = std::make_unique<FibexReader>(*db);
                time([&] { reader->ReadFIBEXData(file->path); });
                benchmark::DoNotOptimize(db->signals.size());
                return db->loaded;
            });

    // Memory of one loaded database, kept alive while it is measured (with its reader, which
    // keeps the parsed document), and the peak on the way.
    const double bytes = static_cast<double>(file->bytes);
    releaseFreedMemory();
    const bool peakKnown = resetPeak();
    const double peakBase = statusBytes("VmRSS");
    const double kept = rssGrowthOver(bytes, [&](auto&& measure) {
        BusDatabase db;
        FibexReader reader(db);
        reader.ReadFIBEXData(file->path);
        measure();
        benchmark::DoNotOptimize(db.loaded);
    });
    const double peak = statusBytes("VmHWM");
    if (kept >= 0) state.counters["rss_over_file"] = kept;
    if (peakKnown && peakBase >= 0 && peak >= 0)
        state.counters["peak_rss_over_file"] = (peak - peakBase) / bytes;
    // The reader's document on its own, parsed the way the reader parses it.
    const double dom = rssGrowthOver(bytes, [&](auto&& measure) {
        kelo::xml::Document document;
        document.loadFile(QString::fromStdString(file->path));
        measure();
    });
    if (dom >= 0) state.counters["kept_dom_rss_over_file"] = dom;
    state.SetLabel(labelOf(file->stats));
}

[[maybe_unused]] const bool gRegistered =
    (registerLoadPairs(gFiles.sizes(), "BM_FibexBareParse", BM_FibexBareParse, "BM_FibexLoad",
                       BM_FibexLoad),
     true);

}  // namespace
