// SPDX-License-Identifier: MIT
// Counts calls on cameras and says which of them fail.
#pragma once

#include <cstdint>

#include "camera_state.h"

namespace hx::sim {

// Counts this call of the process on the camera; returns the errno it fails with, or 0.
int nextFault(std::uint32_t camera, Call call);

}  // namespace hx::sim
