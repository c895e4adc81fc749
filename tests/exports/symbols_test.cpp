// The shared library's dynamic symbol table is the exported interface: every function of the
// public header under its plain name (the multi-frame transmit only under its C++ name), the
// factory and the CommunicationLib class, and nothing else of ours.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>

#include "export_fixture.h"

using namespace kelo_export_test;

namespace {

// Exported under its decorated name only: KFr_Transmit_MultiFrame_Wrapper(signed char,
// unsigned char, unsigned char, unsigned char*, unsigned char).
const std::string kMultiFrameDecorated = "_Z31KFr_Transmit_MultiFrame_WrapperahhPhh";

// Symbols the linker and the sanitizer runtimes put into any shared library (_init, __bss_start,
// _GLOBAL_OFFSET_TABLE_, __asan_*, data_start, ...): ours are either C names, which never start
// with an underscore, or decorated C++ names, which start with "_Z".
bool fromToolchain(const std::string& name) {
    return (name[0] == '_' && name.rfind("_Z", 0) != 0) || name == "data_start";
}

// Defined dynamic symbols of the built shared library (the last field of each line of nm),
// version suffixes removed.
std::set<std::string> exportedSymbols() {
    const std::string command = std::string("nm -D --defined-only '") + KELO_SHARED_LIBRARY + "'";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
    std::set<std::string> names;
    for (char line[4096]; pipe && std::fgets(line, sizeof line, pipe.get());) {
        std::istringstream fields(line);
        std::string name;
        for (std::string f; fields >> f;)
            name = f;
        if (!name.empty()) names.insert(name.substr(0, name.find('@')));
    }
    return names;
}

TEST(ExportedSymbols, AreExactlyTheHeaderFunctionsTheFactoryAndTheClass) {
    const std::set<std::string> exported = exportedSymbols();
    ASSERT_FALSE(exported.empty()) << "no symbols read from " << KELO_SHARED_LIBRARY;
    const std::vector<HeaderFunction> header = headerDeclarations();

    // Every C function of the header under its plain name; the C++ ones only decorated: "_Z",
    // the name's length and the name, then the parameter types.
    std::set<std::string> plain;
    std::vector<std::string> decoratedPrefixes;
    for (const HeaderFunction& f : header) {
        if (f.cLinkage) {
            plain.insert(f.name);
            EXPECT_EQ(exported.count(f.name), 1u)
                << f.name << " is not exported under its plain name";
            continue;
        }
        EXPECT_EQ(exported.count(f.name), 0u) << f.name << " is exported under a plain name";
        const std::string prefix = "_Z" + std::to_string(f.name.size()) + f.name;
        decoratedPrefixes.push_back(prefix);
        EXPECT_TRUE(std::any_of(exported.begin(), exported.end(),
                                [&](const std::string& s) { return s.rfind(prefix, 0) == 0; }))
            << f.name << " is not exported under its decorated name";
    }
    ASSERT_EQ(plain.count("KFr_Open_Wrapper"), 1u) << "the extern \"C\" block was not found";
    EXPECT_EQ(exported.count(kMultiFrameDecorated), 1u) << kMultiFrameDecorated << " is missing";
    EXPECT_EQ(exported.count("GetKeLoComm"), 1u);

    // The class: constructor, destructor, vtable and type information. The complete-object
    // constructor (C1) is not among them: the class is abstract, so nothing can call it, and
    // Clang does not emit it (GCC does, as an alias of C2).
    for (const char* name :
         {"_ZN16CommunicationLibC2Ev", "_ZN16CommunicationLibD0Ev", "_ZN16CommunicationLibD1Ev",
          "_ZN16CommunicationLibD2Ev", "_ZTV16CommunicationLib", "_ZTI16CommunicationLib",
          "_ZTS16CommunicationLib"})
        EXPECT_EQ(exported.count(name), 1u) << name << " is not exported";

    // Nothing else of ours.
    for (const std::string& name : exported) {
        if (fromToolchain(name)) continue;
        const bool ofTheHeader =
            plain.count(name) ||
            std::any_of(decoratedPrefixes.begin(), decoratedPrefixes.end(),
                        [&](const std::string& p) { return name.rfind(p, 0) == 0; });
        const bool allowed = ofTheHeader || name == "GetKeLoComm" ||
                             name.find("16CommunicationLib") != std::string::npos;
        EXPECT_TRUE(allowed) << "unexpected exported symbol " << name;
    }
}

}  // namespace
