// SPDX-License-Identifier: MIT
// A frame as a grey picture.
#pragma once

#include <vector>

#include "codec/hx_container.h"

namespace hxcam {

enum class PngScale {
    plain16,    ///< 16 bits, samples as they are
    stretch16,  ///< the largest value of the frame's depth (1023 of 10 bits) and above is white
    stretch8,   ///< the same in 8 bits
};

/// Encodes the samples of a container into `out`, which keeps its memory from frame to frame.
/// @throws hx::ContainerFault when the samples are no picture, hx::SpectralFault when libpng fails
void encodePng(const hx::ContainerView& frame, PngScale scale, std::vector<unsigned char>& out);

}  // namespace hxcam
