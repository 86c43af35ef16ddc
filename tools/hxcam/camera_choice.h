// SPDX-License-Identifier: MIT
// The one camera that a command works on.
#pragma once

#include <chrono>
#include <string>

#include "camera_survey.h"
#include "exit_code.h"
#include "interrupt.h"

namespace hxcam {

/// Finds the camera that `wanted` names: an index of the list, a node, the camera's name (with or
/// without its closing dash) or its whole identification. Empty: the only camera there is.
/// @throws CommandError that lists the choices when no camera or more than one fits
Camera chooseCamera(const std::string& wanted, std::chrono::milliseconds timeout,
                    const Interrupt& interrupt);

/// Says on standard error which nodes could not be asked; other devices are not worth a word.
void reportUnasked(const Survey& survey);

/// The exit code of a survey that found no camera.
ExitCode codeWithoutCamera(const Survey& survey);

}  // namespace hxcam
