// Null pointers at the device exports: one row per (export, pointer parameter) on a device that
// is really open, with the status the caller gets, the commands that still reach the device and
// what the other outputs receive. A null record is refused with 5 before anything is sent; a null
// output is skipped and the rest of the call goes on. Then the opens with a null address, an
// address a strict open refuses and unknown flags. Bad indices: index_check_test.cpp.
#include <iterator>
#include <set>

#include "export_fixture.h"

using namespace kelo_export_test;

namespace {

constexpr std::uint8_t kSentinel = 0xA5;
constexpr std::uint8_t kCanChannel = 3;
constexpr std::uint8_t kPocState = 3;
constexpr std::uint8_t kPocSubState = 5;
const Bytes kNmVector = {0x11, 0x22, 0x33};

// Every output a device export may write; sentinel-filled before each row.
struct Outputs {
    unsigned char state;
    unsigned char subState;
    unsigned char psr[8];
    unsigned char vector[12];
    unsigned char vectorLength;
    unsigned char header[28];
    unsigned char payload[510];
    unsigned char result;
    unsigned int value;
    unsigned int count;
    unsigned int libraryVersion;
    unsigned int deviceVersion;
};

// What a row needs queued or staged before its call.
enum class Prepare { Nothing, FlexRayFrame, CanFrame, StagedEntry };

struct NullRow {
    const char* exportName;
    const char* argument;  // the pointer parameter passed as null
    int code;              // what the caller gets
    int sends;             // the command that reaches the device (0: none)
    Prepare prepare;
    std::function<int(signed char, Outputs&)> call;
    // The values the other outputs receive (everything else keeps the sentinel).
    std::function<void(Outputs&)> writes = [](Outputs&) {};
    Bytes lastPayload = {};  // when not empty: the payload of the last command sent
    std::function<void(signed char)> afterwards = [](signed char) {};
};

// The frames the receive rows take: FlexRay slot 7, cycle 2, both channels, two words; CAN
// identifier 0x123 with three data bytes.
kelo::emu::FlexRayEntry flexRayEntry() {
    kelo::emu::FlexRayEntry e;
    e.slot = 7;
    e.cycle = 2;
    e.statusWord = 0x8080;
    e.payload = {0xA1, 0xA2, 0xA3, 0xA4};
    return e;
}
kelo::emu::CanEntry canEntry() {
    kelo::emu::CanEntry e;
    e.identifier = 0x123;
    e.data = {1, 2, 3};
    return e;
}
void put(unsigned char* out, const Bytes& bytes) {
    std::copy(bytes.begin(), bytes.end(), out);
}
void flexRayHeader(Outputs& o) {
    put(o.header, cat({zeros(16), le16(7), {3, 2, 2, 0}, zeros(2), le16(0x8080), {0xA1, 0xA2}}));
}
void flexRayPayload(Outputs& o) {
    put(o.payload, {0xA1, 0xA2, 0xA3, 0xA4});
}
void canHeader(Outputs& o) {
    put(o.header, cat({{kCanChannel, 0, 0, 0}, zeros(12), le32(0x123), {0, 0, 0, 3}}));
}
void canPayload(Outputs& o) {
    put(o.payload, {1, 2, 3, 0, 0, 0});  // twice the data length, the excess zero
}

const NullRow kRows[] = {
    // ---- FlexRay records: refused before anything is sent
    {"KFr_Set_Cluster_Parameter_Wrapper", "block", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFr_Set_Cluster_Parameter_Wrapper(i, 0, nullptr); }},
    {"KFr_Set_Node_Parameter_Wrapper", "block", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFr_Set_Node_Parameter_Wrapper(i, 0, nullptr); }},
    {"KFr_Set_CC_Parameter_Wrapper", "block", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFr_Set_CC_Parameter_Wrapper(i, 0, nullptr); }},
    {"KFr_Set_Slot_Parameter_Wrapper", "block", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFr_Set_Slot_Parameter_Wrapper(i, 0, nullptr); }},
    {"KFr_Set_Fifo_Parameter_Wrapper", "fifo", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFr_Set_Fifo_Parameter_Wrapper(i, 0, nullptr); }},
    {"KFr_SetFrPhyNodeKeySlot_Wrapper", "keySlots", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFr_SetFrPhyNodeKeySlot_Wrapper(i, 0, nullptr); }},
    // ---- FlexRay queries: the query runs, the null output is skipped
    {"KFr_GetFrNodeState_Wrapper", "state", 0, kelo::kCmdGetNodeState, Prepare::Nothing,
     [](signed char i, Outputs& o) {
         return KFr_GetFrNodeState_Wrapper(i, 0, nullptr, &o.subState);
     },
     [](Outputs& o) { o.subState = kPocSubState; }},
    {"KFr_GetFrNodeState_Wrapper", "subState", 0, kelo::kCmdGetNodeState, Prepare::Nothing,
     [](signed char i, Outputs& o) { return KFr_GetFrNodeState_Wrapper(i, 0, &o.state, nullptr); },
     [](Outputs& o) { o.state = kPocState; }},
    {"KFr_GetFrPSRState_Wrapper", "psr", 0, kelo::kCmdGetNodeState, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFr_GetFrPSRState_Wrapper(i, 0, nullptr); }},
    {"KFr_GetFrNWVector_Wrapper", "vector", 0, kelo::kCmdGetNmVector, Prepare::Nothing,
     [](signed char i, Outputs& o) {
         return KFr_GetFrNWVector_Wrapper(i, 0, nullptr, &o.vectorLength);
     },
     [](Outputs& o) { o.vectorLength = 3; }},
    {"KFr_GetFrNWVector_Wrapper", "length", 0, kelo::kCmdGetNmVector, Prepare::Nothing,
     [](signed char i, Outputs& o) { return KFr_GetFrNWVector_Wrapper(i, 0, o.vector, nullptr); },
     [](Outputs& o) { put(o.vector, kNmVector); }},
    {"KFr_ReadValue_Wrapper", "value", 0, kelo::kCmdReadRegister, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFr_ReadValue_Wrapper(i, 0, 0, nullptr); }},
    // ---- FlexRay receive: the frame is taken, the null buffer is skipped
    {"KFr_Receive_Wrapper", "headerOut", 0, 0, Prepare::FlexRayFrame,
     [](signed char i, Outputs& o) { return KFr_Receive_Wrapper(i, nullptr, o.payload, 5000); },
     flexRayPayload},
    {"KFr_Receive_Wrapper", "payloadOut", 0, 0, Prepare::FlexRayFrame,
     [](signed char i, Outputs& o) { return KFr_Receive_Wrapper(i, o.header, nullptr, 5000); },
     flexRayHeader},
    // ---- FlexRay transmit: data with a non-zero length is refused before anything is sent
    {"KFr_Transmit_Wrapper", "data", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFr_Transmit_Wrapper(i, 0, 1, nullptr, 4); }},
    {"KFr_ReplaySend_Wrapper", "data", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFr_ReplaySend_Wrapper(i, 0, 1, nullptr, 16); }},
    // Refused and not staged: a multi-frame transmit of entry 0 then finds it empty (19).
    {"KFr_FillData_beforeTransmit_MultiFrame_Wrapper", "data", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) {
         return KFr_FillData_beforeTransmit_MultiFrame_Wrapper(i, 0, 1, nullptr, 8);
     },
     [](Outputs&) {}, Bytes(),
     [](signed char i) {
         unsigned char result = 0;
         EXPECT_EQ(KFr_Transmit_MultiFrame_Wrapper(i, 0, 1, &result, 1), 19) << "entry 0 staged";
     }},
    {"KFr_Transmit_MultiFrame_Wrapper", "result", 0, kelo::kCmdMultiTransmit, Prepare::StagedEntry,
     [](signed char i, Outputs&) { return KFr_Transmit_MultiFrame_Wrapper(i, 0, 1, nullptr, 1); }},
    // ---- CAN
    {"KCAN_Configure_Wrapper", "config", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KCAN_Configure_Wrapper(i, nullptr); }},
    {"KCAN_Transmit_Wrapper", "frame", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KCAN_Transmit_Wrapper(i, nullptr, nullptr); }},
    {"KCAN_Transmit_Wrapper", "data", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) {
         unsigned char frame[12] = {0x23, 0x01, 0, 0, 0, 0, 0, 0, 8};
         return KCAN_Transmit_Wrapper(i, frame, nullptr);
     }},
    {"KCAN_Receive_Wrapper", "headerOut", 0, 0, Prepare::CanFrame,
     [](signed char i, Outputs& o) { return KCAN_Receive_Wrapper(i, nullptr, o.payload, 5000); },
     canPayload},
    {"KCAN_Receive_Wrapper", "payloadOut", 0, 0, Prepare::CanFrame,
     [](signed char i, Outputs& o) { return KCAN_Receive_Wrapper(i, o.header, nullptr, 5000); },
     canHeader},
    {"KCAN_framesAvailable_Wrapper", "count", 0, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KCAN_framesAvailable_Wrapper(i, nullptr); }},
    // ---- device management
    {"KeLo_get_software_version_Wrapper", "libraryVersion", 0, 0, Prepare::Nothing,
     [](signed char i, Outputs& o) {
         return KeLo_get_software_version_Wrapper(i, nullptr, &o.deviceVersion);
     },
     [](Outputs& o) { o.deviceVersion = 0x01000203u; }},
    {"KeLo_get_software_version_Wrapper", "deviceVersion", 0, 0, Prepare::Nothing,
     [](signed char i, Outputs& o) {
         return KeLo_get_software_version_Wrapper(i, &o.libraryVersion, nullptr);
     },
     [](Outputs& o) { o.libraryVersion = 0x02000006u; }},
    {"KFrSetDevIp_Wrapper", "address", 5, 0, Prepare::Nothing,
     [](signed char i, Outputs&) { return KFrSetDevIp_Wrapper(i, nullptr); }},
};

// One CAN-opened device for every row (the FlexRay exports work on it as well).
class NullArgument : public ExportTest, public ::testing::WithParamInterface<NullRow> {
  protected:
    static void SetUpTestSuite() {
        device_ = new ExportDevice;
        device_->emu.setNodeState(kPocState, kPocSubState);
        device_->emu.setNmVector(kNmVector);
        opened_ = device_->open(Bus::Can, kCanChannel);
    }
    static void TearDownTestSuite() {
        delete device_;
        device_ = nullptr;
    }
    void SetUp() override {
        ExportTest::SetUp();
        ASSERT_TRUE(opened_);
        ExportDevice& dev = *device_;
        dev.emu.clearFaults();
        ASSERT_EQ(KFr_ClearRcvBuffer_Wrapper(dev.idx(), 0), 0);
        ASSERT_EQ(KCAN_ClearRcvBuffer_Wrapper(dev.idx()), 0);
        switch (GetParam().prepare) {
            case Prepare::Nothing:
                break;
            case Prepare::FlexRayFrame:
                ASSERT_EQ(KFr_StartFrRxUpload_Wrapper(dev.idx(), 0), 0);
                dev.emu.uploadFlexRay({flexRayEntry()});
                break;
            case Prepare::CanFrame:
                dev.emu.uploadCan({canEntry()});
                break;
            case Prepare::StagedEntry: {
                unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
                ASSERT_EQ(KFr_FillData_beforeTransmit_MultiFrame_Wrapper(dev.idx(), 0, 1, data, 8),
                          0);
                break;
            }
        }
        ASSERT_TRUE(dev.sync());  // uploads made above have been dispatched
        dev.emu.clearReceived();
    }

    static ExportDevice* device_;
    static ::testing::AssertionResult opened_;
};
ExportDevice* NullArgument::device_ = nullptr;
::testing::AssertionResult NullArgument::opened_ = ::testing::AssertionFailure();

TEST_P(NullArgument, StatusSentCommandsAndOtherOutputs) {
    const NullRow& row = GetParam();
    ExportDevice& dev = *device_;
    Outputs got;
    std::memset(&got, kSentinel, sizeof got);
    Outputs expected;
    std::memset(&expected, kSentinel, sizeof expected);
    row.writes(expected);

    EXPECT_EQ(row.call(dev.idx(), got), row.code);

    EXPECT_TRUE(sameBytes(bytesOf(&got, sizeof got), bytesOf(&expected, sizeof expected)))
        << "outputs (struct Outputs)";
    const auto sent = commandsSent(dev.emu);
    EXPECT_EQ(codesOf(sent), row.sends ? std::vector<int>{row.sends} : std::vector<int>{});
    if (!row.lastPayload.empty() && !sent.empty()) {
        EXPECT_TRUE(sameBytes(sent.back().payload, row.lastPayload));
    }
    row.afterwards(dev.idx());
    // The device is still usable.
    EXPECT_TRUE(dev.sync());
}

INSTANTIATE_TEST_SUITE_P(EveryPointerParameter, NullArgument, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<NullRow>& info) {
                             return std::string(info.param.exportName) + "_" + info.param.argument;
                         });

// Every pointer parameter of every device export in the public header (first parameter a device
// index; the by-name exports are the database suite's) has its row above.
TEST(NullArgumentTable, HasARowForEveryPointerParameter) {
    std::set<std::string> rows;
    for (const NullRow& row : kRows)
        rows.insert(std::string(row.exportName) + "(" + row.argument + ")");
    int checked = 0;
    for (const HeaderFunction& f : headerDeclarations()) {
        if (!f.takesDeviceIndex || f.name.find("Fibex") != std::string::npos ||
            f.name.find("AutoSar") != std::string::npos)
            continue;
        for (const std::string& p : f.pointerParameters) {
            ++checked;
            EXPECT_EQ(rows.count(f.name + "(" + p + ")"), 1u)
                << f.name << ": no row for a null '" << p << "'";
        }
    }
    EXPECT_EQ(checked, int(std::size(kRows)));
}

// ---- the opens ---------------------------------------------------------------------------------

class BadOpen : public ExportTest {};

// A null address is never sent to: the open fails at once with -3. A strict open refuses any
// address that is not dotted IPv4 the same way, and a flag bit the opens do not know fails with
// -5 before anything is created. A failed open leaves its unopened instance in the entry (an
// unknown flag none), which the next open takes over; nothing reaches the emulator.
TEST_F(BadOpen, NullAddressesAndUnknownFlagsFailAtOnce) {
    EmulatorHost host;
    kelo::emu::DeviceEmulator& emu = host.emu;
    struct Row {
        const char* name;
        const char* input;
        std::function<signed char()> open;
        int code;
    };
    const Row rows[] = {
        {"KFr_Open_Wrapper", "address null", [] { return KFr_Open_Wrapper(nullptr); }, -3},
        {"KCAN_Open_Wrapper", "address null", [] { return KCAN_Open_Wrapper(nullptr, 1); }, -3},
        {"KFr_OpenEx_Wrapper", "address null", [] { return KFr_OpenEx_Wrapper(nullptr, 0); }, -3},
        {"KFr_OpenEx_Wrapper", "address null, strict",
         [] { return KFr_OpenEx_Wrapper(nullptr, KELO_DEVICE_STRICT); }, -3},
        {"KCAN_OpenEx_Wrapper", "address null", [] { return KCAN_OpenEx_Wrapper(nullptr, 1, 0); },
         -3},
        {"KCAN_OpenEx_Wrapper", "address null, strict",
         [] { return KCAN_OpenEx_Wrapper(nullptr, 1, KELO_DEVICE_STRICT); }, -3},
        {"KFr_OpenEx_Wrapper", "strict, address 999.1.1.1",
         [] { return KFr_OpenEx_Wrapper("999.1.1.1", KELO_DEVICE_STRICT); }, -3},
        {"KCAN_OpenEx_Wrapper", "strict, address 127.0.2.2.",
         [] { return KCAN_OpenEx_Wrapper("127.0.2.2.", 1, KELO_DEVICE_STRICT); }, -3},
        {"KFr_OpenEx_Wrapper", "unknown flag 0x2",
         [&emu] { return KFr_OpenEx_Wrapper(emu.address().c_str(), 0x2u); }, -5},
        {"KCAN_OpenEx_Wrapper", "unknown flag 0x80000000",
         [&emu] { return KCAN_OpenEx_Wrapper(emu.address().c_str(), 1, 0x80000000u); }, -5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.name) + ", " + row.input);
        const int idx = firstFreeIndex();
        ASSERT_GT(idx, 0);
        CommunicationLib* const before = kelo::DeviceSlotTable[idx].lib.load();
        EXPECT_EQ(int(row.open()), row.code);
        EXPECT_EQ(kelo::DeviceSlotTable[idx].inUse.load(), 0);
        if (row.code == -5) {
            EXPECT_EQ(kelo::DeviceSlotTable[idx].lib.load(), before) << "nothing was created";
        }
        EXPECT_TRUE(commandsSent(emu).empty());

        // The next open takes the entry, and its close frees it.
        OpenedIndices opened;
        const signed char again = opened.add(KFr_Open_Wrapper(emu.address().c_str()));
        EXPECT_EQ(int(again), idx);
        EXPECT_EQ(opened.close(again), 0);
        emu.clearReceived();
    }
}

}  // namespace
