// AutoSarReader: reads one AUTOSAR system description (releases 4.1 and 4.2) into a
// tAutoSarDatabase of its own.
//
// LoadFile parses the file, takes the release from the schema file named in
// xsi:schemaLocation and runs the ten parse steps in a fixed order (units, compu-methods,
// ports, system signals, signal mappings, I-signals, PDUs, frames, ECUs, clusters). A failing
// step runs a second time and that run's code is returned; later steps do not run. Every
// numbered report goes through KELO_INFO / KELO_ERROR (silent unless the build switches
// diagnostics on). Which packages each step reads is in docs/databases.md.
//
// With readAll set, the reader takes files as authoring tools write them (docs/databases.md,
// "Reading whole files"): every step reads its elements from every package at any depth,
// records whose SHORT-NAME another element of their kind shares are named by their full path,
// references resolve by their full path, a compu-method without a known CATEGORY gets the one
// its scales imply, and what cannot be read is skipped with a note instead of ending the load.
#pragma once

#include <array>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "autosar/autosar_database.h"
#include "xml/xml_access.h"

namespace kelo {
namespace autosar {

using xml::Element;
using ElementList = std::vector<Element>;

// The part of `text` after the count-th separator counted from the end (count 1: after the
// last one); the whole text when there are fewer separators or count is 0.
std::string LastSegment(std::string_view text, char separator, unsigned count);

// The XML layer's finder and lister with the "NAME[@ATTR='VALUE']" selector. The reader's own
// paths are plain names, which it reads through the XML layer's typed readers (plain names read
// the same in either selector syntax).
// xml::kOk, kEmptyPath or kNotFound.
int GetElement(Element start, std::string_view path, Element& out);
// Every element named like the last part below the element the other parts lead to.
// xml::kOk (an empty list too), kEmptyPath, or kNotFound for a missing element before the last.
int GetElements(Element start, std::string_view path, ElementList& out);

// The record kinds a reference can name (each has its own map).
enum class Kind : std::uint8_t {
    Unit,
    CompuMethod,
    Port,
    SystemSignal,
    Signal,
    Pdu,
    Frame,
    Ecu,
    Cluster,
};
inline constexpr std::size_t kKindCount = 9;

class AutoSarReader {
  public:
    // Creates the database; loads the file when the name is not empty.
    explicit AutoSarReader(const std::string& fileName = std::string(), bool readAll = false);
    ~AutoSarReader();
    AutoSarReader(const AutoSarReader&) = delete;
    AutoSarReader& operator=(const AutoSarReader&) = delete;

    bool IsLoaded() const { return loaded; }
    const char* GetFileName() const { return fileName.c_str(); }
    // Empties the database and loads the file; an empty name changes nothing.
    void ReadAUTOSARData(const std::string& fileName);
    // xml::kOk; kMissing (cannot open, or a step's code); kMalformed; kUnsupported (release);
    // or the second run's code of a failing step.
    int LoadFile(const std::string& fileName);
    // LoadFile's work on a document given as text (fileName is left as it is); for tests and
    // tools. Does not empty the database.
    int LoadText(std::string_view text);

    // The parse steps, in the order LoadFile runs them. Each reads the kept document.
    int ParseUnits();
    int ParseCompuMethods();
    int ParsePorts();
    int ParseSystemSignals();
    int ParseSignalMappings();
    int ParseSignals();
    int ParsePDUs();
    int ParseFrames();
    int ParseECUs();
    int ParseClusters();

    tAutoSarDatabase& Database() { return *database; }
    const tAutoSarDatabase& Database() const { return *database; }

    std::unique_ptr<tAutoSarDatabase> database;
    std::string fileName;
    xml::Document document;
    bool loaded = false;
    // Read with the read-all rules (set before loading).
    bool readAll = false;

  private:
    int ReadDocument();
    int CheckRelease();
    // Every AR-PACKAGE below the root's first AR-PACKAGES, in document order (computed once
    // per document).
    const ElementList& Packages();
    // The elements at `path` in the first package that holds any.
    ElementList FirstPackageWith(std::string_view path);
    // The nested package Q (below a package P with at least `minimum` nested packages) whose
    // first `path` list is non-empty; a null element when none.
    Element FirstNestedPackageWith(std::initializer_list<std::string_view> paths,
                                   std::size_t minimum);
    // The per-element readers; false when the element has no SHORT-NAME.
    bool ReadUnit(Element element);
    bool ReadCompuMethod(Element element, bool& noCategory);
    bool ReadPort(Element element, bool provided);
    bool ReadSystemSignal(Element element);
    void ReadMapping(Element mapping);
    void ReadSignal(Element element);
    void ReadISignalIPdu(Element element);
    void ReadOtherPdu(Element element, std::uint16_t type);
    void ReadFrame(Element element);
    int ReadEcu(Element element);
    int ReadCluster(Element element);
    void ReadChannel(Element element, tAutoSarClusterConfig& cluster);
    void ReadBaseTypes();

    // The elements a step reads: with readAll every element of that name in the file, otherwise
    // those of the first package that holds any.
    ElementList StepElements(const char* name);
    // A missing SHORT-NAME (or CATEGORY): ends the step with kMissing, or with readAll is noted
    // and the element skipped (returns false then).
    bool StopsStep(const char* what, const char* operation);
    // The map key a reference names. Strict: the last `depth` segments of its text. Read-all: the
    // key of the element at that full path (for depth > 1, of its owner, followed by the last
    // depth - 1 segments), else of the one element of that kind with the last segment as
    // SHORT-NAME, else the last segments.
    std::string Key(Kind kind, std::string_view reference, unsigned depth = 1);
    // With readAll: replaces a record's SHORT-NAME by its full path when another element of its
    // kind has the same SHORT-NAME.
    void Rename(Element element, std::string& name) const;
    // With readAll: a compu-method without a category it knows gets the one its scales imply.
    void ImplyCategory(tAutoSarCompuMethodInfo& method, bool noCategory);
    void Note(int number, const char* operation, const std::string& text);
    // With readAll: finds every element the steps read and decides the names (one walk).
    void IndexElements();
    // True when the list at `path` below `package` is not empty. A path "ELEMENTS/KIND" is
    // answered from the element names below the package's first ELEMENTS, gathered in one walk
    // the first time a step asks about that package.
    bool Holds(Element package, std::string_view path);
    void ForgetDocument();

    ElementList packages_;
    bool packagesRead_ = false;
    std::unordered_map<const void*, std::unordered_set<std::string_view>> namesBelow_;
    // The packages nested in a package (null list: it has no AR-PACKAGES), gathered once per
    // document for the steps that search nested packages.
    std::unordered_map<const void*, std::unique_ptr<ElementList>> nestedIn_;
    tAutoSarMap<bool> signedBaseTypes_;  // SW-BASE-TYPE name -> encoding "2C"

    // Read-all index: the elements of each read name in document order; per kind, full path ->
    // key and SHORT-NAME -> (first key, how many elements have it); elements renamed to their
    // path.
    struct KindIndex {
        std::unordered_map<std::string, std::string> byPath;
        std::unordered_map<std::string, std::pair<std::string, unsigned>> byShortName;
    };
    std::unordered_map<std::string_view, ElementList> elementsNamed_;
    std::array<KindIndex, kKindCount> kinds_;
    std::unordered_map<const void*, std::string> renamed_;
};

}  // namespace autosar
}  // namespace kelo
