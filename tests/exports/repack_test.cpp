// The exports that build the device's record from the caller's arguments: the exact bytes that
// reach the device, the bus kind the shared operations get, and what is written back.
#include <cstddef>

#include "export_fixture.h"

using namespace kelo_export_test;

namespace {

class Repack : public ExportTest {};
class RepackSlow : public ExportTest {};

using Wire = std::vector<std::pair<int, Bytes>>;

// The commands and payloads sent since the last clear, in order.
Wire wireOf(const kelo::emu::DeviceEmulator& emu) {
    Wire w;
    for (const auto& f : commandsSent(emu))
        w.emplace_back(f.command, f.payload);
    return w;
}

// Stop (110) first, then the controller mode (139) and the 40-byte cluster record (96): the node
// byte, the 36-byte block, three zero bytes. The result is the cluster command's, whichever of
// the other two the device refused. Frames queued before the call are gone afterwards: the export
// empties the FlexRay buffer between the stop and the cluster command.
TEST_F(Repack, ClusterParameterStopsEmptiesTheBufferThenSendsTheRecord) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open());
    ASSERT_EQ(KFr_StartFrRxUpload_Wrapper(dev.idx(), 0), 0);
    const std::pair<int, unsigned char> rows[] = {{0, 0},
                                                  {kelo::kCmdStopNode, 0},
                                                  {kelo::kCmdSetControllerMode, 0},
                                                  {kelo::kCmdSetClusterParameter, 1}};
    const std::uint8_t node = 3;
    const Bytes block = ramp(36, 0x40);
    for (const auto& [refused, expected] : rows) {
        SCOPED_TRACE(refused);
        dev.emu.uploadFlexRay(std::vector<kelo::emu::FlexRayEntry>(3));
        ASSERT_TRUE(dev.sync());
        ASSERT_EQ(KFr_framesAvailable_Wrapper(dev.idx()), 3);
        dev.emu.clearReceived();
        if (refused) dev.emu.refuse(std::uint8_t(refused), 7, 1);
        Bytes caller = block;
        EXPECT_EQ(KFr_Set_Cluster_Parameter_Wrapper(dev.idx(), node, caller.data()), expected);
        EXPECT_EQ(wireOf(dev.emu),
                  (Wire{{kelo::kCmdStopNode, {node}},
                        {kelo::kCmdSetControllerMode, cat({{1, node, 0, 0}, le32(0xA0000000u)})},
                        {kelo::kCmdSetClusterParameter, cat({{node}, block, zeros(3)})}}));
        EXPECT_EQ(caller, block) << "the caller's block changed";
        EXPECT_EQ(KFr_framesAvailable_Wrapper(dev.idx()), 0);
    }
}

// The stop gets no answer at all (3000 ms wait): the cluster record still goes out and its status
// is returned.
TEST_F(RepackSlow, ClusterParameterAfterStopTimeOutReturnsTheClusterStatus) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open());
    dev.emu.drop(kelo::kCmdStopNode, 1);
    Bytes block = ramp(36, 0x10);
    EXPECT_EQ(KFr_Set_Cluster_Parameter_Wrapper(dev.idx(), 1, block.data()), 0);
    EXPECT_EQ(codesOf(commandsSent(dev.emu)),
              (std::vector<int>{kelo::kCmdStopNode, kelo::kCmdSetControllerMode,
                                kelo::kCmdSetClusterParameter}));
}

// Each export's frames, byte for byte. The shared register and time-out operations get bus kind
// 1 on a FlexRay device; the CAN exports give mode 2 and the channel the device was opened on.
TEST_F(Repack, RecordsReachTheDeviceAsDocumented) {
    ExportDevice fr, can;
    const std::uint8_t ch = 6;
    ASSERT_TRUE(fr.open());
    ASSERT_TRUE(can.open(Bus::Can, ch));
    static const Bytes node48 = ramp(48, 0x30), cc5 = {0xC1, 0xC2, 0xC3, 0xC4, 0xC5};
    // Each call gets the index of the FlexRay and of the CAN device, and uses one of them.
    using I = signed char;
    const std::vector<std::pair<unsigned char (*)(I, I), Wire>> rows = {
        {[](I f, I) { return KFr_Set_Node_Parameter_Wrapper(f, 2, Bytes(node48).data()); },
         {{kelo::kCmdSetNodeParameter, cat({{2}, node48, zeros(3)})}}},
        {[](I f, I) { return KFr_Set_CC_Parameter_Wrapper(f, 4, Bytes(cc5).data()); },
         {{kelo::kCmdSetCcParameter, cat({{4}, cc5})}}},
        // The node argument is not used: the frame's node byte is always 0.
        {[](I f, I) {
             KFrKeySlotRecord k = {{{0xBEEF, 0x01, 0x80}, {0x0005, 0xFF, 0x00}}};
             return KFr_SetFrPhyNodeKeySlot_Wrapper(f, 7, &k);
         },
         {{kelo::kCmdSetKeySlot, {0, 0xEF, 0xBE, 0x01, 0x80, 0x05, 0x00, 0xFF, 0x00}}}},
        {[](I f, I) { return KFr_Set_WorkMode_Wrapper(f, 2, 1, 1); },
         {{kelo::kCmdWriteRegister, cat({{1, 2}, le32(0x20000002u)})}}},
        {[](I f, I) { return KFr_WriteValue_Wrapper(f, 3, 0, 1); },
         {{kelo::kCmdReadRegister, {1, 3}},
          {kelo::kCmdWriteRegister, cat({{1, 3}, le32(0x10000000u)})}}},
        {[](I f, I) { return KFr_WriteValue_Wrapper(f, 3, 1, 9); },
         {{kelo::kCmdReadRegister, {1, 3}},
          {kelo::kCmdWriteRegister, cat({{1, 3}, le32(0x50000000u)})}}},
        {[](I f, I) {
             unsigned int v = 0;
             return KFr_ReadValue_Wrapper(f, 6, 1, &v);
         },
         {{kelo::kCmdReadRegister, {1, 6}}}},
        {[](I f, I) { return KFr_SetNodeRxTimeout_Wrapper(f, 1, 0x12345678u); },
         {{kelo::kCmdSetNodeRxTimeout, {1, 1, 0x78, 0x56, 0x34, 0x12}}}},
        {[](I, I c) { return KCAN_Start_Wrapper(c); }, {{kelo::kCmdCanStart, {2, ch}}}},
        {[](I, I c) { return KCAN_Stop_Wrapper(c); }, {{kelo::kCmdCanStop, {2, ch}}}},
        {[](I, I c) { return KCAN_SetNodeRxTimeout_Wrapper(c, 0xA1B2C3D4u); },
         {{kelo::kCmdSetNodeRxTimeout, {2, ch, 0xD4, 0xC3, 0xB2, 0xA1}}}},
    };
    for (std::size_t r = 0; r < rows.size(); ++r) {
        SCOPED_TRACE("row " + std::to_string(r));
        fr.emu.clearReceived();
        can.emu.clearReceived();
        EXPECT_EQ(rows[r].first(fr.idx(), can.idx()), 0);
        Wire both = wireOf(fr.emu), onCan = wireOf(can.emu);
        both.insert(both.end(), onCan.begin(), onCan.end());
        EXPECT_EQ(both, rows[r].second);
    }
}

// 102 with the node byte, the 12-byte block and a zero (14 bytes). The buffer index the device
// names lands in block[0] on status 0 (the emulator assigns 0, a scripted reply names 42), the
// other bytes stay; a refusal writes nothing back.
TEST_F(Repack, SlotParameterWritesTheAssignedBufferBackOnSuccess) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open());
    // 0 buffer index, 1 unused, 2-3 slot id, 4 parameter, 5 payload words, 6 parameter,
    // 7 channel A, 8 channel B, 9 base cycle, 10 repetition, 11 transmit flag.
    const Bytes sent = cat({{255, 0xEE}, le16(33), {0x44, 4, 0x66, 1, 1, 0, 2, 1}});
    Bytes block = sent;
    EXPECT_EQ(KFr_Set_Slot_Parameter_Wrapper(dev.idx(), 2, block.data()), 0);
    EXPECT_EQ(wireOf(dev.emu), (Wire{{kelo::kCmdSetSlotParameter, cat({{2}, sent, {0}})}}));
    EXPECT_TRUE(sameBytes(block, cat({{0}, Bytes(sent.begin() + 1, sent.end())})));

    for (const auto& [status, expected] : {std::pair<std::uint8_t, int>{0, 0}, {3, 1}}) {
        block = sent;
        // Reply: ctl, slot id, 0, buffer index, status.
        const unsigned char r = dev.scripted(
            kelo::kCmdSetSlotParameter, {2, 33, 0, 0, 42, status},
            [&] { return KFr_Set_Slot_Parameter_Wrapper(dev.idx(), 2, block.data()); });
        EXPECT_EQ(r, expected);
        EXPECT_EQ(block[0], status == 0 ? 42 : 255);
        EXPECT_TRUE(
            sameBytes(Bytes(block.begin() + 1, block.end()), Bytes(sent.begin() + 1, sent.end())));
    }
}

// The device's 46-byte record for the field values the FIFO test sets, offset by offset: the
// caller's fields in their order with natural alignment, the group count at 44 and the padding
// bytes (1, 3, 13, 19, ..., 45) zero.
Bytes fifoRecord(std::uint8_t node, std::uint8_t pass, const std::uint8_t enable[4],
                 std::uint8_t groups) {
    return {node,      0,    pass, 0,                             // 0-3
            0x01,      0x11, 0x02, 0x22, 0x03, 0x33, 0x04, 0x44,  // 4-11 the four words
            enable[0], 0,    0x05, 0x55, 0x06, 0x66, 0x07, 0,     // 12-19 group 0
            enable[1], 0,    0x08, 0x88, 0x09, 0x99, 0x0A, 0,     // 20-27 group 1
            enable[2], 0,    0x0B, 0xBB, 0x0C, 0xCC, 0x0D, 0,     // 28-35 group 2
            enable[3], 0,    0x0E, 0xEE, 0x0F, 0xFF, 0x10, 0,     // 36-43 group 3
            groups,    0};                                        // 44 count, 45
}

// Sent twice, pass byte 0 then 1; the group count is the number of non-zero enable bytes.
TEST_F(Repack, FifoParameterIsRepackedAndSentTwice) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open());
    struct Row {
        std::uint8_t enable[4];
        std::uint8_t groups;
    };
    const Row rows[] = {{{1, 0, 5, 0}, 2}, {{0, 0, 0, 0xFF}, 1}, {{1, 1, 1, 1}, 4}};
    std::uint8_t node = 1;
    for (const Row& row : rows) {
        SCOPED_TRACE(int(node));
        dev.emu.clearReceived();
        // Every field its own value (in declaration order), so a swapped or misplaced field
        // shows.
        KFrFifoRecord f = {0x1101, 0x2202,        0x3303,        0x4404,        row.enable[0],
                           0x5505, 0x6606,        0x07,          row.enable[1], 0x8808,
                           0x9909, 0x0A,          row.enable[2], 0xBB0B,        0xCC0C,
                           0x0D,   row.enable[3], 0xEE0E,        0xFF0F,        0x10};
        const KFrFifoRecord before = f;

        EXPECT_EQ(KFr_Set_Fifo_Parameter_Wrapper(dev.idx(), node, &f), 0);
        EXPECT_EQ(
            wireOf(dev.emu),
            (Wire{{kelo::kCmdSetFifoParameter, fifoRecord(node, 0, row.enable, row.groups)},
                  {kelo::kCmdSetFifoParameter, fifoRecord(node, 1, row.enable, row.groups)}}));
        EXPECT_EQ(std::memcmp(&f, &before, sizeof f), 0) << "the caller's record changed";
        ++node;
    }

    // The first pass refused: the second is not sent.
    dev.emu.clearReceived();
    dev.emu.refuse(kelo::kCmdSetFifoParameter, 1, 1);
    KFrFifoRecord f = {};
    EXPECT_EQ(KFr_Set_Fifo_Parameter_Wrapper(dev.idx(), 0, &f), 1);
    EXPECT_EQ(dev.emu.count(kelo::kCmdSetFifoParameter), 1u);
}

}  // namespace
