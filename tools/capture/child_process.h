// SPDX-License-Identifier: MIT
// Starting and ending hx-capture-child. Used by CaptureSession.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "unique_fd.h"

namespace hx {

/// The program to start: beside this program's own file (build tree), else where it is installed
/// relative to it. Throws CaptureError when it is at neither place.
std::string findCaptureChild();

/// What the parent shares with the child.
struct ChildChannels {
    UniqueFd control;  ///< our end of the socket
    UniqueFd ring;
    UniqueFd ready;
    UniqueFd errors;  ///< reading end of the child's standard error
};

/// One running child, and the promise that it is ended and collected.
class ChildProcess {
  public:
    /// Starts `arguments` (the program first). Throws CaptureError.
    ChildProcess(const std::vector<std::string>& arguments, std::size_t ringSize);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    /// Kills what still runs.
    ~ChildProcess();

    const ChildChannels& channels() const { return channels_; }

    /// Becomes readable when the process has ended.
    int exitFd() const { return exit_.get(); }

    /// Waits up to `patience` for the end. True when the process is gone and collected.
    bool await(std::chrono::milliseconds patience);
    void kill();

    /// How it ended ("exit status 1", "signal 6 (Aborted)"); empty while it runs.
    const std::string& ending() const { return ending_; }

  private:
    ChildChannels channels_;
    pid_t pid_ = -1;
    UniqueFd exit_;
    std::string ending_;
};

}  // namespace hx
