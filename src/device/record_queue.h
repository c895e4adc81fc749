// A FIFO of fixed-size records in one ring of contiguous storage. Room can be reserved up front;
// the ring grows (doubling) only when it is full. The storage is left uninitialised, so reserved
// room costs address space, not resident memory, until records use it. Not thread-safe: the
// owner holds a lock.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace kelo {

template <std::size_t RecordSize>
class RecordQueue {
  public:
    using Record = std::array<std::uint8_t, RecordSize>;

    std::size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    std::size_t capacity() const { return capacity_; }

    void reserve(std::size_t records) {
        if (records > capacity_) regrow(records);
    }

    // The slot for the next record, to be filled in place before push() is complete.
    Record& emplaceBack() {
        if (count_ == capacity_) regrow(capacity_ == 0 ? 64 : capacity_ * 2);
        std::size_t tail = head_ + count_;
        if (tail >= capacity_) tail -= capacity_;
        ++count_;
        return ring_[tail];
    }

    // Copies the oldest record out and removes it. False when empty.
    bool popFront(std::uint8_t* out) {
        if (count_ == 0) return false;
        std::memcpy(out, ring_[head_].data(), RecordSize);
        if (++head_ == capacity_) head_ = 0;
        --count_;
        return true;
    }

    void clear() {
        head_ = 0;
        count_ = 0;
    }

  private:
    void regrow(std::size_t newCapacity) {
        // new Record[] leaves the bytes uninitialised (a std::array of bytes is trivial).
        std::unique_ptr<Record[]> next(new Record[newCapacity]);
        for (std::size_t i = 0; i < count_; ++i) {
            std::size_t from = head_ + i;
            if (from >= capacity_) from -= capacity_;
            next[i] = ring_[from];
        }
        ring_ = std::move(next);
        capacity_ = newCapacity;
        head_ = 0;
    }

    std::unique_ptr<Record[]> ring_;
    std::size_t capacity_ = 0;
    std::size_t head_ = 0;
    std::size_t count_ = 0;
};

}  // namespace kelo
