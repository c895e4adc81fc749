// ID-REF resolution (a dangling reference quietly creates an empty record under its ID, and a
// generated file of shuffled records resolves as if each were looked up alone) and what the load
// derives beside the records: the frames that carry each signal and the slot-by-cycle table.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;
using kelo::fibex::Frame;
using Names = std::vector<std::string>;

// Frame names of one slot for cycles 0..63.
Names cyclesOf(const BusDatabase& db, std::uint16_t slot) {
    Names names;
    for (unsigned cycle = 0; cycle < 64; ++cycle)
        names.push_back(db.frameNameAt(slot, static_cast<std::uint8_t>(cycle)));
    return names;
}
// Names for cycles base, base + repetition, ... below 64; "" elsewhere.
Names expectedCycles(const std::string& name, unsigned base, unsigned repetition) {
    Names names(64);
    for (unsigned cycle = base; cycle < 64; cycle += repetition)
        names[cycle] = name;
    return names;
}
const Names kNone(64);

TEST_F(FibexTest, DanglingReferencesCreateEmptyRecords) {
    loadOk("dangling-references.xml");
    const auto& coding = entry(db.codings, "COD_GHOST");
    expectAll(
        {EQ(coding.shortName, ""), EQ(entry(db.signals, "SIG_REAL").coding, &coding),
         EQ(entry(db.codings, "COD_REAL").compuMethods.at(0).unit, addressOf(db.units, "U_GHOST")),
         EQ(entry(db.units, "U_GHOST").displayName, "")});
    // A signal made by a dangling SIGNAL-REF has no coding but its placement; its update bit
    // takes the (empty) name of the signal it belongs to.
    const auto& ghost = entry(db.signals, "SIG_GHOST");
    expectAll({EQ(ghost.shortName, ""), EQ(ghost.coding, nullptr), EQ(ghost.pduId, "PDU_REAL"),
               EQ(ghost.bitPosition, 24), EQ(ghost.frame, nullptr),
               EQ(entry(db.signals, "SIG_REAL").frame, nullptr),
               EQ(entry(db.signals, "SIG_GHOST_UB").shortName, "_UB"),
               EQ(entry(db.signalsByName, "_UB"), addressOf(db.signals, "SIG_GHOST_UB")),
               EQ(db.signalsByName.count(""), 0u)});
    const auto& pdu = entry(db.pdus, "PDU_GHOST_OF_TRIGGERING");
    expectAll({EQ(pdu.shortName, ""), EQ(pdu.timingKind, 1),
               EQ(entry(db.pduTriggerings, "PT_GHOST").pdu, &pdu),
               EQ(entry(db.frames, "FR_REAL").pduInstances.at(0).pdu,
                  addressOf(db.pdus, "PDU_GHOST_OF_FRAME"))});
    // A frame made by a triggering takes its schedule but no name.
    const auto& frame = entry(db.frames, "FR_GHOST");
    expectAll({EQ(frame.byteLength, 0), EQ(schedule(frame), "33 1/2 2"),
               EQ(db.framesByName.count(""), 0u)});
    const auto& conn = entry(db.connectors, "CONN_GHOSTS");
    expectAll({EQ(conn.channel, addressOf(db.channels, "CH_GHOST_OF_CONNECTOR")),
               EQ(entry(db.controllers, "CTRL_GHOST").shortName, ""),
               EQ(conn.controller, addressOf(db.controllers, "CTRL_GHOST")),
               EQ(entry(db.inputPorts, "IP_GHOST").frameTriggering,
                  addressOf(db.frameTriggerings, "FT_GHOST_OF_INPUT")),
               EQ(entry(db.frameTriggerings, "FT_GHOST_OF_INPUT").frame, nullptr)});
    const auto& cluster = entry(db.clusters, "CL_DANGLING");
    ASSERT_EQ(cluster.channels.size(), 2u);
    EXPECT_EQ(cluster.channels[1], addressOf(db.channels, "CH_GHOST_OF_CLUSTER"));

    // Empty keys are keys like any other: a FRAME-REF without ID-REF finds the FRAME without ID.
    db.Clear();
    loadOk("frame-and-frame-ref-without-ids.xml");
    expectAll({EQ(entry(db.frames, "").shortName, "FrameWithoutId"),
               EQ(entry(db.frameTriggerings, "FT").frame, addressOf(db.frames, ""))});
}

std::string n(const char* prefix, int k) {
    return prefix + std::to_string(k);
}
std::string tag(const std::string& name, const std::string& text) {
    return "<" + name + ">" + text + "</" + name + ">";
}
// <fx:NAME ID="id"><ho:SHORT-NAME>shortName</ho:SHORT-NAME>body</fx:NAME>.
std::string fx(const std::string& name, const std::string& id, const std::string& shortName,
               const std::string& body) {
    return "<fx:" + name + " ID=\"" + id + "\">" + tag("ho:SHORT-NAME", shortName) + body +
           "</fx:" + name + ">";
}
std::string ref(const std::string& name, const std::string& id) {
    return "<fx:" + name + "-REF ID-REF=\"" + id + "\"/>";
}

// 60 PDUs in shuffled order, IDs whose text order differs from their numeric order: PDU j holds
// the signals order[4j..4j+3] and sits in frame j (slot j + 1); every tenth PDU has one more
// instance pointing at a signal that does not exist; odd signals name a missing coding.
TEST_F(FibexTest, ShuffledRecordsAndReferences) {
    constexpr int kPdus = 60, kPerPdu = 4, kSignals = kPdus * kPerPdu;
    std::mt19937 rng(20240611u);
    const auto shuffled = [&rng](int count) {
        std::vector<int> order(static_cast<std::size_t>(count));
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), rng);
        return order;
    };
    const std::vector<int> order = shuffled(kSignals);
    std::string x = "<fx:FIBEX xmlns:fx=\"f\" xmlns:ho=\"h\" VERSION=\"3.1.0\"><fx:ELEMENTS>";
    std::string triggerings, pdus, frames, signals;
    for (int j : shuffled(kPdus)) {
        triggerings +=
            fx("FRAME-TRIGGERING", n("FT_", j), "",
               "<fx:TIMINGS><fx:ABSOLUTELY-SCHEDULED-TIMING>" +
                   tag("fx:SLOT-ID", std::to_string(j + 1)) +
                   "</fx:ABSOLUTELY-SCHEDULED-TIMING></fx:TIMINGS>" + ref("FRAME", n("FR_", j)));
        frames +=
            fx("FRAME", n("FR_", j), n("Frame", j),
               "<fx:BYTE-LENGTH>8</fx:BYTE-LENGTH><fx:PDU-INSTANCES><fx:PDU-INSTANCE ID=\"" +
                   n("PI_", j) + "\">" + ref("PDU", n("PDU_", j)) +
                   "<fx:BIT-POSITION>0</fx:BIT-POSITION></fx:PDU-INSTANCE></fx:PDU-INSTANCES>");
        std::string instances;
        for (int t = 0, i = kPerPdu * j; t < kPerPdu + (j % 10 == 0); ++t, ++i)
            instances += "<fx:SIGNAL-INSTANCE ID=\"" + n(t < kPerPdu ? "SI_" : "SI_GHOST_", i) +
                         "\">" + tag("fx:BIT-POSITION", std::to_string(8 * t + j % 8)) +
                         tag("fx:IS-HIGH-LOW-BYTE-ORDER", t % 2 ? "true" : "false") +
                         ref("SIGNAL", t < kPerPdu ? n("SIG_", order[i]) : n("SIG_GHOST_", j)) +
                         "</fx:SIGNAL-INSTANCE>";
        pdus += fx("PDU", n("PDU_", j), n("Pdu", j),
                   "<fx:BYTE-LENGTH>8</fx:BYTE-LENGTH>" + tag("fx:SIGNAL-INSTANCES", instances));
    }
    for (int k : shuffled(kSignals))
        signals += fx("SIGNAL", n("SIG_", k), n("Signal", k),
                      ref("CODING", k % 2 ? n("COD_GHOST_", k) : "COD"));
    x += tag("fx:CHANNELS", fx("CHANNEL", "CH", "A", tag("fx:FRAME-TRIGGERINGS", triggerings))) +
         tag("fx:PDUS", pdus) + tag("fx:FRAMES", frames) + tag("fx:SIGNALS", signals) +
         "</fx:ELEMENTS><fx:PROCESSING-INFORMATION>" +
         tag("fx:CODINGS", fx("CODING", "COD", "C", "")) +
         "</fx:PROCESSING-INFORMATION></fx:FIBEX>";
    ScratchDir dir;
    reader.ReadFIBEXData(dir.write("shuffled.xml", x));
    ASSERT_TRUE(reader.loaded);
    for (int i = 0; i < kSignals; ++i) {
        const int j = i / kPerPdu, t = i % kPerPdu, k = order[static_cast<std::size_t>(i)];
        const auto& s = entry(db.signals, n("SIG_", k));
        SCOPED_TRACE(n("SIG_", k));
        expectAll({EQ(s.shortName, n("Signal", k)), EQ(s.pduId, n("PDU_", j)),
                   EQ(s.bitPosition, 8 * t + j % 8), EQ(s.isHighLowByteOrder, t % 2 == 1),
                   EQ(s.coding, addressOf(db.codings, k % 2 ? n("COD_GHOST_", k) : "COD")),
                   EQ(s.frame, addressOf(db.frames, n("FR_", j))),
                   EQ(entry(db.signalsByName, n("Signal", k)), &s),
                   EQ(entry(db.signalInstances, n("SI_", i)).signal, &s),
                   EQ(db.frameNameAt(static_cast<std::uint16_t>(j + 1), 0), n("Frame", j))});
    }
    expectAll({EQ(entry(db.signals, "SIG_GHOST_10").pduId, "PDU_10"),
               EQ(db.codings.size(), 1u + kSignals / 2),
               EQ(db.signals.size(), kSignals + kPdus / 10), EQ(db.frames.size(), kPdus)});
}

// A signal links the frames of the PDU that placed it last: the first two in document order (a
// dropped frame or PDU instance carries nothing, two instances in one frame count once); an
// update-bit signal links its parent's first frame twice.
TEST_F(FibexTest, SignalsLinkTheFramesOfTheirPdu) {
    loadOk("small-flexray-cluster.xml");
    const Frame* dyn = addressOf(db.frames, "FR_DYN");
    expectAll({EQ(entry(db.signals, "SIG_SPEED").frame, dyn),
               EQ(entry(db.signals, "SIG_SPEED").secondFrame, nullptr),
               EQ(entry(db.signals, "SIG_SPEED_UB").secondFrame, dyn),
               EQ(entry(db.signals, "SIG_RPM").frame, addressOf(db.frames, "FR_ENG"))});
    db.Clear();
    loadOk("pdu-in-several-frames.xml");
    const Frame* first = addressOf(db.frames, "FR_3_FIRST");
    expectAll(
        {EQ(entry(db.signals, "SIG_CARRIED").frame, first),
         EQ(entry(db.signals, "SIG_CARRIED").secondFrame, addressOf(db.frames, "FR_1_SECOND")),
         EQ(entry(db.signals, "SIG_CARRIED_UB").secondFrame, first),
         EQ(entry(db.signals, "SIG_ORPHAN").pduId, "PDU_ORPHAN"),
         EQ(entry(db.signals, "SIG_ORPHAN").frame, nullptr),
         EQ(entry(db.signals, "SIG_UNPLACED").frame, nullptr)});
    db.Clear();
    loadOk("signal-in-two-pdus.xml");
    const auto& s = entry(db.signals, "SIG_SHARED");
    const auto& first2 = entry(db.signalInstances, "SI_SHARED_FIRST");
    expectAll({EQ(s.frame, addressOf(db.frames, "FR_SECOND")), EQ(s.secondFrame, nullptr),
               EQ(s.pduId, "PDU_SECOND"), EQ(s.bitPosition, 40), EQ(s.isHighLowByteOrder, true),
               EQ(first2.bitPosition, 4), EQ(first2.signal, &s)});
}

TEST_F(FibexTest, SlotTable) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(cyclesOf(db, 12), expectedCycles("EngineFrame", 1, 4));
    EXPECT_EQ(cyclesOf(db, 60), expectedCycles("NmFrame", 3, 8));

    // Two frames on slot 40: the first in document order keeps its cycles, whatever the order
    // of the triggerings or of the IDs; the other fills the rest.
    reader.ReadFIBEXData(fibexFile("slot-table.xml"));
    EXPECT_EQ(db.frameNameAt(5, 0), "") << "replaced with the file";
    Names slot40 = expectedCycles("SecondInDocument", 0, 1);
    for (unsigned cycle = 0; cycle < 64; cycle += 2)
        slot40[cycle] = "FirstInDocument";
    EXPECT_EQ(cyclesOf(db, 40), slot40);
    EXPECT_EQ(cyclesOf(db, 1), expectedCycles("EveryCycle", 3, 1)) << "no repetition";
    EXPECT_EQ(entry(db.frames, "FR_BASE_HIGH").baseCycle, 70);
    EXPECT_EQ(cyclesOf(db, 2), kNone) << "a base of 64 or more occupies nothing";
    EXPECT_EQ(cyclesOf(db, 3), expectedCycles("OncePerRound", 5, 64));
    EXPECT_EQ(cyclesOf(db, 4), expectedCycles("BaseAboveRepetition", 10, 4));
    // Slot 0 and frames that exist only through a dangling FRAME-REF are not scheduled.
    EXPECT_EQ(cyclesOf(db, 0), kNone);
    EXPECT_EQ(entry(db.frames, "FR_NOT_IN_FILE").slotId, 50);
    EXPECT_EQ(cyclesOf(db, 50), kNone);
    // The frame's last schedule counts, not each triggering's (see ChannelsAndFrameSchedules).
    reader.ReadFIBEXData(fibexFile("frame-triggerings-schedule.xml"));
    EXPECT_EQ(cyclesOf(db, 7), kNone);
}

}  // namespace
