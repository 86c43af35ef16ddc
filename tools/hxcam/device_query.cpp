// SPDX-License-Identifier: MIT
#include "device_query.h"

#include <fcntl.h>
#include <linux/usb/video.h>
#include <linux/uvcvideo.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "capture/unique_fd.h"

namespace hxcam {
namespace {

using nlohmann::json;

constexpr std::size_t kIdentificationSize = 32;
constexpr unsigned char kExtensionUnit = 6;
constexpr unsigned char kIdentificationSelector = 10;

/// A step that failed, with errno.
struct StepFailed {
    const char* step;
    int number;
};

hx::UniqueFd openNode(const std::string& node) {
    hx::UniqueFd fd(open(node.c_str(), O_RDWR | O_CLOEXEC));
    if (!fd) throw StepFailed{"open", errno};
    return fd;
}

template <class Record>
void request(const hx::UniqueFd& fd, unsigned long code, const char* step, Record& record) {
    if (ioctl(fd.get(), code, &record) < 0) throw StepFailed{step, errno};
}

template <std::size_t Size>
std::string boundedText(const unsigned char (&text)[Size]) {
    const char* const begin = reinterpret_cast<const char*>(text);
    return {begin, strnlen(begin, Size)};
}

// As bytes: the firmware may answer with what is no UTF-8.
json bytesOf(const std::string& text) {
    return std::vector<unsigned char>(text.begin(), text.end());
}

void addCapabilities(const hx::UniqueFd& fd, json& answer) {
    v4l2_capability capability{};
    request(fd, VIDIOC_QUERYCAP, "QUERYCAP", capability);
    const bool perNode = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0;
    const std::uint32_t abilities = perNode ? capability.device_caps : capability.capabilities;
    answer["card"] = bytesOf(boundedText(capability.card));
    answer["bus"] = bytesOf(boundedText(capability.bus_info));
    answer["capture"] = (abilities & V4L2_CAP_VIDEO_CAPTURE) != 0;
}

void addIdentification(const hx::UniqueFd& fd, json& answer) {
    unsigned char text[kIdentificationSize] = {};
    uvc_xu_control_query query{};
    query.unit = kExtensionUnit;
    query.selector = kIdentificationSelector;
    query.query = UVC_GET_CUR;
    query.size = sizeof text;
    query.data = text;
    request(fd, UVCIOC_CTRL_QUERY, "identification", query);
    answer["identification"] = bytesOf(boundedText(text));
}

void addExposureRange(const hx::UniqueFd& fd, json& answer) {
    v4l2_queryctrl control{};
    control.id = V4L2_CID_EXPOSURE_ABSOLUTE;
    request(fd, VIDIOC_QUERYCTRL, "QUERYCTRL", control);
    answer["exposure"] = {{"min", control.minimum},
                          {"max", control.maximum},
                          {"step", control.step},
                          {"default", control.default_value}};
}

void addExposure(const hx::UniqueFd& fd, json& answer) {
    v4l2_control control{};
    control.id = V4L2_CID_EXPOSURE_ABSOLUTE;
    request(fd, VIDIOC_G_CTRL, "G_CTRL", control);
    answer["exposure"] = control.value;
}

template <class Steps>
json onNode(const std::string& node, const Steps& steps) {
    json answer = json::object();
    try {
        steps(openNode(node), answer);
    } catch (const StepFailed& failure) {
        answer["failed"] = failure.step;
        answer["errno"] = failure.number;
    }
    return answer;
}

}  // namespace

json describeNode(const std::string& node) {
    return onNode(node, [](const hx::UniqueFd& fd, json& answer) {
        addCapabilities(fd, answer);
        if (!answer["capture"]) return;
        addIdentification(fd, answer);
        addExposureRange(fd, answer);
    });
}

json readExposure(const std::string& node) {
    return onNode(node, addExposure);
}

json writeExposure(const std::string& node, std::int32_t exposure) {
    return onNode(node, [exposure](const hx::UniqueFd& fd, json& answer) {
        v4l2_control control{};
        control.id = V4L2_CID_EXPOSURE_ABSOLUTE;
        control.value = exposure;
        request(fd, VIDIOC_S_CTRL, "S_CTRL", control);
        addExposure(fd, answer);
    });
}

}  // namespace hxcam
