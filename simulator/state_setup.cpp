// SPDX-License-Identifier: MIT
#include "state_setup.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

namespace hx::sim {

namespace {

using Taken = std::array<bool, kMaxMinor + 1>;

[[noreturn]] void failWith(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void findRealNodes(SharedState& state) {
    constexpr std::string_view kPrefix = "video";
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/dev", ignored)) {
        const std::string name = entry.path().filename();
        if (!name.starts_with(kPrefix)) continue;
        std::uint32_t minor = 0;
        const char* end = name.data() + name.size();
        const auto result = std::from_chars(name.data() + kPrefix.size(), end, minor);
        if (result.ec == std::errc{} && result.ptr == end && minor <= kMaxMinor) {
            state.realMinors[minor] = true;
        }
    }
}

void claim(Taken& taken, std::uint32_t minor) {
    if (minor > kMaxMinor || taken[minor]) {
        throw SpecError(fmt::format("node {} is taken or beyond the last", minor));
    }
    taken[minor] = true;
}

std::uint32_t nextFree(Taken& taken, std::uint32_t from) {
    const auto found = std::find(taken.begin() + from, taken.end(), false);
    const auto minor = static_cast<std::uint32_t>(found - taken.begin());
    claim(taken, minor);
    return minor;
}

std::optional<std::uint32_t> wishedNode(const DeviceSpec& device) {
    return device.isCamera ? device.camera.node : device.foreign.node;
}

void addCamera(SharedState& state, const DeviceSpec& device, Taken& taken) {
    if (state.cameraCount == kMaxCameras) {
        throw SpecError(fmt::format("more than {} cameras", kMaxCameras));
    }
    Camera& camera = state.cameras[state.cameraCount++];
    camera.config = device.camera.config;
    camera.run.plugged = true;
    camera.powerUp();
    camera.run.plugOrder = ++state.plugCounter;
    const auto wished = wishedNode(device);
    camera.run.captureMinor = wished ? *wished : nextFree(taken, 0);
    camera.run.metadataMinor = wished ? *wished + 1 : nextFree(taken, camera.run.captureMinor + 1);
}

void addForeign(SharedState& state, const DeviceSpec& device, Taken& taken) {
    if (state.foreignCount == kMaxForeign) {
        throw SpecError(fmt::format("more than {} foreign devices", kMaxForeign));
    }
    ForeignDevice& foreign = state.foreign[state.foreignCount++];
    std::copy(device.foreign.card.begin(), device.foreign.card.end(), foreign.card.begin());
    foreign.plugOrder = ++state.plugCounter;
    const auto wished = wishedNode(device);
    foreign.minor = wished ? *wished : nextFree(taken, 0);
}

void layOut(SharedState& state, const std::vector<DeviceSpec>& devices, bool realDevices) {
    state.magic = kStateMagic;
    state.size = sizeof state;
    state.realDevicesShown = realDevices;
    if (realDevices) findRealNodes(state);
    Taken taken = state.realMinors;
    // Numbers that were asked for go before those that are handed out.
    for (const DeviceSpec& device : devices) {
        const auto wished = wishedNode(device);
        if (!wished) continue;
        claim(taken, *wished);
        if (device.isCamera) claim(taken, *wished + 1);
    }
    for (const DeviceSpec& device : devices) {
        if (device.isCamera) {
            addCamera(state, device, taken);
        } else {
            addForeign(state, device, taken);
        }
    }
}

}  // namespace

StateFile::StateFile(const std::vector<DeviceSpec>& devices, bool realDevices) {
    const auto state = std::make_unique<SharedState>();
    layOut(*state, devices, realDevices);
    descriptor_ = memfd_create("hx-sim state", MFD_CLOEXEC);
    if (descriptor_ < 0) failWith("memfd_create");
    const auto written = write(descriptor_, state.get(), sizeof *state);
    if (written != static_cast<ssize_t>(sizeof *state)) failWith("write");
}

StateFile::~StateFile() {
    close(descriptor_);
}

std::string StateFile::path() const {
    return fmt::format("/proc/{}/fd/{}", getpid(), descriptor_);
}

}  // namespace hx::sim
