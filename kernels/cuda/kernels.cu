// The ten kernels on a GPU: a thread for each mode or sample, and 64 blocks of 256 threads for each
// reduction. They use the same bodies as the processor's kernels.
#include <cstdint>
#include <type_traits>

#include "kernels/arrays.h"
#include "kernels/bodies/figures.h"
#include "kernels/bodies/integrators.h"
#include "kernels/bodies/products.h"
#include "kernels/bodies/time_step.h"
#include "kernels/bodies/velocity.h"

namespace zeph {
namespace {

struct Place {
  unsigned x, y;
};

__device__ Place placeInGrid() {
  return {blockIdx.x * blockDim.x + threadIdx.x, blockIdx.y * blockDim.y + threadIdx.y};
}

__device__ unsigned half(unsigned side) {
  return side / 2;
}
__device__ unsigned width(const Params& p) {
  return half(p.resolution) + 1;
}
__device__ unsigned stride(const Params& p) {
  return static_cast<unsigned>(paddedStride(static_cast<int>(p.padded)));
}
__device__ unsigned rowIndex(int ky, unsigned side) {
  return static_cast<unsigned>(rowOf(ky, static_cast<int>(side)));
}
__device__ int foldIndex(unsigned j, unsigned side) {
  return foldRow(static_cast<int>(j), static_cast<int>(side));
}
__device__ bool isActiveMode(unsigned i, int ky, const Params& p) {
  return isActive(static_cast<int>(i), ky, static_cast<int>(half(p.resolution)));
}

__device__ bool isAdvective(const Params& p) {
  return p.operatorKind != OperatorKind::stress;
}

constexpr V2 zero = {0.0f, 0.0f};

// The tree by strides 128 to 1 that ends every reduction; the result is in element 0.
template <class T, class Combine>
__device__ void reduceBlock(T* shared, T own, Combine combine) {
  const unsigned t = threadIdx.x;
  shared[t] = own;
  __syncthreads();
  for (unsigned stride = reductionLanes / 2; stride > 0; stride /= 2) {
    if (t < stride) shared[t] = combine(shared[t], shared[t + stride]);
    __syncthreads();
  }
}

struct SumOf {
  __device__ float operator()(float a, float b) const { return a + b; }
};
struct LargerOf {
  __device__ float operator()(float a, float b) const { return larger(a, b); }
};
struct EitherOf {
  __device__ unsigned operator()(unsigned a, unsigned b) const { return a | b; }
};

// Calls visit(element) for each element below `count` that this thread visits, in index order.
template <class Visit>
__device__ void forVisits(unsigned count, unsigned blocks, Visit visit) {
  const unsigned sweep = blocks * reductionLanes;
  for (unsigned at = blockIdx.x * reductionLanes + threadIdx.x; at < count; at += sweep) {
    visit(at);
    if (count - at <= sweep) break;  // the next index might overflow
  }
}

struct PaddedPlanes {
  float* begin;
  unsigned stride, plane;  // in floats

  __device__ PaddedPlanes(float* padded, const Params& p)
      : begin(padded), stride(2 * zeph::stride(p)), plane(stride * p.padded) {}
};

// The products at a sample, in place; u and v are already scaled.
__device__ void writeProducts(const PaddedPlanes& planes, unsigned o, float u, float v, float gx,
                              float gy, const Params& p) {
  if (isAdvective(p)) {
    planes.begin[o] = advectiveProduct(u, v, gx, gy);
    return;
  }
  const StressProducts products = stressProducts(u, v);
  planes.begin[o] = products.difference;
  planes.begin[o + planes.plane] = products.product;
}

__device__ V2 termAt(const V2* padded, unsigned i, int ky, const Params& p) {
  const unsigned o = rowIndex(ky, p.padded) * stride(p) + i;
  const float scale = termScale(p.resolution, p.padded);
  if (isAdvective(p)) return scale * padded[o];
  return scale * stressTerm(padded[o], padded[o + stride(p) * p.padded], static_cast<int>(i), ky);
}

// The arrays of a stage at one mode; coefficient planes are `plane` elements apart.
struct Mode {
  V2 &omega, &base, &first, &middle, &predictor, &correction;
  float* coefficients;
  unsigned plane;

  __device__ float& c(unsigned k) const { return coefficients[k * plane]; }
};

__device__ void imex(const Mode& mode, V2 term, float dt, float k2, const Params& p) {
  if (p.stage == 0) {
    imexStage<0>(term, p.viscosity, dt, k2, mode.omega, mode.first, mode.correction);
  } else if (p.stage == 1) {
    imexStage<1>(term, p.viscosity, dt, k2, mode.omega, mode.first, mode.correction);
  } else {
    imexStage<2>(term, p.viscosity, dt, k2, mode.omega, mode.first, mode.correction);
  }
}

__device__ float heunFactor(float z) {
  return hasSeries(z) ? heunCoefficient<true>(z) : heunCoefficient<false>(z);
}

__device__ void heun(const Mode& mode, V2 term, float dt, float damping, const Params& p) {
  HeunCoefficients<> c = {};
  if (p.stage == 0) {
    c = {heunFactor(heunExponent<0>(damping)), heunFactor(heunExponent<1>(damping)),
         heunFactor(heunExponent<2>(damping))};
    mode.c(0) = c.c0;
    mode.c(1) = c.c1;
    mode.c(2) = c.c2;
    heunStage<0>(term, dt, c, mode.omega, mode.base, mode.first, mode.correction);
  } else if (p.stage == 1) {
    c.c0 = mode.c(0);
    c.c1 = mode.c(1);
    heunStage<1>(term, dt, c, mode.omega, mode.base, mode.first, mode.correction);
  } else {
    c.c0 = mode.c(0);
    c.c2 = mode.c(2);
    heunStage<2>(term, dt, c, mode.omega, mode.base, mode.first, mode.correction);
  }
}

__device__ EtdCoefficients<> formEtd(const Mode& mode, float damping, float dt) {
  const float h = halfExponent(damping);
  const float z = wholeExponent(damping);
  const HalfStepCoefficients<> halfStep =
      hasSeries(h) ? halfStepCoefficients<true>(h, dt) : halfStepCoefficients<false>(h, dt);
  const WholeStepCoefficients<> whole =
      hasSeries(z) ? wholeStepCoefficients<true>(z, dt) : wholeStepCoefficients<false>(z, dt);
  mode.c(0) = whole.c0;
  mode.c(1) = halfStep.c1;
  mode.c(2) = halfStep.c2;
  mode.c(3) = whole.c3;
  mode.c(4) = whole.c4;
  mode.c(5) = whole.c5;
  return {whole.c0, halfStep.c1, halfStep.c2, whole.c3, whole.c4, whole.c5};
}

__device__ void etd(const Mode& mode, V2 term, float dt, float damping, const Params& p) {
  EtdCoefficients<> c = {};
  if (p.stage == 0) {
    c = formEtd(mode, damping, dt);
    etdStage<0>(term, c, mode.omega, mode.base, mode.first, mode.middle, mode.predictor,
                mode.correction);
  } else if (p.stage == 1) {
    c.c1 = mode.c(1);
    c.c2 = mode.c(2);
    etdStage<1>(term, c, mode.omega, mode.base, mode.first, mode.middle, mode.predictor,
                mode.correction);
  } else if (p.stage == 2) {
    c.c1 = mode.c(1);
    c.c2 = mode.c(2);
    etdStage<2>(term, c, mode.omega, mode.base, mode.first, mode.middle, mode.predictor,
                mode.correction);
  } else {
    c.c0 = mode.c(0);
    c.c3 = mode.c(3);
    c.c4 = mode.c(4);
    c.c5 = mode.c(5);
    etdStage<3>(term, c, mode.omega, mode.base, mode.first, mode.middle, mode.predictor,
                mode.correction);
  }
}

}  // namespace

extern "C" {

__global__ void projectState(const V2* __restrict__ spectrum, V2* __restrict__ omega, Params p) {
  const auto [i, j] = placeInGrid();
  if (i > half(p.resolution) || j >= p.resolution) return;
  const bool active = isActiveMode(i, foldIndex(j, p.resolution), p);
  omega[j * width(p) + i] = active ? spectrum[j * p.resolution + i] : zero;
}

__global__ void velocityToPadded(const V2* __restrict__ omega, V2* __restrict__ padded, Params p) {
  const auto [i, j] = placeInGrid();
  if (i > half(p.padded) || j >= p.padded) return;
  const int ky = foldIndex(j, p.padded);
  const unsigned plane = stride(p) * p.padded;
  V2* to = padded + (j * stride(p) + i);
  SpectrumPair velocity = {zero, zero};
  SpectrumPair gradient = {zero, zero};
  if (isActiveMode(i, ky, p)) {
    const V2 w = omega[rowIndex(ky, p.resolution) * width(p) + i];
    velocity = velocityOf(w, static_cast<int>(i), ky);
    if (isAdvective(p)) gradient = gradientOf(w, static_cast<int>(i), ky);
  }
  to[0] = velocity.x;
  to[plane] = velocity.y;
  if (!isAdvective(p)) return;
  to[2 * plane] = gradient.x;
  to[3 * plane] = gradient.y;
}

__global__ void reduceCFLAndProducts(float* __restrict__ padded, V2* __restrict__ cflPartials,
                                     Params p) {
  __shared__ float maxima[reductionLanes];
  __shared__ unsigned invalid[reductionLanes];
  const PaddedPlanes planes(padded, p);
  float largest = 0.0f;
  unsigned flag = 0;
  forVisits(p.padded * p.padded, p.blocks, [&](unsigned at) {
    const unsigned y = at / p.padded;
    const unsigned o = y * planes.stride + (at - y * p.padded);
    const float u = p.scale * padded[o];
    const float v = p.scale * padded[o + planes.plane];
    flag |= static_cast<unsigned>(nonFinite(u)) | static_cast<unsigned>(nonFinite(v));
    largest = larger(largest, speedBound(u, v));
    float gx = 0.0f;
    float gy = 0.0f;
    if (isAdvective(p)) {
      gx = p.scale * padded[o + 2 * planes.plane];
      gy = p.scale * padded[o + 3 * planes.plane];
      flag |= static_cast<unsigned>(nonFinite(gx)) | static_cast<unsigned>(nonFinite(gy));
    }
    writeProducts(planes, o, u, v, gx, gy, p);
  });
  reduceBlock(maxima, largest, LargerOf());
  reduceBlock(invalid, flag, EitherOf());
  if (threadIdx.x == 0) cflPartials[blockIdx.x] = {maxima[0], static_cast<float>(invalid[0])};
}

__global__ void selectTimeStep(const V2* __restrict__ cflPartials, ClockState* clock, Params p) {
  const auto [x, y] = placeInGrid();
  if (x != 0 || y != 0) return;
  if (!selectStep(*clock, cflPartials, p)) atomicExch(&clock->healthy, 0u);
}

__global__ void nonlinearProducts(float* __restrict__ padded, Params p) {
  const auto [x, y] = placeInGrid();
  if (x >= p.padded || y >= p.padded) return;
  const PaddedPlanes planes(padded, p);
  const unsigned o = y * planes.stride + x;
  const float u = p.scale * padded[o];
  const float v = p.scale * padded[o + planes.plane];
  const bool advective = isAdvective(p);
  const float gx = advective ? p.scale * padded[o + 2 * planes.plane] : 0.0f;
  const float gy = advective ? p.scale * padded[o + 3 * planes.plane] : 0.0f;
  writeProducts(planes, o, u, v, gx, gy, p);
}

// NOLINTNEXTLINE(bugprone-macro-parentheses): a type and a name
#define ZEPH_PARAMETER(type, name) type __restrict__ name,
__global__ void advanceStage(ZEPH_STAGE_ARRAYS(ZEPH_PARAMETER) Params p) {
  const auto [i, j] = placeInGrid();
  if (i > half(p.resolution) || j >= p.resolution) return;
  if (clock->stepState == noStep) return;
  const unsigned e = j * width(p) + i;
  const int ky = foldIndex(j, p.resolution);
  if (!isActiveMode(i, ky, p)) {
    omega[e] = zero;
    correction[e] = zero;
    return;
  }
  const float dt = clock->dt;
  const float k2 = waveSquare(static_cast<int>(i), ky);
  const float damping = dampingOf(p.viscosity, dt, k2);
  const V2 term = termAt(padded, i, ky, p);
  const Mode mode = {omega[e],     base[e],       first[e],         middle[e],
                     predictor[e], correction[e], coefficients + e, width(p) * p.resolution};
  if (p.method == Integrator::imexRK3) {
    imex(mode, term, dt, k2, p);
  } else if (p.method == Integrator::ifHeunRK3) {
    heun(mode, term, dt, damping, p);
  } else {
    etd(mode, term, dt, damping, p);
  }
  if (nonFinite(mode.omega.re) || nonFinite(mode.omega.im)) atomicExch(&clock->healthy, 0u);
}

__global__ void commitStep(ClockState* clock, Params p) {
  const auto [x, y] = placeInGrid();
  if (x == 0 && y == 0) commit(*clock, p);
}

__global__ void spectralStatistics(const V2* __restrict__ omega, float4* __restrict__ statPartials,
                                   Params p) {
  __shared__ float energies[reductionLanes];
  __shared__ float enstrophies[reductionLanes];
  __shared__ float palinstrophies[reductionLanes];
  __shared__ unsigned invalid[reductionLanes];
  float energy = 0.0f;
  float enstrophy = 0.0f;
  float palinstrophy = 0.0f;
  unsigned flag = 0;
  forVisits(width(p) * p.resolution, p.blocks, [&](unsigned at) {
    const unsigned j = at / width(p);
    const ModeFigures mode =
        modeFigures(omega[at], p.scale, static_cast<int>(at - j * width(p)),
                    foldIndex(j, p.resolution), static_cast<int>(half(p.resolution)));
    enstrophy += mode.enstrophy;
    palinstrophy += mode.palinstrophy;
    energy += mode.energy;
    flag |= static_cast<unsigned>(mode.invalid);
  });
  reduceBlock(energies, energy, SumOf());
  reduceBlock(enstrophies, enstrophy, SumOf());
  reduceBlock(palinstrophies, palinstrophy, SumOf());
  reduceBlock(invalid, flag, EitherOf());
  if (threadIdx.x == 0) {
    statPartials[blockIdx.x] = {energies[0], enstrophies[0], static_cast<float>(invalid[0]),
                                palinstrophies[0]};
  }
}

__global__ void prepareSnapshot(const V2* __restrict__ omega, V2* __restrict__ snapshotSpectra,
                                Params p) {
  const auto [i, j] = placeInGrid();
  if (i > half(p.resolution) || j >= p.resolution) return;
  const unsigned e = j * width(p) + i;
  const unsigned plane = width(p) * p.resolution;
  const V2 w = omega[e];
  snapshotSpectra[e] = w;
  if (p.stage != vorticityAndVelocity) return;
  const int ky = foldIndex(j, p.resolution);
  SpectrumPair velocity = {zero, zero};
  if (i != 0 || ky != 0) velocity = velocityOf(w, static_cast<int>(i), ky);
  snapshotSpectra[e + plane] = velocity.x;
  snapshotSpectra[e + 2 * plane] = velocity.y;
}

__global__ void extractSnapshot(const float* __restrict__ snapshotPlanes,
                                float* __restrict__ fields, float4* __restrict__ snapshotPartials,
                                Params p) {
  __shared__ float maxima[reductionLanes];
  __shared__ float speeds[reductionLanes];
  __shared__ float sums[reductionLanes];
  __shared__ float squares[reductionLanes];
  __shared__ unsigned invalid[reductionLanes];
  const unsigned n = p.resolution;
  const unsigned plane = (n + 2) * n;
  float maximum = 0.0f;
  float speed = 0.0f;
  float sum = 0.0f;
  float square = 0.0f;
  unsigned flag = 0;
  forVisits(n * n, p.blocks, [&](unsigned at) {
    const unsigned y = at / n;
    const unsigned o = y * (n + 2) + (at - y * n);
    const float w = p.scale * snapshotPlanes[o];
    float u = 0.0f;
    float v = 0.0f;
    if (p.stage == vorticityAndVelocity) {
      u = p.scale * snapshotPlanes[o + plane];
      v = p.scale * snapshotPlanes[o + 2 * plane];
      speed = larger(speed, euclideanSpeed(u, v));
      flag |= static_cast<unsigned>(nonFinite(u)) | static_cast<unsigned>(nonFinite(v));
    }
    fields[at] = w;
    fields[at + n * n] = u;
    fields[at + 2 * n * n] = v;
    maximum = larger(maximum, magnitude(w));
    sum += w;
    square += w * w;
    flag |= static_cast<unsigned>(nonFinite(w));
  });
  reduceBlock(maxima, maximum, LargerOf());
  reduceBlock(speeds, speed, LargerOf());
  reduceBlock(sums, sum, SumOf());
  reduceBlock(squares, square, SumOf());
  reduceBlock(invalid, flag, EitherOf());
  if (threadIdx.x == 0) {
    snapshotPartials[blockIdx.x] = {maxima[0], speeds[0], static_cast<float>(invalid[0]), 0.0f};
    snapshotPartials[p.blocks + blockIdx.x] = {sums[0], squares[0], 0.0f, 0.0f};
  }
}

}  // extern "C"

#define ZEPH_CHECK(kernel, Arrays) \
  static_assert(takesArguments<Arrays, std::remove_pointer_t<decltype(&(kernel))>>)

ZEPH_CHECK(projectState, ProjectionArrays);
ZEPH_CHECK(velocityToPadded, VelocityArrays);
ZEPH_CHECK(reduceCFLAndProducts, SpeedAndProductArrays);
ZEPH_CHECK(selectTimeStep, TimeStepArrays);
ZEPH_CHECK(nonlinearProducts, ProductArrays);
ZEPH_CHECK(advanceStage, StageArrays);
ZEPH_CHECK(commitStep, CommitArrays);
ZEPH_CHECK(spectralStatistics, StatisticsArrays);
ZEPH_CHECK(prepareSnapshot, SnapshotSpectraArrays);
ZEPH_CHECK(extractSnapshot, SnapshotFieldArrays);

}  // namespace zeph
