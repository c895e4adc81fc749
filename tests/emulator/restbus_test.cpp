// The restbus played from a database: its schedule, and what a host opened through the exports
// receives and decodes with the library's own database functions.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "restbus.h"
#include "support/device_harness.h"

namespace kelo_testing {
namespace {

using kelo::emu::Restbus;

struct Timing {
    const char* frame;
    unsigned slot, base, repetition, channels;  // channels: bit 0 A, bit 1 B
};
struct Range {
    const char* signal;
    double min, max;
};
struct Case {
    const char* name;
    const char* path;  // below tests/data
    bool autosar;
    const char* cluster;
    std::vector<std::string> ecus;
    unsigned cycleMicros;
    std::vector<Timing> schedule;  // slot order
    std::vector<Range> ranges;     // a few signals' physical ranges, from their codings
    unsigned slowSlot;             // a repetition-4 slot
};

const Case kCases[] = {
    {"PowertrainFibex",
     "../../examples/powertrain-flexray.xml",
     false,
     "PowertrainFlexRay",
     {"EngineControl"},
     5000,
     {{"EngineData", 1, 0, 1, 3},
      {"EngineTemps", 4, 0, 2, 1},
      {"EngineStatus", 7, 0, 4, 1},
      {"VehicleState", 11, 0, 8, 3},
      {"NetworkManagement", 12, 3, 8, 1}},
     {{"EngineSpeed", 0, 16383.75},
      {"EngineTorque", -1024, 1023.5},
      {"CoolantTemperature", -40, 215}},
     7},
    {"ChassisAutosar",
     "../../examples/chassis-flexray-4.2.arxml",
     true,
     "",
     {"EngineControl"},
     5000,
     {{"Engine_Status_Frame", 1, 0, 1, 3},
      {"Gearbox_Frame", 5, 0, 2, 1},
      {"Odometer_Frame", 7, 0, 4, 1},
      {"Engine_NM_Frame", 9, 0, 1, 1}},
     {{"EngineSpeed", 0, 16383.75}, {"EngineTemp", -40, 215}, {"EngineAlive", 0, 15}},
     7},
    {"PackagesAutosar",
     "autosar/read-all-packages-4.2.arxml",
     true,
     "BodyFlexRay",
     {},
     5000,
     {{"/Body/Communication/Frames/BodyCtrl/Status", 5, 0, 1, 1},
      {"/Body/Communication/Frames/Gateway/Deep/Deeper/Status", 6, 1, 2, 1},
      {"Fast", 10, 0, 2, 1},
      {"Fast", 11, 1, 2, 1},
      {"Slow", 20, 3, 4, 1}},
     {},
     20},
};

std::string pathOf(const Case& c) {
    return std::string(KELO_TEST_DATA_DIR) + "/" + c.path;
}

class RestbusFromDatabase : public ::testing::TestWithParam<Case> {};

TEST_P(RestbusFromDatabase, EveryScheduledSlotArrivesWithMovingValuesInRange) {
    const Case& c = GetParam();
    Restbus restbus;
    std::string error;
    ASSERT_TRUE(restbus.load(pathOf(c), c.cluster, c.ecus, &error)) << error;
    EXPECT_EQ(restbus.cycleMicros(), c.cycleMicros);

    // The schedule, and every cell (slot, cycle) it fills.
    std::map<std::pair<unsigned, unsigned>, const Timing*> cells;
    ASSERT_EQ(restbus.schedule().size(), c.schedule.size());
    for (std::size_t i = 0; i < c.schedule.size(); ++i) {
        const Timing& t = c.schedule[i];
        const Restbus::Slot& s = restbus.schedule()[i];
        EXPECT_EQ(
            std::make_tuple(restbus.frames()[s.frame].name, unsigned(s.slot), unsigned(s.baseCycle),
                            unsigned(s.repetition), unsigned(s.channels)),
            std::make_tuple(std::string(t.frame), t.slot, t.base, t.repetition, t.channels))
            << "schedule row " << i;
        for (unsigned cycle = t.base; cycle < 64; cycle += t.repetition)
            cells[{t.slot, cycle}] = &t;
    }
    std::map<std::string, const Restbus::Signal*> signals;
    for (const Restbus::Frame& f : restbus.frames())
        for (const Restbus::Signal& s : f.signals)
            signals[s.name] = &s;
    for (const Range& r : c.ranges) {
        ASSERT_EQ(signals.count(r.signal), 1u) << r.signal;
        EXPECT_DOUBLE_EQ(signals[r.signal]->physMin, r.min) << r.signal;
        EXPECT_DOUBLE_EQ(signals[r.signal]->physMax, r.max) << r.signal;
    }
    // The host's own transmit buffer in a slot takes that slot's channels out of the restbus.
    Restbus probe = restbus;
    const unsigned first = c.schedule.front().slot;
    for (const kelo::emu::FlexRayEntry& e :
         probe.cycleEntries(0, [first](std::uint16_t slot) { return slot == first ? 3 : 0; }))
        EXPECT_NE(e.slot, first);

    // Over the wire: the host starts the node and the uploads, and receives.
    ExportDevice dev;
    ASSERT_TRUE(dev.emu.loadRestbus(pathOf(c), c.cluster, c.ecus, &error)) << error;
    dev.emu.setCyclePeriodMs(2);
    ASSERT_EQ(c.autosar ? KFr_AutoSar_OpenEx(pathOf(c).c_str(), KELO_DB_READ_ALL)
                        : KFr_Fibex_OpenEx(pathOf(c).c_str(), KELO_DB_READ_ALL),
              0);
    ASSERT_TRUE(dev.open());
    ASSERT_EQ(KFr_Start_Node_Wrapper(dev.idx(), 0), 0);
    ASSERT_EQ(KFr_StartFrRxUpload_Wrapper(dev.idx(), 0), 0);

    std::set<std::pair<unsigned, unsigned>> seen;
    std::map<std::string, std::set<float>> values;
    unsigned char header[28], payload[510];
    for (int records = 0; seen.size() < cells.size() && records < 20000; ++records) {
        ASSERT_EQ(KFr_Receive_Wrapper(dev.idx(), header, payload, 5000), 0)
            << seen.size() << " of " << cells.size() << " cells seen";
        const unsigned slot = header[16] | (header[17] << 8), cycle = header[19];
        const auto cell = cells.find({slot, cycle});
        ASSERT_NE(cell, cells.end()) << "slot " << slot << " cycle " << cycle;
        EXPECT_EQ(header[18], cell->second->channels) << "slot " << slot;
        seen.insert(cell->first);
        for (const Restbus::Frame& f : restbus.frames()) {
            if (f.name != cell->second->frame) continue;
            EXPECT_EQ(header[20], (f.length + 1) / 2) << f.name;
            for (const Restbus::Signal& s : f.signals) {
                float value = -1.0f;
                ASSERT_EQ(c.autosar
                              ? KFr_AutoSar_decodeSignal(header, payload, s.name.c_str(), &value)
                              : KFr_Fibex_decodeSignal(header, payload, s.name.c_str(), &value),
                          0)
                    << s.name;
                const double slack = 1e-3 + 1e-6 * (s.physMax - s.physMin);
                EXPECT_GE(value, s.physMin - slack) << s.name;
                EXPECT_LE(value, s.physMax + slack) << s.name;
                values[s.name].insert(value);
            }
        }
    }
    EXPECT_EQ(seen.size(), cells.size());
    EXPECT_FALSE(signals.empty());
    EXPECT_EQ(values.size(), signals.size()) << "every signal decoded";
    for (const auto& [name, seenValues] : values) {
        if (signals[name]->motion == Restbus::Motion::UpdateBit)
            EXPECT_EQ(seenValues, std::set<float>{1.0f}) << name;
        else
            EXPECT_GT(seenValues.size(), 1u) << name << " does not move";
    }
    // The repetition-4 slot came in exactly its 16 cycles.
    std::set<unsigned> slowCycles;
    for (const auto& [slot, cycle] : seen)
        if (slot == c.slowSlot) slowCycles.insert(cycle);
    EXPECT_EQ(slowCycles.size(), 16u);
    dev.close();
    c.autosar ? KFr_AutoSar_Close() : KFr_Fibex_Close();
}

INSTANTIATE_TEST_SUITE_P(Databases, RestbusFromDatabase, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
}  // namespace kelo_testing
