// The unit and coding steps: records field by field, the data-type table, and one coding per
// reported fault.
#include <gtest/gtest.h>

#include <string>

#include "fibex/fibex_test_support.h"

namespace {

using namespace kelo_test;
using kelo::fibex::CompuMethod;
using kelo::fibex::CompuScale;

void expectLinearScale(const CompuScale& s, float offset, float factor, float denominator) {
    EXPECT_EQ(s.offset, offset);
    EXPECT_EQ(s.factor, factor);
    EXPECT_EQ(s.denominator, denominator);
    // Text-table fields keep their reset values.
    EXPECT_EQ(s.lowerLimit, 0u);
    EXPECT_EQ(s.upperLimit, 0u);
    EXPECT_EQ(s.lowerLimitValue, -kFltMax);
    EXPECT_EQ(s.upperLimitValue, kFltMax);
    EXPECT_EQ(s.text, "");
}

void expectTextEntry(const CompuScale& s, unsigned lower, unsigned upper, float lowerValue,
                     float upperValue, const std::string& text) {
    EXPECT_EQ(s.lowerLimit, lower);
    EXPECT_EQ(s.upperLimit, upper);
    EXPECT_EQ(s.lowerLimitValue, lowerValue);
    EXPECT_EQ(s.upperLimitValue, upperValue);
    EXPECT_EQ(s.text, text);
    EXPECT_EQ(s.offset, 0.0f);
    EXPECT_EQ(s.factor, 0.0f);
    EXPECT_EQ(s.denominator, 0.0f);
}

void expectLimits(const CompuMethod& m, float physLower, float physUpper, float internalLower,
                  float internalUpper) {
    EXPECT_EQ(m.physLowerLimit, physLower);
    EXPECT_EQ(m.physUpperLimit, physUpper);
    EXPECT_EQ(m.internalLowerLimit, internalLower);
    EXPECT_EQ(m.internalUpperLimit, internalUpper);
}

// ---- units ---------------------------------------------------------------------------------

TEST_F(FibexTest, UnitsFieldByField) {
    loadOk("small-flexray-cluster.xml");
    const auto& kmh = entry(db.units, "U_KMH");
    EXPECT_EQ(kmh.shortName, "km_per_h");
    EXPECT_EQ(kmh.desc, "speed unit");
    EXPECT_EQ(kmh.displayName, "km/h");
    const auto& degc = entry(db.units, "U_DEGC");
    EXPECT_EQ(degc.shortName, "deg_c");
    EXPECT_EQ(degc.desc, "");
    EXPECT_EQ(degc.displayName,
              "\xC2\xB0"
              "C");
    // A method without UNIT-REF (the gear table) links no unit and inserts none.
    EXPECT_EQ(keys(db.units), (Keys{"U_DEGC", "U_KMH"}));
}

TEST_F(FibexTest, UnitWithoutDisplayNameIsKept) {
    loadOk("codings-linear-identical-texttable.xml");
    const auto& unit = entry(db.units, "U_NO_DISPLAY");
    EXPECT_EQ(unit.shortName, "counts");
    EXPECT_EQ(unit.desc, "unit without display name");
    EXPECT_EQ(unit.displayName, "");
}

// ---- codings of a realistic file -----------------------------------------------------------

TEST_F(FibexTest, LinearCodingFieldByField) {
    loadOk("small-flexray-cluster.xml");
    const auto& c = entry(db.codings, "COD_SPEED");
    EXPECT_EQ(c.shortName, "SpeedCoding");
    EXPECT_EQ(c.desc, "raw speed, 13 bits");
    EXPECT_EQ(c.baseDataType, "A_UINT16");  // the coded type's, not the physical type's
    EXPECT_EQ(c.category, "STANDARD-LENGTH-TYPE");
    EXPECT_EQ(c.encoding, "UNSIGNED");
    EXPECT_EQ(c.dataType, 6);
    EXPECT_EQ(c.bitLength, 13);
    EXPECT_FALSE(c.isSigned);
    EXPECT_EQ(c.compuMethodCount, 1u);
    ASSERT_EQ(c.compuMethods.size(), 1u);
    const auto& m = c.compuMethods[0];
    EXPECT_EQ(m.shortName, "SpeedConversion");
    EXPECT_EQ(m.category, "LINEAR");
    EXPECT_EQ(m.unit, addressOf(db.units, "U_KMH"));
    ASSERT_NE(m.unit, nullptr);
    EXPECT_EQ(m.unit->displayName, "km/h");  // units are read before codings
    expectLimits(m, -12.5f, 655.25f, 1.0f, 8191.0f);
    ASSERT_EQ(m.scales.size(), 1u);
    expectLinearScale(m.scales[0], -12.5f, 0.08f, 1.0f);
}

TEST_F(FibexTest, TextTableAndIdenticalCodingsFieldByField) {
    loadOk("small-flexray-cluster.xml");
    const auto& gear = entry(db.codings, "COD_GEAR");
    EXPECT_EQ(gear.shortName, "GearCoding");
    EXPECT_EQ(gear.dataType, 5);
    EXPECT_EQ(gear.bitLength, 3);
    ASSERT_EQ(gear.compuMethods.size(), 1u);
    const auto& table = gear.compuMethods[0];
    EXPECT_EQ(table.shortName, "GearTable");
    EXPECT_EQ(table.category, "TEXTTABLE");
    EXPECT_EQ(table.unit, nullptr);
    ASSERT_EQ(table.scales.size(), 3u);
    expectTextEntry(table.scales[0], 0, 0, 0.0f, 0.0f, "Park");
    expectTextEntry(table.scales[1], 1, 1, 1.0f, 1.0f, "Reverse");
    expectTextEntry(table.scales[2], 2, 6, 2.0f, 6.0f, "Drive");

    const auto& temp = entry(db.codings, "COD_TEMP");
    EXPECT_EQ(temp.shortName, "TempCoding");
    EXPECT_EQ(temp.baseDataType, "");
    EXPECT_EQ(temp.encoding, "SIGNED");
    EXPECT_EQ(temp.bitLength, 10);
    EXPECT_EQ(temp.dataType, 2);
    EXPECT_TRUE(temp.isSigned);
    ASSERT_EQ(temp.compuMethods.size(), 1u);
    EXPECT_EQ(temp.compuMethods[0].category, "IDENTICAL");
    EXPECT_EQ(temp.compuMethods[0].unit, addressOf(db.units, "U_DEGC"));
    expectLimits(temp.compuMethods[0], -kFltMax, kFltMax, -kFltMax, kFltMax);
    EXPECT_TRUE(temp.compuMethods[0].scales.empty());
}

// ---- compu methods -------------------------------------------------------------------------

TEST_F(FibexTest, LinearScales) {
    loadOk("codings-linear-identical-texttable.xml");
    const auto& c = entry(db.codings, "COD_LINEAR");
    EXPECT_EQ(c.shortName, "VoltageCoding");
    EXPECT_EQ(c.desc, "two linear scales");
    ASSERT_EQ(c.compuMethods.size(), 1u);
    const auto& m = c.compuMethods[0];
    EXPECT_EQ(m.shortName, "VoltageScale");
    EXPECT_EQ(m.unit, addressOf(db.units, "U_V"));
    // Physical limits absent: the widest floats; internal ones read.
    expectLimits(m, -kFltMax, kFltMax, 2.0f, 65533.0f);
    ASSERT_EQ(m.scales.size(), 2u);
    // Numerator 10 and 0.5 over 1: offset 10, factor 0.5.
    expectLinearScale(m.scales[0], 10.0f, 0.5f, 1.0f);
    // No denominator at all: the reset value stays.
    expectLinearScale(m.scales[1], -3.0f, 0.25f, 0.0f);
}

TEST_F(FibexTest, IdenticalMethodReadsItsLimits) {
    loadOk("codings-linear-identical-texttable.xml");
    const auto& c = entry(db.codings, "COD_IDENTICAL");
    EXPECT_EQ(c.dataType, 2);  // SIGNED, 12 bits
    EXPECT_TRUE(c.isSigned);
    EXPECT_EQ(c.bitLength, 12);
    ASSERT_EQ(c.compuMethods.size(), 1u);
    const auto& m = c.compuMethods[0];
    EXPECT_EQ(m.shortName, "CurrentIdentity");
    EXPECT_EQ(m.category, "IDENTICAL");
    EXPECT_EQ(m.unit, addressOf(db.units, "U_MA"));
    expectLimits(m, -2048.0f, 2047.0f, -kFltMax, kFltMax);
    EXPECT_TRUE(m.scales.empty());
}

TEST_F(FibexTest, TextTableEntries) {
    loadOk("codings-linear-identical-texttable.xml");
    const auto& c = entry(db.codings, "COD_TEXTTABLE");
    EXPECT_EQ(c.desc, "operating mode");
    ASSERT_EQ(c.compuMethods.size(), 1u);
    const auto& m = c.compuMethods[0];
    EXPECT_EQ(m.shortName, "ModeTable");
    EXPECT_EQ(m.unit, addressOf(db.units, "U_NO_DISPLAY"));
    // A text table's method limits are not read, although the file has them.
    expectLimits(m, 0.0f, 0.0f, 0.0f, 0.0f);
    ASSERT_EQ(m.scales.size(), 4u);
    expectTextEntry(m.scales[0], 3, 5, 3.0f, 5.0f, "Standby");
    // -1 is no unsigned number: 0 as integer, -1.0 as float.
    expectTextEntry(m.scales[1], 0, 0, -1.0f, -1.0f, "Invalid");
    // No UPPER-LIMIT: integer 0, float the largest finite one; the VT is trimmed.
    expectTextEntry(m.scales[2], 9, 0, 9.0f, kFltMax, "Padded value");
    expectTextEntry(m.scales[3], 0, 12, 2.5f, 12.0f, "Fractional");
}

TEST_F(FibexTest, MixedMethodsKeepDocumentOrderAndUnknownCategories) {
    loadOk("codings-linear-identical-texttable.xml");
    const auto& c = entry(db.codings, "COD_MIXED");
    EXPECT_EQ(c.dataType, 7);
    EXPECT_EQ(c.bitLength, 20);
    EXPECT_EQ(c.compuMethodCount, 3u);
    ASSERT_EQ(c.compuMethods.size(), 3u);
    EXPECT_EQ(c.compuMethods[0].shortName, "MixedTable");
    ASSERT_EQ(c.compuMethods[0].scales.size(), 1u);
    expectTextEntry(c.compuMethods[0].scales[0], 1048575, 1048575, 1048575.0f, 1048575.0f,
                    "NotAvailable");
    EXPECT_EQ(c.compuMethods[1].shortName, "MixedLinear");
    EXPECT_EQ(c.compuMethods[1].unit, addressOf(db.units, "U_MA"));
    ASSERT_EQ(c.compuMethods[1].scales.size(), 1u);
    expectLinearScale(c.compuMethods[1].scales[0], 0.0f, 0.001f, 1.0f);
    // Another category: appended, nothing below it read.
    const auto& other = c.compuMethods[2];
    EXPECT_EQ(other.shortName, "MixedOther");
    EXPECT_EQ(other.category, "SCALE-LINEAR-AND-TEXTTABLE");
    EXPECT_EQ(other.unit, nullptr);
    expectLimits(other, 0.0f, 0.0f, 0.0f, 0.0f);
    EXPECT_TRUE(other.scales.empty());
}

// ---- data types ----------------------------------------------------------------------------

TEST_F(FibexTest, DataTypeTable) {
    loadOk("coding-data-types.xml");
    struct Case {
        const char* id;
        int dataType;
        bool isSigned;
        int bitLength;
    };
    const Case cases[] = {
        {"DT_A_INT8", 1, true, 8},
        {"DT_A_INT16", 2, true, 16},
        {"DT_A_INT32", 3, true, 32},
        {"DT_A_INT64", 4, true, 64},
        {"DT_A_UINT8", 5, false, 8},
        {"DT_A_UINT16", 6, false, 16},
        {"DT_A_UINT32", 7, false, 32},
        {"DT_A_UINT64", 8, false, 64},
        {"DT_A_FLOAT32", 10, false, 32},  // never 9; the base type alone decides signedness
        {"DT_A_FLOAT64", 11, false, 64},
        {"DT_A_ASCIISTRING", 12, false, 64},
        {"DT_A_UNICODE2STRING", 13, false, 128},
        {"DT_A_BYTEFIELD", 14, false, 24},
        {"DT_A_BITFIELD", 15, false, 5},
        {"DT_UINT8_SIGNED", 5, false, 8},
        {"DT_SIGNED_0", 1, true, 0},
        {"DT_SIGNED_1", 1, true, 1},
        {"DT_SIGNED_8", 1, true, 8},
        {"DT_SIGNED_9", 2, true, 9},
        {"DT_SIGNED_12", 2, true, 12},
        {"DT_SIGNED_16", 2, true, 16},
        {"DT_SIGNED_17", 3, true, 17},
        {"DT_SIGNED_32", 3, true, 32},
        {"DT_SIGNED_33", 4, true, 33},
        {"DT_SIGNED_64", 4, true, 64},
        {"DT_UNSIGNED_1", 5, false, 1},
        {"DT_UNSIGNED_8", 5, false, 8},
        {"DT_UNSIGNED_9", 6, false, 9},
        {"DT_UNSIGNED_16", 6, false, 16},
        {"DT_UNSIGNED_17", 7, false, 17},
        {"DT_UNSIGNED_32", 7, false, 32},
        {"DT_UNSIGNED_33", 8, false, 33},
        {"DT_UNSIGNED_64", 8, false, 64},
        {"DT_NO_ENCODING_16", 6, false, 16},
        {"DT_NO_ENCODING_0", 5, false, 0},
        {"DT_IEEE_32", 10, true, 32},
        {"DT_IEEE_64", 11, true, 64},
        {"DT_BCD_8", 0, false, 8},
        {"DT_PHYSICAL_FALLBACK", 3, true, 8},
    };
    EXPECT_EQ(db.codings.size(), sizeof cases / sizeof cases[0]);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.id);
        const auto& coding = entry(db.codings, c.id);
        EXPECT_EQ(coding.dataType, c.dataType);
        EXPECT_EQ(coding.isSigned, c.isSigned);
        EXPECT_EQ(coding.bitLength, c.bitLength);
        EXPECT_EQ(coding.category, "STANDARD-LENGTH-TYPE");
        EXPECT_EQ(coding.compuMethodCount, 0u);
    }
    EXPECT_EQ(entry(db.codings, "DT_PHYSICAL_FALLBACK").baseDataType, "A_INT32");
    EXPECT_EQ(entry(db.codings, "DT_UINT8_SIGNED").encoding, "SIGNED");
    EXPECT_EQ(entry(db.codings, "DT_NO_ENCODING_16").encoding, "");
    EXPECT_EQ(entry(db.codings, "DT_A_FLOAT32").baseDataType, "A_FLOAT32");
}

// ---- one coding per reported fault ---------------------------------------------------------

class CodingErrors : public FibexTest {
  protected:
    void SetUp() override { loadOk("coding-errors.xml"); }
};

TEST_F(CodingErrors, EveryFaultyCodingIsKept) {
    EXPECT_EQ(keys(db.codings),
              (Keys{"COD_E04", "COD_E05", "COD_E06", "COD_E07", "COD_E08", "COD_E09", "COD_E10",
                    "COD_E11", "COD_E12", "COD_E13", "COD_E14", "COD_E15", "COD_E16", "COD_E17"}));
}

TEST_F(CodingErrors, CodedTypeItems) {
    const auto& e4 = entry(db.codings, "COD_E04");
    EXPECT_EQ(e4.shortName, "NoCodedType");
    EXPECT_EQ(e4.desc, "coded type missing");
    EXPECT_EQ(e4.baseDataType, "");
    EXPECT_EQ(e4.category, "");
    EXPECT_EQ(e4.encoding, "");
    EXPECT_EQ(e4.bitLength, 0);
    EXPECT_EQ(e4.dataType, 5);  // empty encoding, length 0
    EXPECT_FALSE(e4.isSigned);

    const auto& e5 = entry(db.codings, "COD_E05");
    EXPECT_EQ(e5.category, "LEADING-LENGTH-INFO-TYPE");
    EXPECT_EQ(e5.dataType, 5);
    EXPECT_EQ(e5.bitLength, 8);

    const auto& e6 = entry(db.codings, "COD_E06");
    EXPECT_EQ(e6.bitLength, 0);
    EXPECT_EQ(e6.dataType, 7);
}

TEST_F(CodingErrors, InvalidTypesLeaveDataTypeZero) {
    struct Case {
        const char* id;
        bool isSigned;
        int bitLength;
        const char* baseDataType;
        const char* encoding;
    };
    const Case cases[] = {
        {"COD_E07", true, 16, "", "IEEE-FLOATING-TYPE"},
        {"COD_E08", false, 65, "", "UNSIGNED"},
        {"COD_E09", true, 72, "", "SIGNED"},
        {"COD_E10", false, 8, "a_int8", "SIGNED"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.id);
        const auto& coding = entry(db.codings, c.id);
        EXPECT_EQ(coding.dataType, 0);
        EXPECT_EQ(coding.isSigned, c.isSigned);
        EXPECT_EQ(coding.bitLength, c.bitLength);
        EXPECT_EQ(coding.baseDataType, c.baseDataType);
        EXPECT_EQ(coding.encoding, c.encoding);
    }
}

TEST_F(CodingErrors, MethodWithoutCategoryIsKeptEmpty) {
    const auto& c = entry(db.codings, "COD_E11");
    EXPECT_EQ(c.compuMethodCount, 1u);
    ASSERT_EQ(c.compuMethods.size(), 1u);
    const auto& m = c.compuMethods[0];
    EXPECT_EQ(m.shortName, "Uncategorised");
    EXPECT_EQ(m.category, "");
    EXPECT_EQ(m.unit, nullptr);
    expectLimits(m, 0.0f, 0.0f, 0.0f, 0.0f);
    EXPECT_TRUE(m.scales.empty());
}

TEST_F(CodingErrors, SecondRationalMethodIsReadAllTheSame) {
    const auto& c = entry(db.codings, "COD_E12");
    ASSERT_EQ(c.compuMethods.size(), 2u);
    EXPECT_EQ(c.compuMethods[0].shortName, "FirstIdentical");
    EXPECT_EQ(c.compuMethods[0].category, "IDENTICAL");
    EXPECT_EQ(c.compuMethods[1].shortName, "SecondLinear");
    EXPECT_EQ(c.compuMethods[1].unit, addressOf(db.units, "U_BAR"));
    ASSERT_EQ(c.compuMethods[1].scales.size(), 1u);
    expectLinearScale(c.compuMethods[1].scales[0], 4.0f, 8.0f, 1.0f);
}

TEST_F(CodingErrors, OddNumeratorsAndDenominatorsKeepTheirScales) {
    const auto& numerators = entry(db.codings, "COD_E13").compuMethods;
    ASSERT_EQ(numerators.size(), 1u);
    ASSERT_EQ(numerators[0].scales.size(), 3u);
    expectLinearScale(numerators[0].scales[0], 7.0f, 0.0f, 1.0f);    // one V: factor reads 0
    expectLinearScale(numerators[0].scales[1], 11.0f, 12.0f, 1.0f);  // three: the first two
    expectLinearScale(numerators[0].scales[2], 0.0f, 0.0f, 0.0f);    // no coefficients at all

    const auto& denominators = entry(db.codings, "COD_E14").compuMethods;
    ASSERT_EQ(denominators.size(), 1u);
    ASSERT_EQ(denominators[0].scales.size(), 2u);
    expectLinearScale(denominators[0].scales[0], 21.0f, 22.0f, 0.0f);  // two Vs: skipped
    expectLinearScale(denominators[0].scales[1], 31.0f, 32.0f, 0.0f);  // none: skipped

    const auto& halved = entry(db.codings, "COD_E15").compuMethods;
    ASSERT_EQ(halved.size(), 1u);
    ASSERT_EQ(halved[0].scales.size(), 1u);
    expectLinearScale(halved[0].scales[0], 10.0f, 0.5f, 2.0f);
}

TEST_F(CodingErrors, SecondTextTableIsKept) {
    const auto& c = entry(db.codings, "COD_E16");
    EXPECT_EQ(c.compuMethodCount, 2u);
    ASSERT_EQ(c.compuMethods.size(), 2u);
    EXPECT_EQ(c.compuMethods[0].shortName, "FirstTable");
    ASSERT_EQ(c.compuMethods[0].scales.size(), 1u);
    expectTextEntry(c.compuMethods[0].scales[0], 0, 0, 0.0f, 0.0f, "Off");
    EXPECT_EQ(c.compuMethods[1].shortName, "SecondTable");
    EXPECT_EQ(c.compuMethods[1].category, "TEXTTABLE");
    EXPECT_EQ(c.compuMethods[1].unit, addressOf(db.units, "U_BAR"));
    ASSERT_EQ(c.compuMethods[1].scales.size(), 2u);
    expectTextEntry(c.compuMethods[1].scales[0], 1, 1, 1.0f, 1.0f, "On");
    expectTextEntry(c.compuMethods[1].scales[1], 2, 3, 2.0f, 3.0f, "Error");
}

TEST_F(CodingErrors, EntryWithoutVtIsDropped) {
    const auto& c = entry(db.codings, "COD_E17");
    ASSERT_EQ(c.compuMethods.size(), 1u);
    ASSERT_EQ(c.compuMethods[0].scales.size(), 2u);
    expectTextEntry(c.compuMethods[0].scales[0], 4, 4, 4.0f, 4.0f, "Four");
    expectTextEntry(c.compuMethods[0].scales[1], 6, 6, 6.0f, 6.0f, "Six");
}

}  // namespace
