// SPDX-License-Identifier: MIT
// Mean spectra of rectangles. The user names them in a table of comma-separated values:
//
//     name,left,top,width,height
//     leaf,520,880,160,160
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "spectral/cube.h"

namespace hx {

struct Region {
    std::string name;
    std::size_t left = 0;
    std::size_t top = 0;
    std::size_t width = 0;
    std::size_t height = 0;
};

struct RegionMean {
    std::size_t pixels = 0;              ///< without the ignored ones
    std::array<double, kBands> bands{};  ///< 0 without a pixel
};

/// Throws SpectralFault, which tells the line.
std::vector<Region> parseRegions(std::string_view text);

/// Throws SpectralFault for a region that reaches out of the picture.
RegionMean meanOf(const Cube& cube, const Region& region);

}  // namespace hx
