// ID-REF resolution: every dangling reference quietly creates an empty record under its ID, and
// links point into the maps of the same database.
#include <gtest/gtest.h>

#include <string>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;

class DanglingReferences : public FibexTest {
  protected:
    void SetUp() override { loadOk("dangling-references.xml"); }
};

TEST_F(DanglingReferences, CodingAndUnit) {
    EXPECT_EQ(keys(db.codings), (Keys{"COD_GHOST", "COD_REAL"}));
    const auto& ghost = entry(db.codings, "COD_GHOST");
    EXPECT_EQ(ghost.shortName, "");
    EXPECT_EQ(ghost.dataType, 0);
    EXPECT_TRUE(ghost.compuMethods.empty());
    // The signal links the empty coding; a signal made by a dangling SIGNAL-REF has none.
    EXPECT_EQ(entry(db.signals, "SIG_REAL").coding, &ghost);
    EXPECT_EQ(entry(db.signals, "SIG_GHOST").coding, nullptr);
    EXPECT_EQ(entry(db.signals, "SIG_REAL").shortName, "RealSignal");

    const auto& unit = entry(db.units, "U_GHOST");
    EXPECT_EQ(unit.shortName, "");
    EXPECT_EQ(unit.displayName, "");
    const auto& method = entry(db.codings, "COD_REAL").compuMethods.at(0);
    EXPECT_EQ(method.unit, addressOf(db.units, "U_GHOST"));
}

TEST_F(DanglingReferences, SignalOfASignalInstance) {
    const auto& ghost = entry(db.signals, "SIG_GHOST");
    expectAll({EQ(ghost.shortName, ""), EQ(ghost.pduId, "PDU_REAL"), EQ(ghost.bitPosition, 24),
               EQ(ghost.isHighLowByteOrder, true)});
    // Its update bit takes the (empty) name of the signal it belongs to.
    const auto& ub = entry(db.signals, "SIG_GHOST_UB");
    EXPECT_EQ(ub.shortName, "_UB");
    EXPECT_EQ(ub.bitPosition, 55);
    EXPECT_EQ(entry(db.signalsByName, "_UB"), &ub);
    EXPECT_EQ(db.signalsByName.count(""), 0u);
    const auto& pdu = entry(db.pdus, "PDU_REAL");
    ASSERT_EQ(pdu.signalInstances.size(), 1u);
    EXPECT_EQ(pdu.signalInstances[0].signal, &ghost);
}

TEST_F(DanglingReferences, PdusOfAFrameAndOfATriggering) {
    const auto& ofFrame = entry(db.pdus, "PDU_GHOST_OF_FRAME");
    EXPECT_EQ(ofFrame.shortName, "");
    EXPECT_EQ(ofFrame.byteLength, 0);
    EXPECT_EQ(entry(db.frames, "FR_REAL").pduInstances.at(0).pdu, &ofFrame);

    const auto& ofTriggering = entry(db.pdus, "PDU_GHOST_OF_TRIGGERING");
    EXPECT_EQ(ofTriggering.shortName, "");
    EXPECT_EQ(ofTriggering.timingKind, 1);
    EXPECT_EQ(entry(db.pduTriggerings, "PT_GHOST").pdu, &ofTriggering);
}

TEST_F(DanglingReferences, FrameOfATriggeringTakesItsSchedule) {
    const auto& frame = entry(db.frames, "FR_GHOST");
    expectAll({EQ(frame.shortName, ""), EQ(frame.byteLength, 0), EQ(frame.slotId, 33),
               EQ(frame.baseCycle, 1), EQ(frame.cycleRepetition, 2), EQ(frame.channelMask, 2)});
    EXPECT_EQ(entry(db.frameTriggerings, "FT_GHOST").frame, &frame);
    EXPECT_EQ(db.framesByName.count(""), 0u);
}

TEST_F(DanglingReferences, ChannelsControllersAndTriggeringsOfEcusAndClusters) {
    const auto& conn = entry(db.connectors, "CONN_GHOSTS");
    EXPECT_EQ(conn.channel, addressOf(db.channels, "CH_GHOST_OF_CONNECTOR"));
    EXPECT_EQ(conn.controller, addressOf(db.controllers, "CTRL_GHOST"));
    EXPECT_EQ(entry(db.channels, "CH_GHOST_OF_CONNECTOR").shortName, "");
    EXPECT_EQ(entry(db.controllers, "CTRL_GHOST").shortName, "");
    EXPECT_EQ(entry(db.inputPorts, "IP_GHOST").frameTriggering,
              addressOf(db.frameTriggerings, "FT_GHOST_OF_INPUT"));
    EXPECT_EQ(entry(db.outputPorts, "OP_GHOST").frameTriggering,
              addressOf(db.frameTriggerings, "FT_GHOST_OF_OUTPUT"));
    EXPECT_EQ(entry(db.frameTriggerings, "FT_GHOST_OF_INPUT").frame, nullptr);

    const auto& cluster = entry(db.clusters, "CL_DANGLING");
    ASSERT_EQ(cluster.channels.size(), 2u);
    EXPECT_EQ(cluster.channels[0], addressOf(db.channels, "CH_REAL"));
    EXPECT_EQ(cluster.channels[1], addressOf(db.channels, "CH_GHOST_OF_CLUSTER"));
    EXPECT_EQ(entry(db.channels, "CH_GHOST_OF_CLUSTER").channelMask, 0);
}

}  // namespace

// Empty keys are keys like any other: the FRAME-REF without ID-REF finds the FRAME without ID.
using EmptyReferenceKeys = FibexTest;
TEST_F(EmptyReferenceKeys, FrameRefWithoutIdRefFindsTheFrameWithoutId) {
    loadOk("frame-and-frame-ref-without-ids.xml");
    const auto& frame = entry(db.frames, "");
    EXPECT_EQ(frame.shortName, "FrameWithoutId");
    const auto& triggering = entry(db.frameTriggerings, "FT");
    EXPECT_EQ(triggering.frameId, "");
    EXPECT_EQ(triggering.frame, &frame);
    EXPECT_EQ(triggering.slotId, 7);
}
