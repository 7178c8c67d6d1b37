// What each kernel works on: one record of device pointers for each of them. Their order is the
// order of the kernel's parameters, after which comes Params. The launch takes its addresses from
// the record, the processor's kernel is given the record, and the parameters of the kernel for GPUs
// are compared with it when they are compiled.
#pragma once

#include <concepts>

#include "kernels/params.h"

namespace zeph {

struct ProjectionArrays {
  const V2* spectrum;  // the full complex spectrum
  V2* omega;
};

struct VelocityArrays {
  const V2* omega;
  V2* padded;
};

struct SpeedAndProductArrays {
  float* padded;
  V2* cflPartials;
};

struct TimeStepArrays {
  const V2* cflPartials;
  ClockState* clock;
};

struct ProductArrays {
  float* padded;
};

// The arrays of a stage as ARRAY(type, name). Most have the same type, so the GPU's kernel takes
// its parameters from this list and cannot have them in another order than the record. Arrays that
// an integrator does not use (see methods.h) are not touched.
#define ZEPH_STAGE_ARRAYS(ARRAY)                                          \
  ARRAY(V2*, omega)           /* the state */                             \
  ARRAY(const V2*, padded)    /* the transformed products */              \
  ARRAY(V2*, base)            /* state at the start of the step */        \
  ARRAY(V2*, first)           /* nonlinear term of an earlier stage */    \
  ARRAY(V2*, middle)          /* sum of the two middle nonlinear terms */ \
  ARRAY(V2*, predictor)       /* first predictor */                       \
  ARRAY(float*, coefficients) /* per-mode factors, formed at stage 0 */   \
  ARRAY(ClockState*, clock)                                               \
  ARRAY(V2*, correction) /* compensation of the summation into the state */

struct StageArrays {
#define ZEPH_MEMBER(type, name) type name;
  ZEPH_STAGE_ARRAYS(ZEPH_MEMBER)
#undef ZEPH_MEMBER
};

struct CommitArrays {
  ClockState* clock;
};

struct StatisticsArrays {
  const V2* omega;
  float4* statPartials;
};

struct SnapshotSpectraArrays {
  const V2* omega;
  V2* snapshotSpectra;
};

struct SnapshotFieldArrays {
  const float* snapshotPlanes;
  float* fields;
  float4* snapshotPartials;
};

// The records hold pointers and nothing else.
template <class Arrays>
constexpr std::size_t arrayCount = sizeof(Arrays) / sizeof(void*);

template <class Arrays>
struct Arguments {
  Arrays arrays;
  Params p;
};

// Initialises a member of type T and no other.
template <class T>
struct Exactly {
  template <class Member>
  requires std::same_as<Member, T>
  operator Member() const;
};

// Whether the parameters of a function are the pointers of a record, type for type in their order,
// and then Params.
template <class Arrays, class Function>
constexpr bool takesArguments = false;
template <class Arrays, class... Parameters>
constexpr bool takesArguments<Arrays, void(Parameters...)> =
    sizeof...(Parameters) == arrayCount<Arrays> + 1 && requires {
  Arguments<Arrays>{Exactly<Parameters>()...};
};

}  // namespace zeph
