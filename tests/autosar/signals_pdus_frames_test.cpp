// The chain signal -> system signal -> port -> compu-method -> unit, the data-type policies,
// PDU placement with "_UB" companions, and frame names written back into PDUs and signals.
#include <gtest/gtest.h>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;
using kelo::autosar::tAutoSarSignalInfo;

class SignalChain : public AutosarTest {
  protected:
    void SetUp() override { loadOk("signals-data-type-policies-4.2.arxml"); }
};

TEST_F(SignalChain, CompuMethodsAndScales) {
    const auto& linear = entry(db.compuMethods, "CM_Linear");
    EXPECT_EQ(linear.category, "LINEAR");
    EXPECT_EQ(linear.description, "temperature");
    EXPECT_EQ(linear.unit, addressOf(db.units, "degC"));
    ASSERT_EQ(linear.scales.size(), 1u);
    expectAll({EQ(linear.scales[0].offset, -40.0f), EQ(linear.scales[0].factor, 0.5f),
               EQ(linear.scales[0].denominator, 1.0f)});

    const auto& table = entry(db.compuMethods, "CM_Texttable");
    ASSERT_EQ(table.scales.size(), 2u);
    expectAll({EQ(table.scales[1].lowerLimit, 1u), EQ(table.scales[1].upperLimit, 1u),
               EQ(table.scales[1].text, "On")});
    EXPECT_EQ(table.scales[1].factor, 1.0f) << "no numerator: factor 1, offset 0";
    EXPECT_EQ(table.unit, addressOf(db.units, "")) << "no UNIT-REF: the empty-name unit";

    const auto& three = entry(db.compuMethods, "CM_ThreeV");
    ASSERT_EQ(three.scales.size(), 1u);
    EXPECT_EQ(three.scales[0].factor, 1.0f);
    EXPECT_EQ(three.scales[0].offset, 0.0f);
    EXPECT_EQ(entry(db.compuMethods, "CM_Den10").scales.at(0).denominator, 10.0f);

    const auto& odd = entry(db.compuMethods, "CM_NoUnit").scales.at(0);
    EXPECT_EQ(odd.lowerLimit, 0u) << "-5 is no unsigned decimal";
    EXPECT_EQ(odd.upperLimit, 0u) << "2.5 is no unsigned decimal";
}

TEST_F(SignalChain, PoliciesDecideWhereTheCompuMethodComesFrom) {
    const auto* linear = addressOf(db.compuMethods, "CM_Linear");
    const auto* table = addressOf(db.compuMethods, "CM_Texttable");
    const struct {
        const char* signal;
        const kelo::autosar::tAutoSarCompuMethodInfo* compuMethod;
    } cases[] = {
        {"S_Legacy", table},             // no policy: the signal's own reference
        {"S_Override", linear},          // any other policy text: the same
        {"S_Transforming", nullptr},     // none even though one is named
        {"S_ComSpec", linear},           // through SysSig_Temp -> RP_Temp, not its own reference
        {"S_ComSpecUnmapped", nullptr},  // system signal without port
        {"S_ComSpecUnknown", nullptr},   // system signal that does not exist
        {"S_NoCm", nullptr},
    };
    for (const auto& c : cases)
        EXPECT_EQ(entry(db.signals, c.signal).compuMethod, c.compuMethod) << c.signal;

    // The whole chain down to the unit.
    const auto* system = addressOf(db.systemSignals, "SysSig_Temp");
    ASSERT_NE(system, nullptr);
    EXPECT_EQ(system->description, "temperature");
    ASSERT_EQ(system->port, addressOf(db.ports, "RP_Temp"));
    ASSERT_EQ(system->port->compuMethod, linear);
    EXPECT_EQ(linear->unit->displayName, "°C");
}

TEST_F(SignalChain, ReferencesToUnknownNamesCreateEmptyRecords) {
    EXPECT_EQ(keys(db.systemSignals),
              (Keys{"SysSig_Ghost", "SysSig_Nowhere", "SysSig_Temp", "SysSig_Unmapped"}));
    EXPECT_EQ(entry(db.systemSignals, "SysSig_Ghost").port, addressOf(db.ports, "RP_Ghost"));
    EXPECT_EQ(entry(db.systemSignals, "SysSig_Nowhere").port, nullptr);
    EXPECT_EQ(entry(db.ports, "RP_Ghost").compuMethod, nullptr);
}

TEST_F(SignalChain, SignalFields) {
    EXPECT_EQ(db.signals.size(), 9u) << "the nameless I-SIGNAL is skipped";
    const auto& init = entry(db.signals, "S_Init");
    EXPECT_EQ(init.initValue, static_cast<double>(0.1f)) << "float precision";
    EXPECT_EQ(init.length, 12);
    EXPECT_EQ(init.description, "initial value 0.1");
    EXPECT_EQ(entry(db.signals, "S_BadLength").length, 0) << "1e3 is no decimal length";
    EXPECT_EQ(entry(db.signals, "S_Legacy").initValue, 0.0);
}

TEST_F(AutosarTest, PduKindsTimingAndUpdateBits) {
    loadOk("pdus-kinds-update-bits-timing-4.2.arxml");
    EXPECT_EQ(keys(db.pdus),
              (Keys{"Clash", "NM_Node", "N_Diag", "P_Cyclic", "P_Event", "P_Second"}))
        << "nameless PDUs skipped, MorePDUs not read";
    const struct {
        const char* pdu;
        std::uint16_t type, length, mode;
        double minimumDelay;
        std::int32_t signalCount;
    } cases[] = {
        {"P_Event", 0, 8, 2, static_cast<double>(0.05f), 3},
        {"P_Cyclic", 0, 8, 1, 0.0, 1},  // MINIMUM-DELAY ignored without event-controlled timing
        {"P_Second", 0, 8, 1, 0.0, 2},
        {"N_Diag", 1, 16, 1, 0.0, 0},
        {"NM_Node", 2, 8, 1, 0.0, 0},
        {"Clash", 1, 3, 1, 0.0, 0},  // the N-PDU of the same name replaced the I-signal I-PDU
    };
    for (const auto& c : cases) {
        const auto& pdu = entry(db.pdus, c.pdu);
        EXPECT_EQ(pdu.type, c.type) << c.pdu;
        EXPECT_EQ(pdu.length, c.length) << c.pdu;
        EXPECT_EQ(pdu.transmissionMode, c.mode) << c.pdu;
        EXPECT_EQ(pdu.minimumDelay, c.minimumDelay) << c.pdu;
        EXPECT_EQ(pdu.signalCount, c.signalCount) << c.pdu;
        EXPECT_EQ(pdu.signals.size(), static_cast<std::size_t>(c.signalCount)) << c.pdu;
    }
    EXPECT_EQ(entry(db.pdus, "P_Event").description, "event controlled");

    // Speed with update bit 7 is followed by its companion Speed_UB.
    const auto& event = entry(db.pdus, "P_Event");
    const tAutoSarSignalInfo* speed = addressOf(db.signals, "Speed");
    const tAutoSarSignalInfo* speedUb = addressOf(db.signals, "Speed_UB");
    ASSERT_NE(speedUb, nullptr);
    EXPECT_EQ(namesOf(event.signals), (Keys{"Speed", "Speed_UB", "Temp"}));
    EXPECT_EQ(event.signals.at(0), speed);
    EXPECT_EQ(event.signals.at(1), speedUb);
    expectAll({EQ(speed->updateBitSignal, speedUb), EQ(speed->updateBitPosition, 7),
               EQ(speed->startPosition, 8), EQ(speed->byteOrder, 1),
               EQ(speed->pduName, "P_Event")});
    EXPECT_EQ(speed->compuMethod, addressOf(db.compuMethods, "CM_Speed"))
        << "reading PDUs keeps it";
    expectAll({EQ(speedUb->length, 1), EQ(speedUb->startPosition, 7),
               EQ(speedUb->updateBitPosition, 65535), EQ(speedUb->pduName, "P_Event"),
               EQ(speedUb->compuMethod, nullptr), EQ(speedUb->updateBitSignal, nullptr)});

    const auto& temp = entry(db.signals, "Temp");
    expectAll({EQ(temp.updateBitPosition, 65535), EQ(temp.updateBitSignal, nullptr),
               EQ(temp.byteOrder, 0)});
    EXPECT_EQ(addressOf(db.signals, "Temp_UB"), nullptr);

    // Shared is mapped twice: the second PDU's placement wins.
    const auto& shared = entry(db.signals, "Shared");
    expectAll(
        {EQ(shared.pduName, "P_Second"), EQ(shared.startPosition, 40), EQ(shared.byteOrder, 1)});
    // An unknown signal is created and placed.
    EXPECT_EQ(entry(db.signals, "Ghost").pduName, "P_Second");
    EXPECT_EQ(entry(db.signals, "Ghost").length, 0);
}

TEST_F(AutosarTest, FramesCarryPdusAndNameTheirSignals) {
    loadOk("frames-carrying-pdus-4.2.arxml");
    EXPECT_EQ(keys(db.frames), (Keys{"F1", "F2", "F_Ghost", "F_NoLength"}));
    const auto& f1 = entry(db.frames, "F1");
    EXPECT_EQ(f1.frameLength, 16);
    EXPECT_EQ(f1.description, "first");
    EXPECT_EQ(namesOf(f1.pdus), (Keys{"P1", "P2"}));
    EXPECT_EQ(f1.pdus.at(1), addressOf(db.pdus, "P2"));
    EXPECT_EQ(entry(db.frames, "F_NoLength").frameLength, 0);

    const auto& p1 = entry(db.pdus, "P1");
    expectAll({EQ(p1.frameName, "F1"), EQ(p1.frameByteOrder, 0), EQ(p1.frameStartPosition, 0)});
    // P2 is in both frames: the second mapping wins.
    const auto& p2 = entry(db.pdus, "P2");
    expectAll({EQ(p2.frameName, "F2"), EQ(p2.frameByteOrder, 1), EQ(p2.frameStartPosition, 8)});
    EXPECT_EQ(entry(db.frames, "F2").pdus.size(), 1u);

    for (const char* signal : {"A", "A_UB", "B"})
        EXPECT_EQ(entry(db.signals, signal).frameName, "F1") << signal;
    EXPECT_EQ(entry(db.pdus, "GhostPdu").frameName, "F_Ghost") << "an unknown PDU is created";
    EXPECT_EQ(entry(db.pdus, "GhostPdu").signalCount, 0);
}

}  // namespace
