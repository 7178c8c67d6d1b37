// Vectors of floats, and the ways in which a transform moves numbers between memory and them.
// For code that is compiled once per instruction set.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <utility>

#define ZEPH_INLINE [[gnu::always_inline]] inline
#define ZEPH_INLINED __attribute__((always_inline))  // of a lambda, behind its parameters

namespace zeph::cpu::ZEPH_ISA {
namespace {

constexpr int vectorWidth = ZEPH_VECTOR_WIDTH;
constexpr int vectorBytes = 4 * vectorWidth;

typedef float Vector __attribute__((vector_size(vectorBytes)));
typedef float VectorInMemory __attribute__((vector_size(vectorBytes), aligned(4), may_alias));

// Integers, or the lanes of a comparison: all bits set where it holds.
typedef int IntVector __attribute__((vector_size(vectorBytes)));

struct ComplexVector {
  Vector re, im;
};

ZEPH_INLINE Vector magnitude(Vector x) {
  return reinterpret_cast<Vector>(reinterpret_cast<IntVector>(x) & 0x7FFFFFFF);
}

ZEPH_INLINE bool anyLane(IntVector lanes) {
#if ZEPH_VECTOR_WIDTH == 16
  return _mm512_movepi32_mask(reinterpret_cast<__m512i>(lanes)) != 0;
#elif ZEPH_VECTOR_WIDTH == 8
  return _mm256_movemask_ps(reinterpret_cast<__m256>(lanes)) != 0;
#else
  return _mm_movemask_ps(reinterpret_cast<__m128>(lanes)) != 0;
#endif
}

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

ZEPH_INLINE Vector load(const float* from) {
  return *reinterpret_cast<const VectorInMemory*>(from);
}
ZEPH_INLINE void store(float* to, Vector value) {
  *reinterpret_cast<VectorInMemory*>(to) = value;
}

// Past the caches, for what is not read again while it would stay in them. `to` is aligned to a
// vector. Other threads see it after endStreaming.
ZEPH_INLINE void stream(float* to, Vector value) {
#if ZEPH_VECTOR_WIDTH == 16
  _mm512_stream_ps(to, value);
#elif ZEPH_VECTOR_WIDTH == 8
  _mm256_stream_ps(to, value);
#else
  _mm_stream_ps(to, value);
#endif
}
ZEPH_INLINE void endStreaming() {
  _mm_sfence();
}

// Only the first `count` floats, none if it is negative; the rest is zero.
ZEPH_INLINE std::size_t bytesOf(int count) {
  return count <= 0 ? 0 : count < vectorWidth ? 4 * static_cast<std::size_t>(count) : vectorBytes;
}
ZEPH_INLINE Vector loadFirst(const float* from, int count) {
  Vector value = {};
  __builtin_memcpy(&value, from, bytesOf(count));
  return value;
}
ZEPH_INLINE void storeFirst(float* to, Vector value, int count) {
  __builtin_memcpy(to, &value, bytesOf(count));
}

// Float k of the result is element Source::at(k) of a followed by b.
template <class Source, int... k>
ZEPH_INLINE Vector pickOver(Vector a, Vector b, std::integer_sequence<int, k...>) {
  return __builtin_shufflevector(a, b, Source::at(k)...);
}
template <class Source>
ZEPH_INLINE Vector pick(Vector a, Vector b) {
  return pickOver<Source>(a, b, std::make_integer_sequence<int, vectorWidth>{});
}

// Every pattern but the last stays within quarters of four floats, where one instruction does it.
template <int from>
struct Unpacked {  // a0 b0 a1 b1 of each quarter, or a2 b2 a3 b3
  static constexpr int at(int k) { return k / 4 * 4 + from + k % 4 / 2 + k % 2 * vectorWidth; }
};
template <int from>
struct UnpackedPairs {  // a0 a1 b0 b1 of each quarter, or a2 a3 b2 b3
  static constexpr int at(int k) { return k / 4 * 4 + from + k % 2 + k % 4 / 2 * vectorWidth; }
};
template <int from>
struct Alternate {  // a0 a2 b0 b2 of each quarter, or a1 a3 b1 b3
  static constexpr int at(int k) { return k / 4 * 4 + from + k % 2 * 2 + k % 4 / 2 * vectorWidth; }
};
template <int from>
struct AlternateQuarters {  // quarters 0 and 2 (or 1 and 3) of a, then those of b
  static constexpr int at(int k) { return (k / 4 * 2 + from) * 4 + k % 4; }
};

// Float k of what `deinterleave` gives is complex number complexOrder(k) of those in memory.
constexpr int complexOrder(int k) {
  return k / 4 * 2 + k % 2 + k % 4 / 2 * (vectorWidth / 2);
}

ZEPH_INLINE ComplexVector deinterleave(Vector a, Vector b) {
  return {pick<Alternate<0>>(a, b), pick<Alternate<1>>(a, b)};
}

// `vectorWidth` complex numbers at `at`.
ZEPH_INLINE ComplexVector loadComplex(const float* at) {
  return deinterleave(load(at), load(at + vectorWidth));
}
ZEPH_INLINE void storeComplex(float* at, ComplexVector value) {
  store(at, pick<Unpacked<0>>(value.re, value.im));
  store(at + vectorWidth, pick<Unpacked<2>>(value.re, value.im));
}
ZEPH_INLINE ComplexVector loadFirstComplex(const float* at, int count) {
  return deinterleave(loadFirst(at, 2 * count),
                      loadFirst(at + vectorWidth, 2 * count - vectorWidth));
}
ZEPH_INLINE void storeFirstComplex(float* at, ComplexVector value, int count) {
  storeFirst(at, pick<Unpacked<0>>(value.re, value.im), 2 * count);
  storeFirst(at + vectorWidth, pick<Unpacked<2>>(value.re, value.im), 2 * count - vectorWidth);
}

// Quarter t of result q is quarter q of m[4 * t], so that whole quarters are transposed.
ZEPH_INLINE void transposeQuarters(Vector* m) {
  if constexpr (vectorWidth == 8) {
    const Vector a = m[0], b = m[4];
    m[0] = pick<AlternateQuarters<0>>(a, b);
    m[4] = pick<AlternateQuarters<1>>(a, b);
  } else if constexpr (vectorWidth == 16) {
    const Vector even0 = pick<AlternateQuarters<0>>(m[0], m[4]);
    const Vector odd0 = pick<AlternateQuarters<1>>(m[0], m[4]);
    const Vector even1 = pick<AlternateQuarters<0>>(m[8], m[12]);
    const Vector odd1 = pick<AlternateQuarters<1>>(m[8], m[12]);
    m[0] = pick<AlternateQuarters<0>>(even0, even1);
    m[8] = pick<AlternateQuarters<1>>(even0, even1);
    m[4] = pick<AlternateQuarters<0>>(odd0, odd1);
    m[12] = pick<AlternateQuarters<1>>(odd0, odd1);
  }
}

// Transposes a square of `vectorWidth` vectors: 4 x 4 squares within quarters, then the quarters.
ZEPH_INLINE void transpose(Vector* m) {
  unrolled<vectorWidth / 4>([&](auto group) ZEPH_INLINED {
    Vector* row = m + 4 * group;
    const Vector low0 = pick<Unpacked<0>>(row[0], row[1]);
    const Vector high0 = pick<Unpacked<2>>(row[0], row[1]);
    const Vector low1 = pick<Unpacked<0>>(row[2], row[3]);
    const Vector high1 = pick<Unpacked<2>>(row[2], row[3]);
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
  Vector m[vectorWidth];
  unrolled<vectorWidth>([&](auto k) ZEPH_INLINED { m[k] = get(k); });
  transpose(m);
  unrolled<vectorWidth>([&](auto k) ZEPH_INLINED { put(k, m[k]); });
}

}  // namespace
}  // namespace zeph::cpu::ZEPH_ISA
