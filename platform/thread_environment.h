// What a thread brings along into the library's code and must not show in a result: the host's
// floating-point mode, its locale and its signals.
#pragma once

#include <immintrin.h>

#include <cfenv>
#include <thread>
#include <utility>

namespace zeph::platform {

// From here on the thread rounds to nearest, keeps subnormal numbers and traps nothing. For the
// library's own threads.
void useDefaultArithmetic();

// From here on the thread reads and writes numbers with a point, whatever locale the host has
// chosen for the process. For the library's own threads.
void useNeutralLocale();

// Numbers are read and written with a point on this thread for as long as it lives.
class NeutralLocale {
 public:
  NeutralLocale();
  ~NeutralLocale();
  NeutralLocale(const NeutralLocale&) = delete;
  NeutralLocale& operator=(const NeutralLocale&) = delete;

 private:
  void* before_ = nullptr;         // the caller's locale
  [[maybe_unused]] int mode_ = 0;  // on Windows, whether it is the thread's own
};

// Both for as long as it lives, for a call of the host's; then the caller's mode, floating-point
// flags and locale are back.
class CallEnvironment {
 public:
  CallEnvironment() : vectors_(_mm_getcsr()) {
    std::feholdexcept(&callers_);
    useDefaultArithmetic();
  }
  ~CallEnvironment() {
    std::fesetenv(&callers_);
    _mm_setcsr(vectors_);
  }
  CallEnvironment(const CallEnvironment&) = delete;
  CallEnvironment& operator=(const CallEnvironment&) = delete;

 private:
  NeutralLocale locale_;
  std::fenv_t callers_;
  unsigned vectors_;  // the mode and flags of the vectors' unit, which Windows' fenv_t lacks
};

// From here on the thread's sleeps end on time. The system otherwise prolongs them by some 50
// microseconds.
void sleepExactly();

// Default arithmetic and the neutral locale for good, at the beginning of a thread of the library's
// own.
inline void enterOwnThread() {
  useDefaultArithmetic();
  useNeutralLocale();
}

// While it lives, threads that this one starts take no signals: those sent to the process are for
// the host's threads.
class SignalsBlocked {
 public:
  SignalsBlocked();
  ~SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  alignas(16) unsigned char before_[128];  // a set of signals of the system
};

// A thread of the library's own, which takes no signals. Raises std::system_error where the system
// gives no thread.
template <class Work>
std::thread startThread(Work&& work) {
  const SignalsBlocked blocked;
  return std::thread(std::forward<Work>(work));
}

}  // namespace zeph::platform
