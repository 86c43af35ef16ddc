// SPDX-License-Identifier: MIT
// A camera as a USB device at the end of a USB/IP connection, served by a thread of its own.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "simulator/camera_state.h"
#include "unique_descriptor.h"
#include "usb_descriptors.h"
#include "usbip_socket.h"
#include "uvc_control.h"
#include "uvc_stream.h"

namespace hx::sim::usb {

struct CameraStatus {
    bool streaming = false;
    bool paused = false;
    std::int64_t framesOfStream = 0;
    std::int64_t framesOfLife = 0;
    std::int32_t exposure = 0;
    bool leftAsPlanned = false;  // by unplugAt() or the configuration, not by the host
};

class UsbCamera {
  public:
    // `left` is called on the camera's thread each time it is no longer connected without having
    // been told so.
    UsbCamera(const CameraConfig& config, std::function<void()> left);
    ~UsbCamera();
    UsbCamera(const UsbCamera&) = delete;
    UsbCamera& operator=(const UsbCamera&) = delete;

    // Powers the camera up and serves the host at the other end of `socket`, which it owns from
    // here on.
    void connect(int socket);
    // Unplugs it and waits until the host has read all that was sent.
    void disconnect();
    bool connected() const;

    CameraStatus status() const;
    CameraConfig config() const;

    // Everything below holds for a connected camera at once. False: `config` is not what the host
    // was told when the camera was connected.
    bool change(const CameraConfig& config);
    void pause(bool wanted);
    // Unplugs it after so many frames of the running stream, or of the next one. False: they are
    // over.
    bool unplugAt(std::int64_t frames, UnplugMoment moment);

  private:
    using Clock = UvcStream::Clock;
    using Lock = std::unique_lock<std::mutex>;

    struct LateAnswer {
        Submit request;
        Bytes data;
        Clock::time_point due;
    };

    void serve();
    bool serveOnce(Lock& lock);
    bool awaitWork(Lock& lock);
    std::optional<Clock::time_point> nextDeadline() const;
    void handle(const Request& request);
    void handleTransfer(const Submit& request);
    void handleUnlink(const Unlink& request);
    void answerLate();
    void sendFrames();
    void answerControl(const Submit& request, int status, const Bytes& data);
    Reply standardReply(const usb_ctrlrequest& setup);
    void wake();

    const std::function<void()> left_;
    UniqueDescriptor wake_;

    mutable std::mutex mutex_;  // guards all below
    Camera camera_ = {};
    UvcControl control_;
    UvcStream stream_;
    std::optional<UsbDescriptors> descriptors_;
    std::optional<UsbipSocket> socket_;
    std::vector<LateAnswer> late_;
    std::uint8_t configured_ = 0;
    bool leaving_ = false;
    bool serving_ = false;
    bool leftAsPlanned_ = false;

    std::thread thread_;
};

}  // namespace hx::sim::usb
