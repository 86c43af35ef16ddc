// SPDX-License-Identifier: MIT
// Formats of a node: one size, one pixel format, one rate. Whatever is asked for, that is what
// comes.
#include <cerrno>
#include <cstdio>
#include <numeric>

#include "video_node.h"

namespace hx::sim {

namespace {

constexpr std::uint32_t kMetadataBufferBytes = 10240;

v4l2_pix_format pixelFormat(const CameraConfig& config) {
    v4l2_pix_format format = {};
    format.width = config.width;
    format.height = config.height;
    format.pixelformat = V4L2_PIX_FMT_YUYV;
    format.field = V4L2_FIELD_NONE;
    format.bytesperline = config.width * 2;
    format.sizeimage = static_cast<std::uint32_t>(frameBytes(config));
    format.colorspace = V4L2_COLORSPACE_SRGB;
    format.xfer_func = V4L2_XFER_FUNC_709;
    format.ycbcr_enc = V4L2_YCBCR_ENC_601;
    format.priv = V4L2_PIX_FMT_PRIV_MAGIC;
    return format;
}

v4l2_fract secondsPerFrame(const CameraConfig& config) {
    constexpr std::uint32_t kUnitsPerSecond = 10'000'000;
    const auto units = frameInterval(config);
    const auto divisor = std::gcd(units, kUnitsPerSecond);
    return {units / divisor, kUnitsPerSecond / divisor};
}

// These two requests do not care for the difference.
bool isPictureType(std::uint32_t type) {
    return type == V4L2_BUF_TYPE_VIDEO_CAPTURE || type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
}

}  // namespace

int VideoNode::enumFormat(v4l2_fmtdesc& argument) {
    const auto type = isCapture() ? V4L2_BUF_TYPE_VIDEO_CAPTURE : V4L2_BUF_TYPE_META_CAPTURE;
    if (argument.type != type || argument.index != 0) return -EINVAL;
    argument = {};
    argument.type = type;
    argument.pixelformat = isCapture() ? V4L2_PIX_FMT_YUYV : V4L2_META_FMT_UVC;
    std::snprintf(reinterpret_cast<char*>(argument.description), sizeof argument.description, "%s",
                  isCapture() ? "YUYV 4:2:2" : "UVC Payload Header Metadata");
    return 0;
}

int VideoNode::enumFrameSize(v4l2_frmsizeenum& argument) {
    if (argument.index != 0 || argument.pixel_format != V4L2_PIX_FMT_YUYV) return -EINVAL;
    argument = {};
    argument.pixel_format = V4L2_PIX_FMT_YUYV;
    argument.type = V4L2_FRMSIZE_TYPE_DISCRETE;
    argument.discrete = {config().width, config().height};
    return 0;
}

int VideoNode::enumFrameInterval(v4l2_frmivalenum& argument) {
    if (argument.index != 0 || argument.pixel_format != V4L2_PIX_FMT_YUYV) return -EINVAL;
    if (argument.width != config().width || argument.height != config().height) return -EINVAL;
    argument = {};
    argument.pixel_format = V4L2_PIX_FMT_YUYV;
    argument.width = config().width;
    argument.height = config().height;
    argument.type = V4L2_FRMIVAL_TYPE_DISCRETE;
    argument.discrete = secondsPerFrame(config());
    return 0;
}

int VideoNode::getFormat(v4l2_format& argument) {
    const auto type = argument.type;
    if (isCapture() && type == V4L2_BUF_TYPE_VIDEO_CAPTURE) {
        argument = {};
        argument.fmt.pix = pixelFormat(config());
    } else if (!isCapture() && type == V4L2_BUF_TYPE_META_CAPTURE) {
        argument = {};
        argument.fmt.meta = {V4L2_META_FMT_UVC, kMetadataBufferBytes};
    } else {
        return -EINVAL;
    }
    argument.type = type;
    return 0;
}

int VideoNode::tryFormat(v4l2_format& argument) {
    return getFormat(argument);
}

int VideoNode::setFormat(v4l2_format& argument) {
    if (!isCapture()) return getFormat(argument);
    if (argument.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    if (config().formatRefused) return -EINVAL;
    if (const int error = acquire()) return error;
    if (queue_->allocated()) return -EBUSY;
    return getFormat(argument);
}

// The driver cannot crop; it tells the picture's size by this request too.
int VideoNode::getSelection(v4l2_selection& argument) {
    if (!isPictureType(argument.type)) return -EINVAL;
    if (argument.target != V4L2_SEL_TGT_CROP_DEFAULT &&
        argument.target != V4L2_SEL_TGT_CROP_BOUNDS) {
        return -EINVAL;
    }
    argument.flags = 0;
    argument.r = {0, 0, config().width, config().height};
    return 0;
}

int VideoNode::getCropLimits(v4l2_cropcap& argument) {
    if (!isPictureType(argument.type)) return -EINVAL;
    argument.bounds = {0, 0, config().width, config().height};
    argument.defrect = argument.bounds;
    argument.pixelaspect = {1, 1};
    return 0;
}

int VideoNode::getParameters(v4l2_streamparm& argument) {
    if (argument.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    argument = {};
    argument.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    argument.parm.capture.capability = V4L2_CAP_TIMEPERFRAME;
    argument.parm.capture.timeperframe = secondsPerFrame(config());
    return 0;
}

int VideoNode::setParameters(v4l2_streamparm& argument) {
    if (argument.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    if (const int error = acquire()) return error;
    if (queue_->streaming()) return -EBUSY;
    return getParameters(argument);
}

}  // namespace hx::sim
