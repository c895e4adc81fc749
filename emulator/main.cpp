// kelo-emulator: runs the device emulator as a program until SIGINT or SIGTERM. Options
// (options.h, docs/emulator.md): address, cycle period, generated CAN frames, faults, flood,
// traffic log, and whether a new client finds a clean device.
//
// Prints one line once it serves on <address>:5055; exits 1 when the address cannot be bound,
// 2 on a bad command line.
#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>

#include "emulator.h"
#include "options.h"

#ifndef _WIN32
#include <pthread.h>
#else
#include <atomic>

#include "platform/platform.h"
#endif

namespace {

#ifdef _WIN32
std::atomic<bool> g_quit{false};
void onSignal(int) {
    g_quit.store(true);
}
#endif

// One traffic log line on stdout, flushed at once so that a pipe sees it as it happens.
void printLine(const std::string& line) {
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    kelo::emu::Options options;
    const int exitCode = kelo::emu::parseOptions(argc, argv, options, std::cout, std::cerr);
    if (exitCode >= 0) return exitCode;

#ifndef _WIN32
    // Block the signals before any thread starts so that only sigwait below receives them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
#endif

    kelo::emu::DeviceEmulator emulator(options.address);
    const std::string error = kelo::emu::applyOptions(options, emulator, printLine);
    if (!error.empty()) {
        std::fprintf(stderr, "kelo-emulator: %s\n", error.c_str());
        return kelo::emu::kExitBadDatabase;
    }
    if (!emulator.start()) {
        std::fprintf(stderr, "kelo-emulator: cannot bind %s:%u\n", options.address.c_str(),
                     static_cast<unsigned>(kelo::emu::DeviceEmulator::kPort));
        return 1;
    }
    std::printf(
        "kelo-emulator: serving on %s:%u (cycle %u ms, %s, %zu generated CAN frame(s), "
        "%s)\n",
        options.address.c_str(), static_cast<unsigned>(kelo::emu::DeviceEmulator::kPort),
        emulator.cyclePeriodMs(),
        options.database.empty() ? "no restbus" : ("restbus " + options.database).c_str(),
        options.can.size(),
        options.keepState ? "state kept between clients" : "clean device per client");
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
