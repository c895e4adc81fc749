// Runs the C99 caller in c_interface.c against the emulator, and compares the record layouts C
// sees with the documented ones.
#include <cstddef>

#include "export_fixture.h"

extern "C" {
int kelo_c_smoke(const char* address, unsigned int* deviceVersion);
int kelo_c_can_smoke(const char* address, unsigned char channel);
int kelo_c_record_layout(std::size_t* values, int capacity);
}

using namespace kelo_export_test;

namespace {

class CInterface : public ExportTest {};

TEST_F(CInterface, FlexRaySessionFromC) {
    EmulatorHost host;
    kelo::emu::DeviceEmulator& emu = host.emu;
    emu.setSoftwareVersion(0x01020304u);
    unsigned int deviceVersion = 0;
    EXPECT_EQ(kelo_c_smoke(emu.address().c_str(), &deviceVersion), 0);
    EXPECT_EQ(deviceVersion, 0x01020304u);
    EXPECT_EQ(emu.count(kelo::kCmdClose), 1u);
}

TEST_F(CInterface, CanSessionFromC) {
    EmulatorHost host;
    kelo::emu::DeviceEmulator& emu = host.emu;
    EXPECT_EQ(kelo_c_can_smoke(emu.address().c_str(), 7), 0);
    EXPECT_EQ(emu.count(kelo::kCmdMultiTransmit), 1u) << "one frame sent, the 9-byte one refused";
}

// The caller records: FIFO 34 bytes with natural alignment, key slots two 4-byte entries. C and
// C++ agree with each other and with the documented offsets.
TEST(CRecordLayout, MatchesTheDocumentedOffsetsInCAndCxx) {
    const std::vector<std::size_t> documented = {34, 0,  2,  4,  6,  8,  10, 12, 14, 15, 16, 18, 20,
                                                 21, 22, 24, 26, 27, 28, 30, 32, 8,  4,  6,  7};
    std::size_t fromC[64] = {};
    const int n = kelo_c_record_layout(fromC, 64);
    ASSERT_EQ(n, int(documented.size()));
    EXPECT_EQ(std::vector<std::size_t>(fromC, fromC + n), documented);

    const std::vector<std::size_t> fromCxx = {
        sizeof(KFrFifoRecord),
        offsetof(KFrFifoRecord, rejectFrameId),
        offsetof(KFrFifoRecord, rejectMask),
        offsetof(KFrFifoRecord, depth),
        offsetof(KFrFifoRecord, criteria),
        offsetof(KFrFifoRecord, group0Enable),
        offsetof(KFrFifoRecord, group0FrameId),
        offsetof(KFrFifoRecord, group0Mask),
        offsetof(KFrFifoRecord, group0Channel),
        offsetof(KFrFifoRecord, group1Enable),
        offsetof(KFrFifoRecord, group1FrameId),
        offsetof(KFrFifoRecord, group1Mask),
        offsetof(KFrFifoRecord, group1Channel),
        offsetof(KFrFifoRecord, group2Enable),
        offsetof(KFrFifoRecord, group2FrameId),
        offsetof(KFrFifoRecord, group2Mask),
        offsetof(KFrFifoRecord, group2Channel),
        offsetof(KFrFifoRecord, group3Enable),
        offsetof(KFrFifoRecord, group3FrameId),
        offsetof(KFrFifoRecord, group3Mask),
        offsetof(KFrFifoRecord, group3Channel),
        sizeof(KFrKeySlotRecord),
        offsetof(KFrKeySlotRecord, entry) + sizeof(KFrKeySlotEntry) +
            offsetof(KFrKeySlotEntry, slot),
        offsetof(KFrKeySlotRecord, entry) + sizeof(KFrKeySlotEntry) +
            offsetof(KFrKeySlotEntry, channels),
        offsetof(KFrKeySlotRecord, entry) + sizeof(KFrKeySlotEntry) +
            offsetof(KFrKeySlotEntry, flags),
    };
    EXPECT_EQ(fromCxx, documented);
}

}  // namespace
