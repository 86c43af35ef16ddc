// SPDX-License-Identifier: MIT
// Texts that describe a camera, as given to `--camera` or kept in a model file.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "camera_state.h"

namespace hx::sim {

// The message names the option text, the key or the value at fault.
class SpecError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Where a camera is to be seen. Some of its keys mean something in one place only.
enum class FrontEnd { preload, usb };

struct CameraSpec {
    FrontEnd frontEnd = FrontEnd::preload;
    CameraConfig config;
    std::optional<std::uint32_t> node;
};

// IDENTIFICATION[,KEY=VALUE...] or @FILE[,KEY=VALUE...].
CameraSpec parseCamera(const std::string& text, FrontEnd frontEnd = FrontEnd::preload);

// Changes what one KEY=VALUE says.
void changeCamera(CameraSpec& spec, const std::string& text);

struct ForeignSpec {
    std::string card;
    std::optional<std::uint32_t> node;
};

// CARD[,node=N].
ForeignSpec parseForeign(const std::string& text);

// The keys and what they mean, for --help.
std::string keyHelp(FrontEnd frontEnd);

}  // namespace hx::sim
