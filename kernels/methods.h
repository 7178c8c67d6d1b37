// The methods that a flow can be advanced by, and what each of them needs.
#pragma once

#include <cstdint>

namespace zeph {

enum class Integrator : std::uint32_t { imexRK3 = 0, ifHeunRK3 = 1, etdrk4 = 2 };
enum class OperatorKind : std::uint32_t { stress = 0, advective = 1 };

// The functions below are static so that each instruction set's code has its own copy.

struct IntegratorNeeds {
  int stages;
  int coefficientPlanes;         // factors that each mode keeps from stage 0 to the end of the step
  bool base, middle, predictor;  // whether these arrays of a stage are in use
};

static constexpr IntegratorNeeds needsOf(Integrator integrator) {
  switch (integrator) {
    case Integrator::imexRK3:
      return {
          .stages = 3, .coefficientPlanes = 0, .base = false, .middle = false, .predictor = false};
    case Integrator::ifHeunRK3:
      return {
          .stages = 3, .coefficientPlanes = 3, .base = true, .middle = false, .predictor = false};
    case Integrator::etdrk4:
      return {.stages = 4, .coefficientPlanes = 6, .base = true, .middle = true, .predictor = true};
  }
  return {};
}

// The padded planes that the nonlinear term is made of.
struct OperatorNeeds {
  int fields;    // transformed to physical space: velocity, and for "advective" the gradient
  int products;  // transformed back
};

static constexpr OperatorNeeds needsOf(OperatorKind kind) {
  if (kind == OperatorKind::stress) return {.fields = 2, .products = 2};
  return {.fields = 4, .products = 1};
}

}  // namespace zeph
