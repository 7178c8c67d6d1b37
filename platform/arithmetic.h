// The floating-point mode of a thread.
#pragma once

#include <cfenv>

namespace zeph::platform {

// From here on the thread rounds to nearest, keeps subnormal numbers and traps nothing. All results
// assume this mode.
inline void useDefaultArithmetic() {
  std::fesetenv(FE_DFL_ENV);
}

// The same for as long as it lives; then restores the caller's mode and flags.
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
