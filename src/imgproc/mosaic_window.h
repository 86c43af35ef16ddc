// SPDX-License-Identifier: MIT
// Seven rows of a stripe, split by column modulo 3, so that neighbouring triples lie side by side.
//
// A triple is three neighbouring pixels of a row; triple 0 begins behind the left border, at column
// 3. Planes begin one triple earlier.
#pragma once

#include <algorithm>
#include <cstddef>

#include "imgproc/mosaic_frame.h"

namespace hx::imgproc {

// Wide enough for half of a frame of 1600 columns. Constant, so that the kernel's addresses are one
// pointer and constants; and those are such that one load instruction holds them on arm64.
constexpr int kPlane = 296;
constexpr int kWindowRow = 3 * kPlane;
constexpr int kWindowRows = 2 * kBorder + 1;
static_assert(sizeof(double) * kWindowRows * kWindowRow < 65536);

template <class Value>
class MosaicWindow {
  public:
    // The place of a row's values; to be filled with kWindowRow of them before the next call.
    Value* next() {
        newest_ = (newest_ + 1) % kWindowRows;
        return row(newest_);
    }
    // Rows are kept twice, so that any seven that came one after the other stand together.
    void filled() { std::copy_n(row(newest_), kWindowRow, row(newest_ + kWindowRows)); }

    // A triple's first pixel, in the middle one of the last seven rows.
    const Value* centre(int triple) const {
        return rows_ + (newest_ + 1 + kBorder) * kWindowRow + triple + 1;
    }

  private:
    Value* row(int number) { return rows_ + number * kWindowRow; }

    alignas(64) Value rows_[2 * kWindowRows * kWindowRow] = {};
    int newest_ = 0;
};

}  // namespace hx::imgproc
