/// @file published.h  A record that one thread writes and others read, without a lock and without waiting.
///
/// A sequence counter around the words of the record (Boehm, "Can seqlocks get along with programming language memory
/// models?", 2012). The writer never waits; a reader that met a write tries again or comes back later.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace qv {

template <class Record> class Published {
  static_assert(std::is_trivially_copyable_v<Record>);

public:
  /// By one thread at a time.
  void write(const Record &record) {
    const uint32_t before = sequence_.load(std::memory_order_relaxed);
    sequence_.store(before + 1, std::memory_order_relaxed);
    std::array<uint64_t, words> raw;
    raw.back() = 0; // the record may end inside it
    std::memcpy(raw.data(), &record, sizeof record);
    for (size_t i = 0; i < words; ++i)
      words_[i].store(raw[i], std::memory_order_release); // who sees a word sees the odd sequence before it
    sequence_.store(before + 2, std::memory_order_release);
  }

  /// Any number of threads. @return false when a write came between: `record` is untouched
  bool try_read(Record &record) const {
    const uint32_t before = sequence_.load(std::memory_order_acquire);
    std::array<uint64_t, words> raw;
    for (size_t i = 0; i < words; ++i)
      raw[i] = words_[i].load(std::memory_order_acquire);
    if (before % 2 != 0 || sequence_.load(std::memory_order_relaxed) != before)
      return false;
    std::memcpy(static_cast<void *>(&record), raw.data(), sizeof record);
    return true;
  }

  /// Tries until it comes through. A write takes less than a microsecond, and writes are a frame apart.
  Record read() const {
    Record record;
    while (!try_read(record))
      ;
    return record;
  }

  /// Changes with every write.
  uint32_t version() const { return sequence_.load(std::memory_order_acquire); }

private:
  static constexpr size_t words = (sizeof(Record) + sizeof(uint64_t) - 1) / sizeof(uint64_t);
  std::atomic<uint32_t> sequence_{0};
  std::array<std::atomic<uint64_t>, words> words_{};
};

} // namespace qv
