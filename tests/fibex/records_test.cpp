// The unit, coding, signal, PDU and frame steps: records field by field (one row per field), the
// data-type and type-code tables, and the faults that drop an element or keep it half read.
#include <gtest/gtest.h>

#include <string>

#include "xml/reader_test_support.h"

namespace {

using namespace kelo_test;
using kelo::fibex::CompuMethod;
using kelo::fibex::CompuScale;

// A linear scale: text-table fields keep their reset values.
void expectLinear(const CompuScale& r, float offset, float factor, float denominator) {
    expectAll({EQ(r.offset, offset), EQ(r.factor, factor), EQ(r.denominator, denominator),
               EQ(r.lowerLimit, 0u), EQ(r.upperLimit, 0u), EQ(r.lowerLimitValue, -kFltMax),
               EQ(r.upperLimitValue, kFltMax), EQ(r.text, "")});
}
// A text-table entry: linear fields stay 0.
void expectText(const CompuScale& r, unsigned lower, unsigned upper, float lowerValue,
                float upperValue, const char* text) {
    expectAll({EQ(r.lowerLimit, lower), EQ(r.upperLimit, upper), EQ(r.lowerLimitValue, lowerValue),
               EQ(r.upperLimitValue, upperValue), EQ(r.text, text), EQ(r.offset, 0.0f),
               EQ(r.factor, 0.0f), EQ(r.denominator, 0.0f)});
}
void expectLimits(const CompuMethod& r, float physLower, float physUpper, float internalLower,
                  float internalUpper) {
    expectAll({EQ(r.physLowerLimit, physLower), EQ(r.physUpperLimit, physUpper),
               EQ(r.internalLowerLimit, internalLower), EQ(r.internalUpperLimit, internalUpper)});
}

TEST_F(FibexTest, RealisticFileUnitsCodingsSignals) {
    loadOk("small-flexray-cluster.xml");
    // A method without UNIT-REF (the gear table) links no unit and inserts none.
    EXPECT_EQ(keys(db.units), (Keys{"U_DEGC", "U_KMH"}));
    const auto& kmh = entry(db.units, "U_KMH");
    const auto& degc = entry(db.units, "U_DEGC");
    expectAll({EQ(kmh.shortName, "km_per_h"), EQ(kmh.desc, "speed unit"),
               EQ(kmh.displayName, "km/h"), EQ(degc.shortName, "deg_c"), EQ(degc.desc, ""),
               EQ(degc.displayName,
                  "\xC2\xB0"
                  "C")});

    const auto& r = entry(db.codings, "COD_SPEED");
    // The base data type is the coded type's, not the physical type's.
    expectAll({EQ(r.shortName, "SpeedCoding"), EQ(r.desc, "raw speed, 13 bits"),
               EQ(r.baseDataType, "A_UINT16"), EQ(r.category, "STANDARD-LENGTH-TYPE"),
               EQ(r.encoding, "UNSIGNED")});
    expectAll({EQ(r.dataType, 6), EQ(r.bitLength, 13), EQ(r.isSigned, false),
               EQ(r.compuMethodCount, 1u), EQ(r.compuMethods.size(), 1u)});
    const auto& m = r.compuMethods.at(0);
    expectAll({EQ(m.shortName, "SpeedConversion"), EQ(m.category, "LINEAR")});
    ASSERT_EQ(m.unit, addressOf(db.units, "U_KMH"));
    EXPECT_EQ(m.unit->displayName, "km/h");  // units are read before codings
    expectLimits(m, -12.5f, 655.25f, 1.0f, 8191.0f);
    ASSERT_EQ(m.scales.size(), 1u);
    expectLinear(m.scales[0], -12.5f, 0.08f, 1.0f);

    const auto& gear = entry(db.codings, "COD_GEAR");
    expectAll({EQ(gear.shortName, "GearCoding"), EQ(gear.dataType, 5), EQ(gear.bitLength, 3)});
    const auto& table = gear.compuMethods.at(0);
    expectAll({EQ(table.shortName, "GearTable"), EQ(table.category, "TEXTTABLE")});
    EXPECT_EQ(table.unit, nullptr);
    ASSERT_EQ(table.scales.size(), 3u);
    expectText(table.scales[0], 0, 0, 0.0f, 0.0f, "Park");
    expectText(table.scales[1], 1, 1, 1.0f, 1.0f, "Reverse");
    expectText(table.scales[2], 2, 6, 2.0f, 6.0f, "Drive");
    const auto& temp = entry(db.codings, "COD_TEMP");
    expectAll({EQ(temp.shortName, "TempCoding"), EQ(temp.baseDataType, ""),
               EQ(temp.encoding, "SIGNED"), EQ(temp.bitLength, 10), EQ(temp.dataType, 2),
               EQ(temp.isSigned, true), EQ(temp.compuMethods.at(0).category, "IDENTICAL")});
    EXPECT_EQ(temp.compuMethods[0].unit, addressOf(db.units, "U_DEGC"));
    expectLimits(temp.compuMethods[0], -kFltMax, kFltMax, -kFltMax, kFltMax);
    EXPECT_TRUE(temp.compuMethods[0].scales.empty());

    // Signals: a default written as 0.1 keeps single precision; update-bit signals take only
    // their bit position from the instance.
    const struct {
        const char *id, *shortName, *desc;
        double defaultValue;
        const char* pduId;
        int bitPosition;
        bool highLow;
        const char* coding;
    } signals[] = {
        {"SIG_SPEED", "VehicleSpeed", "speed over ground", static_cast<double>(0.1f), "PDU_DYN", 3,
         true, "COD_SPEED"},
        {"SIG_GEAR", "GearPosition", "", 3.0, "PDU_DYN", 20, false, "COD_GEAR"},
        {"SIG_RPM", "EngineSpeed", "", 800.0, "PDU_ENG", 8, true, "COD_SPEED"},
        {"SIG_TEMP", "CoolantTemp", "", -40.0, "PDU_ENG", 30, false, "COD_TEMP"},
        {"SIG_SPEED_UB", "VehicleSpeed_UB", "", 0.0, "", 39, false, nullptr},
        {"SIG_TEMP_UB", "CoolantTemp_UB", "", 0.0, "", 47, false, nullptr},
    };
    EXPECT_EQ(db.signals.size(), 6u);
    EXPECT_EQ(db.signalsByName.size(), 6u);
    for (const auto& c : signals) {
        SCOPED_TRACE(c.id);
        const auto& s = entry(db.signals, c.id);
        expectAll({EQ(s.shortName, c.shortName), EQ(s.desc, c.desc),
                   EQ(s.defaultValue, c.defaultValue), EQ(s.pduId, c.pduId),
                   EQ(s.bitPosition, c.bitPosition), EQ(s.isHighLowByteOrder, c.highLow)});
        expectAll({EQ(s.reserved16, 0), EQ(s.reserved32, 0u), EQ(s.reserved64, 0u),
                   EQ(s.reservedText[0], ""), EQ(s.reservedText[1], "")});
        EXPECT_EQ(entry(db.signalsByName, c.shortName), &s);
        EXPECT_EQ(s.coding, c.coding ? addressOf(db.codings, c.coding) : nullptr);
    }
    EXPECT_NE(entry(db.signals, "SIG_SPEED").defaultValue, 0.1);
}

TEST_F(FibexTest, RealisticFilePdusAndFrames) {
    loadOk("small-flexray-cluster.xml");
    EXPECT_EQ(keys(db.pdus), (Keys{"PDU_DYN", "PDU_ENG"}));
    const auto& dyn = entry(db.pdus, "PDU_DYN");
    expectAll({EQ(dyn.shortName, "DynamicsPdu"), EQ(dyn.desc, "vehicle dynamics"),
               EQ(dyn.byteLength, 8), EQ(dyn.pduType, "APPLICATION"), EQ(dyn.pduTypeCode, 1),
               EQ(dyn.signalInstanceCount, 2u), EQ(dyn.reservedText, ""),
               EQ(dyn.signalInstances.size(), 2u)});
    const auto& speed = dyn.signalInstances.at(0);
    const auto& gear = dyn.signalInstances.at(1);
    expectAll({EQ(speed.desc, "speed placement"), EQ(speed.bitPosition, 3),
               EQ(speed.updateBitPosition, 39), EQ(speed.isHighLowByteOrder, true),
               EQ(gear.desc, ""), EQ(gear.bitPosition, 20), EQ(gear.updateBitPosition, 65535),
               EQ(gear.isHighLowByteOrder, false)});
    EXPECT_EQ(speed.signal, addressOf(db.signals, "SIG_SPEED"));
    EXPECT_EQ(speed.updateBitSignal, addressOf(db.signals, "SIG_SPEED_UB"));
    EXPECT_EQ(gear.signal, addressOf(db.signals, "SIG_GEAR"));
    EXPECT_EQ(gear.updateBitSignal, nullptr);
    const auto& eng = entry(db.pdus, "PDU_ENG");
    expectAll({EQ(eng.shortName, "EnginePdu"), EQ(eng.byteLength, 6), EQ(eng.pduType, "SERVICE"),
               EQ(eng.pduTypeCode, 7), EQ(eng.signalInstances.size(), 2u)});
    EXPECT_EQ(eng.signalInstances.at(1).updateBitSignal, addressOf(db.signals, "SIG_TEMP_UB"));
    EXPECT_EQ(keys(db.signalInstances), (Keys{"SI_GEAR", "SI_RPM", "SI_SPEED", "SI_TEMP"}));
    const auto& temp = entry(db.signalInstances, "SI_TEMP");
    const auto& rpm = entry(db.signalInstances, "SI_RPM");
    expectAll({EQ(temp.bitPosition, 30), EQ(temp.updateBitPosition, 47),
               EQ(temp.isHighLowByteOrder, false), EQ(rpm.bitPosition, 8),
               EQ(rpm.updateBitPosition, 65535), EQ(rpm.isHighLowByteOrder, true)});
    EXPECT_EQ(temp.signal, addressOf(db.signals, "SIG_TEMP"));

    EXPECT_EQ(keys(db.frames), (Keys{"FR_DYN", "FR_ENG", "FR_NM"}));
    EXPECT_EQ(keys(db.framesByName), (Keys{"DynamicsFrame", "EngineFrame", "NmFrame"}));
    for (const auto& [name, frame] : db.framesByName)
        EXPECT_EQ(frame->shortName, name);
    const auto& f = entry(db.frames, "FR_DYN");
    expectAll({EQ(f.shortName, "DynamicsFrame"), EQ(f.desc, "dynamics, both channels"),
               EQ(f.byteLength, 16), EQ(f.frameType, "APPLICATION"), EQ(f.frameTypeCode, 1),
               EQ(f.pduInstanceCount, 1u), EQ(f.pduInstances.size(), 1u)});
    expectAll({EQ(f.flag, 0), EQ(f.reservedWord, 0u), EQ(f.reservedText[0], ""),
               EQ(f.reservedText[1], ""), EQ(f.reservedFlag, 0), EQ(f.reserved32, 0u)});
    const auto& pi = f.pduInstances.at(0);
    expectAll({EQ(pi.desc, "dynamics PDU at byte 0"), EQ(pi.bitPosition, 0),
               EQ(pi.updateBitPosition, 120), EQ(pi.isHighLowByteOrder, true),
               EQ(pi.pduId, "PDU_DYN")});
    EXPECT_EQ(pi.pdu, addressOf(db.pdus, "PDU_DYN"));
    const auto& engFrame = entry(db.frames, "FR_ENG");
    const auto& engPi = engFrame.pduInstances.at(0);
    expectAll({EQ(engFrame.byteLength, 8), EQ(engPi.bitPosition, 16),
               EQ(engPi.updateBitPosition, 65535), EQ(engPi.isHighLowByteOrder, false)});
    EXPECT_EQ(engPi.pdu, addressOf(db.pdus, "PDU_ENG"));
    const auto& nm = entry(db.frames, "FR_NM");
    expectAll({EQ(nm.frameType, "NM"), EQ(nm.frameTypeCode, 6), EQ(nm.byteLength, 4),
               EQ(nm.pduInstanceCount, 0u), EQ(nm.pduInstances.size(), 0u)});
    EXPECT_EQ(keys(db.pduInstances), (Keys{"PI_DYN", "PI_ENG"}));
    EXPECT_EQ(entry(db.pduInstances, "PI_ENG").pduId, "PDU_ENG");
}

// Linear scales (numerators offset and factor, a missing denominator keeps its reset value),
// identical and text-table methods, unknown categories, and units without display name.
TEST_F(FibexTest, CompuMethodsOfEachCategory) {
    loadOk("codings-linear-identical-texttable.xml");
    const auto& unit = entry(db.units, "U_NO_DISPLAY");
    expectAll({EQ(unit.shortName, "counts"), EQ(unit.desc, "unit without display name"),
               EQ(unit.displayName, "")});
    const auto& linear = entry(db.codings, "COD_LINEAR");
    const auto& m = linear.compuMethods.at(0);
    expectAll({EQ(linear.shortName, "VoltageCoding"), EQ(linear.desc, "two linear scales"),
               EQ(m.shortName, "VoltageScale"), EQ(m.scales.size(), 2u)});
    EXPECT_EQ(m.unit, addressOf(db.units, "U_V"));
    expectLimits(m, -kFltMax, kFltMax, 2.0f, 65533.0f);  // physical limits absent
    expectLinear(m.scales.at(0), 10.0f, 0.5f, 1.0f);
    expectLinear(m.scales.at(1), -3.0f, 0.25f, 0.0f);

    const auto& identical = entry(db.codings, "COD_IDENTICAL");
    const auto& im = identical.compuMethods.at(0);
    expectAll({EQ(identical.dataType, 2), EQ(identical.isSigned, true), EQ(identical.bitLength, 12),
               EQ(im.shortName, "CurrentIdentity"), EQ(im.category, "IDENTICAL"),
               EQ(im.scales.size(), 0u)});
    EXPECT_EQ(im.unit, addressOf(db.units, "U_MA"));
    expectLimits(im, -2048.0f, 2047.0f, -kFltMax, kFltMax);

    // A text table's limits are not read; -1 is no unsigned number (0, but -1.0 as float); no
    // UPPER-LIMIT gives 0 and the largest float; the VT is trimmed.
    const auto& texts = entry(db.codings, "COD_TEXTTABLE");
    const auto& tm = texts.compuMethods.at(0);
    expectAll({EQ(texts.desc, "operating mode"), EQ(tm.shortName, "ModeTable"),
               EQ(tm.scales.size(), 4u)});
    EXPECT_EQ(tm.unit, addressOf(db.units, "U_NO_DISPLAY"));
    expectLimits(tm, 0.0f, 0.0f, 0.0f, 0.0f);
    expectText(tm.scales.at(0), 3, 5, 3.0f, 5.0f, "Standby");
    expectText(tm.scales.at(1), 0, 0, -1.0f, -1.0f, "Invalid");
    expectText(tm.scales.at(2), 9, 0, 9.0f, kFltMax, "Padded value");
    expectText(tm.scales.at(3), 0, 12, 2.5f, 12.0f, "Fractional");

    // Methods in document order; another category is appended with nothing below it read.
    const auto& mixed = entry(db.codings, "COD_MIXED");
    expectAll({EQ(mixed.dataType, 7), EQ(mixed.bitLength, 20), EQ(mixed.compuMethodCount, 3u),
               EQ(mixed.compuMethods.size(), 3u)});
    const auto& methods = mixed.compuMethods;
    expectAll({EQ(methods.at(0).shortName, "MixedTable"), EQ(methods.at(0).scales.size(), 1u),
               EQ(methods.at(1).shortName, "MixedLinear"), EQ(methods.at(1).scales.size(), 1u),
               EQ(methods.at(2).shortName, "MixedOther"),
               EQ(methods.at(2).category, "SCALE-LINEAR-AND-TEXTTABLE"),
               EQ(methods.at(2).scales.size(), 0u)});
    expectText(methods[0].scales.at(0), 1048575, 1048575, 1048575.0f, 1048575.0f, "NotAvailable");
    EXPECT_EQ(methods[1].unit, addressOf(db.units, "U_MA"));
    expectLinear(methods[1].scales.at(0), 0.0f, 0.001f, 1.0f);
    EXPECT_EQ(methods[2].unit, nullptr);
    expectLimits(methods[2], 0.0f, 0.0f, 0.0f, 0.0f);
}

TEST_F(FibexTest, DataTypeTable) {
    loadOk("coding-data-types.xml");
    const struct {
        const char* id;
        int dataType;
        bool isSigned;
        int bitLength;
    } rows[] = {{"DT_A_INT8", 1, true, 8},           {"DT_A_INT16", 2, true, 16},
                {"DT_A_INT32", 3, true, 32},         {"DT_A_INT64", 4, true, 64},
                {"DT_A_UINT8", 5, false, 8},         {"DT_A_UINT16", 6, false, 16},
                {"DT_A_UINT32", 7, false, 32},       {"DT_A_UINT64", 8, false, 64},
                {"DT_A_FLOAT32", 10, false, 32},     {"DT_A_FLOAT64", 11, false, 64},
                {"DT_A_ASCIISTRING", 12, false, 64}, {"DT_A_UNICODE2STRING", 13, false, 128},
                {"DT_A_BYTEFIELD", 14, false, 24},   {"DT_A_BITFIELD", 15, false, 5},
                {"DT_UINT8_SIGNED", 5, false, 8},    {"DT_SIGNED_0", 1, true, 0},
                {"DT_SIGNED_1", 1, true, 1},         {"DT_SIGNED_8", 1, true, 8},
                {"DT_SIGNED_9", 2, true, 9},         {"DT_SIGNED_12", 2, true, 12},
                {"DT_SIGNED_16", 2, true, 16},       {"DT_SIGNED_17", 3, true, 17},
                {"DT_SIGNED_32", 3, true, 32},       {"DT_SIGNED_33", 4, true, 33},
                {"DT_SIGNED_64", 4, true, 64},       {"DT_UNSIGNED_1", 5, false, 1},
                {"DT_UNSIGNED_8", 5, false, 8},      {"DT_UNSIGNED_9", 6, false, 9},
                {"DT_UNSIGNED_16", 6, false, 16},    {"DT_UNSIGNED_17", 7, false, 17},
                {"DT_UNSIGNED_32", 7, false, 32},    {"DT_UNSIGNED_33", 8, false, 33},
                {"DT_UNSIGNED_64", 8, false, 64},    {"DT_NO_ENCODING_16", 6, false, 16},
                {"DT_NO_ENCODING_0", 5, false, 0},   {"DT_IEEE_32", 10, true, 32},
                {"DT_IEEE_64", 11, true, 64},        {"DT_BCD_8", 0, false, 8},
                {"DT_PHYSICAL_FALLBACK", 3, true, 8}};
    // Never 9: the base type alone decides signedness.
    EXPECT_EQ(db.codings.size(), std::size(rows));
    for (const auto& row : rows) {
        const auto& r = entry(db.codings, row.id);
        SCOPED_TRACE(row.id);
        expectAll({EQ(r.dataType, row.dataType), EQ(r.isSigned, row.isSigned),
                   EQ(r.bitLength, row.bitLength), EQ(r.category, "STANDARD-LENGTH-TYPE"),
                   EQ(r.compuMethodCount, 0u)});
    }
    expectAll({EQ(entry(db.codings, "DT_PHYSICAL_FALLBACK").baseDataType, "A_INT32"),
               EQ(entry(db.codings, "DT_UINT8_SIGNED").encoding, "SIGNED"),
               EQ(entry(db.codings, "DT_NO_ENCODING_16").encoding, ""),
               EQ(entry(db.codings, "DT_A_FLOAT32").baseDataType, "A_FLOAT32")});
}

// Every faulty coding is kept with what could be read.
TEST_F(FibexTest, FaultyCodingsAreKept) {
    loadOk("coding-errors.xml");
    EXPECT_EQ(keys(db.codings),
              (Keys{"COD_E04", "COD_E05", "COD_E06", "COD_E07", "COD_E08", "COD_E09", "COD_E10",
                    "COD_E11", "COD_E12", "COD_E13", "COD_E14", "COD_E15", "COD_E16", "COD_E17"}));
    const auto& e4 = entry(db.codings, "COD_E04");
    expectAll({EQ(e4.shortName, "NoCodedType"), EQ(e4.desc, "coded type missing"),
               EQ(e4.baseDataType, ""), EQ(e4.category, ""), EQ(e4.encoding, ""),
               EQ(e4.bitLength, 0), EQ(e4.dataType, 5)});
    expectAll({EQ(e4.isSigned, false),
               EQ(entry(db.codings, "COD_E05").category, "LEADING-LENGTH-INFO-TYPE"),
               EQ(entry(db.codings, "COD_E05").dataType, 5),
               EQ(entry(db.codings, "COD_E05").bitLength, 8),
               EQ(entry(db.codings, "COD_E06").bitLength, 0),
               EQ(entry(db.codings, "COD_E06").dataType, 7)});
    // Invalid types leave data type 0.
    const struct {
        const char* id;
        bool isSigned;
        int bitLength;
        const char *baseDataType, *encoding;
    } invalid[] = {{"COD_E07", true, 16, "", "IEEE-FLOATING-TYPE"},
                   {"COD_E08", false, 65, "", "UNSIGNED"},
                   {"COD_E09", true, 72, "", "SIGNED"},
                   {"COD_E10", false, 8, "a_int8", "SIGNED"}};
    for (const auto& row : invalid) {
        const auto& r = entry(db.codings, row.id);
        SCOPED_TRACE(row.id);
        expectAll({EQ(r.dataType, 0), EQ(r.isSigned, row.isSigned), EQ(r.bitLength, row.bitLength),
                   EQ(r.baseDataType, row.baseDataType), EQ(r.encoding, row.encoding)});
    }
    // A method without category is kept empty.
    const auto& e11 = entry(db.codings, "COD_E11");
    const auto& m11 = e11.compuMethods.at(0);
    expectAll({EQ(e11.compuMethodCount, 1u), EQ(m11.shortName, "Uncategorised"),
               EQ(m11.category, ""), EQ(m11.scales.size(), 0u)});
    EXPECT_EQ(m11.unit, nullptr);
    expectLimits(m11, 0.0f, 0.0f, 0.0f, 0.0f);
    // A second rational method is read all the same.
    const auto& e12 = entry(db.codings, "COD_E12").compuMethods;
    expectAll({EQ(e12.size(), 2u), EQ(e12.at(0).shortName, "FirstIdentical"),
               EQ(e12.at(0).category, "IDENTICAL"), EQ(e12.at(1).shortName, "SecondLinear"),
               EQ(e12.at(1).scales.size(), 1u)});
    EXPECT_EQ(e12[1].unit, addressOf(db.units, "U_BAR"));
    expectLinear(e12[1].scales.at(0), 4.0f, 8.0f, 1.0f);
    // Odd numerators and denominators keep their scales: one V gives factor 0, three the first
    // two, none no coefficients; two denominators or none are skipped.
    const auto& numerators = entry(db.codings, "COD_E13").compuMethods.at(0).scales;
    const auto& denominators = entry(db.codings, "COD_E14").compuMethods.at(0).scales;
    const auto& halved = entry(db.codings, "COD_E15").compuMethods.at(0).scales;
    ASSERT_EQ(numerators.size(), 3u);
    ASSERT_EQ(denominators.size(), 2u);
    ASSERT_EQ(halved.size(), 1u);
    expectLinear(numerators[0], 7.0f, 0.0f, 1.0f);
    expectLinear(numerators[1], 11.0f, 12.0f, 1.0f);
    expectLinear(numerators[2], 0.0f, 0.0f, 0.0f);
    expectLinear(denominators[0], 21.0f, 22.0f, 0.0f);
    expectLinear(denominators[1], 31.0f, 32.0f, 0.0f);
    expectLinear(halved[0], 10.0f, 0.5f, 2.0f);
    // A second text table is kept; an entry without VT is dropped.
    const auto& e16 = entry(db.codings, "COD_E16");
    expectAll({EQ(e16.compuMethodCount, 2u), EQ(e16.compuMethods.size(), 2u),
               EQ(e16.compuMethods.at(0).shortName, "FirstTable"),
               EQ(e16.compuMethods.at(1).shortName, "SecondTable"),
               EQ(e16.compuMethods.at(1).category, "TEXTTABLE")});
    EXPECT_EQ(e16.compuMethods[1].unit, addressOf(db.units, "U_BAR"));
    ASSERT_EQ(e16.compuMethods[0].scales.size(), 1u);
    ASSERT_EQ(e16.compuMethods[1].scales.size(), 2u);
    expectText(e16.compuMethods[0].scales[0], 0, 0, 0.0f, 0.0f, "Off");
    expectText(e16.compuMethods[1].scales[0], 1, 1, 1.0f, 1.0f, "On");
    expectText(e16.compuMethods[1].scales[1], 2, 3, 2.0f, 3.0f, "Error");
    const auto& e17 = entry(db.codings, "COD_E17").compuMethods.at(0).scales;
    ASSERT_EQ(e17.size(), 2u);
    expectText(e17[0], 4, 4, 4.0f, 4.0f, "Four");
    expectText(e17[1], 6, 6, 6.0f, 6.0f, "Six");
}

// Without SHORT-NAME or CODING-REF a signal is dropped; of two with the same SHORT-NAME both
// stay and the name links the last; texts are trimmed of spaces.
TEST_F(FibexTest, SignalFaultsAndNames) {
    loadOk("signal-errors.xml");
    EXPECT_EQ(keys(db.signals), (Keys{"SIG_BAD_DEFAULT", "SIG_FIRST", "SIG_PADDED", "SIG_SECOND"}));
    EXPECT_EQ(keys(db.signalsByName), (Keys{"BadDefault", "Padded", "Twin"}));
    EXPECT_EQ(entry(db.signalsByName, "Twin"), addressOf(db.signals, "SIG_SECOND"));
    EXPECT_EQ(keys(db.codings), Keys{"COD_U8"});
    EXPECT_EQ(entry(db.signals, "SIG_FIRST").coding, addressOf(db.codings, "COD_U8"));
    EXPECT_EQ(entry(db.signals, "SIG_SECOND").coding, addressOf(db.codings, "COD_U8"));
    const auto& padded = entry(db.signals, "SIG_PADDED");
    expectAll({EQ(entry(db.signals, "SIG_FIRST").desc, "first of two with the same name"),
               EQ(entry(db.signals, "SIG_FIRST").defaultValue, static_cast<double>(0.1f)),
               EQ(entry(db.signals, "SIG_SECOND").defaultValue, 0.0),
               EQ(padded.shortName, "Padded"), EQ(padded.desc, "spaces around"),
               EQ(padded.defaultValue, -2.75),
               EQ(entry(db.signals, "SIG_BAD_DEFAULT").defaultValue, 0.0)});
}

// Update-bit signals are found by name and by ID; bit 0 is an update bit, 65535 none; only the
// instance in the PDU's list links the update-bit signal; CDATA and markup read as whole text.
TEST_F(FibexTest, UpdateBitSignals) {
    loadOk("update-bits.xml");
    EXPECT_EQ(keys(db.signals), (Keys{"SIG_DOOR", "SIG_DOOR_UB", "SIG_HORN", "SIG_HORN_UB",
                                      "SIG_LAMP", "SIG_WIPER"}));
    EXPECT_EQ(keys(db.signalsByName), (Keys{"DoorOpen", "DoorOpen_UB", "HornActive",
                                            "HornActive_UB", "LampOn", "WiperSpeed"}));
    const auto& door = entry(db.signals, "SIG_DOOR");
    const auto& ub = entry(db.signals, "SIG_DOOR_UB");
    expectAll({EQ(door.bitPosition, 7), EQ(door.isHighLowByteOrder, true),
               EQ(door.pduId, "PDU_BODY"), EQ(door.defaultValue, 1.0),
               EQ(ub.shortName, "DoorOpen_UB"), EQ(ub.bitPosition, 39),
               EQ(ub.isHighLowByteOrder, false)});
    expectAll({EQ(ub.pduId, ""), EQ(ub.defaultValue, 0.0), EQ(ub.desc, ""), EQ(ub.reserved64, 0u),
               EQ(entry(db.signals, "SIG_LAMP").desc, "lamp <on> state of the cabin"),
               EQ(entry(db.signals, "SIG_HORN_UB").bitPosition, 0),
               EQ(entry(db.signals, "SIG_HORN_UB").shortName, "HornActive_UB")});
    EXPECT_EQ(entry(db.signalsByName, "DoorOpen_UB"), &ub);
    const auto& instances = entry(db.pdus, "PDU_BODY").signalInstances;
    ASSERT_EQ(instances.size(), 4u);
    EXPECT_EQ(instances[0].desc, "door with update bit");
    EXPECT_EQ(instances[0].updateBitSignal, &ub);
    EXPECT_EQ(instances[1].updateBitSignal, nullptr);
    EXPECT_EQ(instances[2].updateBitSignal, addressOf(db.signals, "SIG_HORN_UB"));
    EXPECT_EQ(instances[3].updateBitPosition, 65535);
    EXPECT_EQ(instances[3].updateBitSignal, nullptr);
    EXPECT_EQ(entry(db.signalInstances, "SI_DOOR").updateBitPosition, 39);
    EXPECT_EQ(entry(db.signalInstances, "SI_DOOR").updateBitSignal, nullptr);
}

// A signal in two PDUs keeps the last placement; both instances stay as written.
TEST_F(FibexTest, SignalInTwoPdusKeepsTheLastPlacement) {
    loadOk("signal-in-two-pdus.xml");
    const auto& s = entry(db.signals, "SIG_SHARED");
    const auto& first = entry(db.signalInstances, "SI_SHARED_FIRST");
    expectAll({EQ(s.pduId, "PDU_SECOND"), EQ(s.bitPosition, 40), EQ(s.isHighLowByteOrder, true),
               EQ(first.bitPosition, 4), EQ(first.isHighLowByteOrder, false),
               EQ(entry(db.pdus, "PDU_FIRST").signalInstances.at(0).bitPosition, 4)});
    EXPECT_EQ(first.signal, &s);
    EXPECT_EQ(entry(db.signalInstances, "SI_SHARED_SECOND").signal, &s);
}

TEST_F(FibexTest, ByteOrders) {
    loadOk("byte-orders.xml");
    const struct {
        const char *signal, *instance;
        int bit;
        bool highLow;
    } rows[] = {{"SIG_LOWER", "SI_LOWER", 1, true}, {"SIG_UPPER", "SI_UPPER", 2, true},
                {"SIG_MIXED", "SI_MIXED", 3, true}, {"SIG_FALSE", "SI_FALSE", 4, false},
                {"SIG_ONE", "SI_ONE", 5, false},    {"SIG_ABSENT", "SI_ABSENT", 6, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.signal);
        expectAll({EQ(entry(db.signals, row.signal).isHighLowByteOrder, row.highLow),
                   EQ(entry(db.signals, row.signal).bitPosition, row.bit),
                   EQ(entry(db.signalInstances, row.instance).isHighLowByteOrder, row.highLow)});
    }
    EXPECT_TRUE(entry(db.pduInstances, "PI_MOTOROLA").isHighLowByteOrder);
    EXPECT_FALSE(entry(db.pduInstances, "PI_DEFAULT").isHighLowByteOrder);
}

// The type text is trimmed before the exact, case-sensitive lookup.
TEST_F(FibexTest, PduAndFrameTypeCodes) {
    loadOk("pdu-and-frame-types.xml");
    const struct {
        const char *id, *text;
        int code;
    } rows[] = {{"APPLICATION", "APPLICATION", 1},
                {"BAP", "BAP", 2},
                {"DIAG_REQUEST", "DIAG-REQUEST", 3},
                {"DIAG_RESPONSE", "DIAG-RESPONSE", 4},
                {"DIAG_STATE", "DIAG-STATE", 5},
                {"NM", "NM", 6},
                {"SERVICE", "SERVICE", 7},
                {"TPL", "TPL", 8},
                {"XCP_PRE_CONFIGURED", "XCP_PRE_CONFIGURED", 9},
                {"XCP_RUNTIME_CONFIGURED", "XCP_RUNTIME_CONFIGURED", 10},
                {"LOWER_NM", "nm", 0},
                {"MIXED_APPLICATION", "Application", 0},
                {"SPACE_NM", "NM", 6},
                {"OTHER", "OTHER", 0},
                {"ABSENT", "", 0}};
    EXPECT_EQ(db.pdus.size(), std::size(rows));
    EXPECT_EQ(db.frames.size(), std::size(rows));
    for (const auto& row : rows) {
        const auto& pdu = entry(db.pdus, std::string("PDU_") + row.id);
        const auto& frame = entry(db.frames, std::string("FR_") + row.id);
        SCOPED_TRACE(row.id);
        expectAll({EQ(pdu.pduType, row.text), EQ(pdu.pduTypeCode, row.code),
                   EQ(frame.frameType, row.text), EQ(frame.frameTypeCode, row.code)});
    }
}

// Without SHORT-NAME or BYTE-LENGTH a PDU or frame is dropped with its instances; a missing bit
// position reads 0, a missing byte order false; PDU instances sit on whole bytes only; counts
// count every listed instance.
TEST_F(FibexTest, PduAndFrameFaults) {
    loadOk("pdu-errors.xml");
    EXPECT_EQ(keys(db.pdus), Keys{"PDU_GOOD"});
    EXPECT_EQ(keys(db.signalInstances), (Keys{"SI_NO_BIT", "SI_NO_ORDER"}));
    const auto& pdu = entry(db.pdus, "PDU_GOOD");
    const auto& c = entry(db.signals, "SIG_C");
    const auto& d = entry(db.signals, "SIG_D");
    expectAll(
        {EQ(entry(db.signals, "SIG_A").pduId, ""), EQ(entry(db.signals, "SIG_A").bitPosition, 0),
         EQ(entry(db.signals, "SIG_B").pduId, ""), EQ(pdu.desc, "instances with missing items"),
         EQ(pdu.byteLength, 0), EQ(pdu.pduType, ""), EQ(pdu.pduTypeCode, 0)});
    expectAll({EQ(pdu.signalInstanceCount, 2u), EQ(c.pduId, "PDU_GOOD"), EQ(c.bitPosition, 0),
               EQ(c.isHighLowByteOrder, true), EQ(d.pduId, "PDU_GOOD"), EQ(d.bitPosition, 17),
               EQ(d.isHighLowByteOrder, false)});

    db.Clear();
    loadOk("frame-errors.xml");
    EXPECT_EQ(keys(db.frames), Keys{"FR_FAULTY_INSTANCES"});
    EXPECT_EQ(keys(db.framesByName), Keys{"FaultyInstances"});
    EXPECT_EQ(keys(db.pduInstances), Keys{"PI_GOOD"});
    const auto& frame = entry(db.frames, "FR_FAULTY_INSTANCES");
    const auto& pi = frame.pduInstances.at(0);
    expectAll({EQ(frame.byteLength, 24), EQ(frame.frameType, "nm"), EQ(frame.frameTypeCode, 0),
               EQ(frame.pduInstanceCount, 3u), EQ(frame.pduInstances.size(), 1u),
               EQ(pi.desc, "the one that stays")});
    expectAll({EQ(pi.bitPosition, 128), EQ(pi.updateBitPosition, 191),
               EQ(pi.isHighLowByteOrder, true), EQ(pi.pduId, "PDU_X"),
               EQ(entry(db.pdus, "PDU_X").shortName, "PduX")});
    EXPECT_EQ(pi.pdu, addressOf(db.pdus, "PDU_X"));

    db.Clear();
    loadOk("pdu-instances-byte-and-non-byte.xml");
    const auto& placements = entry(db.frames, "FR_PLACEMENTS");
    const auto& list = placements.pduInstances;
    EXPECT_EQ(entry(db.framesByName, "PlacementFrame"), &placements);
    ASSERT_EQ(list.size(), 3u);  // bits 12 and 7 are dropped
    expectAll({EQ(placements.shortName, "PlacementFrame"), EQ(placements.pduInstanceCount, 5u),
               EQ(list[0].bitPosition, 0), EQ(list[0].desc, "byte 0"),
               EQ(list[0].updateBitPosition, 95), EQ(list[1].bitPosition, 16),
               EQ(list[1].desc, "byte 2"), EQ(list[1].isHighLowByteOrder, true),
               EQ(list[2].bitPosition, 88)});
    for (const auto& instance : list)
        EXPECT_EQ(instance.pdu, addressOf(db.pdus, "PDU_SMALL"));
    EXPECT_EQ(keys(db.pduInstances), (Keys{"PI_AT_0", "PI_AT_16", "PI_AT_88"}));
}

}  // namespace
