// SPDX-License-Identifier: MIT
#include "camera_bay.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "unique_descriptor.h"
#include "usb_spec.h"

namespace hx::sim::usb {

namespace {

const char* word(bool value) {
    return value ? "yes" : "no";
}

}  // namespace

CameraBay::CameraBay(unsigned number, const CameraSpec& spec, std::function<void()> left)
    : number_(number), spec_(spec), camera_(spec.config, std::move(left)) {}

std::string CameraBay::plug() {
    returnTime_.reset();
    std::array<int, 2> ends = {};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    UniqueDescriptor ours(ends[0]);
    {
        const UniqueDescriptor kernels(ends[1]);
        port_.emplace(kernels.get(), number_);
    }
    camera_.connect(ours.release());
    try {
        place_ = fmt::format("camera {} port {} usb {} {}", number_, port_->number(),
                             port_->device(), fmt::join(port_->awaitNodes(), " "));
    } catch (...) {
        camera_.disconnect();
        port_.reset();
        throw;
    }
    return place_;
}

void CameraBay::awaitGone() {
    const bool gone = port_->awaitGone();
    const auto device = port_->device();
    port_.reset();
    if (!gone) throw std::runtime_error(device + " is unplugged but still there");
}

void CameraBay::unplug() {
    if (!port_) return;
    camera_.disconnect();
    awaitGone();
}

std::string CameraBay::settle() {
    if (!port_ || camera_.connected()) return {};
    camera_.disconnect();
    const auto status = camera_.status();
    const auto config = camera_.config();
    awaitGone();
    if (!status.leftAsPlanned) return fmt::format("camera {} detached by the system", number_);
    if (config.replugAfter >= 0) {
        const std::chrono::duration<double> away(config.replugAfter);
        returnTime_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(away);
    }
    return fmt::format("camera {} unplugged after {} frames", number_, status.framesOfLife);
}

void CameraBay::change(const std::string& keyText) {
    CameraSpec changed = spec_;
    changed.config = camera_.config();
    changeUsbCamera(changed, keyText);
    if (!camera_.change(changed.config)) {
        throw SpecError(keyText + ": only while the camera is unplugged");
    }
}

std::string CameraBay::status() const {
    const auto now = camera_.status();
    return fmt::format("{} plugged={} streaming={} paused={} frames={} total={} exposure={}",
                       plugged() ? place_ : fmt::format("camera {}", number_), word(plugged()),
                       word(now.streaming), word(now.paused), now.framesOfStream, now.framesOfLife,
                       now.exposure);
}

}  // namespace hx::sim::usb
