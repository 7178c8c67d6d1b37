#include "platform/thread_environment.h"

#include <windows.h>
// After windows.h.
#include <immintrin.h>
#include <mmsystem.h>

#include <clocale>
#include <cstdlib>
#include <cstring>

namespace zeph::platform {
namespace {

// The system's timer ticks 64 times a second, and faster while somebody asks for it.
class FastTimer {
 public:
  FastTimer() { timeBeginPeriod(milliseconds); }
  ~FastTimer() { timeEndPeriod(milliseconds); }
  FastTimer(const FastTimer&) = delete;
  FastTimer& operator=(const FastTimer&) = delete;

 private:
  static constexpr UINT milliseconds = 1;
};

bool isNeutral(const char* locale) {
  return std::strcmp(locale, "C") == 0;
}

}  // namespace

// Windows' own default cuts the registers of the old floating-point unit to 53 bits; the logarithm
// and the power of our C library are precise only with all 64. Its fesetenv() leaves the vectors'
// unit as it was.
void useDefaultArithmetic() {
  constexpr unsigned toNearestWithSubnormals = 0x1F80;
  std::fesetenv(FE_PC64_ENV);
  _mm_setcsr(toNearestWithSubnormals);
}

void useNeutralLocale() {
  _configthreadlocale(_ENABLE_PER_THREAD_LOCALE);
  std::setlocale(LC_ALL, "C");
}

// A thread has the locale of the process until it asks for one of its own. A host with another C
// library does not share ours.
NeutralLocale::NeutralLocale() : mode_(_configthreadlocale(_ENABLE_PER_THREAD_LOCALE)) {
  const char* callers = std::setlocale(LC_ALL, nullptr);
  if (isNeutral(callers)) return;
  before_ = _strdup(callers);
  std::setlocale(LC_ALL, "C");
}

NeutralLocale::~NeutralLocale() {
  if (before_ != nullptr) std::setlocale(LC_ALL, static_cast<char*>(before_));
  std::free(before_);
  _configthreadlocale(mode_);
}

void sleepExactly() {
  thread_local const FastTimer timer;
}

SignalsBlocked::SignalsBlocked() = default;

SignalsBlocked::~SignalsBlocked() = default;

}  // namespace zeph::platform
