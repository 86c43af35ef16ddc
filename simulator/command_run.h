// SPDX-License-Identifier: MIT
// Runs the launcher's command and waits for it.
#pragma once

namespace hx::sim {

// `command` ends with a null pointer. Returns the status to end with: the command's own, 128 + N
// after signal N, 127 when it is not found, 126 when it cannot be run.
int runCommand(char** command);

}  // namespace hx::sim
