// The channel, ECU and cluster steps: triggerings and the frame schedule they set, controller
// and cluster parameters field by field, ports and connectors, and the faults that drop an
// element.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;
using kelo::fibex::Channel;
using kelo::fibex::Controller;
using kelo::fibex::Ecu;

// ---- channels and triggerings --------------------------------------------------------------

TEST_F(FibexTest, ChannelsAndPduTriggerings) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(keys(db.channels), (Keys{"CH_A", "CH_B"}));
    const Channel& a = entry(db.channels, "CH_A");
    expectAll({EQ(a.shortName, "FlexRay_A"), EQ(a.desc, "Channel A of the backbone"),
               EQ(a.flexrayChannelName, "A"), EQ(a.channelMask, 1)});
    ASSERT_EQ(a.pduTriggerings.size(), 1u);
    expectAll({EQ(a.pduTriggerings[0].id, "PT_A_DYN"), EQ(a.pduTriggerings[0].pduId, "PDU_DYN"),
               EQ(a.pduTriggerings[0].timingKind, 2)});
    ASSERT_EQ(a.frameTriggerings.size(), 2u);
    expectAll({EQ(a.frameTriggerings[0].id, "FT_A_DYN"), EQ(a.frameTriggerings[1].id, "FT_A_ENG"),
               EQ(a.frameTriggerings[1].slotId, 12)});
    const Channel& b = entry(db.channels, "CH_B");
    expectAll({EQ(b.shortName, "FlexRay_B"), EQ(b.desc, ""), EQ(b.flexrayChannelName, "B"),
               EQ(b.channelMask, 2)});
    ASSERT_EQ(b.frameTriggerings.size(), 2u);
    EXPECT_EQ(b.frameTriggerings[1].frameId, "FR_NM");

    EXPECT_EQ(keys(db.pduTriggerings), (Keys{"PT_A_DYN", "PT_B_ENG"}));
    const auto& event = entry(db.pduTriggerings, "PT_A_DYN");
    EXPECT_EQ(event.desc, "dynamics PDU, event driven");
    EXPECT_EQ(event.timingKind, 2);
    EXPECT_DOUBLE_EQ(event.debounceTime, 0.05);
    EXPECT_EQ(event.pduId, "PDU_DYN");
    EXPECT_EQ(event.pdu, addressOf(db.pdus, "PDU_DYN"));
    const auto& cyclic = entry(db.pduTriggerings, "PT_B_ENG");
    EXPECT_EQ(cyclic.timingKind, 1);
    EXPECT_EQ(cyclic.debounceTime, 0.0);
    EXPECT_EQ(cyclic.pdu, addressOf(db.pdus, "PDU_ENG"));
    // The PDU takes the timing kind of its triggering.
    EXPECT_EQ(entry(db.pdus, "PDU_DYN").timingKind, 2);
    EXPECT_EQ(entry(db.pdus, "PDU_ENG").timingKind, 1);
}

TEST_F(FibexTest, FrameTriggeringsAndTheFrameSchedule) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(keys(db.frameTriggerings), (Keys{"FT_A_DYN", "FT_A_ENG", "FT_B_DYN", "FT_B_NM"}));
    const auto& t = entry(db.frameTriggerings, "FT_A_DYN");
    EXPECT_EQ(t.desc, "dynamics frame on A");
    EXPECT_EQ(t.frameId, "FR_DYN");
    EXPECT_EQ(t.frame, addressOf(db.frames, "FR_DYN"));
    expectAll({EQ(t.identifierType, ""), EQ(t.extendedAddressing, false), EQ(t.identifier, 0u),
               EQ(t.applicationProtocol, ""), EQ(t.slotId, 5), EQ(t.baseCycle, 0),
               EQ(t.cycleRepetition, 1)});
    const auto& nmTrigger = entry(db.frameTriggerings, "FT_B_NM");
    expectAll(
        {EQ(nmTrigger.slotId, 60), EQ(nmTrigger.baseCycle, 3), EQ(nmTrigger.cycleRepetition, 8)});

    struct Case {
        const char* frame;
        int slot, base, repetition, mask;
    };
    const Case cases[] = {
        {"FR_DYN", 5, 0, 1, 3},  // triggered on both channels
        {"FR_ENG", 12, 1, 4, 1},
        {"FR_NM", 60, 3, 8, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.frame);
        const auto& f = entry(db.frames, c.frame);
        expectAll({EQ(f.slotId, c.slot), EQ(f.baseCycle, c.base),
                   EQ(f.cycleRepetition, c.repetition), EQ(f.channelMask, c.mask)});
    }
}

TEST_F(FibexTest, LastTriggeringDecidesTheSchedule) {
    loadOk("frame-triggerings-schedule.xml");
    // FrameX: scheduled on A, then triggered on B without timing: no schedule left.
    const auto& x = entry(db.frames, "FR_X");
    expectAll(
        {EQ(x.channelMask, 3), EQ(x.slotId, 0), EQ(x.baseCycle, 0), EQ(x.cycleRepetition, 0)});
    EXPECT_EQ(entry(db.frameTriggerings, "FT_X_A").slotId, 7);
    EXPECT_EQ(entry(db.frameTriggerings, "FT_X_A").baseCycle, 2);
    EXPECT_EQ(entry(db.frameTriggerings, "FT_X_A").cycleRepetition, 8);
    EXPECT_EQ(entry(db.frameTriggerings, "FT_X_B").slotId, 0);

    // FrameY: the other way round; the frame keeps 8 bits of base cycle and repetition, the
    // triggering 16.
    const auto& y = entry(db.frames, "FR_Y");
    EXPECT_EQ(y.channelMask, 3);
    EXPECT_EQ(y.slotId, 2100);
    EXPECT_EQ(y.baseCycle, 300 % 256);
    EXPECT_EQ(y.cycleRepetition, 260 % 256);
    const auto& yb = entry(db.frameTriggerings, "FT_Y_B");
    expectAll({EQ(yb.slotId, 2100), EQ(yb.baseCycle, 300), EQ(yb.cycleRepetition, 260)});

    // FrameZ: twice on the same channel; the second one wins, the mask stays 1.
    const auto& z = entry(db.frames, "FR_Z");
    expectAll(
        {EQ(z.channelMask, 1), EQ(z.slotId, 31), EQ(z.baseCycle, 2), EQ(z.cycleRepetition, 4)});
    EXPECT_EQ(entry(db.frameTriggerings, "FT_Z_1").slotId, 30);
}

TEST_F(FibexTest, ChannelFaultsAndChannelNames) {
    loadOk("channel-errors.xml");
    // Without SHORT-NAME the channel is dropped with its triggerings.
    EXPECT_EQ(keys(db.channels), (Keys{"CH_C", "CH_LOWER_A", "CH_LOWER_B", "CH_UNNAMED"}));
    EXPECT_EQ(keys(db.pduTriggerings), (Keys{"PT_EVENT", "PT_ONE"}));
    EXPECT_EQ(keys(db.frameTriggerings), (Keys{"FT_C", "FT_LOWER_A", "FT_LOWER_B"}));
    const auto& lonely = entry(db.frames, "FR_ONLY_IN_NAMELESS");
    EXPECT_EQ(lonely.channelMask, 0);
    EXPECT_EQ(lonely.slotId, 0);

    // Channel names compare without regard to case.
    struct Case {
        const char* channel;
        const char* name;
        int mask;
        const char* frame;
    };
    const Case cases[] = {
        {"CH_LOWER_A", "a", 1, "FR_ON_LOWER_A"},
        {"CH_LOWER_B", "b", 2, "FR_ON_LOWER_B"},
        {"CH_C", "C", 0, "FR_ON_C"},
        {"CH_UNNAMED", "", 0, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.channel);
        EXPECT_EQ(entry(db.channels, c.channel).flexrayChannelName, c.name);
        EXPECT_EQ(entry(db.channels, c.channel).channelMask, c.mask);
        if (c.frame) {
            EXPECT_EQ(entry(db.frames, c.frame).channelMask, c.mask);
        }
    }
    EXPECT_EQ(entry(db.channels, "CH_UNNAMED").desc, "no FLEXRAY-CHANNEL-NAME");
    EXPECT_EQ(entry(db.frames, "FR_ON_LOWER_A").slotId, 2);
    EXPECT_EQ(entry(db.frames, "FR_ON_LOWER_B").slotId, 3);
    EXPECT_EQ(entry(db.frames, "FR_ON_C").slotId, 0);

    const auto& event = entry(db.pduTriggerings, "PT_EVENT");
    EXPECT_EQ(event.timingKind, 2);
    EXPECT_DOUBLE_EQ(event.debounceTime, 1.25);
    EXPECT_EQ(entry(db.pdus, "PDU_TWO").timingKind, 2);
    EXPECT_EQ(entry(db.pduTriggerings, "PT_ONE").desc, "plain triggering");
    EXPECT_EQ(entry(db.pdus, "PDU_ONE").timingKind, 1);
}

// ---- ECUs, controllers, connectors, ports --------------------------------------------------

TEST_F(FibexTest, ControllerParametersFieldByField) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(keys(db.controllers), (Keys{"CTRL_BRK", "CTRL_ENG", "CTRL_GW"}));
    const Controller& c = entry(db.controllers, "CTRL_GW");
    expectAll({EQ(c.shortName, "GatewayCtrl"), EQ(c.desc, "gateway communication controller"),
               EQ(c.type, "flexray:CONTROLLER-TYPE"), EQ(c.j1939NodeAddress, 0u),
               EQ(c.j1939NodeName, 0u), EQ(c.keySlotUsageStartupSync, 5u),
               EQ(c.maxDynamicPayloadLength, 127u), EQ(c.clusterDriftDamping, 2u)});
    expectAll({EQ(c.decodingCorrection, 56u), EQ(c.maxDrift, 601u), EQ(c.latestTx, 249u),
               EQ(c.microPerCycle, 200000u), EQ(c.microPerMacroNom, 40u),
               EQ(c.offsetCorrectionOut, 383u), EQ(c.rateCorrectionOut, 602u),
               EQ(c.delayCompensationA, 11u)});
    expectAll({EQ(c.delayCompensationB, 13u), EQ(c.listenTimeout, 401202u),
               EQ(c.externOffsetCorrection, 7u), EQ(c.externRateCorrection, 3u),
               EQ(c.wakeUpPattern, 33u), EQ(c.allowHaltDueToClock, true),
               EQ(c.allowPassiveToActive, 17u), EQ(c.acceptedStartupRange, 212u)});
    expectAll({EQ(c.macroInitialOffsetA, 14u), EQ(c.macroInitialOffsetB, 15u),
               EQ(c.microInitialOffsetA, 23u), EQ(c.microInitialOffsetB, 29u),
               EQ(c.singleSlotEnabled, 1u), EQ(c.microtick, 0.025f)});

    // Parameters absent from the file are 0.
    const Controller& eng = entry(db.controllers, "CTRL_ENG");
    expectAll({EQ(eng.shortName, "EngineCtrl"), EQ(eng.keySlotUsageStartupSync, 12u),
               EQ(eng.latestTx, 240u), EQ(eng.microtick, 0.0125f), EQ(eng.maxDrift, 0u),
               EQ(eng.listenTimeout, 0u), EQ(eng.allowHaltDueToClock, false)});
    const Controller& brk = entry(db.controllers, "CTRL_BRK");
    EXPECT_EQ(brk.keySlotUsageStartupSync, 0u);
    EXPECT_EQ(brk.microtick, 0.0f);
}

TEST_F(FibexTest, ConnectorsAndPorts) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(keys(db.connectors),
              (Keys{"CONN_BRK_A", "CONN_BRK_B", "CONN_ENG_A", "CONN_GW_A", "CONN_GW_B"}));
    EXPECT_EQ(keys(db.inputPorts), (Keys{"IP_BRK_DYN_A", "IP_BRK_DYN_B", "IP_BRK_ENG", "IP_ENG_DYN",
                                         "IP_GW_ENG", "IP_GW_NM"}));
    EXPECT_EQ(keys(db.outputPorts), (Keys{"OP_ENG_ENG", "OP_GW_DYN_A", "OP_GW_DYN_B"}));

    const auto& conn = entry(db.connectors, "CONN_GW_A");
    expectAll({EQ(conn.desc, "gateway on A"), EQ(conn.channelId, "CH_A"),
               EQ(conn.controllerId, "CTRL_GW")});
    EXPECT_EQ(conn.channel, addressOf(db.channels, "CH_A"));
    EXPECT_EQ(conn.controller, addressOf(db.controllers, "CTRL_GW"));
    EXPECT_TRUE(conn.wakeUpChannel);
    EXPECT_EQ(conn.inputPortCount, 1u);
    ASSERT_EQ(conn.inputPorts.size(), 1u);
    EXPECT_EQ(conn.inputPorts[0].frameTriggeringId, "FT_A_ENG");
    EXPECT_EQ(conn.inputPorts[0].frameTriggering, addressOf(db.frameTriggerings, "FT_A_ENG"));
    EXPECT_EQ(conn.inputPorts[0].completeFrame, "engine-complete");
    EXPECT_EQ(conn.outputPortCount, 1u);
    ASSERT_EQ(conn.outputPorts.size(), 1u);
    EXPECT_EQ(conn.outputPorts[0].frameTriggeringId, "FT_A_DYN");
    EXPECT_EQ(conn.outputPorts[0].frameTriggering, addressOf(db.frameTriggerings, "FT_A_DYN"));
    EXPECT_EQ(conn.outputPorts[0].completeFrame, "");
    ASSERT_NE(conn.outputPorts[0].frameTriggering, nullptr);
    EXPECT_EQ(conn.outputPorts[0].frameTriggering->slotId, 5);  // channels before ECUs

    const auto& b = entry(db.connectors, "CONN_GW_B");
    EXPECT_EQ(b.channel, addressOf(db.channels, "CH_B"));
    EXPECT_FALSE(b.wakeUpChannel);
    const auto& brk = entry(db.connectors, "CONN_BRK_A");
    EXPECT_EQ(brk.inputPortCount, 2u);
    ASSERT_EQ(brk.inputPorts.size(), 2u);
    expectAll({EQ(brk.inputPorts[0].frameTriggeringId, "FT_A_DYN"),
               EQ(brk.inputPorts[1].frameTriggeringId, "FT_A_ENG"), EQ(brk.outputPortCount, 0u)});
    EXPECT_TRUE(brk.outputPorts.empty());

    const auto& port = entry(db.inputPorts, "IP_GW_NM");
    EXPECT_EQ(port.frameTriggeringId, "FT_B_NM");
    EXPECT_EQ(port.frameTriggering, addressOf(db.frameTriggerings, "FT_B_NM"));
    EXPECT_EQ(entry(db.outputPorts, "OP_ENG_ENG").frameTriggeringId, "FT_A_ENG");
}

void expectGateway(const Ecu& ecu, const BusDatabase& db) {
    expectAll({EQ(ecu.shortName, "Gateway"), EQ(ecu.desc, "central gateway"),
               EQ(ecu.controllerCount, 1u)});
    ASSERT_EQ(ecu.controllers.size(), 1u);
    expectAll({EQ(ecu.controllers[0].shortName, "GatewayCtrl"),
               EQ(ecu.controllers[0].listenTimeout, 401202u), EQ(ecu.connectorCount, 2u)});
    ASSERT_EQ(ecu.connectors.size(), 2u);
    EXPECT_EQ(ecu.connectors[0].channelId, "CH_A");
    EXPECT_EQ(ecu.connectors[1].channelId, "CH_B");
    EXPECT_EQ(ecu.connectors[1].controller, addressOf(db.controllers, "CTRL_GW"));
    EXPECT_EQ(ecu.connectors[1].outputPorts.at(0).frameTriggeringId, "FT_B_DYN");
}

TEST_F(FibexTest, EcuIsCopiedIntoThreeContainers) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(keys(db.ecus), (Keys{"ECU_BRK", "ECU_ENG", "ECU_GW"}));
    EXPECT_EQ(keys(db.ecusByName), (Keys{"BrakeEcu", "EngineEcu", "Gateway"}));
    ASSERT_EQ(db.ecuList.size(), 3u);
    expectAll({EQ(db.ecuList[0].first, "ECU_GW"), EQ(db.ecuList[1].first, "ECU_ENG"),
               EQ(db.ecuList[2].first, "ECU_BRK")});
    {
        SCOPED_TRACE("ecus");
        expectGateway(entry(db.ecus, "ECU_GW"), db);
    }
    {
        SCOPED_TRACE("ecusByName");
        expectGateway(entry(db.ecusByName, "Gateway"), db);
    }
    {
        SCOPED_TRACE("ecuList");
        expectGateway(db.ecuList[0].second, db);
    }
    const Ecu& brake = entry(db.ecus, "ECU_BRK");
    EXPECT_EQ(brake.desc, "brake control");
    EXPECT_EQ(brake.connectorCount, 2u);
    EXPECT_EQ(db.ecuList[2].second.connectors.size(), 2u);
    EXPECT_EQ(entry(db.ecusByName, "EngineEcu").controllers.at(0).latestTx, 240u);
}

TEST_F(FibexTest, EcuFaultsDropTheOneElement) {
    loadOk("ecu-errors.xml");
    EXPECT_EQ(keys(db.controllers), Keys{"CTRL_GOOD"});
    EXPECT_EQ(keys(db.connectors), Keys{"CONN_PORT_FAULTS"});
    EXPECT_EQ(keys(db.inputPorts), Keys{"IP_GOOD"});
    EXPECT_EQ(keys(db.outputPorts), Keys{"OP_GOOD"});
    const Ecu& ecu = entry(db.ecus, "ECU_FAULTS");
    // Counts are the lengths of the lists in the file, dropped elements included.
    EXPECT_EQ(ecu.controllerCount, 2u);
    EXPECT_EQ(ecu.connectorCount, 3u);
    ASSERT_EQ(ecu.controllers.size(), 1u);
    EXPECT_EQ(ecu.controllers[0].shortName, "GoodController");
    EXPECT_TRUE(ecu.controllers[0].allowHaltDueToClock);
    ASSERT_EQ(ecu.connectors.size(), 1u);
    const auto& conn = ecu.connectors[0];
    expectAll({EQ(conn.desc, "ports with and without a triggering"), EQ(conn.inputPortCount, 2u),
               EQ(conn.outputPortCount, 2u)});
    ASSERT_EQ(conn.inputPorts.size(), 1u);
    EXPECT_EQ(conn.inputPorts[0].completeFrame, "kept-input");
    ASSERT_EQ(conn.outputPorts.size(), 1u);
    EXPECT_EQ(conn.outputPorts[0].completeFrame, "kept-output");
    EXPECT_EQ(conn.outputPorts[0].frameTriggering, addressOf(db.frameTriggerings, "FT_1"));
}

// ---- clusters ------------------------------------------------------------------------------

TEST_F(FibexTest, ClusterParametersFieldByField) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(keys(db.clusters), Keys{"CL_PT"});
    const auto& c = entry(db.clusters, "CL_PT");
    expectAll({EQ(c.shortName, "PowertrainCluster"),
               EQ(c.desc, "FlexRay backbone of the powertrain"), EQ(c.speed, 10000000u),
               EQ(c.isHighLowBitOrder, false), EQ(c.bitCountingPolicy, "SAWTOOTH"),
               EQ(c.protocol, "FlexRay")});
    EXPECT_EQ(c.channels, (std::vector<kelo::fibex::Channel*>{
                              const_cast<Channel*>(addressOf(db.channels, "CH_A")),
                              const_cast<Channel*>(addressOf(db.channels, "CH_B"))}));
    expectAll({EQ(c.medium, "FlexRay"), EQ(c.maxFrameLength, 254u), EQ(c.coldStartAttempts, 8u),
               EQ(c.actionPointOffset, 4u), EQ(c.dynamicSlotIdlePhase, 1u), EQ(c.minislot, 6u),
               EQ(c.minislotActionPointOffset, 3u), EQ(c.nit, 44u)});
    expectAll({EQ(c.staticSlot, 24u), EQ(c.symbolWindow, 13u), EQ(c.tssTransmitter, 9u),
               EQ(c.wakeUpSymbolRxIdle, 59u), EQ(c.wakeUpSymbolRxLow, 50u),
               EQ(c.wakeUpSymbolRxWindow, 301u), EQ(c.wakeUpSymbolTxIdle, 180u),
               EQ(c.wakeUpSymbolTxLow, 60u)});
    expectAll({EQ(c.listenNoise, 2u), EQ(c.macroPerCycle, 5000u), EQ(c.macrotick, 11u),
               EQ(c.maxInitializationError, 7u), EQ(c.maxWithoutClockCorrectionFatal, 14u),
               EQ(c.maxWithoutClockCorrectionPassive, 10u),
               EQ(c.networkManagementVectorLength, 12u), EQ(c.numberOfMinislots, 289u)});
    expectAll({EQ(c.numberOfStaticSlots, 91u), EQ(c.offsetCorrectionStart, 4981u),
               EQ(c.payloadLengthStatic, 16u), EQ(c.syncNodeMax, 15u), EQ(c.casRxLowMax, 87u),
               EQ(c.cycle, 4999u), EQ(c.clusterDriftDamping, 1.5f), EQ(c.applicationProtocol, "")});
    ASSERT_EQ(c.channels.size(), 2u);
    EXPECT_EQ(c.channels[0]->shortName, "FlexRay_A");  // channels before clusters
}

TEST_F(FibexTest, ClusterWithoutNumberOfStaticSlotsIsKept) {
    loadOk("cluster-without-number-of-static-slots.xml");
    EXPECT_EQ(keys(db.clusters), (Keys{"CL_BARE", "CL_NO_STATIC_SLOTS"}));
    const auto& c = entry(db.clusters, "CL_NO_STATIC_SLOTS");
    expectAll({EQ(c.shortName, "NoStaticSlots"), EQ(c.numberOfStaticSlots, 0u),
               EQ(c.speed, 5000000u), EQ(c.isHighLowBitOrder, true),
               EQ(c.bitCountingPolicy, "MONOTONE"), EQ(c.macroPerCycle, 3636u)});
    ASSERT_EQ(c.channels.size(), 1u);
    EXPECT_EQ(c.channels[0], addressOf(db.channels, "CH_ONLY"));
    // Absent items: bit order true, the rest empty.
    const auto& bare = entry(db.clusters, "CL_BARE");
    expectAll({EQ(bare.isHighLowBitOrder, true), EQ(bare.speed, 0u), EQ(bare.protocol, ""),
               EQ(bare.medium, "")});
    EXPECT_TRUE(bare.channels.empty());
    EXPECT_EQ(bare.numberOfStaticSlots, 2u);
}

// ---- manufacturer extension ----------------------------------------------------------------

TEST_F(FibexTest, NiXnetExtension) {
    loadOk("ni-xnet-extension.xml");
    const auto& j1939 = entry(db.clusters, "CL_J1939");
    expectAll({EQ(j1939.applicationProtocol, "J1939"), EQ(j1939.speed, 250000u),
               EQ(j1939.protocol, "CAN"), EQ(j1939.medium, "CAN"),
               EQ(j1939.isHighLowBitOrder, false), EQ(j1939.numberOfStaticSlots, 0u)});
    EXPECT_EQ(entry(db.clusters, "CL_PLAIN_CAN").applicationProtocol, "");

    const auto& eec1 = entry(db.frameTriggerings, "FT_EEC1");
    expectAll({EQ(eec1.identifierType, "fx:CAN-IDENTIFIER-VALUE-TYPE"),
               EQ(eec1.extendedAddressing, true), EQ(eec1.identifier, 217056510u),
               EQ(eec1.applicationProtocol, "J1939"), EQ(eec1.slotId, 0)});
    const auto& standard = entry(db.frameTriggerings, "FT_STD");
    expectAll({EQ(standard.desc, "standard identifier, no extension"),
               EQ(standard.identifierType, ""), EQ(standard.extendedAddressing, false),
               EQ(standard.identifier, 291u), EQ(standard.applicationProtocol, "")});
    EXPECT_EQ(entry(db.frames, "FR_EEC1").channelMask, 0);

    const auto& ctrl = entry(db.controllers, "CTRL_J1939");
    expectAll({EQ(ctrl.shortName, "EngineJ1939"), EQ(ctrl.desc, "J1939 node of the engine"),
               EQ(ctrl.type, "can:CONTROLLER-TYPE"), EQ(ctrl.j1939NodeAddress, 38u),
               EQ(ctrl.j1939NodeName, 0xA00C81045A20021Bull)});
    EXPECT_EQ(entry(db.outputPorts, "OP_EEC1").frameTriggering,
              addressOf(db.frameTriggerings, "FT_EEC1"));
}

}  // namespace
