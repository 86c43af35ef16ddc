// SPDX-License-Identifier: MIT
// Compiled once for each level (HX_LEVEL) of an architecture; see mosaic_lanes.h.
//
// For each of the nine directions of a pixel, with v its value (imgproc_plain.cpp has the rules):
//
//     opposite far   opposite near   .   pixel   near   .   far
//
//     v - far similar:            near          + (v - far) / 3
//     v - opposite far similar:   opposite near + (v - opposite far) * 2 / 3
//     otherwise:                  (2 near + opposite near) / 3
//
// Inputs are any doubles. All three are computed and one is selected, so that the time does not
// depend on the picture; what is not selected may be infinite or NaN, and nobody sees it. Opposite
// directions share their two far pixels and so their tests, and are done together. The ninth
// direction is the pixel itself: v + 0.0, as a fused multiply-add of a zero slope makes of it.
//
// The estimates of kLanes triples are 27 vectors, one for each value of a triple. The output has
// those 27 values side by side, triple after triple, so the vectors are woven: in each step units
// of two neighbouring values are made of units of one. 27 is odd, and the fourteenth pair takes the
// last value of one triple and the first of the next.
#include "imgproc/mosaic_kernel.h"

#include "imgproc/mosaic_lanes.h"
#include "imgproc/mosaic_window.h"

namespace hx::imgproc::HX_LEVEL {
namespace {

using Index = std::ptrdiff_t;

constexpr Index kTripleValues = 3 * Index{kChannels};

// Where the pixel `steps` steps along (dr, dc) from a triple's pixel `phase` stands in a window,
// seen from the triple's first.
constexpr Index offset(int phase, int dr, int dc, int steps) {
    const int column = phase + steps * dc + 3;  // not negative
    return Index{steps} * dr * kWindowRow + Index{column % 3} * kPlane + column / 3 - 1;
}

// A window's values, seen from its corner three rows above and a triple before. All places are
// positive from there, and even from it or from the value behind it, as arm64's loads have them.
class Around {
  public:
    explicit Around(const double* centre) : even_(centre - kCorner), odd_(even_ + 1) {
        asm("" : "+r"(odd_));  // is not to be seen as even_ and a constant
    }
    template <int Phase, int Dr, int Dc>
    HX_INLINE Vec at(int steps) const {
        const Index place = offset(Phase, Dr, Dc, steps) + kCorner;
        return load(place % 2 == 0 ? even_ + place : odd_ + (place - 1));
    }

  private:
    static constexpr Index kCorner = Index{kBorder} * kWindowRow + 1;

    const double* even_;
    const double* odd_;
};

struct Similar {
    Bits ahead;
    Bits behind;
};

HX_INLINE Vec choose(Similar similar, Vec slope, Vec oppositeSlope, Vec near, Vec oppositeNear) {
    const Vec first = fma(slope, all(kThird), near);
    const Vec second = fma(oppositeSlope, all(kTwoThirds), oppositeNear);
    const Vec third = fma(near, all(2.0), oppositeNear) * kThird;
    return notNegative(similar.ahead ? first : similar.behind ? second : third);
}

struct NoMask {
    template <int Phase, int Dr, int Dc>
    HX_INLINE void look(Similar) {}
};

// In place of an estimate, which is never negative: what becomes of the channel's old value.
constexpr double kKept = -1.0;
constexpr double kCutOff = -2.0;  // at 0, as the estimate needs a masked pixel

// Whether each direction of a pixel needs a masked one.
struct BesideMask {
    const std::int64_t* mask;  // the triple's first pixel
    Bits stop[kChannels] = {};

    template <int Phase, int Dr, int Dc>
    HX_INLINE void look(Similar similar) {
        const auto at = [&](int steps)
                            HX_INLINE_LAMBDA { return load(mask + offset(Phase, Dr, Dc, steps)); };
        const Bits notAhead = at(-2) | (similar.behind ? at(-3) : at(1));
        stop[3 * (Dr + 1) + Dc + 1] = similar.ahead ? at(1) | at(3) : notAhead;
    }
};

template <int Phase, int Dr, int Dc, class Mask>
HX_INLINE void estimatePair(const Around& p, Vec v, Vec inverse, Mask& mask, Vec& ahead,
                            Vec& behind) {
    const auto at = [&](int steps) HX_INLINE_LAMBDA { return p.at<Phase, Dr, Dc>(steps); };
    const Vec slope = v - at(3);
    const Vec oppositeSlope = v - at(-3);
    const Bits aheadSimilar = magnitude(slope) * inverse <= kSimilar;
    const Bits behindSimilar = magnitude(oppositeSlope) * inverse <= kSimilar;
    ahead = choose({aheadSimilar, behindSimilar}, slope, oppositeSlope, at(1), at(-2));
    behind = choose({behindSimilar, aheadSimilar}, oppositeSlope, slope, at(-1), at(2));
    mask.template look<Phase, Dr, Dc>({aheadSimilar, behindSimilar});
    mask.template look<Phase, -Dr, -Dc>({behindSimilar, aheadSimilar});
}

// The channels of a pixel, by the row that they are taken from.
struct ChannelRows {
    Vec* above;
    Vec* same;
    Vec* below;
};

HX_INLINE ChannelRows channelRows(Vec* pixel, int rowPhase) {
    return {pixel + Index{(rowPhase + 2) % 3} * 3, pixel + Index{rowPhase} * 3,
            pixel + Index{(rowPhase + 1) % 3} * 3};
}

template <int Phase, class Mask>
HX_INLINE void estimatePixels(const Around& p, Mask& mask, ChannelRows rows) {
    constexpr int left = (Phase + 2) % 3;
    constexpr int right = (Phase + 1) % 3;
    const Vec v = p.at<Phase, 0, 0>(0);
    const Vec inverse = 1.0 / (v + kAvoidZero);
    estimatePair<Phase, -1, -1>(p, v, inverse, mask, rows.above[left], rows.below[right]);
    estimatePair<Phase, -1, 0>(p, v, inverse, mask, rows.above[Phase], rows.below[Phase]);
    estimatePair<Phase, -1, 1>(p, v, inverse, mask, rows.above[right], rows.below[left]);
    estimatePair<Phase, 0, -1>(p, v, inverse, mask, rows.same[left], rows.same[right]);
    rows.same[Phase] = notNegative(v + 0.0);
}

// Directions are done in their order, and none behind the first that stops. Returns where the pixel
// is not complete.
template <int Phase>
HX_INLINE Bits stopBesideMask(const BesideMask& beside, ChannelRows rows) {
    Bits alive = ~load(beside.mask + Index{Phase} * kPlane);
    const auto next = [&](int direction, Vec& channel) HX_INLINE_LAMBDA {
        const Bits stop = beside.stop[direction];
        channel = alive ? (stop ? all(kCutOff) : channel) : all(kKept);
        alive &= ~stop;
    };
    for (int i = 0; i < 3; ++i) next(i, rows.above[(Phase + 2 + i) % 3]);
    for (int i = 0; i < 3; ++i) next(3 + i, rows.same[(Phase + 2 + i) % 3]);
    for (int i = 0; i < 3; ++i) next(6 + i, rows.below[(Phase + 2 + i) % 3]);
    return ~alive;
}

template <int Unit, class Store>
HX_INLINE void weave(const Vec* in, double* output, const Store& storeLanes) {
    if constexpr (Unit == kLanes) {
#pragma GCC unroll 27
        for (Index i = 0; i < kTripleValues; ++i) storeLanes(output + i * kLanes, in[i]);
    } else {
        constexpr Index half = kTripleValues / 2;
        Vec out[kTripleValues];
#pragma GCC unroll 13
        for (Index i = 0; i < half; ++i) out[i] = zip<Unit, 0, 0>(in[2 * i], in[2 * i + 1]);
        out[half] = zip<Unit, 0, 1>(in[2 * half], in[0]);
#pragma GCC unroll 13
        for (Index i = 0; i < half; ++i) {
            out[half + 1 + i] = zip<Unit, 1, 1>(in[2 * i + 1], in[2 * i + 2]);
        }
        weave<2 * Unit>(out, output, storeLanes);
    }
}

template <class Store>
HX_INLINE void workBlock(const double* centre, int rowPhase, double* output,
                         const Store& storeLanes) {
    NoMask mask;
    for (Index i = 0; i < kBlock; i += kLanes) {
        Vec values[kTripleValues];
        const Around around(centre + i);
        estimatePixels<0>(around, mask, channelRows(values, rowPhase));
        estimatePixels<1>(around, mask, channelRows(values + kChannels, rowPhase));
        estimatePixels<2>(around, mask, channelRows(values + 2 * Index{kChannels}, rowPhase));
        weave<1>(values, output + i * kTripleValues, storeLanes);
    }
}

void splitColumns(const double* __restrict in, Index triples, double* __restrict planes) {
    for (Index i = 0; i < triples; ++i) {
        planes[i] = in[3 * i];
        planes[kPlane + i] = in[3 * i + 1];
        planes[2 * Index{kPlane} + i] = in[3 * i + 2];
    }
}

void work(const double* centre, int rowPhase, Index blocks, double* output) {
    for (Index i = 0; i < blocks; ++i) {
        workBlock(centre + i * kBlock, rowPhase, output + i * kBlockValues, storePast);
    }
}

void estimate(const double* centre, int rowPhase, double* values) {
    workBlock(centre, rowPhase, values, store<Vec, double>);
}

template <int Phase>
HX_INLINE void estimateBesideMask(const double* centre, const std::int64_t* mask, int rowPhase,
                                  Vec* pixel, std::int64_t* incomplete) {
    BesideMask beside{mask};
    const ChannelRows rows = channelRows(pixel, rowPhase);
    estimatePixels<Phase>(Around(centre), beside, rows);
    store(incomplete, stopBesideMask<Phase>(beside, rows));
}

void workBesideMask(const double* centre, const std::int64_t* mask, int rowPhase, double* output,
                    Incomplete& incomplete) {
    for (Index i = 0; i < kBlock; i += kLanes) {
        Vec values[kTripleValues];
        estimateBesideMask<0>(centre + i, mask + i, rowPhase, values, incomplete[0] + i);
        estimateBesideMask<1>(centre + i, mask + i, rowPhase, values + kChannels,
                              incomplete[1] + i);
        estimateBesideMask<2>(centre + i, mask + i, rowPhase, values + 2 * Index{kChannels},
                              incomplete[2] + i);
        const auto merge = [](double* to, Vec value) HX_INLINE_LAMBDA {
            // What is old in the next block. Behind the last one of a row that does no harm.
            __builtin_prefetch(to + kBlockValues, 1, 2);
            const Vec old = load(to);
            const Vec kept = value == kCutOff ? notNegative(old) : old;
            store(to, value < 0.0 ? kept : value);
        };
        weave<1>(values, output + i * kTripleValues, merge);
    }
}

void finish() {
#ifdef __SSE2__
    _mm_sfence();
#endif
}

}  // namespace

const Kernel kernel{splitColumns, work, estimate, workBesideMask, finish};

}  // namespace hx::imgproc::HX_LEVEL
