// Runs the C99 caller in c_interface.c against the emulator, and compares the record layouts C
// sees with the documented ones.
#include "export_fixture.h"
#include "record_layout.h"

extern "C" {
int kelo_c_flexray_session(const char* address, unsigned int* deviceVersion);
const std::size_t* kelo_c_record_layout(int* count);
}

using namespace kelo_export_test;

namespace {

class CInterface : public ExportTest {};

TEST_F(CInterface, FlexRaySessionFromC) {
    EmulatorHost host;
    host.emu.setSoftwareVersion(0x01020304u);
    unsigned int deviceVersion = 0;
    EXPECT_EQ(kelo_c_flexray_session(host.addr(), &deviceVersion), 0);
    EXPECT_EQ(deviceVersion, 0x01020304u);
    EXPECT_EQ(host.emu.count(kelo::kCmdClose), 1u);
}

// The caller records: FIFO 34 bytes with natural alignment, key slots two 4-byte entries. C and
// C++ agree with each other and with the documented offsets.
TEST(CRecordLayout, MatchesTheDocumentedOffsetsInCAndCxx) {
    const std::vector<std::size_t> documented = {34, 0,  2,  4,  6,  8,  10, 12, 14, 15, 16, 18, 20,
                                                 21, 22, 24, 26, 27, 28, 30, 32, 8,  4,  6,  7};
    int n = 0;
    const std::size_t* fromC = kelo_c_record_layout(&n);
    EXPECT_EQ(std::vector<std::size_t>(fromC, fromC + n), documented);
    EXPECT_EQ((std::vector<std::size_t>{KELO_RECORD_LAYOUT}), documented);
}

}  // namespace
