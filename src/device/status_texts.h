// A table of one sentence per result number, for the functions that turn a result into words.
#pragma once

#include <array>
#include <initializer_list>
#include <string>
#include <utility>

namespace kelo {

class StatusTexts {
  public:
    // `known` gives the sentences; every other number reads "unknown <kind> status N".
    StatusTexts(const char* kind,
                std::initializer_list<std::pair<unsigned char, const char*>> known) {
        for (std::size_t n = 0; n < texts_.size(); ++n)
            texts_[n] = std::string("unknown ") + kind + " status " + std::to_string(n);
        for (const auto& entry : known)
            texts_[entry.first] = entry.second;
    }
    // Valid as long as the table lives: the callers keep theirs in a function-local static, built
    // once on first use (thread-safe) and never changed afterwards.
    const char* operator[](unsigned char status) const { return texts_[status].c_str(); }

  private:
    std::array<std::string, 256> texts_;
};

}  // namespace kelo
