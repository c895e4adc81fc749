// Opening a device as the emulator sees it: device information (198, up to five tries) and then
// the connect command (192), the software version taken from the information record, and the
// CAN channel that CAN_Open stores.
#include "support/device_harness.h"

namespace kelo_testing {
namespace {

// A fresh object: device information, then connect (4 bytes), with consecutive host sequences
// from 0. Four refusals of the device information: the fifth try succeeds and the open goes on.
// GetDeviceInfo then hands out the whole 72-byte record the device answered, its status byte
// included (0 on an accepted reply), nothing past 72 (a refusal leaves it alone: the operations
// table). A refused connect fails the open with 1.
TEST(DeviceOpen, RetriesDeviceInformationThenConnects) {
    Link link;
    std::array<std::uint8_t, 72> info;
    for (std::size_t i = 0; i < info.size(); ++i)
        info[i] = std::uint8_t(0x90 + i);
    link.emu.setDeviceInfo(info);
    link.emu.refuse(kelo::kCmdGetDeviceInfo, 0x33, 4);
    ASSERT_EQ(link.dev->Fr_Open(link.addr()), 0);
    const auto sent = commandsSent(link.emu);
    EXPECT_EQ(codesOf(sent), (std::vector<int>{198, 198, 198, 198, 198, 192}));
    for (std::size_t i = 0; i < sent.size(); ++i)
        EXPECT_EQ(sent[i].sequence, 0x8000 + i);
    EXPECT_TRUE(sent[0].payload.empty());
    EXPECT_EQ(sent.back().payload.size(), 4u);

    Bytes out(80, 0xEE), expected = cat({Bytes(info.begin(), info.end() - 1), {0}, Bytes(8, 0xEE)});
    ASSERT_EQ(link.dev->GetDeviceInfo(out.data()), 0);
    EXPECT_TRUE(sameBytes(out, expected));
    EXPECT_EQ(link.dev->Fr_Close(), 0);

    EmulatorHost refusing;
    refusing.emu.refuse(kelo::kCmdConnect, 0x44);
    std::unique_ptr<CommunicationLib> refused(GetKeLoComm());
    EXPECT_EQ(refused->Fr_Open(refusing.addr()), 1);
    EXPECT_EQ(codesOf(commandsSent(refusing.emu)), (std::vector<int>{198, 192}));
    refused->CAN_Close();
}

// An object opened for FlexRay puts the default channel 255 into its CAN commands (the channel a
// CAN open stores: the CAN exports' tests).
TEST(DeviceOpen, FlexRayOpenLeavesTheDefaultCanChannel) {
    Link link;
    ASSERT_TRUE(link.open(Bus::FlexRay));
    EXPECT_EQ(link.dev->CAN_Start(2), 0);
    EXPECT_EQ(payloadsOf(link.emu, kelo::kCmdCanStart), (std::vector<Bytes>{{2, 255}}));
}

// A device that never answers: five tries of 5000 ms each, then the open gives up with 2 and
// never sends the connect command.
TEST(DeviceOpenSlow, SilentDeviceFailsAfterFiveTriesWithTwo) {
    EmulatorHost host;
    host.emu.drop(kelo::kCmdGetDeviceInfo);
    CommunicationLib* dev = GetKeLoComm();
    Stopwatch watch;
    EXPECT_EQ(dev->Fr_Open(host.addr()), 2);
    EXPECT_GE(watch.ms(), 5 * 5000 * 9 / 10);
    EXPECT_EQ(host.emu.count(kelo::kCmdGetDeviceInfo), 5u);
    EXPECT_EQ(host.emu.count(kelo::kCmdConnect), 0u);
    ASSERT_TRUE(finishesWithin(std::chrono::seconds(10), [dev] {
        dev->CAN_Close();
        delete dev;
    }));
}

}  // namespace
}  // namespace kelo_testing
