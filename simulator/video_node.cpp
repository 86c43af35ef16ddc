// SPDX-License-Identifier: MIT
#include "video_node.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace hx::sim {

namespace {

// The kernel whose driver is imitated.
constexpr std::uint32_t kKernelVersion = (6U << 16) | (1U << 8) | 192U;

constexpr std::uint32_t kNodeAbilities = V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;

void copyText(std::uint8_t* to, std::size_t size, const char* from) {
    std::snprintf(reinterpret_cast<char*>(to), size, "%s", from);
}

}  // namespace

VideoNode::VideoNode(const NodeRef& ref) : ref_(ref), controls_(ref.index) {
    if (isCapture()) queue_.emplace(ref.index, tokens_);
}

int VideoNode::open(int flags) {
    if (ref_.kind != NodeKind::foreign && config().accessDenied) return -EACCES;
    if (const int error = fault(Call::open)) return error;
    const int lock = newLockDescriptor();
    if (lock < 0) return lock;
    lock_ = OwnedDescriptor(lock);
    holdNode(lock, ref_.minor);
    if (ref_.kind != NodeKind::foreign) {
        setPriorityLevel(lock, ref_, priority_, priority_);
    }
    return tokens_.create(flags);
}

bool VideoNode::gone() {
    if (ref_.kind == NodeKind::foreign) return false;
    {
        const StateLock state;
        const CameraRun& run = state->cameras[ref_.index].run;
        if (run.plugged && run.generation == ref_.generation) return false;
    }
    if (queue_) {
        queue_->hangUp();
    } else {
        tokens_.hangUp();
    }
    return true;
}

// Faults are counted on the capture node alone: programs that look at every node would shift the
// numbers.
int VideoNode::fault(Call call) {
    return isCapture() ? -nextFault(ref_.index, call) : 0;
}

int VideoNode::place(std::size_t length, int protection, int flags, std::size_t offset,
                     BufferPlace& place) {
    if (gone()) return -ENODEV;
    if (!queue_) return -EINVAL;
    if (const int error = fault(Call::mmap)) return error;
    return queue_->place(length, protection, flags, offset, place);
}

void VideoNode::abandon() {
    lock_.reset();
    tokens_.hangUp();
}

// The first to set up a stream keeps the camera until its last descriptor and mapping are gone, or
// it frees its ring.
int VideoNode::acquire() {
    const std::lock_guard lock(ownership_);
    if (!owner_) owner_ = tryOwnCamera(lock_.get(), ref_);
    return owner_ ? 0 : -EBUSY;
}

// The driver makes no difference between a camera of somebody else and one of nobody.
int VideoNode::checkOwner() const {
    return owner_ ? 0 : -EBUSY;
}

int VideoNode::checkPriority() {
    const std::lock_guard lock(ownership_);
    return priority_ < highestPriority(ref_) ? -EBUSY : 0;
}

int VideoNode::queryCapability(v4l2_capability& argument) {
    argument = {};
    argument.version = kKernelVersion;
    if (ref_.kind == NodeKind::foreign) {
        const StateLock state;
        copyText(argument.driver, sizeof argument.driver, "vivid");
        copyText(argument.card, sizeof argument.card, state->foreign[ref_.index].card.data());
        std::snprintf(reinterpret_cast<char*>(argument.bus_info), sizeof argument.bus_info,
                      "platform:vivid-%03u", ref_.index);
        argument.device_caps = kNodeAbilities | V4L2_CAP_VIDEO_CAPTURE;
        argument.capabilities = argument.device_caps | V4L2_CAP_DEVICE_CAPS;
        return 0;
    }
    copyText(argument.driver, sizeof argument.driver, "uvcvideo");
    copyText(argument.card, sizeof argument.card, config().card.data());
    std::snprintf(reinterpret_cast<char*>(argument.bus_info), sizeof argument.bus_info,
                  "usb-vhci_hcd.0-%u", ref_.index + 1);
    argument.device_caps = kNodeAbilities;
    argument.device_caps |= isCapture() ? V4L2_CAP_VIDEO_CAPTURE : V4L2_CAP_META_CAPTURE;
    // `capabilities` is what the camera's nodes can do together.
    argument.capabilities =
        kNodeAbilities | V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_META_CAPTURE | V4L2_CAP_DEVICE_CAPS;
    return 0;
}

int VideoNode::getPriority(std::uint32_t& argument) {
    argument = highestPriority(ref_);
    return 0;
}

int VideoNode::setPriority(std::uint32_t& argument) {
    if (argument < V4L2_PRIORITY_BACKGROUND || argument > V4L2_PRIORITY_RECORD) return -EINVAL;
    const std::lock_guard lock(ownership_);
    setPriorityLevel(lock_.get(), ref_, priority_, argument);
    priority_ = argument;
    return 0;
}

int VideoNode::enumInput(v4l2_input& argument) {
    if (argument.index != 0) return -EINVAL;
    argument = {};
    copyText(argument.name, sizeof argument.name, "Input 1");
    argument.type = V4L2_INPUT_TYPE_CAMERA;
    return 0;
}

int VideoNode::getInput(int& argument) {
    argument = 0;
    return 0;
}

int VideoNode::setInput(int& argument) {
    if (const int error = acquire()) return error;
    return argument == 0 ? 0 : -EINVAL;
}

int VideoNode::requestBuffers(v4l2_requestbuffers& argument) {
    if (const int error = acquire()) return error;
    const bool freeing = argument.count == 0;
    const int result = queue_->request(argument);
    if (result == 0 && freeing) {
        const std::lock_guard lock(ownership_);
        disownCamera(lock_.get(), ref_);
        owner_ = false;
    }
    return result;
}

int VideoNode::createBuffers(v4l2_create_buffers& argument) {
    if (const int error = acquire()) return error;
    return queue_->create(argument);
}

int VideoNode::queryBuffer(v4l2_buffer& argument) {
    if (const int error = checkOwner()) return error;
    return queue_->query(argument);
}

int VideoNode::queueBuffer(v4l2_buffer& argument) {
    if (const int error = checkOwner()) return error;
    return queue_->queue(argument);
}

int VideoNode::dequeueBuffer(v4l2_buffer& argument) {
    if (const int error = checkOwner()) return error;
    return queue_->dequeue(argument);
}

int VideoNode::streamOn(int& type) {
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    if (const int error = checkOwner()) return error;
    return queue_->streamOn();
}

int VideoNode::streamOff(int& type) {
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    if (const int error = checkOwner()) return error;
    return queue_->streamOff();
}

}  // namespace hx::sim
