// Bad input at every database export, FIBEX and AUTOSAR in one table: one row per export names
// its pointer parameters and the names it looks up, and the checks are generated from it: without
// a database, each pointer null (without and with the example loaded) and each name unknown.
// Outputs a check does not allow to change must keep their sentinel, and the devices behind the
// by-name exports must receive only what the check says.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "dbapi_test_support.h"

using namespace kelo_dbapi_test;
using kelo_testing::commandsSent;

namespace {

constexpr std::uint8_t kSentinel = 0xA5;

// Every output a database export may write; sentinel-filled before each call.
struct Outputs {
    char name[128], list[64];
    unsigned char firstUse, payload[64], block[12], cluster[36], node[48], cc[5], info[4];
    unsigned char header[28], rxPayload[510];
    unsigned int length, total, count;
    float value;
    fnpt controller;
};
#define KELO_FIELD(f) \
    { #f, offsetof(Outputs, f), sizeof(Outputs::f) }
const struct Field {
    const char* name;
    std::size_t offset, size;
} kFields[] = {
    KELO_FIELD(name),    KELO_FIELD(firstUse),   KELO_FIELD(length),  KELO_FIELD(value),
    KELO_FIELD(payload), KELO_FIELD(block),      KELO_FIELD(cluster), KELO_FIELD(node),
    KELO_FIELD(cc),      KELO_FIELD(controller), KELO_FIELD(info),    KELO_FIELD(list),
    KELO_FIELD(total),   KELO_FIELD(count),      KELO_FIELD(header),  KELO_FIELD(rxPayload)};
#undef KELO_FIELD

// What the rows read: a header of a frame of the loaded database, a header of an empty slot, a
// payload, and the index of the device opened the ordinary way.
struct Known {
    std::array<unsigned char, 28> header{}, emptySlot = rxHeader(2047, 0);
    unsigned char payload[510] = {}, data[64] = {}, idx = 0;
    std::string frame;  // the frame at `header`
} known;

// Passes argument i through; null when it is the pointer a check nulls; a name the database does
// not hold (for a header: one of an empty slot) when it is the one a check makes unknown.
struct Arg {
    int nulled = -1, unknown = -1;
    template <typename T>
    T* operator()(int i, T* p) const {
        return i == nulled ? nullptr : p;
    }
    const char* operator()(int i, const char* p) const {
        return i == nulled ? nullptr : i == unknown ? "NoSuchName" : p;
    }
    const unsigned char* operator()(int i, const unsigned char* p) const {
        return i == nulled ? nullptr : i == unknown ? known.emptySlot.data() : p;
    }
};
using Call = std::function<int(const Format&, Outputs&, Arg)>;
#define KELO_CALL(...)                                                \
    []([[maybe_unused]] const Format& f, [[maybe_unused]] Outputs& o, \
       [[maybe_unused]] Arg n) -> int { return __VA_ARGS__; }

// A name (or header) an export looks up, made unknown: the answer and the outputs then written.
struct Unknown {
    const char* param;
    int code;
    const char* writes = "";
};

// An export: its pointer parameters in the order of the call's Arg indices (each null answers
// nullCode), the unknown names, its answer without a database, the outputs it may write then,
// and the command the device then receives (for an unknown name too).
struct Row {
    const char* step;  // the name after KFr_<format>_
    const char* params;
    Call call;
    std::vector<Unknown> unknown;
    int noDatabase = 9;
    const char* writes = "";
    int sends = 0;
    int nullCode = 5;
    const Format* only = nullptr;  // an export of this format alone
    int key = -1;  // a list's key: looked at after the list is cleared, and only with a database

    // A by-name device export: no database needed, and the device receives `command`.
    Row device(int command) const {
        Row r = *this;
        r.noDatabase = 0;
        r.sends = command;
        return r;
    }
    // Receive by name: copies the frame out first, then answers; each output is optional.
    Row receive() const {
        Row r = *this;
        r.writes = "header rxPayload";
        r.nullCode = 0;
        return r;
    }
    Row of(const Format& f) const {
        Row r = *this;
        r.only = &f;
        return r;
    }
};
template <typename... U>
Row query(const char* step, const char* params, Call call, U... unknown) {
    return {step, params, std::move(call), {unknown...}};
}
// An AUTOSAR list; a fourth parameter is its key.
Row list(const char* step, const char* params, Call call) {
    Row r{step, params, std::move(call), {}, 9, "list count"};
    r.only = &kAutosar;
    if (std::strchr(params, 'N')) r.unknown = {{std::strrchr(params, ' ') + 1, 22, "list count"}};
    if (std::strchr(params, 'N')) r.key = 3;
    return r;
}

// One call, its answer, the outputs it may write (a name written must read `name`), and the
// command the device receives.
struct Case {
    std::string what;
    int code;
    std::function<int(Outputs&)> call;
    const char* writes = "";
    int sends = 0;
    std::string name = "";
};

std::vector<std::string> words(const char* text) {
    std::istringstream in(text);
    std::vector<std::string> out;
    for (std::string word; in >> word;)
        out.push_back(word);
    return out;
}
#define KELO_LIST(query) \
    KELO_CALL(KFr_AutoSar_GetAll##query(n(0, o.list), 64, n(1, &o.total), n(2, &o.count)))
#define KELO_KEYED(query, key) \
    KELO_CALL(                 \
        KFr_AutoSar_GetAll##query(n(3, key), n(0, o.list), 64, n(1, &o.total), n(2, &o.count)))

// The header of a frame of the loaded database, const so that Arg can make it unknown.
const unsigned char* H() {
    return known.header.data();
}

// Every database export but the opens and closes. Transmit and staging by name need no
// database: they use the buffer remembered for the name (an unknown one is sent with buffer 0).
const Row kRows[] = {
    query("GetMaxNameLength", "length", KELO_CALL(f.maxNameLength(n(0, &o.length)))),
    query("GetFrameName", "rxHeader nameOut", KELO_CALL(f.frameName(n(0, H()), n(1, o.name))),
          Unknown{"rxHeader", 0, "name"}),
    query("GetFrameName_BySignalName", "signalName frameNameOut firstUse",
          KELO_CALL(f.frameBySignal(n(0, f.signal), n(1, o.name), n(2, &o.firstUse))),
          Unknown{"signalName", 14}),
    query("decodeSignal", "rxHeader payload signalName value",
          KELO_CALL(f.decode(n(0, H()), n(1, known.payload), n(2, f.signal), n(3, &o.value))),
          Unknown{"rxHeader", 17}, Unknown{"signalName", 16}),
    query("encodeSignal", "signalName payload",
          KELO_CALL(f.encode(n(0, f.signal), 1, n(1, o.payload), 8)), Unknown{"signalName", 14}),
    query("GetSlotParameter", "frameName block",
          KELO_CALL(f.slotParameter(n(0, f.frame), 0, 1, n(1, o.block))), Unknown{"frameName", 17}),
    // The cluster block and the controller block's bit rate are written before the ECU is
    // looked up.
    query("GetParameter", "clusterName ecuName clusterBlock nodeBlock ccBlock",
          KELO_CALL(
              f.parameter(n(0, f.cluster), n(1, f.ecu), n(2, o.cluster), n(3, o.node), n(4, o.cc))),
          Unknown{"clusterName", 5}, Unknown{"ecuName", 5, "cluster cc"}),
    query("GetControllerParameter", "ecuName node",
          KELO_CALL(f.controllerParameter(n(0, f.ecu), n(1, &o.controller))),
          Unknown{"ecuName", 5}),
    query("Set_Slot_Parameter_Wrapper", "frameName",
          KELO_CALL(f.setSlot(known.idx, 0, n(0, f.frame), 0, 1)), Unknown{"frameName", 17}),
    query("Transmit_Wrapper", "frameName data",
          KELO_CALL(f.transmit(known.idx, 0, n(0, "BadInputNeverConfigured"), n(1, known.data), 8)),
          Unknown{"frameName", 0})
        .device(kelo::kCmdTransmit),
    query("Receive_Wrapper", "headerOut payloadOut frameNameOut",
          KELO_CALL(f.receive(0, n(0, o.header), n(1, o.rxPayload), n(2, o.name), 5000)))
        .receive(),
    query("GetPDUinfo", "frameKey info",
          KELO_CALL(KFr_Fibex_GetPDUinfo(n(0, "FR_ENGINE_DATA"), 0, n(1, o.info))),
          Unknown{"frameKey", 5})
        .of(kFibex),
    query("FillData_beforeTransmit_MultiFrame_Wrapper", "frameName data",
          KELO_CALL(KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(
              known.idx, 0, n(0, "EngineData"), 5, n(1, known.data), 8)),
          Unknown{"frameName", 0})
        .device(0)
        .of(kFibex),
    list("GetAllClusterName", "buf total count", KELO_LIST(ClusterName)),
    list("GetAllECUName", "buf total count", KELO_LIST(ECUName)),
    list("GetAllFrameName_ByClusterName", "buf total count clusterName",
         KELO_KEYED(FrameName_ByClusterName, f.cluster)),
    list("GetAllFrameName_ByECUName", "buf total count ecuName",
         KELO_KEYED(FrameName_ByECUName, f.ecu)),
    list("GetAllSignalName_ByFrameName", "buf total count frameName",
         KELO_KEYED(SignalName_ByFrameName, f.frame)),
};

// The checks of one export of a format: each pointer null in turn; then, without a database, none
// null, or with the example loaded each name unknown in turn.
std::vector<Case> casesOf(const Format& f, const Row& row, bool loaded) {
    const std::string name = exportName(f, row.step) + ", ", where = loaded ? "" : ", no database";
    const auto params = words(row.params);
    const bool receive = row.nullCode == 0;
    auto call = [&f, &row](Arg a) {
        return [&f, &row, a](Outputs& o) { return row.call(f, o, a); };
    };
    const std::string frame = receive && loaded ? known.frame : "";
    std::vector<Case> cases;
    for (int i = 0; i < int(params.size()); ++i) {
        const bool writes = i == row.key || receive;  // the list cleared, the frame copied
        cases.push_back({name + params[i] + " null" + where,
                         writes && !loaded ? row.noDatabase : row.nullCode, call({i, -1}),
                         !writes             ? ""
                         : loaded && receive ? "header rxPayload name"
                                             : row.writes,
                         0, frame});
    }
    if (!loaded)
        cases.push_back({name + "no database", row.noDatabase, call({}), row.writes, row.sends});
    for (const Unknown& u : loaded ? row.unknown : std::vector<Unknown>{}) {
        const int at = int(std::find(params.begin(), params.end(), u.param) - params.begin());
        cases.push_back({name + "unknown " + u.param, u.code, call({-1, at}), u.writes, row.sends});
    }
    return cases;
}

// The rows of each format, in table order.
std::vector<std::pair<const Format*, const Row*>> allRows() {
    std::vector<std::pair<const Format*, const Row*>> rows;
    for (const Format* f : kFormats)
        for (const Row& row : kRows)
            if (row.only == nullptr || row.only == f) rows.push_back({f, &row});
    return rows;
}

// The devices behind the by-name exports, the one at entry 0 uploading.
class DatabaseBadInput : public DatabaseTest {
  protected:
    static void SetUpTestSuite() {
        devices_ = std::make_unique<ByNameDevices>();
        ready_ = devices_->ready && devices_->zero.dev->Fr_StartFrRxUpload(0) == 0;
        known.idx = static_cast<unsigned char>(devices_->opened.idx());
    }
    static void TearDownTestSuite() { devices_.reset(); }
    void SetUp() override {
        ASSERT_TRUE(ready_) << "an emulator and the two devices";
        TearDown();
    }
    static kelo::emu::DeviceEmulator& emu() { return devices_->opened.emu; }
    static kelo::emu::DeviceEmulator& zeroEmu() { return devices_->zero.emu; }

    // Opens a format's example and learns the header of its frame from the slot block.
    static void openExample(const Format& f) {
        ASSERT_EQ(f.open(f.example.c_str()), 0);
        unsigned char block[12] = {};
        ASSERT_EQ(f.slotParameter(f.frame, 0, 1, block), 0);
        known.header = rxHeader(static_cast<std::uint16_t>(block[2] | block[3] << 8), block[9]);
        known.frame = f.frame;
    }

    // One frame at the known header's slot and cycle, queued on the device of entry 0.
    static void queueFrameAtIndexZero() {
        kelo::emu::FlexRayEntry e;
        e.slot = static_cast<std::uint16_t>(known.header[16] | known.header[17] << 8);
        e.cycle = known.header[19];
        e.payload = {1, 2, 3, 4, 5, 6, 7, 8};
        zeroEmu().uploadFlexRay({e});
        ASSERT_TRUE(devices_->zero.sync());  // the upload is dispatched
        zeroEmu().clearReceived();
    }

    static void run(const Case& c) {
        SCOPED_TRACE(c.what);
        emu().clearReceived();
        zeroEmu().clearReceived();
        if (c.what.find("Receive_Wrapper") != std::string::npos) queueFrameAtIndexZero();
        Outputs o;
        std::memset(&o, kSentinel, sizeof o);
        EXPECT_EQ(c.call(o), c.code);
        const auto* bytes = reinterpret_cast<const unsigned char*>(&o);
        for (const Field& f : kFields) {
            const auto written = words(c.writes);
            if (std::find(written.begin(), written.end(), f.name) != written.end()) continue;
            for (std::size_t i = 0; i < f.size; ++i)
                if (bytes[f.offset + i] != kSentinel) {
                    ADD_FAILURE() << "output '" << f.name << "' written at byte " << i;
                    break;
                }
        }
        // What a written output holds: the frame queued at index 0, or an empty list.
        EXPECT_TRUE(o.header[0] == kSentinel || o.header[16] == known.header[16]);
        EXPECT_TRUE(o.rxPayload[0] == kSentinel ||
                    (kelo_testing::bytesOf(o.rxPayload, 4) == kelo_testing::Bytes{1, 2, 3, 4}));
        EXPECT_TRUE(static_cast<unsigned char>(o.name[0]) == kSentinel || o.name == c.name)
            << "name " << std::string(o.name, strnlen(o.name, sizeof o.name));
        if (static_cast<unsigned char>(o.list[0]) != kSentinel) {
            EXPECT_EQ(std::string(o.list, sizeof o.list), std::string(sizeof o.list, '\0'));
            EXPECT_EQ(o.count, 0u);
        }
        EXPECT_EQ(kelo_testing::codesOf(commandsSent(emu())),
                  c.sends ? std::vector<int>{c.sends} : std::vector<int>{});
        EXPECT_TRUE(commandsSent(zeroEmu()).empty()) << "the device of entry 0 was reached";
    }

    inline static std::unique_ptr<ByNameDevices> devices_;
    inline static bool ready_ = false;
};

// Without a database every query answers 9 and writes nothing but what the list queries clear
// first; transmit and staging by name go to the device; receive by name copies the frame and
// then answers 9. A null pointer answers 5 before the database is looked for, but a list's key.
// Then with each format's example loaded: each pointer null, each name unknown.
TEST_F(DatabaseBadInput, EveryExportWithoutADatabaseAndWithEachExample) {
    known.header = rxHeader(1, 0);
    for (const Format* loaded : {static_cast<const Format*>(nullptr), &kFibex, &kAutosar}) {
        if (loaded) {
            TearDown();
            openExample(*loaded);
        }
        for (const auto& [f, row] : allRows())
            if (loaded == nullptr || f == loaded)
                for (const Case& c : casesOf(*f, *row, loaded != nullptr))
                    run(c);
    }
}

// Every pointer parameter of every FIBEX and AUTOSAR export in the public header has its null
// check (the opens' path: the open rows below).
TEST_F(DatabaseBadInput, NullRowsCoverEveryPointerParameter) {
    std::ifstream in(KELO_PUBLIC_HEADER);
    std::stringstream text;
    text << in.rdbuf();
    const std::string header =
        std::regex_replace(text.str(), std::regex(R"(/\*[\s\S]*?\*/)"), std::string());
    static const std::regex declaration(R"(KELOCOMM_API\s+[^;(]*?\b(\w+)\s*\(([^)]*)\))");
    static const std::regex pointer(R"(\*\s*(\w+)\s*$)");
    std::set<std::string> checks;
    for (const auto& [f, row] : allRows())
        for (const Case& c : casesOf(*f, *row, true))
            checks.insert(c.what);
    int checked = 0;
    for (std::sregex_iterator it(header.begin(), header.end(), declaration), end; it != end; ++it) {
        const std::string name = (*it)[1];
        if ((name.find("Fibex") == std::string::npos &&
             name.find("AutoSar") == std::string::npos) ||
            name.find("_Open") != std::string::npos)
            continue;
        std::stringstream list((*it)[2].str());
        for (std::string p; std::getline(list, p, ',');) {
            std::smatch m;
            if (!std::regex_search(p, m, pointer)) continue;
            ++checked;
            EXPECT_EQ(checks.count(name + ", " + m[1].str() + " null"), 1u)
                << name << ": no check of a null '" << m[1] << "'";
        }
    }
    EXPECT_GT(checked, 60);
}

// The by-name device exports take the index as an unsigned byte and pass it on as a signed one:
// 255 is -1 and 128 is -128. Every one answers 6 and nothing is sent, not even to the device of
// entry 0. Receive by name takes entry 0 alone (not even the index of a device opened the
// ordinary way, which KFr_Receive_Wrapper takes: an export test) and passes the device's
// time-out (2) through.
TEST_F(DatabaseBadInput, ByNameDeviceExportsRejectBadIndices) {
    ASSERT_EQ(KFr_Fibex_Open(kFibexExample.c_str()), 0);
    ASSERT_EQ(KFr_AutoSar_Open(kAutosarExample.c_str()), 0);
    ASSERT_EQ(kelo::DeviceSlotTable[126].lib.load(), nullptr);
    const auto receive = [](const Format* f, int idx) {
        return [f, idx](Outputs& o) {
            return f->receive(static_cast<signed char>(idx), o.header, o.rxPayload, o.name, 20);
        };
    };
    for (const unsigned char bad : {0, 255, 127, 128, 126}) {
        const std::string at = " at index " + std::to_string(bad);
        const int rx = bad == 0 ? known.idx : bad;  // for receive 0 is the good one
        for (const Format* f : kFormats) {
            run({exportName(*f, "Set_Slot_Parameter_Wrapper") + at, 6,
                 [f, bad](Outputs&) { return f->setSlot(bad, 0, f->frame, 0, 1); }});
            run({exportName(*f, "Transmit_Wrapper") + at, 6,
                 [f, bad](Outputs&) { return f->transmit(bad, 0, f->frame, known.data, 8); }});
            run({std::string(f->name) + " receive by name at " + std::to_string(rx), 6,
                 receive(f, rx)});
        }
        run({"KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper" + at, 6, [bad](Outputs&) {
                 return KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(bad, 0, "EngineData",
                                                                             5, known.data, 8);
             }});
    }
    for (const Format* f : kFormats)
        run({std::string(f->name) + " receive by name, nothing uploaded", 2, receive(f, 0)});
}

// ---- the opens ---------------------------------------------------------------------------------

// Opens `path` on a thread of its own. An open still blocked after 10 s (reading a FIFO nobody
// writes) fails the row and is released by opening the FIFO for writing and closing it again,
// which gives the reader an end of file: the suite never hangs.
int openWithoutHanging(unsigned char (*open)(const char*), const char* path,
                       const std::string& fifo) {
    auto pending = std::async(std::launch::async, [open, path] { return int(open(path)); });
    if (pending.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        ADD_FAILURE() << "the open was still blocked after 10 s";
        const int fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
        if (fd >= 0) ::close(fd);
    }
    return pending.get();
}

// Each row runs with the example database of the format loaded: 9 (not an existing regular
// file) keeps it, 7 (read but not loadable) drops it (the last row, so the close answers 9). A
// real database under a name that is not UTF-8 is not found: the open reads the path as UTF-8.
TEST_F(DatabaseBadInput, OpensRefusePathsThatAreNotDatabases) {
    char pattern[] = "/tmp/kelo-bad-input-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    const std::string dir = pattern, fifo = dir + "/fifo.xml";
    auto file = [&dir](const std::string& name, const std::string& content) {
        std::ofstream(dir + "/" + name, std::ios::binary) << content;
        return dir + "/" + name;
    };
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const Format* f : kFormats) {
        SCOPED_TRACE(f->name);
        std::stringstream text;
        text << std::ifstream(f->example, std::ios::binary).rdbuf();
        const std::tuple<const char*, std::string, int> rows[] = {
            {"null path", "", 9},
            {"missing file", "/nonexistent/kelo/database.xml", 9},
            {"FIFO", fifo, 9},
            {"invalid UTF-8 name of a real database",
             file(std::string("real-\xff\xfe-") + f->name, text.str()), 9},
            {"malformed", f->malformed, 7},
            {"unsupported version", f->unsupported, 7}};
        for (const auto& [what, path, code] : rows) {
            SCOPED_TRACE(what);
            ASSERT_EQ(f->open(f->example.c_str()), 0);
            const bool null = what == std::string("null path");
            EXPECT_EQ(openWithoutHanging(f->open, null ? nullptr : path.c_str(), fifo), code);
            unsigned int length = 0;
            EXPECT_EQ(f->maxNameLength(&length), code == 9 ? 0 : 9)
                << "a refused path keeps the loaded database, an unloadable file drops it";
        }
        EXPECT_EQ(f->close(), 9);
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
}

}  // namespace
