// A FIFO of fixed-size records in one ring of contiguous storage. Room can be reserved up front;
// the ring grows (doubling) only when it is full. Not thread-safe: the owner holds a lock.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace kelo {

template <std::size_t RecordSize>
class RecordQueue {
  public:
    using Record = std::array<std::uint8_t, RecordSize>;

    std::size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    std::size_t capacity() const { return ring_.size(); }

    void reserve(std::size_t records) {
        if (records > ring_.size()) regrow(records);
    }

    // The slot for the next record, to be filled in place before push() is complete.
    Record& emplaceBack() {
        if (count_ == ring_.size()) regrow(ring_.empty() ? 64 : ring_.size() * 2);
        std::size_t tail = head_ + count_;
        if (tail >= ring_.size()) tail -= ring_.size();
        ++count_;
        return ring_[tail];
    }

    // Copies the oldest record out and removes it. False when empty.
    bool popFront(std::uint8_t* out) {
        if (count_ == 0) return false;
        std::memcpy(out, ring_[head_].data(), RecordSize);
        if (++head_ == ring_.size()) head_ = 0;
        --count_;
        return true;
    }

    void clear() {
        head_ = 0;
        count_ = 0;
    }

  private:
    void regrow(std::size_t newCapacity) {
        std::vector<Record> next(newCapacity);
        for (std::size_t i = 0; i < count_; ++i) {
            std::size_t from = head_ + i;
            if (from >= ring_.size()) from -= ring_.size();
            next[i] = ring_[from];
        }
        ring_.swap(next);
        head_ = 0;
    }

    std::vector<Record> ring_;
    std::size_t head_ = 0;
    std::size_t count_ = 0;
};

}  // namespace kelo
