// kelo-emulator's command line: parsed in-process, applied to an emulator on a free loopback
// address, and checked through a real client (faults, generated CAN frames, flood, the clean
// device per client, the traffic log).
#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <regex>
#include <sstream>

#include "options.h"
#include "support/device_harness.h"

namespace kelo_testing {
namespace {

using kelo::emu::Options;

int parse(std::vector<const char*> args, Options& o, std::string* error = nullptr) {
    args.insert(args.begin(), "kelo-emulator");
    std::ostringstream out, err;
    const int code = kelo::emu::parseOptions(int(args.size()), args.data(), o, out, err);
    if (error) *error = err.str();
    return code;
}

// A command line applied to the emulator of an opened link; log lines are collected.
struct AppliedLink : Link {
    explicit AppliedLink(std::vector<const char*> args, Bus bus = Bus::FlexRay) {
        Options o;
        EXPECT_EQ(parse(args, o), -1);
        EXPECT_TRUE(open(bus));
        kelo::emu::applyOptions(o, emu, [this](const std::string& line) {
            std::lock_guard<std::mutex> g(lock);
            lines.push_back(line);
        });
    }
    ~AppliedLink() { emu.setTrafficLog(0, nullptr); }
    std::vector<std::string> log() {
        std::lock_guard<std::mutex> g(lock);
        return lines;
    }
    std::mutex lock;
    std::vector<std::string> lines;
};

TEST(EmulatorCommandLine, ValuesAndErrors) {
    const struct {
        std::vector<const char*> args;
        int exit;
    } rows[] = {
        {{"--help"}, 0},
        {{"--bogus"}, 2},
        {{"extra"}, 2},
        {{"--cycle-ms", "0"}, 2},
        {{"--address", "not-an-address"}, 2},
        {{"--can", "0x123"}, 2},
        {{"--can", "0x20000000:5"}, 2},
        {{"--can", "0x123:5:65"}, 2},
        {{"--refuse", "NoSuchCommand"}, 2},
        {{"--refuse", "107:256"}, 2},
        {{"--drop", "107:0"}, 2},
        {{"--delay", "107"}, 2},
        {{"--corrupt-crc", "0"}, 2},
        {{"--split", "0"}, 2},
        {{"--flood", "x"}, 2},
        {{"--database", "/no/such/file.xml"}, 2},
        {{"--ecu", "Gateway"}, 2},  // needs --database
    };
    for (const auto& row : rows) {
        Options o;
        std::string err;
        EXPECT_EQ(parse(row.args, o, &err), row.exit) << row.args[0];
        if (row.exit == 2) {
            EXPECT_TRUE(std::regex_match(err, std::regex("kelo-emulator: .+\n"))) << err;
        }
    }
    Options o;
    ASSERT_EQ(parse({"--can", "0x123:10", "--can", "2048:5:3", "--can-traffic", "20", "--refuse",
                     "configurenode:7", "--drop", "StartNode", "--delay", "113:40", "-vv"},
                    o),
              -1);
    ASSERT_EQ(o.can.size(), 3u);
    EXPECT_EQ(o.can[0].identifier, 0x123u);
    EXPECT_EQ(o.can[0].length, 8);
    EXPECT_EQ(o.can[1].identifier, 2048u);
    EXPECT_EQ(o.can[1].length, 3);
    EXPECT_EQ(o.can[2].identifier, 0x100u);
    EXPECT_EQ(o.can[2].periodMs, 20u);
    EXPECT_EQ(o.refuse.at(0).command, 107);
    EXPECT_EQ(o.refuse.at(0).status, 7);
    EXPECT_EQ(o.drop.at(0).command, 108);
    EXPECT_EQ(o.drop.at(0).times, -1);
    EXPECT_EQ(o.delay.at(0).ms, 40u);
    EXPECT_EQ(o.verbosity, 2);

    // A database the restbus cannot play (exit code 3 in the program), then one it can: the
    // database's cycle time unless --cycle-ms is given.
    const std::string data = KELO_TEST_DATA_DIR;
    const std::string malformed = data + "/fibex/malformed.xml";
    const std::string example = data + "/../../examples/powertrain-flexray.xml";
    kelo::emu::DeviceEmulator emu("127.0.0.1");
    ASSERT_EQ(parse({"--database", malformed.c_str()}, o), -1);
    EXPECT_NE(kelo::emu::applyOptions(o, emu, nullptr), "");
    ASSERT_EQ(parse({"--database", example.c_str(), "--ecu", "NoSuchEcu"}, o), -1);
    EXPECT_NE(kelo::emu::applyOptions(o, emu, nullptr).find("NoSuchEcu"), std::string::npos);
    ASSERT_EQ(parse({"--database", example.c_str(), "--cycle-ms", "9"}, o), -1);
    EXPECT_EQ(kelo::emu::applyOptions(o, emu, nullptr), "");
    EXPECT_EQ(emu.cyclePeriodMs(), 9u);
}

// Each fault option against a client: what the client sees of it, then the link still works.
struct FaultRow {
    std::vector<const char*> args;
    std::function<void(AppliedLink&)> check;
};

void runFaultRows(const std::vector<FaultRow>& rows) {
    for (const FaultRow& row : rows) {
        SCOPED_TRACE(row.args[0]);
        AppliedLink link(row.args);
        row.check(link);
        unsigned char info[kelo::kDeviceInfoSize];
        EXPECT_EQ(link.dev->GetDeviceInfo(info), 0);
    }
}

TEST(EmulatorFaultOptions, ThroughClient) {
    runFaultRows({
        {{"--refuse", "ConfigureNode:9"},
         [](AppliedLink& l) {
             EXPECT_EQ(l.dev->Fr_Configure_Node(1), 1);
             EXPECT_EQ(l.dev->Fr_Configure_Node(1), 1);
         }},
        {{"--delay", "107:300"},
         [](AppliedLink& l) {
             Stopwatch watch;
             EXPECT_EQ(l.dev->Fr_Configure_Node(1), 0);
             EXPECT_GE(watch.ms(), 250);
         }},
        {{"--split", "7"}, [](AppliedLink& l) { EXPECT_EQ(l.dev->Fr_Configure_Node(1), 0); }},
        {{"--duplicate"},
         [](AppliedLink& l) {
             EXPECT_EQ(l.dev->Fr_StartFrRxUpload(0), 0);
             l.emu.uploadFlexRay({flexRayEntry(7, {1, 2})});
             EXPECT_TRUE(l.sync());
             EXPECT_EQ(l.dev->Fr_framesAvailable(), 2u);
         }},
        {{"--flood", "5000"},
         [](AppliedLink& l) {
             ASSERT_EQ(l.dev->Fr_StartFrRxUpload(0), 0);
             std::array<std::uint8_t, kelo::kFrRecordSize> r;
             for (std::uint32_t i = 0; i < 100; ++i) {
                 ASSERT_EQ(l.dev->Fr_Receive(r.data(), 5000), 0);
                 EXPECT_EQ(rd32(&r[kelo::kFrRecordPayloadOffset]), i);
             }
             ASSERT_EQ(l.dev->Fr_StopFrRxUpload(0), 0);
             const std::uint64_t sent = l.emu.floodSent();
             EXPECT_TRUE(l.sync());
             EXPECT_EQ(l.emu.floodSent(), sent) << "no records while uploads are off";
             EXPECT_EQ(100 + l.dev->Fr_framesAvailable(), sent);
         }},
    });
}

// Lost replies wait out the client's time-out.
TEST(EmulatorFaultOptionsSlow, LostRepliesTimeOut) {
    const auto lostOnce = [](AppliedLink& l) {
        EXPECT_EQ(l.dev->Fr_Configure_Node(1), 2);
        EXPECT_EQ(l.dev->Fr_Configure_Node(1), 0);
    };
    runFaultRows({{{"--drop", "107:1"}, lostOnce}, {{"--corrupt-crc", "1"}, lostOnce}});
}

// Generated CAN frames: per identifier, data byte i of frame k is k + i; extended identifiers
// come with frame type 1.
TEST(EmulatorCanOption, CountingFramesStandardAndExtended) {
    AppliedLink link({"--can", "0x123:5", "--can", "0x1ABCDE:7:3"}, Bus::Can);
    ASSERT_EQ(link.dev->CAN_Start(1), 0);
    std::map<std::uint32_t, int> frames;
    std::array<std::uint8_t, kelo::kCanRecordSize> r;
    while (frames[0x123] < 3 || frames[0x1ABCDE] < 3) {
        ASSERT_EQ(link.dev->CAN_Receive(r.data(), 5000), 0);
        const std::uint32_t id = rd32(&r[16]);
        ASSERT_TRUE(id == 0x123 || id == 0x1ABCDE) << id;
        EXPECT_EQ(r[20], id > 0x7FF ? 1 : 0);
        EXPECT_EQ(r[23], id > 0x7FF ? 3 : 8);
        const int k = frames[id]++;
        for (int i = 0; i < r[23]; ++i)
            EXPECT_EQ(r[kelo::kCanRecordDataOffset + i], k + i);
    }
}

// A second client finds the device as new unless --keep-state.
TEST(EmulatorCleanDevice, SecondClient) {
    for (const bool keep : {false, true}) {
        SCOPED_TRACE(keep ? "--keep-state" : "default");
        EmulatorHost host;
        Options o;
        ASSERT_EQ(
            parse(keep ? std::vector<const char*>{"--keep-state"} : std::vector<const char*>{}, o),
            -1);
        kelo::emu::applyOptions(o, host.emu, nullptr);
        KeLoCommLib first, second;
        ASSERT_EQ(first.Fr_Open(host.addr()), 0);
        unsigned char slot[14] = {0, 255, 0, 5, 0, 0, 2, 0, 1, 1, 0, 1};
        ASSERT_EQ(first.Fr_Set_Slot_Parameter(slot), 0);
        ASSERT_EQ(first.Fr_Start_Node(0), 0);
        ASSERT_EQ(first.Fr_StartFrRxUpload(0), 0);
        ASSERT_EQ(second.Fr_Open(host.addr()), 0);
        EXPECT_EQ(host.emu.nodeStarted(), keep);
        EXPECT_EQ(host.emu.uploadsOn(), keep);
        const auto buffers = host.emu.slotBuffers();
        EXPECT_EQ(std::any_of(buffers.begin(), buffers.end(), [](auto& b) { return b.configured; }),
                  keep);
        second.Fr_Close();
        first.Fr_Close();
    }
}

// -v: a line per command and reply; -vv also a line per upload frame.
TEST(EmulatorLogOption, Lines) {
    for (const char* level : {"-v", "-vv"}) {
        SCOPED_TRACE(level);
        AppliedLink link({level});
        ASSERT_EQ(link.dev->Fr_Configure_Node(1), 0);
        link.emu.uploadFlexRay({flexRayEntry(7, {1, 2})});
        ASSERT_TRUE(link.sync());
        std::map<std::string, int> seen;
        const std::regex line(R"( *\d+\.\d{3} (rx|tx|up) +(\d+) (\w+) .*)");
        for (const std::string& l : link.log()) {
            std::smatch m;
            ASSERT_TRUE(std::regex_match(l, m, line)) << l;
            ++seen[m[1].str() + " " + m[2].str() + " " + m[3].str()];
        }
        EXPECT_EQ(seen["rx 107 ConfigureNode"], 1);
        EXPECT_EQ(seen["tx 107 ConfigureNode"], 1);
        EXPECT_EQ(seen["up 115 UploadFlexRay"], std::string(level) == "-vv" ? 1 : 0);
    }
}

}  // namespace
}  // namespace kelo_testing
