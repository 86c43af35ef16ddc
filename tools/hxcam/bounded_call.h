// SPDX-License-Identifier: MIT
// Runs questions to devices in processes of their own. A request to a device can take longer than
// anyone wants to wait, and no time-out of the driver's can be set.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace hxcam {

using Question = std::function<std::string()>;

struct Answer {
    enum class State {
        whole,        ///< text is what the question returned
        silent,       ///< not in time; its process was killed
        broken,       ///< its process ended without an answer
        interrupted,  ///< interruptFd became readable first
    };
    State state = State::silent;
    std::string text;
};

/// Asks all at once and waits for the answers, together at most `timeout`. Answers come in the
/// order of the questions. The caller must have one thread only.
std::vector<Answer> askBounded(const std::vector<Question>& questions,
                               std::chrono::milliseconds timeout, int interruptFd);

}  // namespace hxcam
