// SPDX-License-Identifier: MIT
// Driver bytes -> 16-bit samples, by the rule of each model. No device, no state.
//
// `raw` holds two bytes for each pixel, row after row, in the machine's (little-endian) order; no
// alignment is needed. `out` receives one sample for each pixel in the same order. The two must not
// overlap.
#pragma once

#include <cstddef>

namespace hx {

/// HX01: out = first byte * 4 + second byte.
void convertHx01(const unsigned char* raw, unsigned short* out, std::size_t pixels);

/// HX02: out = raw / 64 / response of the filter at this place of the 3 x 3 mosaic, rounded to the
/// nearest, halves away from zero.
void convertHx02(const unsigned char* raw, unsigned short* out, std::size_t width,
                 std::size_t height);

/// The rules as one reads them, and what the two above must equal for every input.
namespace plain {

void convertHx01(const unsigned char* raw, unsigned short* out, std::size_t pixels);
void convertHx02(const unsigned char* raw, unsigned short* out, std::size_t width,
                 std::size_t height);

}  // namespace plain
}  // namespace hx
