#include "autosar/autosar_reader.h"

#include <QString>
#include <algorithm>
#include <unordered_set>

#include "xml/diagnostics.h"

namespace kelo {
namespace autosar {

namespace {

constexpr const char* kPackagePath = "AR-PACKAGES/AR-PACKAGE";
const char* const kNoShortName = "Database file parse error: SHORT-NAME of signal item not found!";

}  // namespace

// ---- reference and path access ----------------------------------------------------------------

std::string LastSegment(std::string_view text, char separator, unsigned count) {
    if (count == 0) return std::string(text);
    std::size_t end = text.size();
    for (unsigned i = 0; i < count; ++i) {
        if (end == 0) return std::string(text);
        const std::size_t at = text.rfind(separator, end - 1);
        if (at == std::string_view::npos) return std::string(text);
        if (i + 1 == count) return std::string(text.substr(at + 1));
        end = at;
    }
    return std::string(text);
}

int GetElement(Element start, std::string_view path, Element& out) {
    return xml::findElement(start, path, out, xml::Syntax::Autosar);
}

int GetElements(Element start, std::string_view path, ElementList& out) {
    return xml::listElements(start, path, out, xml::Syntax::Autosar);
}

// ---- database -----------------------------------------------------------------------------------

void tAutoSarDatabase::Clear() {
    units.clear();
    compuMethods.clear();
    ports.clear();
    systemSignals.clear();
    signals.clear();
    pdus.clear();
    frames.clear();
    ecus.clear();
    controllers.clear();
    connectors.clear();
    ecuPorts.clear();
    clusters.clear();
    channels.clear();
    frameTriggerings.clear();
    pduTriggerings.clear();
    signalTriggerings.clear();
    frameNamesBySlot.clear();
    notes.clear();
}

// ---- loading ------------------------------------------------------------------------------------

AutoSarReader::AutoSarReader(const std::string& name, bool readAllRules)
    : database(std::make_unique<tAutoSarDatabase>()), readAll(readAllRules) {
    if (!name.empty()) loaded = LoadFile(name) == xml::kOk;
}

AutoSarReader::~AutoSarReader() = default;

void AutoSarReader::ReadAUTOSARData(const std::string& name) {
    if (name.empty()) return;
    KELO_INFO(0, "ReadAUTOSARData", "Parsing database file: '%s' started", name.c_str());
    database->Clear();
    loaded = LoadFile(name) == xml::kOk;
    if (loaded) {
        KELO_INFO(2, "ReadAUTOSARData", "Parsing succeeded.");
    } else {
        KELO_ERROR(1, "ReadAUTOSARData", "Parsing failed.");
    }
}

void AutoSarReader::ForgetDocument() {
    packages_.clear();
    packagesRead_ = false;
    namesBelow_.clear();
    nestedIn_.clear();
    elementsNamed_.clear();
    renamed_.clear();
    for (KindIndex& kind : kinds_) {
        kind.byPath.clear();
        kind.byShortName.clear();
    }
}

int AutoSarReader::LoadFile(const std::string& name) {
    fileName = name;
    ForgetDocument();
    const int code =
        document.loadFile(QString::fromUtf8(name.data(), static_cast<int>(name.size())));
    if (code != xml::kOk) return code;
    return ReadDocument();
}

int AutoSarReader::LoadText(std::string_view content) {
    ForgetDocument();
    const int code = document.loadText(content);
    if (code != xml::kOk) return code;
    return ReadDocument();
}

int AutoSarReader::ReadDocument() {
    database->readAll = readAll;
    database->notes.clear();
    if (const int code = CheckRelease()) return code;
    if (readAll) IndexElements();

    // A failing step ends the load (see xml::runStep).
    using Step = int (AutoSarReader::*)();
    static constexpr Step kSteps[] = {
        &AutoSarReader::ParseUnits,          &AutoSarReader::ParseCompuMethods,
        &AutoSarReader::ParsePorts,          &AutoSarReader::ParseSystemSignals,
        &AutoSarReader::ParseSignalMappings, &AutoSarReader::ParseSignals,
        &AutoSarReader::ParsePDUs,           &AutoSarReader::ParseFrames,
        &AutoSarReader::ParseECUs,           &AutoSarReader::ParseClusters,
    };
    for (Step step : kSteps) {
        const int code = xml::runStep([this, step] { return (this->*step)(); });
        if (code != xml::kOk) return code;
    }
    return xml::kOk;
}

int AutoSarReader::CheckRelease() {
    // The schema file is the second blank-separated part of xsi:schemaLocation, e.g.
    // "http://autosar.org/schema/r4.0 AUTOSAR_4-2-2.xsd". Without a second part the release is
    // unknown.
    const std::string location = document.root().attribute("xsi:schemaLocation").value();
    std::string schema;
    bool hasSchema = false;
    const std::size_t blank = location.find(' ');
    if (blank != std::string::npos) {
        const std::size_t next = location.find(' ', blank + 1);
        schema = location.substr(blank + 1, next == std::string::npos ? next : next - blank - 1);
        hasSchema = true;
    }
    if (hasSchema && schema.find("4-1-") != std::string::npos) {
        database->releaseCode = 0;
    } else if (hasSchema && schema.find("4-2-") != std::string::npos) {
        database->releaseCode = 1;
    } else if (readAll && std::string_view(document.root().name()) == "AUTOSAR") {
        // Other releases (4.0, 4.3 and later, the R-numbered ones) keep the elements read here.
        database->releaseCode = 1;
        Note(12, "LoadFile",
             xml::formatMessage("Release of schema '%s' read as release 4.2", schema.c_str()));
    } else {
        database->releaseCode = 255;
        KELO_ERROR(11, "LoadFile", "Version '%s' of the Database file file is not supported!",
                   schema.c_str());
        return xml::kUnsupported;
    }
    return xml::kOk;
}

// ---- package selection --------------------------------------------------------------------------

const ElementList& AutoSarReader::Packages() {
    if (!packagesRead_) {
        packagesRead_ = true;
        packages_.clear();
        const Element root = document.root();
        if (root && std::string_view(root.name()) == "AUTOSAR")
            GetElements(root, kPackagePath, packages_);
    }
    return packages_;
}

bool AutoSarReader::Holds(Element package, std::string_view path) {
    static constexpr std::string_view kElements = "ELEMENTS/";
    const std::string_view kind = path.substr(std::min(path.size(), kElements.size()));
    if (path.compare(0, kElements.size(), kElements) != 0 || kind.empty() ||
        kind.find_first_of("/[") != std::string_view::npos) {
        ElementList items;
        return GetElements(package, path, items) == xml::kOk && !items.empty();
    }
    const Element elements = xml::firstChild(package, "ELEMENTS");
    if (!elements) return false;
    auto it = namesBelow_.find(elements.internal_object());
    if (it == namesBelow_.end()) {
        struct Collect : pugi::xml_tree_walker {
            std::unordered_set<std::string_view>* names;
            bool for_each(pugi::xml_node& node) override {
                if (node.type() == pugi::node_element) names->insert(node.name());
                return true;
            }
        } collect;
        it = namesBelow_.emplace(elements.internal_object(), std::unordered_set<std::string_view>())
                 .first;
        collect.names = &it->second;
        Element(elements).traverse(collect);
    }
    return it->second.count(kind) != 0;
}

ElementList AutoSarReader::FirstPackageWith(std::string_view path) {
    ElementList items;
    for (Element package : Packages()) {
        if (!Holds(package, path)) continue;
        if (GetElements(package, path, items) == xml::kOk && !items.empty()) return items;
    }
    items.clear();
    return items;
}

Element AutoSarReader::FirstNestedPackageWith(std::initializer_list<std::string_view> paths,
                                              std::size_t minimum) {
    // A package P is searched through the packages nested in it. When P yields nothing, no
    // package nested in P can either (its own nested packages are fewer and among P's), so those
    // are passed over: each part of the tree is walked once, however deep the nesting.
    std::unordered_set<const void*> covered;
    for (Element p : Packages()) {
        if (covered.count(p.internal_object())) continue;
        auto known = nestedIn_.find(p.internal_object());
        if (known == nestedIn_.end()) {
            auto list = std::make_unique<ElementList>();
            if (GetElements(p, kPackagePath, *list) != xml::kOk) list.reset();
            known = nestedIn_.emplace(p.internal_object(), std::move(list)).first;
        }
        if (!known->second) continue;  // no AR-PACKAGES
        const ElementList& nested = *known->second;
        for (Element q : nested)
            covered.insert(q.internal_object());
        if (nested.size() < minimum) continue;
        for (Element q : nested) {
            for (std::string_view path : paths) {
                if (Holds(q, path)) return q;
            }
        }
    }
    return Element();
}

// ---- units, compu-methods, ports, system signals ---------------------------------------

ElementList AutoSarReader::StepElements(const char* name) {
    if (readAll) return elementsNamed_[name];
    return FirstPackageWith(std::string("ELEMENTS/") + name);
}

bool AutoSarReader::StopsStep(const char* what, const char* operation) {
    if (!readAll) return true;
    Note(13, operation, xml::formatMessage("%s without SHORT-NAME skipped", what));
    return false;
}

int AutoSarReader::ParseUnits() {
    for (Element element : StepElements("UNIT")) {
        if (!ReadUnit(element) && StopsStep("UNIT", "ParseUnits")) return xml::kMissing;
    }
    return xml::kOk;
}

bool AutoSarReader::ReadUnit(Element element) {
    tAutoSarUnitInfo unit;
    if (!xml::readTextInto(element, "SHORT-NAME", unit.name, true)) return false;
    Rename(element, unit.name);
    xml::readTextInto(element, "DESC/L-2", unit.description, true);
    if (!xml::readTextInto(element, "DISPLAY-NAME", unit.displayName, true))
        KELO_ERROR(3, "ParseUnits", "AUTOSAR parse error: DISPLAY-NAME for unit item not found!");
    const std::string key = unit.name;
    database->units[key] = std::move(unit);
    return true;
}

int AutoSarReader::ParseCompuMethods() {
    for (Element element : StepElements("COMPU-METHOD")) {
        bool noCategory = false;
        if (!ReadCompuMethod(element, noCategory)) {
            if (noCategory) {
                KELO_ERROR(4, "ParseCompuMethods",
                           "AUTOSAR parse error: CATEGORY for compumethod item not found!");
                return xml::kMissing;
            }
            if (StopsStep("COMPU-METHOD", "ParseCompuMethods")) return xml::kMissing;
        }
    }
    return xml::kOk;
}

bool AutoSarReader::ReadCompuMethod(Element element, bool& noCategory) {
    tAutoSarCompuMethodInfo method;
    if (!xml::readTextInto(element, "SHORT-NAME", method.name, true)) return false;
    Rename(element, method.name);
    xml::readTextInto(element, "DESC/L-2", method.description, true);
    noCategory = !xml::readTextInto(element, "CATEGORY", method.category, true);
    if (noCategory && !readAll) return false;
    method.unit = &database->units[Key(Kind::Unit, xml::textAt(element, "UNIT-REF"))];
    ElementList scales, values;
    GetElements(element, "COMPU-INTERNAL-TO-PHYS/COMPU-SCALES/COMPU-SCALE", scales);
    for (Element s : scales) {
        tAutoSarCompuScale scale;
        GetElements(s, "COMPU-RATIONAL-COEFFS/COMPU-NUMERATOR/V", values);
        if (values.size() == 2) {
            scale.offset = xml::toFloat(xml::textContent(values[0]));
            scale.factor = xml::toFloat(xml::textContent(values[1]));
            scale.rational = true;
        }
        GetElements(s, "COMPU-RATIONAL-COEFFS/COMPU-DENOMINATOR/V", values);
        if (values.size() == 1) {
            scale.denominator = xml::toFloat(xml::textContent(values[0]));
            if (scale.denominator != 1.0f)
                KELO_ERROR(5, "ParseCompuMethods",
                           "Database file parse error: Denominator different from 1 is not "
                           "supported!");
        }
        scale.lowerLimit = xml::readUnsigned(s, "LOWER-LIMIT", 0u);
        scale.upperLimit = xml::readUnsigned(s, "UPPER-LIMIT", 0u);
        xml::readTextInto(s, "COMPU-CONST/VT", scale.text, true);
        method.scales.push_back(std::move(scale));
    }
    if (readAll) ImplyCategory(method, noCategory);
    const std::string key = method.name;
    database->compuMethods[key] = std::move(method);
    return true;
}

bool AutoSarReader::ReadPort(Element element, bool provided) {
    // Strict: P-ports are read with the receiver's com-spec path too, so they normally end with
    // the compu-method stored under the empty name. Read-all reads a P-port's sender com-spec.
    static constexpr std::string_view kRequired =
        "REQUIRED-COM-SPECS/NONQUEUED-RECEIVER-COM-SPEC/NETWORK-REPRESENTATION/"
        "SW-DATA-DEF-PROPS-VARIANTS/SW-DATA-DEF-PROPS-CONDITIONAL/COMPU-METHOD-REF";
    static constexpr std::string_view kProvided =
        "PROVIDED-COM-SPECS/NONQUEUED-SENDER-COM-SPEC/NETWORK-REPRESENTATION/"
        "SW-DATA-DEF-PROPS-VARIANTS/SW-DATA-DEF-PROPS-CONDITIONAL/COMPU-METHOD-REF";
    tAutoSarRPort port;
    if (!xml::readTextInto(element, "SHORT-NAME", port.name, true)) return false;
    Rename(element, port.name);
    xml::readTextInto(element, "DESC/L-2", port.description, true);
    port.compuMethod = &database->compuMethods[Key(
        Kind::CompuMethod, xml::textAt(element, provided && readAll ? kProvided : kRequired))];
    const std::string key = port.name;
    database->ports[key] = std::move(port);
    return true;
}

int AutoSarReader::ParsePorts() {
    const auto readPorts = [this](const ElementList& list, bool provided) {
        for (Element element : list) {
            if (!ReadPort(element, provided) && StopsStep("PORT-PROTOTYPE", "ParsePorts"))
                return xml::kMissing;
        }
        return xml::kOk;
    };
    if (readAll) {
        readPorts(elementsNamed_["R-PORT-PROTOTYPE"], false);
        return readPorts(elementsNamed_["P-PORT-PROTOTYPE"], true);
    }
    ElementList list;
    for (Element package : Packages()) {
        Element portsElement;
        if (GetElement(package, "ELEMENTS/COMPOSITION-SW-COMPONENT-TYPE/PORTS", portsElement) !=
            xml::kOk)
            continue;
        GetElements(portsElement, "R-PORT-PROTOTYPE", list);
        if (!list.empty()) return readPorts(list, false);
        GetElements(portsElement, "P-PORT-PROTOTYPE", list);
        if (!list.empty()) return readPorts(list, true);
    }
    return xml::kOk;
}

int AutoSarReader::ParseSystemSignals() {
    for (Element element : StepElements("SYSTEM-SIGNAL")) {
        if (!ReadSystemSignal(element) && StopsStep("SYSTEM-SIGNAL", "ParseSystemSignals"))
            return xml::kMissing;
    }
    return xml::kOk;
}

bool AutoSarReader::ReadSystemSignal(Element element) {
    tAutoSarSystemSignal signal;
    if (!xml::readTextInto(element, "SHORT-NAME", signal.name, true)) return false;
    Rename(element, signal.name);
    xml::readTextInto(element, "DESC/L-2", signal.description, true);
    const std::string key = signal.name;
    database->systemSignals[key] = std::move(signal);
    return true;
}

int AutoSarReader::ParseSignalMappings() {
    static constexpr std::string_view kMappings =
        "ELEMENTS/SYSTEM/MAPPINGS/SYSTEM-MAPPING/DATA-MAPPINGS/SENDER-RECEIVER-TO-SIGNAL-MAPPING";
    ElementList mappings;
    if (readAll) {
        mappings = elementsNamed_["SENDER-RECEIVER-TO-SIGNAL-MAPPING"];
    } else {
        const Element package = FirstNestedPackageWith({kMappings}, 0);
        if (!package) return xml::kOk;
        GetElements(package, kMappings, mappings);
    }
    for (Element mapping : mappings)
        ReadMapping(mapping);
    return xml::kOk;
}

void AutoSarReader::ReadMapping(Element mapping) {
    const std::string port =
        Key(Kind::Port, xml::textAt(mapping, "DATA-ELEMENT-IREF/CONTEXT-PORT-REF"));
    const std::string signal = Key(Kind::SystemSignal, xml::textAt(mapping, "SYSTEM-SIGNAL-REF"));
    database->systemSignals[signal].port = &database->ports[port];
}

// ---- I-signals ----------------------------------------------------------------------------------

void AutoSarReader::ReadBaseTypes() {
    signedBaseTypes_.clear();
    ElementList types;
    xml::descendantsByName(document.root(), "SW-BASE-TYPE", types);
    for (Element type : types) {
        const std::string name = xml::textAt(type, "SHORT-NAME");
        if (!name.empty()) signedBaseTypes_[name] = xml::textAt(type, "BASE-TYPE-ENCODING") == "2C";
    }
}

int AutoSarReader::ParseSignals() {
    ElementList signals;
    if (readAll) {
        signals = elementsNamed_["I-SIGNAL"];
    } else {
        const Element package = FirstNestedPackageWith({"ELEMENTS/I-SIGNAL"}, 5);
        if (!package) return xml::kOk;
        GetElements(package, "ELEMENTS/I-SIGNAL", signals);
    }
    ReadBaseTypes();
    for (Element element : signals)
        ReadSignal(element);
    return xml::kOk;
}

void AutoSarReader::ReadSignal(Element element) {
    static constexpr std::string_view kProps =
        "NETWORK-REPRESENTATION-PROPS/SW-DATA-DEF-PROPS-VARIANTS/SW-DATA-DEF-PROPS-CONDITIONAL/";
    tAutoSarSignalInfo signal;
    if (!xml::readTextInto(element, "SHORT-NAME", signal.name, true)) {
        KELO_ERROR(6, "ParseSignals", "%s", kNoShortName);
        if (readAll) StopsStep("I-SIGNAL", "ParseSignals");
        return;
    }
    Rename(element, signal.name);
    xml::readTextInto(element, "DESC/L-2", signal.description, true);
    const std::string policy = xml::textAt(element, "DATA-TYPE-POLICY");
    signal.initValue =
        xml::readDouble(element, "INIT-VALUE/NUMERICAL-VALUE-SPECIFICATION/VALUE", 0.0);
    signal.length = static_cast<std::uint16_t>(xml::readUnsigned(element, "LENGTH", 0u));
    if (policy == "TRANSFORMING-I-SIGNAL") {
        signal.compuMethod = nullptr;
    } else if (policy == "NETWORK-REPRESENTATION-FROM-COM-SPEC") {
        const tAutoSarSystemSignal& system =
            database
                ->systemSignals[Key(Kind::SystemSignal, xml::textAt(element, "SYSTEM-SIGNAL-REF"))];
        signal.compuMethod = system.port ? system.port->compuMethod : nullptr;
    } else {
        std::string reference;
        if (xml::readTextInto(element, std::string(kProps) + "COMPU-METHOD-REF", reference, true))
            signal.compuMethod = &database->compuMethods[Key(Kind::CompuMethod, reference)];
    }
    const std::string baseType =
        LastSegment(xml::textAt(element, std::string(kProps) + "BASE-TYPE-REF"), '/', 1);
    const auto type = signedBaseTypes_.find(baseType);
    signal.isSigned = type != signedBaseTypes_.end() && type->second;
    const std::string key = signal.name;
    database->signals[key] = std::move(signal);
}

// ---- PDUs ---------------------------------------------------------------------------------------

int AutoSarReader::ParsePDUs() {
    Element package;
    if (!readAll) {
        package = FirstNestedPackageWith(
            {"ELEMENTS/I-SIGNAL-I-PDU", "ELEMENTS/N-PDU", "ELEMENTS/NM-PDU"}, 5);
        if (!package) return xml::kOk;
    }
    const auto kindList = [&](const char* name) {
        ElementList list;
        if (readAll)
            list = elementsNamed_[name];
        else
            GetElements(package, std::string("ELEMENTS/") + name, list);
        return list;
    };
    for (Element element : kindList("I-SIGNAL-I-PDU"))
        ReadISignalIPdu(element);
    for (Element element : kindList("N-PDU"))
        ReadOtherPdu(element, kNPdu);
    for (Element element : kindList("NM-PDU"))
        ReadOtherPdu(element, kNmPdu);
    return xml::kOk;
}

void AutoSarReader::ReadISignalIPdu(Element element) {
    tAutoSarPDUInfo pdu;
    pdu.type = kISignalIPdu;
    if (!xml::readTextInto(element, "SHORT-NAME", pdu.name, true)) {
        KELO_ERROR(7, "ParsePDUs", "%s", kNoShortName);
        if (readAll) StopsStep("I-SIGNAL-I-PDU", "ParsePDUs");
        return;
    }
    Rename(element, pdu.name);
    xml::readTextInto(element, "DESC/L-2", pdu.description, true);
    pdu.length = static_cast<std::uint16_t>(xml::readUnsigned(element, "LENGTH", 0u));
    Element timing;
    if (GetElement(element,
                   "I-PDU-TIMING-SPECIFICATIONS/I-PDU-TIMING/TRANSMISSION-MODE-DECLARATION/"
                   "TRANSMISSION-MODE-TRUE-TIMING/EVENT-CONTROLLED-TIMING",
                   timing) == xml::kOk) {
        pdu.transmissionMode = 2;
        pdu.minimumDelay =
            xml::readDouble(element, "I-PDU-TIMING-SPECIFICATIONS/I-PDU-TIMING/MINIMUM-DELAY", 0.0);
    }
    ElementList mappings;
    GetElements(element, "I-SIGNAL-TO-PDU-MAPPINGS/I-SIGNAL-TO-I-PDU-MAPPING", mappings);
    for (Element mapping : mappings) {
        tAutoSarSignalInfo& signal =
            database->signals[Key(Kind::Signal, xml::textAt(mapping, "I-SIGNAL-REF"))];
        signal.pduName = pdu.name;
        signal.byteOrder =
            xml::textAt(mapping, "PACKING-BYTE-ORDER") == "MOST-SIGNIFICANT-BYTE-FIRST";
        signal.startPosition =
            static_cast<std::uint16_t>(xml::readUnsigned(mapping, "START-POSITION", 0u));
        if (!xml::readUnsigned16Into(mapping, "UPDATE-INDICATION-BIT-POSITION",
                                     signal.updateBitPosition)) {
            signal.updateBitPosition = 65535;
            pdu.signals.push_back(&signal);
            continue;
        }
        // The update bit becomes a one-bit signal of its own, "<signal>_UB".
        tAutoSarSignalInfo updateBit;
        updateBit.name = signal.name + "_UB";
        updateBit.length = 1;
        updateBit.startPosition = signal.updateBitPosition;
        updateBit.updateBitPosition = 65535;
        updateBit.pduName = pdu.name;
        const std::string key = updateBit.name;
        tAutoSarSignalInfo& stored = database->signals[key];
        stored = std::move(updateBit);
        signal.updateBitSignal = &stored;
        pdu.signals.push_back(&signal);
        pdu.signals.push_back(&stored);
    }
    pdu.signalCount = static_cast<std::int32_t>(pdu.signals.size());
    const std::string key = pdu.name;
    database->pdus[key] = std::move(pdu);
}

void AutoSarReader::ReadOtherPdu(Element element, std::uint16_t type) {
    tAutoSarPDUInfo pdu;
    pdu.type = type;
    if (!xml::readTextInto(element, "SHORT-NAME", pdu.name, true)) {
        if (type == kNPdu) {
            KELO_ERROR(8, "ParsePDUs", "%s", kNoShortName);
        } else {
            KELO_ERROR(9, "ParsePDUs", "%s", kNoShortName);
        }
        if (readAll) StopsStep(type == kNPdu ? "N-PDU" : "NM-PDU", "ParsePDUs");
        return;
    }
    Rename(element, pdu.name);
    xml::readTextInto(element, "DESC/L-2", pdu.description, true);
    pdu.length = static_cast<std::uint16_t>(xml::readUnsigned(element, "LENGTH", 0u));
    const std::string key = pdu.name;
    database->pdus[key] = std::move(pdu);
}

// ---- frames -------------------------------------------------------------------------------------

int AutoSarReader::ParseFrames() {
    ElementList frames;
    if (readAll) {
        frames = elementsNamed_["FLEXRAY-FRAME"];
    } else {
        const Element package = FirstNestedPackageWith({"ELEMENTS/FLEXRAY-FRAME"}, 5);
        if (!package) return xml::kOk;
        GetElements(package, "ELEMENTS/FLEXRAY-FRAME", frames);
    }
    for (Element element : frames)
        ReadFrame(element);
    return xml::kOk;
}

void AutoSarReader::ReadFrame(Element element) {
    tAutoSarFrameInfo frame;
    if (!xml::readTextInto(element, "SHORT-NAME", frame.name, true)) {
        KELO_ERROR(10, "ParseFrames", "%s", kNoShortName);
        if (readAll) StopsStep("FLEXRAY-FRAME", "ParseFrames");
        return;
    }
    Rename(element, frame.name);
    xml::readTextInto(element, "DESC/L-2", frame.description, true);
    frame.frameLength = static_cast<std::uint16_t>(xml::readUnsigned(element, "FRAME-LENGTH", 0u));
    ElementList mappings;
    GetElements(element, "PDU-TO-FRAME-MAPPINGS/PDU-TO-FRAME-MAPPING", mappings);
    for (Element mapping : mappings) {
        tAutoSarPDUInfo& pdu = database->pdus[Key(Kind::Pdu, xml::textAt(mapping, "PDU-REF"))];
        pdu.frameName = frame.name;
        pdu.frameByteOrder =
            xml::textAt(mapping, "PACKING-BYTE-ORDER") == "MOST-SIGNIFICANT-BYTE-FIRST";
        pdu.frameStartPosition =
            static_cast<std::uint16_t>(xml::readUnsigned(mapping, "START-POSITION", 0u));
        frame.pdus.push_back(&pdu);
        const std::size_t count = std::min<std::size_t>(
            static_cast<std::size_t>(std::max(pdu.signalCount, 0)), pdu.signals.size());
        for (std::size_t i = 0; i < count; ++i)
            pdu.signals[i]->frameName = frame.name;
    }
    const std::string key = frame.name;
    database->frames[key] = std::move(frame);
}

}  // namespace autosar
}  // namespace kelo
