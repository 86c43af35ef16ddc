// SPDX-License-Identifier: MIT
// Masks as pictures: what is not black is left alone.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "spectral/cube.h"

namespace hx {

/// A PNG or a PGM (P2 or P5) file. Throws SpectralFault.
PixelMask decodeMask(std::span<const std::byte> file);

/// A grey PNG: 255 where the mask is set.
void encodeMask(const PixelMask& mask, std::vector<unsigned char>& png);

}  // namespace hx
