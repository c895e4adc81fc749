// Helpers for the XML and FIBEX reader suites: a scratch directory removed with its contents,
// whole-file writes, and paths into tests/data.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>

namespace kelo_test {

inline std::string dataFile(const std::string& relative) {
    return std::string(KELO_TEST_DATA_DIR) + "/" + relative;
}

inline std::string readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A fresh directory under the system temp directory, removed with everything in it.
class ScratchDir {
  public:
    ScratchDir() {
        static std::atomic<int> counter{0};
        static const unsigned token = std::random_device{}();
        const auto base = std::filesystem::temp_directory_path();
        for (;;) {
            path_ = base / ("kelo-xml-" + std::to_string(token) + "-" +
                            std::to_string(counter.fetch_add(1)));
            std::error_code ec;
            if (std::filesystem::create_directory(path_, ec)) break;
            if (ec) {
                ADD_FAILURE() << "cannot create " << path_ << ": " << ec.message();
                break;
            }
        }
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string path() const { return path_.string(); }
    // Writes the bytes as they are and returns the file's path.
    std::string write(const std::string& name, const std::string& bytes) const {
        const std::string file = (path_ / name).string();
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        out.close();
        EXPECT_TRUE(out.good()) << "cannot write " << file;
        return file;
    }

  private:
    std::filesystem::path path_;
};

}  // namespace kelo_test
