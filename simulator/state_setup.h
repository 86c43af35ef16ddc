// SPDX-License-Identifier: MIT
// Lays the launcher's devices into shared memory.
#pragma once

#include <string>
#include <vector>

#include "camera_spec.h"

namespace hx::sim {

// A camera or a foreign device, in the order of the command line.
struct DeviceSpec {
    bool isCamera = true;
    CameraSpec camera = {};
    ForeignSpec foreign = {};
};

// A file that exists only as long as someone has it open. Throws SpecError for devices that do not
// fit together.
class StateFile {
  public:
    StateFile(const std::vector<DeviceSpec>& devices, bool realDevices);
    ~StateFile();
    StateFile(const StateFile&) = delete;
    StateFile& operator=(const StateFile&) = delete;

    // Where the processes below this one find it.
    std::string path() const;

  private:
    int descriptor_ = -1;
};

}  // namespace hx::sim
