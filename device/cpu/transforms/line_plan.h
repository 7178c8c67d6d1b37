// The plan of a one-dimensional transform of a given length: its radices, twiddles and orders.
//
// A line is transformed in place by decimation in frequency: a stage of radix r cuts a block of
// r * m elements into r blocks of m, whose transforms are independent, until blocks of one element
// are left. Elements are then permuted; `position` and `wavenumber` are the permutation and its
// inverse. A length with a prime factor too large for that goes through Bluestein's algorithm (L.
// Bluestein, "A linear filtering approach to the computation of the discrete Fourier transform",
// 1970): a convolution with a chirp on a longer line of small factors.
#pragma once

#include <memory>
#include <vector>

#include "device/transform.h"

namespace zeph::cpu {

// The largest prime factor with a butterfly, whose work grows with the square of the factor.
constexpr int largestRadix = 61;

constexpr int mostStages = 24;

struct LineStage {
  int radix = 1;
  int span = 1;                     // m, the length of the blocks that the stage leaves
  const float* twiddles = nullptr;  // exp(-2 pi i j k / (r m)) at (j, k - 1), re then im; j < m
  const float* roots = nullptr;     // cos, then sin of 2 pi q / r, for q < r
};

// The tables as the vector code reads them. Pointers belong to a LinePlan.
struct LineTables {
  int length = 0;
  int stageCount = 0;  // 0 for a length that needs Bluestein's algorithm
  LineStage stages[mostStages];
  const int* position = nullptr;    // the place in the line of element k of the result
  const int* wavenumber = nullptr;  // the element of the result at each place

  const LineTables* inner = nullptr;  // the convolution of Bluestein's algorithm, if that is used
  const float* chirp = nullptr;       // exp(-pi i j^2 / length), re then im
  const float* filter = nullptr;      // transform of the chirp's conjugate over the inner length
};

class LinePlan {
 public:
  // The plan for a length, shared while anybody uses it. Raises std::bad_alloc.
  static std::shared_ptr<const LinePlan> forLength(int length);

  explicit LinePlan(int length);
  LinePlan(const LinePlan&) = delete;
  LinePlan& operator=(const LinePlan&) = delete;

  const LineTables& tables() const { return tables_; }

  // The memory of the tables.
  std::vector<TransformAllocation> allocations() const;

 private:
  template <class T>
  T* table(std::size_t count);
  void makeStages(const std::vector<int>& radices);
  void makeOrder();
  void makeChirp();

  LineTables tables_;
  std::vector<std::unique_ptr<void, void (*)(void*)>> memory_;
  std::vector<TransformAllocation> sizes_;
  std::shared_ptr<const LinePlan> inner_;
};

}  // namespace zeph::cpu
