// SPDX-License-Identifier: MIT
// `hx-sim usb`: cameras that are plugged into this machine's kernel.
#pragma once

namespace hx::sim::usb {

// Returns the status to end with. `argv[0]` is the word usb.
int runUsb(int argc, char** argv);

}  // namespace hx::sim::usb
