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

constexpr int kCodings = 40;
constexpr int kPdus = 80;
constexpr int kPerPdu = 5;
constexpr int kSignals = kPdus * kPerPdu;
constexpr int kFrames = kPdus;

std::string n(const char* prefix, int k) {
    return prefix + std::to_string(k);
}

std::string codingOf(int signal) {
    return signal % 37 == 5 ? n("COD_GHOST_", signal) : n("COD_", signal % kCodings);
}

bool hasUpdateBit(int instance) {
    return instance % 7 == 0;
}

struct Layout {
    std::vector<int> signalOfInstance;  // PDU j holds instances kPerPdu*j .. kPerPdu*j+4
    std::vector<int> pduOfFrame;
    std::string xml;
};

std::vector<int> shuffled(int count, std::mt19937& rng) {
    std::vector<int> order(static_cast<std::size_t>(count));
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), rng);
    return order;
}

Layout generate(unsigned seed) {
    std::mt19937 rng(seed);
    Layout l;
    l.signalOfInstance = shuffled(kSignals, rng);
    l.pduOfFrame = shuffled(kPdus, rng);
    std::string& x = l.xml;
    x = "<?xml version=\"1.0\"?>\n<fx:FIBEX xmlns:fx=\"http://www.asam.net/xml/fbx\" "
        "xmlns:ho=\"http://www.asam.net/xml\" xmlns:flexray=\"http://www.asam.net/xml/fbx/"
        "flexray\" VERSION=\"3.1.0\">\n<fx:ELEMENTS>\n<fx:CHANNELS><fx:CHANNEL ID=\"CH_A\">"
        "<ho:SHORT-NAME>A</ho:SHORT-NAME><fx:FRAME-TRIGGERINGS>\n";
    for (int j : shuffled(kFrames, rng)) {
        x += "<fx:FRAME-TRIGGERING ID=\"" + n("FT_", j) +
             "\"><fx:TIMINGS><fx:ABSOLUTELY-SCHEDULED-TIMING><fx:SLOT-ID>" + std::to_string(j + 1) +
             "</fx:SLOT-ID><fx:BASE-CYCLE>" + std::to_string(j % 4) +
             "</fx:BASE-CYCLE><fx:CYCLE-REPETITION>4</fx:CYCLE-REPETITION>"
             "</fx:ABSOLUTELY-SCHEDULED-TIMING></fx:TIMINGS><fx:FRAME-REF ID-REF=\"" +
             n("FR_", j) + "\"/></fx:FRAME-TRIGGERING>\n";
    }
    x += "</fx:FRAME-TRIGGERINGS><flexray:FLEXRAY-CHANNEL-NAME>A</flexray:FLEXRAY-CHANNEL-NAME>"
         "</fx:CHANNEL></fx:CHANNELS>\n<fx:PDUS>\n";
    for (int j : shuffled(kPdus, rng)) {
        x += "<fx:PDU ID=\"" + n("PDU_", j) + "\"><ho:SHORT-NAME>" + n("Pdu", j) +
             "</ho:SHORT-NAME><fx:BYTE-LENGTH>8</fx:BYTE-LENGTH><fx:SIGNAL-INSTANCES>";
        for (int t = 0; t < kPerPdu; ++t) {
            const int i = kPerPdu * j + t;
            x += "<fx:SIGNAL-INSTANCE ID=\"" + n("SI_", i) + "\"><fx:BIT-POSITION>" +
                 std::to_string(8 * t + j % 8) + "</fx:BIT-POSITION><fx:IS-HIGH-LOW-BYTE-ORDER>" +
                 ((j + t) % 2 ? "true" : "false") + "</fx:IS-HIGH-LOW-BYTE-ORDER>";
            if (hasUpdateBit(i))
                x += "<fx:SIGNAL-UPDATE-BIT-POSITION>" + std::to_string(60 + t) +
                     "</fx:SIGNAL-UPDATE-BIT-POSITION>";
            x += "<fx:SIGNAL-REF ID-REF=\"" + n("SIG_", l.signalOfInstance[i]) +
                 "\"/></fx:SIGNAL-INSTANCE>";
        }
        if (j % 10 == 0)
            x += "<fx:SIGNAL-INSTANCE ID=\"" + n("SI_GHOST_", j) +
                 "\"><fx:BIT-POSITION>3</fx:BIT-POSITION><fx:IS-HIGH-LOW-BYTE-ORDER>true"
                 "</fx:IS-HIGH-LOW-BYTE-ORDER><fx:SIGNAL-REF ID-REF=\"" +
                 n("SIG_GHOST_", j) + "\"/></fx:SIGNAL-INSTANCE>";
        x += "</fx:SIGNAL-INSTANCES></fx:PDU>\n";
    }
    x += "</fx:PDUS>\n<fx:FRAMES>\n";
    for (int f : shuffled(kFrames, rng)) {
        x += "<fx:FRAME ID=\"" + n("FR_", f) + "\"><ho:SHORT-NAME>" + n("Frame", f) +
             "</ho:SHORT-NAME><fx:BYTE-LENGTH>16</fx:BYTE-LENGTH><fx:PDU-INSTANCES>"
             "<fx:PDU-INSTANCE ID=\"" +
             n("PI_", f) + "\"><fx:PDU-REF ID-REF=\"" + n("PDU_", l.pduOfFrame[f]) +
             "\"/><fx:BIT-POSITION>0</fx:BIT-POSITION></fx:PDU-INSTANCE>";
        if (f % 9 == 0)
            x += "<fx:PDU-INSTANCE ID=\"" + n("PI_GHOST_", f) + "\"><fx:PDU-REF ID-REF=\"" +
                 n("PDU_GHOST_", f) + "\"/><fx:BIT-POSITION>64</fx:BIT-POSITION></fx:PDU-INSTANCE>";
        x += "</fx:PDU-INSTANCES></fx:FRAME>\n";
    }
    x += "</fx:FRAMES>\n<fx:SIGNALS>\n";
    for (int k : shuffled(kSignals, rng)) {
        x += "<fx:SIGNAL ID=\"" + n("SIG_", k) + "\"><ho:SHORT-NAME>" + n("Signal", k) +
             "</ho:SHORT-NAME><fx:DEFAULT-VALUE>" + std::to_string(k) +
             "</fx:DEFAULT-VALUE><fx:CODING-REF ID-REF=\"" + codingOf(k) + "\"/></fx:SIGNAL>\n";
    }
    x += "</fx:SIGNALS>\n</fx:ELEMENTS>\n<fx:PROCESSING-INFORMATION><fx:CODINGS>\n";
    for (int c : shuffled(kCodings, rng)) {
        x += "<fx:CODING ID=\"" + n("COD_", c) + "\"><ho:SHORT-NAME>" + n("Coding", c) +
             "</ho:SHORT-NAME><ho:CODED-TYPE CATEGORY=\"STANDARD-LENGTH-TYPE\" ENCODING=\"" +
             (c % 2 ? "SIGNED" : "UNSIGNED") + "\"><ho:BIT-LENGTH>" + std::to_string(c + 1) +
             "</ho:BIT-LENGTH></ho:CODED-TYPE></fx:CODING>\n";
    }
    x += "</fx:CODINGS></fx:PROCESSING-INFORMATION>\n</fx:FIBEX>\n";
    return l;
}

TEST_F(FibexTest, ShuffledRecordsAndReferences) {
    for (unsigned seed : {1u, 20240611u, 987654321u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const Layout l = generate(seed);
        ScratchDir dir;
        reader.ReadFIBEXData(dir.write("shuffled.xml", l.xml));
        ASSERT_TRUE(reader.loaded);

        for (int c = 0; c < kCodings; ++c) {
            const auto& coding = entry(db.codings, n("COD_", c));
            EXPECT_EQ(coding.shortName, n("Coding", c));
            EXPECT_EQ(coding.bitLength, c + 1);
            EXPECT_EQ(coding.isSigned, c % 2 == 1);
        }
        std::vector<int> frameOfPdu(kPdus);
        for (int f = 0; f < kFrames; ++f)
            frameOfPdu[static_cast<std::size_t>(l.pduOfFrame[f])] = f;

        for (int i = 0; i < kSignals; ++i) {
            const int j = i / kPerPdu, t = i % kPerPdu;
            const int k = l.signalOfInstance[static_cast<std::size_t>(i)];
            SCOPED_TRACE(n("SIG_", k));
            const auto& s = entry(db.signals, n("SIG_", k));
            EXPECT_EQ(s.shortName, n("Signal", k));
            EXPECT_EQ(s.defaultValue, static_cast<double>(k));
            EXPECT_EQ(s.coding, addressOf(db.codings, codingOf(k)));
            EXPECT_EQ(s.pduId, n("PDU_", j));
            EXPECT_EQ(s.bitPosition, 8 * t + j % 8);
            EXPECT_EQ(s.isHighLowByteOrder, (j + t) % 2 == 1);
            EXPECT_EQ(entry(db.signalsByName, n("Signal", k)), &s);
            const auto* frame = addressOf(db.frames, n("FR_", frameOfPdu[static_cast<size_t>(j)]));
            EXPECT_EQ(s.frame, frame);
            EXPECT_EQ(s.secondFrame, nullptr);
            EXPECT_EQ(entry(db.signalInstances, n("SI_", i)).signal, &s);
            if (hasUpdateBit(i)) {
                const auto& ub = entry(db.signals, n("SIG_", k) + "_UB");
                EXPECT_EQ(ub.shortName, n("Signal", k) + "_UB");
                EXPECT_EQ(ub.bitPosition, 60 + t);
                EXPECT_EQ(ub.frame, frame);
                EXPECT_EQ(entry(db.signalsByName, n("Signal", k) + "_UB"), &ub);
            } else {
                EXPECT_EQ(db.signals.count(n("SIG_", k) + "_UB"), 0u);
            }
        }
        for (int k = 0; k < kSignals; ++k) {
            if (codingOf(k).rfind("COD_GHOST_", 0) == 0) {
                EXPECT_EQ(entry(db.codings, codingOf(k)).shortName, "");
            }
        }
        int ghostPdus = 0, ghostSignals = 0;
        for (int f = 0; f < kFrames; ++f) {
            SCOPED_TRACE(n("FR_", f));
            const auto& frame = entry(db.frames, n("FR_", f));
            EXPECT_EQ(frame.shortName, n("Frame", f));
            EXPECT_EQ(frame.slotId, f + 1);
            EXPECT_EQ(frame.baseCycle, f % 4);
            EXPECT_EQ(frame.cycleRepetition, 4);
            EXPECT_EQ(frame.channelMask, 1);
            EXPECT_EQ(frame.pduInstances.at(0).pdu, addressOf(db.pdus, n("PDU_", l.pduOfFrame[f])));
            EXPECT_EQ(db.frameNameAt(static_cast<std::uint16_t>(f + 1),
                                     static_cast<std::uint8_t>(f % 4 + 4)),
                      n("Frame", f));
            EXPECT_EQ(entry(db.frameTriggerings, n("FT_", f)).frame, &frame);
            if (f % 9 == 0) {
                ++ghostPdus;
                EXPECT_EQ(entry(db.pdus, n("PDU_GHOST_", f)).shortName, "");
            }
        }
        for (int j = 0; j < kPdus; j += 10) {
            ++ghostSignals;
            const auto& ghost = entry(db.signals, n("SIG_GHOST_", j));
            EXPECT_EQ(ghost.pduId, n("PDU_", j));
            EXPECT_EQ(ghost.bitPosition, 3);
        }
        EXPECT_EQ(db.pdus.size(), static_cast<std::size_t>(kPdus + ghostPdus));
        EXPECT_EQ(db.signalInstances.size(), static_cast<std::size_t>(kSignals + ghostSignals));
        EXPECT_EQ(db.frames.size(), static_cast<std::size_t>(kFrames));
    }
}

}  // namespace
