// The table of every export that takes a device index, and the public header's function list.
#include <cstddef>
#include <fstream>
#include <regex>
#include <sstream>

#include "export_fixture.h"

namespace kelo_export_test {

namespace {

constexpr std::uint8_t kSentinel = 0xA5;

// Every buffer an export may read or write. The whole block is filled with the sentinel, so a
// byte written anywhere shows, and so does a field read in the wrong place.
struct Buffers {
    unsigned char block[64];
    KFrFifoRecord fifo;
    KFrKeySlotRecord keySlots;
    unsigned char state;
    unsigned char subState;
    unsigned char psr[8];
    unsigned char vector[12];
    unsigned char vectorLength;
    unsigned char header[28];
    unsigned char payload[510];
    unsigned char data[256];
    unsigned char result;
    unsigned int value;
    unsigned int count;
    unsigned int libraryVersion;
    unsigned int deviceVersion;
    unsigned char config[52];
    unsigned char frame[12];
};

using Call = std::function<int(signed char, Buffers&)>;

struct Row {
    const char* name;
    Call call;
    // What the export may change even on a rejected index.
    std::function<void(Buffers&)> allowed = [](Buffers&) {};
};

const std::vector<Row>& rows() {
    static const std::vector<Row> table = {
        {"KFr_Close_Wrapper", [](signed char i, Buffers&) { return KFr_Close_Wrapper(i); }},
        {"KCAN_Close_Wrapper", [](signed char i, Buffers&) { return KCAN_Close_Wrapper(i); }},
        // FlexRay
        {"KFr_Set_Cluster_Parameter_Wrapper",
         [](signed char i, Buffers& b) {
             return KFr_Set_Cluster_Parameter_Wrapper(i, 0, b.block);
         }},
        {"KFr_Set_Node_Parameter_Wrapper",
         [](signed char i, Buffers& b) { return KFr_Set_Node_Parameter_Wrapper(i, 0, b.block); }},
        {"KFr_Set_CC_Parameter_Wrapper",
         [](signed char i, Buffers& b) { return KFr_Set_CC_Parameter_Wrapper(i, 0, b.block); }},
        {"KFr_Set_Slot_Parameter_Wrapper",
         [](signed char i, Buffers& b) { return KFr_Set_Slot_Parameter_Wrapper(i, 0, b.block); }},
        {"KFr_Set_Fifo_Parameter_Wrapper",
         [](signed char i, Buffers& b) { return KFr_Set_Fifo_Parameter_Wrapper(i, 0, &b.fifo); }},
        {"KFr_SetFrPhyNodeKeySlot_Wrapper",
         [](signed char i, Buffers& b) {
             return KFr_SetFrPhyNodeKeySlot_Wrapper(i, 0, &b.keySlots);
         }},
        {"KFr_Configure_Node_Wrapper",
         [](signed char i, Buffers&) { return KFr_Configure_Node_Wrapper(i, 0); }},
        {"KFr_SendWakeUp_Wrapper",
         [](signed char i, Buffers&) { return KFr_SendWakeUp_Wrapper(i, 0); }},
        {"KFr_Start_Node_Wrapper",
         [](signed char i, Buffers&) { return KFr_Start_Node_Wrapper(i, 0); }},
        {"KFr_Stop_Wrapper", [](signed char i, Buffers&) { return KFr_Stop_Wrapper(i, 0); }},
        {"KFr_StartFrRxUpload_Wrapper",
         [](signed char i, Buffers&) { return KFr_StartFrRxUpload_Wrapper(i, 0); }},
        {"KFr_StopFrRxUpload_Wrapper",
         [](signed char i, Buffers&) { return KFr_StopFrRxUpload_Wrapper(i, 0); }},
        {"KFr_ClearRcvBuffer_Wrapper",
         [](signed char i, Buffers&) { return KFr_ClearRcvBuffer_Wrapper(i, 0); }},
        {"KFr_GetFrNodeState_Wrapper",
         [](signed char i, Buffers& b) {
             return KFr_GetFrNodeState_Wrapper(i, 0, &b.state, &b.subState);
         }},
        {"KFr_GetFrPSRState_Wrapper",
         [](signed char i, Buffers& b) { return KFr_GetFrPSRState_Wrapper(i, 0, b.psr); }},
        {"KFr_GetFrNWVector_Wrapper",
         [](signed char i, Buffers& b) {
             return KFr_GetFrNWVector_Wrapper(i, 0, b.vector, &b.vectorLength);
         }},
        {"KFr_framesAvailable_Wrapper",
         [](signed char i, Buffers&) { return KFr_framesAvailable_Wrapper(i); }},
        {"KFr_Receive_Wrapper",
         [](signed char i, Buffers& b) { return KFr_Receive_Wrapper(i, b.header, b.payload, 10); }},
        {"KFr_Transmit_Wrapper",
         [](signed char i, Buffers& b) { return KFr_Transmit_Wrapper(i, 0, 0, b.data, 4); }},
        {"KFr_ReplaySend_Wrapper",
         [](signed char i, Buffers& b) { return KFr_ReplaySend_Wrapper(i, 0, 1, b.data, 16); }},
        {"KFr_FillData_beforeTransmit_MultiFrame_Wrapper",
         [](signed char i, Buffers& b) {
             return KFr_FillData_beforeTransmit_MultiFrame_Wrapper(i, 0, 1, b.data, 8);
         }},
        {"KFr_Transmit_MultiFrame_Wrapper",
         [](signed char i, Buffers& b) {
             return KFr_Transmit_MultiFrame_Wrapper(i, 0, 1, &b.result, 1);
         }},
        {"KFr_Set_WorkMode_Wrapper",
         [](signed char i, Buffers&) { return KFr_Set_WorkMode_Wrapper(i, 0, 1, 1); }},
        {"KFr_WriteValue_Wrapper",
         [](signed char i, Buffers&) { return KFr_WriteValue_Wrapper(i, 0, 0, 1); }},
        {"KFr_ReadValue_Wrapper",
         [](signed char i, Buffers& b) { return KFr_ReadValue_Wrapper(i, 0, 0, &b.value); }},
        {"KFr_SetNodeRxTimeout_Wrapper",
         [](signed char i, Buffers&) { return KFr_SetNodeRxTimeout_Wrapper(i, 0, 100); }},
        // by frame name (only index 0 can pass these two checks, and entry 0 is empty)
        {"KFr_Fibex_Receive_Wrapper",
         [](signed char i, Buffers& b) {
             return KFr_Fibex_Receive_Wrapper(i, b.header, b.payload,
                                              reinterpret_cast<char*>(b.data), 10);
         }},
        {"KFr_AutoSar_Receive_Wrapper",
         [](signed char i, Buffers& b) {
             return KFr_AutoSar_Receive_Wrapper(i, b.header, b.payload,
                                                reinterpret_cast<char*>(b.data), 10);
         }},
        // CAN
        {"KCAN_Configure_Wrapper",
         [](signed char i, Buffers& b) { return KCAN_Configure_Wrapper(i, b.config); }},
        {"KCAN_SetNodeRxTimeout_Wrapper",
         [](signed char i, Buffers&) { return KCAN_SetNodeRxTimeout_Wrapper(i, 100); }},
        {"KCAN_Start_Wrapper", [](signed char i, Buffers&) { return KCAN_Start_Wrapper(i); }},
        {"KCAN_Stop_Wrapper", [](signed char i, Buffers&) { return KCAN_Stop_Wrapper(i); }},
        {"KCAN_Transmit_Wrapper",
         [](signed char i, Buffers& b) { return KCAN_Transmit_Wrapper(i, b.frame, b.data); }},
        {"KCAN_Receive_Wrapper",
         [](signed char i, Buffers& b) {
             return KCAN_Receive_Wrapper(i, b.header, b.payload, 10);
         }},
        {"KCAN_framesAvailable_Wrapper",
         [](signed char i, Buffers& b) { return KCAN_framesAvailable_Wrapper(i, &b.count); }},
        {"KCAN_ClearRcvBuffer_Wrapper",
         [](signed char i, Buffers&) { return KCAN_ClearRcvBuffer_Wrapper(i); }},
        // device management
        {"KeLo_SetTimeOffset_Wrapper",
         [](signed char i, Buffers&) { return KeLo_SetTimeOffset_Wrapper(i, 2); }},
        {"KeLo_get_software_version_Wrapper",
         [](signed char i, Buffers& b) {
             return KeLo_get_software_version_Wrapper(i, &b.libraryVersion, &b.deviceVersion);
         },
         [](Buffers& b) { b.libraryVersion = 0x02000006u; }},
        {"Kelo_ResetCPU_Wrapper", [](signed char i, Buffers&) { return Kelo_ResetCPU_Wrapper(i); }},
        {"KFrSetDevIp_Wrapper",
         [](signed char i, Buffers&) { return KFrSetDevIp_Wrapper(i, "10.1.2.3"); }},
    };
    return table;
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
    std::size_t cBegin = header.find("extern \"C\" {");
    std::size_t cEnd = std::string::npos;
    if (cBegin != std::string::npos) {
        static const std::regex closing(R"(\n\}[ \t]*\n)");
        std::smatch m;
        const std::string rest = header.substr(cBegin);
        if (std::regex_search(rest, m, closing)) cEnd = cBegin + std::size_t(m.position(0));
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
        std::vector<std::string> parameters;
        std::stringstream list((*it)[2].str());
        for (std::string p; std::getline(list, p, ',');)
            parameters.push_back(p);
        f.takesDeviceIndex = !parameters.empty() && std::regex_match(parameters[0], indexParameter);
        for (const std::string& p : parameters) {
            std::smatch m;
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

std::vector<std::string> indexedExportNames() {
    std::vector<std::string> names;
    for (const Row& r : rows())
        names.push_back(r.name);
    return names;
}

void expectEveryExportRejects(signed char idx, const std::set<std::string>& passing) {
    SCOPED_TRACE("device index " + std::to_string(int(idx)));
    for (const Row& row : rows()) {
        if (passing.count(row.name)) continue;
        SCOPED_TRACE(row.name);
        Buffers b;
        std::memset(&b, kSentinel, sizeof b);
        Buffers expected;
        std::memset(&expected, kSentinel, sizeof expected);
        row.allowed(expected);

        EXPECT_EQ(row.call(idx, b), 6);

        const auto* got = reinterpret_cast<const std::uint8_t*>(&b);
        const auto* want = reinterpret_cast<const std::uint8_t*>(&expected);
        for (std::size_t i = 0; i < sizeof b; ++i) {
            if (got[i] != want[i]) {
                ADD_FAILURE() << "buffer changed at offset " << i << " of struct Buffers: 0x"
                              << std::hex << int(got[i]) << " instead of 0x" << int(want[i]);
                break;
            }
        }
    }
}

}  // namespace kelo_export_test
