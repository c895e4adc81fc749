// The signal, PDU and frame steps: records field by field, placement of signals by their PDU,
// update-bit signals, byte orders, and the faults that drop an element or an instance.
#include <gtest/gtest.h>

#include <string>

#include "fibex/fibex_test_support.h"

namespace {

using namespace kelo_test;
using kelo::fibex::Signal;

void expectReservedUntouched(const Signal& s) {
    for (auto w : s.reservedWords)
        EXPECT_EQ(w, 0u);
    EXPECT_EQ(s.reserved16, 0);
    EXPECT_EQ(s.reserved32, 0u);
    EXPECT_EQ(s.reserved64, 0u);
    EXPECT_EQ(s.reservedText[0], "");
    EXPECT_EQ(s.reservedText[1], "");
    EXPECT_EQ(s.reservedWords2[0], 0u);
    EXPECT_EQ(s.reservedWords2[1], 0u);
}

// ---- signals -------------------------------------------------------------------------------

TEST_F(FibexTest, SignalsFieldByField) {
    loadOk("small-flexray-cluster.xml");
    struct Case {
        const char* id;
        const char* shortName;
        const char* desc;
        double defaultValue;
        const char* pduId;
        int bitPosition;
        bool highLow;
    };
    const Case cases[] = {
        {"SIG_SPEED", "VehicleSpeed", "speed over ground", static_cast<double>(0.1f), "PDU_DYN", 3,
         true},
        {"SIG_GEAR", "GearPosition", "", 3.0, "PDU_DYN", 20, false},
        {"SIG_RPM", "EngineSpeed", "", 800.0, "PDU_ENG", 8, true},
        {"SIG_TEMP", "CoolantTemp", "", -40.0, "PDU_ENG", 30, false},
        {"SIG_SPEED_UB", "VehicleSpeed_UB", "", 0.0, "", 39, false},
        {"SIG_TEMP_UB", "CoolantTemp_UB", "", 0.0, "", 47, false},
    };
    EXPECT_EQ(db.signals.size(), sizeof cases / sizeof cases[0]);
    EXPECT_EQ(db.signalsByName.size(), sizeof cases / sizeof cases[0]);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.id);
        const Signal& s = entry(db.signals, c.id);
        EXPECT_EQ(s.shortName, c.shortName);
        EXPECT_EQ(s.desc, c.desc);
        EXPECT_EQ(s.defaultValue, c.defaultValue);
        EXPECT_EQ(s.pduId, c.pduId);
        EXPECT_EQ(s.bitPosition, c.bitPosition);
        EXPECT_EQ(s.isHighLowByteOrder, c.highLow);
        expectReservedUntouched(s);
        EXPECT_EQ(entry(db.signalsByName, c.shortName), &s);
    }
    // A default written as 0.1 is kept in single precision.
    EXPECT_NE(entry(db.signals, "SIG_SPEED").defaultValue, 0.1);
}

TEST_F(FibexTest, SignalFaultsAndNames) {
    loadOk("signal-errors.xml");
    // Without SHORT-NAME or CODING-REF the signal is dropped.
    EXPECT_EQ(keys(db.signals), (Keys{"SIG_BAD_DEFAULT", "SIG_FIRST", "SIG_PADDED", "SIG_SECOND"}));
    EXPECT_EQ(keys(db.signalsByName), (Keys{"BadDefault", "Padded", "Twin"}));
    // The same SHORT-NAME twice: both records stay, the name links the last one read.
    EXPECT_EQ(entry(db.signalsByName, "Twin"), addressOf(db.signals, "SIG_SECOND"));
    EXPECT_EQ(entry(db.signals, "SIG_FIRST").desc, "first of two with the same name");
    EXPECT_EQ(entry(db.signals, "SIG_FIRST").defaultValue, static_cast<double>(0.1f));
    EXPECT_EQ(entry(db.signals, "SIG_SECOND").defaultValue, 0.0);
    // Texts are trimmed of spaces; the number reader ignores them.
    const auto& padded = entry(db.signals, "SIG_PADDED");
    EXPECT_EQ(padded.shortName, "Padded");
    EXPECT_EQ(padded.desc, "spaces around");
    EXPECT_EQ(padded.defaultValue, -2.75);
    EXPECT_EQ(entry(db.signals, "SIG_BAD_DEFAULT").defaultValue, 0.0);
    // Valid coding references add no coding.
    EXPECT_EQ(keys(db.codings), Keys{"COD_U8"});
}

// ---- PDUs ----------------------------------------------------------------------------------

TEST_F(FibexTest, PdusAndSignalInstancesFieldByField) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(keys(db.pdus), (Keys{"PDU_DYN", "PDU_ENG"}));
    const auto& dyn = entry(db.pdus, "PDU_DYN");
    EXPECT_EQ(dyn.shortName, "DynamicsPdu");
    EXPECT_EQ(dyn.desc, "vehicle dynamics");
    EXPECT_EQ(dyn.byteLength, 8);
    EXPECT_EQ(dyn.pduType, "APPLICATION");
    EXPECT_EQ(dyn.pduTypeCode, 1);
    EXPECT_EQ(dyn.signalInstanceCount, 2u);
    EXPECT_EQ(dyn.reservedText, "");
    ASSERT_EQ(dyn.signalInstances.size(), 2u);
    const auto& speed = dyn.signalInstances[0];
    EXPECT_EQ(speed.desc, "speed placement");
    EXPECT_EQ(speed.bitPosition, 3);
    EXPECT_EQ(speed.updateBitPosition, 39);
    EXPECT_TRUE(speed.isHighLowByteOrder);
    EXPECT_EQ(speed.signal, addressOf(db.signals, "SIG_SPEED"));
    EXPECT_EQ(speed.updateBitSignal, addressOf(db.signals, "SIG_SPEED_UB"));
    ASSERT_NE(speed.updateBitSignal, nullptr);
    const auto& gear = dyn.signalInstances[1];
    EXPECT_EQ(gear.desc, "");
    EXPECT_EQ(gear.bitPosition, 20);
    EXPECT_EQ(gear.updateBitPosition, 65535);
    EXPECT_FALSE(gear.isHighLowByteOrder);
    EXPECT_EQ(gear.signal, addressOf(db.signals, "SIG_GEAR"));
    EXPECT_EQ(gear.updateBitSignal, nullptr);

    const auto& eng = entry(db.pdus, "PDU_ENG");
    EXPECT_EQ(eng.shortName, "EnginePdu");
    EXPECT_EQ(eng.byteLength, 6);
    EXPECT_EQ(eng.pduType, "SERVICE");
    EXPECT_EQ(eng.pduTypeCode, 7);
    ASSERT_EQ(eng.signalInstances.size(), 2u);
    EXPECT_EQ(eng.signalInstances[1].updateBitSignal, addressOf(db.signals, "SIG_TEMP_UB"));

    EXPECT_EQ(keys(db.signalInstances), (Keys{"SI_GEAR", "SI_RPM", "SI_SPEED", "SI_TEMP"}));
    const auto& temp = entry(db.signalInstances, "SI_TEMP");
    EXPECT_EQ(temp.bitPosition, 30);
    EXPECT_EQ(temp.updateBitPosition, 47);
    EXPECT_FALSE(temp.isHighLowByteOrder);
    EXPECT_EQ(temp.signal, addressOf(db.signals, "SIG_TEMP"));
    const auto& rpm = entry(db.signalInstances, "SI_RPM");
    EXPECT_EQ(rpm.bitPosition, 8);
    EXPECT_EQ(rpm.updateBitPosition, 65535);
    EXPECT_TRUE(rpm.isHighLowByteOrder);
}

TEST_F(FibexTest, UpdateBitSignals) {
    loadOk("update-bits.xml");
    EXPECT_EQ(keys(db.signals), (Keys{"SIG_DOOR", "SIG_DOOR_UB", "SIG_HORN", "SIG_HORN_UB",
                                      "SIG_LAMP", "SIG_WIPER"}));
    EXPECT_EQ(keys(db.signalsByName), (Keys{"DoorOpen", "DoorOpen_UB", "HornActive",
                                            "HornActive_UB", "LampOn", "WiperSpeed"}));

    const auto& door = entry(db.signals, "SIG_DOOR");
    EXPECT_EQ(door.bitPosition, 7);
    EXPECT_TRUE(door.isHighLowByteOrder);
    EXPECT_EQ(door.pduId, "PDU_BODY");
    EXPECT_EQ(door.defaultValue, 1.0);

    // Found by name and by ID; only the bit position is taken from the instance.
    const auto& ub = entry(db.signals, "SIG_DOOR_UB");
    EXPECT_EQ(ub.shortName, "DoorOpen_UB");
    EXPECT_EQ(ub.bitPosition, 39);
    EXPECT_FALSE(ub.isHighLowByteOrder);
    EXPECT_EQ(ub.pduId, "");
    EXPECT_EQ(ub.defaultValue, 0.0);
    EXPECT_EQ(ub.desc, "");
    expectReservedUntouched(ub);
    EXPECT_EQ(entry(db.signalsByName, "DoorOpen_UB"), &ub);

    // A description with CDATA and markup inside reads as its whole text.
    EXPECT_EQ(entry(db.signals, "SIG_LAMP").desc, "lamp <on> state of the cabin");

    // Update bit 0 is an update bit; 65535 means none.
    EXPECT_EQ(entry(db.signals, "SIG_HORN_UB").bitPosition, 0);
    EXPECT_EQ(entry(db.signals, "SIG_HORN_UB").shortName, "HornActive_UB");

    const auto& pdu = entry(db.pdus, "PDU_BODY");
    ASSERT_EQ(pdu.signalInstances.size(), 4u);
    EXPECT_EQ(pdu.signalInstances[0].desc, "door with update bit");
    EXPECT_EQ(pdu.signalInstances[0].updateBitSignal, &ub);
    EXPECT_EQ(pdu.signalInstances[1].updateBitSignal, nullptr);
    EXPECT_EQ(pdu.signalInstances[2].updateBitSignal, addressOf(db.signals, "SIG_HORN_UB"));
    EXPECT_EQ(pdu.signalInstances[3].updateBitPosition, 65535);
    EXPECT_EQ(pdu.signalInstances[3].updateBitSignal, nullptr);
    // Only the instance in the PDU's list links the update-bit signal.
    EXPECT_EQ(entry(db.signalInstances, "SI_DOOR").updateBitPosition, 39);
    EXPECT_EQ(entry(db.signalInstances, "SI_DOOR").updateBitSignal, nullptr);
}

TEST_F(FibexTest, SignalInTwoPdusKeepsTheLastPlacement) {
    loadOk("signal-in-two-pdus.xml");
    const auto& s = entry(db.signals, "SIG_SHARED");
    EXPECT_EQ(s.pduId, "PDU_SECOND");
    EXPECT_EQ(s.bitPosition, 40);
    EXPECT_TRUE(s.isHighLowByteOrder);
    // Both instances stay as they were written and refer to the one record.
    const auto& first = entry(db.signalInstances, "SI_SHARED_FIRST");
    EXPECT_EQ(first.bitPosition, 4);
    EXPECT_FALSE(first.isHighLowByteOrder);
    EXPECT_EQ(first.signal, &s);
    EXPECT_EQ(entry(db.signalInstances, "SI_SHARED_SECOND").signal, &s);
    EXPECT_EQ(entry(db.pdus, "PDU_FIRST").signalInstances.at(0).bitPosition, 4);
}

TEST_F(FibexTest, ByteOrders) {
    loadOk("byte-orders.xml");
    struct Case {
        const char* signal;
        const char* instance;
        int bit;
        bool highLow;
    };
    const Case cases[] = {
        {"SIG_LOWER", "SI_LOWER", 1, true}, {"SIG_UPPER", "SI_UPPER", 2, true},
        {"SIG_MIXED", "SI_MIXED", 3, true}, {"SIG_FALSE", "SI_FALSE", 4, false},
        {"SIG_ONE", "SI_ONE", 5, false},    {"SIG_ABSENT", "SI_ABSENT", 6, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.signal);
        EXPECT_EQ(entry(db.signals, c.signal).isHighLowByteOrder, c.highLow);
        EXPECT_EQ(entry(db.signals, c.signal).bitPosition, c.bit);
        EXPECT_EQ(entry(db.signalInstances, c.instance).isHighLowByteOrder, c.highLow);
    }
    EXPECT_TRUE(entry(db.pduInstances, "PI_MOTOROLA").isHighLowByteOrder);
    EXPECT_FALSE(entry(db.pduInstances, "PI_DEFAULT").isHighLowByteOrder);
}

TEST_F(FibexTest, PduFaults) {
    loadOk("pdu-errors.xml");
    // Without SHORT-NAME or BYTE-LENGTH the PDU is dropped before its instances are read.
    EXPECT_EQ(keys(db.pdus), Keys{"PDU_GOOD"});
    EXPECT_EQ(keys(db.signalInstances), (Keys{"SI_NO_BIT", "SI_NO_ORDER"}));
    EXPECT_EQ(entry(db.signals, "SIG_A").pduId, "");
    EXPECT_EQ(entry(db.signals, "SIG_A").bitPosition, 0);
    EXPECT_EQ(entry(db.signals, "SIG_B").pduId, "");

    const auto& pdu = entry(db.pdus, "PDU_GOOD");
    EXPECT_EQ(pdu.desc, "instances with missing items");
    EXPECT_EQ(pdu.byteLength, 0);  // 70000 does not fit 16 bits
    EXPECT_EQ(pdu.pduType, "");
    EXPECT_EQ(pdu.pduTypeCode, 0);
    EXPECT_EQ(pdu.signalInstanceCount, 2u);
    // A missing bit position reads 0, a missing byte order false; both instances stay.
    const auto& c = entry(db.signals, "SIG_C");
    EXPECT_EQ(c.pduId, "PDU_GOOD");
    EXPECT_EQ(c.bitPosition, 0);
    EXPECT_TRUE(c.isHighLowByteOrder);
    const auto& d = entry(db.signals, "SIG_D");
    EXPECT_EQ(d.pduId, "PDU_GOOD");
    EXPECT_EQ(d.bitPosition, 17);
    EXPECT_FALSE(d.isHighLowByteOrder);
}

TEST_F(FibexTest, PduAndFrameTypeCodes) {
    loadOk("pdu-and-frame-types.xml");
    struct Case {
        const char* id;
        const char* text;
        int code;
    };
    const Case cases[] = {
        {"APPLICATION", "APPLICATION", 1},
        {"BAP", "BAP", 2},
        {"DIAG_REQUEST", "DIAG-REQUEST", 3},
        {"DIAG_RESPONSE", "DIAG-RESPONSE", 4},
        {"DIAG_STATE", "DIAG-STATE", 5},
        {"NM", "NM", 6},
        {"SERVICE", "SERVICE", 7},
        {"TPL", "TPL", 8},
        {"XCP_PRE_CONFIGURED", "XCP_PRE_CONFIGURED", 9},
        {"XCP_RUNTIME_CONFIGURED", "XCP_RUNTIME_CONFIGURED", 10},
        {"LOWER_NM", "nm", 0},
        {"MIXED_APPLICATION", "Application", 0},
        {"SPACE_NM", "NM", 6},  // the text is trimmed before the lookup
        {"OTHER", "OTHER", 0},
        {"ABSENT", "", 0},
    };
    EXPECT_EQ(db.pdus.size(), sizeof cases / sizeof cases[0]);
    EXPECT_EQ(db.frames.size(), sizeof cases / sizeof cases[0]);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.id);
        const auto& pdu = entry(db.pdus, std::string("PDU_") + c.id);
        EXPECT_EQ(pdu.pduType, c.text);
        EXPECT_EQ(pdu.pduTypeCode, c.code);
        const auto& frame = entry(db.frames, std::string("FR_") + c.id);
        EXPECT_EQ(frame.frameType, c.text);
        EXPECT_EQ(frame.frameTypeCode, c.code);
    }
}

// ---- frames --------------------------------------------------------------------------------

TEST_F(FibexTest, FramesFieldByField) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(keys(db.frames), (Keys{"FR_DYN", "FR_ENG", "FR_NM"}));
    EXPECT_EQ(keys(db.framesByName), (Keys{"DynamicsFrame", "EngineFrame", "NmFrame"}));
    for (const auto& [name, frame] : db.framesByName) {
        SCOPED_TRACE(name);
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(frame->shortName, name);
    }

    const auto& dyn = entry(db.frames, "FR_DYN");
    EXPECT_EQ(entry(db.framesByName, "DynamicsFrame"), &dyn);
    EXPECT_EQ(dyn.shortName, "DynamicsFrame");
    EXPECT_EQ(dyn.desc, "dynamics, both channels");
    EXPECT_EQ(dyn.byteLength, 16);
    EXPECT_EQ(dyn.frameType, "APPLICATION");
    EXPECT_EQ(dyn.frameTypeCode, 1);
    EXPECT_EQ(dyn.pduInstanceCount, 1u);
    ASSERT_EQ(dyn.pduInstances.size(), 1u);
    const auto& pi = dyn.pduInstances[0];
    EXPECT_EQ(pi.desc, "dynamics PDU at byte 0");
    EXPECT_EQ(pi.bitPosition, 0);
    EXPECT_EQ(pi.updateBitPosition, 120);
    EXPECT_TRUE(pi.isHighLowByteOrder);
    EXPECT_EQ(pi.pduId, "PDU_DYN");
    EXPECT_EQ(pi.pdu, addressOf(db.pdus, "PDU_DYN"));
    EXPECT_EQ(dyn.flag, 0);
    EXPECT_EQ(dyn.reservedWord, 0u);
    EXPECT_EQ(dyn.reservedText[0], "");
    EXPECT_EQ(dyn.reservedText[1], "");
    EXPECT_EQ(dyn.reservedFlag, 0);
    EXPECT_EQ(dyn.reserved32, 0u);

    const auto& eng = entry(db.frames, "FR_ENG");
    EXPECT_EQ(eng.byteLength, 8);
    ASSERT_EQ(eng.pduInstances.size(), 1u);
    EXPECT_EQ(eng.pduInstances[0].bitPosition, 16);
    EXPECT_EQ(eng.pduInstances[0].updateBitPosition, 65535);
    EXPECT_FALSE(eng.pduInstances[0].isHighLowByteOrder);
    EXPECT_EQ(eng.pduInstances[0].pdu, addressOf(db.pdus, "PDU_ENG"));

    const auto& nm = entry(db.frames, "FR_NM");
    EXPECT_EQ(nm.frameType, "NM");
    EXPECT_EQ(nm.frameTypeCode, 6);
    EXPECT_EQ(nm.byteLength, 4);
    EXPECT_EQ(nm.pduInstanceCount, 0u);
    EXPECT_TRUE(nm.pduInstances.empty());

    EXPECT_EQ(keys(db.pduInstances), (Keys{"PI_DYN", "PI_ENG"}));
    EXPECT_EQ(entry(db.pduInstances, "PI_ENG").pduId, "PDU_ENG");
}

TEST_F(FibexTest, PduInstancesOnlyOnWholeBytes) {
    loadOk("pdu-instances-byte-and-non-byte.xml");
    const auto& frame = entry(db.frames, "FR_PLACEMENTS");
    EXPECT_EQ(frame.shortName, "PlacementFrame");
    EXPECT_EQ(entry(db.framesByName, "PlacementFrame"), &frame);
    // Bits 12 and 7 are dropped; the count still counts every listed instance.
    EXPECT_EQ(frame.pduInstanceCount, 5u);
    ASSERT_EQ(frame.pduInstances.size(), 3u);
    EXPECT_EQ(frame.pduInstances[0].bitPosition, 0);
    EXPECT_EQ(frame.pduInstances[0].desc, "byte 0");
    EXPECT_EQ(frame.pduInstances[0].updateBitPosition, 95);
    EXPECT_EQ(frame.pduInstances[1].bitPosition, 16);
    EXPECT_EQ(frame.pduInstances[1].desc, "byte 2");
    EXPECT_TRUE(frame.pduInstances[1].isHighLowByteOrder);
    EXPECT_EQ(frame.pduInstances[2].bitPosition, 88);
    for (const auto& pi : frame.pduInstances)
        EXPECT_EQ(pi.pdu, addressOf(db.pdus, "PDU_SMALL"));
    EXPECT_EQ(keys(db.pduInstances), (Keys{"PI_AT_0", "PI_AT_16", "PI_AT_88"}));
}

TEST_F(FibexTest, FrameFaults) {
    loadOk("frame-errors.xml");
    // Without SHORT-NAME or BYTE-LENGTH the frame is dropped, with its instances.
    EXPECT_EQ(keys(db.frames), Keys{"FR_FAULTY_INSTANCES"});
    EXPECT_EQ(keys(db.framesByName), Keys{"FaultyInstances"});
    EXPECT_EQ(keys(db.pduInstances), Keys{"PI_GOOD"});

    const auto& frame = entry(db.frames, "FR_FAULTY_INSTANCES");
    EXPECT_EQ(frame.byteLength, 24);
    EXPECT_EQ(frame.frameType, "nm");
    EXPECT_EQ(frame.frameTypeCode, 0);
    EXPECT_EQ(frame.pduInstanceCount, 3u);
    ASSERT_EQ(frame.pduInstances.size(), 1u);
    const auto& pi = frame.pduInstances[0];
    EXPECT_EQ(pi.desc, "the one that stays");
    EXPECT_EQ(pi.bitPosition, 128);
    EXPECT_EQ(pi.updateBitPosition, 191);
    EXPECT_TRUE(pi.isHighLowByteOrder);
    EXPECT_EQ(pi.pduId, "PDU_X");
    EXPECT_EQ(pi.pdu, addressOf(db.pdus, "PDU_X"));
    EXPECT_EQ(entry(db.pdus, "PDU_X").shortName, "PduX");
}

}  // namespace
