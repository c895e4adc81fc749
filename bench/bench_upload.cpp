// Upload throughput: the emulator floods FlexRay uploads and a consumer drains Fr_Receive.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#include "device/KeLoCommLib.h"
#include "emulator.h"
#include "platform/platform.h"

namespace {

struct OpenDevice {
    kelo::emu::DeviceEmulator emulator;
    std::unique_ptr<CommunicationLib> device{GetKeLoComm()};
    bool ok = false;

    explicit OpenDevice(const char* address) : emulator(address) {
        ok =
            emulator.start() && device->Fr_Open(address) == 0 && device->Fr_StartFrRxUpload(0) == 0;
    }
    ~OpenDevice() { device->Fr_Close(); }
};

std::uint32_t counterOf(const unsigned char* record) {
    std::uint32_t value;
    std::memcpy(&value, record, 4);
    return value;
}

// Records per second through the whole receive path (emulator socket → parser → dispatcher →
// queue → Fr_Receive), with the emulator sending as fast as it can.
void BM_UploadDrainFlood(benchmark::State& state) {
    OpenDevice link("127.0.0.202");
    if (!link.ok) {
        state.SkipWithError("open failed");
        return;
    }
    const std::uint64_t perRun = static_cast<std::uint64_t>(state.range(0));
    std::uint64_t received = 0;
    unsigned char record[280];
    for (auto _ : state) {
        link.emulator.startFlood(perRun, 1000000000ull, 8);
        std::uint64_t got = 0;
        while (got < perRun && link.device->Fr_Receive(record, 200) == 0)
            ++got;
        link.emulator.waitFlood(5000);
        received += got;
        // Whatever the host could not take (socket buffer overrun) shows up as a shortfall.
        state.counters["lost"] = benchmark::Counter(static_cast<double>(perRun - got),
                                                    benchmark::Counter::kAvgIterations);
        link.device->Fr_ClearRcvBuffer(0);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(received));
}
BENCHMARK(BM_UploadDrainFlood)
    ->Arg(200000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

// Records per second taken out of a filled queue: the consumer side alone.
void BM_FrReceiveFromFullQueue(benchmark::State& state) {
    OpenDevice link("127.0.0.203");
    if (!link.ok) {
        state.SkipWithError("open failed");
        return;
    }
    unsigned char record[280];
    std::uint64_t taken = 0;
    for (auto _ : state) {
        state.PauseTiming();
        link.emulator.startFlood(100000, 1000000000ull, 8);
        link.emulator.waitFlood(10000);
        // Let the receive thread finish queueing what the emulator sent.
        unsigned settled = ~0u;
        while (link.device->Fr_framesAvailable() != settled) {
            settled = link.device->Fr_framesAvailable();
            kelo::sleepMs(20);
        }
        const unsigned available = link.device->Fr_framesAvailable();
        state.ResumeTiming();
        for (unsigned i = 0; i < available; ++i) {
            if (link.device->Fr_Receive(record, 0) != 0) break;
            ++taken;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(taken));
}
BENCHMARK(BM_FrReceiveFromFullQueue)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(5);

// No loss at a steady 100,000 records/s: the counter in entry bytes 0-3 must arrive complete and
// in order.
void BM_UploadSteady100k(benchmark::State& state) {
    OpenDevice link("127.0.0.204");
    if (!link.ok) {
        state.SkipWithError("open failed");
        return;
    }
    const std::uint64_t perRun = 100000;  // one second at 100,000 records/s
    unsigned char record[280];
    std::uint64_t lost = 0, outOfOrder = 0, received = 0;
    for (auto _ : state) {
        link.emulator.startFlood(perRun, 100000, 8);
        std::uint64_t got = 0;
        std::uint32_t expected = 0;
        bool first = true;
        while (got < perRun && link.device->Fr_Receive(record, 500) == 0) {
            const std::uint32_t counter = counterOf(record);
            if (!first && counter != expected) ++outOfOrder;
            expected = counter + 1;
            first = false;
            ++got;
        }
        link.emulator.waitFlood(5000);
        lost += perRun - got;
        received += got;
    }
    state.counters["lost"] = static_cast<double>(lost);
    state.counters["out_of_order"] = static_cast<double>(outOfOrder);
    state.SetItemsProcessed(static_cast<std::int64_t>(received));
}
BENCHMARK(BM_UploadSteady100k)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
