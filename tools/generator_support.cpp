#include "generator_support.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kelo {
namespace gen {

bool writeDocumentFile(const std::string& path, const DocumentWriter& write, std::string* error) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) {
        if (error) *error = "cannot create " + path + ": " + std::strerror(errno);
        return false;
    }
    bool ok = write([file](const char* data, std::size_t size) {
        return std::fwrite(data, 1, size, file) == size;
    });
    const int writeErrno = errno;
    if (std::fclose(file) != 0) ok = false;
    if (!ok) {
        if (error) *error = "cannot write " + path + ": " + std::strerror(writeErrno);
        std::remove(path.c_str());
    }
    return ok;
}

bool writeDocumentToStdout(const DocumentWriter& write, std::string* error) {
    const bool ok = write([](const char* data, std::size_t size) {
                        return std::fwrite(data, 1, size, stdout) == size;
                    }) &&
                    std::fflush(stdout) == 0;
    if (!ok && error) *error = std::string("cannot write standard output: ") + std::strerror(errno);
    return ok;
}

std::uint32_t framesForSize(double megabytes,
                            const std::function<std::uint64_t(std::uint32_t frames)>& bytesFor) {
    const std::uint32_t small = 200, large = 1200;
    const double a = static_cast<double>(bytesFor(small));
    const double b = static_cast<double>(bytesFor(large));
    const double perFrame = (b - a) / (large - small);
    const double fixed = a - perFrame * small;
    const double target = megabytes * 1024.0 * 1024.0;
    const double frames = perFrame > 0 ? (target - fixed) / perFrame : 1;
    return static_cast<std::uint32_t>(std::clamp(frames, 1.0, 4.0e9));
}

}  // namespace gen
}  // namespace kelo
