#include "xml/diagnostics.h"

#include <cstdarg>
#include <cstdio>

namespace kelo {
namespace xml {

std::string formatMessage(const char* format, ...) {
    char buffer[1024] = {};
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    return std::string(buffer);
}

std::string diagnosticLine(Level level, int number, const char* operation,
                           const std::string& text) {
    return std::string(level == Level::Info ? "info #" : "error #") + std::to_string(number) +
           " in " + operation + ": " + text;
}

void emitDiagnostic(Level level, int number, const char* operation, const std::string& text) {
    std::printf("%s\n", diagnosticLine(level, number, operation, text).c_str());
}

void note(std::vector<std::string>& notes, int number, const char* operation,
          const std::string& text) {
    notes.push_back(diagnosticLine(Level::Error, number, operation, text));
    if (kDiagnosticsOn) emitDiagnostic(Level::Error, number, operation, text);
}

}  // namespace xml
}  // namespace kelo
