// Signal codec through the exports, by signal name, on Frame20 of
// tests/data/fibex/dbapi-queries.xml (20 signals, both byte orders, LINEAR/IDENTICAL/TEXTTABLE
// codings): one decode, one encode, and a decode of every signal of a received frame. Target: 200
// ns per call or less. The AUTOSAR pair is measured on Engine_Status_Frame of the example system
// description (examples/chassis-flexray-4.2.arxml).
#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <vector>

#include "KeLoComm.h"

namespace {

const char* const kSignals[] = {
    "Sig01_Speed",   "Sig02_Rpm",     "Sig03_Temp",    "Sig04_Gear",     "Sig05_Flag",
    "Sig06_Torque",  "Sig07_Angle",   "Sig08_Odo",     "Sig09_Pressure", "Sig10_Mode",
    "Sig11_Level",   "Sig12_Current", "Sig13_Voltage", "Sig14_Status",   "Sig15_Valid",
    "Sig16_Counter", "Sig17_Big",     "Sig18_Wide",    "Sig19_Slope",    "Sig20_Ratio",
};

struct Database {
    Database() {
        const std::string path = std::string(KELO_TEST_DATA_DIR) + "/fibex/dbapi-queries.xml";
        ok = KFr_Fibex_Open(path.c_str()) == 0;
        header[16] = 10;  // Frame20: slot 10, every cycle
        header[19] = 3;
        header[20] = 24;
        for (const char* s : kSignals)
            KFr_Fibex_encodeSignal(s, 3.0f, payload.data(), 48);
    }
    bool ok = false;
    std::array<unsigned char, 28> header{};
    std::vector<unsigned char> payload = std::vector<unsigned char>(510, 0);
};

Database& db() {
    static Database d;
    return d;
}

void BM_DecodeByName(benchmark::State& state) {
    Database& d = db();
    if (!d.ok) state.SkipWithError("database not loaded");
    const char* name = kSignals[state.range(0)];
    float value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            KFr_Fibex_decodeSignal(d.header.data(), d.payload.data(), name, &value));
        benchmark::DoNotOptimize(value);
    }
    state.SetLabel(name);
}
BENCHMARK(BM_DecodeByName)->Arg(0)->Arg(9)->Arg(19);

void BM_EncodeByName(benchmark::State& state) {
    Database& d = db();
    if (!d.ok) state.SkipWithError("database not loaded");
    const char* name = kSignals[state.range(0)];
    std::vector<unsigned char> payload(48, 0);
    float value = 1.0f;
    for (auto _ : state) {
        benchmark::DoNotOptimize(KFr_Fibex_encodeSignal(name, value, payload.data(), 48));
        benchmark::ClobberMemory();
    }
    state.SetLabel(name);
}
BENCHMARK(BM_EncodeByName)->Arg(0)->Arg(9)->Arg(19);

// Every signal of a received frame, as an application does for each record it takes.
void BM_DecodeWholeFrame(benchmark::State& state) {
    Database& d = db();
    if (!d.ok) state.SkipWithError("database not loaded");
    float value = 0;
    for (auto _ : state) {
        for (const char* s : kSignals) {
            benchmark::DoNotOptimize(
                KFr_Fibex_decodeSignal(d.header.data(), d.payload.data(), s, &value));
        }
        benchmark::DoNotOptimize(value);
    }
    state.counters["ns_per_signal"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * 20,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_DecodeWholeFrame);

// The AUTOSAR exports on the example system description.
const char* const kAutosarSignals[] = {"EngineSpeed", "EngineSpeed_UB", "EngineTemp", "ThrottlePos",
                                       "EngineAlive"};

struct AutosarDatabase {
    AutosarDatabase() {
        const std::string path =
            std::string(KELO_TEST_DATA_DIR) + "/../../examples/chassis-flexray-4.2.arxml";
        ok = KFr_AutoSar_Open(path.c_str()) == 0;
        header[16] = 1;  // Engine_Status_Frame: slot 1, every cycle
        header[19] = 5;
        header[20] = 4;
        for (const char* s : kAutosarSignals)
            KFr_AutoSar_encodeSignal(s, 1.0f, payload.data(), 8);
    }
    bool ok = false;
    std::array<unsigned char, 28> header{};
    std::vector<unsigned char> payload = std::vector<unsigned char>(510, 0);
};

AutosarDatabase& autosarDb() {
    static AutosarDatabase d;
    return d;
}

void BM_AutosarDecodeByName(benchmark::State& state) {
    AutosarDatabase& d = autosarDb();
    if (!d.ok) state.SkipWithError("database not loaded");
    const char* name = kAutosarSignals[state.range(0)];
    float value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            KFr_AutoSar_decodeSignal(d.header.data(), d.payload.data(), name, &value));
        benchmark::DoNotOptimize(value);
    }
    state.SetLabel(name);
}
BENCHMARK(BM_AutosarDecodeByName)->Arg(0)->Arg(4);

void BM_AutosarEncodeByName(benchmark::State& state) {
    AutosarDatabase& d = autosarDb();
    if (!d.ok) state.SkipWithError("database not loaded");
    const char* name = kAutosarSignals[state.range(0)];
    std::vector<unsigned char> payload(8, 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(KFr_AutoSar_encodeSignal(name, 1.0f, payload.data(), 8));
        benchmark::ClobberMemory();
    }
    state.SetLabel(name);
}
BENCHMARK(BM_AutosarEncodeByName)->Arg(0)->Arg(4);

}  // namespace
