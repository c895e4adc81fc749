// Documents of the AUTOSAR generator read back: every item the generator reports is in the
// database, and frames beyond the 2000 slots share slots in other base cycles.
#include <gtest/gtest.h>

#include <string>

#include "autosar_generator.h"
#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;

std::string generate(const kelo::gen::AutosarOptions& options, kelo::gen::AutosarStats& stats) {
    std::string text;
    EXPECT_TRUE(kelo::gen::generateAutosar(
        options,
        [&text](const char* data, std::size_t size) {
            text.append(data, size);
            return true;
        },
        &stats));
    EXPECT_EQ(stats.bytes, text.size());
    return text;
}

TEST_F(AutosarTest, GeneratedDocumentReadsBackCompletely) {
    kelo::gen::AutosarOptions options;
    options.frames = 2010;
    options.signalsPerFrame = 2;
    options.ecus = 5;
    options.seed = 7;
    kelo::gen::AutosarStats stats;
    const std::string text = generate(options, stats);
    ASSERT_EQ(reader.LoadText(text), 0);
    EXPECT_EQ(db.frames.size(), stats.frames);
    EXPECT_EQ(db.pdus.size(), stats.pdus);
    EXPECT_EQ(db.signals.size(), stats.signals + stats.updateBitSignals);
    EXPECT_EQ(db.units.size(), stats.units + 1) << "text tables name no unit: the empty-name one";
    EXPECT_EQ(db.compuMethods.size(), stats.compuMethods);
    EXPECT_EQ(db.ecus.size(), stats.ecus);
    EXPECT_EQ(db.frameTriggerings.size(), stats.frameTriggerings);
    EXPECT_EQ(db.ecuPorts.size() + db.ports.size(), stats.ports);
    EXPECT_EQ(entry(db.clusters, "Backbone").frameNames.size(), stats.frames);

    for (const auto& [name, frame] : db.frames) {
        EXPECT_NE(frame.slotId, 0) << name;
        EXPECT_EQ(frame.senderEcus.size(), 1u) << name;
        EXPECT_EQ(frame.pdus.size(), 1u) << name;
    }
    // Frame 2000 shares slot 1 with frame 0, one cycle later; both repeat every 64 cycles.
    EXPECT_EQ(db.frameNameAt(1, 0), "Frame0");
    EXPECT_EQ(db.frameNameAt(1, 1), "Frame2000");
    EXPECT_EQ(db.frameNameAt(1, 2), "");
    EXPECT_EQ(entry(db.frames, "Frame2000").cycleRepetition, 64);

    kelo::gen::AutosarStats again;
    EXPECT_EQ(generate(options, again), text) << "the same options and seed give the same bytes";
}

}  // namespace
