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

inline bool found(Element parent, std::string_view path, Element& e) {
    return GetElement(parent, path, e) == xml::kOk;
}

// The trimmed text at `path`, empty when the element is missing.
std::string text(Element parent, std::string_view path) {
    std::string value;
    GetStringValue(parent, path, value, true);
    return value;
}

// Inserts `name` into an ascending list of unique names.
void insertSorted(std::vector<std::string>& names, const std::string& name) {
    const auto it = std::lower_bound(names.begin(), names.end(), name);
    if (it == names.end() || *it != name) names.insert(it, name);
}

template <typename T>
void appendOnce(std::vector<T>& list, const T& item) {
    if (std::find(list.begin(), list.end(), item) == list.end()) list.push_back(item);
}

// FlexRay channel bit of a CHANNEL-NAME: 1 for channel A, 2 for channel B.
std::uint16_t channelBit(const std::string& channelName) {
    if (channelName == "CHANNEL-A") return 1;
    if (channelName == "CHANNEL-B") return 2;
    return 0;
}

// A cycle repetition written as a number ("4") or as the enumeration text "CYCLE-REPETITION-4".
std::uint32_t cycleRepetitionValue(const std::string& value) {
    static const std::string kPrefix = "CYCLE-REPETITION-";
    std::string number = xml::trimSpaces(value);
    if (number.compare(0, kPrefix.size(), kPrefix) == 0) number.erase(0, kPrefix.size());
    return xml::toUnsigned(number);
}

inline std::uint8_t toByte(std::uint32_t value) {
    return static_cast<std::uint8_t>(std::min<std::uint32_t>(value, 255u));
}

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
    // Most paths are plain names: walk them without splitting the text into a list.
    if (path.empty() || path.find('[') != std::string_view::npos)
        return xml::findElement(start, path, out, xml::Syntax::Autosar);
    // Each name is copied into a terminated buffer so that pugixml's own child search (a loop
    // inside the library) can take it; only elements carry names in the reader's documents.
    char name[256];
    Element current = start;
    for (std::size_t begin = 0;;) {
        const std::size_t slash = path.find('/', begin);
        const std::size_t length = (slash == std::string_view::npos ? path.size() : slash) - begin;
        if (length >= sizeof name) return xml::findElement(start, path, out, xml::Syntax::Autosar);
        path.copy(name, length, begin);
        name[length] = '\0';
        current = length == 0 ? Element() : current.child(name);
        if (!current) return xml::kNotFound;
        if (slash == std::string_view::npos) break;
        begin = slash + 1;
    }
    out = current;
    return xml::kOk;
}

int GetElements(Element start, std::string_view path, ElementList& out) {
    return xml::listElements(start, path, out, xml::Syntax::Autosar);
}

float GetFloatValue(Element parent, std::string_view path, float fallback) {
    Element e;
    return found(parent, path, e) ? xml::toFloat(xml::textContent(e)) : fallback;
}

double GetDoubleValue(Element parent, std::string_view path, double fallback) {
    Element e;
    return found(parent, path, e) ? static_cast<double>(xml::toFloat(xml::textContent(e)))
                                  : fallback;
}

std::uint32_t GetUIntValue(Element parent, std::string_view path, const std::uint32_t& fallback) {
    Element e;
    return found(parent, path, e) ? xml::toUnsigned(xml::textContent(e)) : fallback;
}

std::uint64_t GetHexValue(Element parent, std::string_view path, std::uint64_t fallback) {
    Element e;
    return found(parent, path, e) ? xml::toHex64(xml::textContent(e)) : fallback;
}

bool GetUIntValue(Element parent, std::string_view path, std::uint32_t& out) {
    Element e;
    if (!found(parent, path, e)) return false;
    out = xml::toUnsigned(xml::textContent(e));
    return true;
}

bool GetUShortValue(Element parent, std::string_view path, std::uint16_t& out) {
    Element e;
    if (!found(parent, path, e)) return false;
    out = xml::toUnsigned16(xml::textContent(e));
    return true;
}

bool GetBoolValue(Element parent, std::string_view path, const bool& fallback) {
    Element e;
    return found(parent, path, e) ? xml::toBool(xml::textContent(e)) : fallback;
}

bool GetBoolValue(Element parent, std::string_view path, bool& out) {
    Element e;
    if (!found(parent, path, e)) return false;
    out = xml::toBool(xml::textContent(e));
    return true;
}

bool GetStringValue(Element parent, std::string_view path, std::string& out, bool trim) {
    Element e;
    if (!found(parent, path, e)) return false;
    out = trim ? xml::trimSpaces(xml::textContent(e)) : xml::textContent(e);
    return true;
}

bool GetAttributeValue(Element parent, std::string_view path, const char* attribute,
                       std::string& out, bool trim) {
    Element e;
    if (!found(parent, path, e)) return false;
    const char* value = e.attribute(attribute).value();
    out = trim ? xml::trimSpaces(value) : std::string(value);
    return true;
}

bool GetBoolAttributeValue(Element parent, std::string_view path, const char* attribute,
                           bool& out) {
    Element e;
    if (!found(parent, path, e)) return false;
    out = xml::toBool(e.attribute(attribute).value());
    return true;
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
}

// ---- loading ------------------------------------------------------------------------------------

AutoSarReader::AutoSarReader(const std::string& name)
    : database(std::make_unique<tAutoSarDatabase>()) {
    if (!name.empty()) loaded = LoadFile(name) == 0;
}

AutoSarReader::~AutoSarReader() = default;

void AutoSarReader::ReadAUTOSARData(const std::string& name) {
    if (name.empty()) return;
    KELO_INFO(0, "ReadAUTOSARData", "Parsing database file: '%s' started", name.c_str());
    database->Clear();
    loaded = LoadFile(name) == 0;
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
    } else {
        database->releaseCode = 255;
        KELO_ERROR(11, "LoadFile", "Version '%s' of the Database file file is not supported!",
                   schema.c_str());
        return 7;
    }

    // A failing step runs once more on the same document; the second run's code is returned.
    using Step = int (AutoSarReader::*)();
    static constexpr Step kSteps[] = {
        &AutoSarReader::ParseUnits,          &AutoSarReader::ParseCompuMethods,
        &AutoSarReader::ParsePorts,          &AutoSarReader::ParseSystemSignals,
        &AutoSarReader::ParseSignalMappings, &AutoSarReader::ParseSignals,
        &AutoSarReader::ParsePDUs,           &AutoSarReader::ParseFrames,
        &AutoSarReader::ParseECUs,           &AutoSarReader::ParseClusters,
    };
    for (Step step : kSteps) {
        if ((this->*step)() != 0) return (this->*step)();
    }
    return 0;
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

int AutoSarReader::ParseUnits() {
    for (Element element : FirstPackageWith("ELEMENTS/UNIT")) {
        tAutoSarUnitInfo unit;
        if (!GetStringValue(element, "SHORT-NAME", unit.name, true)) return 2;
        GetStringValue(element, "DESC/L-2", unit.description, true);
        if (!GetStringValue(element, "DISPLAY-NAME", unit.displayName, true))
            KELO_ERROR(3, "ParseUnits",
                       "AUTOSAR parse error: DISPLAY-NAME for unit item not found!");
        const std::string key = unit.name;
        database->units[key] = std::move(unit);
    }
    return 0;
}

int AutoSarReader::ParseCompuMethods() {
    ElementList values;
    for (Element element : FirstPackageWith("ELEMENTS/COMPU-METHOD")) {
        tAutoSarCompuMethodInfo method;
        if (!GetStringValue(element, "SHORT-NAME", method.name, true)) return 2;
        GetStringValue(element, "DESC/L-2", method.description, true);
        if (!GetStringValue(element, "CATEGORY", method.category, true)) {
            KELO_ERROR(4, "ParseCompuMethods",
                       "AUTOSAR parse error: CATEGORY for compumethod item not found!");
            return 2;
        }
        method.unit = &database->units[LastSegment(text(element, "UNIT-REF"), '/', 1)];
        ElementList scales;
        GetElements(element, "COMPU-INTERNAL-TO-PHYS/COMPU-SCALES/COMPU-SCALE", scales);
        for (Element s : scales) {
            tAutoSarCompuScale scale;
            GetElements(s, "COMPU-RATIONAL-COEFFS/COMPU-NUMERATOR/V", values);
            if (values.size() == 2) {
                scale.offset = xml::toFloat(xml::textContent(values[0]));
                scale.factor = xml::toFloat(xml::textContent(values[1]));
            }
            GetElements(s, "COMPU-RATIONAL-COEFFS/COMPU-DENOMINATOR/V", values);
            if (values.size() == 1) {
                scale.denominator = xml::toFloat(xml::textContent(values[0]));
                if (scale.denominator != 1.0f)
                    KELO_ERROR(5, "ParseCompuMethods",
                               "Database file parse error: Denominator different from 1 is not "
                               "supported!");
            }
            scale.lowerLimit = GetUIntValue(s, "LOWER-LIMIT", 0u);
            scale.upperLimit = GetUIntValue(s, "UPPER-LIMIT", 0u);
            GetStringValue(s, "COMPU-CONST/VT", scale.text, true);
            method.scales.push_back(std::move(scale));
        }
        const std::string key = method.name;
        database->compuMethods[key] = std::move(method);
    }
    return 0;
}

int AutoSarReader::ParsePorts() {
    // P-ports are read with the receiver's com-spec path too, so they normally end with the
    // compu-method stored under the empty name.
    const auto readPorts = [this](const ElementList& list) {
        for (Element element : list) {
            tAutoSarRPort port;
            if (!GetStringValue(element, "SHORT-NAME", port.name, true)) return 2;
            GetStringValue(element, "DESC/L-2", port.description, true);
            port.compuMethod = &database->compuMethods[LastSegment(
                text(element,
                     "REQUIRED-COM-SPECS/NONQUEUED-RECEIVER-COM-SPEC/NETWORK-REPRESENTATION/"
                     "SW-DATA-DEF-PROPS-VARIANTS/SW-DATA-DEF-PROPS-CONDITIONAL/COMPU-METHOD-REF"),
                '/', 1)];
            const std::string key = port.name;
            database->ports[key] = std::move(port);
        }
        return 0;
    };
    ElementList list;
    for (Element package : Packages()) {
        Element portsElement;
        if (GetElement(package, "ELEMENTS/COMPOSITION-SW-COMPONENT-TYPE/PORTS", portsElement) !=
            xml::kOk)
            continue;
        GetElements(portsElement, "R-PORT-PROTOTYPE", list);
        if (!list.empty()) return readPorts(list);
        GetElements(portsElement, "P-PORT-PROTOTYPE", list);
        if (!list.empty()) return readPorts(list);
    }
    return 0;
}

int AutoSarReader::ParseSystemSignals() {
    for (Element element : FirstPackageWith("ELEMENTS/SYSTEM-SIGNAL")) {
        tAutoSarSystemSignal signal;
        if (!GetStringValue(element, "SHORT-NAME", signal.name, true)) return 2;
        GetStringValue(element, "DESC/L-2", signal.description, true);
        const std::string key = signal.name;
        database->systemSignals[key] = std::move(signal);
    }
    return 0;
}

int AutoSarReader::ParseSignalMappings() {
    static constexpr std::string_view kMappings =
        "ELEMENTS/SYSTEM/MAPPINGS/SYSTEM-MAPPING/DATA-MAPPINGS/SENDER-RECEIVER-TO-SIGNAL-MAPPING";
    const Element package = FirstNestedPackageWith({kMappings}, 0);
    if (!package) return 0;
    ElementList mappings;
    GetElements(package, kMappings, mappings);
    for (Element mapping : mappings) {
        const std::string port =
            LastSegment(text(mapping, "DATA-ELEMENT-IREF/CONTEXT-PORT-REF"), '/', 1);
        const std::string signal = LastSegment(text(mapping, "SYSTEM-SIGNAL-REF"), '/', 1);
        database->systemSignals[signal].port = &database->ports[port];
    }
    return 0;
}

// ---- I-signals ----------------------------------------------------------------------------------

void AutoSarReader::ReadBaseTypes() {
    signedBaseTypes_.clear();
    ElementList types;
    xml::descendantsByName(document.root(), "SW-BASE-TYPE", types);
    for (Element type : types) {
        const std::string name = text(type, "SHORT-NAME");
        if (!name.empty()) signedBaseTypes_[name] = text(type, "BASE-TYPE-ENCODING") == "2C";
    }
}

int AutoSarReader::ParseSignals() {
    const Element package = FirstNestedPackageWith({"ELEMENTS/I-SIGNAL"}, 5);
    if (!package) return 0;
    ReadBaseTypes();
    ElementList signals;
    GetElements(package, "ELEMENTS/I-SIGNAL", signals);
    for (Element element : signals)
        ReadSignal(element);
    return 0;
}

void AutoSarReader::ReadSignal(Element element) {
    static constexpr std::string_view kProps =
        "NETWORK-REPRESENTATION-PROPS/SW-DATA-DEF-PROPS-VARIANTS/SW-DATA-DEF-PROPS-CONDITIONAL/";
    tAutoSarSignalInfo signal;
    if (!GetStringValue(element, "SHORT-NAME", signal.name, true)) {
        KELO_ERROR(6, "ParseSignals", "%s", kNoShortName);
        return;
    }
    GetStringValue(element, "DESC/L-2", signal.description, true);
    const std::string policy = text(element, "DATA-TYPE-POLICY");
    signal.initValue =
        GetDoubleValue(element, "INIT-VALUE/NUMERICAL-VALUE-SPECIFICATION/VALUE", 0.0);
    signal.length = static_cast<std::uint16_t>(GetUIntValue(element, "LENGTH", 0u));
    if (policy == "TRANSFORMING-I-SIGNAL") {
        signal.compuMethod = nullptr;
    } else if (policy == "NETWORK-REPRESENTATION-FROM-COM-SPEC") {
        const tAutoSarSystemSignal& system =
            database->systemSignals[LastSegment(text(element, "SYSTEM-SIGNAL-REF"), '/', 1)];
        signal.compuMethod = system.port ? system.port->compuMethod : nullptr;
    } else {
        std::string reference;
        if (GetStringValue(element, std::string(kProps) + "COMPU-METHOD-REF", reference, true))
            signal.compuMethod = &database->compuMethods[LastSegment(reference, '/', 1)];
    }
    const std::string baseType =
        LastSegment(text(element, std::string(kProps) + "BASE-TYPE-REF"), '/', 1);
    const auto type = signedBaseTypes_.find(baseType);
    signal.isSigned = type != signedBaseTypes_.end() && type->second;
    const std::string key = signal.name;
    database->signals[key] = std::move(signal);
}

// ---- PDUs ---------------------------------------------------------------------------------------

int AutoSarReader::ParsePDUs() {
    const Element package =
        FirstNestedPackageWith({"ELEMENTS/I-SIGNAL-I-PDU", "ELEMENTS/N-PDU", "ELEMENTS/NM-PDU"}, 5);
    if (!package) return 0;
    ElementList list;
    GetElements(package, "ELEMENTS/I-SIGNAL-I-PDU", list);
    for (Element element : list)
        ReadISignalIPdu(element);
    GetElements(package, "ELEMENTS/N-PDU", list);
    for (Element element : list)
        ReadOtherPdu(element, kNPdu);
    GetElements(package, "ELEMENTS/NM-PDU", list);
    for (Element element : list)
        ReadOtherPdu(element, kNmPdu);
    return 0;
}

void AutoSarReader::ReadISignalIPdu(Element element) {
    tAutoSarPDUInfo pdu;
    pdu.type = kISignalIPdu;
    if (!GetStringValue(element, "SHORT-NAME", pdu.name, true)) {
        KELO_ERROR(7, "ParsePDUs", "%s", kNoShortName);
        return;
    }
    GetStringValue(element, "DESC/L-2", pdu.description, true);
    pdu.length = static_cast<std::uint16_t>(GetUIntValue(element, "LENGTH", 0u));
    Element timing;
    if (GetElement(element,
                   "I-PDU-TIMING-SPECIFICATIONS/I-PDU-TIMING/TRANSMISSION-MODE-DECLARATION/"
                   "TRANSMISSION-MODE-TRUE-TIMING/EVENT-CONTROLLED-TIMING",
                   timing) == xml::kOk) {
        pdu.transmissionMode = 2;
        pdu.minimumDelay =
            GetDoubleValue(element, "I-PDU-TIMING-SPECIFICATIONS/I-PDU-TIMING/MINIMUM-DELAY", 0.0);
    }
    ElementList mappings;
    GetElements(element, "I-SIGNAL-TO-PDU-MAPPINGS/I-SIGNAL-TO-I-PDU-MAPPING", mappings);
    for (Element mapping : mappings) {
        tAutoSarSignalInfo& signal =
            database->signals[LastSegment(text(mapping, "I-SIGNAL-REF"), '/', 1)];
        signal.pduName = pdu.name;
        signal.byteOrder = text(mapping, "PACKING-BYTE-ORDER") == "MOST-SIGNIFICANT-BYTE-FIRST";
        signal.startPosition =
            static_cast<std::uint16_t>(GetUIntValue(mapping, "START-POSITION", 0u));
        if (!GetUShortValue(mapping, "UPDATE-INDICATION-BIT-POSITION", signal.updateBitPosition)) {
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
    if (!GetStringValue(element, "SHORT-NAME", pdu.name, true)) {
        if (type == kNPdu) {
            KELO_ERROR(8, "ParsePDUs", "%s", kNoShortName);
        } else {
            KELO_ERROR(9, "ParsePDUs", "%s", kNoShortName);
        }
        return;
    }
    GetStringValue(element, "DESC/L-2", pdu.description, true);
    pdu.length = static_cast<std::uint16_t>(GetUIntValue(element, "LENGTH", 0u));
    const std::string key = pdu.name;
    database->pdus[key] = std::move(pdu);
}

// ---- frames -------------------------------------------------------------------------------------

int AutoSarReader::ParseFrames() {
    const Element package = FirstNestedPackageWith({"ELEMENTS/FLEXRAY-FRAME"}, 5);
    if (!package) return 0;
    ElementList frames;
    GetElements(package, "ELEMENTS/FLEXRAY-FRAME", frames);
    for (Element element : frames)
        ReadFrame(element);
    return 0;
}

void AutoSarReader::ReadFrame(Element element) {
    tAutoSarFrameInfo frame;
    if (!GetStringValue(element, "SHORT-NAME", frame.name, true)) {
        KELO_ERROR(10, "ParseFrames", "%s", kNoShortName);
        return;
    }
    GetStringValue(element, "DESC/L-2", frame.description, true);
    frame.frameLength = static_cast<std::uint16_t>(GetUIntValue(element, "FRAME-LENGTH", 0u));
    ElementList mappings;
    GetElements(element, "PDU-TO-FRAME-MAPPINGS/PDU-TO-FRAME-MAPPING", mappings);
    for (Element mapping : mappings) {
        tAutoSarPDUInfo& pdu = database->pdus[LastSegment(text(mapping, "PDU-REF"), '/', 1)];
        pdu.frameName = frame.name;
        pdu.frameByteOrder = text(mapping, "PACKING-BYTE-ORDER") == "MOST-SIGNIFICANT-BYTE-FIRST";
        pdu.frameStartPosition =
            static_cast<std::uint16_t>(GetUIntValue(mapping, "START-POSITION", 0u));
        frame.pdus.push_back(&pdu);
        const std::size_t count = std::min<std::size_t>(
            static_cast<std::size_t>(std::max(pdu.signalCount, 0)), pdu.signals.size());
        for (std::size_t i = 0; i < count; ++i)
            pdu.signals[i]->frameName = frame.name;
    }
    const std::string key = frame.name;
    database->frames[key] = std::move(frame);
}

// ---- ECUs ---------------------------------------------------------------------------------------

int AutoSarReader::ParseECUs() {
    for (Element element : FirstPackageWith("ELEMENTS/ECU-INSTANCE")) {
        if (const int code = ReadEcu(element)) return code;
    }
    return 0;
}

int AutoSarReader::ReadEcu(Element element) {
    tAutoSarECUInfo ecu;
    if (!GetStringValue(element, "SHORT-NAME", ecu.name, true)) return 2;
    GetStringValue(element, "DESC/L-2", ecu.description, true);
    tAutoSarDatabase& db = *database;

    ElementList list;
    GetElements(element, "COMM-CONTROLLERS/FLEXRAY-COMMUNICATION-CONTROLLER", list);
    for (Element c : list) {
        tAutoSarController controller;
        if (!GetStringValue(c, "SHORT-NAME", controller.name, true)) continue;
        controller.key = ecu.name + "/" + controller.name;
        controller.ecuName = ecu.name;
        GetStringValue(c, "DESC/L-2", controller.description, true);
        Element p = c;
        GetElement(c,
                   "FLEXRAY-COMMUNICATION-CONTROLLER-VARIANTS/"
                   "FLEXRAY-COMMUNICATION-CONTROLLER-CONDITIONAL",
                   p);
        controller.acceptedStartupRange = GetUIntValue(p, "ACCEPTED-STARTUP-RANGE", 0u);
        controller.allowHaltDueToClock = GetBoolValue(p, "ALLOW-HALT-DUE-TO-CLOCK", false);
        controller.allowPassiveToActive = GetUIntValue(p, "ALLOW-PASSIVE-TO-ACTIVE", 0u);
        controller.clusterDriftDamping = GetUIntValue(p, "CLUSTER-DRIFT-DAMPING", 0u);
        controller.decodingCorrection = GetUIntValue(p, "DECODING-CORRECTION", 0u);
        controller.delayCompensationA = GetUIntValue(p, "DELAY-COMPENSATION-A", 0u);
        controller.delayCompensationB = GetUIntValue(p, "DELAY-COMPENSATION-B", 0u);
        controller.externOffsetCorrection = GetUIntValue(p, "EXTERN-OFFSET-CORRECTION", 0u);
        controller.externRateCorrection = GetUIntValue(p, "EXTERN-RATE-CORRECTION", 0u);
        controller.externalSync = GetBoolValue(p, "EXTERNAL-SYNC", false);
        controller.fallBackInternal = GetBoolValue(p, "FALL-BACK-INTERNAL", false);
        controller.keySlotId = GetUIntValue(p, "KEY-SLOT-ID", 0u);
        controller.keySlotOnlyEnabled = GetBoolValue(p, "KEY-SLOT-ONLY-ENABLED", false);
        controller.keySlotUsedForStartup = GetBoolValue(p, "KEY-SLOT-USED-FOR-START-UP", false);
        controller.keySlotUsedForSync = GetBoolValue(p, "KEY-SLOT-USED-FOR-SYNC", false);
        controller.latestTx = GetUIntValue(p, "LATEST-TX", 0u);
        controller.listenTimeout = GetUIntValue(p, "LISTEN-TIMEOUT", 0u);
        controller.macroInitialOffsetA = GetUIntValue(p, "MACRO-INITIAL-OFFSET-A", 0u);
        controller.macroInitialOffsetB = GetUIntValue(p, "MACRO-INITIAL-OFFSET-B", 0u);
        controller.maxDrift = GetUIntValue(p, "MAX-DRIFT", 0u);
        // Tools write the dynamic payload limit under either name.
        if (!GetUIntValue(p, "MAXIMUM-DYNAMIC-PAYLOAD-LENGTH", controller.maxDynamicPayloadLength))
            GetUIntValue(p, "MAX-DYNAMIC-PAYLOAD-LENGTH", controller.maxDynamicPayloadLength);
        controller.microInitialOffsetA = GetUIntValue(p, "MICRO-INITIAL-OFFSET-A", 0u);
        controller.microInitialOffsetB = GetUIntValue(p, "MICRO-INITIAL-OFFSET-B", 0u);
        controller.microPerCycle = GetUIntValue(p, "MICRO-PER-CYCLE", 0u);
        controller.microtickDuration = GetDoubleValue(p, "MICROTICK-DURATION", 0.0);
        controller.nmVectorEarlyUpdate = GetBoolValue(p, "NM-VECTOR-EARLY-UPDATE", false);
        controller.offsetCorrectionOut = GetUIntValue(p, "OFFSET-CORRECTION-OUT", 0u);
        controller.rateCorrectionOut = GetUIntValue(p, "RATE-CORRECTION-OUT", 0u);
        controller.samplesPerMicrotick = GetUIntValue(p, "SAMPLES-PER-MICROTICK", 0u);
        controller.secondKeySlotId = GetUIntValue(p, "SECOND-KEY-SLOT-ID", 0u);
        controller.twoKeySlotMode = GetBoolValue(p, "TWO-KEY-SLOT-MODE", false);
        controller.wakeUpPattern = GetUIntValue(p, "WAKE-UP-PATTERN", 0u);
        const std::string key = controller.key;
        tAutoSarController& stored = db.controllers[key];
        stored = std::move(controller);
        appendOnce(ecu.controllers, &stored);
    }

    GetElements(element, "CONNECTORS/FLEXRAY-COMMUNICATION-CONNECTOR", list);
    for (Element c : list) {
        tAutoSarConnector connector;
        if (!GetStringValue(c, "SHORT-NAME", connector.name, true)) continue;
        connector.key = ecu.name + "/" + connector.name;
        connector.ecuName = ecu.name;
        GetStringValue(c, "DESC/L-2", connector.description, true);
        connector.controller = &db.controllers[LastSegment(text(c, "COMM-CONTROLLER-REF"), '/', 2)];
        connector.wakeUpChannel = GetBoolValue(c, "WAKE-UP-CHANNEL", false);
        Element instances;
        if (GetElement(c, "ECU-COMM-PORT-INSTANCES", instances) == xml::kOk) {
            for (Element p = instances.first_child(); p; p = p.next_sibling()) {
                const std::string_view kindName = p.name();
                tAutoSarPortInfo port;
                if (kindName == "FRAME-PORT") {
                    port.kind = tAutoSarPortKind::Frame;
                } else if (kindName == "I-PDU-PORT") {
                    port.kind = tAutoSarPortKind::IPdu;
                } else if (kindName == "I-SIGNAL-PORT") {
                    port.kind = tAutoSarPortKind::ISignal;
                } else {
                    continue;
                }
                if (!GetStringValue(p, "SHORT-NAME", port.name, true)) continue;
                port.key = connector.key + "/" + port.name;
                port.ecuName = ecu.name;
                port.connectorName = connector.name;
                GetStringValue(p, "COMMUNICATION-DIRECTION", port.direction, true);
                port.isInput = port.direction == "IN";
                const std::string key = port.key;
                tAutoSarPortInfo& stored = db.ecuPorts[key];
                stored = std::move(port);
                appendOnce(connector.ports, &stored);
            }
        }
        const std::string key = connector.key;
        tAutoSarConnector& stored = db.connectors[key];
        stored = std::move(connector);
        appendOnce(ecu.connectors, &stored);
    }

    const std::string key = ecu.name;
    db.ecus[key] = std::move(ecu);
    return 0;
}

// ---- clusters -----------------------------------------------------------------------------------

int AutoSarReader::ParseClusters() {
    for (Element element : FirstPackageWith("ELEMENTS/FLEXRAY-CLUSTER")) {
        if (const int code = ReadCluster(element)) return code;
    }
    return 0;
}

int AutoSarReader::ReadCluster(Element element) {
    tAutoSarClusterConfig cluster;
    if (!GetStringValue(element, "SHORT-NAME", cluster.name, true)) return 2;
    GetStringValue(element, "DESC/L-2", cluster.description, true);
    Element p;
    if (GetElement(element, "FLEXRAY-CLUSTER-VARIANTS/FLEXRAY-CLUSTER-CONDITIONAL", p) ==
        xml::kOk) {
        cluster.baudrate = GetUIntValue(p, "BAUDRATE", 0u);
        GetStringValue(p, "PROTOCOL-NAME", cluster.protocolName, true);
        GetStringValue(p, "PROTOCOL-VERSION", cluster.protocolVersion, true);
        cluster.actionPointOffset = GetUIntValue(p, "ACTION-POINT-OFFSET", 0u);
        cluster.casRxLowMax = GetUIntValue(p, "CAS-RX-LOW-MAX", 0u);
        cluster.coldStartAttempts = GetUIntValue(p, "COLD-START-ATTEMPTS", 0u);
        cluster.cycle = GetDoubleValue(p, "CYCLE", 0.0);
        cluster.cycleCountMax = GetUIntValue(p, "CYCLE-COUNT-MAX", 0u);
        cluster.detectNitError = GetBoolValue(p, "DETECT-NIT-ERROR", false);
        cluster.dynamicSlotIdlePhase = GetUIntValue(p, "DYNAMIC-SLOT-IDLE-PHASE", 0u);
        cluster.ignoreAfterTx = GetUIntValue(p, "IGNORE-AFTER-TX", 0u);
        cluster.listenNoise = GetUIntValue(p, "LISTEN-NOISE", 0u);
        cluster.macroPerCycle = GetUIntValue(p, "MACRO-PER-CYCLE", 0u);
        cluster.macrotickDuration = GetDoubleValue(p, "MACROTICK-DURATION", 0.0);
        cluster.maxInitializationError = GetUIntValue(p, "MAX-INITIALIZATION-ERROR", 0u);
        cluster.maxWithoutClockCorrectionFatal =
            GetUIntValue(p, "MAX-WITHOUT-CLOCK-CORRECTION-FATAL", 0u);
        cluster.maxWithoutClockCorrectionPassive =
            GetUIntValue(p, "MAX-WITHOUT-CLOCK-CORRECTION-PASSIVE", 0u);
        cluster.minislotActionPointOffset = GetUIntValue(p, "MINISLOT-ACTION-POINT-OFFSET", 0u);
        cluster.minislotDuration = GetUIntValue(p, "MINISLOT-DURATION", 0u);
        cluster.networkIdleTime = GetUIntValue(p, "NETWORK-IDLE-TIME", 0u);
        cluster.networkManagementVectorLength =
            GetUIntValue(p, "NETWORK-MANAGEMENT-VECTOR-LENGTH", 0u);
        cluster.numberOfMinislots = GetUIntValue(p, "NUMBER-OF-MINISLOTS", 0u);
        cluster.numberOfStaticSlots = GetUIntValue(p, "NUMBER-OF-STATIC-SLOTS", 0u);
        cluster.offsetCorrectionStart = GetUIntValue(p, "OFFSET-CORRECTION-START", 0u);
        cluster.payloadLengthStatic = GetUIntValue(p, "PAYLOAD-LENGTH-STATIC", 0u);
        cluster.safetyMargin = GetUIntValue(p, "SAFETY-MARGIN", 0u);
        cluster.sampleClockPeriod = GetDoubleValue(p, "SAMPLE-CLOCK-PERIOD", 0.0);
        cluster.staticSlotDuration = GetUIntValue(p, "STATIC-SLOT-DURATION", 0u);
        cluster.symbolWindow = GetUIntValue(p, "SYMBOL-WINDOW", 0u);
        cluster.symbolWindowActionPointOffset =
            GetUIntValue(p, "SYMBOL-WINDOW-ACTION-POINT-OFFSET", 0u);
        cluster.syncFrameIdCountMax = GetUIntValue(p, "SYNC-FRAME-ID-COUNT-MAX", 0u);
        cluster.transmissionStartSequenceDuration =
            GetUIntValue(p, "TRANSMISSION-START-SEQUENCE-DURATION", 0u);
        cluster.wakeupRxIdle = GetUIntValue(p, "WAKEUP-RX-IDLE", 0u);
        cluster.wakeupRxLow = GetUIntValue(p, "WAKEUP-RX-LOW", 0u);
        cluster.wakeupRxWindow = GetUIntValue(p, "WAKEUP-RX-WINDOW", 0u);
        cluster.wakeupTxActive = GetUIntValue(p, "WAKEUP-TX-ACTIVE", 0u);
        cluster.wakeupTxIdle = GetUIntValue(p, "WAKEUP-TX-IDLE", 0u);
        ElementList channels;
        GetElements(p, "PHYSICAL-CHANNELS/FLEXRAY-PHYSICAL-CHANNEL", channels);
        for (Element channel : channels)
            ReadChannel(channel, cluster);
    }
    const std::string key = cluster.name;
    database->clusters[key] = std::move(cluster);
    return 0;
}

void AutoSarReader::ReadChannel(Element element, tAutoSarClusterConfig& cluster) {
    tAutoSarDatabase& db = *database;
    std::string name;
    if (!GetStringValue(element, "SHORT-NAME", name, true)) return;
    const std::string channelKey = cluster.name + "/" + name;
    tAutoSarChannel& channel = db.channels[channelKey];
    channel = tAutoSarChannel();
    channel.key = channelKey;
    channel.name = name;
    GetStringValue(element, "CHANNEL-NAME", channel.channelName, true);
    channel.channelMask = channelBit(channel.channelName);
    appendOnce(cluster.channels, &channel);

    ElementList list, refs;
    const auto portsOf = [&](Element item, std::string_view path) {
        std::vector<tAutoSarPortInfo*> ports;
        GetElements(item, path, refs);
        for (Element ref : refs)
            ports.push_back(
                &db.ecuPorts[LastSegment(xml::trimSpaces(xml::textContent(ref)), '/', 3)]);
        return ports;
    };
    const auto keysOf = [&](Element item, std::string_view path) {
        std::vector<std::string> keys;
        GetElements(item, path, refs);
        for (Element ref : refs)
            keys.push_back(LastSegment(xml::trimSpaces(xml::textContent(ref)), '/', 3));
        return keys;
    };

    // The ECUs attached to the channel, through their connectors.
    GetElements(element, "COMM-CONNECTORS/COMMUNICATION-CONNECTOR-REF", refs);
    for (Element ref : refs) {
        tAutoSarConnector& connector =
            db.connectors[LastSegment(xml::trimSpaces(xml::textContent(ref)), '/', 2)];
        appendOnce(channel.connectors, &connector);
        appendOnce(connector.channelKeys, channelKey);
        connector.channelMask |= channel.channelMask;
        if (connector.controller) {
            connector.controller->channelMask |= channel.channelMask;
            if (connector.wakeUpChannel && connector.controller->wakeUpChannel == 0)
                connector.controller->wakeUpChannel = channel.channelMask;
        }
    }

    GetElements(element, "FRAME-TRIGGERINGS/FLEXRAY-FRAME-TRIGGERING", list);
    for (Element t : list) {
        tAutoSarFrameTriggering triggering;
        if (!GetStringValue(t, "SHORT-NAME", triggering.name, true)) continue;
        triggering.key = channelKey + "/" + triggering.name;
        triggering.channelKey = channelKey;
        triggering.channelMask = channel.channelMask;
        triggering.frame = &db.frames[LastSegment(text(t, "FRAME-REF"), '/', 1)];
        triggering.ports = portsOf(t, "FRAME-PORT-REFS/FRAME-PORT-REF");
        triggering.pduTriggeringKeys =
            keysOf(t, "PDU-TRIGGERINGS/PDU-TRIGGERING-REF-CONDITIONAL/PDU-TRIGGERING-REF");
        triggering.cycleRepetition = 1;
        Element timing;
        if (GetElement(t, "ABSOLUTELY-SCHEDULED-TIMINGS/FLEXRAY-ABSOLUTELY-SCHEDULED-TIMING",
                       timing) == xml::kOk) {
            triggering.slotId = static_cast<std::uint16_t>(GetUIntValue(timing, "SLOT-ID", 0u));
            // The cycle is written either flat (BASE-CYCLE, CYCLE-REPETITION), nested as
            // COMMUNICATION-CYCLE/CYCLE-REPETITION/{BASE-CYCLE, CYCLE-REPETITION}, or as a single
            // cycle COMMUNICATION-CYCLE/CYCLE-COUNTER/CYCLE-COUNTER.
            Element cycle = xml::firstChild(timing, "COMMUNICATION-CYCLE");
            if (!cycle) cycle = timing;
            Element holder = cycle;
            Element repetition = xml::firstChild(cycle, "CYCLE-REPETITION");
            if (repetition && xml::firstChild(repetition, "CYCLE-REPETITION")) {
                holder = repetition;
                repetition = xml::firstChild(repetition, "CYCLE-REPETITION");
            }
            Element counter = xml::firstChild(cycle, "CYCLE-COUNTER");
            if (repetition) {
                triggering.baseCycle = toByte(GetUIntValue(holder, "BASE-CYCLE", 0u));
                triggering.cycleRepetition =
                    toByte(cycleRepetitionValue(xml::textContent(repetition)));
            } else if (counter) {
                if (Element inner = xml::firstChild(counter, "CYCLE-COUNTER")) counter = inner;
                triggering.baseCycle = toByte(xml::toUnsigned(xml::textContent(counter)));
                triggering.cycleRepetition = 64;
            } else {
                triggering.baseCycle = toByte(GetUIntValue(holder, "BASE-CYCLE", 0u));
            }
        }
        const std::string key = triggering.key;
        tAutoSarFrameTriggering& stored = db.frameTriggerings[key];
        stored = std::move(triggering);
        appendOnce(channel.frameTriggerings, &stored);

        tAutoSarFrameInfo& frame = *stored.frame;
        if (frame.slotId == 0 && stored.slotId != 0) {
            frame.slotId = stored.slotId;
            frame.baseCycle = stored.baseCycle;
            frame.cycleRepetition = stored.cycleRepetition;
        }
        frame.channelMask |= stored.channelMask;
        if (frame.clusterName.empty()) frame.clusterName = cluster.name;
        if (!frame.name.empty()) insertSorted(cluster.frameNames, frame.name);
        xml::enterFrameName(db.frameNamesBySlot, stored.slotId, stored.baseCycle,
                            stored.cycleRepetition, frame.name);
        for (const tAutoSarPortInfo* port : stored.ports) {
            if (port->ecuName.empty() || frame.name.empty()) continue;
            const auto ecu = db.ecus.find(port->ecuName);
            if (port->isInput) {
                insertSorted(frame.receiverEcus, port->ecuName);
                if (ecu != db.ecus.end()) insertSorted(ecu->second.receivedFrames, frame.name);
            } else {
                insertSorted(frame.senderEcus, port->ecuName);
                if (ecu != db.ecus.end()) insertSorted(ecu->second.sentFrames, frame.name);
            }
        }
    }

    GetElements(element, "PDU-TRIGGERINGS/PDU-TRIGGERING", list);
    for (Element t : list) {
        tAutoSarPDUTriggering triggering;
        if (!GetStringValue(t, "SHORT-NAME", triggering.name, true)) continue;
        triggering.key = channelKey + "/" + triggering.name;
        triggering.channelKey = channelKey;
        triggering.pdu = &db.pdus[LastSegment(text(t, "I-PDU-REF"), '/', 1)];
        triggering.ports = portsOf(t, "I-PDU-PORT-REFS/I-PDU-PORT-REF");
        triggering.signalTriggeringKeys = keysOf(
            t, "I-SIGNAL-TRIGGERINGS/I-SIGNAL-TRIGGERING-REF-CONDITIONAL/I-SIGNAL-TRIGGERING-REF");
        const std::string key = triggering.key;
        tAutoSarPDUTriggering& stored = db.pduTriggerings[key];
        stored = std::move(triggering);
        appendOnce(channel.pduTriggerings, &stored);
    }

    GetElements(element, "I-SIGNAL-TRIGGERINGS/I-SIGNAL-TRIGGERING", list);
    for (Element t : list) {
        tAutoSarSignalTriggering triggering;
        if (!GetStringValue(t, "SHORT-NAME", triggering.name, true)) continue;
        triggering.key = channelKey + "/" + triggering.name;
        triggering.channelKey = channelKey;
        triggering.signal = &db.signals[LastSegment(text(t, "I-SIGNAL-REF"), '/', 1)];
        triggering.ports = portsOf(t, "I-SIGNAL-PORT-REFS/I-SIGNAL-PORT-REF");
        const std::string key = triggering.key;
        tAutoSarSignalTriggering& stored = db.signalTriggerings[key];
        stored = std::move(triggering);
        appendOnce(channel.signalTriggerings, &stored);
    }
}

}  // namespace autosar
}  // namespace kelo
