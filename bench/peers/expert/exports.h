// The C functions of one library of transforms; included once for each.
#pragma once
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

#include "flow.h"

namespace expert {

template <class Work>
double seconds(int times, Work work) {
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < times; ++i) work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// The four transforms of a stage alone: two planes there and back, whole, in place.
template <class Transforms>
class Bare {
 public:
  Bare(int n, int threads)
      : at_(n, Form::plain),
        planes_(2 * at_.plane),
        transforms_(at_, Form::plain, planes_.data(), threads) {
    // Transforms do not scale: what is not zero would grow.
    std::memset(static_cast<void*>(planes_.data()), 0, 2 * at_.plane * sizeof(Complex));
  }
  void stage() {
    transforms_.inverse();
    transforms_.forward();
  }

 private:
  Layout at_;
  Array<Complex> planes_;
  Transforms transforms_;
};

template <class Made, class... Arguments>
void* make(Arguments... arguments) {
  try {
    return new Made(arguments...);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return nullptr;
  }
}

}  // namespace expert

#define EXPERT_EXPORTS(Transforms)                                                            \
  extern "C" {                                                                                \
  void* flow_create(int form, int n, const void* start, double viscosity, double dt,          \
                    int threads) {                                                            \
    return expert::make<expert::Flow<Transforms>>(static_cast<expert::Form>(form), n,         \
                                                  static_cast<const expert::Complex*>(start), \
                                                  viscosity, dt, threads);                    \
  }                                                                                           \
  double flow_steps(void* flow, int steps) {                                                  \
    auto* it = static_cast<expert::Flow<Transforms>*>(flow);                                  \
    return expert::seconds(steps, [=] { it->step(); });                                       \
  }                                                                                           \
  void flow_state(void* flow, void* to) {                                                     \
    auto* it = static_cast<expert::Flow<Transforms>*>(flow);                                  \
    std::memcpy(to, it->state(), it->modes() * sizeof(expert::Complex));                      \
  }                                                                                           \
  void flow_destroy(void* flow) {                                                             \
    delete static_cast<expert::Flow<Transforms>*>(flow);                                      \
  }                                                                                           \
  void* bare_create(int n, int threads) {                                                     \
    return expert::make<expert::Bare<Transforms>>(n, threads);                                \
  }                                                                                           \
  double bare_stages(void* bare, int stages) {                                                \
    auto* it = static_cast<expert::Bare<Transforms>*>(bare);                                  \
    return expert::seconds(stages, [=] { it->stage(); });                                     \
  }                                                                                           \
  void bare_destroy(void* bare) {                                                             \
    delete static_cast<expert::Bare<Transforms>*>(bare);                                      \
  }                                                                                           \
  }
