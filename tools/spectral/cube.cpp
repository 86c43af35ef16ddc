// SPDX-License-Identifier: MIT
#include "spectral/cube.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "imgproc/imgproc.h"

namespace hx {
namespace {

// Three rows or columns on each side have no neighbourhood of their own.
constexpr std::size_t kShortestSide = 7;
constexpr std::size_t kLongestSide = std::numeric_limits<int>::max();

}  // namespace

std::size_t PixelMask::count() const {
    return static_cast<std::size_t>(std::count(data(), data() + size_.pixels(), true));
}

void Cube::reconstruct(PictureSize size, std::span<const double> mosaic, const PixelMask& ignore) {
    const auto [shorter, longer] = std::minmax(size.rows, size.cols);
    if (shorter < kShortestSide || longer > kLongestSide || mosaic.size() != size.pixels()) {
        throw SpectralFault("a frame needs at least 7 rows and 7 columns to be reconstructed");
    }
    size_ = size;
    values_.resize(size.pixels() * kBands);
    ignored_ = PixelMask(size);
    std::copy_n(ignore.data(), size.pixels(), ignored_.data());
    const bool useMask = ignore.count() > 0;
    if (reconstructNineChannel(mosaic.data(), static_cast<int>(size.rows),
                               static_cast<int>(size.cols), useMask, values_.data(),
                               ignored_.data()) == 0) {
        throw SpectralFault("the frame cannot be reconstructed");
    }
    if (!useMask) return;
    for (std::size_t pixel = 0; pixel < size.pixels(); ++pixel) {
        // The border repeats its neighbours, also where it was to be left alone.
        ignored_[pixel] = ignored_[pixel] || ignore[pixel];
        if (ignored_[pixel])
            std::fill_n(values_.begin() + static_cast<std::ptrdiff_t>(pixel * kBands), kBands,
                        kIgnored);
    }
}

}  // namespace hx
