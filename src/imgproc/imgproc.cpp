// SPDX-License-Identifier: MIT
#include "imgproc/imgproc.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>

namespace {

constexpr int kBorder = 3;
constexpr int kSmallestInterior = 2 * kBorder + 1;
constexpr int kChannels = 9;

constexpr double kSimilar = 0.2;
constexpr double kAvoidZero = 0.0001;
constexpr double kThird = 0.3333333333333333;
constexpr double kTwoThirds = 0.6666666666666666;

struct Frame {
    const double* values;
    int rows;
    int cols;

    std::size_t index(int row, int col) const {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) +
               static_cast<std::size_t>(col);
    }
    std::size_t pixels() const { return index(rows, 0); }
    bool hasInterior() const { return rows >= kSmallestInterior && cols >= kSmallestInterior; }
};

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

// Copies groups of `size` elements outwards: first along the interior rows, then whole rows.
template <class Element>
void repeatBorder(const Frame& frame, Element* elements, std::size_t size) {
    const auto copy = [&](int fromRow, int fromCol, int toRow, int toCol) {
        std::copy_n(elements + frame.index(fromRow, fromCol) * size, size,
                    elements + frame.index(toRow, toCol) * size);
    };
    const int lastRow = frame.rows - kBorder - 1;
    const int lastCol = frame.cols - kBorder - 1;
    for (int row = kBorder; row <= lastRow; ++row) {
        for (int i = 0; i < kBorder; ++i) copy(row, kBorder, row, i);
        for (int i = 1; i <= kBorder; ++i) copy(row, lastCol, row, lastCol + i);
    }
    for (int col = 0; col < frame.cols; ++col) {
        for (int i = 0; i < kBorder; ++i) copy(kBorder, col, i, col);
        for (int i = 1; i <= kBorder; ++i) copy(lastRow, col, lastRow + i, col);
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

bool isUsable(int rows, int cols) {
    if (rows <= kBorder || cols < 1) return false;
    return rows < kSmallestInterior || cols > kBorder;
}

}  // namespace

int reconstructNineChannel(const double* input, int rows, int cols, bool useMask, double* output,
                           bool* mask) {
    if (input == nullptr || output == nullptr || (useMask && mask == nullptr)) return 0;
    if (!isUsable(rows, cols)) return 0;

    const Frame frame{input, rows, cols};
    if (useMask) {
        reconstructWithMask(frame, output, mask);
    } else {
        forInterior(frame, [&](int row, int col) { reconstructPixel(frame, row, col, output); });
    }
    repeatBorder(frame, output, kChannels);
    return 1;
}
