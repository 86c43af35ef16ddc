// SPDX-License-Identifier: MIT
// The commands. Each returns its exit code or throws CommandError.
#pragma once

#include "convert_options.h"
#include "cube_options.h"
#include "interrupt.h"
#include "options.h"

namespace hxcam {

int runList(const ListOptions& options, const Interrupt& interrupt);
int runGet(const ControlOptions& options, const Interrupt& interrupt);
int runSet(const ControlOptions& options, const Interrupt& interrupt);
int runCapture(const CaptureCommandOptions& options, const Interrupt& interrupt);
int runConvert(const ConvertOptions& options, const Interrupt& interrupt);
int runCube(const CubeOptions& options, const Interrupt& interrupt);
int runInfo(const InfoOptions& options);

}  // namespace hxcam
