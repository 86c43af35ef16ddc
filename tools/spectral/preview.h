// SPDX-License-Identifier: MIT
// Three bands of a cube as the red, green and blue of a picture to look at.
#pragma once

#include <array>
#include <vector>

#include "spectral/cube.h"

namespace hx {

/// `white` becomes the brightest, and what is above it too; between, brightness follows the eye
/// (value to the power of 1 / 2.2). Ignored pixels are black.
void encodePreview(const Cube& cube, const std::array<std::size_t, 3>& bands, double white,
                   std::vector<unsigned char>& png);

}  // namespace hx
