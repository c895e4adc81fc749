// AutoSarReader: reads one AUTOSAR system description (releases 4.1 and 4.2) into a
// tAutoSarDatabase of its own.
//
// LoadFile parses the file, takes the release from the schema file named in
// xsi:schemaLocation and runs the ten parse steps in a fixed order (units, compu-methods,
// ports, system signals, signal mappings, I-signals, PDUs, frames, ECUs, clusters). A failing
// step runs a second time and that run's code is returned; later steps do not run. Every
// numbered report goes through KELO_INFO / KELO_ERROR (silent unless the build switches
// diagnostics on). Which packages each step reads is in docs/databases.md.
#pragma once

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

class AutoSarReader {
  public:
    // Creates the database; loads the file when the name is not empty.
    explicit AutoSarReader(const std::string& fileName = std::string());
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

  private:
    int ReadDocument();
    // Every AR-PACKAGE below the root's first AR-PACKAGES, in document order (computed once
    // per document).
    const ElementList& Packages();
    // The elements at `path` in the first package that holds any.
    ElementList FirstPackageWith(std::string_view path);
    // The nested package Q (below a package P with at least `minimum` nested packages) whose
    // first `path` list is non-empty; a null element when none.
    Element FirstNestedPackageWith(std::initializer_list<std::string_view> paths,
                                   std::size_t minimum);
    void ReadSignal(Element element);
    void ReadISignalIPdu(Element element);
    void ReadOtherPdu(Element element, std::uint16_t type);
    void ReadFrame(Element element);
    int ReadEcu(Element element);
    int ReadCluster(Element element);
    void ReadChannel(Element element, tAutoSarClusterConfig& cluster);
    void ReadBaseTypes();
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
};

}  // namespace autosar
}  // namespace kelo
