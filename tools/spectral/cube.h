// SPDX-License-Identifier: MIT
// A frame of the nine-filter mosaic as nine complete pictures.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "spectral/picture_size.h"

namespace hx {

constexpr std::size_t kBands = 9;

/// What an ignored pixel has in all bands. No other value is below 0.
constexpr double kIgnored = -1.0;

/// One truth value a pixel: to be left alone.
class PixelMask {
  public:
    PixelMask() = default;
    explicit PixelMask(PictureSize size)
        : size_(size), marks_(std::make_unique<bool[]>(size.pixels())) {}

    PictureSize size() const { return size_; }
    bool* data() { return marks_.get(); }
    const bool* data() const { return marks_.get(); }
    bool& operator[](std::size_t pixel) { return marks_[pixel]; }
    bool operator[](std::size_t pixel) const { return marks_[pixel]; }
    std::size_t count() const;

  private:
    PictureSize size_;
    std::unique_ptr<bool[]> marks_;
};

/// Keeps its memory from frame to frame: 138 MB for 1600 x 1200.
class Cube {
  public:
    /// Reconstructs the bands of a mosaic; `ignore` are pixels to be left alone. Pixels whose bands
    /// would need one of those become ignored too. Throws SpectralFault for a size that has no
    /// inside.
    void reconstruct(PictureSize size, std::span<const double> mosaic, const PixelMask& ignore);

    PictureSize size() const { return size_; }
    double value(std::size_t pixel, std::size_t band) const {
        return values_[pixel * kBands + band];
    }
    /// The nine of a pixel together, row by row.
    std::span<const double> values() const { return values_; }
    const PixelMask& ignored() const { return ignored_; }

  private:
    PictureSize size_;
    std::vector<double> values_;
    PixelMask ignored_;
};

}  // namespace hx
