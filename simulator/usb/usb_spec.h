// SPDX-License-Identifier: MIT
// Texts that describe a camera, where they have to hold for one on USB.
#pragma once

#include <string>

#include "simulator/camera_spec.h"

namespace hx::sim::usb {

// As parseCamera and changeCamera; SpecError too for what a USB device cannot be.
CameraSpec parseUsbCamera(const std::string& text);
void changeUsbCamera(CameraSpec& spec, const std::string& text);

}  // namespace hx::sim::usb
