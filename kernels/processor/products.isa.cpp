// Kernels that form the products of the nonlinear term in physical space.
#include "kernels/bodies/products.h"

#include "kernels/processor/processor_kernels.h"
#include "kernels/processor/processor_loops.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

// The planes of a row of samples, in place.
struct RowOfPlanes {
  float *u, *v, *gx, *gy;
};

struct PaddedPlanes {
  float* begin;
  std::size_t stride, plane;  // in floats

  PaddedPlanes(float* padded, int m)
      : begin(padded),
        stride(2 * static_cast<std::size_t>(paddedStride(m))),
        plane(stride * static_cast<std::size_t>(m)) {}

  RowOfPlanes row(int y) const {
    float* u = begin + static_cast<std::size_t>(y) * stride;
    return {u, u + plane, u + 2 * plane, u + 3 * plane};
  }
};

void stressRow(const RowOfPlanes& row, float scale, int begin, int end) {
  float* __restrict plane0 = row.u;
  float* __restrict plane1 = row.v;
  for (int x = begin; x < end; ++x) {
    const StressProducts products = stressProducts(scale * plane0[x], scale * plane1[x]);
    plane0[x] = products.difference;
    plane1[x] = products.product;
  }
}

void advectiveRow(const RowOfPlanes& row, float scale, int begin, int end) {
  float* __restrict plane0 = row.u;
  const float* __restrict plane1 = row.v;
  const float* __restrict plane2 = row.gx;
  const float* __restrict plane3 = row.gy;
  for (int x = begin; x < end; ++x) {
    plane0[x] = advectiveProduct(scale * plane0[x], scale * plane1[x], scale * plane2[x],
                                 scale * plane3[x]);
  }
}

// Writes the speed bound of each sample of a piece to its lane, and returns 1 if any value is not
// finite.
unsigned boundPiece(const RowOfPlanes& row, float scale, int begin, int length,
                    float* __restrict bound) {
  const float* __restrict plane0 = row.u + begin;
  const float* __restrict plane1 = row.v + begin;
  unsigned invalid = 0;
  for (int t = 0; t < length; ++t) {
    const float u = scale * plane0[t];
    const float v = scale * plane1[t];
    invalid |= static_cast<unsigned>(nonFinite(u)) | static_cast<unsigned>(nonFinite(v));
    bound[t] = larger(0.0f, speedBound(u, v));
  }
  return invalid;
}

unsigned checkGradients(const RowOfPlanes& row, float scale, int begin, int length) {
  const float* __restrict plane2 = row.gx + begin;
  const float* __restrict plane3 = row.gy + begin;
  unsigned invalid = 0;
  for (int t = 0; t < length; ++t) {
    invalid |= static_cast<unsigned>(nonFinite(scale * plane2[t])) |
               static_cast<unsigned>(nonFinite(scale * plane3[t]));
  }
  return invalid;
}

// Adds a maximum and a flag to a block's record, atomically: neither depends on the order in which
// pieces arrive, so the threads share out rows rather than blocks. Bounds are never negative, and
// the bits of such floats, read as integers, have the same order.
void mergeInto(V2* record, float largest, unsigned invalid) {
  const std::uint32_t bits = __builtin_bit_cast(std::uint32_t, largest);
  auto* maximum = reinterpret_cast<std::uint32_t*>(&record->re);
  std::uint32_t seen = __atomic_load_n(maximum, __ATOMIC_RELAXED);
  while (bits > seen && !__atomic_compare_exchange_n(maximum, &seen, bits, true, __ATOMIC_RELAXED,
                                                     __ATOMIC_RELAXED)) {
  }
  if (invalid != 0) {
    __atomic_store_n(reinterpret_cast<std::uint32_t*>(&record->im),
                     __builtin_bit_cast(std::uint32_t, 1.0f), __ATOMIC_RELAXED);
  }
}

}  // namespace

void reduceCFLAndProducts(const SpeedAndProductArrays& arrays, const Params& p) {
  V2* partials = arrays.cflPartials;
  const int m = static_cast<int>(p.padded);
  const PaddedPlanes planes(arrays.padded, m);
  const float scale = p.scale;
  const bool advective = p.operatorKind == OperatorKind::advective;
  for (std::uint32_t b = 0; b < reductionBlocks; ++b) partials[b] = {0.0f, 0.0f};

  shareRows(m, m, [=, &planes](int rowBegin, int rowEnd) {
    for (int y = rowBegin; y < rowEnd; ++y) {
      const RowOfPlanes row = planes.row(y);
      const unsigned first = static_cast<unsigned>(y) * static_cast<unsigned>(m);
      for (int x = 0; x < m;) {
        const unsigned at = first + static_cast<unsigned>(x);
        const int rest = static_cast<int>(reductionLanes - at % reductionLanes);
        const int length = rest < m - x ? rest : m - x;
        float bound[reductionLanes] = {};
        unsigned invalid = boundPiece(row, scale, x, length, bound);
        if (advective) invalid |= checkGradients(row, scale, x, length);
        mergeInto(partials + (at / reductionLanes) % reductionBlocks, reduceLanes(bound, largerOf),
                  invalid);
        if (advective) {
          advectiveRow(row, scale, x, x + length);
        } else {
          stressRow(row, scale, x, x + length);
        }
        x += length;
      }
    }
  });
}

void nonlinearProducts(const ProductArrays& arrays, const Params& p) {
  const int m = static_cast<int>(p.padded);
  const PaddedPlanes planes(arrays.padded, m);
  const float scale = p.scale;
  const bool advective = p.operatorKind == OperatorKind::advective;
  shareRows(m, m, [=, &planes](int rowBegin, int rowEnd) {
    for (int y = rowBegin; y < rowEnd; ++y) {
      if (advective) {
        advectiveRow(planes.row(y), scale, 0, m);
      } else {
        stressRow(planes.row(y), scale, 0, m);
      }
    }
  });
}

}  // namespace zeph::cpu::ZEPH_ISA
