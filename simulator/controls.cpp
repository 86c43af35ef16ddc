// SPDX-License-Identifier: MIT
#include "controls.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>

#include "state_link.h"

namespace hx::sim {

namespace {

constexpr std::uint32_t kExposure = V4L2_CID_EXPOSURE_ABSOLUTE;
constexpr std::uint32_t kAutoExposure = V4L2_CID_EXPOSURE_AUTO;
constexpr std::uint32_t kNextFlags = V4L2_CTRL_FLAG_NEXT_CTRL | V4L2_CTRL_FLAG_NEXT_COMPOUND;

// In the order of their numbers, as a walk with V4L2_CTRL_FLAG_NEXT_CTRL meets them.
constexpr std::array<std::uint32_t, 3> kKnown = {V4L2_CID_CAMERA_CLASS, kAutoExposure, kExposure};

// Null for entries that the camera's auto-exposure does not have.
const char* menuEntry(std::uint32_t index) {
    if (index == V4L2_EXPOSURE_MANUAL) return "Manual Mode";
    return index == V4L2_EXPOSURE_APERTURE_PRIORITY ? "Aperture Priority Mode" : nullptr;
}

}  // namespace

struct Controls::Control {
    std::uint32_t id = 0;
    std::uint32_t type = V4L2_CTRL_TYPE_INTEGER;
    const char* name = "";
    std::int32_t minimum = 0;
    std::int32_t maximum = 0;
    std::int32_t step = 0;
    std::int32_t initial = 0;
    std::uint32_t flags = 0;
};

bool Controls::has(std::uint32_t id) const {
    const CameraConfig& config = cameraConfig(camera_);
    if (id == kAutoExposure) return config.exposurePresent && config.autoExposureHeld;
    return config.exposurePresent && std::find(kKnown.begin(), kKnown.end(), id) != kKnown.end();
}

Controls::Control Controls::describe(std::uint32_t id) const {
    const CameraConfig& config = cameraConfig(camera_);
    if (id == kExposure) {
        const StateLock state;
        const bool held = state->cameras[camera_].exposureIsHeld();
        return {id,
                V4L2_CTRL_TYPE_INTEGER,
                "Exposure Time, Absolute",
                config.exposureMinimum,
                config.exposureMaximum,
                1,
                config.exposureDefault,
                held ? V4L2_CTRL_FLAG_INACTIVE : 0U};
    }
    if (id == kAutoExposure) {
        return {id,
                V4L2_CTRL_TYPE_MENU,
                "Auto Exposure",
                V4L2_EXPOSURE_AUTO,
                V4L2_EXPOSURE_APERTURE_PRIORITY,
                1,
                V4L2_EXPOSURE_APERTURE_PRIORITY,
                0};
    }
    return {id,
            V4L2_CTRL_TYPE_CTRL_CLASS,
            "Camera Controls",
            0,
            0,
            0,
            0,
            V4L2_CTRL_FLAG_READ_ONLY | V4L2_CTRL_FLAG_WRITE_ONLY};
}

int Controls::findNext(std::uint32_t id, Control& control) const {
    for (const auto known : kKnown) {
        if (known <= id || !has(known)) continue;
        control = describe(known);
        return 0;
    }
    return -EINVAL;
}

int Controls::find(std::uint32_t id, Control& control) const {
    if (id & V4L2_CTRL_FLAG_NEXT_CTRL) return findNext(id & ~kNextFlags, control);
    if (!has(id)) return -EINVAL;
    control = describe(id);
    return 0;
}

int Controls::query(v4l2_queryctrl& argument) const {
    Control control;
    if (const int error = find(argument.id, control)) return error;
    argument = {};
    argument.id = control.id;
    argument.type = control.type;
    std::strncpy(reinterpret_cast<char*>(argument.name), control.name, sizeof argument.name - 1);
    argument.minimum = control.minimum;
    argument.maximum = control.maximum;
    argument.step = control.step;
    argument.default_value = control.initial;
    argument.flags = control.flags;
    return 0;
}

int Controls::queryExtended(v4l2_query_ext_ctrl& argument) const {
    Control control;
    if (const int error = find(argument.id, control)) return error;
    argument = {};
    argument.id = control.id;
    argument.type = control.type;
    std::strncpy(argument.name, control.name, sizeof argument.name - 1);
    argument.minimum = control.minimum;
    argument.maximum = control.maximum;
    argument.step = static_cast<std::uint64_t>(control.step);
    argument.default_value = control.initial;
    argument.flags = control.flags;
    argument.elem_size = sizeof(std::int32_t);
    argument.elems = 1;
    return 0;
}

int Controls::queryMenu(v4l2_querymenu& argument) const {
    const char* entry = menuEntry(argument.index);
    if (argument.id != kAutoExposure || !has(argument.id) || !entry) return -EINVAL;
    argument.reserved = 0;
    argument.name[0] = 0;
    std::strncat(reinterpret_cast<char*>(argument.name), entry, sizeof argument.name - 1);
    return 0;
}

int Controls::get(v4l2_control& argument) const {
    if (!has(argument.id)) return -EINVAL;
    if (argument.id == V4L2_CID_CAMERA_CLASS) return -EACCES;
    const StateLock state;
    const CameraRun& run = state->cameras[camera_].run;
    argument.value = run.exposure;
    if (argument.id == kAutoExposure) {
        argument.value =
            run.exposureIsManual ? V4L2_EXPOSURE_MANUAL : V4L2_EXPOSURE_APERTURE_PRIORITY;
    }
    return 0;
}

// Clamps like the driver: a value out of range is not refused, and a negative one is a very large
// one. A menu entry is refused otherwise when it exists, but not in this camera.
int Controls::checkValue(v4l2_ext_control& control) const {
    const std::int32_t value = control.value;
    if (control.id == kAutoExposure) {
        if (menuEntry(static_cast<std::uint32_t>(value))) return 0;
        return value >= V4L2_EXPOSURE_AUTO && value <= V4L2_EXPOSURE_APERTURE_PRIORITY ? -EINVAL
                                                                                       : -ERANGE;
    }
    const CameraConfig& config = cameraConfig(camera_);
    control.value = static_cast<std::int32_t>(std::clamp(
        static_cast<std::uint32_t>(value), static_cast<std::uint32_t>(config.exposureMinimum),
        static_cast<std::uint32_t>(config.exposureMaximum)));
    return 0;
}

int Controls::set(v4l2_control& argument) const {
    v4l2_ext_control control = {};
    control.id = argument.id;
    control.value = argument.value;
    v4l2_ext_controls one = {};
    one.count = 1;
    one.controls = &control;
    const int error = setMany(one);
    if (!error) argument.value = control.value;
    return error;
}

// Who sets the auto-exposure together with the exposure is taken at its word.
bool Controls::exposureHeld(const v4l2_ext_controls& argument) const {
    for (std::uint32_t i = argument.count; i-- > 0;) {
        const v4l2_ext_control& control = argument.controls[i];
        if (control.id == kAutoExposure) return control.value != V4L2_EXPOSURE_MANUAL;
    }
    const StateLock state;
    return state->cameras[camera_].exposureIsHeld();
}

// What the device answers to a value that the driver has let pass.
int Controls::apply(const v4l2_ext_control& control) const {
    const StateLock state;
    CameraRun& run = state->cameras[camera_].run;
    if (control.id == kAutoExposure) {
        run.exposureIsManual = control.value == V4L2_EXPOSURE_MANUAL;
        return 0;
    }
    if (const int error = cameraConfig(camera_).exposureError) return -error;
    run.exposure = control.value;
    return 0;
}

int Controls::checkAll(v4l2_ext_controls& argument, bool forTrying) const {
    const auto which = argument.which;
    if (which == V4L2_CTRL_WHICH_REQUEST_VAL) return -EINVAL;
    argument.request_fd = 0;
    argument.reserved[0] = 0;
    argument.error_idx = argument.count;
    if (which != V4L2_CTRL_WHICH_CUR_VAL && which != V4L2_CTRL_WHICH_DEF_VAL &&
        which != V4L2_CTRL_CLASS_CAMERA && argument.count > 0) {
        return -EINVAL;
    }
    for (std::uint32_t i = 0; i < argument.count; ++i) {
        const auto id = argument.controls[i].id;
        argument.controls[i].reserved2[0] = 0;
        const bool classMismatch =
            which == V4L2_CTRL_CLASS_CAMERA && V4L2_CTRL_ID2CLASS(id) != which;
        const int error = classMismatch || !has(id)     ? -EINVAL
                          : id == V4L2_CID_CAMERA_CLASS ? -EACCES
                                                        : 0;
        if (error) {
            if (forTrying) argument.error_idx = i;
            return error;
        }
    }
    return 0;
}

int Controls::getMany(v4l2_ext_controls& argument) const {
    if (const int error = checkAll(argument, false)) return error;
    for (std::uint32_t i = 0; i < argument.count; ++i) {
        v4l2_ext_control& control = argument.controls[i];
        v4l2_control one = {control.id, 0};
        if (argument.which == V4L2_CTRL_WHICH_DEF_VAL) {
            one.value = describe(control.id).initial;
        } else {
            get(one);
        }
        control.value = one.value;
    }
    argument.error_idx = 0;
    return 0;
}

// All or nothing, up to the device: only its refusal names the control.
int Controls::setMany(v4l2_ext_controls& argument) const {
    if (argument.which == V4L2_CTRL_WHICH_DEF_VAL) return -EINVAL;
    if (const int error = checkAll(argument, false)) return error;
    const std::span controls(argument.controls, argument.count);
    for (v4l2_ext_control& control : controls) {
        if (control.id == kExposure && exposureHeld(argument)) return -EACCES;
    }
    for (v4l2_ext_control& control : controls) {
        if (const int error = checkValue(control)) return error;
    }
    for (const v4l2_ext_control& control : controls) {
        if (const int error = apply(control)) {
            argument.error_idx = static_cast<std::uint32_t>(&control - controls.data());
            return error;
        }
    }
    argument.error_idx = 0;
    return 0;
}

int Controls::tryMany(v4l2_ext_controls& argument) const {
    if (argument.which == V4L2_CTRL_WHICH_DEF_VAL) return -EINVAL;
    if (const int error = checkAll(argument, true)) return error;
    for (std::uint32_t i = 0; i < argument.count; ++i) {
        v4l2_ext_control& control = argument.controls[i];
        if (const int error = checkValue(control)) {
            argument.error_idx = i;
            return error;
        }
    }
    argument.error_idx = 0;
    return 0;
}

}  // namespace hx::sim
