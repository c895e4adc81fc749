// The index check every export shares: an index outside 1..126, or an entry without a device,
// gives 6 at once, touches no buffer and sends nothing.
#include <algorithm>

#include "export_fixture.h"

using namespace kelo_export_test;

namespace {

class IndexCheck : public ExportTest {};

TEST_F(IndexCheck, TableHoldsEveryExportThatTakesAnIndex) {
    const std::vector<HeaderFunction> header = headerDeclarations();
    ASSERT_GE(header.size(), 40u) << "the header's declarations were not found";

    std::set<std::string> withIndex;
    for (const HeaderFunction& f : header)
        if (f.takesDeviceIndex) withIndex.insert(f.name);
    // The opens take an address instead.
    EXPECT_EQ(withIndex.count("KFr_Open_Wrapper"), 0u);
    EXPECT_EQ(withIndex.count("KCAN_Open_Wrapper"), 0u);

    std::set<std::string> covered;
    for (const std::string& name : indexedExportNames()) {
        EXPECT_TRUE(covered.insert(name).second) << name << " appears twice";
        EXPECT_EQ(withIndex.count(name), 1u) << name << " is not declared with a device index";
    }
    for (const std::string& name : withIndex)
        EXPECT_EQ(covered.count(name), 1u) << name << " is missing from the index-check table";
}

// A live device sits in the table while the bad indices are tried: none of them may reach it.
TEST_F(IndexCheck, BadIndicesAreRejectedWithoutTouchingBuffersOrSending) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open());
    ASSERT_NE(dev.idx(), 126);
    ASSERT_EQ(kelo::DeviceSlotTable[126].lib.load(), nullptr) << "entry 126 must be empty";

    for (signed char idx : {0, -1, -128, 127, 126})
        expectEveryExportRejects(idx);

    EXPECT_TRUE(commandsSent(dev.emu).empty())
        << "frames reached the device, the first with command "
        << int(commandsSent(dev.emu).front().command);

    // The open device was left alone.
    unsigned int libraryVersion = 0, deviceVersion = 0;
    EXPECT_EQ(KeLo_get_software_version_Wrapper(dev.idx(), &libraryVersion, &deviceVersion), 0);
    EXPECT_EQ(deviceVersion, 0x01000203u);
    EXPECT_EQ(KFr_framesAvailable_Wrapper(dev.idx()), 0);
    EXPECT_EQ(dev.close(), 0);
}

// After KFr_Close_Wrapper the entry no longer refers to the deleted device: every export on the
// index answers 6 (KCAN_Close_Wrapper too, instead of deleting a second time) and nothing is
// sent, until the next open takes the entry again.
TEST_F(IndexCheck, IndexClosedWithFrCloseIsRejectedByEveryExport) {
    ExportDevice dev;
    ASSERT_TRUE(dev.open());
    const signed char idx = dev.idx();
    EXPECT_EQ(dev.close(), 0);
    ASSERT_EQ(dev.emu.count(kelo::kCmdClose), 1u);
    EXPECT_EQ(kelo::DeviceSlotTable[idx].inUse.load(), 0);
    EXPECT_EQ(kelo::DeviceSlotTable[idx].lib.load(), nullptr);
    dev.emu.clearReceived();

    expectEveryExportRejects(idx);

    EXPECT_TRUE(commandsSent(dev.emu).empty());
}

}  // namespace
