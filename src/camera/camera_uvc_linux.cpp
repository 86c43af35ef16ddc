// SPDX-License-Identifier: MIT
#include "camera/camera_uvc_linux.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <linux/usb/video.h>
#include <linux/uvcvideo.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "camera/frame_convert.h"
#include "camera/identification.h"

namespace {

const CameraFactory::register_t<CameraUvc> register_CameraUvc_("uvc");

enum Model : std::uint8_t { HX01 = 1, HX02 = 2 };

constexpr std::size_t kIdentificationSize = 32;
constexpr unsigned char kExtensionUnit = 6;
constexpr unsigned char kIdentificationSelector = 10;

// "cannot set the exposure time" in Chinese, GBK bytes.
// Kept: reading the exposure fails with the same words as setting it.
constexpr char kExposureMessage[] =
    "\xCE\xDE\xB7\xA8\xC9\xE8\xD6\xC3\xC6\xD8\xB9\xE2\xCA\xB1\xBC\xE4";

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

bool isVideoNode(const char* name) {
    return std::strncmp(name, "video", 5) == 0;
}

const char* messageFor(hx::IdentificationFault fault) {
    switch (fault) {
        case hx::IdentificationFault::model:
            return "hx verion error\n";
        case hx::IdentificationFault::exposure:
            return "ae verion error\n";
        case hx::IdentificationFault::spectral:
            return "spec resolution error\n";
        case hx::IdentificationFault::none:
            break;
    }
    return "";
}

}  // namespace

bool getFirmwareName(std::string& path, std::string& firmware) {
    const int fd = open(path.c_str(), O_RDWR);
    if (fd < 0) {
        std::perror("Failed to open device");
        // Kept: such a node counts as asked; the empty text is refused as an unknown model.
        return true;
    }
    unsigned char text[kIdentificationSize] = {};
    uvc_xu_control_query query{};
    query.unit = kExtensionUnit;
    query.selector = kIdentificationSelector;
    query.query = UVC_GET_CUR;
    query.size = sizeof text;
    query.data = text;
    const bool answered = ioctl(fd, UVCIOC_CTRL_QUERY, &query) >= 0;
    const int failure = errno;
    // A text that fills the answer has no terminator.
    const char* const begin = reinterpret_cast<const char*>(text);
    if (answered) firmware.assign(begin, strnlen(begin, sizeof text));
    close(fd);
    errno = failure;
    return answered;
}

CameraUvc::CameraUvc() {
    dev.card_name = "Webcam gadget: UVC Camera";
    dev.data_label = "raw";
    dev.buf_type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    // The code is only the carrier: two bytes a pixel of raw sensor data.
    dev.pixel_format = V4L2_PIX_FMT_YUYV;
    dev.width = 1600;
    dev.height = 1200;
    dev.buffer_count = 20;
    dev.memory = V4L2_MEMORY_MMAP;
}

// No STREAMOFF: closing the descriptor ends the stream.
CameraUvc::~CameraUvc() {
    delete[] dataBuf;
    if (dev.fd != -1) close_device(&dev);
}

bool CameraUvc::checkDevice(std::vector<CameraBase*>& found) {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir("/dev"));
    if (!directory) {
        std::perror("Failed to open /dev");
        return false;
    }
    while (const dirent* entry = readdir(directory.get())) {
        if (!isVideoNode(entry->d_name)) continue;
        auto candidate = std::make_unique<CameraUvc>();
        candidate->dev.path = std::string("/dev/") + entry->d_name;
        if (!candidate->init()) continue;
        found.push_back(nullptr);  // may throw, so before the candidate is let go
        found.back() = candidate.release();
    }
    return true;
}

bool CameraUvc::setHandle(const void* handle) {
    dev.path = *static_cast<const std::string*>(handle);
    return true;
}

bool CameraUvc::init() {
    depth = 10;
    if (!getFirmwareName(dev.path, cameraId)) {
        std::perror("!name");
        return false;
    }
    if (!identify()) return false;

    delete[] dataBuf;
    dataBuf = nullptr;
    width = static_cast<std::uint32_t>(dev.width);
    height = static_cast<std::uint32_t>(dev.height);
    const std::uint32_t pixels = width * height;
    dataBuf = new unsigned short[pixels]();
    return readExposureRange() && bringUp();
}

bool CameraUvc::identify() {
    hx::Identification id{model, aeInFrame, name, lampPresent, specResolution};
    // What was understood before a fault is kept, also when a text cut short throws.
    struct Store {
        CameraUvc& camera;
        const hx::Identification& id;
        ~Store() {
            camera.model = id.model;
            camera.aeInFrame = id.aeInFrame;
            camera.name = id.name;
            camera.lampPresent = id.lampPresent;
            camera.specResolution = id.specResolution;
        }
    } const store{*this, id};

    const hx::IdentificationFault fault = hx::parseIdentification(cameraId, id);
    if (fault == hx::IdentificationFault::none) return true;
    std::fputs(messageFor(fault), stderr);
    return false;
}

bool CameraUvc::readExposureRange() {
    const int fd = open(dev.path.c_str(), O_RDWR);
    v4l2_queryctrl control{};
    control.id = V4L2_CID_EXPOSURE_ABSOLUTE;
    const bool known = ioctl(fd, VIDIOC_QUERYCTRL, &control) != -1;
    if (!known) std::perror("expure:");
    close(fd);
    if (known) {
        expMin = control.minimum;
        expMax = control.maximum;
    }
    return known;
}

bool CameraUvc::bringUp() {
    constexpr struct {
        const char* prefix;
        int (*run)(v4l2_dev*);
    } kSteps[] = {{"open:", open_device}, {"fmt:", set_fmt},     {"require:", require_buf},
                  {"alloc:", alloc_buf},  {"queue:", queue_buf}, {"stream:", stream_on}};
    for (const auto& step : kSteps) {
        if (step.run(&dev) >= 0) continue;
        std::perror(step.prefix);
        return false;
    }
    return true;
}

// The firmware puts its exposure into the first pixel; the second one's value hides it.
void CameraUvc::takeExposureFromFrame() {
    std::uint16_t exposure;
    std::memcpy(&exposure, dev.frame, sizeof exposure);
    std::atomic_ref<std::uint16_t>(frameExp).store(exposure, std::memory_order_relaxed);
    std::memcpy(dev.frame, dev.frame + sizeof exposure, sizeof exposure);
}

unsigned short* CameraUvc::getData() {
    if (get_frame(&dev, 0) < 0) return nullptr;

    const std::uint32_t pixels = width * height;
    const std::size_t exposureBytes = aeInFrame ? 2 * sizeof frameExp : 0;
    // A driver may have granted another format, with smaller buffers.
    if (frame_length(&dev) < std::max(std::size_t{2} * pixels, exposureBytes)) return nullptr;

    if (aeInFrame) takeExposureFromFrame();
    if (model == HX01) hx::convertHx01(dev.frame, dataBuf, pixels);
    if (model == HX02) hx::convertHx02(dev.frame, dataBuf, width, height);
    // Kept: an HX05 streams, and its samples stay zero.
    return dataBuf;
}

int CameraUvc::getHeight() {
    return static_cast<int>(height);
}

int CameraUvc::getWidth() {
    return static_cast<int>(width);
}

unsigned char CameraUvc::getDepth() {
    return depth;
}

std::string CameraUvc::getCameraId() {
    return cameraId;
}

int CameraUvc::getSpecResolution() {
    return specResolution;
}

bool CameraUvc::getExpRange(unsigned int& min, unsigned int& max) {
    min = static_cast<unsigned int>(expMin);
    max = static_cast<unsigned int>(expMax);
    return true;
}

unsigned int CameraUvc::getExp() {
    if (aeInFrame) {
        return std::atomic_ref<std::uint16_t>(frameExp).load(std::memory_order_relaxed);
    }
    v4l2_control control{};
    control.id = V4L2_CID_EXPOSURE_ABSOLUTE;
    if (device_request(&dev, VIDIOC_G_CTRL, &control) < 0) std::perror(kExposureMessage);
    return static_cast<unsigned int>(control.value);
}

// The value goes out as it is: the driver knows its range.
bool CameraUvc::setExp(unsigned int exposure) {
    v4l2_control control{};
    control.id = V4L2_CID_EXPOSURE_ABSOLUTE;
    control.value = static_cast<std::int32_t>(exposure);
    if (device_request(&dev, VIDIOC_S_CTRL, &control) == -1) {
        std::perror(kExposureMessage);
        return false;
    }
    lastExp = exposure;
    return true;
}

unsigned int CameraUvc::getGain() {
    return 0;
}

bool CameraUvc::setGain(unsigned int) {
    return false;
}

bool CameraUvc::hasLamp() {
    return lampPresent;
}

bool CameraUvc::getLamp() {
    return lampPresent && lampOn;
}

// Kept: the lamp is not driven; the answer says whether there is one.
bool CameraUvc::setLamp(bool) {
    return lampPresent;
}

const char* CameraUvc::getName() {
    return name.c_str();
}
