// The read-all rules of the AUTOSAR reader: one walk finds every element the steps read, names
// the records (the full path where a SHORT-NAME is shared within a kind) and indexes the paths
// that references name; compu-methods without a known CATEGORY get the one their scales imply.
#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "autosar/autosar_reader.h"
#include "xml/diagnostics.h"

namespace kelo {
namespace autosar {

namespace {

struct ReadName {
    const char* name;
    Kind kind;
    bool named;  // a record kind with a SHORT-NAME (the mappings only form a list)
};

constexpr ReadName kReadNames[] = {
    {"UNIT", Kind::Unit, true},
    {"COMPU-METHOD", Kind::CompuMethod, true},
    {"R-PORT-PROTOTYPE", Kind::Port, true},
    {"P-PORT-PROTOTYPE", Kind::Port, true},
    {"SYSTEM-SIGNAL", Kind::SystemSignal, true},
    {"SENDER-RECEIVER-TO-SIGNAL-MAPPING", Kind::SystemSignal, false},
    {"I-SIGNAL", Kind::Signal, true},
    {"I-SIGNAL-I-PDU", Kind::Pdu, true},
    {"N-PDU", Kind::Pdu, true},
    {"NM-PDU", Kind::Pdu, true},
    {"FLEXRAY-FRAME", Kind::Frame, true},
    {"ECU-INSTANCE", Kind::Ecu, true},
    {"FLEXRAY-CLUSTER", Kind::Cluster, true},
};

const char* const kKindNames[kKindCount] = {
    "unit", "compu-method", "port", "system signal", "signal", "PDU", "frame", "ECU", "cluster"};

// The SHORT-NAME of an identifiable element: its first child element (where the schema puts
// it), so elements with many children and no name (ELEMENTS, AR-PACKAGES) cost one step.
std::string shortNameOf(Element element) {
    Element first = element.first_child();
    while (first && first.type() != pugi::node_element)
        first = first.next_sibling();
    if (!first || !xml::sameName(first.name(), "SHORT-NAME")) return std::string();
    return xml::trimSpaces(xml::textContent(first));
}

// "/Package/Sub/Element": the SHORT-NAMEs of the element and of every ancestor that has one.
// Ancestors' paths are kept, so each is built once however many elements it holds.
class PathIndex {
  public:
    const std::string& of(Element element) {
        const auto known = paths_.find(element.internal_object());
        if (known != paths_.end()) return known->second;
        std::string path;
        const Element parent = element.parent();
        if (parent && parent.type() == pugi::node_element) path = of(parent);
        const std::string name = shortNameOf(element);
        if (!name.empty()) path += "/" + name;
        return paths_.emplace(element.internal_object(), std::move(path)).first->second;
    }

  private:
    std::unordered_map<const void*, std::string> paths_;
};

bool knownCategory(const std::string& category) {
    static const char* const kKnown[] = {"IDENTICAL", "LINEAR", "SCALE_LINEAR", "TEXTTABLE",
                                         "SCALE_LINEAR_AND_TEXTTABLE"};
    return std::any_of(std::begin(kKnown), std::end(kKnown),
                       [&](const char* known) { return category == known; });
}

}  // namespace

void AutoSarReader::Note(int number, const char* operation, const std::string& text) {
    xml::note(database->notes, number, operation, text);
}

void AutoSarReader::IndexElements() {
    struct Found {
        Element element;
        Kind kind;
        std::string shortName;
    };
    std::vector<Found> found;
    struct Collect : pugi::xml_tree_walker {
        AutoSarReader* reader;
        std::vector<Found>* found;
        bool for_each(pugi::xml_node& node) override {
            if (node.type() != pugi::node_element) return true;
            for (const ReadName& read : kReadNames) {
                if (!xml::sameName(node.name(), read.name)) continue;
                reader->elementsNamed_[read.name].push_back(node);
                const std::string name = shortNameOf(node);
                if (read.named && !name.empty()) found->push_back({node, read.kind, name});
                break;
            }
            return true;
        }
    } collect;
    collect.reader = this;
    collect.found = &found;
    document.root().traverse(collect);

    // How many elements of each kind share a SHORT-NAME.
    for (const Found& f : found) {
        auto& entry = kinds_[static_cast<std::size_t>(f.kind)].byShortName[f.shortName];
        ++entry.second;
    }
    PathIndex paths;
    for (const Found& f : found) {
        KindIndex& kind = kinds_[static_cast<std::size_t>(f.kind)];
        auto& entry = kind.byShortName[f.shortName];
        const std::string path = paths.of(f.element);
        std::string key = f.shortName;
        if (entry.second > 1) {
            key = path;
            renamed_[f.element.internal_object()] = path;
            Note(14, "LoadFile",
                 xml::formatMessage("%s '%s' shares its SHORT-NAME; named '%s'",
                                    kKindNames[static_cast<std::size_t>(f.kind)],
                                    f.shortName.c_str(), path.c_str()));
        }
        if (entry.first.empty()) entry.first = key;
        kind.byPath.emplace(path, key);
    }
}

void AutoSarReader::Rename(Element element, std::string& name) const {
    if (!readAll) return;
    const auto it = renamed_.find(element.internal_object());
    if (it != renamed_.end()) name = it->second;
}

std::string AutoSarReader::Key(Kind kind, std::string_view reference, unsigned depth) {
    if (!readAll) return LastSegment(reference, '/', depth);
    const std::string path = xml::trimSpaces(reference);
    if (depth > 1) {
        // An item below its owner ("ECU/CONNECTOR/PORT"): the owner's key and the rest.
        const std::string tail = LastSegment(path, '/', depth - 1);
        if (tail.size() >= path.size()) return LastSegment(path, '/', depth);
        return Key(kind, std::string_view(path).substr(0, path.size() - tail.size() - 1)) + "/" +
               tail;
    }
    const KindIndex& index = kinds_[static_cast<std::size_t>(kind)];
    const auto byPath = index.byPath.find(path);
    if (byPath != index.byPath.end()) return byPath->second;
    const std::string last = LastSegment(path, '/', 1);
    const auto byName = index.byShortName.find(last);
    if (byName != index.byShortName.end()) {
        if (byName->second.second == 1) return byName->second.first;
        Note(15, "LoadFile",
             xml::formatMessage("Reference '%s' names no %s by path and its last segment is "
                                "shared; left unresolved",
                                path.c_str(), kKindNames[static_cast<std::size_t>(kind)]));
    }
    return last;
}

void AutoSarReader::ImplyCategory(tAutoSarCompuMethodInfo& method, bool noCategory) {
    if (!noCategory && knownCategory(method.category)) return;
    const auto rational = static_cast<std::size_t>(
        std::count_if(method.scales.begin(), method.scales.end(),
                      [](const tAutoSarCompuScale& s) { return s.rational; }));
    const bool texts = std::any_of(method.scales.begin(), method.scales.end(),
                                   [](const tAutoSarCompuScale& s) { return !s.text.empty(); });
    const char* implied = "IDENTICAL";
    if (rational != 0 && texts)
        implied = "SCALE_LINEAR_AND_TEXTTABLE";
    else if (rational != 0)
        implied = rational > 1 ? "SCALE_LINEAR" : "LINEAR";
    else if (texts)
        implied = "TEXTTABLE";
    if (noCategory)
        Note(16, "ParseCompuMethods",
             xml::formatMessage("COMPU-METHOD '%s' without CATEGORY read as %s",
                                method.name.c_str(), implied));
    else
        Note(16, "ParseCompuMethods",
             xml::formatMessage("CATEGORY '%s' of COMPU-METHOD '%s' read as %s",
                                method.category.c_str(), method.name.c_str(), implied));
    method.category = implied;
}

}  // namespace autosar
}  // namespace kelo
