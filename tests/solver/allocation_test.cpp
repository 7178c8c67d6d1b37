// Heap allocations while stepping.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/support/flows.h"

// A sanitizer replaces the heap.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZEPH_FOREIGN_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZEPH_FOREIGN_HEAP 1
#endif
#endif

#ifndef ZEPH_FOREIGN_HEAP

namespace {

std::atomic<std::size_t> allocations{0};

void* counted(std::size_t bytes, std::size_t alignment) {
  ++allocations;
#ifdef _WIN32
  void* block = _aligned_malloc(bytes, alignment);
#else
  void* block = std::aligned_alloc(alignment, (bytes + alignment) / alignment * alignment);
#endif
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void release(void* block) noexcept {
#ifdef _WIN32
  _aligned_free(block);
#else
  std::free(block);
#endif
}

constexpr std::size_t plainAlignment = __STDCPP_DEFAULT_NEW_ALIGNMENT__;

}  // namespace

// Counts allocations in the whole test program. The array and nothrow forms call these.
[[gnu::noinline]] void* operator new(std::size_t bytes) {
  return counted(bytes, plainAlignment);
}
[[gnu::noinline]] void* operator new(std::size_t bytes, std::align_val_t alignment) {
  return counted(bytes, static_cast<std::size_t>(alignment));
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
  release(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  release(block);
}
[[gnu::noinline]] void operator delete(void* block, std::align_val_t) noexcept {
  release(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  release(block);
}

namespace zeph {
namespace {

TEST(StepLoop, AllocatesNothing) {
  for (const Integrator integrator : test::integrators) {
    for (const OperatorKind operatorKind : test::operators) {
      Solver solver(test::configOf(64, integrator, operatorKind));
      solver.advance(5);
      const std::size_t before = allocations;
      solver.advance(300);
      EXPECT_EQ(allocations - before, 0u);
    }
  }
}

TEST(StepLoop, AnAllocationIsDetected) {
  const std::size_t before = allocations;
  void* volatile plain = ::operator new(8);
  ::operator delete(plain);
  void* volatile array = ::operator new[](8);
  ::operator delete[](array);
  EXPECT_EQ(allocations - before, 2u);
}

}  // namespace
}  // namespace zeph

#endif
