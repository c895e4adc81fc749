// Bad input at every database export, FIBEX and AUTOSAR in one table: one row per export names
// its pointer parameters, and the checks are generated from it (without a database; each pointer
// null on the loaded example); further rows give unknown names and bad device indices. Outputs a
// row does not allow to change must keep their sentinel, and the device behind the by-name
// exports must receive only what the row says. Emulators: 127.0.2.20 (a device opened through
// KFr_Open_Wrapper) and 127.0.2.21 (a device object in entry 0, the only index the
// receive-by-name exports accept).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "CommunicationLib.h"
#include "dbapi_test_support.h"
#include "device/command_codes.h"
#include "emulator.h"
#include "exports/device_table.h"
#include "support/wire_bytes.h"

using namespace kelo_dbapi_test;
using kelo_testing::commandsSent;

namespace {

constexpr std::uint8_t kSentinel = 0xA5;

// Every output a database export may write; sentinel-filled before each row.
struct Outputs {
    char name[128];
    unsigned char firstUse;
    unsigned int length;
    float value;
    unsigned char payload[64];
    unsigned char block[12];
    unsigned char cluster[36];
    unsigned char node[48];
    unsigned char cc[5];
    fnpt controller;
    unsigned char info[4];
    char list[64];
    unsigned int total;
    unsigned int count;
    unsigned char header[28];
    unsigned char rxPayload[510];
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
    unsigned char payload[510] = {};
    unsigned char data[64] = {};
    unsigned char idx = 0;
    std::string frame;  // the frame at `header`
} known;

// Passes a pointer argument through, or null when it is the one the row nulls.
struct Nulling {
    int nulled;
    template <typename T>
    T* operator()(int i, T* p) const {
        return i == nulled ? nullptr : p;
    }
};
using Call = std::function<int(const Format&, Outputs&, Nulling)>;
#define KELO_CALL(...)                                                \
    []([[maybe_unused]] const Format& f, [[maybe_unused]] Outputs& o, \
       [[maybe_unused]] Nulling n) -> int { return __VA_ARGS__; }
#define KELO_CASE(...) [](Outputs& o) -> int { return __VA_ARGS__; }

// An export: its pointer parameters (each gets a "<name> null" row, answered by nullCode), its
// answer without a database, the outputs it may write then, and what the device then receives.
struct Row {
    const char* step;  // the name after KFr_<format>_
    const char* params;
    Call call;
    int noDatabase = 9;
    const char* writes = "";
    int sends = 0;
    int nullCode = 5;
    const Format* only = nullptr;  // an export of this format alone
};

// An explicit row: one call, its answer, the outputs it may write, what the device receives.
struct Case {
    std::string what;
    int code;
    std::function<int(Outputs&)> call;
    const char* writes = "";
    int sends = 0;
    std::function<void(const Outputs&)> check = [](const Outputs&) {};
};

bool listed(const char* names, const char* name) {
    std::istringstream in(names);
    for (std::string word; in >> word;)
        if (word == name) return true;
    return false;
}

// Written outputs of a receive by name hold the frame queued at index 0.
void receivedFrame(const Outputs& o) {
    if (o.header[0] != kSentinel) {
        EXPECT_EQ(o.header[16], known.header[16]);
    }
    if (o.rxPayload[0] != kSentinel) {
        EXPECT_EQ(kelo_testing::bytesOf(o.rxPayload, 4), (kelo_testing::Bytes{1, 2, 3, 4}));
    }
    if (static_cast<unsigned char>(o.name[0]) != kSentinel) {
        EXPECT_EQ(std::string(o.name), known.frame);
    }
}
void emptyList(const Outputs& o) {
    for (char c : o.list)
        ASSERT_EQ(c, 0) << "list not zero-filled";
    EXPECT_EQ(o.count, 0u);
}
const unsigned char* H() {
    return known.header.data();
}
const char* const kBy[] = {"FlexRayBackbone", "EngineControl", "Engine_Status_Frame"};

// Every database export but the opens and closes. Transmit and staging by name need no
// database: they use the buffer remembered for the name. Receive by name copies the frame out
// before it looks for the database; its outputs are each optional. The keyed lists' key is
// looked at once the database is there: its null rows are cases below.
const Row kRows[] = {
    {"GetMaxNameLength", "length", KELO_CALL(f.maxNameLength(n(0, &o.length)))},
    {"GetFrameName", "rxHeader nameOut", KELO_CALL(f.frameName(n(0, H()), n(1, o.name)))},
    {"GetFrameName_BySignalName", "signalName frameNameOut firstUse",
     KELO_CALL(f.frameBySignal(n(0, f.signal), n(1, o.name), n(2, &o.firstUse)))},
    {"decodeSignal", "rxHeader payload signalName value",
     KELO_CALL(f.decode(n(0, H()), n(1, known.payload), n(2, f.signal), n(3, &o.value)))},
    {"encodeSignal", "signalName payload",
     KELO_CALL(f.encode(n(0, f.signal), 1, n(1, o.payload), 8))},
    {"GetSlotParameter", "frameName block",
     KELO_CALL(f.slotParameter(n(0, f.frame), 0, 1, n(1, o.block)))},
    {"GetParameter", "clusterName ecuName clusterBlock nodeBlock ccBlock",
     KELO_CALL(
         f.parameter(n(0, f.cluster), n(1, f.ecu), n(2, o.cluster), n(3, o.node), n(4, o.cc)))},
    {"GetControllerParameter", "ecuName node",
     KELO_CALL(f.controllerParameter(n(0, f.ecu), n(1, &o.controller)))},
    {"Set_Slot_Parameter_Wrapper", "frameName",
     KELO_CALL(f.setSlot(known.idx, 0, n(0, f.frame), 0, 1))},
    {"Transmit_Wrapper", "frameName data",
     KELO_CALL(f.transmit(known.idx, 0, n(0, "BadInputNeverConfigured"), n(1, known.data), 8)), 0,
     "", kelo::kCmdTransmit},
    {"Receive_Wrapper", "headerOut payloadOut frameNameOut",
     KELO_CALL(f.receive(0, n(0, o.header), n(1, o.rxPayload), n(2, o.name), 5000)), 9,
     "header rxPayload", 0, 0},
    {"GetPDUinfo", "frameKey info",
     KELO_CALL(KFr_Fibex_GetPDUinfo(n(0, "FR_ENGINE_DATA"), 0, n(1, o.info))), 9, "", 0, 5,
     &kFibex},
    {"FillData_beforeTransmit_MultiFrame_Wrapper", "frameName data",
     KELO_CALL(KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(
         known.idx, 0, n(0, "EngineData"), 5, n(1, known.data), 8)),
     0, "", 0, 5, &kFibex},
    {"GetAllClusterName", "buf total count",
     KELO_CALL(KFr_AutoSar_GetAllClusterName(n(0, o.list), 64, n(1, &o.total), n(2, &o.count))), 9,
     "list count", 0, 5, &kAutosar},
    {"GetAllECUName", "buf total count",
     KELO_CALL(KFr_AutoSar_GetAllECUName(n(0, o.list), 64, n(1, &o.total), n(2, &o.count))), 9,
     "list count", 0, 5, &kAutosar},
    {"GetAllFrameName_ByClusterName", "buf total count",
     KELO_CALL(KFr_AutoSar_GetAllFrameName_ByClusterName(kBy[0], n(0, o.list), 64, n(1, &o.total),
                                                         n(2, &o.count))),
     9, "list count", 0, 5, &kAutosar},
    {"GetAllFrameName_ByECUName", "buf total count",
     KELO_CALL(KFr_AutoSar_GetAllFrameName_ByECUName(kBy[1], n(0, o.list), 64, n(1, &o.total),
                                                     n(2, &o.count))),
     9, "list count", 0, 5, &kAutosar},
    {"GetAllSignalName_ByFrameName", "buf total count",
     KELO_CALL(KFr_AutoSar_GetAllSignalName_ByFrameName(kBy[2], n(0, o.list), 64, n(1, &o.total),
                                                        n(2, &o.count))),
     9, "list count", 0, 5, &kAutosar},
};

// Unknown names and other refused values on the loaded example of a format.
std::vector<Case> unknownNameCases(const Format& f) {
    const Format* p = &f;
    auto name = [p](const char* step, const char* what) {
        return exportName(*p, step) + ", " + what;
    };
    return {
        {name("GetFrameName", "slot without a frame"), 0,
         [p](Outputs& o) { return p->frameName(known.emptySlot.data(), o.name); }, "name", 0,
         [](const Outputs& o) { EXPECT_STREQ(o.name, ""); }},
        {name("GetFrameName_BySignalName", "unknown signal"), 14,
         [p](Outputs& o) { return p->frameBySignal("NoSuchSignal", o.name, &o.firstUse); }},
        {name("decodeSignal", "unknown signal"), 16,
         [p](Outputs& o) { return p->decode(H(), known.payload, "NoSuchSignal", &o.value); }},
        {name("decodeSignal", "slot without a frame"), 17,
         [p](Outputs& o) {
             return p->decode(known.emptySlot.data(), known.payload, p->signal, &o.value);
         }},
        {name("encodeSignal", "unknown signal"), 14,
         [p](Outputs& o) { return p->encode("NoSuchSignal", 1.0f, o.payload, 8); }},
        {name("encodeSignal", "payload length 0"), 15,
         [p](Outputs& o) { return p->encode(p->signal, 1.0f, o.payload, 0); }},
        {name("GetSlotParameter", "unknown frame"), 17,
         [p](Outputs& o) { return p->slotParameter("NoSuchFrame", 0, 1, o.block); }},
        {name("GetParameter", "unknown cluster"), 5,
         [p](Outputs& o) {
             return p->parameter("NoSuchCluster", p->ecu, o.cluster, o.node, o.cc);
         }},
        // The cluster block and the controller block's bit rate are written before the ECU is
        // looked up.
        {name("GetParameter", "unknown ECU"), 5,
         [p](Outputs& o) { return p->parameter(p->cluster, "NoSuchEcu", o.cluster, o.node, o.cc); },
         "cluster cc"},
        {name("GetControllerParameter", "unknown ECU"), 5,
         [p](Outputs& o) { return p->controllerParameter("NoSuchEcu", &o.controller); }},
        {name("Set_Slot_Parameter_Wrapper", "unknown frame"), 17,
         [p](Outputs&) { return p->setSlot(known.idx, 0, "NoSuchFrame", 0, 1); }},
        // Sent with buffer 0, as a frame never configured.
        {name("Transmit_Wrapper", "unknown frame"), 0,
         [p](Outputs&) { return p->transmit(known.idx, 0, "NoSuchFrame", known.data, 8); }, "",
         kelo::kCmdTransmit},
    };
}

// The FIBEX-only and AUTOSAR-only exports' refused values (both examples loaded). The lists'
// unknown keys and empty buffers are rows of the list test (queries_test.cpp).
std::vector<Case> formatOnlyCases() {
    const std::string lists = "KFr_AutoSar_GetAll";
    return {
        {"KFr_Fibex_GetPDUinfo, unknown frame ID", 5,
         KELO_CASE(KFr_Fibex_GetPDUinfo("NO_SUCH_FRAME", 0, o.info))},
        {"KFr_Fibex_GetPDUinfo, index 1000", 5,
         KELO_CASE(KFr_Fibex_GetPDUinfo("FR_ENGINE_DATA", 1000, o.info))},
        // The index is compared signed: a negative one is below the PDU count and answers the
        // first PDU, as every index does.
        {"KFr_Fibex_GetPDUinfo, index -1", 0,
         KELO_CASE(KFr_Fibex_GetPDUinfo("FR_ENGINE_DATA", -1, o.info)), "info"},
        {"KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper, unknown frame", 0,
         [](Outputs&) {
             return KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(
                 known.idx, 0, "NoSuchFrame", 5, known.data, 8);
         }},
        {lists + "FrameName_ByClusterName, clusterName null", 5,
         KELO_CASE(
             KFr_AutoSar_GetAllFrameName_ByClusterName(nullptr, o.list, 64, &o.total, &o.count)),
         "list count", 0, emptyList},
        {lists + "FrameName_ByECUName, ecuName null", 5,
         KELO_CASE(KFr_AutoSar_GetAllFrameName_ByECUName(nullptr, o.list, 64, &o.total, &o.count)),
         "list count", 0, emptyList},
        {lists + "SignalName_ByFrameName, frameName null", 5,
         KELO_CASE(
             KFr_AutoSar_GetAllSignalName_ByFrameName(nullptr, o.list, 64, &o.total, &o.count)),
         "list count", 0, emptyList},
    };
}

// The exports' full names with the format each belongs to.
std::vector<std::pair<const Format*, const Row*>> allRows() {
    std::vector<std::pair<const Format*, const Row*>> rows;
    for (const Format* f : kFormats)
        for (const Row& row : kRows)
            if (row.only == nullptr || row.only == f) rows.push_back({f, &row});
    return rows;
}

class DatabaseBadInput : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        emu_ = new kelo::emu::DeviceEmulator("127.0.2.20");
        zeroEmu_ = new kelo::emu::DeviceEmulator("127.0.2.21");
        if (!emu_->start() || !zeroEmu_->start()) return;
        const signed char idx = KFr_Open_Wrapper(emu_->address().c_str());
        if (idx <= 0) return;
        known.idx = static_cast<unsigned char>(idx);
        if (kelo::DeviceSlotTable[0].lib.load() != nullptr) return;
        zero_ = GetKeLoComm();
        if (zero_->Fr_Open(zeroEmu_->address().c_str()) != 0 || zero_->Fr_StartFrRxUpload(0) != 0)
            return;
        kelo::DeviceSlotTable[0].lib.store(zero_);
        ready_ = true;
    }
    static void TearDownTestSuite() {
        if (kelo::DeviceSlotTable[0].lib.load() == zero_)
            kelo::DeviceSlotTable[0].lib.store(nullptr);
        if (zero_) zero_->Fr_Close();
        delete zero_;
        zero_ = nullptr;
        if (known.idx) KFr_Close_Wrapper(static_cast<signed char>(known.idx));
        known.idx = 0;
        delete emu_;
        delete zeroEmu_;
        emu_ = zeroEmu_ = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(ready_) << "emulators on 127.0.2.20/21 and the two devices";
        TearDown();
    }
    void TearDown() override {
        KFr_Fibex_Close();
        KFr_AutoSar_Close();
    }

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
        zeroEmu_->uploadFlexRay({e});
        unsigned char state = 0, sub = 0;
        ASSERT_EQ(zero_->Fr_GetFrNodeState(0, &state, &sub), 0);  // the upload is dispatched
        zeroEmu_->clearReceived();
    }

    static void run(const Case& c) {
        SCOPED_TRACE(c.what);
        emu_->clearReceived();
        zeroEmu_->clearReceived();
        if (c.what.find("Receive_Wrapper") != std::string::npos) queueFrameAtIndexZero();
        Outputs o;
        std::memset(&o, kSentinel, sizeof o);
        EXPECT_EQ(c.call(o), c.code);
        const auto* bytes = reinterpret_cast<const unsigned char*>(&o);
        for (const Field& f : kFields) {
            if (listed(c.writes, f.name)) continue;
            for (std::size_t i = 0; i < f.size; ++i)
                if (bytes[f.offset + i] != kSentinel) {
                    ADD_FAILURE() << "output '" << f.name << "' written at byte " << i;
                    break;
                }
        }
        c.check(o);
        EXPECT_EQ(kelo_testing::codesOf(commandsSent(*emu_)),
                  c.sends ? std::vector<int>{c.sends} : std::vector<int>{});
        EXPECT_TRUE(commandsSent(*zeroEmu_).empty()) << "the device of entry 0 was reached";
    }

    static kelo::emu::DeviceEmulator* emu_;
    static kelo::emu::DeviceEmulator* zeroEmu_;
    static CommunicationLib* zero_;
    static bool ready_;
};
kelo::emu::DeviceEmulator* DatabaseBadInput::emu_ = nullptr;
kelo::emu::DeviceEmulator* DatabaseBadInput::zeroEmu_ = nullptr;
CommunicationLib* DatabaseBadInput::zero_ = nullptr;
bool DatabaseBadInput::ready_ = false;

// Without a database every query answers 9 and writes nothing but what the list queries clear
// first; transmit and staging by name go to the device; receive by name copies the frame and
// then answers 9. A null argument answers 5 before the database is looked for, except the key of
// a keyed list, looked at only once the database is there.
TEST_F(DatabaseBadInput, EveryExportAnswersWithoutADatabase) {
    known.header = rxHeader(1, 0);
    for (const auto& [f, row] : allRows()) {
        const bool receive = std::strstr(row->step, "Receive") != nullptr;
        run({exportName(*f, row->step) + ", no database", row->noDatabase,
             [f = f, row = row](Outputs& o) { return row->call(*f, o, Nulling{-1}); }, row->writes,
             row->sends,
             receive                 ? receivedFrame
             : row->writes[0] == 'l' ? emptyList
                                     : +[](const Outputs&) {}});
    }
    run({"KFr_Fibex_Close, no database", 9, KELO_CASE((void)o, KFr_Fibex_Close())});
    run({"KFr_AutoSar_Close, no database", 9, KELO_CASE((void)o, KFr_AutoSar_Close())});
    run({"KFr_Fibex_GetMaxNameLength, length null, no database", 5,
         KELO_CASE((void)o, KFr_Fibex_GetMaxNameLength(nullptr))});
    run({"KFr_AutoSar_GetSlotParameter, block null, no database", 5,
         KELO_CASE((void)o, KFr_AutoSar_GetSlotParameter("Engine_Status_Frame", 0, 1, nullptr))});
    run({"KFr_AutoSar_GetAllFrameName_ByECUName, ecuName null, no database", 9,
         KELO_CASE(KFr_AutoSar_GetAllFrameName_ByECUName(nullptr, o.list, 64, &o.total, &o.count)),
         "list count", 0, emptyList});
}

// Each pointer parameter null, and unknown names, on each format's loaded example.
TEST_F(DatabaseBadInput, NullArgumentsAndUnknownNames) {
    for (const Format* format : kFormats) {
        TearDown();
        openExample(*format);
        for (const auto& [f, row] : allRows()) {
            if (f != format) continue;
            std::istringstream params(row->params);
            int i = 0;
            for (std::string param; params >> param; ++i)
                run({exportName(*f, row->step) + ", " + param + " null", row->nullCode,
                     [f = f, row = row, i](Outputs& o) { return row->call(*f, o, Nulling{i}); },
                     row->nullCode == 0 ? "header rxPayload name" : "", 0, receivedFrame});
        }
        for (const Case& c : unknownNameCases(*format))
            run(c);
    }
    openExample(kFibex);
    ASSERT_EQ(KFr_AutoSar_Open(kAutosarExample.c_str()), 0);
    for (const Case& c : formatOnlyCases())
        run(c);
}

// Every pointer parameter of every FIBEX and AUTOSAR export in the public header has its null
// row (the opens' path: the open rows below).
TEST_F(DatabaseBadInput, NullRowsCoverEveryPointerParameter) {
    std::ifstream in(KELO_PUBLIC_HEADER);
    std::stringstream text;
    text << in.rdbuf();
    const std::string header =
        std::regex_replace(text.str(), std::regex(R"(/\*[\s\S]*?\*/)"), std::string());
    static const std::regex declaration(R"(KELOCOMM_API\s+[^;(]*?\b(\w+)\s*\(([^)]*)\))");
    static const std::regex pointer(R"(\*\s*(\w+)\s*$)");
    std::set<std::string> rows;
    for (const auto& [f, row] : allRows()) {
        std::istringstream params(row->params);
        for (std::string param; params >> param;)
            rows.insert(exportName(*f, row->step) + ", " + param + " null");
    }
    for (const Case& c : formatOnlyCases())
        rows.insert(c.what);
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
            EXPECT_EQ(rows.count(name + ", " + m[1].str() + " null"), 1u)
                << name << ": no row for a null '" << m[1] << "'";
        }
    }
    EXPECT_GT(checked, 60);
}

// The by-name device exports take the index as an unsigned byte and pass it on as a signed one:
// 255 is -1 and 128 is -128. Every one answers 6 and nothing is sent, neither to the open device
// nor to the device of entry 0 (which only the receive exports accept).
TEST_F(DatabaseBadInput, ByNameDeviceExportsRejectBadIndices) {
    ASSERT_EQ(KFr_Fibex_Open(kFibexExample.c_str()), 0);
    ASSERT_EQ(KFr_AutoSar_Open(kAutosarExample.c_str()), 0);
    ASSERT_EQ(kelo::DeviceSlotTable[126].lib.load(), nullptr);
    for (const unsigned char bad : {0, 255, 127, 128, 126}) {
        for (const Format* f : kFormats) {
            const std::string at = " at index " + std::to_string(bad);
            run({exportName(*f, "Set_Slot_Parameter_Wrapper") + at, 6,
                 [f, bad](Outputs&) { return f->setSlot(bad, 0, f->frame, 0, 1); }});
            run({exportName(*f, "Transmit_Wrapper") + at, 6,
                 [f, bad](Outputs&) { return f->transmit(bad, 0, f->frame, known.data, 8); }});
        }
        run({"KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper", 6, [bad](Outputs&) {
                 return KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(bad, 0, "EngineData",
                                                                             5, known.data, 8);
             }});
    }
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
// file) keeps it, 7 (read but not loadable) drops it.
TEST_F(DatabaseBadInput, OpensRefusePathsThatAreNotDatabases) {
    char pattern[] = "/tmp/kelo-bad-input-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    const std::string dir = pattern;
    auto file = [&dir](const std::string& name, const std::string& content) {
        std::ofstream(dir + "/" + name, std::ios::binary) << content;
        return dir + "/" + name;
    };
    const std::string fifo = dir + "/fifo.xml";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::string binary(4096, '\0');
    for (std::size_t i = 0; i < binary.size(); ++i)
        binary[i] = static_cast<char>((i * 2654435761u) >> 13);
    const std::string binaryFile = file("binary.xml", binary), emptyFile = file("empty.xml", "");
    const std::string longName = dir + "/" + std::string(10000, 'n');
    const std::string badUtf8Missing = dir + "/no-such-\xff\xfe.xml";
    for (const Format* f : kFormats) {
        SCOPED_TRACE(f->name);
        // A real database under a name that is not UTF-8: the open reads the path as UTF-8 (the
        // locale codec it sets), so the name it looks for is not this one.
        std::stringstream text;
        text << std::ifstream(f->example, std::ios::binary).rdbuf();
        const std::string badUtf8Real = file(std::string("real-\xff\xfe-") + f->name, text.str());
        const std::string& other = f == &kFibex ? kAutosarExample : kFibexExample;
        const struct {
            const char* what;
            const char* path;
            int code;
        } rows[] = {
            {"null path", nullptr, 9},
            {"missing file", "/nonexistent/kelo/database.xml", 9},
            {"empty path", "", 9},
            {"directory", dir.c_str(), 9},
            {"FIFO", fifo.c_str(), 9},
            {"empty file", emptyFile.c_str(), 7},
            {"binary file", binaryFile.c_str(), 7},
            {"malformed", f->malformed.c_str(), 7},
            {"unsupported version", f->unsupported.c_str(), 7},
            {"name of 10,000 characters", longName.c_str(), 9},
            {"invalid UTF-8, no such file", badUtf8Missing.c_str(), 9},
            {"invalid UTF-8 name of a real database", badUtf8Real.c_str(), 9},
            {"database of the other format", other.c_str(), 7},
        };
        for (const auto& row : rows) {
            SCOPED_TRACE(row.what);
            ASSERT_EQ(f->open(f->example.c_str()), 0);
            EXPECT_EQ(openWithoutHanging(f->open, row.path, fifo), row.code);
            unsigned int length = 0;
            EXPECT_EQ(f->maxNameLength(&length), row.code == 9 ? 0 : 9)
                << "a refused path keeps the loaded database, an unloadable file drops it";
        }
        EXPECT_EQ(f->close(), 9);
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
}

}  // namespace
