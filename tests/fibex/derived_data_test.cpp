// What the load derives beside the records: the frames that carry each signal and the
// slot-by-cycle table of frame names.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;
using kelo::fibex::Frame;

// Frame names of one slot for cycles 0..63.
std::vector<std::string> cyclesOf(const BusDatabase& db, std::uint16_t slot) {
    std::vector<std::string> names;
    for (unsigned cycle = 0; cycle < 64; ++cycle)
        names.push_back(db.frameNameAt(slot, static_cast<std::uint8_t>(cycle)));
    return names;
}

// Names for cycles base, base + repetition, ... below 64; "" elsewhere.
std::vector<std::string> expectedCycles(const std::string& name, unsigned base,
                                        unsigned repetition) {
    std::vector<std::string> names(64);
    for (unsigned cycle = base; cycle < 64; cycle += repetition)
        names[cycle] = name;
    return names;
}

// ---- signal frames -------------------------------------------------------------------------

TEST_F(FibexTest, SignalsLinkTheFrameOfTheirPdu) {
    loadOk("small-flexray-cluster.xml");
    const Frame* dyn = addressOf(db.frames, "FR_DYN");
    const Frame* eng = addressOf(db.frames, "FR_ENG");
    ASSERT_NE(dyn, nullptr);
    ASSERT_NE(eng, nullptr);
    struct Case {
        const char* signal;
        const Frame* frame;
        const Frame* secondFrame;
    };
    const Case cases[] = {
        {"SIG_SPEED", dyn, nullptr}, {"SIG_GEAR", dyn, nullptr},
        {"SIG_RPM", eng, nullptr},   {"SIG_TEMP", eng, nullptr},
        {"SIG_SPEED_UB", dyn, dyn},  {"SIG_TEMP_UB", eng, eng},  // both the parent's frame
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.signal);
        EXPECT_EQ(entry(db.signals, c.signal).frame, c.frame);
        EXPECT_EQ(entry(db.signals, c.signal).secondFrame, c.secondFrame);
    }
}

TEST_F(FibexTest, PduInSeveralFramesLinksTheFirstTwoInDocumentOrder) {
    loadOk("pdu-in-several-frames.xml");
    const Frame* first = addressOf(db.frames, "FR_3_FIRST");
    const Frame* second = addressOf(db.frames, "FR_1_SECOND");
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    // A dropped frame and a dropped PDU instance carry nothing; two instances in one frame count
    // once; IDs do not decide the order.
    const auto& carried = entry(db.signals, "SIG_CARRIED");
    EXPECT_EQ(carried.frame, first);
    EXPECT_EQ(carried.secondFrame, second);
    const auto& ub = entry(db.signals, "SIG_CARRIED_UB");
    EXPECT_EQ(ub.frame, first);
    EXPECT_EQ(ub.secondFrame, first);

    // A PDU that no frame carries, and a signal that no PDU places: no frames.
    EXPECT_EQ(entry(db.signals, "SIG_ORPHAN").pduId, "PDU_ORPHAN");
    EXPECT_EQ(entry(db.signals, "SIG_ORPHAN").frame, nullptr);
    EXPECT_EQ(entry(db.signals, "SIG_ORPHAN").secondFrame, nullptr);
    EXPECT_EQ(entry(db.signals, "SIG_ORPHAN_UB").frame, nullptr);
    EXPECT_EQ(entry(db.signals, "SIG_ORPHAN_UB").secondFrame, nullptr);
    EXPECT_EQ(entry(db.signals, "SIG_UNPLACED").frame, nullptr);
    EXPECT_EQ(entry(db.signals, "SIG_UNPLACED").secondFrame, nullptr);
}

TEST_F(FibexTest, SignalFollowsThePduThatPlacedItLast) {
    loadOk("signal-in-two-pdus.xml");
    // PDU_SECOND placed the signal last; its frame comes first in the document.
    const auto& s = entry(db.signals, "SIG_SHARED");
    EXPECT_EQ(s.frame, addressOf(db.frames, "FR_SECOND"));
    EXPECT_EQ(s.secondFrame, nullptr);
}

TEST_F(FibexTest, FilesWithoutPduStepLeaveSignalsUnplaced) {
    for (const char* file : {"version-2.0.1-no-pdus.xml", "version-1.2.0a.xml"}) {
        SCOPED_TRACE(file);
        reader.ReadFIBEXData(fibexFile(file));
        ASSERT_TRUE(reader.loaded);
        ASSERT_EQ(db.signals.size(), 1u);
        EXPECT_EQ(db.signals.begin()->second.frame, nullptr);
        EXPECT_EQ(db.signals.begin()->second.secondFrame, nullptr);
    }
    // The same content as 3.0 places the signal in its frame.
    reader.ReadFIBEXData(fibexFile("version-3.0.0.xml"));
    EXPECT_EQ(entry(db.signals, "SIG_V").frame, addressOf(db.frames, "FR_V"));
}

TEST_F(FibexTest, DanglingSignalReferenceInAnUncarriedPdu) {
    loadOk("dangling-references.xml");
    EXPECT_EQ(entry(db.signals, "SIG_GHOST").frame, nullptr);
    EXPECT_EQ(entry(db.signals, "SIG_REAL").frame, nullptr);
}

// ---- slot table ----------------------------------------------------------------------------

TEST_F(FibexTest, SlotTableOfARealisticFile) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(cyclesOf(db, 5), expectedCycles("DynamicsFrame", 0, 1));
    EXPECT_EQ(cyclesOf(db, 12), expectedCycles("EngineFrame", 1, 4));
    EXPECT_EQ(cyclesOf(db, 60), expectedCycles("NmFrame", 3, 8));
    EXPECT_EQ(cyclesOf(db, 6), std::vector<std::string>(64));
    EXPECT_EQ(db.frameNameAt(5, 64), "");
    EXPECT_EQ(db.frameNameAt(12, 200), "");
    std::vector<std::uint16_t> slots;
    for (const auto& row : db.frameNamesBySlot)
        slots.push_back(row.first);
    EXPECT_EQ(slots, (std::vector<std::uint16_t>{5, 12, 60}));
}

TEST_F(FibexTest, SlotTableRules) {
    loadOk("slot-table.xml");
    // Two frames on slot 40: the first in document order keeps its cycles, whatever the order
    // of the triggerings or of the IDs; the other fills the rest.
    std::vector<std::string> slot40 = expectedCycles("SecondInDocument", 0, 1);
    for (unsigned cycle = 0; cycle < 64; cycle += 2)
        slot40[cycle] = "FirstInDocument";
    EXPECT_EQ(cyclesOf(db, 40), slot40);
    // No repetition: every cycle from the base on.
    EXPECT_EQ(cyclesOf(db, 1), expectedCycles("EveryCycle", 3, 1));
    // A base of 64 or more occupies nothing.
    EXPECT_EQ(entry(db.frames, "FR_BASE_HIGH").baseCycle, 70);
    EXPECT_EQ(cyclesOf(db, 2), std::vector<std::string>(64));
    EXPECT_EQ(cyclesOf(db, 3), expectedCycles("OncePerRound", 5, 64));
    // Cycles start at the base, not at base mod repetition.
    EXPECT_EQ(cyclesOf(db, 4), expectedCycles("BaseAboveRepetition", 10, 4));
    EXPECT_EQ(db.frameNameAt(4, 2), "");
    // Slot 0 and frames that exist only through a dangling FRAME-REF are not scheduled.
    EXPECT_EQ(cyclesOf(db, 0), std::vector<std::string>(64));
    EXPECT_EQ(entry(db.frames, "FR_NOT_IN_FILE").slotId, 50);
    EXPECT_EQ(cyclesOf(db, 50), std::vector<std::string>(64));
}

TEST_F(FibexTest, SlotTableFollowsTheFramesLastSchedule) {
    loadOk("frame-triggerings-schedule.xml");
    // FrameX was scheduled in slot 7 by its first triggering only.
    EXPECT_EQ(cyclesOf(db, 7), std::vector<std::string>(64));
    EXPECT_EQ(cyclesOf(db, 0), std::vector<std::string>(64));
    EXPECT_EQ(cyclesOf(db, 2100), expectedCycles("FrameY", 300 % 256, 260 % 256));
    EXPECT_EQ(cyclesOf(db, 31), expectedCycles("FrameZ", 2, 4));
    EXPECT_EQ(cyclesOf(db, 30), std::vector<std::string>(64));
}

TEST_F(FibexTest, SlotTableIsReplacedWithTheFile) {
    reader.ReadFIBEXData(fibexFile("small-flexray-cluster.xml"));
    ASSERT_EQ(db.frameNameAt(5, 0), "DynamicsFrame");
    reader.ReadFIBEXData(fibexFile("update-bits.xml"));
    EXPECT_EQ(db.frameNameAt(5, 0), "");
    EXPECT_EQ(cyclesOf(db, 21), expectedCycles("BodyFrame", 0, 2));
}

}  // namespace
