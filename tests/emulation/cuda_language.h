// CUDA's extensions of C++, for kernels that are compiled for the host: those of the library, those
// of tests, and those that are written at run time.
//
// One thread of one block runs at a time, so the built-in variables are plain ones.
#pragma once

#define EMULATION_SHOWN __attribute__((visibility("default")))

// CUDA's own headers may have been included before; they give these no meaning on the host.
#undef __global__
#undef __device__
#undef __host__
#undef __constant__
#undef __shared__
#undef __launch_bounds__
#define __global__
#define __device__
#define __host__
#define __constant__
#define __launch_bounds__(...)
#if EMULATION_MODULE
// Modules have only dynamic shared memory, `extern __shared__ float shared[]`.
#define __shared__
#else
#define __shared__ static __attribute__((section("emulated_shared")))
#endif

struct EmulatedIndex {
  unsigned x = 0, y = 0, z = 0;
};

extern EMULATION_SHOWN EmulatedIndex threadIdx, blockIdx, blockDim, gridDim;

EMULATION_SHOWN void __syncthreads();

inline unsigned atomicExch(unsigned* at, unsigned value) {
  const unsigned before = *at;
  *at = value;
  return before;
}

// Modules are compiled often, and the standard headers would take most of the time.
#if EMULATION_MODULE
struct alignas(8) float2 {
  float x, y;
};

inline float fma(float a, float b, float c) {
  return __builtin_fmaf(a, b, c);
}
inline float __sinf(float x) {
  return __builtin_sinf(x);
}
inline float __cosf(float x) {
  return __builtin_cosf(x);
}
#endif
