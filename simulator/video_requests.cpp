// SPDX-License-Identifier: MIT
// Which request goes where, and the road of its argument into the simulator and back.
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "user_memory.h"
#include "video_node.h"

namespace hx::sim {

namespace {

constexpr std::uint32_t kMaxExtControls = 1024;

// What is special about a request.
enum Manners : unsigned {
    kGuarded = 1,         // not for a node of lower priority than another one
    kAnswersOnError = 2,  // the argument is copied back even then
};

// Nodes that have a request.
enum Nodes : unsigned { kCapture = 1, kMetadata = 2, kForeign = 4, kCamera = 3, kAll = 7 };

unsigned nodesOf(NodeKind kind) {
    switch (kind) {
        case NodeKind::capture:
            return kCapture;
        case NodeKind::metadata:
            return kMetadata;
        default:
            return kForeign;
    }
}

}  // namespace

struct NodeRequests {
    struct Entry {
        int (*run)(VideoNode&, void*);
        std::uint32_t request;
        unsigned nodes;
        Call fault;  // Call::count: takes none
        unsigned manners = 0;
    };

    template <auto Method, typename Argument>
    static int invoke(VideoNode& node, void* argument) {
        return (node.*Method)(*static_cast<Argument*>(argument));
    }

    template <auto Method>
    static int invokeExtControls(VideoNode& node, void* argument) {
        auto& controls = *static_cast<v4l2_ext_controls*>(argument);
        if (controls.count > kMaxExtControls) return -EINVAL;
        const auto bytes = controls.count * sizeof(v4l2_ext_control);
        if (controls.count > 0 && !userMemoryMapped(controls.controls, bytes)) return -EFAULT;
        return (node.*Method)(controls);
    }

    static const Entry* find(std::uint32_t request, NodeKind kind);
    static int run(const Entry& entry, VideoNode& node, void* argument);
};

const NodeRequests::Entry* NodeRequests::find(std::uint32_t request, NodeKind kind) {
    using Node = VideoNode;
    constexpr Call kNoFault = Call::count;
    static constexpr Entry kEntries[] = {
        {&invoke<&Node::queryCapability, v4l2_capability>, VIDIOC_QUERYCAP, kAll,
         Call::queryCapability},
        {&invoke<&Node::getPriority, std::uint32_t>, VIDIOC_G_PRIORITY, kCamera, kNoFault},
        {&invoke<&Node::setPriority, std::uint32_t>, VIDIOC_S_PRIORITY, kCamera, kNoFault,
         kGuarded},
        {&invoke<&Node::enumInput, v4l2_input>, VIDIOC_ENUMINPUT, kCapture, kNoFault},
        {&invoke<&Node::getInput, int>, VIDIOC_G_INPUT, kCapture, kNoFault},
        {&invoke<&Node::setInput, int>, VIDIOC_S_INPUT, kCapture, kNoFault, kGuarded},
        {&invoke<&Node::enumFormat, v4l2_fmtdesc>, VIDIOC_ENUM_FMT, kCamera, kNoFault},
        {&invoke<&Node::enumFrameSize, v4l2_frmsizeenum>, VIDIOC_ENUM_FRAMESIZES, kCapture,
         kNoFault},
        {&invoke<&Node::enumFrameInterval, v4l2_frmivalenum>, VIDIOC_ENUM_FRAMEINTERVALS, kCapture,
         kNoFault},
        {&invoke<&Node::getFormat, v4l2_format>, VIDIOC_G_FMT, kCamera, kNoFault},
        {&invoke<&Node::tryFormat, v4l2_format>, VIDIOC_TRY_FMT, kCamera, kNoFault},
        {&invoke<&Node::setFormat, v4l2_format>, VIDIOC_S_FMT, kCamera, Call::setFormat, kGuarded},
        {&invoke<&Node::getSelection, v4l2_selection>, VIDIOC_G_SELECTION, kCapture, kNoFault},
        {&invoke<&Node::getCropLimits, v4l2_cropcap>, VIDIOC_CROPCAP, kCapture, kNoFault},
        {&invoke<&Node::getParameters, v4l2_streamparm>, VIDIOC_G_PARM, kCapture, kNoFault},
        {&invoke<&Node::setParameters, v4l2_streamparm>, VIDIOC_S_PARM, kCapture, kNoFault,
         kGuarded},
        {&invoke<&Node::requestBuffers, v4l2_requestbuffers>, VIDIOC_REQBUFS, kCapture,
         Call::requestBuffers, kGuarded},
        {&invoke<&Node::createBuffers, v4l2_create_buffers>, VIDIOC_CREATE_BUFS, kCapture, kNoFault,
         kGuarded},
        {&invoke<&Node::queryBuffer, v4l2_buffer>, VIDIOC_QUERYBUF, kCapture, Call::queryBuffer},
        {&invoke<&Node::queueBuffer, v4l2_buffer>, VIDIOC_QBUF, kCapture, Call::queueBuffer},
        {&invoke<&Node::dequeueBuffer, v4l2_buffer>, VIDIOC_DQBUF, kCapture, Call::dequeueBuffer},
        {&invoke<&Node::streamOn, int>, VIDIOC_STREAMON, kCapture, Call::streamOn, kGuarded},
        {&invoke<&Node::streamOff, int>, VIDIOC_STREAMOFF, kCapture, Call::streamOff, kGuarded},
        {&invoke<&Node::queryControl, v4l2_queryctrl>, VIDIOC_QUERYCTRL, kCapture,
         Call::queryControl},
        {&invoke<&Node::queryExtControl, v4l2_query_ext_ctrl>, VIDIOC_QUERY_EXT_CTRL, kCapture,
         kNoFault},
        {&invoke<&Node::queryMenu, v4l2_querymenu>, VIDIOC_QUERYMENU, kCapture, kNoFault},
        {&invoke<&Node::getControl, v4l2_control>, VIDIOC_G_CTRL, kCapture, Call::getControl},
        {&invoke<&Node::setControl, v4l2_control>, VIDIOC_S_CTRL, kCapture, Call::setControl,
         kGuarded},
        {&invokeExtControls<&Node::getExtControls>, VIDIOC_G_EXT_CTRLS, kCapture, kNoFault,
         kAnswersOnError},
        {&invokeExtControls<&Node::setExtControls>, VIDIOC_S_EXT_CTRLS, kCapture, kNoFault,
         kGuarded | kAnswersOnError},
        {&invokeExtControls<&Node::tryExtControls>, VIDIOC_TRY_EXT_CTRLS, kCapture, kNoFault,
         kAnswersOnError},
        {&invoke<&Node::queryUnit, uvc_xu_control_query>, UVCIOC_CTRL_QUERY, kCapture,
         Call::extensionUnit},
    };
    const auto nodes = nodesOf(kind);
    const auto* found = std::find_if(std::begin(kEntries), std::end(kEntries), [&](auto& entry) {
        return entry.request == request && (entry.nodes & nodes);
    });
    return found == std::end(kEntries) ? nullptr : found;
}

// Works on a copy, like the kernel: a request that fails leaves the program's argument alone.
int NodeRequests::run(const Entry& entry, VideoNode& node, void* argument) {
    alignas(std::max_align_t) std::array<std::byte, 256> copy;
    const std::size_t size = _IOC_SIZE(entry.request);
    if (!userMemoryMapped(argument, size)) return -EFAULT;
    std::memcpy(copy.data(), argument, size);
    const int result = entry.run(node, copy.data());
    const bool answered = _IOC_DIR(entry.request) & _IOC_READ;
    if (answered && (result >= 0 || (entry.manners & kAnswersOnError))) {
        std::memcpy(argument, copy.data(), size);
    }
    return result;
}

int VideoNode::ioctl(std::uint32_t request, void* argument) {
    if (gone()) return -ENODEV;
    const auto* entry = NodeRequests::find(request, ref_.kind);
    if (!entry) return -ENOTTY;
    if (entry->fault != Call::count) {
        if (const int error = fault(entry->fault)) return error;
    }
    if (entry->manners & kGuarded) {
        if (const int error = checkPriority()) return error;
    }
    return NodeRequests::run(*entry, *this, argument);
}

}  // namespace hx::sim
