// Bad input at every database export, FIBEX and AUTOSAR: every export before any database is
// open, the opens with paths that are not databases, null pointers and unknown names on the
// example databases, and bad device indices at the by-name device exports. Each row names the
// status the caller gets; outputs a row does not allow to change must keep their sentinel, and
// the device behind the by-name exports must receive only what the row says.
// Emulators: 127.0.2.20 (a device opened through KFr_Open_Wrapper) and 127.0.2.21 (a device
// object in entry 0, the only index the receive-by-name exports accept).
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
#include <memory>
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

const std::string kExamples = std::string(KELO_TEST_DATA_DIR) + "/../../examples/";
const std::string kFibexFile = kExamples + "powertrain-flexray.xml";
const std::string kAutosarFile = kExamples + "chassis-flexray-4.2.arxml";

constexpr std::uint8_t kSentinel = 0xA5;
constexpr unsigned char kIndexNeverOpened = 126;

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

struct Field {
    const char* name;
    std::size_t offset;
    std::size_t size;
};
#define KELO_FIELD(f)                                \
    Field {                                          \
#f, offsetof(Outputs, f), sizeof(Outputs::f) \
    }
const Field kFields[] = {
    KELO_FIELD(name),    KELO_FIELD(firstUse),   KELO_FIELD(length),  KELO_FIELD(value),
    KELO_FIELD(payload), KELO_FIELD(block),      KELO_FIELD(cluster), KELO_FIELD(node),
    KELO_FIELD(cc),      KELO_FIELD(controller), KELO_FIELD(info),    KELO_FIELD(list),
    KELO_FIELD(total),   KELO_FIELD(count),      KELO_FIELD(header),  KELO_FIELD(rxPayload),
};
#undef KELO_FIELD

// What the rows read: a header and payload of a frame of the loaded database, and the indices
// of the two devices.
struct Known {
    std::array<unsigned char, 28> header{};  // the example frame's slot and base cycle
    std::array<unsigned char, 28> emptySlot{};
    unsigned char payload[510] = {};
    unsigned char data[64] = {};
    unsigned char idx = 0;  // the device opened through KFr_Open_Wrapper
} known;

struct Row {
    const char* exportName;
    std::string input;  // what is bad about the call ("<parameter> null" for a null pointer)
    int code;           // what the caller gets
    std::function<int(Outputs&)> call;
    const char* mayChange = "";  // outputs the call may write (space-separated field names)
    int sends = 0;               // the command the device behind the index receives (0: none)
    std::function<void(const Outputs&)> check = [](const Outputs&) {};
};

bool listed(const char* names, const char* name) {
    std::istringstream in(names);
    std::string word;
    while (in >> word)
        if (word == name) return true;
    return false;
}

// The two devices, set up once for the whole suite.
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
        if (zero_) {
            zero_->Fr_Close();
            delete zero_;
            zero_ = nullptr;
        }
        if (known.idx) KFr_Close_Wrapper(static_cast<signed char>(known.idx));
        known.idx = 0;
        delete emu_;
        delete zeroEmu_;
        emu_ = zeroEmu_ = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(ready_) << "emulators on 127.0.2.20/21 and the two devices";
        KFr_Fibex_Close();
        KFr_AutoSar_Close();
    }
    void TearDown() override {
        KFr_Fibex_Close();
        KFr_AutoSar_Close();
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

    // The known header for a frame of the loaded database, from its slot block.
    static void learnFrame(unsigned char (*slotQuery)(const char*, unsigned char, unsigned char,
                                                      unsigned char*),
                           const char* frame) {
        unsigned char block[12] = {};
        ASSERT_EQ(slotQuery(frame, 0, 1, block), 0) << frame;
        known.header =
            rxHeader(static_cast<std::uint16_t>(block[2] | block[3] << 8), block[9], block[5]);
        known.emptySlot = rxHeader(2047, 0);
    }

    static void runRows(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.exportName + (", " + row.input));
            emu_->clearReceived();
            zeroEmu_->clearReceived();
            Outputs o;
            std::memset(&o, kSentinel, sizeof o);

            EXPECT_EQ(row.call(o), row.code);

            const auto* bytes = reinterpret_cast<const unsigned char*>(&o);
            for (const Field& f : kFields) {
                if (listed(row.mayChange, f.name)) continue;
                for (std::size_t i = 0; i < f.size; ++i) {
                    if (bytes[f.offset + i] != kSentinel) {
                        ADD_FAILURE() << "output '" << f.name << "' written at byte " << i;
                        break;
                    }
                }
            }
            row.check(o);
            EXPECT_EQ(kelo_testing::codesOf(commandsSent(*emu_)),
                      row.sends ? std::vector<int>{row.sends} : std::vector<int>{});
            EXPECT_TRUE(commandsSent(*zeroEmu_).empty()) << "the device of entry 0 was reached";
        }
    }

    // The rows on the loaded example databases.
    static std::vector<Row> fibexLoadedRows();
    static std::vector<Row> autosarLoadedRows();

    static kelo::emu::DeviceEmulator* emu_;
    static kelo::emu::DeviceEmulator* zeroEmu_;
    static CommunicationLib* zero_;
    static bool ready_;
};
kelo::emu::DeviceEmulator* DatabaseBadInput::emu_ = nullptr;
kelo::emu::DeviceEmulator* DatabaseBadInput::zeroEmu_ = nullptr;
CommunicationLib* DatabaseBadInput::zero_ = nullptr;
bool DatabaseBadInput::ready_ = false;

// A list that was zero-filled with a count of 0 (what every list query does first).
void emptyList(const Outputs& o) {
    for (char c : o.list)
        ASSERT_EQ(c, 0) << "list not zero-filled";
    EXPECT_EQ(o.count, 0u);
}
// The receive-by-name copies of the frame queued at index 0.
void receivedHeader(const Outputs& o) {
    EXPECT_EQ(o.header[16], known.header[16]);
    EXPECT_EQ(o.header[19], known.header[19]);
}
void receivedPayload(const Outputs& o) {
    EXPECT_EQ(kelo_testing::bytesOf(o.rxPayload, 8), (kelo_testing::Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

// ---- before any open ---------------------------------------------------------------------------

// Without a database every query answers 9 and writes nothing but what the list queries clear
// first. Transmit and staging by name need no database: they go to the device with the buffer
// remembered for the name (0 for a name never configured). Receive by name copies the frame and
// then answers 9.
TEST_F(DatabaseBadInput, EveryExportAnswersWithoutADatabase) {
    known.header = rxHeader(1, 0);
    const char* s = "EngineSpeed";
    const std::vector<Row> rows = {
        {"KFr_Fibex_Close", "no database", 9, [](Outputs&) { return KFr_Fibex_Close(); }},
        {"KFr_Fibex_GetMaxNameLength", "no database", 9,
         [](Outputs& o) { return KFr_Fibex_GetMaxNameLength(&o.length); }},
        {"KFr_Fibex_GetFrameName", "no database", 9,
         [](Outputs& o) { return KFr_Fibex_GetFrameName(known.header.data(), o.name); }},
        {"KFr_Fibex_GetFrameName_BySignalName", "no database", 9,
         [s](Outputs& o) { return KFr_Fibex_GetFrameName_BySignalName(s, o.name, &o.firstUse); }},
        {"KFr_Fibex_decodeSignal", "no database", 9,
         [s](Outputs& o) {
             return KFr_Fibex_decodeSignal(known.header.data(), known.payload, s, &o.value);
         }},
        {"KFr_Fibex_encodeSignal", "no database", 9,
         [s](Outputs& o) { return KFr_Fibex_encodeSignal(s, 1.0f, o.payload, 8); }},
        {"KFr_Fibex_GetSlotParameter", "no database", 9,
         [](Outputs& o) { return KFr_Fibex_GetSlotParameter("EngineData", 0, 1, o.block); }},
        {"KFr_Fibex_GetParameter", "no database", 9,
         [](Outputs& o) {
             return KFr_Fibex_GetParameter("PowertrainFlexRay", "EngineControl", o.cluster, o.node,
                                           o.cc);
         }},
        {"KFr_Fibex_GetControllerParameter", "no database", 9,
         [](Outputs& o) {
             return KFr_Fibex_GetControllerParameter("EngineControl", &o.controller);
         }},
        {"KFr_Fibex_GetPDUinfo", "no database", 9,
         [](Outputs& o) { return KFr_Fibex_GetPDUinfo("FR_ENGINE_DATA", 0, o.info); }},
        {"KFr_Fibex_Set_Slot_Parameter_Wrapper", "no database", 9,
         [](Outputs&) {
             return KFr_Fibex_Set_Slot_Parameter_Wrapper(known.idx, 0, "EngineData", 0, 1);
         }},
        {"KFr_Fibex_Transmit_Wrapper", "no database", 0,
         [](Outputs&) {
             return KFr_Fibex_Transmit_Wrapper(known.idx, 0, "EngineData", known.data, 8);
         },
         "", kelo::kCmdTransmit},
        {"KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper", "no database", 0,
         [](Outputs&) {
             return KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(known.idx, 0, "EngineData",
                                                                         5, known.data, 8);
         }},
        {"KFr_Fibex_Receive_Wrapper", "no database", 9,
         [](Outputs& o) {
             queueFrameAtIndexZero();
             return KFr_Fibex_Receive_Wrapper(0, o.header, o.rxPayload, o.name, 5000);
         },
         "header rxPayload", 0, [](const Outputs& o) { receivedPayload(o); }},

        {"KFr_AutoSar_Close", "no database", 9, [](Outputs&) { return KFr_AutoSar_Close(); }},
        {"KFr_AutoSar_GetMaxNameLength", "no database", 9,
         [](Outputs& o) { return KFr_AutoSar_GetMaxNameLength(&o.length); }},
        {"KFr_AutoSar_GetFrameName", "no database", 9,
         [](Outputs& o) { return KFr_AutoSar_GetFrameName(known.header.data(), o.name); }},
        {"KFr_AutoSar_GetFrameName_BySignalName", "no database", 9,
         [s](Outputs& o) { return KFr_AutoSar_GetFrameName_BySignalName(s, o.name, &o.firstUse); }},
        {"KFr_AutoSar_GetAllClusterName", "no database", 9,
         [](Outputs& o) {
             return KFr_AutoSar_GetAllClusterName(o.list, sizeof o.list, &o.total, &o.count);
         },
         "list count", 0, emptyList},
        {"KFr_AutoSar_GetAllECUName", "no database", 9,
         [](Outputs& o) {
             return KFr_AutoSar_GetAllECUName(o.list, sizeof o.list, &o.total, &o.count);
         },
         "list count", 0, emptyList},
        {"KFr_AutoSar_GetAllFrameName_ByClusterName", "no database", 9,
         [](Outputs& o) {
             return KFr_AutoSar_GetAllFrameName_ByClusterName("FlexRayBackbone", o.list,
                                                              sizeof o.list, &o.total, &o.count);
         },
         "list count", 0, emptyList},
        {"KFr_AutoSar_GetAllFrameName_ByECUName", "no database", 9,
         [](Outputs& o) {
             return KFr_AutoSar_GetAllFrameName_ByECUName("EngineControl", o.list, sizeof o.list,
                                                          &o.total, &o.count);
         },
         "list count", 0, emptyList},
        {"KFr_AutoSar_GetAllSignalName_ByFrameName", "no database", 9,
         [](Outputs& o) {
             return KFr_AutoSar_GetAllSignalName_ByFrameName("Engine_Status_Frame", o.list,
                                                             sizeof o.list, &o.total, &o.count);
         },
         "list count", 0, emptyList},
        {"KFr_AutoSar_decodeSignal", "no database", 9,
         [s](Outputs& o) {
             return KFr_AutoSar_decodeSignal(known.header.data(), known.payload, s, &o.value);
         }},
        {"KFr_AutoSar_encodeSignal", "no database", 9,
         [s](Outputs& o) { return KFr_AutoSar_encodeSignal(s, 1.0f, o.payload, 8); }},
        {"KFr_AutoSar_GetSlotParameter", "no database", 9,
         [](Outputs& o) {
             return KFr_AutoSar_GetSlotParameter("Engine_Status_Frame", 0, 1, o.block);
         }},
        {"KFr_AutoSar_GetParameter", "no database", 9,
         [](Outputs& o) {
             return KFr_AutoSar_GetParameter("FlexRayBackbone", "EngineControl", o.cluster, o.node,
                                             o.cc);
         }},
        {"KFr_AutoSar_GetControllerParameter", "no database", 9,
         [](Outputs& o) {
             return KFr_AutoSar_GetControllerParameter("EngineControl", &o.controller);
         }},
        {"KFr_AutoSar_Set_Slot_Parameter_Wrapper", "no database", 9,
         [](Outputs&) {
             return KFr_AutoSar_Set_Slot_Parameter_Wrapper(known.idx, 0, "Engine_Status_Frame", 0,
                                                           1);
         }},
        {"KFr_AutoSar_Transmit_Wrapper", "no database", 0,
         [](Outputs&) {
             return KFr_AutoSar_Transmit_Wrapper(known.idx, 0, "BadInputNeverConfigured",
                                                 known.data, 8);
         },
         "", kelo::kCmdTransmit},
        {"KFr_AutoSar_Receive_Wrapper", "no database", 9,
         [](Outputs& o) {
             queueFrameAtIndexZero();
             return KFr_AutoSar_Receive_Wrapper(0, o.header, o.rxPayload, o.name, 5000);
         },
         "header rxPayload", 0, [](const Outputs& o) { receivedPayload(o); }},

        // Which comes first: a null argument answers 5 before the database is looked for, except
        // the key of a keyed list, which is looked at only once the database is there.
        {"KFr_Fibex_GetMaxNameLength", "length null, no database", 5,
         [](Outputs&) { return KFr_Fibex_GetMaxNameLength(nullptr); }},
        {"KFr_AutoSar_GetSlotParameter", "block null, no database", 5,
         [](Outputs&) {
             return KFr_AutoSar_GetSlotParameter("Engine_Status_Frame", 0, 1, nullptr);
         }},
        {"KFr_AutoSar_GetAllFrameName_ByECUName", "ecuName null, no database", 9,
         [](Outputs& o) {
             return KFr_AutoSar_GetAllFrameName_ByECUName(nullptr, o.list, sizeof o.list, &o.total,
                                                          &o.count);
         },
         "list count", 0, emptyList},
    };
    runRows(rows);
}

// ---- the opens ---------------------------------------------------------------------------------

// A temporary directory with the files the open rows need, made at run time.
class ScratchDirectory {
  public:
    ScratchDirectory() {
        char pattern[] = "/tmp/kelo-bad-input-XXXXXX";
        if (::mkdtemp(pattern)) path_ = pattern;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name, const std::string& content) const {
        const std::string p = path_ + "/" + name;
        std::ofstream(p, std::ios::binary) << content;
        return p;
    }

  private:
    std::string path_;
};

using OpenExport = unsigned char (*)(const char*);
using LengthQuery = unsigned char (*)(unsigned int*);

// Opens `path` on a thread of its own. An open that is still blocked after 10 s (reading a FIFO
// nobody writes) fails the row and is released by opening the FIFO for writing and closing it
// again, which gives the reader an end of file: the suite never hangs.
int openWithoutHanging(OpenExport open, const char* path, const std::string& fifo) {
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
    ScratchDirectory scratch;
    ASSERT_FALSE(scratch.path().empty());
    const std::string fifo = scratch.path() + "/fifo.xml";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::string binary(4096, '\0');
    for (std::size_t i = 0; i < binary.size(); ++i)
        binary[i] = static_cast<char>((i * 2654435761u) >> 13);
    const std::string binaryFile = scratch.file("binary.xml", binary);
    const std::string emptyFile = scratch.file("empty.xml", "");
    const std::string longName = scratch.path() + "/" + std::string(10000, 'n');
    const std::string badUtf8Missing = scratch.path() + "/no-such-\xff\xfe.xml";

    struct Format {
        const char* name;
        OpenExport open;
        LengthQuery loaded;  // 0 while a database is loaded, 9 when none is
        const std::string& example;
        const std::string& otherFormat;
    } const formats[] = {
        {"KFr_Fibex_Open", KFr_Fibex_Open, KFr_Fibex_GetMaxNameLength, kFibexFile, kAutosarFile},
        {"KFr_AutoSar_Open", KFr_AutoSar_Open, KFr_AutoSar_GetMaxNameLength, kAutosarFile,
         kFibexFile},
    };
    for (const Format& format : formats) {
        SCOPED_TRACE(format.name);
        // A real database under a name that is not UTF-8: the open reads the path as UTF-8 (the
        // locale codec it sets), so the name it looks for is not this one.
        std::ifstream in(format.example, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        const std::string badUtf8Real =
            scratch.file(std::string("real-\xff\xfe-") + format.name, text.str());
        struct PathRow {
            const char* what;
            const char* path;
            int code;
        } const rows[] = {
            {"null path", nullptr, 9},
            {"missing file", "/nonexistent/kelo/database.xml", 9},
            {"empty path", "", 9},
            {"directory", scratch.path().c_str(), 9},
            {"FIFO", fifo.c_str(), 9},
            {"empty file", emptyFile.c_str(), 7},
            {"binary file", binaryFile.c_str(), 7},
            {"name of 10,000 characters", longName.c_str(), 9},
            {"invalid UTF-8, no such file", badUtf8Missing.c_str(), 9},
            {"invalid UTF-8 name of a real database", badUtf8Real.c_str(), 9},
            {"database of the other format", format.otherFormat.c_str(), 7},
        };
        for (const PathRow& row : rows) {
            SCOPED_TRACE(row.what);
            ASSERT_EQ(format.open(format.example.c_str()), 0);
            EXPECT_EQ(openWithoutHanging(format.open, row.path, fifo), row.code);
            unsigned int length = 0;
            EXPECT_EQ(format.loaded(&length), row.code == 9 ? 0 : 9)
                << "a refused path keeps the loaded database, an unloadable file drops it";
        }
    }
}

// ---- null pointers and unknown names on the example databases ----------------------------------

std::vector<Row> DatabaseBadInput::fibexLoadedRows() {
    const char* s = "EngineSpeed";
    const auto header = [] { return known.header.data(); };
    return {
        {"KFr_Fibex_GetMaxNameLength", "length null", 5,
         [](Outputs&) { return KFr_Fibex_GetMaxNameLength(nullptr); }},
        {"KFr_Fibex_GetFrameName", "rxHeader null", 5,
         [](Outputs& o) { return KFr_Fibex_GetFrameName(nullptr, o.name); }},
        {"KFr_Fibex_GetFrameName", "nameOut null", 5,
         [header](Outputs&) { return KFr_Fibex_GetFrameName(header(), nullptr); }},
        {"KFr_Fibex_GetFrameName", "slot without a frame", 0,
         [](Outputs& o) { return KFr_Fibex_GetFrameName(known.emptySlot.data(), o.name); }, "name",
         0, [](const Outputs& o) { EXPECT_STREQ(o.name, ""); }},
        {"KFr_Fibex_GetFrameName_BySignalName", "signalName null", 5,
         [](Outputs& o) {
             return KFr_Fibex_GetFrameName_BySignalName(nullptr, o.name, &o.firstUse);
         }},
        {"KFr_Fibex_GetFrameName_BySignalName", "frameNameOut null", 5,
         [s](Outputs& o) { return KFr_Fibex_GetFrameName_BySignalName(s, nullptr, &o.firstUse); }},
        {"KFr_Fibex_GetFrameName_BySignalName", "firstUse null", 5,
         [s](Outputs& o) { return KFr_Fibex_GetFrameName_BySignalName(s, o.name, nullptr); }},
        {"KFr_Fibex_GetFrameName_BySignalName", "unknown signal", 14,
         [](Outputs& o) {
             return KFr_Fibex_GetFrameName_BySignalName("NoSuchSignal", o.name, &o.firstUse);
         }},
        {"KFr_Fibex_decodeSignal", "rxHeader null", 5,
         [s](Outputs& o) { return KFr_Fibex_decodeSignal(nullptr, known.payload, s, &o.value); }},
        {"KFr_Fibex_decodeSignal", "payload null", 5,
         [header, s](Outputs& o) {
             return KFr_Fibex_decodeSignal(header(), nullptr, s, &o.value);
         }},
        {"KFr_Fibex_decodeSignal", "signalName null", 5,
         [header](Outputs& o) {
             return KFr_Fibex_decodeSignal(header(), known.payload, nullptr, &o.value);
         }},
        {"KFr_Fibex_decodeSignal", "value null", 5,
         [header, s](Outputs&) {
             return KFr_Fibex_decodeSignal(header(), known.payload, s, nullptr);
         }},
        {"KFr_Fibex_decodeSignal", "unknown signal", 16,
         [header](Outputs& o) {
             return KFr_Fibex_decodeSignal(header(), known.payload, "NoSuchSignal", &o.value);
         }},
        {"KFr_Fibex_decodeSignal", "slot without a frame", 17,
         [s](Outputs& o) {
             return KFr_Fibex_decodeSignal(known.emptySlot.data(), known.payload, s, &o.value);
         }},
        {"KFr_Fibex_encodeSignal", "signalName null", 5,
         [](Outputs& o) { return KFr_Fibex_encodeSignal(nullptr, 1.0f, o.payload, 8); }},
        {"KFr_Fibex_encodeSignal", "payload null", 5,
         [s](Outputs&) { return KFr_Fibex_encodeSignal(s, 1.0f, nullptr, 8); }},
        {"KFr_Fibex_encodeSignal", "unknown signal", 14,
         [](Outputs& o) { return KFr_Fibex_encodeSignal("NoSuchSignal", 1.0f, o.payload, 8); }},
        {"KFr_Fibex_encodeSignal", "payload length 0", 15,
         [s](Outputs& o) { return KFr_Fibex_encodeSignal(s, 1.0f, o.payload, 0); }},
        {"KFr_Fibex_GetSlotParameter", "frameName null", 5,
         [](Outputs& o) { return KFr_Fibex_GetSlotParameter(nullptr, 0, 1, o.block); }},
        {"KFr_Fibex_GetSlotParameter", "block null", 5,
         [](Outputs&) { return KFr_Fibex_GetSlotParameter("EngineData", 0, 1, nullptr); }},
        {"KFr_Fibex_GetSlotParameter", "unknown frame", 17,
         [](Outputs& o) { return KFr_Fibex_GetSlotParameter("NoSuchFrame", 0, 1, o.block); }},
        {"KFr_Fibex_GetParameter", "clusterName null", 5,
         [](Outputs& o) {
             return KFr_Fibex_GetParameter(nullptr, "EngineControl", o.cluster, o.node, o.cc);
         }},
        {"KFr_Fibex_GetParameter", "ecuName null", 5,
         [](Outputs& o) {
             return KFr_Fibex_GetParameter("PowertrainFlexRay", nullptr, o.cluster, o.node, o.cc);
         }},
        {"KFr_Fibex_GetParameter", "clusterBlock null", 5,
         [](Outputs& o) {
             return KFr_Fibex_GetParameter("PowertrainFlexRay", "EngineControl", nullptr, o.node,
                                           o.cc);
         }},
        {"KFr_Fibex_GetParameter", "nodeBlock null", 5,
         [](Outputs& o) {
             return KFr_Fibex_GetParameter("PowertrainFlexRay", "EngineControl", o.cluster, nullptr,
                                           o.cc);
         }},
        {"KFr_Fibex_GetParameter", "ccBlock null", 5,
         [](Outputs& o) {
             return KFr_Fibex_GetParameter("PowertrainFlexRay", "EngineControl", o.cluster, o.node,
                                           nullptr);
         }},
        {"KFr_Fibex_GetParameter", "unknown cluster", 5,
         [](Outputs& o) {
             return KFr_Fibex_GetParameter("NoSuchCluster", "EngineControl", o.cluster, o.node,
                                           o.cc);
         }},
        // The cluster block and the controller block's bit rate are written before the ECU is
        // looked up.
        {"KFr_Fibex_GetParameter", "unknown ECU", 5,
         [](Outputs& o) {
             return KFr_Fibex_GetParameter("PowertrainFlexRay", "NoSuchEcu", o.cluster, o.node,
                                           o.cc);
         },
         "cluster cc"},
        {"KFr_Fibex_GetControllerParameter", "ecuName null", 5,
         [](Outputs& o) { return KFr_Fibex_GetControllerParameter(nullptr, &o.controller); }},
        {"KFr_Fibex_GetControllerParameter", "node null", 5,
         [](Outputs&) { return KFr_Fibex_GetControllerParameter("EngineControl", nullptr); }},
        {"KFr_Fibex_GetControllerParameter", "unknown ECU", 5,
         [](Outputs& o) { return KFr_Fibex_GetControllerParameter("NoSuchEcu", &o.controller); }},
        {"KFr_Fibex_GetPDUinfo", "frameKey null", 5,
         [](Outputs& o) { return KFr_Fibex_GetPDUinfo(nullptr, 0, o.info); }},
        {"KFr_Fibex_GetPDUinfo", "info null", 5,
         [](Outputs&) { return KFr_Fibex_GetPDUinfo("FR_ENGINE_DATA", 0, nullptr); }},
        {"KFr_Fibex_GetPDUinfo", "unknown frame ID", 5,
         [](Outputs& o) { return KFr_Fibex_GetPDUinfo("NO_SUCH_FRAME", 0, o.info); }},
        {"KFr_Fibex_GetPDUinfo", "index 1000", 5,
         [](Outputs& o) { return KFr_Fibex_GetPDUinfo("FR_ENGINE_DATA", 1000, o.info); }},
        // The index is compared signed: a negative one is below the PDU count and answers the
        // first PDU, as every index does.
        {"KFr_Fibex_GetPDUinfo", "index -1", 0,
         [](Outputs& o) { return KFr_Fibex_GetPDUinfo("FR_ENGINE_DATA", -1, o.info); }, "info"},
        {"KFr_Fibex_Set_Slot_Parameter_Wrapper", "frameName null", 5,
         [](Outputs&) {
             return KFr_Fibex_Set_Slot_Parameter_Wrapper(known.idx, 0, nullptr, 0, 1);
         }},
        {"KFr_Fibex_Set_Slot_Parameter_Wrapper", "unknown frame", 17,
         [](Outputs&) {
             return KFr_Fibex_Set_Slot_Parameter_Wrapper(known.idx, 0, "NoSuchFrame", 0, 1);
         }},
        {"KFr_Fibex_Transmit_Wrapper", "frameName null", 5,
         [](Outputs&) { return KFr_Fibex_Transmit_Wrapper(known.idx, 0, nullptr, known.data, 8); }},
        {"KFr_Fibex_Transmit_Wrapper", "data null", 5,
         [](Outputs&) {
             return KFr_Fibex_Transmit_Wrapper(known.idx, 0, "EngineData", nullptr, 8);
         }},
        // Sent with buffer 0, as a frame never configured.
        {"KFr_Fibex_Transmit_Wrapper", "unknown frame", 0,
         [](Outputs&) {
             return KFr_Fibex_Transmit_Wrapper(known.idx, 0, "NoSuchFrame", known.data, 8);
         },
         "", kelo::kCmdTransmit},
        {"KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper", "frameName null", 5,
         [](Outputs&) {
             return KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(known.idx, 0, nullptr, 5,
                                                                         known.data, 8);
         }},
        {"KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper", "data null", 5,
         [](Outputs&) {
             return KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(known.idx, 0, "EngineData",
                                                                         5, nullptr, 8);
         }},
        {"KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper", "unknown frame", 0,
         [](Outputs&) {
             return KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(
                 known.idx, 0, "NoSuchFrame", 5, known.data, 8);
         }},
        {"KFr_Fibex_Receive_Wrapper", "headerOut null", 0,
         [](Outputs& o) {
             queueFrameAtIndexZero();
             return KFr_Fibex_Receive_Wrapper(0, nullptr, o.rxPayload, o.name, 5000);
         },
         "rxPayload name", 0,
         [](const Outputs& o) {
             receivedPayload(o);
             EXPECT_STREQ(o.name, "EngineData");
         }},
        {"KFr_Fibex_Receive_Wrapper", "payloadOut null", 0,
         [](Outputs& o) {
             queueFrameAtIndexZero();
             return KFr_Fibex_Receive_Wrapper(0, o.header, nullptr, o.name, 5000);
         },
         "header name", 0,
         [](const Outputs& o) {
             receivedHeader(o);
             EXPECT_STREQ(o.name, "EngineData");
         }},
        {"KFr_Fibex_Receive_Wrapper", "frameNameOut null", 0,
         [](Outputs& o) {
             queueFrameAtIndexZero();
             return KFr_Fibex_Receive_Wrapper(0, o.header, o.rxPayload, nullptr, 5000);
         },
         "header rxPayload", 0,
         [](const Outputs& o) {
             receivedHeader(o);
             receivedPayload(o);
         }},
    };
}

// Null pointers and unknown names on the FIBEX example; the known header is EngineData's.
TEST_F(DatabaseBadInput, FibexNullArgumentsAndUnknownNames) {
    ASSERT_EQ(KFr_Fibex_Open(kFibexFile.c_str()), 0);
    learnFrame(KFr_Fibex_GetSlotParameter, "EngineData");
    runRows(fibexLoadedRows());
}

// List outputs: a null buffer, total or count is refused before anything is written.
std::vector<Row> listRows(const char* exportName,
                          unsigned char (*list)(char*, unsigned int, unsigned int*,
                                                unsigned int*)) {
    return {
        {exportName, "buf null", 5,
         [list](Outputs& o) { return list(nullptr, sizeof o.list, &o.total, &o.count); }},
        {exportName, "total null", 5,
         [list](Outputs& o) { return list(o.list, sizeof o.list, nullptr, &o.count); }},
        {exportName, "count null", 5,
         [list](Outputs& o) { return list(o.list, sizeof o.list, &o.total, nullptr); }},
        {exportName, "bufSize 0", 21,
         [list](Outputs& o) { return list(o.list, 0, &o.total, &o.count); }, "total count", 0,
         [](const Outputs& o) { EXPECT_EQ(o.count, 0u); }},
    };
}

using KeyedList = unsigned char (*)(const char*, char*, unsigned int, unsigned int*, unsigned int*);

// Keyed lists: the buffer is zero-filled and the count set to 0 before the key is looked at.
std::vector<Row> keyedListRows(const char* exportName, KeyedList list, const char* keyParameter,
                               const char* key) {
    return {
        {exportName, std::string(keyParameter) + " null", 5,
         [list](Outputs& o) { return list(nullptr, o.list, sizeof o.list, &o.total, &o.count); },
         "list count", 0, emptyList},
        {exportName, "unknown key", 22,
         [list](Outputs& o) {
             return list("NoSuchName", o.list, sizeof o.list, &o.total, &o.count);
         },
         "list count", 0, emptyList},
        {exportName, "buf null", 5,
         [list, key](Outputs& o) { return list(key, nullptr, sizeof o.list, &o.total, &o.count); }},
        {exportName, "total null", 5,
         [list, key](Outputs& o) { return list(key, o.list, sizeof o.list, nullptr, &o.count); }},
        {exportName, "count null", 5,
         [list, key](Outputs& o) { return list(key, o.list, sizeof o.list, &o.total, nullptr); }},
    };
}

std::vector<Row> DatabaseBadInput::autosarLoadedRows() {
    const char* s = "EngineSpeed";
    const auto header = [] { return known.header.data(); };
    std::vector<Row> rows = {
        {"KFr_AutoSar_GetMaxNameLength", "length null", 5,
         [](Outputs&) { return KFr_AutoSar_GetMaxNameLength(nullptr); }},
        {"KFr_AutoSar_GetFrameName", "rxHeader null", 5,
         [](Outputs& o) { return KFr_AutoSar_GetFrameName(nullptr, o.name); }},
        {"KFr_AutoSar_GetFrameName", "nameOut null", 5,
         [header](Outputs&) { return KFr_AutoSar_GetFrameName(header(), nullptr); }},
        {"KFr_AutoSar_GetFrameName", "slot without a frame", 0,
         [](Outputs& o) { return KFr_AutoSar_GetFrameName(known.emptySlot.data(), o.name); },
         "name", 0, [](const Outputs& o) { EXPECT_STREQ(o.name, ""); }},
        {"KFr_AutoSar_GetFrameName_BySignalName", "signalName null", 5,
         [](Outputs& o) {
             return KFr_AutoSar_GetFrameName_BySignalName(nullptr, o.name, &o.firstUse);
         }},
        {"KFr_AutoSar_GetFrameName_BySignalName", "frameNameOut null", 5,
         [s](Outputs& o) {
             return KFr_AutoSar_GetFrameName_BySignalName(s, nullptr, &o.firstUse);
         }},
        {"KFr_AutoSar_GetFrameName_BySignalName", "firstUse null", 5,
         [s](Outputs& o) { return KFr_AutoSar_GetFrameName_BySignalName(s, o.name, nullptr); }},
        {"KFr_AutoSar_GetFrameName_BySignalName", "unknown signal", 14,
         [](Outputs& o) {
             return KFr_AutoSar_GetFrameName_BySignalName("NoSuchSignal", o.name, &o.firstUse);
         }},
        {"KFr_AutoSar_decodeSignal", "rxHeader null", 5,
         [s](Outputs& o) { return KFr_AutoSar_decodeSignal(nullptr, known.payload, s, &o.value); }},
        {"KFr_AutoSar_decodeSignal", "payload null", 5,
         [header, s](Outputs& o) {
             return KFr_AutoSar_decodeSignal(header(), nullptr, s, &o.value);
         }},
        {"KFr_AutoSar_decodeSignal", "signalName null", 5,
         [header](Outputs& o) {
             return KFr_AutoSar_decodeSignal(header(), known.payload, nullptr, &o.value);
         }},
        {"KFr_AutoSar_decodeSignal", "value null", 5,
         [header, s](Outputs&) {
             return KFr_AutoSar_decodeSignal(header(), known.payload, s, nullptr);
         }},
        {"KFr_AutoSar_decodeSignal", "unknown signal", 16,
         [header](Outputs& o) {
             return KFr_AutoSar_decodeSignal(header(), known.payload, "NoSuchSignal", &o.value);
         }},
        {"KFr_AutoSar_decodeSignal", "slot without a frame", 17,
         [s](Outputs& o) {
             return KFr_AutoSar_decodeSignal(known.emptySlot.data(), known.payload, s, &o.value);
         }},
        {"KFr_AutoSar_encodeSignal", "signalName null", 5,
         [](Outputs& o) { return KFr_AutoSar_encodeSignal(nullptr, 1.0f, o.payload, 8); }},
        {"KFr_AutoSar_encodeSignal", "payload null", 5,
         [s](Outputs&) { return KFr_AutoSar_encodeSignal(s, 1.0f, nullptr, 8); }},
        {"KFr_AutoSar_encodeSignal", "unknown signal", 14,
         [](Outputs& o) { return KFr_AutoSar_encodeSignal("NoSuchSignal", 1.0f, o.payload, 8); }},
        {"KFr_AutoSar_encodeSignal", "payload length 0", 15,
         [s](Outputs& o) { return KFr_AutoSar_encodeSignal(s, 1.0f, o.payload, 0); }},
        {"KFr_AutoSar_GetSlotParameter", "frameName null", 5,
         [](Outputs& o) { return KFr_AutoSar_GetSlotParameter(nullptr, 0, 1, o.block); }},
        {"KFr_AutoSar_GetSlotParameter", "block null", 5,
         [](Outputs&) {
             return KFr_AutoSar_GetSlotParameter("Engine_Status_Frame", 0, 1, nullptr);
         }},
        {"KFr_AutoSar_GetSlotParameter", "unknown frame", 17,
         [](Outputs& o) { return KFr_AutoSar_GetSlotParameter("NoSuchFrame", 0, 1, o.block); }},
        {"KFr_AutoSar_GetParameter", "clusterName null", 5,
         [](Outputs& o) {
             return KFr_AutoSar_GetParameter(nullptr, "EngineControl", o.cluster, o.node, o.cc);
         }},
        {"KFr_AutoSar_GetParameter", "ecuName null", 5,
         [](Outputs& o) {
             return KFr_AutoSar_GetParameter("FlexRayBackbone", nullptr, o.cluster, o.node, o.cc);
         }},
        {"KFr_AutoSar_GetParameter", "clusterBlock null", 5,
         [](Outputs& o) {
             return KFr_AutoSar_GetParameter("FlexRayBackbone", "EngineControl", nullptr, o.node,
                                             o.cc);
         }},
        {"KFr_AutoSar_GetParameter", "nodeBlock null", 5,
         [](Outputs& o) {
             return KFr_AutoSar_GetParameter("FlexRayBackbone", "EngineControl", o.cluster, nullptr,
                                             o.cc);
         }},
        {"KFr_AutoSar_GetParameter", "ccBlock null", 5,
         [](Outputs& o) {
             return KFr_AutoSar_GetParameter("FlexRayBackbone", "EngineControl", o.cluster, o.node,
                                             nullptr);
         }},
        {"KFr_AutoSar_GetParameter", "unknown cluster", 5,
         [](Outputs& o) {
             return KFr_AutoSar_GetParameter("NoSuchCluster", "EngineControl", o.cluster, o.node,
                                             o.cc);
         }},
        {"KFr_AutoSar_GetParameter", "unknown ECU", 5,
         [](Outputs& o) {
             return KFr_AutoSar_GetParameter("FlexRayBackbone", "NoSuchEcu", o.cluster, o.node,
                                             o.cc);
         },
         "cluster cc"},
        {"KFr_AutoSar_GetControllerParameter", "ecuName null", 5,
         [](Outputs& o) { return KFr_AutoSar_GetControllerParameter(nullptr, &o.controller); }},
        {"KFr_AutoSar_GetControllerParameter", "node null", 5,
         [](Outputs&) { return KFr_AutoSar_GetControllerParameter("EngineControl", nullptr); }},
        {"KFr_AutoSar_GetControllerParameter", "unknown ECU", 5,
         [](Outputs& o) { return KFr_AutoSar_GetControllerParameter("NoSuchEcu", &o.controller); }},
        {"KFr_AutoSar_Set_Slot_Parameter_Wrapper", "frameName null", 5,
         [](Outputs&) {
             return KFr_AutoSar_Set_Slot_Parameter_Wrapper(known.idx, 0, nullptr, 0, 1);
         }},
        {"KFr_AutoSar_Set_Slot_Parameter_Wrapper", "unknown frame", 17,
         [](Outputs&) {
             return KFr_AutoSar_Set_Slot_Parameter_Wrapper(known.idx, 0, "NoSuchFrame", 0, 1);
         }},
        {"KFr_AutoSar_Transmit_Wrapper", "frameName null", 5,
         [](Outputs&) {
             return KFr_AutoSar_Transmit_Wrapper(known.idx, 0, nullptr, known.data, 8);
         }},
        {"KFr_AutoSar_Transmit_Wrapper", "data null", 5,
         [](Outputs&) {
             return KFr_AutoSar_Transmit_Wrapper(known.idx, 0, "Engine_Status_Frame", nullptr, 8);
         }},
        {"KFr_AutoSar_Transmit_Wrapper", "unknown frame", 0,
         [](Outputs&) {
             return KFr_AutoSar_Transmit_Wrapper(known.idx, 0, "BadInputNeverConfigured",
                                                 known.data, 8);
         },
         "", kelo::kCmdTransmit},
        {"KFr_AutoSar_Receive_Wrapper", "headerOut null", 0,
         [](Outputs& o) {
             queueFrameAtIndexZero();
             return KFr_AutoSar_Receive_Wrapper(0, nullptr, o.rxPayload, o.name, 5000);
         },
         "rxPayload name", 0,
         [](const Outputs& o) {
             receivedPayload(o);
             EXPECT_STREQ(o.name, "Engine_Status_Frame");
         }},
        {"KFr_AutoSar_Receive_Wrapper", "payloadOut null", 0,
         [](Outputs& o) {
             queueFrameAtIndexZero();
             return KFr_AutoSar_Receive_Wrapper(0, o.header, nullptr, o.name, 5000);
         },
         "header name", 0,
         [](const Outputs& o) {
             receivedHeader(o);
             EXPECT_STREQ(o.name, "Engine_Status_Frame");
         }},
        {"KFr_AutoSar_Receive_Wrapper", "frameNameOut null", 0,
         [](Outputs& o) {
             queueFrameAtIndexZero();
             return KFr_AutoSar_Receive_Wrapper(0, o.header, o.rxPayload, nullptr, 5000);
         },
         "header rxPayload", 0,
         [](const Outputs& o) {
             receivedHeader(o);
             receivedPayload(o);
         }},
    };
    for (auto& more :
         {listRows("KFr_AutoSar_GetAllClusterName", KFr_AutoSar_GetAllClusterName),
          listRows("KFr_AutoSar_GetAllECUName", KFr_AutoSar_GetAllECUName),
          keyedListRows("KFr_AutoSar_GetAllFrameName_ByClusterName",
                        KFr_AutoSar_GetAllFrameName_ByClusterName, "clusterName",
                        "FlexRayBackbone"),
          keyedListRows("KFr_AutoSar_GetAllFrameName_ByECUName",
                        KFr_AutoSar_GetAllFrameName_ByECUName, "ecuName", "EngineControl"),
          keyedListRows("KFr_AutoSar_GetAllSignalName_ByFrameName",
                        KFr_AutoSar_GetAllSignalName_ByFrameName, "frameName",
                        "Engine_Status_Frame")})
        rows.insert(rows.end(), more.begin(), more.end());
    return rows;
}

// The same on the AUTOSAR example; the known header is Engine_Status_Frame's.
TEST_F(DatabaseBadInput, AutosarNullArgumentsAndUnknownNames) {
    ASSERT_EQ(KFr_AutoSar_Open(kAutosarFile.c_str()), 0);
    learnFrame(KFr_AutoSar_GetSlotParameter, "Engine_Status_Frame");
    runRows(autosarLoadedRows());
}

// Every pointer parameter of every FIBEX and AUTOSAR export in the public header has its
// "<parameter> null" row on the loaded databases (the opens' path: the open rows above).
TEST_F(DatabaseBadInput, NullRowsCoverEveryPointerParameter) {
    std::ifstream in(KELO_PUBLIC_HEADER);
    std::stringstream text;
    text << in.rdbuf();
    const std::string header =
        std::regex_replace(text.str(), std::regex(R"(/\*[\s\S]*?\*/)"), std::string());
    static const std::regex declaration(R"(KELOCOMM_API\s+[^;(]*?\b(\w+)\s*\(([^)]*)\))");
    static const std::regex pointer(R"(\*\s*(\w+)\s*$)");
    std::set<std::string> rows;
    for (const auto& table : {fibexLoadedRows(), autosarLoadedRows()})
        for (const Row& row : table)
            rows.insert(row.exportName + (", " + row.input));
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

// ---- bad device indices at the by-name device exports ------------------------------------------

// They take the index as an unsigned byte and pass it on as a signed one: 255 is -1 and 128 is
// -128. Every one answers 6 and nothing is sent, neither to the open device nor to the device of
// entry 0 (which only the receive exports accept).
TEST_F(DatabaseBadInput, ByNameDeviceExportsRejectBadIndices) {
    ASSERT_EQ(KFr_Fibex_Open(kFibexFile.c_str()), 0);
    ASSERT_EQ(KFr_AutoSar_Open(kAutosarFile.c_str()), 0);
    ASSERT_EQ(kelo::DeviceSlotTable[kIndexNeverOpened].lib.load(), nullptr);
    for (const unsigned char bad : {0, 255, 127, 128, int(kIndexNeverOpened)}) {
        SCOPED_TRACE("index " + std::to_string(bad));
        const std::vector<Row> rows = {
            {"KFr_Fibex_Set_Slot_Parameter_Wrapper", "bad index", 6,
             [bad](Outputs&) {
                 return KFr_Fibex_Set_Slot_Parameter_Wrapper(bad, 0, "EngineData", 0, 1);
             }},
            {"KFr_Fibex_Transmit_Wrapper", "bad index", 6,
             [bad](Outputs&) {
                 return KFr_Fibex_Transmit_Wrapper(bad, 0, "EngineData", known.data, 8);
             }},
            {"KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper", "bad index", 6,
             [bad](Outputs&) {
                 return KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(bad, 0, "EngineData",
                                                                             5, known.data, 8);
             }},
            {"KFr_AutoSar_Set_Slot_Parameter_Wrapper", "bad index", 6,
             [bad](Outputs&) {
                 return KFr_AutoSar_Set_Slot_Parameter_Wrapper(bad, 0, "Engine_Status_Frame", 0, 1);
             }},
            {"KFr_AutoSar_Transmit_Wrapper", "bad index", 6,
             [bad](Outputs&) {
                 return KFr_AutoSar_Transmit_Wrapper(bad, 0, "Engine_Status_Frame", known.data, 8);
             }},
        };
        runRows(rows);
    }
}

}  // namespace
