// SPDX-License-Identifier: MIT
// Texts that describe a camera, as given to `--camera` or kept in a model file. Used by the
// launcher only.
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

struct CameraSpec {
    CameraConfig config;
    std::optional<std::uint32_t> node;
};

// IDENTIFICATION[,KEY=VALUE...] or @FILE[,KEY=VALUE...].
CameraSpec parseCamera(const std::string& text);

struct ForeignSpec {
    std::string card;
    std::optional<std::uint32_t> node;
};

// CARD[,node=N].
ForeignSpec parseForeign(const std::string& text);

// The keys and what they mean, for --help.
std::string keyHelp();

}  // namespace hx::sim
