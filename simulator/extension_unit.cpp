// SPDX-License-Identifier: MIT
#include "extension_unit.h"

#include <linux/usb/video.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <vector>

#include "state_link.h"
#include "user_memory.h"

namespace hx::sim {

namespace {

constexpr std::uint8_t kUnit = 6;
constexpr std::uint8_t kSelector = 10;
constexpr std::uint8_t kReadable = 1;  // GET_INFO: values can be got, not set
constexpr double kDriverPatience = 5.0;
constexpr std::size_t kCutAnswer = 16;

// The driver's wait for the device cannot be broken off by signals.
void pause(double seconds) {
    timespec left = {};
    left.tv_sec = static_cast<time_t>(seconds);
    left.tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);
    while (nanosleep(&left, &left) != 0 && errno == EINTR) continue;
}

using Identification = decltype(CameraConfig::identification);

int readIdentification(const CameraConfig& config, Identification& text) {
    text = config.identification;
    switch (config.unitAnswer) {
        case UnitAnswer::refused:
            return -config.unitError;
        case UnitAnswer::slow:
            pause(std::min(config.unitDelay, kDriverPatience));
            return config.unitDelay > kDriverPatience ? -ETIMEDOUT : 0;
        case UnitAnswer::cut:
            std::fill(text.begin() + kCutAnswer, text.end(), std::uint8_t{0});
            return 0;
        default:
            return 0;
    }
}

template <typename Bytes>
int answer(const uvc_xu_control_query& query, const Bytes& bytes) {
    if (query.size != bytes.size()) return -ENOBUFS;
    if (!userMemoryMapped(query.data, bytes.size())) return -EFAULT;
    std::memcpy(query.data, bytes.data(), bytes.size());
    return 0;
}

int answerCurrent(const CameraConfig& config, const uvc_xu_control_query& query) {
    if (query.size != config.unitLength) return -ENOBUFS;
    Identification text = {};
    if (const int error = readIdentification(config, text)) return error;
    std::vector<std::uint8_t> whole(text.begin(), text.end());
    whole.resize(config.unitLength);
    return answer(query, whole);
}

}  // namespace

int queryExtensionUnit(std::uint32_t camera, const uvc_xu_control_query& query) {
    const CameraConfig& config = cameraConfig(camera);
    if (config.unitAnswer == UnitAnswer::absent) return -ENOENT;
    if (query.unit != kUnit || query.selector != kSelector) return -ENOENT;
    switch (query.query) {
        case UVC_GET_CUR:
            return answerCurrent(config, query);
        case UVC_GET_LEN:
            return answer(query, std::array{static_cast<std::uint8_t>(config.unitLength),
                                            static_cast<std::uint8_t>(config.unitLength >> 8)});
        case UVC_GET_INFO:
            return answer(query, std::array<std::uint8_t, 1>{kReadable});
        case UVC_SET_CUR:
            return query.size == config.unitLength ? -EBADRQC : -ENOBUFS;
        case UVC_GET_MIN:
        case UVC_GET_MAX:
        case UVC_GET_RES:
        case UVC_GET_DEF:
            // The device knows no such request for this selector; the driver makes EIO of that
            // refusal.
            return query.size == config.unitLength ? -EIO : -ENOBUFS;
        default:
            return -EINVAL;
    }
}

}  // namespace hx::sim
