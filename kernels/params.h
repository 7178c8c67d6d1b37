// The records shared by the host and the kernels, and the layouts that all of them agree on.
//
// The equation is dw/dt = -u.grad w + nu lap w on the doubly periodic square of side 2 pi, so
// wavenumbers are integers. N is the resolution (even), H = N/2, W = H + 1, M = (3 N)/2 rounded
// down, S = (M/2 + 8) rounded down to a multiple of 8. The index of element (i, j), or (x, y), is:
//
//   half spectrum           V2     j * W + i            N rows of W
//   padded spectral plane   V2     j * S + i            M rows, i <= M/2 in use; plane p at p*S*M
//   padded real plane       float  y * 2S + x           the same memory
//   snapshot spectral plane V2     j * W + i            plane p at p*W*N
//   snapshot real plane     float  y * (N + 2) + x      the same memory
//   coefficient plane       float  j * W + i            plane p at p*W*N
//   physical field plane    float  y * N + x            plane p at p*N*N
//
// kx = i; ky = j up to half the side of the array, and j - side above. A mode is active when kx <
// H, |ky| < H and (kx, ky) is not (0, 0): the 2/3 rule as a square. A half spectrum holds N^2 times
// the Fourier coefficients; transforms do not scale.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/methods.h"

namespace zeph {

struct alignas(8) V2 {
  float re, im;
};

struct float4 {
  float x, y, z, w;
};

// Passed by value to every kernel.
struct Params {
  std::uint32_t resolution;  // N
  std::uint32_t padded;      // M
  Integrator method;
  std::uint32_t stage;    // stage index; for the snapshot kernels the number of planes
  float viscosity;        // 1/Re
  float cfl;              // Courant number
  float fixedDt;          // 0 where the step is adaptive
  float scale;            // 1/N^2
  float endHigh, endLow;  // endpoint time as a pair of floats; 0 where there is none
  std::uint32_t hasEnd;   // 0 or 1
  std::uint32_t blocks;   // blocks of the reducing kernels, always reductionBlocks
  OperatorKind operatorKind;
};
static_assert(sizeof(Params) == 52 && alignof(Params) == 4);

// The planes of a snapshot, as the snapshot kernels find them in Params::stage.
constexpr std::uint32_t vorticityAlone = 1;
constexpr std::uint32_t vorticityAndVelocity = 3;

// The device's clock. Time is the unevaluated sum timeHigh + timeLow.
struct alignas(8) ClockState {
  float timeHigh, timeLow;
  float dt;                 // step in use, cut to land on an endpoint
  float rawDt;              // the step before it was cut; the growth limiter's memory
  std::uint64_t steps;      // completed steps
  float maxSpeed;           // largest |u| + |v| at the last stage 0
  std::uint32_t healthy;    // cleared by a kernel that meets a non-finite value
  std::uint32_t stepState;  // one of StepState
};
static_assert(sizeof(ClockState) == 40 && offsetof(ClockState, steps) == 16);

enum StepState : std::uint32_t { noStep = 0, normalStep = 1, finalStep = 2 };

// A reduction's partial results: 64 blocks of 256 lanes, each lane a thread on a GPU and an element
// of an array on the processor.
constexpr std::uint32_t reductionBlocks = 64;
constexpr std::uint32_t reductionLanes = 256;

constexpr int paddedResolution(int n) {
  return 3 * n / 2;
}
constexpr int halfWidth(int n) {
  return n / 2 + 1;
}
constexpr int paddedStride(int m) {
  return (m / 2 + 8) & ~7;
}  // in complex elements

}  // namespace zeph
