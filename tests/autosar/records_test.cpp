// The records: ECUs with controllers and connectors; clusters and the frame schedules from every
// cycle form with the slot-by-cycle table; the chain signal -> system signal -> port ->
// compu-method -> unit; PDUs with "_UB" companions; frames carrying PDUs. Controller and cluster
// parameters are a few: the database interface tests read every field of the example.
#include <gtest/gtest.h>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;

TEST_F(AutosarTest, EcusControllersAndClusters) {
    loadOk("ecus-and-cluster-cycle-forms-4.1.arxml");
    const auto& cc = entry(db.controllers, "NodeA/NodeA_CC");
    expectAll({EQ(cc.maxDrift, 601u), EQ(cc.channelMask, 3),  // its connector's channels A, B
               EQ(entry(db.controllers, "NodeB/NodeB_CC").channelMask, 1)});
    const auto& a = entry(db.ecus, "NodeA");
    ASSERT_EQ(a.connectors.size(), 1u);
    const auto& connector = *a.connectors[0];
    expectAll({EQ(a.controllers.at(0), &cc), EQ(connector.controller, &cc),
               EQ(entry(db.ecus, "Bare").connectors.size(), 0u)});
    EXPECT_EQ(connector.channelKeys, (Keys{"Backbone/ChannelA", "Backbone/ChannelB"}));
    EXPECT_EQ(a.sentFrames, (Keys{"FlatNumber", "NestedEnum", "NoTiming", "TwoChannels"}));
    EXPECT_EQ(a.receivedFrames, (Keys{"Claimer", "Counter", "NestedNumber"}));

    const auto& c = entry(db.clusters, "Backbone");
    expectAll({EQ(c.baudrate, 10000000u), EQ(entry(db.clusters, "EmptyCluster").baudrate, 0u),
               EQ(c.channels.size(), 2u), EQ(c.channels.at(1)->channelMask, 2)});

    // Two parameters whose element names differ from the usual ones.
    const std::string ecu =
        "<ECU-INSTANCE><SHORT-NAME>E</SHORT-NAME><COMM-CONTROLLERS><FLEXRAY-COMMUNICATION-"
        "CONTROLLER><SHORT-NAME>CC</SHORT-NAME><FLEXRAY-COMMUNICATION-CONTROLLER-VARIANTS>"
        "<FLEXRAY-COMMUNICATION-CONTROLLER-CONDITIONAL><MAX-DYNAMIC-PAYLOAD-LENGTH>42"
        "</MAX-DYNAMIC-PAYLOAD-LENGTH></FLEXRAY-COMMUNICATION-CONTROLLER-CONDITIONAL>"
        "</FLEXRAY-COMMUNICATION-CONTROLLER-VARIANTS></FLEXRAY-COMMUNICATION-CONTROLLER>"
        "</COMM-CONTROLLERS></ECU-INSTANCE>";
    const std::string cluster =
        "<FLEXRAY-CLUSTER><SHORT-NAME>C</SHORT-NAME><FLEXRAY-CLUSTER-VARIANTS>"
        "<FLEXRAY-CLUSTER-CONDITIONAL><MAX-INITIALIZATION-ERROR>3</MAX-INITIALIZATION-ERROR>"
        "</FLEXRAY-CLUSTER-CONDITIONAL></FLEXRAY-CLUSTER-VARIANTS></FLEXRAY-CLUSTER>";
    AutoSarReader other;
    ASSERT_EQ(other.LoadText(arxml(package("P", ecu + cluster))), 0);
    expectAll({EQ(other.Database().controllers.at("E/CC").maxDynamicPayloadLength, 42u),
               EQ(other.Database().clusters.at("C").maxInitializationError, 3u)});
}

TEST_F(AutosarTest, FrameSchedulesAndTheSlotTable) {
    loadOk("ecus-and-cluster-cycle-forms-4.1.arxml");
    const auto sched = [this](const char* name) { return schedule(entry(db.frames, name)); };
    expectAll({EQ(sched("FlatNumber"), "2 0/4 1"),    // BASE-CYCLE, CYCLE-REPETITION in the timing
               EQ(sched("NestedNumber"), "3 1/2 1"),  // COMMUNICATION-CYCLE/.../{...}, a number
               EQ(sched("NestedEnum"), "4 3/16 1"),   // "CYCLE-REPETITION-16"
               EQ(sched("Counter"), "5 7/64 1"),      // a single cycle
               EQ(sched("NoTiming"), "0 0/0 1"),      // no absolutely scheduled timing
               EQ(sched("TwoChannels"), "9 0/1 3"),   // first triggering with a slot, channels ORed
               EQ(entry(db.frames, "NoTiming").clusterName, "Backbone")});
    EXPECT_EQ(entry(db.frames, "FlatNumber").receiverEcus, (Keys{"NodeB"}));
    // The first frame keeps a claimed cell; every triggering with a slot enters its cells.
    expectAll({EQ(db.frameNameAt(2, 4), "FlatNumber"), EQ(db.frameNameAt(2, 1), "Claimer"),
               EQ(db.frameNameAt(2, 63), "Claimer"), EQ(db.frameNameAt(12, 63), "TwoChannels")});
    std::vector<std::uint16_t> slots;
    for (const auto& row : db.frameNamesBySlot)
        slots.push_back(row.first);
    EXPECT_EQ(slots, (std::vector<std::uint16_t>{2, 3, 4, 5, 9, 12}));
}

// The example system's records that the database interface tests (frame names by slot, ECUs,
// scaling, update-bit placement) do not reach.
TEST_F(AutosarTest, ExampleSystem) {
    loadOk(kExampleSystem);
    expectAll({EQ(entry(db.signals, "YawRate").isSigned, true),   // SW-BASE-TYPE encoding 2C
               EQ(entry(db.signals, "WheelSpeedFL").compuMethod,  // through its port
                  addressOf(db.compuMethods, "CM_WheelSpeed")),
               EQ(entry(db.pduTriggerings, "FlexRayBackbone/ChannelA/PT_EngineStatus_A").pdu,
                  addressOf(db.pdus, "EngineStatus"))});
}

TEST_F(AutosarTest, SignalChainAndDataTypePolicies) {
    loadOk("signals-data-type-policies-4.2.arxml");
    const auto* linear = addressOf(db.compuMethods, "CM_Linear");
    const auto* table = addressOf(db.compuMethods, "CM_Texttable");
    ASSERT_NE(linear, nullptr);
    ASSERT_NE(table, nullptr);
    expectAll({EQ(linear->unit, addressOf(db.units, "degC")),
               EQ(linear->scales.at(0).offset, -40.0f), EQ(table->scales.at(1).text, "On"),
               EQ(table->scales.at(1).factor, 1.0f),      // no numerator: factor 1, offset 0
               EQ(table->unit, addressOf(db.units, "")),  // no UNIT-REF: the empty-name unit
               EQ(entry(db.compuMethods, "CM_Den10").scales.at(0).denominator, 10.0f),
               EQ(entry(db.compuMethods, "CM_NoUnit").scales.at(0).lowerLimit, 0u)});  // -5
    const auto cm = [this](const char* name) { return entry(db.signals, name).compuMethod; };
    expectAll({EQ(cm("S_Legacy"), table),              // no policy: the signal's own reference
               EQ(cm("S_Override"), linear),           // any other policy text: the same
               EQ(cm("S_Transforming"), nullptr),      // none even though one is named
               EQ(cm("S_ComSpec"), linear),            // via SysSig_Temp -> RP_Temp, not its own
               EQ(cm("S_ComSpecUnmapped"), nullptr),   // system signal without port
               EQ(cm("S_ComSpecUnknown"), nullptr)});  // system signal that does not exist
    // References to unknown names create empty records.
    EXPECT_EQ(keys(db.systemSignals),
              (Keys{"SysSig_Ghost", "SysSig_Nowhere", "SysSig_Temp", "SysSig_Unmapped"}));
    expectAll({EQ(entry(db.systemSignals, "SysSig_Ghost").port, addressOf(db.ports, "RP_Ghost")),
               EQ(entry(db.ports, "RP_Ghost").compuMethod, nullptr),
               EQ(db.signals.size(), 9u),  // the nameless I-SIGNAL is skipped
               EQ(entry(db.signals, "S_Init").initValue, static_cast<double>(0.1f)),
               EQ(entry(db.signals, "S_BadLength").length, 0)});  // 1e3 is no decimal length
}

TEST_F(AutosarTest, PdusAndFrames) {
    loadOk("pdus-kinds-update-bits-timing-4.2.arxml");
    EXPECT_EQ(keys(db.pdus),
              (Keys{"Clash", "NM_Node", "N_Diag", "P_Cyclic", "P_Event", "P_Second"}))
        << "nameless PDUs skipped, MorePDUs not read";
    // "type length transmission mode, signal count/signals listed"
    const auto pdu = [this](const char* name) {
        const auto& p = entry(db.pdus, name);
        return std::to_string(p.type) + " " + std::to_string(p.length) + " " +
               std::to_string(p.transmissionMode) + ", " + std::to_string(p.signalCount) + "/" +
               std::to_string(p.signals.size());
    };
    expectAll({EQ(pdu("P_Event"), "0 8 2, 3/3"),
               EQ(entry(db.pdus, "P_Event").minimumDelay, static_cast<double>(0.05f)),
               EQ(pdu("P_Cyclic"), "0 8 1, 1/1"),  // MINIMUM-DELAY ignored without event timing
               EQ(entry(db.pdus, "P_Cyclic").minimumDelay, 0.0), EQ(pdu("N_Diag"), "1 16 1, 0/0"),
               EQ(pdu("NM_Node"), "2 8 1, 0/0"),
               EQ(pdu("Clash"), "1 3 1, 0/0")});  // the N-PDU of this name replaced the I-PDU
    // Speed with update bit 7 is followed by its companion Speed_UB.
    EXPECT_EQ(namesOf(entry(db.pdus, "P_Event").signals), (Keys{"Speed", "Speed_UB", "Temp"}));
    const auto& speed = entry(db.signals, "Speed");
    const auto* ub = addressOf(db.signals, "Speed_UB");
    ASSERT_NE(ub, nullptr);
    expectAll({EQ(speed.updateBitSignal, ub), EQ(speed.startPosition, 8), EQ(speed.byteOrder, 1),
               EQ(speed.compuMethod, addressOf(db.compuMethods, "CM_Speed")), EQ(ub->length, 1),
               EQ(ub->startPosition, 7), EQ(ub->updateBitPosition, 65535),
               EQ(ub->compuMethod, nullptr), EQ(addressOf(db.signals, "Temp_UB"), nullptr)});
    // A signal mapped twice keeps the second placement; an unknown one is created and placed.
    expectAll({EQ(entry(db.signals, "Shared").pduName, "P_Second"),
               EQ(entry(db.signals, "Shared").startPosition, 40),
               EQ(entry(db.signals, "Ghost").pduName, "P_Second")});

    reader.ReadAUTOSARData(autosarFile("frames-carrying-pdus-4.2.arxml"));
    EXPECT_EQ(keys(db.frames), (Keys{"F1", "F2", "F_Ghost", "F_NoLength"}));
    const auto& f1 = entry(db.frames, "F1");
    EXPECT_EQ(namesOf(f1.pdus), (Keys{"P1", "P2"}));
    // P2 is in both frames: the second mapping wins; an unknown PDU is created.
    const auto& p2 = entry(db.pdus, "P2");
    expectAll({EQ(f1.frameLength, 16), EQ(entry(db.frames, "F_NoLength").frameLength, 0),
               EQ(p2.frameName, "F2"), EQ(p2.frameByteOrder, 1), EQ(p2.frameStartPosition, 8),
               EQ(entry(db.signals, "A_UB").frameName, "F1"),
               EQ(entry(db.pdus, "GhostPdu").frameName, "F_Ghost")});
}

}  // namespace
