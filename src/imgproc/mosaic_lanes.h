// SPDX-License-Identifier: MIT
// A few doubles that are worked on together, as the compiler's own vector types: the same source
// becomes NEON, SSE2, AVX2 or AVX-512. For mosaic_kernel.cpp alone, as it means something else at
// each level it is compiled for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#ifdef __SSE2__
#include <immintrin.h>
#endif

#define HX_INLINE [[gnu::always_inline]] inline
#define HX_INLINE_LAMBDA __attribute__((always_inline))

namespace hx::imgproc::HX_LEVEL {
namespace {

#if defined __AVX512F__
inline constexpr int kLanes = 8;
#elif defined __AVX2__
inline constexpr int kLanes = 4;
#else
inline constexpr int kLanes = 2;
#endif

using Vec = double __attribute__((vector_size(8 * kLanes)));
using Bits = std::int64_t __attribute__((vector_size(8 * kLanes)));  // -1 or 0: true or false

HX_INLINE Vec load(const double* from) {
    Vec values;
    std::memcpy(&values, from, sizeof values);
    return values;
}

HX_INLINE Bits load(const std::int64_t* from) {
    Bits values;
    std::memcpy(&values, from, sizeof values);
    return values;
}

template <class Lanes, class Value>
HX_INLINE void store(Value* to, Lanes values) {
    std::memcpy(to, &values, sizeof values);
}

// Past the caches: the line is not fetched first. `to` is aligned to the vector.
HX_INLINE void storePast(double* to, Vec values) {
#if defined __AVX512F__
    _mm512_stream_pd(to, values);
#elif defined __AVX2__
    _mm256_stream_pd(to, values);
#elif defined __SSE2__
    _mm_stream_pd(to, values);
#else
    store(to, values);
#endif
}

HX_INLINE Vec all(double value) {
    return Vec{} + value;
}

// One rounding. Compilers make one instruction of the loop.
HX_INLINE Vec fma(Vec a, Vec b, Vec c) {
    Vec result{};
    for (int i = 0; i < kLanes; ++i) result[i] = __builtin_fma(a[i], b[i], c[i]);
    return result;
}

HX_INLINE Vec magnitude(Vec values) {
    return reinterpret_cast<Vec>(reinterpret_cast<Bits>(values) & (Bits{} + INT64_MAX));
}

// Keeps -0.0 and NaN, as they are not below zero.
HX_INLINE Vec notNegative(Vec values) {
    return values < 0.0 ? Vec{} : values;
}

// Takes units of `Unit` lanes in turn from a and b: of each pair of units the one numbered FromA,
// or FromB.
template <int Unit, int FromA, int FromB>
HX_INLINE Vec zip(Vec a, Vec b) {
    constexpr auto source = [](int lane) {
        const int unit = lane / Unit;
        const int from = unit % 2 == 0 ? FromA : kLanes / Unit + FromB;
        return (unit / 2 * 2 + from) * Unit + lane % Unit;
    };
    return [&]<int... Lane>(std::integer_sequence<int, Lane...>) HX_INLINE_LAMBDA {
        return __builtin_shufflevector(a, b, source(Lane)...);
    }
    (std::make_integer_sequence<int, kLanes>{});
}

}  // namespace
}  // namespace hx::imgproc::HX_LEVEL
