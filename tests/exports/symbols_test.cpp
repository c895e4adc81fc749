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
const std::string kMultiFrame = "KFr_Transmit_MultiFrame_Wrapper";
const std::string kMultiFrameDecorated = "_Z31KFr_Transmit_MultiFrame_WrapperahhPhh";

// Symbols the linker and the sanitizer runtimes put into any shared library.
bool fromToolchain(const std::string& name) {
    static const std::set<std::string> exact = {
        "_init",         "_fini",        "__bss_start",   "_edata",
        "_end",          "__end__",      "__bss_start__", "__bss_end__",
        "_bss_end__",    "__data_start", "data_start",    "_IO_stdin_used",
        "__dso_handle",  "__TMC_END__",  "_DYNAMIC",      "_GLOBAL_OFFSET_TABLE_",
        "__gmon_start__"};
    if (exact.count(name)) return true;
    for (const char* prefix : {"__asan", "__odr_asan", "__ubsan", "__tsan", "__sanitizer",
                               "___asan", "__lsan", "__msan"})
        if (name.rfind(prefix, 0) == 0) return true;
    return false;
}

// Defined dynamic symbols of the built shared library, version suffixes removed.
std::set<std::string> exportedSymbols(std::string* error) {
    const std::string command =
        std::string("nm -D --defined-only '") + KELO_SHARED_LIBRARY + "' 2>&1";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
    std::set<std::string> names;
    if (!pipe) {
        *error = "cannot run: " + command;
        return names;
    }
    std::string output;
    char buffer[4096];
    while (std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe.get()))
        output.append(buffer, n);
    std::istringstream lines(output);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::vector<std::string> parts;
        for (std::string f; fields >> f;)
            parts.push_back(f);
        if (parts.size() < 2) continue;
        std::string name = parts.back();
        name = name.substr(0, name.find('@'));
        names.insert(name);
    }
    if (names.empty()) *error = "no symbols read; nm said: " + output;
    return names;
}

// The decorated name of a function at global scope starts with "_Z", its name's length and its
// name; its parameter types follow.
std::string decoratedPrefix(const std::string& name) {
    return "_Z" + std::to_string(name.size()) + name;
}

TEST(ExportedSymbols, AreExactlyTheHeaderFunctionsTheFactoryAndTheClass) {
    std::string error;
    const std::set<std::string> exported = exportedSymbols(&error);
    ASSERT_FALSE(exported.empty()) << error;
    const std::vector<HeaderFunction> header = headerDeclarations();
    ASSERT_GE(header.size(), 40u) << "the header's declarations were not found";

    std::set<std::string> plain;                 // C functions of the header
    std::vector<std::string> decoratedPrefixes;  // C++ functions of the header
    for (const HeaderFunction& f : header) {
        if (f.cLinkage)
            plain.insert(f.name);
        else
            decoratedPrefixes.push_back(decoratedPrefix(f.name));
    }
    ASSERT_EQ(plain.count(kMultiFrame), 0u) << "the multi-frame transmit is declared as C";
    ASSERT_EQ(plain.count("KFr_Open_Wrapper"), 1u) << "the extern \"C\" block was not found";

    // Every C function of the header under its plain name; the C++ ones only decorated.
    for (const std::string& name : plain)
        EXPECT_EQ(exported.count(name), 1u) << name << " is not exported under its plain name";
    for (const HeaderFunction& f : header) {
        if (f.cLinkage) continue;
        EXPECT_EQ(exported.count(f.name), 0u) << f.name << " is exported under a plain name";
        const std::string prefix = decoratedPrefix(f.name);
        const bool found = std::any_of(exported.begin(), exported.end(), [&](const std::string& s) {
            return s.rfind(prefix, 0) == 0;
        });
        EXPECT_TRUE(found) << f.name << " is not exported under its decorated name";
    }
    EXPECT_EQ(exported.count(kMultiFrameDecorated), 1u) << kMultiFrameDecorated << " is missing";
    EXPECT_EQ(exported.count("GetKeLoComm"), 1u);
    for (const char* name : {"KeLo_DeviceStatusText", "KeLo_DatabaseStatusText"})
        EXPECT_EQ(exported.count(name), 1u) << name << " (status texts) is not exported";

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
