// SPDX-License-Identifier: MIT
// The lines that steer cameras while they run, and their answers.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "camera_bay.h"

namespace hx::sim::usb {

using CameraBays = std::vector<std::unique_ptr<CameraBay>>;

class Steering {
  public:
    using Answer = std::optional<std::string>;

    explicit Steering(CameraBays& bays) : bays_(bays) {}

    // "ok ...", or "error ..." for an order that was not carried out. One line, without its end.
    // Nothing: it is to be asked again when a camera has left.
    Answer answer(const std::string& line);
    bool ended() const { return ended_; }

    // The orders and what they mean, for --help.
    static std::string orderHelp();

  private:
    using Words = std::vector<std::string>;
    struct Order;
    static const std::vector<Order>& orders();

    CameraBay& bayOf(const Words& words);
    CameraBay& pluggedBayOf(const Words& words);
    Answer carryOut(const Words& words);

    Answer plug(const Words& words);
    Answer unplug(const Words& words);
    Answer pause(const Words& words);
    Answer resume(const Words& words);
    Answer set(const Words& words);
    Answer status(const Words& words);
    Answer wait(const Words& words);
    Answer quit(const Words& words);
    Answer help(const Words& words);

    CameraBays& bays_;
    bool ended_ = false;
};

}  // namespace hx::sim::usb
