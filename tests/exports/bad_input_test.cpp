// Bad input at every export that takes a device index, one row per export. An index outside
// 1..126, or an entry without a device, gives 6 at once, touches no buffer and sends nothing. A
// null pointer on a device that is really open: a null record is refused with 5 before anything
// is sent; a null output is skipped and the rest of the call goes on. Then the opens with a null
// address, an address a strict open refuses and unknown flags.
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>

#include "export_fixture.h"

namespace kelo_export_test {
namespace {

constexpr std::uint8_t kSentinel = 0xA5;
constexpr std::uint8_t kCanChannel = 3;
const Bytes kNmVector = {0x11, 0x22, 0x33};

// Every buffer an export may read or write, named after its parameter. Sentinel-filled (the CAN
// frame a valid one), so a byte written anywhere shows, and so does a field read in the wrong
// place.
struct Buffers {
    unsigned char block[64];
    KFrFifoRecord fifo;
    KFrKeySlotRecord keySlots;
    unsigned char state, subState, psr[8], vector[12], length, headerOut[28], payloadOut[510];
    unsigned char data[256], result, config[52], frame[12];
    unsigned int value, count, libraryVersion, deviceVersion;
};
Buffers filled() {
    Buffers b;
    std::memset(&b, kSentinel, sizeof b);
    const unsigned char frame[12] = {0x23, 0x01, 0, 0, 0, 0, 0, 0, 8};
    std::memcpy(b.frame, frame, sizeof frame);
    return b;
}

// The buffers and the one parameter a null row passes as null.
struct Args {
    Buffers b = filled();
    std::string nulled;
    template <typename T>
    T* operator()(const char* name, T* p) const {
        return nulled == name ? nullptr : p;
    }
};

enum class Prepare { Nothing, FlexRayFrame, CanFrame, StagedEntry };

struct NullCase {
    std::string exportName, parameter;
    int code;   // what the caller gets
    int sends;  // the command that reaches the device (0: none)
    Prepare prepare;
    std::function<void(Buffers&)> writes;  // what the other outputs receive
    std::function<int(signed char, Args&)> call;
};
NullCase null(
    const char* parameter, int code, int sends = 0, Prepare prepare = Prepare::Nothing,
    std::function<void(Buffers&)> writes = [](Buffers&) {}) {
    return {"", parameter, code, sends, prepare, writes, nullptr};
}
NullCase refused(const char* parameter) {
    return null(parameter, 5);
}

struct Row {
    const char* name;
    std::function<int(signed char, Args&)> call;
    std::vector<NullCase> nulls = {};
    // What the export may change even on a rejected index.
    std::function<void(Buffers&)> allowed = [](Buffers&) {};
};

void put(unsigned char* out, const Bytes& bytes) {
    std::copy(bytes.begin(), bytes.end(), out);
}
// The frames the receive rows take: FlexRay slot 7, cycle 2, both channels, two words; CAN
// identifier 0x123 with three data bytes (copied twice the data length, the excess zero).
void frHeader(Buffers& o) {
    put(o.headerOut, cat({zeros(16), le16(7), {3, 2, 2, 0}, zeros(2), le16(0x8080), {0xA1, 0xA2}}));
}
void frPayload(Buffers& o) {
    put(o.payloadOut, {0xA1, 0xA2, 0xA3, 0xA4});
}
void canHeader(Buffers& o) {
    put(o.headerOut, cat({{kCanChannel, 0, 0, 0}, zeros(12), le32(0x123), {0, 0, 0, 3}}));
}
void canPayload(Buffers& o) {
    put(o.payloadOut, {1, 2, 3, 0, 0, 0});
}

using A = Args;
using I = signed char;
constexpr int kState = kelo::kCmdGetNodeState;

const std::vector<Row>& rows() {
    static const std::vector<Row> table = {
        {"KFr_Close_Wrapper", [](I i, A&) { return KFr_Close_Wrapper(i); }},
        {"KCAN_Close_Wrapper", [](I i, A&) { return KCAN_Close_Wrapper(i); }},
        // FlexRay
        {"KFr_Set_Cluster_Parameter_Wrapper",
         [](I i, A& a) { return KFr_Set_Cluster_Parameter_Wrapper(i, 0, a("block", a.b.block)); },
         {refused("block")}},
        {"KFr_Set_Node_Parameter_Wrapper",
         [](I i, A& a) { return KFr_Set_Node_Parameter_Wrapper(i, 0, a("block", a.b.block)); },
         {refused("block")}},
        {"KFr_Set_CC_Parameter_Wrapper",
         [](I i, A& a) { return KFr_Set_CC_Parameter_Wrapper(i, 0, a("block", a.b.block)); },
         {refused("block")}},
        {"KFr_Set_Slot_Parameter_Wrapper",
         [](I i, A& a) { return KFr_Set_Slot_Parameter_Wrapper(i, 0, a("block", a.b.block)); },
         {refused("block")}},
        {"KFr_Set_Fifo_Parameter_Wrapper",
         [](I i, A& a) { return KFr_Set_Fifo_Parameter_Wrapper(i, 0, a("fifo", &a.b.fifo)); },
         {refused("fifo")}},
        {"KFr_SetFrPhyNodeKeySlot_Wrapper",
         [](I i, A& a) {
             return KFr_SetFrPhyNodeKeySlot_Wrapper(i, 0, a("keySlots", &a.b.keySlots));
         },
         {refused("keySlots")}},
        {"KFr_Configure_Node_Wrapper", [](I i, A&) { return KFr_Configure_Node_Wrapper(i, 0); }},
        {"KFr_SendWakeUp_Wrapper", [](I i, A&) { return KFr_SendWakeUp_Wrapper(i, 0); }},
        {"KFr_Start_Node_Wrapper", [](I i, A&) { return KFr_Start_Node_Wrapper(i, 0); }},
        {"KFr_Stop_Wrapper", [](I i, A&) { return KFr_Stop_Wrapper(i, 0); }},
        {"KFr_StartFrRxUpload_Wrapper", [](I i, A&) { return KFr_StartFrRxUpload_Wrapper(i, 0); }},
        {"KFr_StopFrRxUpload_Wrapper", [](I i, A&) { return KFr_StopFrRxUpload_Wrapper(i, 0); }},
        {"KFr_ClearRcvBuffer_Wrapper", [](I i, A&) { return KFr_ClearRcvBuffer_Wrapper(i, 0); }},
        {"KFr_GetFrNodeState_Wrapper",
         [](I i, A& a) {
             return KFr_GetFrNodeState_Wrapper(i, 0, a("state", &a.b.state),
                                               a("subState", &a.b.subState));
         },
         {null("state", 0, kState, Prepare::Nothing, [](Buffers& o) { o.subState = 5; }),
          null("subState", 0, kState, Prepare::Nothing, [](Buffers& o) { o.state = 3; })}},
        {"KFr_GetFrPSRState_Wrapper",
         [](I i, A& a) { return KFr_GetFrPSRState_Wrapper(i, 0, a("psr", a.b.psr)); },
         {null("psr", 0, kState)}},
        {"KFr_GetFrNWVector_Wrapper",
         [](I i, A& a) {
             return KFr_GetFrNWVector_Wrapper(i, 0, a("vector", a.b.vector),
                                              a("length", &a.b.length));
         },
         {null("vector", 0, kelo::kCmdGetNmVector, Prepare::Nothing,
               [](Buffers& o) { o.length = 3; }),
          null("length", 0, kelo::kCmdGetNmVector, Prepare::Nothing,
               [](Buffers& o) { put(o.vector, kNmVector); })}},
        {"KFr_framesAvailable_Wrapper", [](I i, A&) { return KFr_framesAvailable_Wrapper(i); }},
        {"KFr_Receive_Wrapper",
         [](I i, A& a) {
             return KFr_Receive_Wrapper(i, a("headerOut", a.b.headerOut),
                                        a("payloadOut", a.b.payloadOut), 1000);
         },
         {null("headerOut", 0, 0, Prepare::FlexRayFrame, frPayload),
          null("payloadOut", 0, 0, Prepare::FlexRayFrame, frHeader)}},
        {"KFr_Transmit_Wrapper",
         [](I i, A& a) { return KFr_Transmit_Wrapper(i, 0, 1, a("data", a.b.data), 4); },
         {refused("data")}},
        {"KFr_ReplaySend_Wrapper",
         [](I i, A& a) { return KFr_ReplaySend_Wrapper(i, 0, 1, a("data", a.b.data), 16); },
         {refused("data")}},
        {"KFr_FillData_beforeTransmit_MultiFrame_Wrapper",
         [](I i, A& a) {
             return KFr_FillData_beforeTransmit_MultiFrame_Wrapper(i, 0, 1, a("data", a.b.data), 8);
         },
         {refused("data")}},
        {"KFr_Transmit_MultiFrame_Wrapper",
         [](I i, A& a) {
             return KFr_Transmit_MultiFrame_Wrapper(i, 0, 1, a("result", &a.b.result), 1);
         },
         {null("result", 0, kelo::kCmdMultiTransmit, Prepare::StagedEntry)}},
        {"KFr_Set_WorkMode_Wrapper", [](I i, A&) { return KFr_Set_WorkMode_Wrapper(i, 0, 1, 1); }},
        {"KFr_WriteValue_Wrapper", [](I i, A&) { return KFr_WriteValue_Wrapper(i, 0, 0, 1); }},
        {"KFr_ReadValue_Wrapper",
         [](I i, A& a) { return KFr_ReadValue_Wrapper(i, 0, 0, a("value", &a.b.value)); },
         {null("value", 0, kelo::kCmdReadRegister)}},
        {"KFr_SetNodeRxTimeout_Wrapper",
         [](I i, A&) { return KFr_SetNodeRxTimeout_Wrapper(i, 0, 100); }},
        // by frame name (the database suites check their pointers; only index 0 passes both of
        // their checks, and entry 0 is empty)
        {"KFr_Fibex_Receive_Wrapper",
         [](I i, A& a) {
             return KFr_Fibex_Receive_Wrapper(i, a.b.headerOut, a.b.payloadOut,
                                              reinterpret_cast<char*>(a.b.data), 10);
         }},
        {"KFr_AutoSar_Receive_Wrapper",
         [](I i, A& a) {
             return KFr_AutoSar_Receive_Wrapper(i, a.b.headerOut, a.b.payloadOut,
                                                reinterpret_cast<char*>(a.b.data), 10);
         }},
        // CAN
        {"KCAN_Configure_Wrapper",
         [](I i, A& a) { return KCAN_Configure_Wrapper(i, a("config", a.b.config)); },
         {refused("config")}},
        {"KCAN_SetNodeRxTimeout_Wrapper",
         [](I i, A&) { return KCAN_SetNodeRxTimeout_Wrapper(i, 100); }},
        {"KCAN_Start_Wrapper", [](I i, A&) { return KCAN_Start_Wrapper(i); }},
        {"KCAN_Stop_Wrapper", [](I i, A&) { return KCAN_Stop_Wrapper(i); }},
        {"KCAN_Transmit_Wrapper",
         [](I i, A& a) {
             return KCAN_Transmit_Wrapper(i, a("frame", a.b.frame), a("data", a.b.data));
         },
         {refused("frame"), refused("data")}},
        {"KCAN_Receive_Wrapper",
         [](I i, A& a) {
             return KCAN_Receive_Wrapper(i, a("headerOut", a.b.headerOut),
                                         a("payloadOut", a.b.payloadOut), 1000);
         },
         {null("headerOut", 0, 0, Prepare::CanFrame, canPayload),
          null("payloadOut", 0, 0, Prepare::CanFrame, canHeader)}},
        {"KCAN_framesAvailable_Wrapper",
         [](I i, A& a) { return KCAN_framesAvailable_Wrapper(i, a("count", &a.b.count)); },
         {null("count", 0)}},
        {"KCAN_ClearRcvBuffer_Wrapper", [](I i, A&) { return KCAN_ClearRcvBuffer_Wrapper(i); }},
        // device management
        {"KeLo_SetTimeOffset_Wrapper", [](I i, A&) { return KeLo_SetTimeOffset_Wrapper(i, 2); }},
        {"KeLo_get_software_version_Wrapper",
         [](I i, A& a) {
             return KeLo_get_software_version_Wrapper(i, a("libraryVersion", &a.b.libraryVersion),
                                                      a("deviceVersion", &a.b.deviceVersion));
         },
         {null("libraryVersion", 0, 0, Prepare::Nothing,
               [](Buffers& o) { o.deviceVersion = 0x01000203u; }),
          null("deviceVersion", 0, 0, Prepare::Nothing,
               [](Buffers& o) { o.libraryVersion = 0x02000006u; })},
         [](Buffers& b) { b.libraryVersion = 0x02000006u; }},
        {"Kelo_ResetCPU_Wrapper", [](I i, A&) { return Kelo_ResetCPU_Wrapper(i); }},
        {"KFrSetDevIp_Wrapper",
         [](I i, A& a) { return KFrSetDevIp_Wrapper(i, a("address", "10.1.2.3")); },
         {refused("address")}},
    };
    return table;
}

std::vector<NullCase> nullCases() {
    std::vector<NullCase> out;
    for (const Row& row : rows())
        for (NullCase c : row.nulls) {
            c.exportName = row.name;
            c.call = row.call;
            out.push_back(c);
        }
    return out;
}

::testing::AssertionResult sameBuffers(const Buffers& got, const Buffers& want) {
    return sameBytes(bytesOf(&got, sizeof got), bytesOf(&want, sizeof want)) << " (struct Buffers)";
}

// Every export in the table exactly once, every export the public header declares with a device
// index in the table, and a null row for each pointer parameter (the by-name exports' pointers
// are the database suites').
TEST(BadInput, TableCoversThePublicHeader) {
    const std::vector<HeaderFunction> header = headerDeclarations();
    ASSERT_GE(header.size(), 40u) << "the header's declarations were not found";
    std::map<std::string, const Row*> table;
    for (const Row& row : rows())
        EXPECT_TRUE(table.emplace(row.name, &row).second) << row.name << " appears twice";
    std::size_t withIndex = 0, pointers = 0;
    for (const HeaderFunction& f : header) {
        if (!f.takesDeviceIndex) continue;
        ++withIndex;
        auto it = table.find(f.name);
        if (it == table.end()) {
            ADD_FAILURE() << f.name << " is missing from the table";
            continue;
        }
        if (f.name.find("Fibex") != std::string::npos ||
            f.name.find("AutoSar") != std::string::npos)
            continue;
        for (const std::string& p : f.pointerParameters) {
            ++pointers;
            const auto& n = it->second->nulls;
            EXPECT_EQ(std::count_if(n.begin(), n.end(),
                                    [&](const NullCase& c) { return c.parameter == p; }),
                      1)
                << f.name << ": no row for a null '" << p << "'";
        }
    }
    EXPECT_EQ(withIndex, table.size()) << "the opens take an address, not an index";
    EXPECT_EQ(pointers, nullCases().size());
}

class BadIndex : public ExportTest {};

// A live device sits in the table while the bad indices are tried, none of which may reach it.
// After KFr_Close_Wrapper the entry no longer refers to the deleted device: every export on the
// index answers 6 (KCAN_Close_Wrapper too, instead of deleting a second time).
TEST_F(BadIndex, RejectedWithoutTouchingBuffersOrSending) {
    ExportDevice live, closed;
    ASSERT_TRUE(live.open());
    ASSERT_TRUE(closed.open());
    const signed char closedIdx = closed.idx();
    EXPECT_EQ(closed.close(), 0);
    ASSERT_EQ(closed.emu.count(kelo::kCmdClose), 1u);
    EXPECT_EQ(kelo::DeviceSlotTable[closedIdx].inUse.load(), 0);
    EXPECT_EQ(kelo::DeviceSlotTable[closedIdx].lib.load(), nullptr);
    closed.emu.clearReceived();
    ASSERT_EQ(kelo::DeviceSlotTable[126].lib.load(), nullptr) << "entry 126 must be empty";

    for (signed char idx : {0, -1, -128, 127, 126, int(closedIdx)})
        expectEveryExportRejects(idx);

    EXPECT_TRUE(commandsSent(live.emu).empty());
    EXPECT_TRUE(commandsSent(closed.emu).empty());
    // The open device was left alone.
    unsigned int libraryVersion = 0, deviceVersion = 0;
    EXPECT_EQ(KeLo_get_software_version_Wrapper(live.idx(), &libraryVersion, &deviceVersion), 0);
    EXPECT_EQ(deviceVersion, 0x01000203u);
}

// One CAN-opened device for every row (the FlexRay exports work on it as well).
class NullArgument : public ExportTest, public ::testing::WithParamInterface<NullCase> {
  protected:
    static void SetUpTestSuite() {
        device_ = new ExportDevice;
        device_->emu.setNodeState(3, 5);
        device_->emu.setNmVector(kNmVector);
        opened_ = device_->open(Bus::Can, kCanChannel);
    }
    static void TearDownTestSuite() {
        delete device_;
        device_ = nullptr;
    }
    static ExportDevice* device_;
    static ::testing::AssertionResult opened_;
};
ExportDevice* NullArgument::device_ = nullptr;
::testing::AssertionResult NullArgument::opened_ = ::testing::AssertionFailure();

TEST_P(NullArgument, StatusSentCommandsAndOtherOutputs) {
    ASSERT_TRUE(opened_);
    const NullCase& c = GetParam();
    ExportDevice& dev = *device_;
    const signed char i = dev.idx();
    ASSERT_EQ(KFr_ClearRcvBuffer_Wrapper(i, 0), 0);
    ASSERT_EQ(KCAN_ClearRcvBuffer_Wrapper(i), 0);
    if (c.prepare == Prepare::FlexRayFrame) {
        ASSERT_EQ(KFr_StartFrRxUpload_Wrapper(i, 0), 0);
        kelo::emu::FlexRayEntry e;
        e.slot = 7;
        e.cycle = 2;
        e.statusWord = 0x8080;
        e.payload = {0xA1, 0xA2, 0xA3, 0xA4};
        dev.emu.uploadFlexRay({e});
    } else if (c.prepare == Prepare::CanFrame) {
        kelo::emu::CanEntry e;
        e.identifier = 0x123;
        e.data = {1, 2, 3};
        dev.emu.uploadCan({e});
    } else if (c.prepare == Prepare::StagedEntry) {
        unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
        ASSERT_EQ(KFr_FillData_beforeTransmit_MultiFrame_Wrapper(i, 0, 1, data, 8), 0);
    }
    ASSERT_TRUE(dev.sync());  // uploads made above have been dispatched
    dev.emu.clearReceived();

    Args args;
    args.nulled = c.parameter;
    Buffers expected = filled();
    c.writes(expected);
    EXPECT_EQ(c.call(i, args), c.code);

    EXPECT_TRUE(sameBuffers(args.b, expected));
    EXPECT_EQ(codesOf(commandsSent(dev.emu)),
              c.sends ? std::vector<int>{c.sends} : std::vector<int>{});
    EXPECT_TRUE(dev.sync()) << "the device is still usable";
}

INSTANTIATE_TEST_SUITE_P(EveryPointerParameter, NullArgument, ::testing::ValuesIn(nullCases()),
                         [](const ::testing::TestParamInfo<NullCase>& info) {
                             return info.param.exportName + "_" + info.param.parameter;
                         });

class BadOpen : public ExportTest {};

// A null address is never sent to: the open fails at once with -3. A strict open refuses any
// address that is not dotted IPv4 the same way, and a flag bit the opens do not know fails with
// -5 before anything is created. A failed open leaves its unopened instance in the entry (an
// unknown flag none), which the next open takes over; nothing reaches the emulator.
TEST_F(BadOpen, NullAddressesAndUnknownFlagsFailAtOnce) {
    EmulatorHost host;
    const char* addr = host.addr();
    const unsigned kStrict = KELO_DEVICE_STRICT;
    const std::pair<std::function<signed char()>, int> rows[] = {
        {[] { return KFr_Open_Wrapper(nullptr); }, -3},
        {[] { return KCAN_Open_Wrapper(nullptr, 1); }, -3},
        {[] { return KFr_OpenEx_Wrapper(nullptr, 0); }, -3},
        {[&] { return KFr_OpenEx_Wrapper(nullptr, kStrict); }, -3},
        {[] { return KCAN_OpenEx_Wrapper(nullptr, 1, 0); }, -3},
        {[&] { return KCAN_OpenEx_Wrapper(nullptr, 1, kStrict); }, -3},
        {[&] { return KFr_OpenEx_Wrapper("999.1.1.1", kStrict); }, -3},
        {[&] { return KCAN_OpenEx_Wrapper("127.0.2.2.", 1, kStrict); }, -3},
        {[&] { return KFr_OpenEx_Wrapper(addr, 0x2u); }, -5},
        {[&] { return KCAN_OpenEx_Wrapper(addr, 1, 0x80000000u); }, -5},
    };
    for (const auto& [open, code] : rows) {
        SCOPED_TRACE(&open - &rows[0].first);
        const int idx = firstFreeIndex();
        ASSERT_GT(idx, 0);
        CommunicationLib* const before = kelo::DeviceSlotTable[idx].lib.load();
        EXPECT_EQ(int(open()), code);
        EXPECT_EQ(kelo::DeviceSlotTable[idx].inUse.load(), 0);
        if (code == -5) {
            EXPECT_EQ(kelo::DeviceSlotTable[idx].lib.load(), before) << "nothing was created";
        }
        EXPECT_TRUE(commandsSent(host.emu).empty());

        // The next open takes the entry, and its close frees it.
        OpenedIndices opened;
        const signed char again = opened.add(KFr_Open_Wrapper(addr));
        EXPECT_EQ(int(again), idx);
        EXPECT_EQ(opened.close(again), 0);
        host.emu.clearReceived();
    }
}

}  // namespace

std::vector<HeaderFunction> headerDeclarations() {
    std::ifstream in(KELO_PUBLIC_HEADER);
    std::stringstream text;
    text << in.rdbuf();
    // Block comments removed: a parameter may carry one.
    const std::string header =
        std::regex_replace(text.str(), std::regex(R"(/\*[\s\S]*?\*/)"), std::string());
    // The extern "C" block runs from its opening line to the first line holding only "}".
    const std::size_t cBegin = header.find("extern \"C\" {");
    std::size_t cEnd = std::string::npos;
    std::smatch m;
    if (cBegin != std::string::npos) {
        const std::string rest = header.substr(cBegin);
        if (std::regex_search(rest, m, std::regex(R"(\n\}[ \t]*\n)")))
            cEnd = cBegin + std::size_t(m.position(0));
    }
    // "KELOCOMM_API <return type> <name>(<parameters>)" across line breaks.
    static const std::regex declaration(
        R"(KELOCOMM_API\s+[A-Za-z_][\w\s\*]*?\b([A-Za-z_]\w*)\s*\(([^)]*)\))");
    static const std::regex indexParameter(R"(^\s*signed\s+char\s+\w+\s*$)");
    static const std::regex pointer(R"(\*\s*(\w+)\s*$)");
    std::vector<HeaderFunction> out;
    for (std::sregex_iterator it(header.begin(), header.end(), declaration), end; it != end; ++it) {
        HeaderFunction f;
        f.name = (*it)[1].str();
        std::stringstream list((*it)[2].str());
        bool first = true;
        for (std::string p; std::getline(list, p, ','); first = false) {
            if (first) f.takesDeviceIndex = std::regex_match(p, indexParameter);
            if (std::regex_search(p, m, pointer)) f.pointerParameters.push_back(m[1]);
        }
        const std::size_t at = std::size_t(it->position(0));
        f.cLinkage = cBegin != std::string::npos && at > cBegin && at < cEnd;
        out.push_back(f);
    }
    return out;
}

std::set<std::string> headerFunctions() {
    std::set<std::string> names;
    for (const HeaderFunction& f : headerDeclarations())
        names.insert(f.name);
    return names;
}

void expectEveryExportRejects(signed char idx, const std::set<std::string>& passing) {
    SCOPED_TRACE("device index " + std::to_string(int(idx)));
    for (const Row& row : rows()) {
        if (passing.count(row.name)) continue;
        SCOPED_TRACE(row.name);
        Args args;
        Buffers expected = filled();
        row.allowed(expected);
        EXPECT_EQ(row.call(idx, args), 6);
        EXPECT_TRUE(sameBuffers(args.b, expected));
    }
}

}  // namespace kelo_export_test
