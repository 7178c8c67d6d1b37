#include "platform/thread_environment.h"

#include <sys/prctl.h>

#include <clocale>
#include <csignal>
#include <cstring>

namespace zeph::platform {
namespace {

const locale_t neutralLocale = newlocale(LC_ALL_MASK, "C", nullptr);

// A signal that an instruction of the thread itself raises cannot wait.
constexpr int raisedByInstructions[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS};

}  // namespace

void useDefaultArithmetic() {
  std::fesetenv(FE_DFL_ENV);
}

void useNeutralLocale() {
  uselocale(neutralLocale);
}

NeutralLocale::NeutralLocale() : before_(uselocale(neutralLocale)) {}

NeutralLocale::~NeutralLocale() {
  uselocale(static_cast<locale_t>(before_));
}

void sleepExactly() {
  prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

SignalsBlocked::SignalsBlocked() {
  static_assert(sizeof(sigset_t) <= sizeof(before_));
  sigset_t blocked;
  sigfillset(&blocked);
  for (const int number : raisedByInstructions) sigdelset(&blocked, number);
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  std::memcpy(before_, &before, sizeof(before));
}

SignalsBlocked::~SignalsBlocked() {
  sigset_t before;
  std::memcpy(&before, before_, sizeof(before));
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace zeph::platform
