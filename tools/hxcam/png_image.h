// SPDX-License-Identifier: MIT
// A frame as a picture: 16-bit grey PNG.
#pragma once

#include <vector>

#include "codec/hx_container.h"

namespace hxcam {

/// Encodes the samples of a container into `out`, which keeps its memory from frame to frame.
/// Samples go in as they are, or with `stretch` so that the largest value of the frame's depth
/// (1023 of 10 bits) becomes white, and what is above it too.
/// @throws hx::ContainerFault when the samples are no picture, CommandError when libpng fails
void encodePng(const hx::ContainerView& frame, bool stretch, std::vector<unsigned char>& out);

}  // namespace hxcam
