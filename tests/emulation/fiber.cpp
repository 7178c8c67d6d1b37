#include "tests/emulation/fiber.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#endif

// Saves the callee-saved registers (System V ABI, AMD64) on the current stack, stores its stack
// pointer, and continues on the other stack. The C library's functions for this make a system call
// at each switch, which is a hundred times as slow.
extern "C" void emulationSwitchStack(void** left, void* taken);
asm(R"(
.text
.type emulationSwitchStack, @function
emulationSwitchStack:
  pushq %rbp
  pushq %rbx
  pushq %r12
  pushq %r13
  pushq %r14
  pushq %r15
  movq %rsp, (%rdi)
  movq %rsi, %rsp
  popq %r15
  popq %r14
  popq %r13
  popq %r12
  popq %rbx
  popq %rbp
  popq %rdx
  jmpq *%rdx
.size emulationSwitchStack, .-emulationSwitchStack
)");

namespace zeph::emulation {
namespace {

constexpr std::size_t guardBytes = 4096;
constexpr int keptRegisters = 6;

// If all stacks started at the same offset in their pages, their tops would compete for a few cache
// lines.
std::size_t nextShift() {
  static std::size_t shift = 0;
  shift = (shift + 13 * 64) % 4096;
  return shift;
}

Fiber* running = nullptr;
void* schedulerTop = nullptr;

// The address sanitizer must be notified of each stack switch.
#if defined(__SANITIZE_ADDRESS__)
const void* schedulerBottom = nullptr;
std::size_t schedulerBytes = 0;

void announceLeaving(void** fakeStack, const void* bottom, std::size_t bytes) {
  __sanitizer_start_switch_fiber(fakeStack, bottom, bytes);
}
void announceLeavingForScheduler(void** fakeStack) {
  __sanitizer_start_switch_fiber(fakeStack, schedulerBottom, schedulerBytes);
}
void announceArrival(void* fakeStack) {
  __sanitizer_finish_switch_fiber(fakeStack, nullptr, nullptr);
}
void announceArrivalFromScheduler(void* fakeStack) {
  __sanitizer_finish_switch_fiber(fakeStack, &schedulerBottom, &schedulerBytes);
}
#else
void announceLeaving(void**, const void*, std::size_t) {}
void announceLeavingForScheduler(void**) {}
void announceArrival(void*) {}
void announceArrivalFromScheduler(void*) {}
#endif

}  // namespace

Fiber::Fiber() {
  void* memory = mmap(nullptr, guardBytes + stackBytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  memory_ = static_cast<std::byte*>(memory);
  mprotect(memory_, guardBytes, PROT_NONE);
  bottom_ = memory_ + guardBytes + stackBytes - nextShift();
}

Fiber::~Fiber() {
  munmap(memory_, guardBytes + stackBytes);
}

void Fiber::prepare(void (*body)(void*), void* context) {
  body_ = body;
  context_ = context;
  // As if enter() had been called: its return address (never used) on a boundary of 16 bytes below
  // the top, then its own address for the switch to return to, then the kept registers.
  auto* slot = reinterpret_cast<std::uintptr_t*>(bottom_);
  *--slot = 0;
  *--slot = reinterpret_cast<std::uintptr_t>(&Fiber::enter);
  for (int k = 0; k < keptRegisters; ++k) *--slot = 0;
  top_ = slot;
  fakeStack_ = nullptr;
}

bool Fiber::resume() {
  running = this;
  isWaiting_ = true;
  void* ownFakeStack = nullptr;
  announceLeaving(&ownFakeStack, memory_ + guardBytes, stackBytes);
  emulationSwitchStack(&schedulerTop, top_);
  announceArrival(ownFakeStack);
  return isWaiting_;
}

void Fiber::wait() {
  announceLeavingForScheduler(&running->fakeStack_);
  emulationSwitchStack(&running->top_, schedulerTop);
  announceArrivalFromScheduler(running->fakeStack_);
}

void Fiber::enter() {
  announceArrivalFromScheduler(nullptr);
  running->body_(running->context_);
  running->isWaiting_ = false;
  announceLeavingForScheduler(nullptr);
  emulationSwitchStack(&running->top_, schedulerTop);
}

}  // namespace zeph::emulation
