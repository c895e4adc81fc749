// Every command operation of the device object, one table: the exact frames it puts on the wire,
// and its result when the device accepts (0), refuses (1), never answers (2, slow suite) and when
// the frame cannot be sent at all (3). Fr_ReadValue, Fr_Set_WorkMode and Fr_SetNodeRxTimeout
// send their frames through the same paths as their exports (the repack tests).
#include <algorithm>
#include <thread>

#include "support/device_harness.h"

namespace kelo_testing {
namespace {

constexpr std::uint8_t kCanChannel = 3;
constexpr std::uint8_t kController = 1;

struct WireFrame {
    std::uint8_t command;
    Bytes payload;
};

struct Operation {
    std::string name;
    Bus bus;
    std::uint8_t command;  // the command whose reply decides the result
    unsigned waitMs;       // how long the operation waits for that reply (0: it does not)
    std::function<unsigned char(CommunicationLib&)> run;
    std::vector<WireFrame> wire;  // every frame sent when the device accepts, in order
    // Runs after the open, before the frames are recorded (emulator state the operation reads).
    std::function<void(Link&)> prepare = nullptr;
};
Operation op(const char* name, Bus bus, std::uint8_t command, unsigned waitMs,
             std::function<unsigned char(CommunicationLib&)> run, std::vector<WireFrame> wire,
             std::function<void(Link&)> prepare = nullptr) {
    return {name, bus, command, waitMs, std::move(run), std::move(wire), std::move(prepare)};
}

// Caller records carry sentinel bytes past the length the operation sends, so an over-long
// payload shows as a mismatch.
Bytes record(std::size_t n, std::uint8_t first) {
    Bytes b = ramp(n, first);
    b[0] = kController;
    return b;
}
Bytes firstN(const Bytes& b, std::size_t n) {
    return Bytes(b.begin(), b.begin() + n);
}
Bytes withByte(Bytes b, std::size_t at, std::uint8_t v) {
    b[at] = v;
    return b;
}
// A record operation: passes a copy of `r` and expects the first `sent` bytes as frame `command`
// (or the frames `wire`).
template <typename Arg>
Operation recordOp(const char* name, std::uint8_t command, const Bytes& r, std::size_t sent,
                   unsigned char (CommunicationLib::*fn)(Arg), std::vector<WireFrame> wire = {}) {
    auto run = [r, fn](CommunicationLib& d) {
        Bytes copy = r;
        return (d.*fn)(reinterpret_cast<Arg>(copy.data()));
    };
    if (wire.empty()) wire = {{command, firstN(r, sent)}};
    return op(name, Bus::FlexRay, command, 1000, run, wire);
}
// An operation that sends the controller byte alone.
Operation controllerOp(const char* name, std::uint8_t command, unsigned waitMs,
                       unsigned char (CommunicationLib::*fn)(unsigned char)) {
    return op(name, Bus::FlexRay, command, waitMs,
              [fn](CommunicationLib& d) { return (d.*fn)(kController); },
              {{command, {kController}}});
}

// Where the operations write their outputs (the values: the behaviour tests).
unsigned char* out() {
    thread_local unsigned char buffer[256];
    return buffer;
}
unsigned int* word() {
    thread_local unsigned int w;
    return &w;
}

const Bytes kFrData = {0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xEE, 0xEF};
const char kReplay[] = "\xB0\xB1\xB2\xB3\xB4\xB5\xB6\xB7\xB8\xB9\xBA\xBB";
const Bytes kCanData = {0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xEE};
// identifier 0x00000123, frame type 1, flags 1/0/1, length 5, three spare bytes
const Bytes kCanFrame = {0x23, 0x01, 0x00, 0x00, 0x01, 0x01, 0x00, 0x01, 0x05, 0xEE, 0xEE, 0xEE};

std::vector<Operation> operations() {
    using L = CommunicationLib;
    const Bytes cluster = record(48, 0x30), fifo = record(50, 0x80);
    const Bytes slot = {kController, 0xFF, 0x00, 0x05, 0x00, 0x00, 0x08, 0x00,
                        0x01,        0x01, 0x00, 0x01, 0x00, 0x00, 0xEE, 0xEF};
    const Bytes keySlot = {0x00, 0x71, 0x72, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0xE9, 0xEA};
    return {
        recordOp("Fr_Set_Node_Parameter", 98, record(60, 0x40), 52, &L::Fr_Set_Node_Parameter),
        recordOp("Fr_Set_CC_Parameter", 100, {kController, 0x51, 0x52, 0x53, 0x54, 0x55, 0xE6}, 6,
                 &L::Fr_Set_CC_Parameter),
        recordOp("Fr_SetFrPhyNodeKeySlot", 211, keySlot, 9, &L::Fr_SetFrPhyNodeKeySlot),
        recordOp("Fr_Set_Slot_Parameter", 102, slot, 14, &L::Fr_Set_Slot_Parameter),
        recordOp(
            "Fr_Set_Cluster_Parameter", 96, cluster, 40, &L::Fr_Set_Cluster_Parameter,
            {{139, {1, kController, 0, 0, 0x00, 0x00, 0x00, 0xA0}}, {96, firstN(cluster, 40)}}),
        recordOp(
            "Fr_Set_Fifo_Parameter", 105, fifo, 46, &L::Fr_Set_Fifo_Parameter,
            {{105, withByte(firstN(fifo, 46), 2, 0)}, {105, withByte(firstN(fifo, 46), 2, 1)}}),
        controllerOp("Fr_Configure_Node", 107, 1000, &L::Fr_Configure_Node),
        controllerOp("Fr_Start_Node", 108, 1000, &L::Fr_Start_Node),
        controllerOp("Fr_Stop", 110, 3000, &L::Fr_Stop),
        controllerOp("Fr_StartFrRxUpload", 113, 1000, &L::Fr_StartFrRxUpload),
        controllerOp("Fr_StopFrRxUpload", 114, 1000, &L::Fr_StopFrRxUpload),
        controllerOp("Fr_SendWakeUp", 120, 1000, &L::Fr_SendWakeUp),
        op("SetTimeOffset", Bus::FlexRay, 210, 1000, [](L& d) { return d.SetTimeOffset(2); },
           {{210, le64(2000000000ull)}}),
        op("Fr_GetFrNodeState", Bus::FlexRay, 116, 1000,
           [](L& d) { return d.Fr_GetFrNodeState(kController, out(), out() + 1); },
           {{116, {kController}}}),
        op("Fr_GetFrPSRState", Bus::FlexRay, 116, 1000,
           [](L& d) { return d.Fr_GetFrPSRState(kController, out()); }, {{116, {kController}}}),
        op("Fr_GetFrNWVector", Bus::FlexRay, 121, 1000,
           [](L& d) { return d.Fr_GetFrNWVector(kController, out(), out() + 255); },
           {{121, {kController}}}),
        op("Fr_ReadRegister", Bus::FlexRay, 150, 1000,
           [](L& d) { return d.Fr_ReadRegister(1, kController, word()); },
           {{150, {1, kController}}}),
        op("GetDeviceInfo", Bus::FlexRay, 198, 5000, [](L& d) { return d.GetDeviceInfo(out()); },
           {{198, {}}}),
        op("Fr_WriteRegister", Bus::FlexRay, 149, 1000,
           [](L& d) { return d.Fr_WriteRegister(1, kController, 0xCAFEBABEu); },
           {{149, cat({{1, kController}, le32(0xCAFEBABEu)})}}),
        op(
            "Fr_WriteValue", Bus::FlexRay, 149, 1000,
            [](L& d) { return d.Fr_WriteValue(1, kController, 0, 1); },
            {{150, {1, kController}}, {149, cat({{1, kController}, le32(0x10000005u)})}},
            [](Link& l) { l.emu.setRegisterWord(1, kController, 0x00000005u); }),
        op("SetDeviceText", Bus::FlexRay, 194, 1000,
           [](L& d) { return d.SetDeviceText("KeLo bench 7"); },
           {{194, cat({{'K', 'e', 'L', 'o', ' ', 'b', 'e', 'n', 'c', 'h', ' ', '7'}, zeros(20)})}}),
        op("FrSetDevIp", Bus::FlexRay, 195, 1000, [](L& d) { return d.FrSetDevIp("192.168.1.20"); },
           {{195, {20, 1, 168, 192}}}),
        op("SetDeviceOption", Bus::FlexRay, 197, 1000, [](L& d) { return d.SetDeviceOption(0x5A); },
           {{197, {0x5A}}}),
        op("ResetCPU", Bus::FlexRay, 22, 0, [](L& d) { return d.ResetCPU(); }, {{22, {}}}),
        op("CAN_SetBusParameter", Bus::Can, 130, 1000,
           [](L& d) { return d.CAN_SetBusParameter(2, kCanChannel, ramp(56, 0x10).data()); },
           {{130, cat({{2, kCanChannel, 0, 0}, ramp(48, 0x10)})}}),
        op("CAN_SetFilterParameter", Bus::Can, 132, 1000,
           [](L& d) { return d.CAN_SetFilterParameter(2, kCanChannel, ramp(40, 0x20).data()); },
           {{132, cat({{2, kCanChannel, 0, 0}, ramp(32, 0x20)})}}),
        op("CAN_SetOptionParameter", Bus::Can, 137, 1000,
           [](L& d) { return d.CAN_SetOptionParameter(2, kCanChannel, ramp(50, 0x60).data()); },
           {{137, cat({{2, kCanChannel}, ramp(44, 0x60)})}}),
        op("SetControllerMode", Bus::Can, 139, 1000,
           [](L& d) { return d.SetControllerMode(2, kCanChannel, 0x11223344u); },
           {{139, {2, kCanChannel, 0, 0, 0x44, 0x33, 0x22, 0x11}}}),
        op("CAN_Start", Bus::Can, 142, 1000, [](L& d) { return d.CAN_Start(1); },
           {{142, {1, kCanChannel}}}),
        op("CAN_Stop", Bus::Can, 143, 1000, [](L& d) { return d.CAN_Stop(4); },
           {{143, {4, kCanChannel}}}),
        op("CAN_SetNodeRxTimeout", Bus::Can, 153, 1000,
           [](L& d) { return d.CAN_SetNodeRxTimeout(ramp(6, 0x40).data()); },
           {{153, {2, kCanChannel, 0x40, 0x41, 0x42, 0x43}}}),
        op("Fr_Transmit", Bus::FlexRay, 111, 1000,
           [](L& d) { return d.Fr_Transmit(kController, 7, Bytes(kFrData).data(), 3); },
           {{111, cat({{kController, 7, 3, 0}, firstN(kFrData, 6)})}}),
        op("Fr_ReplaySend", Bus::FlexRay, 112, 500,
           [](L& d) { return d.Fr_ReplaySend(kController, 2, kReplay, 10); },
           {{112, cat({{kController, 2}, ramp(10, 0xB0)})}}),
        op("CAN_Transmit", Bus::Can, 145, 1000,
           [](L& d) { return d.CAN_Transmit(Bytes(kCanFrame).data(), Bytes(kCanData).data()); },
           {{145, multiPayload({multiEntry(2, kCanChannel, 0, 0x40000000u | 0x800000u | 0x100000u,
                                           0x123, firstN(kCanData, 5))})}}),
        op("Fr_Transmit_MultiFrame", Bus::FlexRay, 145, 1000,
           [](L& d) {
               Bytes a = {0xA0, 0xA1, 0xA2, 0xA3}, b = {0xB0, 0xB1};
               if (d.Fr_FillData_beforeTransmit_MultiFrame(0, 9, a.data(), 4) != 0) return 0xF0;
               if (d.Fr_FillData_beforeTransmit_MultiFrame(1, 10, b.data(), 2) != 0) return 0xF1;
               unsigned char result = 0;
               return int(d.Fr_Transmit_MultiFrame(kController, 2, &result, 1));
           },
           {{145, multiPayload({multiEntry(1, kController, 9, 0, 0, {0xA0, 0xA1, 0xA2, 0xA3}),
                                multiEntry(1, kController, 10, 0, 0, {0xB0, 0xB1})})}}),
    };
}

class DeviceOperations : public ::testing::TestWithParam<Operation> {};

// The frames the operation sends, byte for byte, and its results: 0 when the device accepts, 1
// when it refuses (its outputs left alone; ResetCPU waits for nothing and stays 0), 3 when there
// is no link to send on (an object never opened, or closed; nothing reaches the device).
TEST_P(DeviceOperations, ExactFramesAndResults) {
    const Operation& op = GetParam();
    std::unique_ptr<CommunicationLib> never(GetKeLoComm());
    EXPECT_EQ(op.run(*never), 3) << "never opened";
    Link link;
    ASSERT_TRUE(link.open(op.bus, kCanChannel));
    if (op.prepare) op.prepare(link);
    link.emu.clearReceived();

    EXPECT_EQ(op.run(*link.dev), 0);

    // ResetCPU does not wait, so its frame may still be on its way.
    const std::uint8_t last = op.wire.back().command;
    const std::size_t lastCount = std::count_if(
        op.wire.begin(), op.wire.end(), [&](const WireFrame& w) { return w.command == last; });
    ASSERT_TRUE(link.emu.waitFor(last, lastCount, 2000));
    const auto sent = commandsSent(link.emu);
    ASSERT_EQ(sent.size(), op.wire.size());
    for (std::size_t i = 0; i < sent.size(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(i));
        EXPECT_EQ(sent[i].command, op.wire[i].command);
        EXPECT_EQ(sent[i].payload, op.wire[i].payload);
        EXPECT_NE(sent[i].sequence & 0x8000, 0) << "host frames carry bit 15";
        if (i > 0) {
            EXPECT_EQ(sent[i].sequence & 0x7FFF, (sent[i - 1].sequence + 1) & 0x7FFF);
        }
    }

    // A refusal leaves every output alone.
    std::fill(out(), out() + 256, 0xEE);
    *word() = 0xEEEEEEEEu;
    link.emu.refuse(op.command, 0x21, 1);
    EXPECT_EQ(op.run(*link.dev), op.waitMs ? 1 : 0) << "refused";
    EXPECT_EQ(Bytes(out(), out() + 256), Bytes(256, 0xEE));
    EXPECT_EQ(*word(), 0xEEEEEEEEu);

    link.forget();
    ASSERT_EQ(op.bus == Bus::FlexRay ? link.dev->Fr_Close() : link.dev->CAN_Close(), 0);
    link.emu.clearReceived();
    EXPECT_EQ(op.run(*link.dev), 3) << "closed";
    EXPECT_TRUE(commandsSent(link.emu).empty());
}

INSTANTIATE_TEST_SUITE_P(Table, DeviceOperations, ::testing::ValuesIn(operations()),
                         [](const ::testing::TestParamInfo<Operation>& info) {
                             return info.param.name;
                         });

// Every operation returns 2 once its wait has run out. The rows run in parallel lanes, one
// emulator per row and the rows of a lane one after another, so the whole table costs about the
// longest wait plus one second.
TEST(DeviceOperationsSlow, DroppedReplyReturnsTwoAfterItsWait) {
    std::vector<Operation> rows;
    for (auto& op : operations())
        if (op.waitMs) rows.push_back(op);
    // Longest waits first, so that they do not share a lane with another row.
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Operation& a, const Operation& b) { return a.waitMs > b.waitMs; });
    std::vector<std::string> failures(rows.size());  // what went wrong in each row
    const std::size_t lanes = 18;
    std::vector<std::thread> workers;
    for (std::size_t lane = 0; lane < lanes && lane < rows.size(); ++lane) {
        workers.emplace_back([&, lane] {
            for (std::size_t i = lane; i < rows.size(); i += lanes) {
                Link link;
                const ::testing::AssertionResult opened = link.open(rows[i].bus, kCanChannel);
                if (!opened) {
                    failures[i] = opened.message();
                    continue;
                }
                if (rows[i].prepare) rows[i].prepare(link);
                link.emu.drop(rows[i].command);
                Stopwatch watch;
                const int result = rows[i].run(*link.dev);
                if (result != 2 || watch.ms() < rows[i].waitMs * 9 / 10)
                    failures[i] =
                        std::to_string(result) + " after " + std::to_string(watch.ms()) + " ms";
            }
        });
    }
    for (auto& w : workers)
        w.join();
    for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(failures[i], "") << rows[i].name;
}

}  // namespace
}  // namespace kelo_testing
