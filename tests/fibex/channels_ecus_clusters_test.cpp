// The channel, ECU and cluster steps: triggerings and the frame schedule they set, a few
// controller and cluster parameters (the database export tests read every field through the
// parameter blocks), the links the exports follow, and the faults that drop an element.
#include <gtest/gtest.h>

#include <string>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;
using kelo::fibex::Ecu;

TEST_F(FibexTest, ChannelsAndFrameSchedules) {
    loadOk("small-flexray-cluster.xml");
    const auto& a = entry(db.channels, "CH_A");
    expectAll({EQ(a.flexrayChannelName, "A"), EQ(a.channelMask, 1),
               EQ(entry(db.channels, "CH_B").channelMask, 2), EQ(a.frameTriggerings.size(), 2u)});
    // The PDU takes the timing kind of its triggering.
    expectAll({EQ(entry(db.pduTriggerings, "PT_A_DYN").pdu, addressOf(db.pdus, "PDU_DYN")),
               EQ(entry(db.pdus, "PDU_DYN").timingKind, 2),
               EQ(entry(db.pdus, "PDU_ENG").timingKind, 1)});

    // Each frame keeps the schedule of its last triggering (none when that one has no timing),
    // 8 bits of base cycle and repetition, and the channels of all.
    const auto sched = [this](const char* name) { return schedule(entry(db.frames, name)); };
    expectAll({EQ(sched("FR_DYN"), "5 0/1 3"), EQ(sched("FR_ENG"), "12 1/4 1")});
    reader.ReadFIBEXData(fibexFile("frame-triggerings-schedule.xml"));
    expectAll({EQ(sched("FR_X"), "0 0/0 3"), EQ(sched("FR_Y"), "2100 44/4 3"),  // 300, 260
               EQ(sched("FR_Z"), "31 2/4 1")});
    const auto& yb = entry(db.frameTriggerings, "FT_Y_B");
    expectAll({EQ(yb.baseCycle, 300), EQ(yb.cycleRepetition, 260),
               EQ(entry(db.frameTriggerings, "FT_X_A").slotId, 7),
               EQ(entry(db.frameTriggerings, "FT_Z_1").slotId, 30)});
}

// Without SHORT-NAME a channel is dropped with its triggerings; channel names compare without
// regard to case.
TEST_F(FibexTest, ChannelFaultsAndChannelNames) {
    loadOk("channel-errors.xml");
    EXPECT_EQ(keys(db.channels), (Keys{"CH_C", "CH_LOWER_A", "CH_LOWER_B", "CH_UNNAMED"}));
    EXPECT_EQ(keys(db.pduTriggerings), (Keys{"PT_EVENT", "PT_ONE"}));
    EXPECT_EQ(keys(db.frameTriggerings), (Keys{"FT_C", "FT_LOWER_A", "FT_LOWER_B"}));
    expectAll({EQ(entry(db.frames, "FR_ONLY_IN_NAMELESS").channelMask, 0),
               EQ(entry(db.channels, "CH_LOWER_B").channelMask, 2),
               EQ(entry(db.frames, "FR_ON_LOWER_B").channelMask, 2),
               EQ(entry(db.channels, "CH_C").channelMask, 0),
               EQ(entry(db.pduTriggerings, "PT_EVENT").debounceTime, 1.25)});
}

// The parameter values themselves reach callers through the parameter blocks (the database
// interface tests); here what stays outside them, and an absent parameter reads 0.
TEST_F(FibexTest, ControllerAndClusterParameters) {
    loadOk("small-flexray-cluster.xml");
    const auto& cl = entry(db.clusters, "CL_PT");
    expectAll({EQ(entry(db.controllers, "CTRL_GW").allowHaltDueToClock, true),
               EQ(entry(db.controllers, "CTRL_ENG").maxDrift, 0u),
               EQ(entry(db.controllers, "CTRL_BRK").microtick, 0.0f),
               EQ(cl.isHighLowBitOrder, false), EQ(cl.channels.size(), 2u),
               EQ(cl.channels.at(0)->shortName, "FlexRay_A")});  // channels before clusters

    // Without NUMBER-OF-STATIC-SLOTS the cluster is kept; absent items: bit order true, the rest
    // empty.
    db.Clear();
    loadOk("cluster-without-number-of-static-slots.xml");
    const auto& noSlots = entry(db.clusters, "CL_NO_STATIC_SLOTS");
    const auto& bare = entry(db.clusters, "CL_BARE");
    expectAll({EQ(noSlots.numberOfStaticSlots, 0u), EQ(noSlots.macroPerCycle, 3636u),
               EQ(bare.isHighLowBitOrder, true), EQ(bare.speed, 0u), EQ(bare.protocol, ""),
               EQ(bare.numberOfStaticSlots, 2u)});
}

TEST_F(FibexTest, EcusConnectorsAndPorts) {
    loadOk("small-flexray-cluster.xml");
    const auto& conn = entry(db.connectors, "CONN_GW_A");
    ASSERT_EQ(conn.outputPorts.size(), 1u);
    expectAll({EQ(conn.channel, addressOf(db.channels, "CH_A")),
               EQ(conn.controller, addressOf(db.controllers, "CTRL_GW")),
               EQ(conn.outputPorts[0].frameTriggering->slotId, 5)});  // channels before ECUs

    // Each ECU is copied into the map by ID, the map by name and the list in document order.
    EXPECT_EQ(keys(db.ecusByName), (Keys{"BrakeEcu", "EngineEcu", "Gateway"}));
    ASSERT_EQ(db.ecuList.size(), 3u);
    expectAll({EQ(db.ecuList[0].first, "ECU_GW"), EQ(db.ecuList[2].first, "ECU_BRK")});
    for (const Ecu* ecu : {addressOf(db.ecus, "ECU_GW"), addressOf(db.ecusByName, "Gateway"),
                           static_cast<const Ecu*>(&db.ecuList[0].second)}) {
        ASSERT_NE(ecu, nullptr);
        expectAll(
            {EQ(ecu->connectors.size(), 2u), EQ(ecu->controllers.at(0).listenTimeout, 401202u)});
    }

    // A faulty controller, connector or port is dropped; counts count the file's lists.
    db.Clear();
    loadOk("ecu-errors.xml");
    EXPECT_EQ(keys(db.controllers), Keys{"CTRL_GOOD"});
    EXPECT_EQ(keys(db.connectors), Keys{"CONN_PORT_FAULTS"});
    const Ecu& ecu = entry(db.ecus, "ECU_FAULTS");
    ASSERT_EQ(ecu.connectors.size(), 1u);
    const auto& faulty = ecu.connectors[0];
    expectAll(
        {EQ(ecu.controllerCount, 2u), EQ(ecu.connectorCount, 3u), EQ(ecu.controllers.size(), 1u),
         EQ(faulty.inputPortCount, 2u), EQ(faulty.inputPorts.size(), 1u),
         EQ(faulty.outputPorts.size(), 1u),
         EQ(faulty.outputPorts.at(0).frameTriggering, addressOf(db.frameTriggerings, "FT_1"))});
}

// The NI-XNET extension: the one hexadecimal field, and a text below the manufacturer extension.
TEST_F(FibexTest, NiXnetExtension) {
    loadOk("ni-xnet-extension.xml");
    expectAll({EQ(entry(db.controllers, "CTRL_J1939").j1939NodeName, 0xA00C81045A20021Bull),
               EQ(entry(db.frameTriggerings, "FT_EEC1").applicationProtocol, "J1939")});
}

}  // namespace
