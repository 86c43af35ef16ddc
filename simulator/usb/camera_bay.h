// SPDX-License-Identifier: MIT
// One camera and its place at this machine's USB. One thread at a time.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "simulator/camera_spec.h"
#include "usb_camera.h"
#include "vhci_port.h"

namespace hx::sim::usb {

class CameraBay {
  public:
    using Clock = std::chrono::steady_clock;

    // `left` is called, on another thread, each time settle() has something to do.
    CameraBay(unsigned number, const CameraSpec& spec, std::function<void()> left);

    // Functions that talk to the controller throw std::runtime_error with words for the user.

    // Plugs the camera in and waits for its nodes; says where it is.
    std::string plug();
    void unplug();
    // Where the camera has left by itself: takes note of it and says what happened. An empty text:
    // it has not.
    std::string settle();
    // When it is to be plugged in again.
    std::optional<Clock::time_point> returnTime() const { return returnTime_; }

    bool plugged() const { return port_.has_value(); }
    // Throws SpecError.
    void change(const std::string& keyText);
    std::string status() const;
    UsbCamera& camera() { return camera_; }
    unsigned number() const { return number_; }

  private:
    void awaitGone();

    unsigned number_;
    CameraSpec spec_;
    UsbCamera camera_;
    std::optional<VhciPort> port_;  // while it is plugged in
    std::string place_;
    std::optional<Clock::time_point> returnTime_;
};

}  // namespace hx::sim::usb
