// SPDX-License-Identifier: MIT
// Exit codes of hxcam, the same for every command and in the man page.
#pragma once

#include <stdexcept>
#include <string>

namespace hxcam {

enum ExitCode {
    exitOk = 0,
    exitFailed = 1,
    exitUsage = 2,
    exitNoCamera = 3,
    exitTimeout = 4,
    exitCameraLost = 5,
    exitInterrupted = 130,
};

/// Ends the command with a message and a code. An empty message ends it quietly.
class CommandError : public std::runtime_error {
  public:
    CommandError(ExitCode code, const std::string& message)
        : std::runtime_error(message), code_(code) {}
    ExitCode code() const { return code_; }

  private:
    ExitCode code_;
};

}  // namespace hxcam
