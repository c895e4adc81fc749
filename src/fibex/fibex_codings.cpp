#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fibex/fibex_steps.h"

namespace kelo {
namespace fibex {

namespace {

// BASE-DATA-TYPE names by code (code = index + 1; 9 is not used).
const char* const kBaseDataTypes[] = {
    "A_INT8",    "A_INT16",       "A_INT32",          "A_INT64",     "A_UINT8",
    "A_UINT16",  "A_UINT32",      "A_UINT64",         nullptr,       "A_FLOAT32",
    "A_FLOAT64", "A_ASCIISTRING", "A_UNICODE2STRING", "A_BYTEFIELD", "A_BITFIELD",
};

std::uint16_t baseDataTypeCode(const std::string& name) {
    for (std::size_t i = 0; i < sizeof kBaseDataTypes / sizeof kBaseDataTypes[0]; ++i)
        if (kBaseDataTypes[i] && name == kBaseDataTypes[i])
            return static_cast<std::uint16_t>(i + 1);
    return xml::kOk;
}

constexpr char kOp[] = "ParseCodings";
const char* const kMethodItems[] = {"ho:SHORT-NAME",       "ho:CATEGORY",
                                    "ho:UNIT-REF",         "ho:PHYS-CONSTRS",
                                    "ho:INTERNAL-CONSTRS", "ho:COMPU-INTERNAL-TO-PHYS"};
enum { kMethodName, kCategory, kUnitRef, kPhysConstrs, kInternalConstrs, kToPhys };

using Units = xml::KeyedMap<decltype(BusDatabase::units)>;

// Element lists reused from coding to coding, so that the loops allocate only while they grow.
struct CodingScratch {
    std::vector<Element> methods, scales, values;
};

// The coded type: base data type (else the physical type's), category, bit length, encoding.
void readCodedType(Element codedType, Element physicalType, Coding& coding) {
    if (!codedType) KELO_ERROR(4, kOp, "Database file parse error: CODED-TYPE not found!");
    coding.baseDataType = trimmedAttribute(codedType, "ho:BASE-DATA-TYPE");
    if (coding.baseDataType.empty() && physicalType)
        coding.baseDataType = trimmedAttribute(physicalType, "ho:BASE-DATA-TYPE");
    coding.category = trimmedAttribute(codedType, "CATEGORY");
    if (coding.category != "STANDARD-LENGTH-TYPE")
        KELO_ERROR(5, kOp, "Database file parse error: Invalid CATEGORY found!");
    coding.bitLength =
        static_cast<std::uint16_t>(readUnsigned(child(codedType, "ho:BIT-LENGTH"), 0));
    if (coding.bitLength == 0)
        KELO_ERROR(6, kOp, "Database file parse error: BIT-LENGTH of coded type not found!");
    coding.isSigned = false;
    coding.encoding = trimmedAttribute(codedType, "ENCODING");
}

// Data type and signedness: the base data type alone decides when there is one; otherwise the
// encoding and the bit length.
void setDataType(Coding& coding) {
    const unsigned bits = coding.bitLength;
    if (!coding.baseDataType.empty()) {
        coding.dataType = baseDataTypeCode(coding.baseDataType);
        if (coding.dataType == 0)
            KELO_ERROR(10, kOp,
                       "Database file parse error: Invalid BASE-DATA-TYPE item '%s' found!",
                       coding.baseDataType.c_str());
        coding.isSigned = coding.dataType >= kInt8 && coding.dataType <= kInt64;
    } else if (coding.encoding == "IEEE-FLOATING-TYPE") {
        coding.isSigned = true;
        if (bits == 32)
            coding.dataType = kFloat32;
        else if (bits == 64)
            coding.dataType = kFloat64;
        else
            KELO_ERROR(7, kOp,
                       "Database file parse error: Invalid ENCODING=IEEE-FLOATING-TYPE with "
                       "bitlength %d found!",
                       static_cast<int>(bits));
    } else if (coding.encoding == "UNSIGNED" || coding.encoding.empty()) {
        coding.isSigned = false;
        if (bits <= 8)
            coding.dataType = kUInt8;
        else if (bits <= 16)
            coding.dataType = kUInt16;
        else if (bits <= 32)
            coding.dataType = kUInt32;
        else if (bits <= 64)
            coding.dataType = kUInt64;
        else
            KELO_ERROR(8, kOp, "Database file parse error: Invalid bitlength %d found!",
                       static_cast<int>(bits));
    } else if (coding.encoding == "SIGNED") {
        coding.isSigned = true;
        if (bits <= 8)
            coding.dataType = kInt8;
        else if (bits <= 16)
            coding.dataType = kInt16;
        else if (bits <= 32)
            coding.dataType = kInt32;
        else if (bits <= 64)
            coding.dataType = kInt64;
        else
            KELO_ERROR(9, kOp, "Database file parse error: Invalid bitlength %d found!",
                       static_cast<int>(bits));
    }
}

// A LINEAR or IDENTICAL method: its limits and its rational scales.
void readRationalScales(const Element (&parts)[6], CompuMethod& method, CodingScratch& scratch) {
    const Element phys = child(parts[kPhysConstrs], "ho:SCALE-CONSTR");
    const Element internal = child(parts[kInternalConstrs], "ho:SCALE-CONSTR");
    method.physLowerLimit = readFloat(child(phys, "ho:LOWER-LIMIT"), -kFloatMax);
    method.physUpperLimit = readFloat(child(phys, "ho:UPPER-LIMIT"), kFloatMax);
    method.internalLowerLimit = readFloat(child(internal, "ho:LOWER-LIMIT"), -kFloatMax);
    method.internalUpperLimit = readFloat(child(internal, "ho:UPPER-LIMIT"), kFloatMax);
    listBelow(child(parts[kToPhys], "ho:COMPU-SCALES"), "ho:COMPU-SCALE", scratch.scales);
    method.scales.reserve(scratch.scales.size());
    for (const Element s : scratch.scales) {
        CompuScale scale;
        const Element coeffs = child(s, "ho:COMPU-RATIONAL-COEFFS");
        listBelow(child(coeffs, "ho:COMPU-NUMERATOR"), "ho:V", scratch.values);
        if (scratch.values.size() != 2)
            KELO_ERROR(13, kOp,
                       "Database file parse error: Expected two "
                       "<COMPU-NUMERATOR><V> items");
        scale.offset = scratch.values.size() > 0 ? readFloat(scratch.values[0], 0.0f) : 0.0f;
        scale.factor = scratch.values.size() > 1 ? readFloat(scratch.values[1], 0.0f) : 0.0f;
        if (listBelow(child(coeffs, "ho:COMPU-DENOMINATOR"), "ho:V", scratch.values)) {
            if (scratch.values.size() != 1) {
                KELO_ERROR(14, kOp,
                           "Database file parse error: No or only one "
                           "<COMPU-DENOMINATOR><V> is supported!");
            } else {
                scale.denominator = readFloat(scratch.values[0], 0.0f);
                if (scale.denominator != 1.0f)
                    KELO_ERROR(15, kOp,
                               "Database file parse error: Denominator different from "
                               "1 is not supported!");
            }
        }
        method.scales.push_back(std::move(scale));
    }
}

// A TEXTTABLE method: a text per value range; a scale without a text is reported and left out.
void readTextTable(Element toPhys, CompuMethod& method, const Coding& coding,
                   CodingScratch& scratch) {
    listBelow(child(toPhys, "ho:COMPU-SCALES"), "ho:COMPU-SCALE", scratch.scales);
    method.scales.reserve(scratch.scales.size());
    for (const Element s : scratch.scales) {
        CompuScale scale;
        const Element lower = child(s, "ho:LOWER-LIMIT");
        const Element upper = child(s, "ho:UPPER-LIMIT");
        scale.lowerLimit = readUnsigned(lower, 0);
        scale.upperLimit = readUnsigned(upper, 0);
        if (readText(at(s, {"ho:COMPU-CONST", "ho:VT"}), scale.text)) {
            scale.lowerLimitValue = readFloat(lower, -kFloatMax);
            scale.upperLimitValue = readFloat(upper, kFloatMax);
            method.scales.push_back(std::move(scale));
        } else {
            KELO_ERROR(17, kOp,
                       "Database file parse error: Expected a <COMPU-CONST><VT> item, "
                       "while parsing texttable from method %s of coding %s, will "
                       "ignore this texttable entry.",
                       method.shortName.c_str(), coding.shortName.c_str());
        }
    }
}

// One COMPU-METHOD of a coding. A second method of the same kind in one coding is reported (the
// flags say which kinds the coding has had).
CompuMethod readCompuMethod(Element m, Units& units, const Coding& coding, bool& rationalSeen,
                            bool& textTableSeen, CodingScratch& scratch) {
    Element parts[6];
    findChildren(m, kMethodItems, parts);
    CompuMethod method;
    readText(parts[kMethodName], method.shortName);
    const bool hasCategory = readText(parts[kCategory], method.category);
    if (!hasCategory)
        KELO_ERROR(11, kOp, "Database file parse error: CATEGORY of compu-method not found!");
    const bool rational =
        hasCategory && (method.category == "LINEAR" || method.category == "IDENTICAL");
    const bool textTable = hasCategory && method.category == "TEXTTABLE";
    if (rational || textTable) {
        if (parts[kUnitRef]) method.unit = &units[attribute(parts[kUnitRef], "ID-REF")];
    }
    if (rational) {
        if (rationalSeen)
            KELO_ERROR(12, kOp, "Database file parse error: only one COMPU-METHOD SCALE supported");
        rationalSeen = true;
        readRationalScales(parts, method, scratch);
    } else if (textTable) {
        if (textTableSeen)
            KELO_ERROR(16, kOp,
                       "Database file parse error: only one COMPU-METHOD TEXTTABLE is "
                       "supported!");
        textTableSeen = true;
        readTextTable(parts[kToPhys], method, coding, scratch);
    }
    return method;
}

}  // namespace

// ---- units and codings -----------------------------------------------------------------------

int FibexReader::ParseUnits() {
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    int code = xml::kOk;
    forEachBelow(at(document.root(), {"fx:PROCESSING-INFORMATION", "ho:UNIT-SPEC", "ho:UNITS"}),
                 "ho:UNIT", [&](Element e) {
                     Unit unit;
                     if (!readText(child(e, "ho:SHORT-NAME"), unit.shortName)) {
                         if (SkipsMissing(42, "ParseUnits", "ho:UNIT")) return true;
                         code = xml::kMissing;
                         return false;
                     }
                     readText(child(e, "ho:DESC"), unit.desc);
                     if (!readText(child(e, "ho:DISPLAY-NAME"), unit.displayName))
                         KELO_ERROR(3, "ParseUnits",
                                    "FIBEX parse error: DISPLAY-NAME for unit item not found!");
                     maps.units.store(attribute(e, "ID"), std::move(unit));
                     return true;
                 });
    return code;
}

int FibexReader::ParseCodings() {
    static const char* const kCodingItems[] = {"ho:SHORT-NAME", "ho:DESC", "ho:CODED-TYPE",
                                               "ho:PHYSICAL-TYPE", "ho:COMPU-METHODS"};
    enum { kShortName, kDesc, kCodedType, kPhysicalType, kMethods };
    std::unique_ptr<LoadMaps> own;
    LoadMaps& maps = mapsForStep(own);
    // The codings in document order, stored in the map together at the end (also when the step
    // stops early: the codings read until then stay).
    std::vector<std::string_view> ids;
    std::vector<Coding> read;
    CodingScratch scratch;
    TextStore texts;
    int code = xml::kOk;
    const auto readCoding = [&](Element e) {
        Element items[5];
        findChildren(e, kCodingItems, items);
        Coding coding;
        if (!readText(items[kShortName], coding.shortName)) {
            if (SkipsMissing(42, "ParseCodings", "fx:CODING")) return true;
            code = xml::kMissing;
            return false;
        }
        readText(items[kDesc], coding.desc);
        readCodedType(items[kCodedType], items[kPhysicalType], coding);
        setDataType(coding);
        listBelow(items[kMethods], "ho:COMPU-METHOD", scratch.methods);
        coding.compuMethodCount = static_cast<std::uint32_t>(scratch.methods.size());
        coding.compuMethods.reserve(scratch.methods.size());
        bool rationalSeen = false, textTableSeen = false;
        for (const Element m : scratch.methods)
            coding.compuMethods.push_back(
                readCompuMethod(m, maps.units, coding, rationalSeen, textTableSeen, scratch));
        ids.push_back(keepAttribute(e, "ID", texts));
        read.push_back(std::move(coding));
        return true;
    };
    forEachBelow(at(document.root(), {"fx:PROCESSING-INFORMATION", "fx:CODINGS"}), "fx:CODING",
                 readCoding);
    maps.codings.indexAhead(ids.size());
    maps.codings.storeAll(ids, [&read](std::size_t i) -> Coding&& { return std::move(read[i]); });
    return code;
}

}  // namespace fibex
}  // namespace kelo
