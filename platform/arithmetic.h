// The floating-point mode of a thread.
#pragma once

#include <cfenv>

namespace zeph::platform {

// Rounds to nearest, keeps subnormal numbers and traps nothing from here on: the mode that every
// result is told for.
inline void useDefaultArithmetic() {
  std::fesetenv(FE_DFL_ENV);
}

// The same for as long as it lives; then the caller's mode and its flags are back.
class DefaultArithmetic {
 public:
  DefaultArithmetic() {
    std::feholdexcept(&callers_);
    useDefaultArithmetic();
  }
  ~DefaultArithmetic() { std::fesetenv(&callers_); }
  DefaultArithmetic(const DefaultArithmetic&) = delete;
  DefaultArithmetic& operator=(const DefaultArithmetic&) = delete;

 private:
  std::fenv_t callers_;
};

}  // namespace zeph::platform
