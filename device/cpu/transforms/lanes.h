// Vectors of floats, and the ways in which a transform moves numbers between memory and them.
// For code that is compiled once per instruction set.
#pragma once

#include <cstddef>
#include <utility>

#define ZEPH_INLINE [[gnu::always_inline]] inline
#define ZEPH_INLINED __attribute__((always_inline))  // of a lambda, behind its parameters

namespace zeph::cpu::ZEPH_ISA {
namespace {

constexpr int lanes = ZEPH_LANES;
constexpr int laneBytes = 4 * lanes;

typedef float Lanes __attribute__((vector_size(laneBytes)));
typedef float LanesInMemory __attribute__((vector_size(laneBytes), aligned(4), may_alias));

struct ComplexLanes {
  Lanes re, im;
};

template <int value>
struct Constant {
  constexpr operator int() const { return value; }
};

// Calls step with the constants 0 to count - 1, written out one after another.
template <int... k, class Step>
ZEPH_INLINE void unrolledOver(std::integer_sequence<int, k...>, Step step) {
  (step(Constant<k>{}), ...);
}
template <int count, class Step>
ZEPH_INLINE void unrolled(Step step) {
  unrolledOver(std::make_integer_sequence<int, count>{}, step);
}

ZEPH_INLINE Lanes load(const float* from) {
  return *reinterpret_cast<const LanesInMemory*>(from);
}
ZEPH_INLINE void store(float* to, Lanes value) {
  *reinterpret_cast<LanesInMemory*>(to) = value;
}

// The first `count` lanes alone, none if it is negative; the rest is zero.
ZEPH_INLINE std::size_t bytesOf(int count) {
  return count <= 0 ? 0 : count < lanes ? 4 * static_cast<std::size_t>(count) : laneBytes;
}
ZEPH_INLINE Lanes loadFirst(const float* from, int count) {
  Lanes value = {};
  __builtin_memcpy(&value, from, bytesOf(count));
  return value;
}
ZEPH_INLINE void storeFirst(float* to, Lanes value, int count) {
  __builtin_memcpy(to, &value, bytesOf(count));
}

// Lane k of the result is element Source::at(k) of a followed by b.
template <class Source, int... k>
ZEPH_INLINE Lanes pickOver(Lanes a, Lanes b, std::integer_sequence<int, k...>) {
  return __builtin_shufflevector(a, b, Source::at(k)...);
}
template <class Source>
ZEPH_INLINE Lanes pick(Lanes a, Lanes b) {
  return pickOver<Source>(a, b, std::make_integer_sequence<int, lanes>{});
}

// Every pattern but the last stays within quarters of four lanes, where one instruction does it.
template <int from>
struct Unpacked {  // a0 b0 a1 b1 of each quarter, or a2 b2 a3 b3
  static constexpr int at(int k) { return k / 4 * 4 + from + k % 4 / 2 + k % 2 * lanes; }
};
template <int from>
struct UnpackedPairs {  // a0 a1 b0 b1 of each quarter, or a2 a3 b2 b3
  static constexpr int at(int k) { return k / 4 * 4 + from + k % 2 + k % 4 / 2 * lanes; }
};
template <int from>
struct Alternate {  // a0 a2 b0 b2 of each quarter, or a1 a3 b1 b3
  static constexpr int at(int k) { return k / 4 * 4 + from + k % 2 * 2 + k % 4 / 2 * lanes; }
};
template <int from>
struct AlternateQuarters {  // quarters 0 and 2 (or 1 and 3) of a, then those of b
  static constexpr int at(int k) { return (k / 4 * 2 + from) * 4 + k % 4; }
};

// Lane k of what `deinterleave` gives is complex number complexOrder(k) of those in memory.
constexpr int complexOrder(int k) {
  return k / 4 * 2 + k % 2 + k % 4 / 2 * (lanes / 2);
}

ZEPH_INLINE ComplexLanes deinterleave(Lanes a, Lanes b) {
  return {pick<Alternate<0>>(a, b), pick<Alternate<1>>(a, b)};
}

// `lanes` complex numbers at `at`.
ZEPH_INLINE ComplexLanes loadComplex(const float* at) {
  return deinterleave(load(at), load(at + lanes));
}
ZEPH_INLINE void storeComplex(float* at, ComplexLanes value) {
  store(at, pick<Unpacked<0>>(value.re, value.im));
  store(at + lanes, pick<Unpacked<2>>(value.re, value.im));
}
ZEPH_INLINE ComplexLanes loadFirstComplex(const float* at, int count) {
  return deinterleave(loadFirst(at, 2 * count), loadFirst(at + lanes, 2 * count - lanes));
}
ZEPH_INLINE void storeFirstComplex(float* at, ComplexLanes value, int count) {
  storeFirst(at, pick<Unpacked<0>>(value.re, value.im), 2 * count);
  storeFirst(at + lanes, pick<Unpacked<2>>(value.re, value.im), 2 * count - lanes);
}

// Quarter t of result q is quarter q of m[4 * t], so that whole quarters are transposed.
ZEPH_INLINE void transposeQuarters(Lanes* m) {
  if constexpr (lanes == 8) {
    const Lanes a = m[0], b = m[4];
    m[0] = pick<AlternateQuarters<0>>(a, b);
    m[4] = pick<AlternateQuarters<1>>(a, b);
  } else if constexpr (lanes == 16) {
    const Lanes even0 = pick<AlternateQuarters<0>>(m[0], m[4]);
    const Lanes odd0 = pick<AlternateQuarters<1>>(m[0], m[4]);
    const Lanes even1 = pick<AlternateQuarters<0>>(m[8], m[12]);
    const Lanes odd1 = pick<AlternateQuarters<1>>(m[8], m[12]);
    m[0] = pick<AlternateQuarters<0>>(even0, even1);
    m[8] = pick<AlternateQuarters<1>>(even0, even1);
    m[4] = pick<AlternateQuarters<0>>(odd0, odd1);
    m[12] = pick<AlternateQuarters<1>>(odd0, odd1);
  }
}

// Transposes a square of `lanes` vectors: 4 x 4 squares within quarters, then the quarters.
ZEPH_INLINE void transpose(Lanes* m) {
  unrolled<lanes / 4>([&](auto group) ZEPH_INLINED {
    Lanes* row = m + 4 * group;
    const Lanes low0 = pick<Unpacked<0>>(row[0], row[1]);
    const Lanes high0 = pick<Unpacked<2>>(row[0], row[1]);
    const Lanes low1 = pick<Unpacked<0>>(row[2], row[3]);
    const Lanes high1 = pick<Unpacked<2>>(row[2], row[3]);
    row[0] = pick<UnpackedPairs<0>>(low0, low1);
    row[1] = pick<UnpackedPairs<2>>(low0, low1);
    row[2] = pick<UnpackedPairs<0>>(high0, high1);
    row[3] = pick<UnpackedPairs<2>>(high0, high1);
  });
  unrolled<4>([&](auto column) ZEPH_INLINED { transposeQuarters(m + column); });
}

// Transposes the square whose vector k is get(k), and gives vector k of the result to put(k,
// value).
template <class Get, class Put>
ZEPH_INLINE void transposed(Get get, Put put) {
  Lanes m[lanes];
  unrolled<lanes>([&](auto k) ZEPH_INLINED { m[k] = get(k); });
  transpose(m);
  unrolled<lanes>([&](auto k) ZEPH_INLINED { put(k, m[k]); });
}

}  // namespace
}  // namespace zeph::cpu::ZEPH_ISA
