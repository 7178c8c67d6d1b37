// Arrays on huge pages, zero at first.
#pragma once
#include <sys/mman.h>

#include <cstddef>
#include <new>

namespace expert {

template <class T>
class Array {
 public:
  explicit Array(std::size_t count) {
    static int made = 0;
    constexpr std::size_t page = std::size_t{1} << 21;
    // Arrays that begin at the same address of a page evict each other from the caches.
    const std::size_t shift = 320 * static_cast<std::size_t>(made++ % 16);
    length_ = (count * sizeof(T) + shift + page - 1) / page * page + page;
    mapped_ = mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped_ == MAP_FAILED) throw std::bad_alloc();
    madvise(mapped_, length_, MADV_HUGEPAGE);
    const auto begin = reinterpret_cast<std::size_t>(mapped_);
    data_ = reinterpret_cast<T*>((begin + page - 1) / page * page + shift);
  }
  ~Array() { munmap(mapped_, length_); }
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;

  T* data() const { return data_; }
  T& operator[](std::size_t i) const { return data_[i]; }

 private:
  std::size_t length_;
  void* mapped_;
  T* data_;
};

}  // namespace expert
