// The command line of kelo-emulator: its options as a struct, parsed with CLI11, and their
// application to a DeviceEmulator. Tests parse a command line in-process the same way.
// Every option with an example: docs/emulator.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "emulator.h"

namespace kelo {
namespace emu {

struct Options {
    struct Can {  // --can ID:PERIOD_MS[:DLC]
        std::uint32_t identifier = 0;
        unsigned periodMs = 0;
        std::uint8_t length = 8;
    };
    struct Refuse {  // --refuse CODE[:STATUS]
        std::uint8_t command = 0;
        std::uint8_t status = 1;
    };
    struct Drop {  // --drop CODE[:N]
        std::uint8_t command = 0;
        int times = -1;  // always
    };
    struct Delay {  // --delay CODE:MS
        std::uint8_t command = 0;
        unsigned ms = 0;
    };

    std::string address = "127.0.0.1";
    unsigned cycleMs = 5;
    bool cycleMsGiven = false;      // --cycle-ms was given: it overrides a database's cycle time
    std::string database;           // --database FILE: the restbus
    std::string cluster;            // --cluster NAME (empty: the first)
    std::vector<std::string> ecus;  // --ecu NAME... (empty: every sender)
    std::vector<Can> can;
    std::vector<Refuse> refuse;
    std::vector<Drop> drop;
    std::vector<Delay> delay;
    int corruptCrc = 0;           // replies whose header CRC is corrupted
    std::size_t split = 0;        // 0: datagrams whole
    bool duplicate = false;       // every datagram twice
    std::uint64_t floodRate = 0;  // FlexRay records per second while uploads are on; 0: off
    int verbosity = 0;            // -v 1, -vv 2
    bool keepState = false;       // no reset when another client shows up
};

// Exit codes of kelo-emulator for a bad command line and for a database it cannot play.
inline constexpr int kExitBadCommandLine = 2;
inline constexpr int kExitBadDatabase = 3;

// Parses argv into `options`. Returns -1 when the program is to run, 0 after --help (printed to
// `out`), kExitBadCommandLine after one error line on `err`.
int parseOptions(int argc, const char* const* argv, Options& options, std::ostream& out,
                 std::ostream& err);

// Applies everything but the address to `emulator` (before or after it started): the restbus,
// cycle period, generated CAN frames, fault plan, flood, the clean-device rule, and the traffic
// log, whose lines go to `log` when verbosity is above 0. Returns "" or why the database cannot
// be played.
std::string applyOptions(const Options& options, DeviceEmulator& emulator,
                         std::function<void(const std::string&)> log);

}  // namespace emu
}  // namespace kelo
