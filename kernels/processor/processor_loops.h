// How the processor walks a kernel's index space: rows shared out to the threads, and the blocks
// and lanes of the reductions. For code that is compiled once per instruction set.
#pragma once

#include "device/cpu/parallel.h"
#include "kernels/params.h"

// Tells the compiler that no iteration of the loop below reads what another has written.
#if defined(__clang__)
#define ZEPH_INDEPENDENT
#else
#define ZEPH_INDEPENDENT _Pragma("GCC ivdep")
#endif

namespace zeph::cpu::ZEPH_ISA {
namespace {

// Cuts the rows below `count` into runs of neighbours, shares these out to the threads and calls
// rows(begin, end) for each. A run has enough elements to be worth waking a thread for.
template <class Rows>
void shareRows(int count, int width, Rows rows) {
  constexpr int runsPerThread = 4;
  constexpr int leastElements = 8192;
  struct Shares {
    Rows* rows;
    int count, length;
  };
  int length = (count + runsPerThread * participants() - 1) / (runsPerThread * participants());
  const int least = leastElements / width + 1;
  if (length < least) length = least;
  Shares shares = {&rows, count, length};
  runTasks((count + length - 1) / length,
           [](void* context, int index, int) {
             const Shares& s = *static_cast<Shares*>(context);
             const int begin = index * s.length;
             const int end = begin + s.length < s.count ? begin + s.length : s.count;
             (*s.rows)(begin, end);
           },
           &shares);
}

// Calls block(b) for each block of a reducing kernel.
template <class Block>
void shareBlocks(Block block) {
  runTasks(
      static_cast<int>(reductionBlocks),
      [](void* context, int index, int) {
        (*static_cast<Block*>(context))(static_cast<unsigned>(index));
      },
      &block);
}

// Lane t of block b visits element b * 256 + t, then every 64 * 256th after it.
constexpr unsigned sweep = reductionBlocks * reductionLanes;

// Cuts the elements that block b visits in an array of `count` elements, rows of `width`, into
// pieces within one row: piece(row, column, lane, length), in the order of the visits.
template <class Piece>
void forPieces(unsigned b, unsigned count, unsigned width, Piece piece) {
  for (unsigned begin = b * reductionLanes; begin < count; begin += sweep) {
    const unsigned end = count - begin < reductionLanes ? count : begin + reductionLanes;
    for (unsigned at = begin; at < end;) {
      const unsigned row = at / width;
      const unsigned column = at - row * width;
      const unsigned length = end - at < width - column ? end - at : width - column;
      piece(static_cast<int>(row), static_cast<int>(column), static_cast<int>(at - begin),
            static_cast<int>(length));
      at += length;
    }
  }
}

// The tree by strides 128 to 1 that ends every reduction.
template <class T, class Combine>
T reduceLanes(T* lane, Combine combine) {
  for (int stride = static_cast<int>(reductionLanes) / 2; stride > 0; stride /= 2) {
    for (int t = 0; t < stride; ++t) lane[t] = combine(lane[t], lane[t + stride]);
  }
  return lane[0];
}

inline float sumOf(float a, float b) {
  return a + b;
}
inline float largerOf(float a, float b) {
  return b > a ? b : a;
}
inline unsigned eitherOf(unsigned a, unsigned b) {
  return a | b;
}

}  // namespace
}  // namespace zeph::cpu::ZEPH_ISA
