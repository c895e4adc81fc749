// Operations with behaviour beyond "send one command, wait for its reply": the time offset's
// status byte, the two-pass FIFO command, the cluster's controller-mode step, the slot buffer
// index, register read-modify-write, CAN configuration and transmission, multi-frame staging and
// the bus-active flag, and the node-state and network-management queries.
#include <array>

#include "device_fixture.h"

namespace kelo_test {
namespace {

using kelo::emu::DeviceEmulator;

constexpr std::uint8_t kCanChannel = 3;

// ---- SetTimeOffset ------------------------------------------------------------------------------

TEST(DeviceTimeOffset, SendsNanosecondsAsSignedLittleEndian64) {
    Link link(host::kTimeOffset);
    ASSERT_TRUE(link.open());
    const struct {
        long long seconds;
        std::int64_t nanos;
    } cases[] = {
        {2, 2000000000LL},
        {0, 0},
        {-1, -1000000000LL},
        {5000000000LL, 5000000000000000000LL},  // beyond 32 bits of nanoseconds
        {-9223372036LL, -9223372036000000000LL},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.seconds);
        link.emu.clearReceived();
        EXPECT_EQ(link.dev->SetTimeOffset(c.seconds), 0);
        EXPECT_EQ(payloadsOf(link.emu, kelo::kCmdSetTimeOffset),
                  (std::vector<Bytes>{le64(static_cast<std::uint64_t>(c.nanos))}));
    }
}

// SetTimeOffset does not preset its status byte before sending. A reply that comes after its
// caller gave up leaves the command's event signalled; when the next request then goes
// unanswered, the time offset reports the status of that late reply 210, while a command that
// presets its status reads its own preset (1).
TEST(DeviceTimeOffset, ReportsTheStatusTheLastReplyLeft) {
    Link link(host::kTimeOffsetStale);
    ASSERT_TRUE(link.open());
    auto lateReply = [&](std::uint8_t command, std::uint8_t status) {
        link.emu.sendFrame(command, {status, 0, 0, 0});
        return link.sync();  // dispatched when the barrier's reply is in
    };

    ASSERT_TRUE(lateReply(kelo::kCmdSetTimeOffset, 0));
    ASSERT_TRUE(lateReply(kelo::kCmdSetDeviceOption, 0));
    link.emu.drop(kelo::kCmdSetTimeOffset, 1);
    link.emu.drop(kelo::kCmdSetDeviceOption, 1);
    EXPECT_EQ(link.dev->SetTimeOffset(2), 0) << "status of the last reply 210, not a preset";
    EXPECT_EQ(link.dev->SetDeviceOption(2), 1) << "a presetting command reads its own 0xFF";
    // Both returned before their frames were handled; the round trip lets the emulator use up
    // the two drops on them.
    ASSERT_TRUE(link.sync());

    // A late refusal is reported the same way by the next, unanswered, time offset.
    ASSERT_TRUE(lateReply(kelo::kCmdSetTimeOffset, 0x09));
    link.emu.drop(kelo::kCmdSetTimeOffset, 1);
    EXPECT_EQ(link.dev->SetTimeOffset(3), 1);

    // Nothing left over: the next exchange is answered normally, and every request went out.
    EXPECT_EQ(link.dev->SetTimeOffset(4), 0);
    EXPECT_EQ(payloadsOf(link.emu, kelo::kCmdSetTimeOffset),
              (std::vector<Bytes>{le64(2000000000ull), le64(3000000000ull), le64(4000000000ull)}));
}

// A dropped reply is a time-out (2), whatever status an earlier refused reply left behind.
TEST(DeviceTimeOffsetSlow, DroppedReplyAfterARefusalIsATimeOut) {
    Link link(host::kSlowTimeOffset);
    ASSERT_TRUE(link.open());
    link.emu.refuse(kelo::kCmdSetTimeOffset, 0x09, 1);
    EXPECT_EQ(link.dev->SetTimeOffset(1), 1);
    link.emu.drop(kelo::kCmdSetTimeOffset, 1);
    Stopwatch watch;
    EXPECT_EQ(link.dev->SetTimeOffset(2), 2);
    EXPECT_GE(watch.ms(), 900);
    EXPECT_EQ(link.dev->SetTimeOffset(3), 0);
}

// ---- Fr_Set_Fifo_Parameter ----------------------------------------------------------------------

Bytes fifoRecord() {
    Bytes b = ramp(46, 0x80);
    b[0] = 1;
    return b;
}

TEST(DeviceFifo, SendsPassZeroThenPassOneAndKeepsPassOneInTheRecord) {
    Link link(host::kFifo);
    ASSERT_TRUE(link.open());
    Bytes fifo = fifoRecord();
    EXPECT_EQ(link.dev->Fr_Set_Fifo_Parameter(fifo.data()), 0);
    const auto sent = payloadsOf(link.emu, kelo::kCmdSetFifoParameter);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0][2], 0);
    EXPECT_EQ(sent[1][2], 1);
    EXPECT_EQ(fifo[2], 1) << "the caller's record is changed in place";
    Bytes expected = fifoRecord();
    expected[2] = 1;
    EXPECT_EQ(fifo, expected) << "only byte 2 changes";

    // A refused first pass ends the operation: one frame, byte 2 left at 0.
    link.emu.clearReceived();
    link.emu.refuse(kelo::kCmdSetFifoParameter, 0x21, 1);
    fifo = fifoRecord();
    EXPECT_EQ(link.dev->Fr_Set_Fifo_Parameter(fifo.data()), 1);
    EXPECT_EQ(link.emu.count(kelo::kCmdSetFifoParameter), 1u);
    EXPECT_EQ(fifo[2], 0);
}

// The second pass's result is the operation's result.
TEST(DeviceFifo, RefusedSecondPassReturnsOne) {
    Link link(host::kFifoSecondRefused);
    ASSERT_TRUE(link.open());
    Bytes fifo = fifoRecord();
    link.emu.delay(kelo::kCmdSetFifoParameter, 600000, 2);  // both answered by hand below
    auto op = std::async(std::launch::async,
                         [&] { return link.dev->Fr_Set_Fifo_Parameter(fifo.data()); });
    ASSERT_TRUE(link.emu.waitFor(kelo::kCmdSetFifoParameter, 1, 2000));
    link.emu.sendFrame(kelo::kCmdSetFifoParameter, {1, 0, 0},
                       link.emu.received(kelo::kCmdSetFifoParameter)[0].sequence);
    ASSERT_TRUE(link.emu.waitFor(kelo::kCmdSetFifoParameter, 2, 2000));
    link.emu.sendFrame(kelo::kCmdSetFifoParameter, {1, 1, 0x05},
                       link.emu.received(kelo::kCmdSetFifoParameter)[1].sequence);
    EXPECT_EQ(op.get(), 1);
    EXPECT_EQ(fifo[2], 1);
}

// ---- Fr_Set_Cluster_Parameter -------------------------------------------------------------------

// The controller-mode command (139) goes first and its result does not count.
TEST(DeviceCluster, ControllerModeStepIsSentFirstAndItsRefusalIgnored) {
    Link link(host::kCluster);
    ASSERT_TRUE(link.open());
    Bytes cluster = ramp(40, 0x30);
    cluster[0] = 2;
    link.emu.refuse(kelo::kCmdSetControllerMode, 0x07);
    EXPECT_EQ(link.dev->Fr_Set_Cluster_Parameter(cluster.data()), 0);
    const auto sent = commandsSent(link.emu);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].command, kelo::kCmdSetControllerMode);
    EXPECT_EQ(sent[0].payload, (Bytes{1, 2, 0, 0, 0x00, 0x00, 0x00, 0xA0}));
    EXPECT_EQ(sent[1].command, kelo::kCmdSetClusterParameter);
    EXPECT_EQ(sent[1].payload, cluster);
}

// ---- Fr_Set_Slot_Parameter ----------------------------------------------------------------------

// controller, buffer index (255: the device chooses), then the 12-byte slot block.
Bytes slotRecord(std::uint8_t index, std::uint16_t slot) {
    return {1,
            index,
            0x00,
            std::uint8_t(slot),
            std::uint8_t(slot >> 8),
            0x00,
            0x04,
            0x00,
            0x01,
            0x00,
            0x02,
            0x04,
            0x01,
            0x00};
}

TEST(DeviceSlot, DeviceAssignedBufferIndexIsWrittenIntoByteOneOnSuccessOnly) {
    Link link(host::kSlot);
    ASSERT_TRUE(link.open());

    Bytes first = slotRecord(255, 0x0123);
    ASSERT_EQ(link.dev->Fr_Set_Slot_Parameter(first.data()), 0);
    Bytes second = slotRecord(255, 0x0045);
    ASSERT_EQ(link.dev->Fr_Set_Slot_Parameter(second.data()), 0);
    const auto buffers = link.emu.slotBuffers();
    ASSERT_LT(first[1], buffers.size());
    ASSERT_LT(second[1], buffers.size());
    EXPECT_NE(first[1], second[1]);
    EXPECT_TRUE(buffers[first[1]].configured);
    EXPECT_EQ(buffers[first[1]].slot, 0x0123);
    EXPECT_EQ(buffers[second[1]].slot, 0x0045);
    // Only byte 1 changes.
    Bytes expected = slotRecord(first[1], 0x0123);
    EXPECT_EQ(first, expected);

    // A chosen index is kept.
    Bytes chosen = slotRecord(77, 0x0010);
    ASSERT_EQ(link.dev->Fr_Set_Slot_Parameter(chosen.data()), 0);
    EXPECT_EQ(chosen[1], 77);
    EXPECT_EQ(link.emu.slotBuffers()[77].slot, 0x0010);

    // Refused: the record stays as it was.
    link.emu.refuse(kelo::kCmdSetSlotParameter, 0x21, 1);
    Bytes refused = slotRecord(255, 0x0077);
    EXPECT_EQ(link.dev->Fr_Set_Slot_Parameter(refused.data()), 1);
    EXPECT_EQ(refused, slotRecord(255, 0x0077));
}

// The index is reply byte 4, the status reply byte 5.
TEST(DeviceSlot, IndexIsTakenFromReplyByteFour) {
    Link link(host::kSlotScripted);
    ASSERT_TRUE(link.open());
    Bytes slot = slotRecord(255, 0x0099);
    EXPECT_EQ(link.scripted(kelo::kCmdSetSlotParameter, {1, 0x99, 0x00, 0xA3, 0x42, 0x00},
                            [&] { return link.dev->Fr_Set_Slot_Parameter(slot.data()); }),
              0);
    EXPECT_EQ(slot[1], 0x42);
    slot = slotRecord(255, 0x0099);
    EXPECT_EQ(link.scripted(kelo::kCmdSetSlotParameter, {1, 0x99, 0x00, 0xA3, 0x42, 0x06},
                            [&] { return link.dev->Fr_Set_Slot_Parameter(slot.data()); }),
              1);
    EXPECT_EQ(slot[1], 255);
}

// ---- register bits ------------------------------------------------------------------------------

TEST(DeviceReadValue, UnknownSelectorReturnsFiveAndSendsNothing) {
    Link link(host::kReadValue);
    ASSERT_TRUE(link.open());
    for (unsigned which : {2u, 3u, 29u, 0xFFFFFFFFu}) {
        unsigned int value = 0xEEEEEEEEu;
        EXPECT_EQ(link.dev->Fr_ReadValue(1, 1, which, &value), 5) << which;
        EXPECT_EQ(value, 0xEEEEEEEEu);
    }
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.emu.count(kelo::kCmdReadRegister), 0u);
}

TEST(DeviceReadValue, ReadsBitTwentyEightOrThirty) {
    Link link(host::kReadValueBits);
    ASSERT_TRUE(link.open());
    const struct {
        std::uint32_t word;
        unsigned bit28, bit30;
    } cases[] = {
        {0x00000000u, 0, 0}, {0x10000000u, 1, 0}, {0x40000000u, 0, 1},
        {0x50000000u, 1, 1}, {0xAFFFFFFFu, 0, 0}, {0xEFFFFFFFu, 0, 1},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.word);
        link.emu.setRegisterWord(1, 2, c.word);
        unsigned int value = 7;
        EXPECT_EQ(link.dev->Fr_ReadValue(1, 2, 0, &value), 0);
        EXPECT_EQ(value, c.bit28);
        EXPECT_EQ(link.dev->Fr_ReadValue(1, 2, 1, &value), 0);
        EXPECT_EQ(value, c.bit30);
    }
    // A refused read leaves the value alone.
    link.emu.refuse(kelo::kCmdReadRegister, 0x21, 1);
    unsigned int value = 7;
    EXPECT_EQ(link.dev->Fr_ReadValue(1, 2, 0, &value), 1);
    EXPECT_EQ(value, 7u);
}

TEST(DeviceWriteValue, ReadModifyWriteOfOneBit) {
    Link link(host::kWriteValue);
    ASSERT_TRUE(link.open());
    const struct {
        std::uint8_t kind, controller;
        std::uint32_t before;
        unsigned which;
        int value;
        std::uint32_t after;
    } cases[] = {
        {1, 1, 0x00000000u, 0, 1, 0x10000000u}, {1, 1, 0xFFFFFFFFu, 0, 0, 0xEFFFFFFFu},
        {1, 1, 0x0F0F0F0Fu, 1, 1, 0x4F0F0F0Fu}, {1, 1, 0xFFFFFFFFu, 1, 0, 0xBFFFFFFFu},
        {1, 1, 0x10000000u, 0, 1, 0x10000000u}, {1, 0, 0x00000001u, 1, -1, 0x40000001u},
        {1, 0, 0x12345678u, 0, 0, 0x02345678u}, {2, 3, 0x00000002u, 1, 5, 0x40000002u},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "before " << std::hex << c.before << " which "
                                          << c.which << " value " << c.value);
        link.emu.setRegisterWord(c.kind, c.controller, c.before);
        link.emu.clearReceived();
        EXPECT_EQ(link.dev->Fr_WriteValue(c.kind, c.controller, c.which, c.value), 0);
        EXPECT_EQ(link.emu.registerWord(c.kind, c.controller), c.after);
        const auto sent = commandsSent(link.emu);
        ASSERT_EQ(sent.size(), 2u);
        EXPECT_EQ(sent[0].command, kelo::kCmdReadRegister);
        EXPECT_EQ(sent[0].payload, (Bytes{c.kind, c.controller}));
        EXPECT_EQ(sent[1].command, kelo::kCmdWriteRegister);
        EXPECT_EQ(sent[1].payload, cat({{c.kind, c.controller}, le32(c.after)}));
    }

    // A refused read writes nothing; a refused write is reported.
    link.emu.clearReceived();
    link.emu.refuse(kelo::kCmdReadRegister, 0x21, 1);
    EXPECT_EQ(link.dev->Fr_WriteValue(1, 1, 0, 1), 1);
    EXPECT_EQ(link.emu.count(kelo::kCmdWriteRegister), 0u);
    link.emu.refuse(kelo::kCmdWriteRegister, 0x21, 1);
    EXPECT_EQ(link.dev->Fr_WriteValue(1, 1, 0, 1), 1);
}

TEST(DeviceWorkMode, WritesModeWordWithBitTwentyNineForFlagOne) {
    Link link(host::kWorkMode);
    ASSERT_TRUE(link.open());
    const struct {
        char mode;
        unsigned char flag;
        std::uint32_t word;
    } cases[] = {
        {1, 0, 2u}, {1, 1, 0x20000002u}, {0, 1, 0x20000000u}, {0, 0, 0u},
        {2, 0, 0u}, {2, 1, 0x20000000u}, {1, 2, 2u},          {-1, 0, 0u},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "mode " << int(c.mode) << " flag " << int(c.flag));
        link.emu.setRegisterWord(1, 1, 0xDEADBEEFu);
        link.emu.clearReceived();
        EXPECT_EQ(link.dev->Fr_Set_WorkMode(1, 1, c.mode, c.flag), 0);
        EXPECT_EQ(link.emu.registerWord(1, 1), c.word);
        EXPECT_EQ(payloadsOf(link.emu, kelo::kCmdWriteRegister),
                  (std::vector<Bytes>{cat({{1, 1}, le32(c.word)})}));
        EXPECT_EQ(link.emu.count(kelo::kCmdReadRegister), 0u) << "written, not modified";
    }
}

// ---- ResetCPU -----------------------------------------------------------------------------------

// The device never answers the reset; the operation does not wait for it and the link stays up.
TEST(DeviceResetCpu, ReturnsWithoutAReplyAndTheLinkStaysUsable) {
    Link link(host::kResetCpu);
    ASSERT_TRUE(link.open());
    link.emu.drop(kelo::kCmdResetCpu);
    EXPECT_EQ(link.dev->ResetCPU(), 0);
    ASSERT_TRUE(link.emu.waitFor(kelo::kCmdResetCpu, 1, 2000));
    EXPECT_TRUE(link.emu.received(kelo::kCmdResetCpu)[0].payload.empty());
    EXPECT_EQ(link.dev->Fr_Configure_Node(1), 0);
}

// ---- CAN_Configure ------------------------------------------------------------------------------

Bytes canConfigRecord() {
    return ramp(52, 0x01);
}

// Filter block: two 16-byte entries built from record bytes 20 + 16n (8 bytes, a 16-bit word,
// 4 bytes, kept packed), the filter mode (record byte 50) in the block's last byte.
Bytes filterBlock(const Bytes& config) {
    Bytes block = zeros(32);
    for (int n = 0; n < 2; ++n)
        std::copy(config.begin() + 20 + 16 * n, config.begin() + 34 + 16 * n,
                  block.begin() + 16 * n);
    block[31] = config[50];
    return block;
}

TEST(DeviceCanConfigure, RunsFourStepsOnTheCanChannel) {
    Link link(host::kCanConfigure);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    Bytes config = canConfigRecord();
    EXPECT_EQ(link.dev->CAN_Configure(config.data()), 0);

    const Bytes head = {2, kCanChannel, 0, 0};
    Bytes bus = cat({Bytes(config.begin(), config.begin() + 16), {64}, zeros(31)});
    Bytes option = zeros(44);
    option[1] = config[51];
    const auto sent = commandsSent(link.emu);
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[0].command, kelo::kCmdSetControllerMode);
    EXPECT_EQ(sent[0].payload, cat({head, le32(0xA0000000u)}));
    EXPECT_EQ(sent[1].command, kelo::kCmdCanSetBusParameter);
    EXPECT_EQ(sent[1].payload, cat({head, bus}));
    EXPECT_EQ(sent[2].command, kelo::kCmdCanSetFilterParameter);
    EXPECT_EQ(sent[2].payload, cat({head, filterBlock(config)}));
    EXPECT_EQ(sent[3].command, kelo::kCmdCanSetOptionParameter);
    EXPECT_EQ(sent[3].payload, cat({{2, kCanChannel}, option}));
}

// The first failing step ends the configuration; its number is in the result.
TEST(DeviceCanConfigure, StopsAtTheFailingStep) {
    const std::uint8_t steps[] = {kelo::kCmdSetControllerMode, kelo::kCmdCanSetBusParameter,
                                  kelo::kCmdCanSetFilterParameter, kelo::kCmdCanSetOptionParameter};
    Link link(host::kCanConfigureFail);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    for (int failing = 0; failing < 4; ++failing) {
        SCOPED_TRACE(failing);
        link.emu.clearReceived();
        link.emu.refuse(steps[failing], 0x21, 1);
        Bytes config = canConfigRecord();
        EXPECT_EQ(link.dev->CAN_Configure(config.data()), 10 + failing);
        const auto sent = commandsSent(link.emu);
        ASSERT_EQ(sent.size(), std::size_t(failing + 1));
        for (int i = 0; i <= failing; ++i)
            EXPECT_EQ(sent[i].command, steps[i]);
    }
}

TEST(DeviceCanConfigure, NeverOpenedFailsAtTheFirstStep) {
    std::unique_ptr<CommunicationLib> dev(GetKeLoComm());
    Bytes config = canConfigRecord();
    EXPECT_EQ(dev->CAN_Configure(config.data()), 10);
}

// ---- CAN_Transmit -------------------------------------------------------------------------------

TEST(DeviceCanTransmit, FlagWordAndDataLengths) {
    Link link(host::kCanTransmit);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    const struct {
        std::uint8_t type, f5, f6, f7, length;
        std::uint32_t flags;
    } cases[] = {
        {0, 0, 0, 0, 0, 0u},
        {1, 0, 0, 0, 1, 0x40000000u},
        {2, 0, 0, 0, 8, 0x80000000u},
        {3, 0, 0, 0, 12, 0xC0000000u},
        {0, 1, 0, 0, 64, 0x00800000u},
        {0, 0, 1, 0, 5, 0x00200000u},
        {0, 0, 0, 1, 5, 0x00100000u},
        {7, 0x80, 0x02, 0xFF, 5, 0xC0B00000u},  // two type bits; any non-zero flag byte counts
    };
    const Bytes data = ramp(64, 0x40);
    for (auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "type " << int(c.type) << " length " << int(c.length));
        link.emu.clearReceived();
        Bytes frame = {0x78, 0x56, 0x34, 0x12, c.type, c.f5, c.f6, c.f7, c.length, 0, 0, 0};
        Bytes d = data;
        EXPECT_EQ(link.dev->CAN_Transmit(frame.data(), d.data()), 0);
        const auto sent = payloadsOf(link.emu, kelo::kCmdMultiTransmit);
        ASSERT_EQ(sent.size(), 1u);
        const Bytes& p = sent[0];
        ASSERT_EQ(p.size(), 24u + 40u + c.length);
        EXPECT_EQ(Bytes(p.begin(), p.begin() + 24), cat({zeros(16), le32(1), zeros(4)}));
        Bytes entry = zeros(40);
        entry[20] = 2;
        entry[21] = kCanChannel;
        const Bytes flags = le32(c.flags);
        std::copy(flags.begin(), flags.end(), entry.begin() + 24);
        std::copy(frame.begin(), frame.begin() + 4, entry.begin() + 28);
        entry[32] = c.length;
        EXPECT_EQ(Bytes(p.begin() + 24, p.begin() + 64), entry);
        EXPECT_EQ(Bytes(p.begin() + 64, p.end()), Bytes(data.begin(), data.begin() + c.length));
    }
}

// Result 0 only for an accepted reply that names the object's channel (reply byte 2).
TEST(DeviceCanTransmit, ReplyNamingAnotherChannelReturnsOne) {
    Link link(host::kCanTransmitChannel);
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    Bytes frame = {0x01, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0};
    Bytes data = {0xAB, 0xCD};
    auto transmit = [&] { return link.dev->CAN_Transmit(frame.data(), data.data()); };

    const struct {
        std::uint8_t status, channel;
        unsigned char result;
    } cases[] = {
        {0, kCanChannel, 0},
        {0, kCanChannel + 1, 1},
        {0, 255, 1},
        {0x04, kCanChannel, 1},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(::testing::Message()
                     << "status " << int(c.status) << " channel " << int(c.channel));
        EXPECT_EQ(link.scripted(kelo::kCmdMultiTransmit,
                                cat({{c.status, 2, c.channel, 0}, le32(1)}), transmit),
                  c.result);
    }
}

// ---- multi-frame transmission -------------------------------------------------------------------

TEST(DeviceMultiFrame, StagingIndexAbove127ReturnsFiveAndSendsNothing) {
    Link link(host::kMultiStaging);
    ASSERT_TRUE(link.open());
    Bytes data = {1, 2, 3, 4};
    EXPECT_EQ(link.dev->Fr_FillData_beforeTransmit_MultiFrame(127, 1, data.data(), 4), 0);
    EXPECT_EQ(link.dev->Fr_FillData_beforeTransmit_MultiFrame(128, 1, data.data(), 4), 5);
    EXPECT_EQ(link.dev->Fr_FillData_beforeTransmit_MultiFrame(255, 1, data.data(), 4), 5);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.emu.count(kelo::kCmdMultiTransmit), 0u);
}

// Entries are staged with a byte length and sent as 16-bit words (an odd byte is left out).
TEST(DeviceMultiFrame, StagedEntriesAreSentInIndexOrderAndUnmarked) {
    Link link(host::kMultiOrder);
    ASSERT_TRUE(link.open());
    Bytes a = ramp(5, 0xA0), b = ramp(254, 0x00), c = ramp(2, 0xC0);
    ASSERT_EQ(link.dev->Fr_FillData_beforeTransmit_MultiFrame(0, 11, a.data(), 5), 0);
    ASSERT_EQ(link.dev->Fr_FillData_beforeTransmit_MultiFrame(1, 12, b.data(), 254), 0);
    ASSERT_EQ(link.dev->Fr_FillData_beforeTransmit_MultiFrame(2, 13, c.data(), 2), 0);
    unsigned char result = 0xEE;
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(4, 3, &result, 1), 0);

    auto head = [](std::uint8_t slot, std::uint8_t words) {
        Bytes h = zeros(40);
        h[20] = 1;
        h[21] = 4;
        h[22] = slot;
        h[33] = words;
        return h;
    };
    const Bytes expected = cat({zeros(16), le32(3), le32(0), head(11, 2),
                                Bytes(a.begin(), a.begin() + 4), head(12, 127), b, head(13, 1), c});
    EXPECT_EQ(payloadsOf(link.emu, kelo::kCmdMultiTransmit), (std::vector<Bytes>{expected}));
    // The emulator reports the number of entries it took as the transmit result.
    EXPECT_EQ(result, 3);

    // Sent entries are no longer staged.
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(4, 1, &result, 1), 19);
}

TEST(DeviceMultiFrame, UnfilledEntryGivesNineteenAndPayloadOf1300GivesFifteen) {
    Link link(host::kMultiResults);
    ASSERT_TRUE(link.open());
    Bytes full = ramp(254, 0x10);
    unsigned char result = 0;
    auto stage = [&](unsigned char index, unsigned char bytes) {
        return link.dev->Fr_FillData_beforeTransmit_MultiFrame(index, index, full.data(), bytes);
    };

    // Entry 1 missing: 19, nothing sent, and entry 0 has been taken.
    ASSERT_EQ(stage(0, 8), 0);
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 2, &result, 1), 19);
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 1, &result, 1), 19);

    // 24 + 4 x (40 + 254) + 40 + 58 = 1298 bytes: sent.
    for (unsigned char i = 0; i < 4; ++i)
        ASSERT_EQ(stage(i, 254), 0);
    ASSERT_EQ(stage(4, 58), 0);
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 5, &result, 1), 0);
    ASSERT_EQ(link.emu.count(kelo::kCmdMultiTransmit), 1u);
    EXPECT_EQ(link.emu.received(kelo::kCmdMultiTransmit)[0].payload.size(), 1298u);

    // Two bytes more reach 1300: 15, nothing sent, entries taken.
    for (unsigned char i = 0; i < 4; ++i)
        ASSERT_EQ(stage(i, 254), 0);
    ASSERT_EQ(stage(4, 60), 0);
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 5, &result, 1), 15);
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 1, &result, 1), 19);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.emu.count(kelo::kCmdMultiTransmit), 1u);
}

// Header bytes 20-23 count the calls that got past the bus check: one per call, from 0, also
// for a call that then stopped at an unfilled entry.
TEST(DeviceMultiFrame, TransmitCounterInHeaderBytesTwentyToTwentyThree) {
    Link link(host::kMultiCounter);
    ASSERT_TRUE(link.open());
    Bytes data = {1, 2};
    unsigned char result = 0;
    auto sendOne = [&](unsigned char wait) {
        link.dev->Fr_FillData_beforeTransmit_MultiFrame(0, 1, data.data(), 2);
        return link.dev->Fr_Transmit_MultiFrame(1, 1, &result, wait);
    };
    EXPECT_EQ(sendOne(1), 0);                                           // counter 0
    EXPECT_EQ(sendOne(1), 0);                                           // counter 1
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 1, &result, 1), 19);  // counter 2, not sent
    link.emu.uploadBusState(2);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(sendOne(0), 18);  // refused before the counter
    link.emu.uploadBusState(1);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 1, &result, 1), 0);  // counter 3 (still staged)

    std::vector<std::uint32_t> counters;
    for (auto& p : payloadsOf(link.emu, kelo::kCmdMultiTransmit))
        counters.push_back(rd32(&p[20]));
    EXPECT_EQ(counters, (std::vector<std::uint32_t>{0, 1, 3}));
}

// With wait 0 nothing is awaited; with a wait the result byte is the low byte of reply bytes 4-7.
TEST(DeviceMultiFrame, ResultByteComesFromTheReplysTransmitResultWord) {
    Link link(host::kMultiReply);
    ASSERT_TRUE(link.open());
    Bytes data = {1, 2};
    unsigned char result = 0xEE;

    link.dev->Fr_FillData_beforeTransmit_MultiFrame(0, 1, data.data(), 2);
    EXPECT_EQ(link.scripted(kelo::kCmdMultiTransmit, cat({{0, 1, 1, 0}, le32(0x11223344u)}),
                            [&] { return link.dev->Fr_Transmit_MultiFrame(1, 1, &result, 1); }),
              0);
    EXPECT_EQ(result, 0x44);

    // wait 0: the reply is held back for good and the call still returns 0.
    link.emu.delay(kelo::kCmdMultiTransmit, 600000, 1);
    link.dev->Fr_FillData_beforeTransmit_MultiFrame(0, 1, data.data(), 2);
    result = 0xEE;
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 1, &result, 0), 0);
    EXPECT_EQ(result, 0xEE);
    EXPECT_TRUE(link.emu.waitFor(kelo::kCmdMultiTransmit, 2, 2000));
}

// ---- bus-active flag ----------------------------------------------------------------------------

TEST(DeviceBusActive, StatusUploadsGateFlexRayTransmit) {
    Link link(host::kBusActive);
    ASSERT_TRUE(link.open());
    Bytes data = {1, 2, 3, 4};
    Bytes staged = {5, 6};

    link.emu.uploadBusState(2);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_Transmit(1, 3, data.data(), 2), 18);
    ASSERT_EQ(link.dev->Fr_FillData_beforeTransmit_MultiFrame(0, 3, staged.data(), 2), 0);
    unsigned char result = 0;
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 1, &result, 0), 18);

    link.emu.uploadBusState(3);  // not a state: changes nothing
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_Transmit(1, 3, data.data(), 2), 18);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.emu.count(kelo::kCmdTransmit), 0u);
    EXPECT_EQ(link.emu.count(kelo::kCmdMultiTransmit), 0u);

    link.emu.uploadBusState(1);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_Transmit(1, 3, data.data(), 2), 0);
    EXPECT_EQ(link.emu.count(kelo::kCmdTransmit), 1u);
    // The entry refused with 18 was left staged.
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 1, &result, 1), 0);
}

// The emulator reports the bus state itself when the node stops and starts (before the reply).
TEST(DeviceBusActive, NodeStopAndStartReportTheBusState) {
    Link link(host::kBusActiveNode);
    ASSERT_TRUE(link.open());
    Bytes data = {1, 2};
    ASSERT_EQ(link.dev->Fr_Configure_Node(1), 0);
    ASSERT_EQ(link.dev->Fr_Start_Node(1), 0);
    EXPECT_EQ(link.dev->Fr_Transmit(1, 0, data.data(), 1), 0);
    ASSERT_EQ(link.dev->Fr_Stop(1), 0);
    EXPECT_EQ(link.dev->Fr_Transmit(1, 0, data.data(), 1), 18);
    ASSERT_EQ(link.dev->Fr_Start_Node(1), 0);
    EXPECT_EQ(link.dev->Fr_Transmit(1, 0, data.data(), 1), 0);
}

Bytes statusEntry(std::uint16_t type, std::uint16_t state) {
    Bytes e = zeros(32);
    e[8] = std::uint8_t(type);
    e[9] = std::uint8_t(type >> 8);
    e[24] = std::uint8_t(state);
    e[25] = std::uint8_t(state >> 8);
    return e;
}

// Only entries of type 4 carry a bus state; the entries of one upload apply in order.
TEST(DeviceBusActive, OnlyTypeFourEntriesCount) {
    Link link(host::kStatusEntries);
    ASSERT_TRUE(link.open());
    auto upload = [&](std::initializer_list<Bytes> entries) {
        Bytes p = cat({zeros(16), le32(std::uint32_t(entries.size())), zeros(4)});
        for (const Bytes& e : entries)
            p.insert(p.end(), e.begin(), e.end());
        link.emu.sendFrame(kelo::kUploadStatus, p);
        return link.sync();
    };
    ASSERT_TRUE(upload({statusEntry(5, 2), statusEntry(0x0104, 2), statusEntry(0x0400, 2)}));
    EXPECT_TRUE(link.dev->busActive());
    ASSERT_TRUE(upload({statusEntry(4, 2), statusEntry(7, 1)}));
    EXPECT_FALSE(link.dev->busActive());
    ASSERT_TRUE(upload({statusEntry(4, 1), statusEntry(4, 2), statusEntry(4, 1)}));
    EXPECT_TRUE(link.dev->busActive());
    ASSERT_TRUE(upload({statusEntry(4, 1), statusEntry(4, 2)}));
    EXPECT_FALSE(link.dev->busActive());
    ASSERT_TRUE(upload({statusEntry(4, 0x0201)}));  // state word 0x0201, not 1
    EXPECT_FALSE(link.dev->busActive());
}

// ---- node state, PSR, NM vector -----------------------------------------------------------------

TEST(DeviceNodeState, StateSubStateAndProtocolStatusWords) {
    Link link(host::kNodeState);
    ASSERT_TRUE(link.open());
    link.emu.setPsrWords({0x1111, 0x2222, 0x3333, 0x4444});
    link.emu.setNodeState(3, 0x07);

    unsigned char state = 0xEE, sub = 0xEE;
    EXPECT_EQ(link.dev->Fr_GetFrNodeState(1, &state, &sub), 0);
    EXPECT_EQ(state, 3);
    EXPECT_EQ(sub, 0x07);

    unsigned char psr[10];
    std::memset(psr, 0xEE, sizeof psr);
    EXPECT_EQ(link.dev->Fr_GetFrPSRState(1, psr), 0);
    EXPECT_EQ(Bytes(psr, psr + 10),
              (Bytes{0x11, 0x13, 0x22, 0x22, 0x33, 0x33, 0x44, 0x44, 0xEE, 0xEE}));

    // Refused: the outputs stay as they were.
    link.emu.refuse(kelo::kCmdGetNodeState, 0x21, 2);
    state = sub = 0xEE;
    EXPECT_EQ(link.dev->Fr_GetFrNodeState(1, &state, &sub), 1);
    EXPECT_EQ(state, 0xEE);
    EXPECT_EQ(sub, 0xEE);
    std::memset(psr, 0xEE, sizeof psr);
    EXPECT_EQ(link.dev->Fr_GetFrPSRState(1, psr), 1);
    EXPECT_EQ(Bytes(psr, psr + 10), Bytes(10, 0xEE));
}

// State = bits 8-10 of the word at reply bytes 2-3 (little-endian), sub-state = byte 10, status =
// byte 12; the PSR words are reply bytes 2-9 as they came.
TEST(DeviceNodeState, FieldsAreTakenFromTheirReplyBytes) {
    Link link(host::kNodeStateScripted);
    ASSERT_TRUE(link.open());
    const Bytes reply = {0x01, 0xEE, 0xFF, 0xFA, 0x21, 0x43, 0x65,
                         0x87, 0xA9, 0xCB, 0x5C, 0xEE, 0x00};
    unsigned char state = 0, sub = 0;
    EXPECT_EQ(link.scripted(kelo::kCmdGetNodeState, reply,
                            [&] { return link.dev->Fr_GetFrNodeState(1, &state, &sub); }),
              0);
    EXPECT_EQ(state, 2);  // 0xFAFF >> 8 = 0xFA, bits 0-2 = 2
    EXPECT_EQ(sub, 0x5C);

    unsigned char psr[8] = {};
    EXPECT_EQ(link.scripted(kelo::kCmdGetNodeState, reply,
                            [&] { return link.dev->Fr_GetFrPSRState(1, psr); }),
              0);
    EXPECT_EQ(Bytes(psr, psr + 8), (Bytes{0xFF, 0xFA, 0x21, 0x43, 0x65, 0x87, 0xA9, 0xCB}));

    Bytes refused = reply;
    refused[12] = 0x03;
    state = sub = 0x77;
    EXPECT_EQ(link.scripted(kelo::kCmdGetNodeState, refused,
                            [&] { return link.dev->Fr_GetFrNodeState(1, &state, &sub); }),
              1);
    EXPECT_EQ(state, 0x77);
    EXPECT_EQ(sub, 0x77);
}

TEST(DeviceNmVector, VectorAndLength) {
    Link link(host::kNmVector);
    ASSERT_TRUE(link.open());
    const std::vector<Bytes> vectors = {ramp(12, 0x81), {}, {0xA5, 0x5A, 0x01}};
    for (const Bytes& v : vectors) {
        SCOPED_TRACE(v.size());
        link.emu.setNmVector(v);
        unsigned char out[16];
        std::memset(out, 0xEE, sizeof out);
        unsigned char length = 0xEE;
        EXPECT_EQ(link.dev->Fr_GetFrNWVector(1, out, &length), 0);
        EXPECT_EQ(length, v.size());
        EXPECT_EQ(Bytes(out, out + v.size()), v);
        for (std::size_t i = v.size(); i < sizeof out; ++i)
            EXPECT_EQ(out[i], 0xEE) << i;
    }
    link.emu.refuse(kelo::kCmdGetNmVector, 0x21, 1);
    unsigned char out[16];
    std::memset(out, 0xEE, sizeof out);
    unsigned char length = 0xEE;
    EXPECT_EQ(link.dev->Fr_GetFrNWVector(1, out, &length), 1);
    EXPECT_EQ(length, 0xEE);
    EXPECT_EQ(Bytes(out, out + 16), Bytes(16, 0xEE));
}

// ---- device text --------------------------------------------------------------------------------

TEST(DeviceText, LatinOneNulTerminatedInThirtyTwoBytes) {
    Link link(host::kDeviceText);
    ASSERT_TRUE(link.open());
    EXPECT_EQ(link.dev->SetDeviceText("Gr\xC3\xBC\xC3\x9F"
                                      "e"),
              0);  // UTF-8 "Grüße"
    EXPECT_EQ(link.dev->SetDeviceText("0123456789abcdefghijklmnopqrstuvwxyz"), 0);
    EXPECT_EQ(link.dev->SetDeviceText(""), 0);
    const auto sent = payloadsOf(link.emu, kelo::kCmdSetDeviceText);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0], cat({{'G', 'r', 0xFC, 0xDF, 'e'}, zeros(27)}));
    Bytes longText(32, 0);
    const char* text = "0123456789abcdefghijklmnopqrstu";
    std::copy(text, text + 31, longText.begin());
    EXPECT_EQ(sent[1], longText);
    EXPECT_EQ(sent[2], zeros(32));
}

}  // namespace
}  // namespace kelo_test
