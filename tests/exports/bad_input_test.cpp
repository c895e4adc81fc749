// Bad input at every export that takes a device index, one row per export. An index outside
// 1..126, or an entry without a device, gives 6 at once, touches no buffer and sends nothing. A
// null pointer on a device that is really open: a null record is refused with 5 before anything
// is sent; a null output is skipped and the rest of the call goes on.
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>

#include "export_fixture.h"

namespace kelo_export_test {
namespace {

constexpr std::uint8_t kSentinel = 0xA5;

// Every buffer an export may read or write, named after its parameter (each an array, so that
// P(x) below passes every one the same way). Sentinel-filled (the CAN frame a valid one), so a
// byte written anywhere shows, and so does a field read in the wrong place.
struct Buffers {
    unsigned char block[64];
    KFrFifoRecord fifo[1];
    KFrKeySlotRecord keySlots[1];
    unsigned char state[1], subState[1], psr[8], vector[12], length[1], headerOut[28];
    unsigned char payloadOut[510], data[256], result[1], config[52], frame[12];
    unsigned int value[1], count[1], libraryVersion[1], deviceVersion[1];
};
Buffers filled() {
    Buffers b;
    std::memset(&b, kSentinel, sizeof b);
    const unsigned char frame[12] = {0x23, 0x01, 0, 0, 0, 0, 0, 0, 8};
    std::memcpy(b.frame, frame, sizeof frame);
    return b;
}

// The buffers, and the one parameter a null case passes as null (and where that buffer lies).
struct Args {
    Buffers b = filled();
    std::string nulled;
    std::size_t skippedAt = 0, skippedSize = 0;
    template <typename T, std::size_t N>
    T* operator()(const char* name, T (&buffer)[N]) {
        if (nulled != name) return buffer;
        skippedAt = reinterpret_cast<std::uintptr_t>(buffer) - reinterpret_cast<std::uintptr_t>(&b);
        skippedSize = sizeof buffer;
        return nullptr;
    }
};

struct Row {
    const char* name;
    std::function<int(signed char, Args&)> call;
    // Pointer parameters, separated by spaces, whose null is refused (5, nothing sent, no buffer
    // touched) and those whose null is skipped (that output alone is left as it was).
    std::string refused = "", skipped = "";
    // What the export may change even on a rejected index.
    std::function<void(Buffers&)> allowed = [](Buffers&) {};
};

// A row starts with EXPORT(name, arguments): the export's name and its call on index i (P(x):
// the buffer named x); then the pointer parameters whose null is refused, those whose null is
// skipped, and Row's further fields.
#define EXPORT(fn, args) #fn, [](signed char i, [[maybe_unused]] Args& a) { return fn args; }
#define P(buffer) a(#buffer, a.b.buffer)

const std::vector<Row>& rows() {
    static const std::vector<Row> table = {
        {EXPORT(KFr_Close_Wrapper, (i))},
        {EXPORT(KCAN_Close_Wrapper, (i))},
        // FlexRay
        {EXPORT(KFr_Set_Cluster_Parameter_Wrapper, (i, 0, P(block))), "block"},
        {EXPORT(KFr_Set_Node_Parameter_Wrapper, (i, 0, P(block))), "block"},
        {EXPORT(KFr_Set_CC_Parameter_Wrapper, (i, 0, P(block))), "block"},
        {EXPORT(KFr_Set_Slot_Parameter_Wrapper, (i, 0, P(block))), "block"},
        {EXPORT(KFr_Set_Fifo_Parameter_Wrapper, (i, 0, P(fifo))), "fifo"},
        {EXPORT(KFr_SetFrPhyNodeKeySlot_Wrapper, (i, 0, P(keySlots))), "keySlots"},
        {EXPORT(KFr_Configure_Node_Wrapper, (i, 0))},
        {EXPORT(KFr_SendWakeUp_Wrapper, (i, 0))},
        {EXPORT(KFr_Start_Node_Wrapper, (i, 0))},
        {EXPORT(KFr_Stop_Wrapper, (i, 0))},
        {EXPORT(KFr_StartFrRxUpload_Wrapper, (i, 0))},
        {EXPORT(KFr_StopFrRxUpload_Wrapper, (i, 0))},
        {EXPORT(KFr_ClearRcvBuffer_Wrapper, (i, 0))},
        {EXPORT(KFr_GetFrNodeState_Wrapper, (i, 0, P(state), P(subState))), "", "state subState"},
        {EXPORT(KFr_GetFrPSRState_Wrapper, (i, 0, P(psr))), "", "psr"},
        {EXPORT(KFr_GetFrNWVector_Wrapper, (i, 0, P(vector), P(length))), "", "vector length"},
        {EXPORT(KFr_framesAvailable_Wrapper, (i))},
        {EXPORT(KFr_Receive_Wrapper, (i, P(headerOut), P(payloadOut), 1000)), "",
         "headerOut payloadOut"},
        {EXPORT(KFr_Transmit_Wrapper, (i, 0, 1, P(data), 4)), "data"},
        {EXPORT(KFr_ReplaySend_Wrapper, (i, 0, 1, P(data), 16)), "data"},
        {EXPORT(KFr_FillData_beforeTransmit_MultiFrame_Wrapper, (i, 0, 1, P(data), 8)), "data"},
        {EXPORT(KFr_Transmit_MultiFrame_Wrapper, (i, 0, 1, P(result), 1)), "", "result"},
        {EXPORT(KFr_Set_WorkMode_Wrapper, (i, 0, 1, 1))},
        {EXPORT(KFr_WriteValue_Wrapper, (i, 0, 0, 1))},
        {EXPORT(KFr_ReadValue_Wrapper, (i, 0, 0, P(value))), "", "value"},
        {EXPORT(KFr_SetNodeRxTimeout_Wrapper, (i, 0, 100))},
        // by frame name (the database suites check their pointers; only index 0 passes both of
        // their checks, and entry 0 is empty)
        {EXPORT(KFr_Fibex_Receive_Wrapper,
                (i, a.b.headerOut, a.b.payloadOut, reinterpret_cast<char*>(a.b.data), 10))},
        {EXPORT(KFr_AutoSar_Receive_Wrapper,
                (i, a.b.headerOut, a.b.payloadOut, reinterpret_cast<char*>(a.b.data), 10))},
        // CAN
        {EXPORT(KCAN_Configure_Wrapper, (i, P(config))), "config"},
        {EXPORT(KCAN_SetNodeRxTimeout_Wrapper, (i, 100))},
        {EXPORT(KCAN_Start_Wrapper, (i))},
        {EXPORT(KCAN_Stop_Wrapper, (i))},
        {EXPORT(KCAN_Transmit_Wrapper, (i, P(frame), P(data))), "frame data"},
        {EXPORT(KCAN_Receive_Wrapper, (i, P(headerOut), P(payloadOut), 1000)), "",
         "headerOut payloadOut"},
        {EXPORT(KCAN_framesAvailable_Wrapper, (i, P(count))), "", "count"},
        {EXPORT(KCAN_ClearRcvBuffer_Wrapper, (i))},
        // device management
        {EXPORT(KeLo_SetTimeOffset_Wrapper, (i, 2))},
        {EXPORT(KeLo_get_software_version_Wrapper, (i, P(libraryVersion), P(deviceVersion))), "",
         "libraryVersion deviceVersion", [](Buffers& b) { b.libraryVersion[0] = 0x02000006u; }},
        {EXPORT(Kelo_ResetCPU_Wrapper, (i))},
        {EXPORT(KFrSetDevIp_Wrapper, (i, a("address", "10.1.2.3"))), "address"},
    };
    return table;
}
#undef P
#undef EXPORT

std::vector<std::string> words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

::testing::AssertionResult sameBuffers(const Buffers& got, const Buffers& want) {
    return sameBytes(bytesOf(&got, sizeof got), bytesOf(&want, sizeof want)) << " (struct Buffers)";
}

// Every export the public header declares with a device index is in the table exactly once, with
// a null case for each pointer parameter (the by-name exports' pointers are the database
// suites').
TEST(BadInput, TableCoversThePublicHeader) {
    std::map<std::string, const Row*> table;
    for (const Row& row : rows())
        EXPECT_TRUE(table.emplace(row.name, &row).second) << row.name << " appears twice";
    std::size_t withIndex = 0;
    for (const HeaderFunction& f : headerDeclarations()) {
        if (!f.takesDeviceIndex) continue;
        ++withIndex;
        const auto it = table.find(f.name);
        ASSERT_NE(it, table.end()) << f.name << " is missing from the table";
        if (f.name.find("Fibex") != std::string::npos ||
            f.name.find("AutoSar") != std::string::npos)
            continue;
        const std::vector<std::string> nulls =
            words(it->second->refused + " " + it->second->skipped);
        EXPECT_EQ(
            std::multiset<std::string>(nulls.begin(), nulls.end()),
            std::multiset<std::string>(f.pointerParameters.begin(), f.pointerParameters.end()))
            << f.name << ": one null case per pointer parameter";
    }
    EXPECT_EQ(withIndex, table.size()) << "the opens take an address, not an index";
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

// Empty receive queues, then one frame in each and one staged entry (what the receive and
// multi-frame cases need); returns once the device has it all.
void prepare(ExportDevice& dev) {
    const signed char i = dev.idx();
    EXPECT_EQ(KFr_ClearRcvBuffer_Wrapper(i, 0), 0);
    EXPECT_EQ(KCAN_ClearRcvBuffer_Wrapper(i), 0);
    EXPECT_EQ(KFr_StartFrRxUpload_Wrapper(i, 0), 0);
    kelo::emu::FlexRayEntry fr;
    fr.payload = {0xA1, 0xA2, 0xA3, 0xA4};
    dev.emu.uploadFlexRay({fr});
    kelo::emu::CanEntry can;
    can.data = {1, 2, 3};
    dev.emu.uploadCan({can});
    unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(KFr_FillData_beforeTransmit_MultiFrame_Wrapper(i, 0, 1, data, 8), 0);
    EXPECT_TRUE(dev.sync());  // the uploads have been dispatched
    dev.emu.clearReceived();
}

class NullArgument : public ExportTest {};

// On a CAN-opened device (the FlexRay exports work on it as well), every null case of the table.
// A refused null: 5, nothing sent, no buffer touched. A skipped one: the same result, commands
// and outputs as the call with every pointer given, except that the null one's buffer is left.
TEST_F(NullArgument, RecordsAreRefusedAndOutputsSkipped) {
    ExportDevice dev;
    dev.emu.setNodeState(3, 5);
    dev.emu.setNmVector({0x11, 0x22, 0x33});
    ASSERT_TRUE(dev.open(Bus::Can, 3));
    auto run = [&](const Row& row, Args& args) {
        prepare(dev);
        const int code = row.call(dev.idx(), args);
        return std::make_pair(code, codesOf(commandsSent(dev.emu)));
    };
    for (const Row& row : rows())
        for (const bool refused : {true, false})
            for (const std::string& parameter : words(refused ? row.refused : row.skipped)) {
                SCOPED_TRACE(std::string(row.name) + ", null " + parameter);
                Args args, full, expected;
                args.nulled = parameter;
                const auto [code, sent] = run(row, args);
                if (refused) {
                    EXPECT_EQ(code, 5);
                    EXPECT_EQ(sent, std::vector<int>{});
                } else {
                    const auto [fullCode, fullSent] = run(row, full);
                    EXPECT_EQ(code, 0);
                    EXPECT_EQ(fullCode, 0);
                    EXPECT_EQ(sent, fullSent);
                    expected.b = full.b;
                    std::memset(reinterpret_cast<unsigned char*>(&expected.b) + args.skippedAt,
                                kSentinel, args.skippedSize);
                }
                EXPECT_TRUE(sameBuffers(args.b, expected.b));
                EXPECT_TRUE(dev.sync()) << "the device is still usable";
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
    const std::size_t cEnd = header.find("\n}\n", cBegin);
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
        std::smatch m;
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
