// SPDX-License-Identifier: MIT
// The nine-channel rules pixel by pixel, without any thought of speed.
#include "imgproc/imgproc_plain.h"

#include <cmath>
#include <cstddef>
#include <memory>

#include "imgproc/mosaic_frame.h"

namespace {

using namespace hx::imgproc;

// An estimate, and the two pixels that it was made from.
struct Estimate {
    double value;
    std::size_t first;
    std::size_t second;
};

// The channel of the neighbour in one direction, at one pixel:
//
//     opposite far   opposite near   .   pixel   near   .   far
//         -3              -2                0      +1       +3
//
// Both far pixels have the pixel's own channel, both near ones the wanted one. A small difference
// along the direction is a slope, and the wanted channel is taken to follow it.
class Pixel {
  public:
    Pixel(const Frame& frame, int row, int col)
        : frame_(frame),
          row_(row),
          col_(col),
          value_(frame.values[frame.index(row, col)]),
          inverse_(1.0 / (value_ + kAvoidZero)) {}

    Estimate estimate(int dr, int dc) const {
        const std::size_t near = at(dr, dc);
        const std::size_t far = at(3 * dr, 3 * dc);
        const std::size_t oppositeNear = at(-2 * dr, -2 * dc);
        const std::size_t oppositeFar = at(-3 * dr, -3 * dc);
        const double* const v = frame_.values;

        const double slope = value_ - v[far];
        if (isSimilar(slope)) return {std::fma(slope, kThird, v[near]), near, far};
        const double oppositeSlope = value_ - v[oppositeFar];
        if (isSimilar(oppositeSlope)) {
            return {std::fma(oppositeSlope, kTwoThirds, v[oppositeNear]), oppositeNear,
                    oppositeFar};
        }
        return {std::fma(v[near], 2.0, v[oppositeNear]) * kThird, near, oppositeNear};
    }

  private:
    std::size_t at(int dr, int dc) const { return frame_.index(row_ + dr, col_ + dc); }
    // By the reciprocal, as a product: a division would round differently.
    bool isSimilar(double difference) const { return std::fabs(difference) * inverse_ <= kSimilar; }

    const Frame& frame_;
    int row_;
    int col_;
    double value_;
    double inverse_;
};

std::size_t channelOf(int row, int col) {
    return static_cast<std::size_t>(row % 3 * 3 + col % 3);
}

// Keeps -0.0 and NaN, as they are not below zero.
double notNegative(double value) {
    return value < 0.0 ? 0.0 : value;
}

void reconstructPixel(const Frame& frame, int row, int col, double* output) {
    const Pixel pixel(frame, row, col);
    double* const channels = output + frame.index(row, col) * kChannels;
    for (int dr = -1; dr <= 1; ++dr) {
        for (int dc = -1; dc <= 1; ++dc) {
            channels[channelOf(row + dr, col + dc)] = notNegative(pixel.estimate(dr, dc).value);
        }
    }
}

// False when an estimate would need a masked pixel; what was written before it stays.
bool reconstructPixelBesideMask(const Frame& frame, int row, int col, const bool* mask,
                                double* output) {
    const Pixel pixel(frame, row, col);
    double* const channels = output + frame.index(row, col) * kChannels;
    for (int dr = -1; dr <= 1; ++dr) {
        for (int dc = -1; dc <= 1; ++dc) {
            double& channel = channels[channelOf(row + dr, col + dc)];
            const Estimate estimate = pixel.estimate(dr, dc);
            if (mask[estimate.first] || mask[estimate.second]) {
                channel = notNegative(channel);
                return false;
            }
            channel = notNegative(estimate.value);
        }
    }
    return true;
}

template <class PerPixel>
void forInterior(const Frame& frame, const PerPixel& work) {
    if (!frame.hasInterior()) return;
    for (int row = kBorder; row < frame.rows - kBorder; ++row) {
        for (int col = kBorder; col < frame.cols - kBorder; ++col) work(row, col);
    }
}

void reconstructWithMask(const Frame& frame, double* output, bool* mask) {
    const auto work = std::make_unique<bool[]>(frame.pixels());
    forInterior(frame, [&](int row, int col) {
        const std::size_t index = frame.index(row, col);
        work[index] = mask[index] || !reconstructPixelBesideMask(frame, row, col, mask, output);
    });
    repeatBorder(frame, work.get(), 1);
    std::copy_n(work.get(), frame.pixels(), mask);
}

}  // namespace

int reconstructNineChannelPlain(const double* input, int rows, int cols, bool useMask,
                                double* output, bool* mask) {
    const Frame frame{input, rows, cols};
    if (!isUsable(frame, useMask, output, mask)) return 0;
    if (useMask) {
        reconstructWithMask(frame, output, mask);
    } else {
        forInterior(frame, [&](int row, int col) { reconstructPixel(frame, row, col, output); });
    }
    repeatBorder(frame, output, kChannels);
    return 1;
}
