// SPDX-License-Identifier: MIT
#include "uvc_control.h"

#include <endian.h>
#include <linux/usb/video.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "simulator/frame_source.h"

namespace hx::sim::usb {

namespace {

using Data = std::span<const std::byte>;

// Values of the Request Error Code control in the USB Video Class 1.1; <linux/usb/video.h> has the
// control's number only.
enum Refusal : std::uint8_t {
    unknownReason = 0,
    notReady = 1,
    wrongState = 2,
    power = 3,
    outOfRange = 4,
    invalidUnit = 5,
    invalidControl = 6,
    invalidRequest = 7,
    invalidValue = 8,
};

// Values of the Auto-Exposure Mode control, ibidem: one bit for each mode.
constexpr std::uint32_t kManualMode = 1;
constexpr std::uint32_t kAperturePriorityMode = 8;

constexpr std::uint8_t kReadable = UVC_CONTROL_CAP_GET;
constexpr std::uint8_t kWritable = UVC_CONTROL_CAP_GET | UVC_CONTROL_CAP_SET;
constexpr std::size_t kCutAnswer = 16;

// Frame identifier and end of frame are told in the payload's header.
constexpr std::uint8_t kFramingTold = 3;

Reply refused(std::uint8_t reason) {
    Reply reply;
    reply.status = kStall;
    reply.data = {std::byte{reason}};
    return reply;
}

Reply numberReply(std::uint32_t value, std::size_t size) {
    value = htole32(value);
    Reply reply;
    reply.data.resize(size);
    std::memcpy(reply.data.data(), &value, size);
    return reply;
}

std::uint32_t numberFrom(Data data) {
    std::uint32_t value = 0;
    std::memcpy(&value, data.data(), std::min(data.size(), sizeof value));
    return le32toh(value);
}

// The one and only offer, whatever the host would like.
uvc_streaming_control offer(const CameraConfig& config) {
    uvc_streaming_control control = {};
    control.bFormatIndex = kFormatIndex;
    control.bFrameIndex = kFrameIndex;
    control.dwFrameInterval = frameInterval(config);
    control.dwMaxVideoFrameSize = static_cast<std::uint32_t>(frameBytes(config));
    // A whole frame is one payload with one header.
    control.dwMaxPayloadTransferSize =
        static_cast<std::uint32_t>(frameBytes(config) + kPayloadHeaderBytes);
    control.dwClockFrequency = 1'000'000;
    control.bmFramingInfo = kFramingTold;
    control.bPreferedVersion = 1;
    control.bMinVersion = 1;
    control.bMaxVersion = 1;
    return control;
}

}  // namespace

std::optional<std::uint8_t> refusalCode(int error) {
    switch (error) {
        case EPIPE:
            return Refusal::unknownReason;
        case EBUSY:
            return Refusal::notReady;
        case EILSEQ:
            return Refusal::wrongState;
        case EREMOTE:
            return Refusal::power;
        case ERANGE:
            return Refusal::outOfRange;
        case EIO:
            return Refusal::invalidControl;
        case EINVAL:
            return Refusal::invalidValue;
        default:
            return std::nullopt;
    }
}

struct UvcControl::Number {
    std::size_t size = 0;
    std::uint32_t current = 0;
    std::uint32_t initial = 0;
    std::uint32_t resolution = 0;
    std::uint32_t minimum = 0;
    std::uint32_t maximum = 0;
    bool ranged = true;  // has a minimum and a maximum
};

Reply UvcControl::answerNumber(std::uint8_t request, const Number& number) const {
    switch (request) {
        case UVC_GET_CUR:
            return numberReply(number.current, number.size);
        case UVC_GET_DEF:
            return numberReply(number.initial, number.size);
        case UVC_GET_RES:
            return numberReply(number.resolution, number.size);
        case UVC_GET_LEN:
            return numberReply(static_cast<std::uint32_t>(number.size), 2);
        case UVC_GET_INFO:
            return numberReply(kWritable, 1);
        case UVC_GET_MIN:
        case UVC_GET_MAX:
            if (!number.ranged) return refused(Refusal::invalidRequest);
            return numberReply(request == UVC_GET_MIN ? number.minimum : number.maximum,
                               number.size);
        default:
            return refused(Refusal::invalidRequest);
    }
}

Reply UvcControl::exposureTime(std::uint8_t request, Data data) {
    const CameraConfig& config = camera_.config;
    if (!config.exposurePresent) return refused(Refusal::invalidControl);
    const auto minimum = static_cast<std::uint32_t>(config.exposureMinimum);
    const auto maximum = static_cast<std::uint32_t>(config.exposureMaximum);
    if (request != UVC_SET_CUR) {
        const auto initial = static_cast<std::uint32_t>(config.exposureDefault);
        const auto current = static_cast<std::uint32_t>(camera_.run.exposure);
        return answerNumber(request, {4, current, initial, 1, minimum, maximum});
    }
    const auto wanted = numberFrom(data);
    if (config.exposureError) {
        return refused(refusalCode(config.exposureError).value_or(Refusal::unknownReason));
    }
    if (camera_.exposureIsHeld()) return refused(Refusal::wrongState);
    if (data.size() != 4 || wanted < minimum || wanted > maximum) {
        return refused(Refusal::outOfRange);
    }
    camera_.run.exposure = static_cast<std::int32_t>(wanted);
    return {};
}

Reply UvcControl::exposureMode(std::uint8_t request, Data data) {
    const CameraConfig& config = camera_.config;
    if (!config.exposurePresent || !config.autoExposureHeld) {
        return refused(Refusal::invalidControl);
    }
    if (request != UVC_SET_CUR) {
        const auto mode = camera_.run.exposureIsManual ? kManualMode : kAperturePriorityMode;
        Number number = {1, mode, kAperturePriorityMode, kManualMode | kAperturePriorityMode};
        number.ranged = false;
        return answerNumber(request, number);
    }
    const auto wanted = numberFrom(data);
    if (data.size() != 1 || (wanted != kManualMode && wanted != kAperturePriorityMode)) {
        return refused(Refusal::outOfRange);
    }
    camera_.run.exposureIsManual = wanted == kManualMode;
    return {};
}

Reply UvcControl::currentIdentification() const {
    const CameraConfig& config = camera_.config;
    if (config.unitAnswer == UnitAnswer::refused) {
        return refused(refusalCode(config.unitError).value_or(Refusal::unknownReason));
    }
    const auto text = std::as_bytes(std::span(config.identification));
    Reply reply;
    reply.data.assign(text.begin(), text.end());
    reply.data.resize(config.unitAnswer == UnitAnswer::cut ? kCutAnswer : config.unitLength);
    if (config.unitAnswer == UnitAnswer::slow) reply.delay = config.unitDelay;
    return reply;
}

Reply UvcControl::identification(std::uint8_t request) const {
    if (camera_.config.unitAnswer == UnitAnswer::absent) return refused(Refusal::invalidUnit);
    switch (request) {
        case UVC_GET_CUR:
            return currentIdentification();
        case UVC_GET_LEN:
            return numberReply(camera_.config.unitLength, 2);
        case UVC_GET_INFO:
            return numberReply(kReadable, 1);
        default:
            return refused(Refusal::invalidRequest);
    }
}

Reply UvcControl::negotiation(std::uint8_t selector, std::uint8_t request, Data data) const {
    if (selector != UVC_VS_PROBE_CONTROL && selector != UVC_VS_COMMIT_CONTROL) {
        return refused(Refusal::invalidControl);
    }
    const auto control = offer(camera_.config);
    Reply reply;
    switch (request) {
        case UVC_SET_CUR:
            if (data.size() != sizeof control) return refused(Refusal::invalidRequest);
            reply.commits = selector == UVC_VS_COMMIT_CONTROL;
            return reply;
        case UVC_GET_LEN:
            return numberReply(sizeof control, 2);
        case UVC_GET_INFO:
            return numberReply(kWritable, 1);
        case UVC_GET_CUR:
        case UVC_GET_MIN:
        case UVC_GET_MAX:
        case UVC_GET_DEF:
            reply.data.resize(sizeof control);
            std::memcpy(reply.data.data(), &control, sizeof control);
            return reply;
        default:
            return refused(Refusal::invalidRequest);
    }
}

Reply UvcControl::dispatch(const usb_ctrlrequest& setup, Data data) {
    const auto selector = static_cast<std::uint8_t>(le16toh(setup.wValue) >> 8);
    const auto unit = static_cast<std::uint8_t>(le16toh(setup.wIndex) >> 8);
    if ((le16toh(setup.wIndex) & 0xff) == kStreamInterface) {
        return negotiation(selector, setup.bRequest, data);
    }
    if (unit == kCameraTerminal && selector == UVC_CT_AE_MODE_CONTROL) {
        return exposureMode(setup.bRequest, data);
    }
    if (unit == kCameraTerminal && selector == UVC_CT_EXPOSURE_TIME_ABSOLUTE_CONTROL) {
        return exposureTime(setup.bRequest, data);
    }
    if (unit == kExtensionUnit && selector == kIdentificationSelector) {
        return identification(setup.bRequest);
    }
    return refused(Refusal::invalidControl);
}

Reply UvcControl::handle(const usb_ctrlrequest& setup, Data data) {
    const bool asksWhy = le16toh(setup.wIndex) == kControlInterface &&
                         le16toh(setup.wValue) == UVC_VC_REQUEST_ERROR_CODE_CONTROL << 8;
    if (asksWhy && setup.bRequest == UVC_GET_CUR) return numberReply(refusal_, 1);
    Reply reply = dispatch(setup, data);
    refusal_ = 0;
    if (reply.status) {
        refusal_ = std::to_integer<std::uint8_t>(reply.data[0]);
        reply.data.clear();
    }
    return reply;
}

}  // namespace hx::sim::usb
