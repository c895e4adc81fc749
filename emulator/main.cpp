// kelo-emulator: runs the device emulator as a program until SIGINT or SIGTERM.
//
//   kelo-emulator [--address 127.0.0.N] [--cycle-ms MS] [--can-traffic PERIOD_MS]
//
// Prints one line once it serves on <address>:5055; exits 1 when the address cannot be bound,
// 2 on a bad command line.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "emulator.h"

#ifndef _WIN32
#include <pthread.h>
#else
#include <atomic>

#include "platform/platform.h"
#endif

namespace {

// Identifier and length of the generated CAN frames (--can-traffic).
constexpr std::uint32_t kTrafficIdentifier = 0x100;
constexpr std::uint8_t kTrafficLength = 8;

void usage(FILE* out) {
    std::fprintf(out,
                 "usage: kelo-emulator [--address 127.0.0.N] [--cycle-ms MS] "
                 "[--can-traffic PERIOD_MS]\n"
                 "  --address      IPv4 address to serve on port 5055 (default 127.0.0.1)\n"
                 "  --cycle-ms     FlexRay cycle period in ms (default 5)\n"
                 "  --can-traffic  upload a CAN frame (id 0x100, 8 bytes) every PERIOD_MS while\n"
                 "                 the CAN channel is started (default off)\n");
}

// Whole non-negative number up to `max`; false for anything else.
bool parseNumber(const char* text, unsigned long max, unsigned& out) {
    if (!text || !*text) return false;
    char* end = nullptr;
    const unsigned long v = std::strtoul(text, &end, 10);
    if (*end != '\0' || text[0] == '-' || v > max) return false;
    out = static_cast<unsigned>(v);
    return true;
}

#ifdef _WIN32
std::atomic<bool> g_quit{false};
void onSignal(int) {
    g_quit.store(true);
}
#endif

}  // namespace

int main(int argc, char** argv) {
    std::string address = "127.0.0.1";
    unsigned cycleMs = 5;
    unsigned canPeriodMs = 0;
    // Every option but --help takes a value: the loop steps over option and value together.
    for (int i = 1; i < argc; i += 2) {
        const char* arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        bool ok = true;
        if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
            usage(stdout);
            return 0;
        } else if (std::strcmp(arg, "--address") == 0 && value) {
            address = value;
        } else if (std::strcmp(arg, "--cycle-ms") == 0) {
            ok = parseNumber(value, 60000, cycleMs) && cycleMs > 0;
        } else if (std::strcmp(arg, "--can-traffic") == 0) {
            ok = parseNumber(value, 60000, canPeriodMs);
        } else {
            ok = false;
        }
        if (!ok) {
            std::fprintf(stderr, "kelo-emulator: bad argument '%s'\n", arg);
            usage(stderr);
            return 2;
        }
    }

#ifndef _WIN32
    // Block the signals before any thread starts so that only sigwait below receives them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
#endif

    kelo::emu::DeviceEmulator emulator(address);
    emulator.setCyclePeriodMs(cycleMs);
    if (canPeriodMs != 0) emulator.setCanTraffic(canPeriodMs, kTrafficIdentifier, kTrafficLength);
    if (!emulator.start()) {
        std::fprintf(stderr, "kelo-emulator: cannot bind %s:%u\n", address.c_str(),
                     static_cast<unsigned>(kelo::emu::DeviceEmulator::kPort));
        return 1;
    }
    std::printf("kelo-emulator: serving on %s:%u (cycle %u ms, CAN traffic %s)\n", address.c_str(),
                static_cast<unsigned>(kelo::emu::DeviceEmulator::kPort), cycleMs,
                canPeriodMs ? (std::to_string(canPeriodMs) + " ms").c_str() : "off");
    std::fflush(stdout);

#ifndef _WIN32
    int received = 0;
    sigwait(&signals, &received);
#else
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    while (!g_quit.load())
        kelo::sleepMs(100);
#endif
    emulator.stop();
    return 0;
}
