#include "platform/thread_environment.h"

#include <gtest/gtest.h>
#include <immintrin.h>

#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

namespace zeph::platform {
namespace {

// The control words of the two floating-point units.
struct Modes {
  unsigned vectors = _mm_getcsr();
  std::uint16_t old = [] {
    std::uint16_t word = 0;
    asm volatile("fnstcw %0" : "=m"(word));
    return word;
  }();

  friend bool operator==(const Modes&, const Modes&) = default;
};

constexpr unsigned everyFlag = 0x3F;
constexpr unsigned toNearestWithSubnormals = 0x1F80;
constexpr std::uint16_t toNearestIn64Bits = 0x37F;

// Rounds up, flushes subnormal numbers to zero, and works with 24 bits.
class HostileModes {
 public:
  HostileModes() {
    _mm_setcsr(0xDFC0);
    setOld(0x87F);
  }
  ~HostileModes() {
    _mm_setcsr(toNearestWithSubnormals);
    setOld(toNearestIn64Bits);
  }
  HostileModes(const HostileModes&) = delete;
  HostileModes& operator=(const HostileModes&) = delete;

 private:
  static void setOld(std::uint16_t word) { asm volatile("fldcw %0" : : "m"(word)); }
};

TEST(CallEnvironment, HasDefaultArithmeticAndGivesTheCallersBack) {
  const HostileModes hostile;
  const Modes before;
  {
    const CallEnvironment environment;
    const Modes inside;
    EXPECT_EQ(inside.vectors & ~everyFlag, toNearestWithSubnormals);
    EXPECT_EQ(inside.old, toNearestIn64Bits);
  }
  EXPECT_EQ(Modes(), before);
}

TEST(CallEnvironment, HasThePrecisionThatPowersNeed) {
  const HostileModes hostile;
  const CallEnvironment environment;
  const volatile double points = 1024, wavenumber = 4, ten = 10;
  const double exponent =
      1.06624 * std::log10(points) - 0.083911 * std::log10(wavenumber) + 1.286396;
  EXPECT_EQ(std::pow(ten, exponent), 27898.36614974335);
}

TEST(CallEnvironment, WritesNumbersWithAPointWhateverTheCallersLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  const char* comma = nullptr;
  for (const char* name : {"de_DE.UTF-8", "de_DE", "German_Germany"}) {
    if (comma == nullptr) comma = std::setlocale(LC_ALL, name);
  }
  if (comma == nullptr) GTEST_SKIP() << "There is no locale with a decimal comma.";
  const std::string callers = comma;
  char text[8] = {};
  {
    const CallEnvironment environment;
    std::snprintf(text, sizeof(text), "%.1f", 1.5);
  }
  EXPECT_STREQ(text, "1.5");
  EXPECT_EQ(std::setlocale(LC_ALL, nullptr), callers);
  std::setlocale(LC_ALL, before.c_str());
}

}  // namespace
}  // namespace zeph::platform
