// Configure, transmit and receive by frame name against the device emulator over loopback. Each
// test binds its own 127.0.1.<n>.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "CommunicationLib.h"
#include "dbapi_test_support.h"
#include "device/command_codes.h"
#include "emulator.h"
#include "exports/device_table.h"

using namespace kelo_dbapi_test;

namespace {

namespace host {
constexpr int kSlotByName = 60;
constexpr int kNeverConfigured = 61;
constexpr int kRefusedSlot = 62;
constexpr int kMultiFrame = 63;
constexpr int kReceiveIndexZero = 64;
}  // namespace host

std::string address(int n) {
    return "127.0.1." + std::to_string(n);
}

// An emulator and a FlexRay device opened on it through KFr_Open_Wrapper, with the test database.
class ByNameDevice : public FibexDatabaseTest {
  protected:
    void open(int hostNumber) {
        emu_ = std::make_unique<kelo::emu::DeviceEmulator>(address(hostNumber));
        ASSERT_TRUE(emu_->start()) << address(hostNumber);
        const signed char idx = KFr_Open_Wrapper(address(hostNumber).c_str());
        ASSERT_GT(idx, 0);
        idx_ = static_cast<unsigned char>(idx);
        emu_->clearReceived();
    }
    void TearDown() override {
        if (idx_ != 0) {
            emu_->clearFaults();
            KFr_Close_Wrapper(static_cast<signed char>(idx_));
        }
        FibexDatabaseTest::TearDown();
    }
    std::uint8_t mapped(const std::string& frame) {
        std::lock_guard<std::mutex> lock(kelo::dbapi::FrameMapsLock);
        const auto it = kelo::dbapi::FrameBufferIndexMap.find(frame);
        return it == kelo::dbapi::FrameBufferIndexMap.end() ? 0xEE : it->second;
    }
    bool inMap(const std::string& frame) {
        std::lock_guard<std::mutex> lock(kelo::dbapi::FrameMapsLock);
        return kelo::dbapi::FrameBufferIndexMap.count(frame) != 0;
    }

    std::unique_ptr<kelo::emu::DeviceEmulator> emu_;
    unsigned char idx_ = 0;
};

TEST_F(ByNameDevice, SlotConfiguredByNameRemembersTheBufferTheDeviceAssigned) {
    open(host::kSlotByName);
    // Two buffers so that the second frame gets index 1, not 0.
    ASSERT_EQ(KFr_Fibex_Set_Slot_Parameter_Wrapper(idx_, 0, "EventFrame", 0, 1), 0);
    ASSERT_EQ(KFr_Fibex_Set_Slot_Parameter_Wrapper(idx_, 0, "Frame20", 0, 1), 0);
    EXPECT_EQ(mapped("EventFrame"), 0);
    EXPECT_EQ(mapped("Frame20"), 1);

    const auto buffers = emu_->slotBuffers();
    ASSERT_GE(buffers.size(), 2u);
    EXPECT_EQ(buffers[1].slot, 10);
    EXPECT_EQ(buffers[1].words, 24);
    EXPECT_EQ(buffers[0].slot, 20);
    EXPECT_EQ(buffers[0].baseCycle, 1);
    EXPECT_EQ(buffers[0].repetition, 4);
    EXPECT_FALSE(buffers[0].channelA);
    EXPECT_TRUE(buffers[0].channelB);

    // Transmit by name goes to the remembered buffer, with the length in 16-bit words.
    std::vector<unsigned char> data(48);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(i + 1);
    ASSERT_EQ(KFr_Fibex_Transmit_Wrapper(idx_, 0, "Frame20", data.data(), 48), 0);
    const auto sent = emu_->received(kelo::kCmdTransmit);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].payload[1], 1) << "buffer index";
    EXPECT_EQ(sent[0].payload[2], 24) << "words";
    EXPECT_EQ(emu_->slotBuffers()[1].data, data);

    // Unknown frames are refused before anything is sent.
    emu_->clearReceived();
    EXPECT_EQ(KFr_Fibex_Set_Slot_Parameter_Wrapper(idx_, 0, "NoSuchFrame", 0, 0), 17);
    EXPECT_TRUE(emu_->received().empty());
    EXPECT_FALSE(inMap("NoSuchFrame"));
}

TEST_F(ByNameDevice, NeverConfiguredFrameIsSentWithBufferZeroAndEntered) {
    open(host::kNeverConfigured);
    ASSERT_FALSE(inMap("EmptyFrame"));
    unsigned char data[6] = {1, 2, 3, 4, 5, 6};
    ASSERT_EQ(KFr_Fibex_Transmit_Wrapper(idx_, 0, "EmptyFrame", data, 6), 0);
    const auto sent = emu_->received(kelo::kCmdTransmit);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].payload[1], 0);
    EXPECT_EQ(sent[0].payload[2], 3);
    EXPECT_TRUE(inMap("EmptyFrame"));
    EXPECT_EQ(mapped("EmptyFrame"), 0);
    // Any name at all, even one the database does not know.
    ASSERT_EQ(KFr_Fibex_Transmit_Wrapper(idx_, 0, "NotInTheDatabase", data, 6), 0);
    EXPECT_TRUE(inMap("NotInTheDatabase"));
    // A bad index is the device export's 6.
    EXPECT_EQ(KFr_Fibex_Transmit_Wrapper(127, 0, "EmptyFrame", data, 6), 6);
    // A new open empties the map.
    ASSERT_EQ(KFr_Fibex_Open(queriesFile().c_str()), 0);
    EXPECT_FALSE(inMap("EmptyFrame"));
}

TEST_F(ByNameDevice, RefusedSlotConfigurationLeavesTheMapUnchanged) {
    open(host::kRefusedSlot);
    ASSERT_EQ(KFr_Fibex_Set_Slot_Parameter_Wrapper(idx_, 0, "Frame20", 0, 1), 0);
    const std::uint8_t before = mapped("Frame20");
    emu_->refuse(kelo::kCmdSetSlotParameter, 1, 1);
    EXPECT_EQ(KFr_Fibex_Set_Slot_Parameter_Wrapper(idx_, 0, "Frame20", 0, 1), 1);
    EXPECT_EQ(mapped("Frame20"), before);
    emu_->refuse(kelo::kCmdSetSlotParameter, 1, 1);
    EXPECT_EQ(KFr_Fibex_Set_Slot_Parameter_Wrapper(idx_, 0, "EventFrame", 0, 1), 1);
    EXPECT_FALSE(inMap("EventFrame"));
}

TEST_F(ByNameDevice, MultiFrameStagingUsesTheMappedBufferAndIgnoresItsSecondArgument) {
    open(host::kMultiFrame);
    ASSERT_EQ(KFr_Fibex_Set_Slot_Parameter_Wrapper(idx_, 0, "EventFrame", 0, 1), 0);
    ASSERT_EQ(KFr_Fibex_Set_Slot_Parameter_Wrapper(idx_, 0, "Frame20", 0, 1), 0);
    unsigned char data[8] = {9, 8, 7, 6, 5, 4, 3, 2};
    // Entry 0, the length in bytes (not halved); the second argument (77) is not used.
    ASSERT_EQ(KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(idx_, 77, "Frame20", 0, data, 8),
              0);
    unsigned char result = 0;
    ASSERT_EQ(KFr_Transmit_MultiFrame_Wrapper(static_cast<signed char>(idx_), 0, 1, &result, 1), 0);
    const auto sent = emu_->received(kelo::kCmdMultiTransmit);
    ASSERT_EQ(sent.size(), 1u);
    ASSERT_GE(sent[0].payload.size(), 24u + 40u + 8u);
    EXPECT_EQ(sent[0].payload[24 + 22], 1) << "buffer index of Frame20";
    EXPECT_EQ(sent[0].payload[24 + 33], 4) << "words";
    EXPECT_EQ(
        KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(idx_, 0, "Frame20", 128, data, 8), 5);
}

// The receive export's own index check lets only index 0 through; the test puts an opened
// device object into entry 0 itself (no open ever does that short of a full table).
class ReceiveByName : public FibexDatabaseTest {
  protected:
    void SetUp() override {
        FibexDatabaseTest::SetUp();
        emu_ = std::make_unique<kelo::emu::DeviceEmulator>(address(host::kReceiveIndexZero));
        ASSERT_TRUE(emu_->start());
        ASSERT_EQ(kelo::DeviceSlotTable[0].lib.load(), nullptr);
        lib_ = GetKeLoComm();
        ASSERT_EQ(lib_->Fr_Open(address(host::kReceiveIndexZero).c_str()), 0);
        kelo::DeviceSlotTable[0].lib.store(lib_);
    }
    void TearDown() override {
        kelo::DeviceSlotTable[0].lib.store(nullptr);
        if (lib_) {
            lib_->Fr_Close();
            delete lib_;
        }
        FibexDatabaseTest::TearDown();
    }
    // Starts the node with Frame20's slot configured and filled, uploads on.
    void startTraffic(const std::vector<unsigned char>& data) {
        ASSERT_EQ(KFr_Fibex_Set_Slot_Parameter_Wrapper(0, 0, "Frame20", 0, 1), 6)
            << "device exports with an index keep their own check";
        unsigned char block[12] = {};
        ASSERT_EQ(KFr_Fibex_GetSlotParameter("Frame20", 0, 1, block), 0);
        // The device's slot record: node, the 12-byte block, one spare byte.
        std::vector<unsigned char> record(14);
        std::memcpy(record.data() + 1, block, 12);
        ASSERT_EQ(lib_->Fr_Set_Slot_Parameter(record.data()), 0);
        ASSERT_EQ(lib_->Fr_Transmit(0, record[1], const_cast<unsigned char*>(data.data()),
                                    static_cast<unsigned char>(data.size() / 2)),
                  0);
        ASSERT_EQ(lib_->Fr_Configure_Node(0), 0);
        ASSERT_EQ(lib_->Fr_Start_Node(0), 0);
        ASSERT_EQ(lib_->Fr_StartFrRxUpload(0), 0);
    }

    std::unique_ptr<kelo::emu::DeviceEmulator> emu_;
    CommunicationLib* lib_ = nullptr;
};

TEST_F(ReceiveByName, ReceivesNamesAndDecodesAFrameFromIndexZero) {
    std::vector<unsigned char> data(48, 0);
    ASSERT_EQ(KFr_Fibex_encodeSignal("Sig03_Temp", 42.5f, data.data(), 48), 0);
    ASSERT_EQ(KFr_Fibex_encodeSignal("Sig06_Torque", -300.0f, data.data(), 48), 0);
    startTraffic(data);

    unsigned char header[28];
    std::vector<unsigned char> payload(510, 0);
    char name[64] = "";
    ASSERT_EQ(KFr_Fibex_Receive_Wrapper(0, header, payload.data(), name, 3000), 0);
    EXPECT_STREQ(name, "Frame20");
    EXPECT_EQ(header[16], 10);
    EXPECT_EQ(header[20], 24);
    float value = 0;
    ASSERT_EQ(KFr_Fibex_decodeSignal(header, payload.data(), "Sig03_Temp", &value), 0);
    EXPECT_FLOAT_EQ(value, 42.5f);
    ASSERT_EQ(KFr_Fibex_decodeSignal(header, payload.data(), "Sig06_Torque", &value), 0);
    EXPECT_FLOAT_EQ(value, -300.0f);

    // Without a database the device's frame is still copied out, and the answer is 9.
    ASSERT_EQ(KFr_Fibex_Close(), 0);
    std::memset(header, 0, sizeof header);
    std::fill(payload.begin(), payload.end(), 0);
    std::strcpy(name, "untouched");
    ASSERT_EQ(KFr_Fibex_Receive_Wrapper(0, header, payload.data(), name, 3000), 9);
    EXPECT_EQ(header[16], 10);
    EXPECT_EQ(std::vector<unsigned char>(payload.begin(), payload.begin() + 48), data);
    EXPECT_STREQ(name, "untouched");
}

TEST_F(ReceiveByName, OnlyIndexZeroPassesAndTimeOutsPassThrough) {
    unsigned char header[28];
    std::vector<unsigned char> payload(510);
    char name[64];
    // Nothing uploaded: the device receive's own time-out code.
    EXPECT_EQ(KFr_Fibex_Receive_Wrapper(0, header, payload.data(), name, 20), 2);
    // An index opened the ordinary way is refused by this export.
    const signed char idx = KFr_Open_Wrapper(address(host::kReceiveIndexZero).c_str());
    ASSERT_GT(idx, 0);
    EXPECT_EQ(KFr_Fibex_Receive_Wrapper(idx, header, payload.data(), name, 20), 6);
    EXPECT_EQ(KFr_Receive_Wrapper(idx, header, payload.data(), 20), 2) << "while the other works";
    EXPECT_EQ(KFr_Close_Wrapper(idx), 0);
    for (signed char bad : {-1, 1, 126, 127})
        EXPECT_EQ(KFr_Fibex_Receive_Wrapper(bad, header, payload.data(), name, 20), 6);
}

}  // namespace
