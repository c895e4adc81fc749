// Operations with behaviour beyond "send one command, wait for its reply" (the operations table
// has the plain ones).
#include <cstring>

#include "support/device_harness.h"

namespace kelo_testing {
namespace {

constexpr std::uint8_t kCanChannel = 3;

// SetTimeOffset sends nanoseconds as a signed little-endian 64-bit word and does not preset its
// status byte: unanswered, it reports the status a late reply left behind (a presetting command
// reads its own preset, 1).
TEST_F(OpenLink, TimeOffsetReportsTheStatusTheLastReplyLeft) {
    auto lateReply = [&](std::uint8_t command, std::uint8_t status) {
        link.emu.sendFrame(command, {status, 0, 0, 0});
        return link.sync();  // dispatched when the barrier's reply is in
    };
    ASSERT_TRUE(lateReply(kelo::kCmdSetTimeOffset, 0));
    ASSERT_TRUE(lateReply(kelo::kCmdSetDeviceOption, 0));
    link.emu.drop(kelo::kCmdSetTimeOffset, 1);
    link.emu.drop(kelo::kCmdSetDeviceOption, 1);
    EXPECT_EQ(link.dev->SetTimeOffset(-1), 0) << "status of the last reply 210, not a preset";
    EXPECT_EQ(link.dev->SetDeviceOption(2), 1) << "a presetting command reads its own 0xFF";
    ASSERT_TRUE(link.sync());  // the emulator uses up the two drops on them
    ASSERT_TRUE(lateReply(kelo::kCmdSetTimeOffset, 0x09));
    link.emu.drop(kelo::kCmdSetTimeOffset, 1);
    EXPECT_EQ(link.dev->SetTimeOffset(5000000000LL), 1);
    EXPECT_EQ(link.dev->SetTimeOffset(-9223372036LL), 0);
    EXPECT_EQ(payloadsOf(link.emu, kelo::kCmdSetTimeOffset),
              (std::vector<Bytes>{le64(std::uint64_t(-1000000000LL)), le64(5000000000000000000ull),
                                  le64(std::uint64_t(-9223372036000000000LL))}));
}

// Pass 0, then pass 1; byte 2 of the caller's record is left at the pass last sent (the export
// passes a copy: the repack tests).
TEST_F(OpenLink, FifoPassByteStaysInTheRecordAndARefusedPassEndsTheOperation) {
    Bytes fifo = ramp(46, 0x80);
    fifo[0] = 1;
    Bytes expected = fifo;
    expected[2] = 1;
    EXPECT_EQ(link.dev->Fr_Set_Fifo_Parameter(fifo.data()), 0);
    EXPECT_EQ(fifo, expected) << "only byte 2 changes";

    // The second pass refused (both replies given by hand): the operation ends with 1.
    link.emu.clearReceived();
    link.emu.delay(kelo::kCmdSetFifoParameter, 600000, 2);
    fifo[2] = 0;
    auto op = std::async(std::launch::async,
                         [&] { return link.dev->Fr_Set_Fifo_Parameter(fifo.data()); });
    for (std::uint8_t pass = 0; pass < 2; ++pass) {
        ASSERT_TRUE(link.emu.waitFor(kelo::kCmdSetFifoParameter, pass + 1u, 2000));
        link.emu.sendFrame(kelo::kCmdSetFifoParameter, {1, pass, std::uint8_t(pass ? 5 : 0)},
                           link.emu.received(kelo::kCmdSetFifoParameter)[pass].sequence);
    }
    EXPECT_EQ(op.get(), 1);
    EXPECT_EQ(fifo, expected);
}

// Selector 0 reads bit 28, 1 bit 30; any other gives 5 and sends nothing. A refused read leaves
// the value alone.
TEST_F(OpenLink, RegisterBitsReadValue) {
    for (unsigned which : {2u, 0xFFFFFFFFu}) {
        unsigned int value = 0xEEEEEEEEu;
        EXPECT_EQ(link.dev->Fr_ReadValue(1, 1, which, &value), 5) << which;
        EXPECT_EQ(value, 0xEEEEEEEEu);
    }
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.emu.count(kelo::kCmdReadRegister), 0u);
    const std::uint32_t words[][3] = {
        {0x10000000u, 1, 0}, {0xAFFFFFFFu, 0, 0}, {0xEFFFFFFFu, 0, 1}};
    for (auto& c : words) {
        SCOPED_TRACE(c[0]);
        link.emu.setRegisterWord(1, 2, c[0]);
        unsigned int value = 7;
        EXPECT_EQ(link.dev->Fr_ReadValue(1, 2, 0, &value), 0);
        EXPECT_EQ(value, c[1]);
        EXPECT_EQ(link.dev->Fr_ReadValue(1, 2, 1, &value), 0);
        EXPECT_EQ(value, c[2]);
    }
    link.emu.refuse(kelo::kCmdReadRegister, 0x21, 1);
    unsigned int value = 7;
    EXPECT_EQ(link.dev->Fr_ReadValue(1, 2, 0, &value), 1);
    EXPECT_EQ(value, 7u);
}

// Fr_WriteValue reads the word and writes it back with one bit changed (the export always uses
// kind 1; its two frames: the operations table); Fr_Set_WorkMode writes the mode word outright
// (bit 29 for flag 1).
TEST_F(OpenLink, RegisterBitsWriteValueAndWorkMode) {
    const struct {
        std::uint8_t kind, controller;
        std::uint32_t before;
        unsigned which;
        int value;
        std::uint32_t after;
    } cases[] = {
        {1, 1, 0xFFFFFFFFu, 0, 0, 0xEFFFFFFFu},
        {1, 0, 0x00000001u, 1, -1, 0x40000001u},
        {2, 3, 0x00000002u, 1, 5, 0x40000002u},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "before " << std::hex << c.before << " which "
                                          << c.which << " value " << c.value);
        link.emu.setRegisterWord(c.kind, c.controller, c.before);
        EXPECT_EQ(link.dev->Fr_WriteValue(c.kind, c.controller, c.which, c.value), 0);
        EXPECT_EQ(link.emu.registerWord(c.kind, c.controller), c.after);
    }
    link.emu.clearReceived();
    link.emu.refuse(kelo::kCmdReadRegister, 0x21, 1);
    EXPECT_EQ(link.dev->Fr_WriteValue(1, 1, 0, 1), 1);
    EXPECT_EQ(link.emu.count(kelo::kCmdWriteRegister), 0u) << "a refused read writes nothing";

    const struct {
        char mode;
        unsigned char flag;
        std::uint32_t word;
    } modes[] = {{2, 1, 0x20000000u}, {1, 2, 2u}, {-1, 0, 0u}};  // (1, 1): the repack tests
    for (auto& m : modes) {
        SCOPED_TRACE(::testing::Message() << "mode " << int(m.mode) << " flag " << int(m.flag));
        link.emu.setRegisterWord(1, 1, 0xDEADBEEFu);  // written outright, not modified
        EXPECT_EQ(link.dev->Fr_Set_WorkMode(1, 1, m.mode, m.flag), 0);
        EXPECT_EQ(link.emu.registerWord(1, 1), m.word);
    }
}

// Four steps on the CAN channel; the first failing one ends the configuration with 10 + its
// number (an object never opened fails at the first).
TEST(DeviceCanConfigure, RunsFourStepsAndStopsAtTheFailingOne) {
    const std::uint8_t steps[] = {kelo::kCmdSetControllerMode, kelo::kCmdCanSetBusParameter,
                                  kelo::kCmdCanSetFilterParameter, kelo::kCmdCanSetOptionParameter};
    Link link;
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    Bytes config = ramp(52, 0x01);
    EXPECT_EQ(link.dev->CAN_Configure(config.data()), 0);
    // Filter block: two entries of 14 record bytes from 20 + 16n, the mode (byte 50) last.
    Bytes filter = zeros(32), option = zeros(44);
    for (int n = 0; n < 2; ++n)
        std::copy(config.begin() + 20 + 16 * n, config.begin() + 34 + 16 * n,
                  filter.begin() + 16 * n);
    filter[31] = config[50];
    option[1] = config[51];
    const Bytes head = {2, kCanChannel, 0, 0};
    const auto sent = commandsSent(link.emu);
    ASSERT_EQ(codesOf(sent), std::vector<int>(std::begin(steps), std::end(steps)));
    EXPECT_EQ(sent[0].payload, cat({head, le32(0xA0000000u)}));
    EXPECT_EQ(sent[1].payload,
              cat({head, Bytes(config.begin(), config.begin() + 16), {64}, zeros(31)}));
    EXPECT_EQ(sent[2].payload, cat({head, filter}));
    EXPECT_EQ(sent[3].payload, cat({{2, kCanChannel}, option}));

    for (int failing = 0; failing < 4; ++failing) {
        SCOPED_TRACE(failing);
        link.emu.clearReceived();
        link.emu.refuse(steps[failing], 0x21, 1);
        EXPECT_EQ(link.dev->CAN_Configure(config.data()), 10 + failing);
        EXPECT_EQ(codesOf(commandsSent(link.emu)),
                  std::vector<int>(std::begin(steps), std::begin(steps) + failing + 1));
    }
    std::unique_ptr<CommunicationLib> never(GetKeLoComm());
    EXPECT_EQ(never->CAN_Configure(config.data()), 10);
}

// The flag word in entry bytes 24-27 (the rest of the frame: the operations table; the data
// lengths: the CAN length export test). Result 0 only for an accepted reply that names the
// object's channel (reply byte 2).
TEST(DeviceCanTransmit, FlagWordAndReplyChannel) {
    Link link;
    ASSERT_TRUE(link.open(Bus::Can, kCanChannel));
    // Frame type and flag bytes 5-7, the word: two type bits; any non-zero flag byte counts.
    const std::uint32_t flags[][5] = {
        {0, 0, 0, 0, 0u}, {0, 1, 0, 0, 0x00800000u}, {7, 0x80, 0x02, 0xFF, 0xC0B00000u}};
    Bytes data = ramp(8, 0x40);
    for (auto& c : flags) {
        SCOPED_TRACE(c[4]);
        link.emu.clearReceived();
        Bytes frame = cat({le32(0x12345678u),
                           {std::uint8_t(c[0]), std::uint8_t(c[1])},
                           {std::uint8_t(c[2]), std::uint8_t(c[3]), 8, 0, 0, 0}});
        EXPECT_EQ(link.dev->CAN_Transmit(frame.data(), data.data()), 0);
        const auto sent = payloadsOf(link.emu, kelo::kCmdMultiTransmit);
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(rd32(&sent[0][24 + 24]), c[4]);
    }
    Bytes frame = {0x01, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0};
    const std::uint8_t cases[][3] = {{0, kCanChannel, 0}, {0, 255, 1}, {0x04, kCanChannel, 1}};
    for (auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "status " << int(c[0]) << " channel " << int(c[1]));
        EXPECT_EQ(link.scripted(kelo::kCmdMultiTransmit, cat({{c[0], 2, c[1], 0}, le32(1)}),
                                [&] { return link.dev->CAN_Transmit(frame.data(), data.data()); }),
                  c[2]);
    }
}

// Staging indices above 127 give 5; a missing entry gives 19, a batch of 1300 bytes or more 15,
// neither sends anything, and the entries of a call that went out or failed are taken.
TEST_F(OpenLink, MultiFrameStagingLimitsAndResults) {
    Bytes full = ramp(254, 0x10);
    unsigned char result = 0;
    auto stage = [&](unsigned char index, unsigned char bytes) {
        return link.dev->Fr_FillData_beforeTransmit_MultiFrame(index, index, full.data(), bytes);
    };
    EXPECT_EQ(stage(127, 4), 0);
    EXPECT_EQ(stage(128, 4), 5);
    EXPECT_EQ(stage(255, 4), 5);
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
    for (unsigned char i = 0; i < 4; ++i)
        ASSERT_EQ(stage(i, 254), 0);
    ASSERT_EQ(stage(4, 60), 0);
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 5, &result, 1), 15);
    EXPECT_EQ(link.dev->Fr_Transmit_MultiFrame(1, 1, &result, 1), 19);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.emu.count(kelo::kCmdMultiTransmit), 1u);
}

// Header bytes 20-23 count the calls that got past the bus check (also one that then stopped at
// an unfilled entry). With a wait the result byte is the low byte of reply bytes 4-7; with wait 0
// nothing is awaited.
TEST_F(OpenLink, MultiFrameCounterAndResultByte) {
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

    link.dev->Fr_FillData_beforeTransmit_MultiFrame(0, 1, data.data(), 2);
    EXPECT_EQ(link.scripted(kelo::kCmdMultiTransmit, cat({{0, 1, 1, 0}, le32(0x11223344u)}),
                            [&] { return link.dev->Fr_Transmit_MultiFrame(1, 1, &result, 1); }),
              0);
    EXPECT_EQ(result, 0x44);
    link.emu.delay(kelo::kCmdMultiTransmit, 600000, 1);  // held back for good
    result = 0xEE;
    EXPECT_EQ(sendOne(0), 0);
    EXPECT_EQ(result, 0xEE);
    EXPECT_TRUE(link.emu.waitFor(kelo::kCmdMultiTransmit, 5, 2000));
}

Bytes statusEntry(std::uint16_t type, std::uint16_t state) {
    return cat({zeros(8), le16(type), zeros(14), le16(state), zeros(6)});
}

// Status uploads set the bus-active flag (entries of type 4 only, applied in order; state 2 is
// passive, 1 active, anything else changes nothing). A FlexRay transmission on a passive bus gives
// 18 and sends nothing (the multi-frame one: the counter test).
TEST_F(OpenLink, BusActiveStatusUploadsGateFlexRayTransmit) {
    auto upload = [&](std::initializer_list<Bytes> entries) {
        link.emu.sendFrame(kelo::kUploadStatus, multiPayload(entries));
        return link.sync();
    };
    ASSERT_TRUE(upload({statusEntry(5, 2), statusEntry(0x0104, 2), statusEntry(0x0400, 2)}));
    EXPECT_TRUE(link.dev->busActive());
    ASSERT_TRUE(upload({statusEntry(4, 2), statusEntry(7, 1)}));
    EXPECT_FALSE(link.dev->busActive());
    ASSERT_TRUE(upload({statusEntry(4, 1), statusEntry(4, 2), statusEntry(4, 1)}));
    EXPECT_TRUE(link.dev->busActive());
    ASSERT_TRUE(upload({statusEntry(4, 2), statusEntry(4, 0x0201)}));  // state word 0x0201, not 1
    EXPECT_FALSE(link.dev->busActive());

    Bytes data = {1, 2, 3, 4};
    EXPECT_EQ(link.dev->Fr_Transmit(1, 3, data.data(), 2), 18);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.emu.count(kelo::kCmdTransmit), 0u);
    link.emu.uploadBusState(1);
    ASSERT_TRUE(link.sync());
    EXPECT_EQ(link.dev->Fr_Transmit(1, 3, data.data(), 2), 0);
}

// State = bits 8-10 of the word at reply bytes 2-3 (little-endian), sub-state = byte 10, status =
// byte 12; the PSR words are reply bytes 2-9 as they came (a refusal leaves the outputs alone: the
// operations table).
TEST_F(OpenLink, NodeStateFieldsAreTakenFromTheirReplyBytes) {
    Bytes reply = {0x01, 0xEE, 0xFF, 0xFA, 0x21, 0x43, 0x65, 0x87, 0xA9, 0xCB, 0x5C, 0xEE, 0x00};
    unsigned char state = 0, sub = 0, psr[8] = {};
    EXPECT_EQ(link.scripted(kelo::kCmdGetNodeState, reply,
                            [&] { return link.dev->Fr_GetFrNodeState(1, &state, &sub); }),
              0);
    EXPECT_EQ(state, 2);  // 0xFAFF >> 8 = 0xFA, bits 0-2 = 2
    EXPECT_EQ(sub, 0x5C);
    EXPECT_EQ(link.scripted(kelo::kCmdGetNodeState, reply,
                            [&] { return link.dev->Fr_GetFrPSRState(1, psr); }),
              0);
    EXPECT_EQ(Bytes(psr, psr + 8), (Bytes{0xFF, 0xFA, 0x21, 0x43, 0x65, 0x87, 0xA9, 0xCB}));
}

// The vector and its length, nothing past it (a refusal leaves both alone: the operations table).
TEST_F(OpenLink, NmVectorAndLength) {
    for (const Bytes& v : {ramp(12, 0x81), Bytes{}}) {
        SCOPED_TRACE(v.size());
        link.emu.setNmVector(v);
        unsigned char out[16], length = 0xEE;
        std::memset(out, 0xEE, sizeof out);
        EXPECT_EQ(link.dev->Fr_GetFrNWVector(1, out, &length), 0);
        EXPECT_EQ(length, v.size());
        EXPECT_EQ(Bytes(out, out + 16), cat({v, Bytes(16 - v.size(), 0xEE)}));
    }
}

TEST_F(OpenLink, DeviceTextLatinOneNulTerminatedInThirtyTwoBytes) {
    EXPECT_EQ(link.dev->SetDeviceText("Gr\xC3\xBC\xC3\x9F"
                                      "e"),
              0);  // UTF-8 "Grüße"
    EXPECT_EQ(link.dev->SetDeviceText("0123456789abcdefghijklmnopqrstuvwxyz"), 0);
    EXPECT_EQ(link.dev->SetDeviceText(""), 0);
    const std::string cut = "0123456789abcdefghijklmnopqrstu";
    EXPECT_EQ(payloadsOf(link.emu, kelo::kCmdSetDeviceText),
              (std::vector<Bytes>{cat({{'G', 'r', 0xFC, 0xDF, 'e'}, zeros(27)}),
                                  cat({Bytes(cut.begin(), cut.end()), {0}}), zeros(32)}));
}

}  // namespace
}  // namespace kelo_testing
