// SPDX-License-Identifier: MIT
// The kernel's virtual USB host controller (module vhci-hcd), as it shows itself in sysfs: gives a
// device a port, and says which video nodes came of it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace hx::sim::usb {

// Functions throw std::runtime_error with words for the user.
class VhciPort {
  public:
    // Plugs the device at the other end of `socket` into a free port. The socket may be closed
    // afterwards; the kernel has its own hold on it. `number` tells devices apart.
    VhciPort(int socket, unsigned number);

    unsigned number() const { return port_; }
    // The kernel's name of the device, e.g. 1-1.
    std::string device() const { return folder_.filename(); }

    // Waits for both of the camera's nodes; in the order of their numbers, e.g. /dev/video0.
    std::vector<std::string> awaitNodes() const;
    // Waits until nothing of the device is left. False: something still is.
    bool awaitGone() const;

  private:
    std::vector<std::string> nodes() const;
    bool isFree() const;

    unsigned port_ = 0;
    std::filesystem::path folder_;  // of the device, once it is there
};

}  // namespace hx::sim::usb
