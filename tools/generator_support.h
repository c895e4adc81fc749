// Pieces both synthetic-database generators share: the seeded random stream, the chunked XML
// writer, writing a document to a file, and fitting the frame count to a file size.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

namespace kelo {
namespace gen {

// Receives a document in chunks of about 1 MiB; returns false to stop (e.g. a write error).
using Sink = std::function<bool(const char* data, std::size_t size)>;

// Writes one whole document to the sink; false when the sink refused a chunk.
using DocumentWriter = std::function<bool(const Sink& sink)>;

// splitmix64: tiny, fast and the same on every platform (the standard distributions are not),
// so a seed gives the same document everywhere.
class Rng {
  public:
    explicit Rng(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // Uniform in [0, n); 0 for n == 0.
    std::uint32_t below(std::uint32_t n) {
        return static_cast<std::uint32_t>(((next() >> 32) * n) >> 32);
    }
    bool percent(std::uint32_t p) { return below(100) < p; }
    template <typename T, std::size_t N>
    const T& pick(const T (&items)[N]) {
        return items[below(static_cast<std::uint32_t>(N))];
    }

  private:
    std::uint64_t state_;
};

// Text output through a buffer that goes to the sink a chunk at a time.
class Out {
  public:
    static constexpr std::size_t kChunk = 1u << 20;

    explicit Out(const Sink& sink) : sink_(sink) { buf_.reserve(kChunk + 64 * 1024); }

    Out& operator<<(std::string_view text) {
        buf_.append(text.data(), text.size());
        return *this;
    }
    Out& operator<<(const char* text) { return *this << std::string_view(text); }
    Out& operator<<(const std::string& text) { return *this << std::string_view(text); }
    Out& operator<<(char c) {
        buf_.push_back(c);
        return *this;
    }
    template <typename T, typename = std::enable_if_t<std::is_integral_v<T>>>
    Out& operator<<(T value) {
        char digits[24];
        const auto result = std::to_chars(digits, digits + sizeof digits, value);
        buf_.append(digits, static_cast<std::size_t>(result.ptr - digits));
        return *this;
    }
    // Shortest text that reads back as the same double ("0.01", "655.35", "-40").
    Out& number(double value) {
        char digits[40];
        const auto result = std::to_chars(digits, digits + sizeof digits, value);
        buf_.append(digits, static_cast<std::size_t>(result.ptr - digits));
        return *this;
    }
    // Start of a line at this depth (two spaces per level).
    Out& at(int depth) {
        buf_.push_back('\n');
        buf_.append(static_cast<std::size_t>(depth) * 2, ' ');
        return *this;
    }

    // Hands the buffer to the sink once it holds a chunk; call between elements.
    void maybeFlush() {
        if (buf_.size() >= kChunk) flush();
    }
    void flush() {
        if (ok_ && !buf_.empty()) {
            ok_ = sink_(buf_.data(), buf_.size());
            bytes_ += buf_.size();
        }
        buf_.clear();
    }
    bool ok() const { return ok_; }
    std::uint64_t bytes() const { return bytes_ + buf_.size(); }

  private:
    const Sink& sink_;
    std::string buf_;
    std::uint64_t bytes_ = 0;
    bool ok_ = true;
};

// Writes a document to a file. On failure the partial file is removed and `error` (when given)
// says why.
bool writeDocumentFile(const std::string& path, const DocumentWriter& write, std::string* error);

// Writes a document to standard output; on failure `error` (when given) says why.
bool writeDocumentToStdout(const DocumentWriter& write, std::string* error);

// The frame count whose document is about `megabytes` MiB. `bytesFor` gives the size of the
// document with a given frame count; the size grows linearly with it, so two small documents
// (written to a counter, not to disk) give the slope and the fixed part.
std::uint32_t framesForSize(double megabytes,
                            const std::function<std::uint64_t(std::uint32_t frames)>& bytesFor);

}  // namespace gen
}  // namespace kelo
