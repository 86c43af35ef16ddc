// SPDX-License-Identifier: MIT
// A frame with a 3 x 3 filter mosaic: its places, the constants of the rules, its border.
#pragma once

#include <algorithm>
#include <cstddef>

namespace hx::imgproc {

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

// The border is filled from row 3 and column 3, which must be inside the frame where they are used.
inline bool isUsable(const Frame& frame, bool useMask, const double* output, const bool* mask) {
    if (frame.values == nullptr || output == nullptr || (useMask && mask == nullptr)) return false;
    if (frame.rows <= kBorder || frame.cols < 1) return false;
    return frame.rows < kSmallestInterior || frame.cols > kBorder;
}

// Copies groups of `size` elements outwards: first along the interior rows, then whole rows.
template <class Element>
void repeatBorder(const Frame& frame, Element* elements, std::size_t size) {
    const auto at = [&](int row, int col) { return elements + frame.index(row, col) * size; };
    const int lastRow = frame.rows - kBorder - 1;
    const int lastCol = frame.cols - kBorder - 1;
    for (int row = kBorder; row <= lastRow; ++row) {
        for (int i = 0; i < kBorder; ++i) std::copy_n(at(row, kBorder), size, at(row, i));
        for (int i = 1; i <= kBorder; ++i) {
            std::copy_n(at(row, lastCol), size, at(row, lastCol + i));
        }
    }
    const std::size_t rowSize = frame.index(1, 0) * size;
    for (int i = 0; i < kBorder; ++i) std::copy_n(at(kBorder, 0), rowSize, at(i, 0));
    for (int i = 1; i <= kBorder; ++i) std::copy_n(at(lastRow, 0), rowSize, at(lastRow + i, 0));
}

}  // namespace hx::imgproc
