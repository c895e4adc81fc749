// What the flat-export tests add to the shared harness: the device-table snapshot every test is
// checked against, and the table of every export that takes a device index.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "exports/device_table.h"
#include "support/device_harness.h"

namespace kelo_export_test {

using namespace kelo_testing;

using TableSnapshot = std::array<std::pair<int, const void*>, kelo::kDeviceSlots>;

inline TableSnapshot snapshotTable() {
    TableSnapshot s;
    for (int i = 0; i < kelo::kDeviceSlots; ++i)
        s[i] = {kelo::DeviceSlotTable[i].inUse.load(), kelo::DeviceSlotTable[i].lib.load()};
    return s;
}

// The first entry in 1..126 that is not in use: where the next open goes.
inline int firstFreeIndex() {
    for (int i = 1; i < kelo::kDeviceSlots; ++i)
        if (kelo::DeviceSlotTable[i].inUse.load() == 0) return i;
    return 0;
}

// Every export test leaves the process-wide device table as it found it.
class ExportTest : public ::testing::Test {
  protected:
    void SetUp() override { before_ = snapshotTable(); }
    void TearDown() override {
        const TableSnapshot after = snapshotTable();
        for (int i = 0; i < kelo::kDeviceSlots; ++i)
            EXPECT_EQ(after[i], before_[i]) << "entry " << i << " (inUse, lib) changed";
    }

  private:
    TableSnapshot before_{};
};

// Indices a test opened itself: whatever it has not closed when it ends (an assertion failed) is
// closed with KFr_Close_Wrapper, so that the table is left as it was found.
class OpenedIndices {
  public:
    OpenedIndices() = default;
    ~OpenedIndices() {
        for (signed char idx : open_)
            KFr_Close_Wrapper(idx);
    }
    OpenedIndices(const OpenedIndices&) = delete;
    OpenedIndices& operator=(const OpenedIndices&) = delete;

    // Records a successful open; returns the index.
    signed char add(signed char idx) {
        if (idx > 0) open_.push_back(idx);
        return idx;
    }
    // Closes one with `close`; returns its status.
    unsigned char close(signed char idx, unsigned char (*close)(signed char) = &KFr_Close_Wrapper) {
        open_.erase(std::remove(open_.begin(), open_.end(), idx), open_.end());
        return close(idx);
    }

  private:
    std::vector<signed char> open_;
};

// A function declared with KELOCOMM_API in the public header.
struct HeaderFunction {
    std::string name;
    bool takesDeviceIndex = false;               // the first parameter is `signed char idx`
    bool cLinkage = false;                       // declared inside the header's extern "C" block
    std::vector<std::string> pointerParameters;  // the names of its pointer parameters
};
std::vector<HeaderFunction> headerDeclarations();

// Calls every export that takes a device index with `idx` and expects 6 from each, every buffer
// left as it was (KeLo_get_software_version_Wrapper still writes the library version). Exports
// named in `passing` are skipped: the caller checks them on its own.
void expectEveryExportRejects(signed char idx, const std::set<std::string>& passing = {});

}  // namespace kelo_export_test
