// SPDX-License-Identifier: MIT
#include "fault_plan.h"

#include <array>
#include <atomic>

#include "call_names.h"
#include "state_link.h"

namespace hx::sim {

namespace {

using Counters = std::array<std::atomic<std::uint32_t>, kCallCount>;
constinit std::array<Counters, kMaxCameras> g_calls{};

}  // namespace

int nextFault(std::uint32_t camera, Call call) {
    const CameraConfig& config = cameraConfig(camera);
    const auto number = ++g_calls[camera][static_cast<std::size_t>(call)];
    for (std::uint32_t i = 0; i < config.faultCount; ++i) {
        const Fault& fault = config.faults[i];
        if (fault.call != call) continue;
        if (fault.nth == kEveryCall || fault.nth == number) return fault.error;
    }
    return 0;
}

}  // namespace hx::sim
