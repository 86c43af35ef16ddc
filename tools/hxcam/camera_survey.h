// SPDX-License-Identifier: MIT
// Which video nodes there are, and which of them are our cameras.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "camera/identification.h"
#include "interrupt.h"

namespace hxcam {

struct ExposureRange {
    std::int32_t min = 0;
    std::int32_t max = 0;
    std::int32_t step = 1;
    std::int32_t initial = 0;
};

struct Camera {
    std::string node = {};  ///< "/dev/video0"
    std::string card = {};
    std::string bus = {};
    std::string text = {};  ///< the whole identification, bytes as the firmware gives them
    hx::Identification id = {};
    std::string spectralCode = {};
    ExposureRange exposure = {};

    std::string modelName() const { return text.substr(0, text.find('-')); }
};

/// A video node that cannot be used as a camera.
struct OtherNode {
    enum class Kind {
        foreign,  ///< another device, or the metadata node of a camera
        refused,  ///< our kind of identification, but the library would refuse it
        denied,   ///< no right to open it
        silent,   ///< no answer in time
        failed,   ///< it could not be asked
    };
    std::string node = {};
    std::string card = {};
    Kind kind = Kind::failed;
    std::string reason = {};
};

struct Survey {
    std::vector<Camera> cameras;  ///< by node number; the place is the camera's index
    std::vector<OtherNode> others;
};

/// Asks every node of /dev that the library would ask, all at once, within `timeout`.
/// @throws CommandError on an interrupt, or when /dev cannot be read
Survey surveyCameras(std::chrono::milliseconds timeout, const Interrupt& interrupt);

/// Asks one node only.
Survey surveyNode(const std::string& node, std::chrono::milliseconds timeout,
                  const Interrupt& interrupt);

}  // namespace hxcam
