// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

namespace hx {

/// Capturing could not begin or go on for a reason on this side: no child program, no memory or
/// descriptors, or a child that speaks nonsense.
class CaptureError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace hx
