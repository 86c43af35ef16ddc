// SPDX-License-Identifier: MIT
// Ctrl-C, SIGTERM and SIGHUP as a descriptor: whoever waits, waits for it too, and nothing is cut
// off half-way.
#pragma once

#include "capture/unique_fd.h"

namespace hxcam {

class Interrupt {
  public:
    /// Blocks the signals for this process from now on.
    Interrupt();

    /// Readable once a signal has come, and from then on.
    int fd() const { return fd_.get(); }
    bool pending() const;

    /// For a forked process: the signals end it again.
    static void restoreDefaults();

  private:
    hx::UniqueFd fd_;
};

}  // namespace hxcam
