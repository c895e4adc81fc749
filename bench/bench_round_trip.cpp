// Command round trip through the device object and the emulator, beside a raw UDP ping-pong on
// the same loopback: the raw figure is the floor the protocol stack is compared with.
#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <thread>

#include "device/KeLoCommLib.h"
#include "emulator.h"
#include "platform/platform.h"

namespace {

// Echo peer: answers every datagram with the same bytes from its own thread.
class EchoPeer {
  public:
    explicit EchoPeer(std::uint32_t address) {
        socket_.open();
        socket_.setReceiveTimeout(1000);
        socket_.bind(address, 5055);
        thread_ = std::thread([this] {
            std::uint8_t buffer[1500];
            while (running_.load()) {
                std::uint32_t from = 0;
                std::uint16_t port = 0;
                int n = socket_.receive(buffer, sizeof buffer, &from, &port);
                if (n > 0) socket_.sendTo(from, port, buffer, static_cast<std::size_t>(n));
            }
        });
    }
    ~EchoPeer() {
        running_.store(false);
        socket_.interrupt();
        thread_.join();
    }

  private:
    kelo::UdpSocket socket_;
    std::atomic<bool> running_{true};
    std::thread thread_;
};

void BM_RawUdpPingPong(benchmark::State& state) {
    const std::uint32_t peerAddress = kelo::parseIPv4("127.0.0.200");
    EchoPeer peer(peerAddress);
    kelo::UdpSocket host;
    host.open();
    host.setReceiveTimeout(1000);
    // The same frame size as a one-byte command: 8 header bytes, 1 payload byte, 2 CRC bytes.
    std::uint8_t out[11] = {0xAA}, in[1500];
    for (auto _ : state) {
        host.sendTo(peerAddress, 5055, out, sizeof out);
        if (host.receive(in, sizeof in) <= 0) state.SkipWithError("echo lost");
    }
}
BENCHMARK(BM_RawUdpPingPong)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly(true);

void BM_CommandRoundTrip(benchmark::State& state) {
    kelo::emu::DeviceEmulator emulator("127.0.0.201");
    if (!emulator.start()) {
        state.SkipWithError("emulator did not start");
        return;
    }
    std::unique_ptr<CommunicationLib> device(GetKeLoComm());
    if (device->Fr_Open("127.0.0.201") != 0) {
        state.SkipWithError("open failed");
        return;
    }
    for (auto _ : state) {
        if (device->Fr_Configure_Node(0) != 0) state.SkipWithError("command failed");
    }
    device->Fr_Close();
}
BENCHMARK(BM_CommandRoundTrip)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace
