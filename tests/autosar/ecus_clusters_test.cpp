// ECU instances with their FlexRay controllers, connectors and ports; FlexRay clusters with
// their parameters, channels and triggerings; frame schedules and the slot-by-cycle table.
#include <gtest/gtest.h>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;
using kelo::autosar::tAutoSarPortKind;

class CycleForms : public AutosarTest {
  protected:
    void SetUp() override { loadOk("ecus-and-cluster-cycle-forms-4.1.arxml"); }
};

TEST_F(CycleForms, ControllerParameters) {
    const auto& a = entry(db.controllers, "NodeA/NodeA_CC");
    expectAll({EQ(a.name, "NodeA_CC"), EQ(a.ecuName, "NodeA"), EQ(a.acceptedStartupRange, 212u),
               EQ(a.allowHaltDueToClock, true), EQ(a.allowPassiveToActive, 10u),
               EQ(a.clusterDriftDamping, 2u), EQ(a.decodingCorrection, 56u)});
    expectAll({EQ(a.delayCompensationA, 3u), EQ(a.delayCompensationB, 4u), EQ(a.keySlotId, 2u),
               EQ(a.keySlotUsedForStartup, true), EQ(a.keySlotUsedForSync, true),
               EQ(a.keySlotOnlyEnabled, false), EQ(a.latestTx, 249u)});
    expectAll({EQ(a.listenTimeout, 401202u), EQ(a.macroInitialOffsetA, 7u),
               EQ(a.macroInitialOffsetB, 8u), EQ(a.maxDrift, 601u),
               EQ(a.maxDynamicPayloadLength, 127u), EQ(a.microInitialOffsetA, 23u),
               EQ(a.microInitialOffsetB, 24u)});
    expectAll({EQ(a.microPerCycle, 200000u), EQ(a.microtickDuration, static_cast<double>(2.5e-8f)),
               EQ(a.offsetCorrectionOut, 127u), EQ(a.rateCorrectionOut, 601u),
               EQ(a.samplesPerMicrotick, 2u), EQ(a.wakeUpPattern, 33u)});
    EXPECT_EQ(a.channelMask, 3) << "its connector is on channels A and B";
    EXPECT_EQ(a.wakeUpChannel, 1) << "the wake-up connector's first channel";

    const auto& b = entry(db.controllers, "NodeB/NodeB_CC");
    expectAll({EQ(b.keySlotId, 3u), EQ(b.keySlotUsedForStartup, false), EQ(b.channelMask, 1),
               EQ(b.wakeUpChannel, 0)});
}

TEST_F(CycleForms, EcusConnectorsAndPorts) {
    const auto& a = entry(db.ecus, "NodeA");
    EXPECT_EQ(a.description, "NodeA node");
    ASSERT_EQ(a.controllers.size(), 1u);
    EXPECT_EQ(a.controllers[0], addressOf(db.controllers, "NodeA/NodeA_CC"));
    ASSERT_EQ(a.connectors.size(), 1u);
    const auto& connector = *a.connectors[0];
    EXPECT_EQ(connector.key, "NodeA/NodeA_Conn");
    EXPECT_EQ(connector.controller, a.controllers[0]);
    EXPECT_TRUE(connector.wakeUpChannel);
    EXPECT_EQ(connector.channelKeys, (Keys{"Backbone/ChannelA", "Backbone/ChannelB"}));
    EXPECT_EQ(connector.channelMask, 3);
    ASSERT_EQ(connector.ports.size(), 7u);
    const auto& port = *connector.ports[0];
    EXPECT_EQ(port.key, "NodeA/NodeA_Conn/FP_FlatNumber");
    EXPECT_EQ(port.kind, tAutoSarPortKind::Frame);
    EXPECT_EQ(port.direction, "OUT");
    EXPECT_FALSE(port.isInput);
    EXPECT_TRUE(entry(db.ecuPorts, "NodeB/NodeB_Conn/FP_FlatNumber").isInput);

    EXPECT_EQ(a.sentFrames, (Keys{"FlatNumber", "NestedEnum", "NoTiming", "TwoChannels"}));
    EXPECT_EQ(a.receivedFrames, (Keys{"Claimer", "Counter", "NestedNumber"}));
    EXPECT_EQ(entry(db.ecus, "NodeB").sentFrames, (Keys{"Claimer", "Counter", "NestedNumber"}));

    const auto& bare = entry(db.ecus, "Bare");
    EXPECT_TRUE(bare.controllers.empty());
    EXPECT_TRUE(bare.connectors.empty());
}

TEST_F(CycleForms, FrameSchedulesFromEveryForm) {
    const struct {
        const char* frame;
        std::uint16_t slot;
        std::uint8_t base, repetition;
        std::uint16_t channels;
    } cases[] = {
        {"FlatNumber", 2, 0, 4, 1},    // BASE-CYCLE and CYCLE-REPETITION in the timing
        {"NestedNumber", 3, 1, 2, 1},  // COMMUNICATION-CYCLE/CYCLE-REPETITION/{...}, a number
        {"NestedEnum", 4, 3, 16, 1},   // "CYCLE-REPETITION-16"
        {"Counter", 5, 7, 64, 1},      // a single cycle
        {"NoTiming", 0, 0, 0, 1},      // no absolutely scheduled timing
        {"Claimer", 2, 0, 1, 1},
        {"TwoChannels", 9, 0, 1, 3},  // first triggering with a slot, channels ORed
    };
    for (const auto& c : cases) {
        const auto& frame = entry(db.frames, c.frame);
        EXPECT_EQ(frame.slotId, c.slot) << c.frame;
        EXPECT_EQ(frame.baseCycle, c.base) << c.frame;
        EXPECT_EQ(frame.cycleRepetition, c.repetition) << c.frame;
        EXPECT_EQ(frame.channelMask, c.channels) << c.frame;
        EXPECT_EQ(frame.clusterName, "Backbone") << c.frame;
    }
    EXPECT_EQ(entry(db.frames, "FlatNumber").senderEcus, (Keys{"NodeA"}));
    EXPECT_EQ(entry(db.frames, "FlatNumber").receiverEcus, (Keys{"NodeB"}));
    EXPECT_EQ(entry(db.frameTriggerings, "Backbone/ChannelA/FT_NoTiming_A").cycleRepetition, 1);
    EXPECT_EQ(entry(db.frameTriggerings, "Backbone/ChannelB/FT_TwoChannels_B").slotId, 12);
}

TEST_F(CycleForms, SlotByCycleTable) {
    const struct {
        std::uint16_t slot;
        std::uint8_t cycle;
        const char* name;
    } cases[] = {
        {2, 0, "FlatNumber"},
        {2, 4, "FlatNumber"},
        {2, 60, "FlatNumber"},
        {2, 1, "Claimer"},
        {2, 63, "Claimer"},  // the first frame keeps a claimed cell
        {3, 0, ""},
        {3, 1, "NestedNumber"},
        {3, 63, "NestedNumber"},
        {4, 3, "NestedEnum"},
        {4, 19, "NestedEnum"},
        {4, 4, ""},
        {5, 7, "Counter"},
        {5, 8, ""},
        {5, 6, ""},
        {9, 0, "TwoChannels"},
        {12, 63, "TwoChannels"},
        {0, 0, ""},
        {2, 64, ""},
        {2, 255, ""},
        {13, 0, ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(db.frameNameAt(c.slot, c.cycle), c.name)
            << "slot " << c.slot << " cycle " << int(c.cycle);
    std::vector<std::uint16_t> slots;
    for (const auto& row : db.frameNamesBySlot)
        slots.push_back(row.first);
    EXPECT_EQ(slots, (std::vector<std::uint16_t>{2, 3, 4, 5, 9, 12}));
}

TEST_F(CycleForms, ClusterParametersAndChannels) {
    const auto& c = entry(db.clusters, "Backbone");
    expectAll({EQ(c.baudrate, 10000000u), EQ(c.protocolName, "FlexRay"),
               EQ(c.protocolVersion, "2.1"), EQ(c.actionPointOffset, 3u), EQ(c.casRxLowMax, 87u),
               EQ(c.coldStartAttempts, 8u), EQ(c.cycle, static_cast<double>(0.005f)),
               EQ(c.cycleCountMax, 63u)});
    expectAll({EQ(c.detectNitError, true), EQ(c.dynamicSlotIdlePhase, 1u), EQ(c.ignoreAfterTx, 7u),
               EQ(c.listenNoise, 2u), EQ(c.macroPerCycle, 5000u),
               EQ(c.macrotickDuration, static_cast<double>(1.0e-6f)),
               EQ(c.maxWithoutClockCorrectionFatal, 14u),
               EQ(c.maxWithoutClockCorrectionPassive, 10u)});
    expectAll({EQ(c.minislotActionPointOffset, 2u), EQ(c.minislotDuration, 6u),
               EQ(c.networkIdleTime, 103u), EQ(c.networkManagementVectorLength, 2u),
               EQ(c.numberOfMinislots, 314u), EQ(c.numberOfStaticSlots, 60u),
               EQ(c.offsetCorrectionStart, 4920u), EQ(c.payloadLengthStatic, 16u)});
    expectAll({EQ(c.safetyMargin, 1u), EQ(c.sampleClockPeriod, static_cast<double>(1.25e-8f)),
               EQ(c.staticSlotDuration, 50u), EQ(c.symbolWindow, 13u),
               EQ(c.symbolWindowActionPointOffset, 3u), EQ(c.syncFrameIdCountMax, 15u),
               EQ(c.transmissionStartSequenceDuration, 9u), EQ(c.wakeupRxIdle, 59u)});
    expectAll({EQ(c.wakeupRxLow, 55u), EQ(c.wakeupRxWindow, 301u), EQ(c.wakeupTxActive, 60u),
               EQ(c.wakeupTxIdle, 180u)});
    EXPECT_EQ(c.frameNames, (Keys{"Claimer", "Counter", "FlatNumber", "NestedEnum", "NestedNumber",
                                  "NoTiming", "TwoChannels"}));
    ASSERT_EQ(c.channels.size(), 2u);
    expectAll({EQ(c.channels[0]->name, "ChannelA"), EQ(c.channels[0]->channelName, "CHANNEL-A"),
               EQ(c.channels[0]->channelMask, 1)});
    EXPECT_EQ(c.channels[0]->frameTriggerings.size(), 8u);
    EXPECT_EQ(c.channels[0]->connectors.size(), 2u);
    EXPECT_EQ(c.channels[1]->channelMask, 2);
    EXPECT_EQ(c.channels[1]->connectors.size(), 1u);

    const auto& empty = entry(db.clusters, "EmptyCluster");
    EXPECT_EQ(empty.baudrate, 0u);
    EXPECT_TRUE(empty.channels.empty());
}

// The realistic system the database interface and the demo use.
class SmallSystem : public AutosarTest {
  protected:
    void SetUp() override { loadOk(kExampleSystem); }
};

TEST_F(SmallSystem, NamesForTheQueries) {
    EXPECT_EQ(keys(db.clusters), (Keys{"FlexRayBackbone"}));
    EXPECT_EQ(keys(db.ecus), (Keys{"BrakeControl", "EngineControl", "Gateway"}));
    EXPECT_EQ(db.frames.size(), 12u);
    EXPECT_EQ(db.pdus.size(), 12u);
    EXPECT_EQ(entry(db.clusters, "FlexRayBackbone").frameNames.size(), 12u);
    EXPECT_EQ(entry(db.ecus, "EngineControl").sentFrames,
              (Keys{"Engine_NM_Frame", "Engine_Status_Frame", "Gearbox_Frame", "Odometer_Frame"}));
    EXPECT_EQ(entry(db.ecus, "Gateway").receivedFrames.size(), 8u);
}

TEST_F(SmallSystem, FrameSchedules) {
    const struct {
        const char* frame;
        std::uint16_t slot;
        std::uint8_t base, repetition;
        std::uint16_t channels;
        const char* sender;
    } cases[] = {
        {"Engine_Status_Frame", 1, 0, 1, 3, "EngineControl"},
        {"Brake_Status_Frame", 2, 0, 1, 3, "BrakeControl"},
        {"Wheel_Speeds_Frame", 3, 0, 1, 1, "BrakeControl"},
        {"Gearbox_Frame", 5, 0, 2, 1, "EngineControl"},
        {"Body_Frame", 6, 1, 2, 1, "Gateway"},
        {"Odometer_Frame", 7, 0, 4, 1, "EngineControl"},
        {"Gateway_Info_Frame", 8, 2, 8, 1, "Gateway"},
        {"Brake_NM_Frame", 11, 5, 64, 1, "BrakeControl"},
        {"Dynamic_Frame", 70, 0, 1, 2, "Gateway"},
    };
    for (const auto& c : cases) {
        const auto& frame = entry(db.frames, c.frame);
        EXPECT_EQ(frame.slotId, c.slot) << c.frame;
        EXPECT_EQ(frame.baseCycle, c.base) << c.frame;
        EXPECT_EQ(frame.cycleRepetition, c.repetition) << c.frame;
        EXPECT_EQ(frame.channelMask, c.channels) << c.frame;
        EXPECT_EQ(frame.senderEcus, (Keys{c.sender})) << c.frame;
        EXPECT_EQ(frame.receiverEcus.size(), 2u) << c.frame;
        EXPECT_EQ(frame.frameLength, c.slot == 70 ? 8 : 16) << c.frame;
        EXPECT_EQ(frame.pdus.size(), 1u) << c.frame;
    }
    EXPECT_EQ(db.frameNameAt(6, 0), "");
    EXPECT_EQ(db.frameNameAt(6, 3), "Body_Frame");
    EXPECT_EQ(db.frameNameAt(7, 8), "Odometer_Frame");
    EXPECT_EQ(db.frameNameAt(11, 5), "Brake_NM_Frame");
    EXPECT_EQ(db.frameNameAt(11, 6), "");
}

TEST_F(SmallSystem, WhatTheCodecNeedsPerSignal) {
    const auto& speed = entry(db.signals, "EngineSpeed");
    expectAll({EQ(speed.length, 16), EQ(speed.startPosition, 0), EQ(speed.byteOrder, 0),
               EQ(speed.isSigned, false)});
    ASSERT_NE(speed.compuMethod, nullptr);
    EXPECT_EQ(speed.compuMethod->category, "LINEAR");
    EXPECT_EQ(speed.compuMethod->scales.at(0).factor, 0.25f);
    EXPECT_EQ(speed.compuMethod->unit->displayName, "rpm");
    ASSERT_NE(speed.updateBitSignal, nullptr);
    expectAll({EQ(speed.updateBitSignal->startPosition, 16),
               EQ(speed.frameName, "Engine_Status_Frame"),
               EQ(speed.updateBitSignal->frameName, "Engine_Status_Frame")});

    EXPECT_TRUE(entry(db.signals, "YawRate").isSigned) << "SW-BASE-TYPE encoding 2C";
    EXPECT_TRUE(entry(db.signals, "SteeringAngle").isSigned);
    EXPECT_EQ(entry(db.signals, "EngineTemp").initValue, 40.0);
    EXPECT_EQ(entry(db.signals, "EngineTemp").compuMethod->scales.at(0).offset, -40.0f);

    const auto& wheel = entry(db.signals, "WheelSpeedFL");
    EXPECT_EQ(wheel.byteOrder, 1);
    EXPECT_EQ(wheel.startPosition, 7);
    EXPECT_EQ(wheel.compuMethod, addressOf(db.compuMethods, "CM_WheelSpeed")) << "through its port";

    const auto* gear = entry(db.signals, "GearPosition").compuMethod;
    ASSERT_NE(gear, nullptr);
    EXPECT_EQ(gear->category, "TEXTTABLE");
    ASSERT_EQ(gear->scales.size(), 4u);
    EXPECT_EQ(gear->scales[3].text, "D");

    EXPECT_EQ(entry(db.pdus, "GatewayInfo").transmissionMode, 2);
    EXPECT_EQ(entry(db.pdus, "NM_Engine").type, 2);
    EXPECT_EQ(entry(db.pdus, "TP_Diag").type, 1);
}

TEST_F(SmallSystem, TriggeringsLinkPdusSignalsAndPorts) {
    const auto& pt = entry(db.pduTriggerings, "FlexRayBackbone/ChannelA/PT_EngineStatus_A");
    EXPECT_EQ(pt.pdu, addressOf(db.pdus, "EngineStatus"));
    EXPECT_EQ(pt.ports.size(), 3u);
    EXPECT_EQ(pt.ports[0]->kind, tAutoSarPortKind::IPdu);
    EXPECT_EQ(pt.signalTriggeringKeys, (Keys{"FlexRayBackbone/ChannelA/ST_EngineSpeed_A"}));
    const auto& st = entry(db.signalTriggerings, "FlexRayBackbone/ChannelA/ST_EngineSpeed_A");
    EXPECT_EQ(st.signal, addressOf(db.signals, "EngineSpeed"));
    EXPECT_EQ(st.ports.at(0)->kind, tAutoSarPortKind::ISignal);
    const auto& ft =
        entry(db.frameTriggerings, "FlexRayBackbone/ChannelA/FT_Engine_Status_Frame_A");
    EXPECT_EQ(ft.pduTriggeringKeys, (Keys{"FlexRayBackbone/ChannelA/PT_EngineStatus_A"}));
}

}  // namespace

namespace {

using namespace kelo_test;

TEST_F(AutosarTest, AlternativeParameterNames) {
    const std::string ecu =
        "<ECU-INSTANCE><SHORT-NAME>E</SHORT-NAME><COMM-CONTROLLERS>"
        "<FLEXRAY-COMMUNICATION-CONTROLLER><SHORT-NAME>CC</SHORT-NAME>"
        "<FLEXRAY-COMMUNICATION-CONTROLLER-VARIANTS><FLEXRAY-COMMUNICATION-CONTROLLER-CONDITIONAL>"
        "<MAX-DYNAMIC-PAYLOAD-LENGTH>42</MAX-DYNAMIC-PAYLOAD-LENGTH>"
        "</FLEXRAY-COMMUNICATION-CONTROLLER-CONDITIONAL></"
        "FLEXRAY-COMMUNICATION-CONTROLLER-VARIANTS>"
        "</FLEXRAY-COMMUNICATION-CONTROLLER></COMM-CONTROLLERS></ECU-INSTANCE>";
    const std::string cluster =
        "<FLEXRAY-CLUSTER><SHORT-NAME>C</SHORT-NAME><FLEXRAY-CLUSTER-VARIANTS>"
        "<FLEXRAY-CLUSTER-CONDITIONAL><MAX-INITIALIZATION-ERROR>3</MAX-INITIALIZATION-ERROR>"
        "</FLEXRAY-CLUSTER-CONDITIONAL></FLEXRAY-CLUSTER-VARIANTS></FLEXRAY-CLUSTER>";
    ASSERT_EQ(reader.LoadText(arxml(package("P", ecu + cluster))), 0);
    EXPECT_EQ(entry(db.controllers, "E/CC").maxDynamicPayloadLength, 42u);
    EXPECT_EQ(entry(db.clusters, "C").maxInitializationError, 3u);
}

}  // namespace
