// SPDX-License-Identifier: MIT
// The frames of a camera on their way to the host: when a frame is made, and how it is cut to the
// transfers that wait for it. Knows time only as what it is told.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "simulator/camera_state.h"
#include "simulator/frame_source.h"
#include "usbip_socket.h"

namespace hx::sim::usb {

class UvcStream {
  public:
    using Clock = std::chrono::steady_clock;

    // An answered transfer. `data` is valid until the next frame begins.
    struct Piece {
        Submit transfer;
        std::span<const std::byte> data;
        bool endsFrame = false;
    };

    // `camera` stays the caller's, who may change it between calls.
    explicit UvcStream(Camera& camera) : camera_(camera) {}

    void start(Clock::time_point now);
    void stop();
    // As plugged in: no stream, nothing waits, no pause.
    void reset();
    void pause(bool wanted, Clock::time_point now);
    // The rate may have changed.
    void paceAnew(Clock::time_point now);

    void take(Submit transfer) { waiting_.push_back(std::move(transfer)); }
    // True if the transfer was still waiting; it is forgotten then.
    bool drop(std::uint32_t sequence);

    std::optional<Piece> next(Clock::time_point now);
    // The camera is to go now.
    bool unplugDue(Clock::time_point now) const;
    // When next() or unplugDue() may change by the passing of time alone.
    std::optional<Clock::time_point> wakeTime() const;

    bool running() const { return source_ != nullptr; }
    bool paused() const { return paused_; }
    std::int64_t framesSent() const { return sent_; }

  private:
    bool frameAllowed() const;
    bool beginFrame(Clock::time_point now);
    void endFrame(Clock::time_point now);
    bool unplugPlanned() const;

    Camera& camera_;
    std::deque<Submit> waiting_;
    std::unique_ptr<FrameSource> source_;  // while the stream runs
    std::vector<std::byte> payload_;
    std::size_t position_ = 0;  // in payload_; 0: between frames
    std::int64_t sent_ = 0;     // whole frames of this stream
    std::uint8_t frameId_ = 0;
    bool paused_ = false;
    Clock::time_point due_;        // of the next frame
    Clock::time_point lastEnded_;  // end of the last frame, or start of the stream
};

}  // namespace hx::sim::usb
