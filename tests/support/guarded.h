// An array with a band of known bytes on both sides, to detect writes of a kernel beyond its
// index space.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

#include "tests/support/bits.h"

namespace zeph::test {

template <class T>
class Guarded {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  explicit Guarded(const std::vector<T>& content)
      : size_(content.size()), bytes_(2 * guard + content.size() * sizeof(T) + alignment, mark) {
    const auto address = reinterpret_cast<std::uintptr_t>(bytes_.data());
    offset_ = guard + (alignment - address % alignment) % alignment;
    if (!content.empty()) std::memcpy(data(), content.data(), size_ * sizeof(T));
  }
  Guarded(std::size_t count, T value) : Guarded(std::vector<T>(count, value)) {}
  Guarded(const Guarded&) = delete;
  Guarded& operator=(const Guarded&) = delete;

  T* data() { return reinterpret_cast<T*>(bytes_.data() + offset_); }
  const T* data() const { return reinterpret_cast<const T*>(bytes_.data() + offset_); }
  T& operator[](std::size_t k) { return data()[k]; }
  std::vector<T> content() const { return {data(), data() + size_}; }

  // Whether nothing beside the array has been written.
  testing::AssertionResult isIntact() const {
    const std::size_t end = offset_ + size_ * sizeof(T);
    const auto isMark = [](unsigned char byte) { return byte == mark; };
    const auto at = [this](std::size_t k) {
      return bytes_.begin() + static_cast<std::ptrdiff_t>(k);
    };
    if (!std::all_of(bytes_.begin(), at(offset_), isMark)) {
      return testing::AssertionFailure() << "something was written before the array";
    }
    if (!std::all_of(at(end), bytes_.end(), isMark)) {
      return testing::AssertionFailure() << "something was written behind the array";
    }
    return testing::AssertionSuccess();
  }

  // The same, and whether the array holds exactly this.
  testing::AssertionResult holds(const std::vector<T>& expected) const {
    const testing::AssertionResult intact = isIntact();
    return intact ? sameBits(content(), expected) : intact;
  }

 private:
  static constexpr std::size_t guard = 4096;
  static constexpr std::size_t alignment = 64;
  static constexpr unsigned char mark = 0xA5;

  std::size_t size_;
  std::size_t offset_ = 0;
  std::vector<unsigned char> bytes_;
};

}  // namespace zeph::test
