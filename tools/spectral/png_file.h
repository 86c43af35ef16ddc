// SPDX-License-Identifier: MIT
// PNG files in memory.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "spectral/picture_size.h"

namespace hx {

enum class PngKind { grey8, grey16, rgb8 };

/// Fills one row: 1, 2 or 3 bytes a pixel; 16-bit values with their high byte first.
using PngRow = std::function<void(std::size_t row, std::span<unsigned char> bytes)>;

/// Encodes a picture into `out`, which keeps its memory from picture to picture. `fill` must not
/// throw. Throws SpectralFault.
void encodePng(PictureSize size, PngKind kind, const PngRow& fill, std::vector<unsigned char>& out);

/// Any PNG: a byte a pixel, 1 where it is not black. Transparency does not count.
/// Throws SpectralFault.
std::vector<unsigned char> decodeNonBlack(std::span<const std::byte> file, PictureSize& size);

}  // namespace hx
