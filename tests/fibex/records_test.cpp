// The unit, coding, signal, PDU and frame steps: the realistic file's records, the data-type and
// type-code tables, and the faults that drop an element or keep it half read.
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
// A coding's type as "data type signed|unsigned bit length".
std::string codedType(const kelo::fibex::Coding& r) {
    return std::to_string(r.dataType) + (r.isSigned ? " signed " : " unsigned ") +
           std::to_string(r.bitLength);
}
void expectLimits(const CompuMethod& r, float physLower, float physUpper, float internalLower,
                  float internalUpper) {
    expectAll({EQ(r.physLowerLimit, physLower), EQ(r.physUpperLimit, physUpper),
               EQ(r.internalLowerLimit, internalLower), EQ(r.internalUpperLimit, internalUpper)});
}

// The realistic file: units are read before codings, the base data type is the coded type's,
// update-bit signals take only their bit position from the instance and no coding.
TEST_F(FibexTest, RealisticFileRecords) {
    loadOk("small-flexray-cluster.xml");
    // A method without UNIT-REF (the gear table) links no unit and inserts none.
    EXPECT_EQ(keys(db.units), (Keys{"U_DEGC", "U_KMH"}));
    const auto& r = entry(db.codings, "COD_SPEED");
    const auto& m = r.compuMethods.at(0);
    const auto& ub = entry(db.signals, "SIG_SPEED_UB");
    expectAll({EQ(r.baseDataType, "A_UINT16"), EQ(r.dataType, 6), EQ(r.bitLength, 13),
               EQ(m.unit->displayName, "km/h"), EQ(ub.bitPosition, 39), EQ(ub.coding, nullptr),
               EQ(entry(db.pdus, "PDU_DYN").signalInstances.at(0).updateBitSignal, &ub),
               EQ(entry(db.frames, "FR_DYN").pduInstances.at(0).updateBitPosition, 120)});
    expectLinear(m.scales.at(0), -12.5f, 0.08f, 1.0f);
}

// A missing denominator keeps its reset value; text-table limits; another category is appended
// with nothing below it read.
TEST_F(FibexTest, CompuMethodsOfEachCategory) {
    loadOk("codings-linear-identical-texttable.xml");
    EXPECT_EQ(entry(db.units, "U_NO_DISPLAY").displayName, "");
    const auto& m = entry(db.codings, "COD_LINEAR").compuMethods.at(0);
    expectLimits(m, -kFltMax, kFltMax, 2.0f, 65533.0f);  // physical limits absent
    expectLinear(m.scales.at(1), -3.0f, 0.25f, 0.0f);
    // A text table's limits are not read; -1 is no unsigned number (0, but -1.0 as float); no
    // UPPER-LIMIT gives 0 and the largest float; the VT is trimmed.
    const auto& tm = entry(db.codings, "COD_TEXTTABLE").compuMethods.at(0);
    ASSERT_EQ(tm.scales.size(), 4u);
    expectLimits(tm, 0.0f, 0.0f, 0.0f, 0.0f);
    expectText(tm.scales[1], 0, 0, -1.0f, -1.0f, "Invalid");
    expectText(tm.scales[2], 9, 0, 9.0f, kFltMax, "Padded value");
    expectText(tm.scales[3], 0, 12, 2.5f, 12.0f, "Fractional");
    const auto& mixed = entry(db.codings, "COD_MIXED").compuMethods;
    expectAll({EQ(mixed.size(), 3u), EQ(mixed.at(2).category, "SCALE-LINEAR-AND-TEXTTABLE"),
               EQ(mixed.at(2).scales.size(), 0u)});
}

TEST_F(FibexTest, DataTypeTable) {
    loadOk("coding-data-types.xml");
    EXPECT_EQ(db.codings.size(), 39u);
    const auto t = [this](const char* id) { return codedType(entry(db.codings, id)); };
    expectAll({EQ(t("DT_A_INT8"), "1 signed 8"), EQ(t("DT_A_FLOAT32"), "10 unsigned 32"),
               EQ(t("DT_UINT8_SIGNED"), "5 unsigned 8"), EQ(t("DT_SIGNED_0"), "1 signed 0"),
               EQ(t("DT_SIGNED_9"), "2 signed 9"), EQ(t("DT_SIGNED_17"), "3 signed 17"),
               EQ(t("DT_SIGNED_64"), "4 signed 64"), EQ(t("DT_UNSIGNED_9"), "6 unsigned 9")});
    expectAll({EQ(t("DT_UNSIGNED_33"), "8 unsigned 33"),
               EQ(t("DT_NO_ENCODING_16"), "6 unsigned 16"), EQ(t("DT_IEEE_32"), "10 signed 32"),
               EQ(t("DT_IEEE_64"), "11 signed 64"), EQ(t("DT_BCD_8"), "0 unsigned 8"),
               EQ(t("DT_PHYSICAL_FALLBACK"), "3 signed 8")});
    EXPECT_EQ(entry(db.codings, "DT_PHYSICAL_FALLBACK").baseDataType, "A_INT32");
}

// Every faulty coding is kept with what could be read; invalid types leave data type 0.
TEST_F(FibexTest, FaultyCodingsAreKept) {
    loadOk("coding-errors.xml");
    EXPECT_EQ(db.codings.size(), 14u);
    const auto& e4 = entry(db.codings, "COD_E04");
    expectAll({EQ(e4.category, ""), EQ(e4.bitLength, 0), EQ(e4.dataType, 5),
               EQ(entry(db.codings, "COD_E06").dataType, 7)});
    const auto t = [this](const char* id) { return codedType(entry(db.codings, id)); };
    expectAll({EQ(t("COD_E07"), "0 signed 16"), EQ(t("COD_E08"), "0 unsigned 65"),
               EQ(t("COD_E10"), "0 unsigned 8")});
    // A method without category is kept empty; a second rational method is read all the same.
    const auto& e12 = entry(db.codings, "COD_E12").compuMethods;
    expectAll({EQ(entry(db.codings, "COD_E11").compuMethods.at(0).category, ""),
               EQ(entry(db.codings, "COD_E11").compuMethods.at(0).scales.size(), 0u),
               EQ(e12.size(), 2u), EQ(e12.at(1).unit, addressOf(db.units, "U_BAR"))});
    // Odd numerators and denominators keep their scales: one V gives factor 0, three the first
    // two, none no coefficients; two denominators or none are skipped.
    const auto& numerators = entry(db.codings, "COD_E13").compuMethods.at(0).scales;
    const auto& denominators = entry(db.codings, "COD_E14").compuMethods.at(0).scales;
    ASSERT_EQ(numerators.size(), 3u);
    ASSERT_EQ(denominators.size(), 2u);
    expectLinear(numerators[0], 7.0f, 0.0f, 1.0f);
    expectLinear(numerators[1], 11.0f, 12.0f, 1.0f);
    expectLinear(numerators[2], 0.0f, 0.0f, 0.0f);
    expectLinear(denominators[0], 21.0f, 22.0f, 0.0f);
    expectLinear(entry(db.codings, "COD_E15").compuMethods.at(0).scales.at(0), 10.0f, 0.5f, 2.0f);
    // A second text table is kept; an entry without VT is dropped.
    ASSERT_EQ(entry(db.codings, "COD_E16").compuMethods.size(), 2u);
    expectText(entry(db.codings, "COD_E17").compuMethods.at(0).scales.at(1), 6, 6, 6.0f, 6.0f,
               "Six");
}

// Without SHORT-NAME or CODING-REF a signal is dropped; of two with the same SHORT-NAME both
// stay and the name links the last; texts are trimmed of spaces; a default keeps float precision.
TEST_F(FibexTest, SignalFaultsAndNames) {
    loadOk("signal-errors.xml");
    EXPECT_EQ(keys(db.signals), (Keys{"SIG_BAD_DEFAULT", "SIG_FIRST", "SIG_PADDED", "SIG_SECOND"}));
    EXPECT_EQ(keys(db.signalsByName), (Keys{"BadDefault", "Padded", "Twin"}));
    const auto& padded = entry(db.signals, "SIG_PADDED");
    expectAll({EQ(entry(db.signalsByName, "Twin"), addressOf(db.signals, "SIG_SECOND")),
               EQ(entry(db.signals, "SIG_FIRST").defaultValue, static_cast<double>(0.1f)),
               EQ(padded.shortName, "Padded"), EQ(padded.desc, "spaces around"),
               EQ(padded.defaultValue, -2.75),
               EQ(entry(db.signals, "SIG_BAD_DEFAULT").defaultValue, 0.0)});
}

// Update-bit signals are found by name and by ID; bit 0 is an update bit, 65535 none; only the
// instance in the PDU's list links the update-bit signal.
TEST_F(FibexTest, UpdateBitSignals) {
    loadOk("update-bits.xml");
    EXPECT_EQ(db.signals.size(), 6u);
    const auto& ub = entry(db.signals, "SIG_DOOR_UB");
    const auto& instances = entry(db.pdus, "PDU_BODY").signalInstances;
    ASSERT_EQ(instances.size(), 4u);
    expectAll({EQ(ub.bitPosition, 39), EQ(ub.isHighLowByteOrder, false), EQ(ub.defaultValue, 0.0),
               EQ(entry(db.signalsByName, "DoorOpen_UB"), &ub),
               EQ(entry(db.signals, "SIG_HORN_UB").bitPosition, 0),
               EQ(instances[0].updateBitSignal, &ub), EQ(instances[1].updateBitSignal, nullptr),
               EQ(instances[3].updateBitPosition, 65535),
               EQ(entry(db.signalInstances, "SI_DOOR").updateBitSignal, nullptr)});
}

TEST_F(FibexTest, ByteOrdersAndTypeCodes) {
    loadOk("byte-orders.xml");
    // A signal's byte order is its instance's.
    const auto order = [this](const std::string& name) {
        EXPECT_EQ(entry(db.signals, "SIG_" + name).isHighLowByteOrder,
                  entry(db.signalInstances, "SI_" + name).isHighLowByteOrder);
        return entry(db.signals, "SIG_" + name).isHighLowByteOrder;
    };
    expectAll({EQ(order("MIXED"), true), EQ(order("ABSENT"), false),
               EQ(entry(db.pduInstances, "PI_MOTOROLA").isHighLowByteOrder, true),
               EQ(entry(db.pduInstances, "PI_DEFAULT").isHighLowByteOrder, false)});

    // The type text is trimmed before the exact, case-sensitive lookup; frames like PDUs.
    db.Clear();
    loadOk("pdu-and-frame-types.xml");
    const auto type = [this](const std::string& id) {
        const auto& pdu = entry(db.pdus, "PDU_" + id);
        const auto& frame = entry(db.frames, "FR_" + id);
        EXPECT_EQ(frame.frameType + "=" + std::to_string(frame.frameTypeCode),
                  pdu.pduType + "=" + std::to_string(pdu.pduTypeCode));
        return pdu.pduType + "=" + std::to_string(pdu.pduTypeCode);
    };
    expectAll(
        {EQ(db.pdus.size(), 15u), EQ(type("XCP_RUNTIME_CONFIGURED"), "XCP_RUNTIME_CONFIGURED=10"),
         EQ(type("LOWER_NM"), "nm=0"), EQ(type("SPACE_NM"), "NM=6"), EQ(type("ABSENT"), "=0")});
}

// Without SHORT-NAME or BYTE-LENGTH a PDU or frame is dropped with its instances; a missing bit
// position reads 0, a missing byte order false; PDU instances sit on whole bytes only; counts
// count every listed instance.
TEST_F(FibexTest, PduAndFrameFaults) {
    loadOk("pdu-errors.xml");
    EXPECT_EQ(keys(db.pdus), Keys{"PDU_GOOD"});
    EXPECT_EQ(keys(db.signalInstances), (Keys{"SI_NO_BIT", "SI_NO_ORDER"}));
    const auto& c = entry(db.signals, "SIG_C");
    const auto& d = entry(db.signals, "SIG_D");
    expectAll({EQ(entry(db.signals, "SIG_A").pduId, ""),
               EQ(entry(db.pdus, "PDU_GOOD").signalInstanceCount, 2u), EQ(c.pduId, "PDU_GOOD"),
               EQ(c.bitPosition, 0), EQ(c.isHighLowByteOrder, true), EQ(d.bitPosition, 17),
               EQ(d.isHighLowByteOrder, false)});

    db.Clear();
    loadOk("frame-errors.xml");
    EXPECT_EQ(keys(db.frames), Keys{"FR_FAULTY_INSTANCES"});
    EXPECT_EQ(keys(db.pduInstances), Keys{"PI_GOOD"});
    const auto& frame = entry(db.frames, "FR_FAULTY_INSTANCES");
    expectAll({EQ(frame.pduInstanceCount, 3u), EQ(frame.pduInstances.size(), 1u),
               EQ(frame.pduInstances.at(0).bitPosition, 128),
               EQ(frame.pduInstances.at(0).pdu, addressOf(db.pdus, "PDU_X"))});

    db.Clear();
    loadOk("pdu-instances-byte-and-non-byte.xml");
    const auto& placements = entry(db.frames, "FR_PLACEMENTS");
    const auto& list = placements.pduInstances;
    ASSERT_EQ(list.size(), 3u);  // bits 12 and 7 are dropped
    expectAll({EQ(placements.pduInstanceCount, 5u), EQ(list[0].bitPosition, 0),
               EQ(list[1].bitPosition, 16), EQ(list[2].bitPosition, 88)});
    EXPECT_EQ(keys(db.pduInstances), (Keys{"PI_AT_0", "PI_AT_16", "PI_AT_88"}));
}

}  // namespace
