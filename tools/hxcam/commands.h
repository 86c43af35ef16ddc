// SPDX-License-Identifier: MIT
// The commands. Each returns its exit code or throws CommandError.
#pragma once

#include "interrupt.h"
#include "options.h"

namespace hxcam {

int runList(const ListOptions& options, const Interrupt& interrupt);
int runGet(const ControlOptions& options, const Interrupt& interrupt);
int runSet(const ControlOptions& options, const Interrupt& interrupt);
int runCapture(const CaptureCommandOptions& options, const Interrupt& interrupt);
int runInfo(const InfoOptions& options);

}  // namespace hxcam
