// Configure, transmit and receive by frame name, both formats, against device emulators over
// loopback UDP: a device opened through KFr_Open_Wrapper, and one at entry 0 for the
// receive-by-name exports (ByNameDevices). Bad indices and time-outs are bad-input rows.
#include <cstring>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "dbapi_test_support.h"

using namespace kelo_dbapi_test;

namespace {

// A format's database and two of its frames: configured in this order they get buffers 0 and 1.
using Signals = std::vector<std::pair<const char*, float>>;
struct Side {
    const Format* f;
    std::string file;
    const char *first, *second, *never;  // never: a frame no test configures
    std::uint16_t secondSlot;
    Signals signals;       // of the second frame
    unsigned char length;  // bytes sent for the second frame
    // The first frame's buffer on the device: slot, base cycle, repetition, channels A and B.
    std::tuple<int, int, int, bool, bool> firstBuffer;
};
const Side kSides[] = {
    Side{&kFibex, kQueries, "EventFrame", "Frame20", "EmptyFrame", 10,
         Signals{{"Sig03_Temp", 42.5f}, {"Sig06_Torque", -300.0f}}, 48,
         std::tuple{20, 1, 4, false, true}},
    Side{&kAutosar, kAutosarExample, "Wheel_Speeds_Frame", "Engine_Status_Frame", "Diag_Frame", 1,
         Signals{{"EngineSpeed", 2400.0f}, {"EngineSpeed_UB", 1.0f}}, 8,
         std::tuple{3, 0, 1, true, false}}};

class ByName : public DatabaseTest, public ::testing::WithParamInterface<const Side*> {
  protected:
    void SetUp() override {
        const Side& s = *GetParam();
        ASSERT_EQ(s.f->open(s.file.c_str()), 0);
        ASSERT_TRUE(devices_.ready) << "two emulators, the opened device and entry 0 free";
        idx_ = static_cast<unsigned char>(devices_.opened.idx());
        std::lock_guard<std::mutex> lock(kelo::dbapi::FrameMapsLock);
        s.f->bufferMap->clear();  // the AUTOSAR one keeps what earlier tests entered
    }
    // The second frame's data, encoded from the side's signals.
    std::vector<unsigned char> encoded() {
        const Side& s = *GetParam();
        std::vector<unsigned char> data(s.length, 0);
        for (const auto& [name, value] : s.signals)
            EXPECT_EQ(s.f->encode(name, value, data.data(), s.length), 0) << name;
        return data;
    }
    // Configures both frames on the device of idx_.
    void configureBoth() {
        const Side& s = *GetParam();
        EXPECT_EQ(s.f->setSlot(idx_, 0, s.first, 0, 1), 0);
        EXPECT_EQ(s.f->setSlot(idx_, 0, s.second, 0, 1), 0);
        emu_.clearReceived();
    }

    ByNameDevices devices_;
    kelo::emu::DeviceEmulator& emu_ = devices_.opened.emu;
    KeLoCommLib* zero_ = devices_.zero.dev.get();
    unsigned char idx_ = 0;
};

TEST_P(ByName, TransmitByNameUsesTheBufferTheDeviceAssignedOrZero) {
    const Side& s = *GetParam();
    configureBoth();
    std::vector<unsigned char> data = encoded();
    EXPECT_EQ(mappedBuffer(*s.f, s.first), 0);
    EXPECT_EQ(mappedBuffer(*s.f, s.second), 1);
    const auto buffers = emu_.slotBuffers();
    ASSERT_GE(buffers.size(), 2u);
    EXPECT_EQ(buffers[1].slot, s.secondSlot);
    const auto& b = buffers[0];
    EXPECT_EQ(
        std::make_tuple(int(b.slot), int(b.baseCycle), int(b.repetition), b.channelA, b.channelB),
        s.firstBuffer);

    // Transmit by name goes to the remembered buffer, with the length in 16-bit words.
    ASSERT_EQ(s.f->transmit(idx_, 0, s.second, data.data(), s.length), 0);
    const auto sent = emu_.received(kelo::kCmdTransmit);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].payload[1], 1) << "buffer index";
    EXPECT_EQ(sent[0].payload[2], s.length / 2) << "words";
    const auto held = emu_.slotBuffers()[1].data;
    EXPECT_EQ(std::vector<unsigned char>(held.begin(), held.begin() + s.length), data);

    // A name never configured (any name, even one the database does not know) is sent with buffer
    // 0 and entered. A successful open of either format empties the FIBEX map, never the AUTOSAR
    // one.
    emu_.clearReceived();
    for (const char* name : {s.never, "NotInTheDatabase"}) {
        ASSERT_EQ(mappedBuffer(*s.f, name), -1);
        ASSERT_EQ(s.f->transmit(idx_, 0, name, data.data(), 6), 0);
        EXPECT_EQ(mappedBuffer(*s.f, name), 0);
    }
    const auto never = emu_.received(kelo::kCmdTransmit);
    ASSERT_EQ(never.size(), 2u);
    EXPECT_EQ(never[0].payload[1], 0);
    EXPECT_EQ(never[0].payload[2], 3);
    ASSERT_EQ(KFr_AutoSar_Open(kAutosarExample.c_str()), 0);
    ASSERT_EQ(KFr_Fibex_Open(kQueries.c_str()), 0);
    ASSERT_EQ(KFr_Fibex_Close(), 0);
    EXPECT_EQ(mappedBuffer(*s.f, s.second), s.f == &kFibex ? -1 : 1);
    EXPECT_EQ(mappedBuffer(*s.f, s.never), s.f == &kFibex ? -1 : 0);
}

TEST_P(ByName, RefusedSlotConfigurationLeavesTheMapUnchanged) {
    const Side& s = *GetParam();
    ASSERT_EQ(s.f->setSlot(idx_, 0, s.second, 0, 1), 0);
    const int before = mappedBuffer(*s.f, s.second);
    emu_.refuse(kelo::kCmdSetSlotParameter, 1, 1);
    EXPECT_EQ(s.f->setSlot(idx_, 0, s.second, 0, 1), 1);
    EXPECT_EQ(mappedBuffer(*s.f, s.second), before);
    emu_.refuse(kelo::kCmdSetSlotParameter, 1, 1);
    EXPECT_EQ(s.f->setSlot(idx_, 0, s.first, 0, 1), 1);
    EXPECT_EQ(mappedBuffer(*s.f, s.first), -1);
}

TEST_P(ByName, FibexMultiFrameStagingUsesTheMappedBufferAndIgnoresItsSecondArgument) {
    if (GetParam()->f != &kFibex) GTEST_SKIP() << "a FIBEX export";
    configureBoth();
    unsigned char data[8] = {9, 8, 7, 6, 5, 4, 3, 2};
    // Entry 0, the length in bytes (not halved); the second argument (77) is not used.
    ASSERT_EQ(KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(idx_, 77, "Frame20", 0, data, 8),
              0);
    unsigned char result = 0;
    ASSERT_EQ(KFr_Transmit_MultiFrame_Wrapper(static_cast<signed char>(idx_), 0, 1, &result, 1), 0);
    const auto sent = emu_.received(kelo::kCmdMultiTransmit);
    ASSERT_EQ(sent.size(), 1u);
    ASSERT_GE(sent[0].payload.size(), 24u + 40u + 8u);
    EXPECT_EQ(sent[0].payload[24 + 22], 1) << "buffer index of Frame20";
    EXPECT_EQ(sent[0].payload[24 + 33], 4) << "words";
    EXPECT_EQ(
        KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(idx_, 0, "Frame20", 128, data, 8), 5);
}

// The node sends the second frame back; the receive at index 0 names and decodes it (without a
// database: a bad-input row).
TEST_P(ByName, ReceivesNamesAndDecodesAFrameAtIndexZero) {
    const Side& s = *GetParam();
    const std::vector<unsigned char> data = encoded();
    unsigned char block[12] = {};
    ASSERT_EQ(s.f->slotParameter(s.second, 0, 1, block), 0);
    std::vector<unsigned char> record(14);  // node, the 12-byte block, one spare byte
    std::memcpy(record.data() + 1, block, 12);
    ASSERT_EQ(zero_->Fr_Set_Slot_Parameter(record.data()), 0);
    ASSERT_EQ(zero_->Fr_Transmit(0, record[1], const_cast<unsigned char*>(data.data()),
                                 static_cast<unsigned char>(s.length / 2)),
              0);
    ASSERT_EQ(zero_->Fr_Configure_Node(0), 0);
    ASSERT_EQ(zero_->Fr_Start_Node(0), 0);
    ASSERT_EQ(zero_->Fr_StartFrRxUpload(0), 0);

    unsigned char header[28];
    std::vector<unsigned char> payload(510, 0);
    char name[64] = "";
    // Other configured buffers may come round first; take frames until this one arrives.
    for (int i = 0; i < 64 && std::strcmp(name, s.second) != 0; ++i)
        ASSERT_EQ(s.f->receive(0, header, payload.data(), name, 3000), 0);
    ASSERT_STREQ(name, s.second);
    EXPECT_EQ(header[16], s.secondSlot);
    EXPECT_EQ(header[20], block[5]) << "the slot's length in words";
    for (const auto& [signal, value] : s.signals) {
        float decoded = 0;
        ASSERT_EQ(s.f->decode(header, payload.data(), signal, &decoded), 0) << signal;
        EXPECT_FLOAT_EQ(decoded, value) << signal;
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, ByName, ::testing::Values(&kSides[0], &kSides[1]),
                         [](const ::testing::TestParamInfo<const Side*>& info) {
                             return std::string(info.param->f->name);
                         });

}  // namespace
