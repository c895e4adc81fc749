// A generated file with a few hundred records in shuffled order, IDs whose text order differs
// from their numeric order, and dangling references mixed in: every record and link must come
// out as if each had been looked up on its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;

constexpr int kPdus = 60, kPerPdu = 4, kSignals = kPdus * kPerPdu;

std::string n(const char* prefix, int k) {
    return prefix + std::to_string(k);
}
std::string tag(const std::string& name, const std::string& text) {
    return "<" + name + ">" + text + "</" + name + ">";
}
std::string ref(const char* name, const std::string& id) {
    return std::string("<fx:") + name + " ID-REF=\"" + id + "\"/>";
}
std::vector<int> shuffled(int count, std::mt19937& rng) {
    std::vector<int> order(static_cast<std::size_t>(count));
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), rng);
    return order;
}

// PDU j holds the signals order[4j..4j+3] and sits in frame j (slot j + 1); every tenth PDU has
// one more instance pointing at a signal that does not exist; odd signals name a missing coding.
TEST_F(FibexTest, ShuffledRecordsAndReferences) {
    for (unsigned seed : {1u, 20240611u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 rng(seed);
        const std::vector<int> order = shuffled(kSignals, rng);
        std::string x =
            "<fx:FIBEX xmlns:fx=\"f\" xmlns:ho=\"h\" VERSION=\"3.1.0\"><fx:ELEMENTS>"
            "<fx:CHANNELS><fx:CHANNEL ID=\"CH\"><ho:SHORT-NAME>A</ho:SHORT-NAME>"
            "<fx:FRAME-TRIGGERINGS>";
        for (int j : shuffled(kPdus, rng))
            x += "<fx:FRAME-TRIGGERING ID=\"" + n("FT_", j) +
                 "\"><fx:TIMINGS><fx:ABSOLUTELY-SCHEDULED-TIMING>" +
                 tag("fx:SLOT-ID", std::to_string(j + 1)) +
                 "</fx:ABSOLUTELY-SCHEDULED-TIMING></fx:TIMINGS>" + ref("FRAME-REF", n("FR_", j)) +
                 "</fx:FRAME-TRIGGERING>";
        x += "</fx:FRAME-TRIGGERINGS></fx:CHANNEL></fx:CHANNELS><fx:PDUS>";
        for (int j : shuffled(kPdus, rng)) {
            x += "<fx:PDU ID=\"" + n("PDU_", j) + "\"><ho:SHORT-NAME>" + n("Pdu", j) +
                 "</ho:SHORT-NAME><fx:BYTE-LENGTH>8</fx:BYTE-LENGTH><fx:SIGNAL-INSTANCES>";
            for (int t = 0; t <= kPerPdu; ++t) {
                if (t == kPerPdu && j % 10 != 0) break;
                const int i = kPerPdu * j + t;
                x += "<fx:SIGNAL-INSTANCE ID=\"" + n(t < kPerPdu ? "SI_" : "SI_GHOST_", i) + "\">" +
                     tag("fx:BIT-POSITION", std::to_string(8 * t + j % 8)) +
                     tag("fx:IS-HIGH-LOW-BYTE-ORDER", t % 2 ? "true" : "false") +
                     ref("SIGNAL-REF", t < kPerPdu ? n("SIG_", order[i]) : n("SIG_GHOST_", j)) +
                     "</fx:SIGNAL-INSTANCE>";
            }
            x += "</fx:SIGNAL-INSTANCES></fx:PDU>";
        }
        x += "</fx:PDUS><fx:FRAMES>";
        for (int f : shuffled(kPdus, rng))
            x += "<fx:FRAME ID=\"" + n("FR_", f) + "\"><ho:SHORT-NAME>" + n("Frame", f) +
                 "</ho:SHORT-NAME><fx:BYTE-LENGTH>8</fx:BYTE-LENGTH><fx:PDU-INSTANCES>"
                 "<fx:PDU-INSTANCE ID=\"" +
                 n("PI_", f) + "\">" + ref("PDU-REF", n("PDU_", f)) +
                 "<fx:BIT-POSITION>0</fx:BIT-POSITION></fx:PDU-INSTANCE></fx:PDU-INSTANCES>"
                 "</fx:FRAME>";
        x += "</fx:FRAMES><fx:SIGNALS>";
        for (int k : shuffled(kSignals, rng))
            x += "<fx:SIGNAL ID=\"" + n("SIG_", k) + "\"><ho:SHORT-NAME>" + n("Signal", k) +
                 "</ho:SHORT-NAME>" + ref("CODING-REF", k % 2 ? n("COD_GHOST_", k) : "COD") +
                 "</fx:SIGNAL>";
        x += "</fx:SIGNALS></fx:ELEMENTS><fx:PROCESSING-INFORMATION><fx:CODINGS><fx:CODING "
             "ID=\"COD\"><ho:SHORT-NAME>C</ho:SHORT-NAME></fx:CODING></fx:CODINGS>"
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
        EXPECT_EQ(entry(db.signals, "SIG_GHOST_10").pduId, "PDU_10");
        EXPECT_EQ(db.codings.size(), 1u + kSignals / 2);
        EXPECT_EQ(db.signals.size(), static_cast<std::size_t>(kSignals + kPdus / 10));
        EXPECT_EQ(db.frames.size(), static_cast<std::size_t>(kPdus));
    }
}

}  // namespace
