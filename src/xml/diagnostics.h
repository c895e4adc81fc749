// Numbered reader diagnostics: one line on standard output, "error #<n> in <operation>: <text>"
// or "info #<n> in <operation>: <text>". The whole output is switched off at build time
// (CMake option KELO_DIAGNOSTICS), so a release prints nothing; numbers and texts stay in the
// code so that the switch can be turned on.
#pragma once

#include <string>
#include <vector>

#ifndef KELO_DIAGNOSTICS_ON
#define KELO_DIAGNOSTICS_ON 0
#endif

namespace kelo {
namespace xml {

inline constexpr bool kDiagnosticsOn = KELO_DIAGNOSTICS_ON != 0;

enum class Level { Info, Error };

// printf-style formatting into a zeroed 1,024-byte buffer; longer results are cut to fit.
std::string formatMessage(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

// The line as it is printed (without the line end).
std::string diagnosticLine(Level level, int number, const char* operation, const std::string& text);
void emitDiagnostic(Level level, int number, const char* operation, const std::string& text);

// A read-all open's report of something it skipped or read in its own way: the line is kept in
// `notes` (the database's list, for tools and tests) and printed like any diagnostic when the
// build switches them on.
void note(std::vector<std::string>& notes, int number, const char* operation,
          const std::string& text);

}  // namespace xml
}  // namespace kelo

// Reports a numbered message; with the switch off neither the arguments are formatted nor
// anything printed.
#define KELO_REPORT(level, number, operation, ...)                                \
    do {                                                                          \
        if (::kelo::xml::kDiagnosticsOn)                                          \
            ::kelo::xml::emitDiagnostic(level, number, operation,                 \
                                        ::kelo::xml::formatMessage(__VA_ARGS__)); \
    } while (0)
#define KELO_INFO(number, operation, ...) \
    KELO_REPORT(::kelo::xml::Level::Info, number, operation, __VA_ARGS__)
#define KELO_ERROR(number, operation, ...) \
    KELO_REPORT(::kelo::xml::Level::Error, number, operation, __VA_ARGS__)
