#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ostream>
#include <sstream>

#include "device/protocol_table.h"
#include "platform/platform.h"

namespace kelo {
namespace emu {

namespace {

// Payload words of each flood record; the record counter sits in payload bytes 0-3.
constexpr std::uint8_t kFloodWords = 8;
// The frame of the older --can-traffic PERIOD_MS.
constexpr std::uint32_t kLegacyCanIdentifier = 0x100;

struct BadValue {
    std::string message;
};

std::vector<std::string> splitColons(const std::string& text) {
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(text);
    while (std::getline(in, part, ':'))
        parts.push_back(part);
    if (!text.empty() && text.back() == ':') parts.emplace_back();
    return parts;
}

// Decimal, or hexadecimal with 0x; at most `max`.
std::uint64_t number(const std::string& text, std::uint64_t max, const char* what,
                     bool hexAllowed = false) {
    const bool hex =
        hexAllowed && text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    const auto isDigit = [hex](char c) {
        return hex ? std::isxdigit(static_cast<unsigned char>(c)) != 0
                   : std::isdigit(static_cast<unsigned char>(c)) != 0;
    };
    if (digits.empty() || digits.size() > 16 || !std::all_of(digits.begin(), digits.end(), isDigit))
        throw BadValue{std::string(what) + " '" + text + "' is not a number"};
    const std::uint64_t v = std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
    if (v > max)
        throw BadValue{std::string(what) + " '" + text + "' is above " + std::to_string(max)};
    return v;
}

// A command code (0-255) or a command name, any case.
std::uint8_t command(const std::string& text) {
    if (!text.empty() && std::isdigit(static_cast<unsigned char>(text[0])))
        return static_cast<std::uint8_t>(number(text, 255, "command code"));
    for (int code = 0; code < 256; ++code) {
        const char* name = commandName(static_cast<std::uint8_t>(code));
        if (!name || text.size() != std::char_traits<char>::length(name)) continue;
        if (std::equal(text.begin(), text.end(), name, [](char a, char b) {
                return std::tolower(static_cast<unsigned char>(a)) ==
                       std::tolower(static_cast<unsigned char>(b));
            }))
            return static_cast<std::uint8_t>(code);
    }
    throw BadValue{"unknown command '" + text + "' (a code 0-255 or a name such as ConfigureNode)"};
}

// Splits `text` into `min`..`max` colon-separated fields.
std::vector<std::string> fields(const std::string& text, std::size_t min, std::size_t max,
                                const char* form) {
    std::vector<std::string> parts = splitColons(text);
    if (parts.size() < min || parts.size() > max)
        throw BadValue{"'" + text + "' does not read as " + form};
    return parts;
}

Options::Can canOption(const std::string& text) {
    const auto f = fields(text, 2, 3, "ID:PERIOD_MS[:DLC]");
    Options::Can c;
    c.identifier = static_cast<std::uint32_t>(number(f[0], 0x1FFFFFFF, "identifier", true));
    c.periodMs = static_cast<unsigned>(number(f[1], 60000, "period"));
    if (c.periodMs == 0) throw BadValue{"period of '" + text + "' is 0"};
    if (f.size() == 3) c.length = static_cast<std::uint8_t>(number(f[2], kCanMaxData, "DLC"));
    return c;
}

Options::Refuse refuseOption(const std::string& text) {
    const auto f = fields(text, 1, 2, "CODE[:STATUS]");
    Options::Refuse r;
    r.command = command(f[0]);
    if (f.size() == 2) r.status = static_cast<std::uint8_t>(number(f[1], 255, "status"));
    return r;
}

Options::Drop dropOption(const std::string& text) {
    const auto f = fields(text, 1, 2, "CODE[:N]");
    Options::Drop d;
    d.command = command(f[0]);
    if (f.size() == 2) d.times = static_cast<int>(number(f[1], 1000000, "count"));
    if (d.times == 0) throw BadValue{"count of '" + text + "' is 0"};
    return d;
}

Options::Delay delayOption(const std::string& text) {
    const auto f = fields(text, 2, 2, "CODE:MS");
    return {command(f[0]), static_cast<unsigned>(number(f[1], 600000, "delay"))};
}

template <typename T, typename Convert>
void convertAll(const char* option, const std::vector<std::string>& texts, std::vector<T>& out,
                Convert&& convert) {
    for (const std::string& text : texts) {
        try {
            out.push_back(convert(text));
        } catch (const BadValue& e) {
            throw BadValue{std::string(option) + ": " + e.message};
        }
    }
}

}  // namespace

int parseOptions(int argc, const char* const* argv, Options& options, std::ostream& out,
                 std::ostream& err) {
    CLI::App app{
        "kelo-emulator: the bus-interface device on <address>:5055, until SIGINT or "
        "SIGTERM. Exit codes: 0, 1 address cannot be bound, 2 bad command line, 3 database "
        "cannot be played.",
        "kelo-emulator"};
    app.footer(
        "CODE: a command code (decimal) or its name, any case (ConfigureNode, StartNode, ...).\n"
        "ID: 0x-prefixed hexadecimal or decimal; above 0x7FF an extended identifier.\n"
        "Every option with an example: docs/emulator.md.");
    Options o;
    std::vector<std::string> can, refuse, drop, delay;
    unsigned legacyCanPeriod = 0;
    app.add_option("--address", o.address, "IPv4 address to serve on port 5055")
        ->capture_default_str();
    app.add_option("--cycle-ms", o.cycleMs, "FlexRay cycle period in ms")
        ->check(CLI::Range(1u, 60000u))
        ->capture_default_str();
    app.add_option("--database", o.database,
                   "play the frames the other ECUs of a FIBEX or AUTOSAR database send (restbus)")
        ->check(CLI::ExistingFile)
        ->type_name("FILE");
    app.add_option("--cluster", o.cluster, "the database's cluster to play (default: the first)")
        ->type_name("NAME");
    app.add_option("--ecu", o.ecus,
                   "the ECUs to simulate (default: every ECU that sends a frame); repeatable")
        ->type_name("NAME...");
    app.add_option("--can", can,
                   "generate a CAN frame every PERIOD_MS while the channel is started, DLC data "
                   "bytes (default 8) counting up from frame to frame; repeatable")
        ->type_name("ID:PERIOD_MS[:DLC]");
    app.add_option("--can-traffic", legacyCanPeriod,
                   "older form of --can 0x100:PERIOD_MS:8 (0: off)")
        ->check(CLI::Range(0u, 60000u))
        ->type_name("PERIOD_MS");
    app.add_option("--refuse", refuse, "answer command CODE with STATUS (default 1), not run it")
        ->type_name("CODE[:STATUS]");
    app.add_option("--drop", drop, "run command CODE but drop its reply, N times (default always)")
        ->type_name("CODE[:N]");
    app.add_option("--delay", delay, "send the reply to command CODE MS ms late")
        ->type_name("CODE:MS");
    app.add_option("--corrupt-crc", o.corruptCrc,
                   "corrupt the header CRC of the next N replies, whatever their command")
        ->check(CLI::Range(1, 1000000))
        ->type_name("N");
    app.add_option("--split", o.split, "cut every datagram into pieces of at most BYTES")
        ->check(CLI::Range(std::size_t{1}, std::size_t{65535}))
        ->type_name("BYTES");
    app.add_flag("--duplicate", o.duplicate, "send every datagram twice");
    app.add_option("--flood", o.floodRate,
                   "send RATE FlexRay records per second while uploads are on")
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{10000000}))
        ->type_name("RATE");
    app.add_flag("-v,--verbose", o.verbosity,
                 "log every command and reply to stdout; -vv also every upload frame");
    app.add_flag("--keep-state", o.keepState,
                 "keep what a client configured when the next client shows up");

    try {
        app.parse(argc, argv);
        o.cycleMsGiven = app.count("--cycle-ms") != 0;
        if (o.database.empty() && (!o.cluster.empty() || !o.ecus.empty()))
            throw BadValue{"--cluster and --ecu need --database"};
        if (parseIPv4(o.address.c_str()) == 0xFFFFFFFFu)
            throw BadValue{"--address: '" + o.address + "' is not an IPv4 address"};
        convertAll("--can", can, o.can, canOption);
        convertAll("--refuse", refuse, o.refuse, refuseOption);
        convertAll("--drop", drop, o.drop, dropOption);
        convertAll("--delay", delay, o.delay, delayOption);
        if (legacyCanPeriod != 0) o.can.push_back({kLegacyCanIdentifier, legacyCanPeriod, 8});
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e, out, err);  // --help
        err << "kelo-emulator: " << e.what() << " (--help lists the options)" << std::endl;
        return kExitBadCommandLine;
    } catch (const BadValue& e) {
        err << "kelo-emulator: " << e.message << std::endl;
        return kExitBadCommandLine;
    }
    options = o;
    return -1;
}

std::string applyOptions(const Options& o, DeviceEmulator& emulator,
                         std::function<void(const std::string&)> log) {
    // Without a database the default period is the emulator's own (5 ms, as cycleMs says).
    if (o.cycleMsGiven || o.database.empty()) emulator.setCyclePeriodMs(o.cycleMs);
    std::string error;
    if (!o.database.empty() && !emulator.loadRestbus(o.database, o.cluster, o.ecus, &error))
        return o.database + ": " + error;
    emulator.setResetOnNewClient(!o.keepState);
    for (const Options::Can& c : o.can)
        emulator.addCanTraffic(c.periodMs, c.identifier, c.length);
    for (const Options::Refuse& r : o.refuse)
        emulator.refuse(r.command, r.status);
    for (const Options::Drop& d : o.drop)
        emulator.drop(d.command, d.times);
    for (const Options::Delay& d : o.delay)
        emulator.delay(d.command, d.ms);
    if (o.corruptCrc > 0) emulator.corruptReplyHeaderCrc(o.corruptCrc);
    if (o.split != 0) emulator.splitDatagrams(o.split);
    if (o.duplicate) emulator.duplicateDatagrams(true);
    if (o.floodRate != 0) emulator.startUploadFlood(o.floodRate, kFloodWords);
    if (o.verbosity > 0) emulator.setTrafficLog(std::min(o.verbosity, 2), std::move(log));
    return std::string();
}

}  // namespace emu
}  // namespace kelo
