// Kernels that lay spectra out for a transform.
#include "kernels/bodies/velocity.h"
#include "kernels/processor/processor_kernels.h"
#include "kernels/processor/processor_loops.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

constexpr V2 zero = {0.0f, 0.0f};

void clear(V2* to, int begin, int end) {
  for (int i = begin; i < end; ++i) to[i] = zero;
}

void velocityRow(const V2* __restrict w, V2* __restrict u, V2* __restrict v, int ky, int begin,
                 int end) {
  for (int i = begin; i < end; ++i) {
    const SpectrumPair velocity = velocityOf(w[i], i, ky);
    store(u[i], velocity.x);
    store(v[i], velocity.y);
  }
}

void gradientRow(const V2* __restrict w, V2* __restrict gx, V2* __restrict gy, int ky, int begin,
                 int end) {
  for (int i = begin; i < end; ++i) {
    const SpectrumPair gradient = gradientOf(w[i], i, ky);
    store(gx[i], gradient.x);
    store(gy[i], gradient.y);
  }
}

}  // namespace

void projectState(const ProjectionArrays& arrays, const Params& p) {
  const V2* spectrum = arrays.spectrum;
  V2* omega = arrays.omega;
  const int n = static_cast<int>(p.resolution);
  const int width = halfWidth(n);
  shareRows(n, width, [=](int rowBegin, int rowEnd) {
    for (int j = rowBegin; j < rowEnd; ++j) {
      const int ky = foldRow(j, n);
      const V2* from = spectrum + static_cast<std::size_t>(j) * static_cast<std::size_t>(n);
      V2* to = omega + static_cast<std::size_t>(j) * static_cast<std::size_t>(width);
      for (int i = 0; i < width; ++i) store(to[i], isActive(i, ky, n / 2) ? from[i] : zero);
    }
  });
}

void velocityToPadded(const VelocityArrays& arrays, const Params& p) {
  const V2* omega = arrays.omega;
  V2* padded = arrays.padded;
  const int n = static_cast<int>(p.resolution);
  const int m = static_cast<int>(p.padded);
  const int nyquist = n / 2;
  const int columns = m / 2 + 1;
  const std::size_t stride = static_cast<std::size_t>(paddedStride(m));
  const std::size_t plane = stride * static_cast<std::size_t>(m);
  const bool gradients = p.operatorKind == OperatorKind::advective;
  const int fields = needsOf(p.operatorKind).fields;
  shareRows(m, columns, [=](int rowBegin, int rowEnd) {
    for (int j = rowBegin; j < rowEnd; ++j) {
      const int ky = foldRow(j, m);
      V2* to = padded + static_cast<std::size_t>(j) * stride;
      const bool kept = ky < nyquist && -ky < nyquist;
      const int begin = ky == 0 ? 1 : 0;
      const int end = kept ? nyquist : begin;
      for (int k = 0; k < fields; ++k) {
        clear(to + static_cast<std::size_t>(k) * plane, 0, begin);
        clear(to + static_cast<std::size_t>(k) * plane, end, columns);
      }
      if (!kept) continue;
      const V2* w =
          omega + static_cast<std::size_t>(rowOf(ky, n)) * static_cast<std::size_t>(halfWidth(n));
      velocityRow(w, to, to + plane, ky, begin, end);
      if (gradients) gradientRow(w, to + 2 * plane, to + 3 * plane, ky, begin, end);
    }
  });
}

void prepareSnapshot(const SnapshotSpectraArrays& arrays, const Params& p) {
  const V2* omega = arrays.omega;
  V2* spectra = arrays.snapshotSpectra;
  const int n = static_cast<int>(p.resolution);
  const int width = halfWidth(n);
  const std::size_t plane = static_cast<std::size_t>(width) * static_cast<std::size_t>(n);
  const bool velocity = p.stage == vorticityAndVelocity;
  shareRows(n, width, [=](int rowBegin, int rowEnd) {
    for (int j = rowBegin; j < rowEnd; ++j) {
      const int ky = foldRow(j, n);
      const V2* w = omega + static_cast<std::size_t>(j) * static_cast<std::size_t>(width);
      V2* to = spectra + static_cast<std::size_t>(j) * static_cast<std::size_t>(width);
      for (int i = 0; i < width; ++i) store(to[i], w[i]);
      if (!velocity) continue;
      const int begin = ky == 0 ? 1 : 0;
      clear(to + plane, 0, begin);
      clear(to + 2 * plane, 0, begin);
      velocityRow(w, to + plane, to + 2 * plane, ky, begin, width);
    }
  });
}

}  // namespace zeph::cpu::ZEPH_ISA
