// SPDX-License-Identifier: MIT
// One opened node of a simulated device and its answers to ioctl: the state machine of V4L2.
#pragma once

#include <linux/uvcvideo.h>
#include <linux/videodev2.h>

#include <atomic>
#include <mutex>
#include <optional>

#include "buffer_queue.h"
#include "controls.h"
#include "extension_unit.h"
#include "fault_plan.h"
#include "state_link.h"
#include "token_pipe.h"

namespace hx::sim {

// Lives as long as a descriptor or a mapping of it does, like the kernel's open file. Results are 0
// or -errno.
class VideoNode {
  public:
    explicit VideoNode(const NodeRef& ref);

    // Returns the program's descriptor, or -errno.
    int open(int flags);

    // `argument` is the program's pointer.
    int ioctl(std::uint32_t request, void* argument);

    // What a mapping of a buffer would be made of.
    int place(std::size_t length, int protection, int flags, std::size_t offset,
              BufferPlace& place);
    int beforeUnmap() { return fault(Call::munmap); }

    // For a forked child: lets go of the camera without touching the threads that are not there.
    void abandon();

    // Whether `descriptor` is still this node's.
    bool is(int descriptor) const { return tokens_.is(descriptor); }
    const NodeRef& reference() const { return ref_; }

  private:
    friend struct NodeRequests;

    bool gone();
    int fault(Call call);
    int acquire();
    int checkOwner() const;
    int checkPriority();

    int queryCapability(v4l2_capability& argument);
    int getPriority(std::uint32_t& argument);
    int setPriority(std::uint32_t& argument);
    int enumInput(v4l2_input& argument);
    int getInput(int& argument);
    int setInput(int& argument);

    int enumFormat(v4l2_fmtdesc& argument);
    int enumFrameSize(v4l2_frmsizeenum& argument);
    int enumFrameInterval(v4l2_frmivalenum& argument);
    int getFormat(v4l2_format& argument);
    int tryFormat(v4l2_format& argument);
    int setFormat(v4l2_format& argument);
    int getSelection(v4l2_selection& argument);
    int getCropLimits(v4l2_cropcap& argument);
    int getParameters(v4l2_streamparm& argument);
    int setParameters(v4l2_streamparm& argument);

    int requestBuffers(v4l2_requestbuffers& argument);
    int createBuffers(v4l2_create_buffers& argument);
    int queryBuffer(v4l2_buffer& argument);
    int queueBuffer(v4l2_buffer& argument);
    int dequeueBuffer(v4l2_buffer& argument);
    int streamOn(int& type);
    int streamOff(int& type);

    int queryControl(v4l2_queryctrl& argument) { return controls_.query(argument); }
    int queryExtControl(v4l2_query_ext_ctrl& argument) { return controls_.queryExtended(argument); }
    int queryMenu(v4l2_querymenu& argument) { return controls_.queryMenu(argument); }
    int getControl(v4l2_control& argument) { return controls_.get(argument); }
    int setControl(v4l2_control& argument) { return controls_.set(argument); }
    int getExtControls(v4l2_ext_controls& argument) { return controls_.getMany(argument); }
    int setExtControls(v4l2_ext_controls& argument) { return controls_.setMany(argument); }
    int tryExtControls(v4l2_ext_controls& argument) { return controls_.tryMany(argument); }
    int queryUnit(uvc_xu_control_query& argument) {
        return queryExtensionUnit(ref_.index, argument);
    }

    const CameraConfig& config() const { return cameraConfig(ref_.index); }
    bool isCapture() const { return ref_.kind == NodeKind::capture; }

    const NodeRef ref_;
    OwnedDescriptor lock_;
    TokenPipe tokens_;
    Controls controls_;
    std::optional<BufferQueue> queue_;  // of capture nodes
    std::mutex ownership_;
    std::atomic<bool> owner_{false};
    std::uint32_t priority_ = V4L2_PRIORITY_DEFAULT;  // under ownership_
};

}  // namespace hx::sim
