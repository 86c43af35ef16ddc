// SPDX-License-Identifier: MIT
// Frames from one camera, captured in a child process that can be ended whatever the camera does.
//
//     hx::CaptureSession session({.node = "/dev/video0"});
//     for (;;) {
//         const hx::CaptureEvent event = session.wait(std::chrono::seconds(5));
//         if (event.kind == hx::CaptureEvent::Kind::frame) use(event.container);
//         if (event.kind == hx::CaptureEvent::Kind::ended) break;
//     }
//
// Nothing here prints or blocks without a bound. One thread at a time for one session; sessions are
// independent of each other, also two of them on two cameras in one process.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>

#include "capture_error.h"
#include "child_process.h"
#include "child_protocol.h"
#include "frame_ring.h"
#include "message_text.h"

namespace hx {

enum class CaptureMode {
    push,  ///< every frame, as the camera delivers them
    pull,  ///< one frame for each wait(); the driver hands out the oldest of its ring
};

struct CaptureOptions {
    std::string node;  ///< e.g. "/dev/video0": the only camera that is touched
    CaptureMode mode = CaptureMode::push;
    /// In force from the first frame on. Costs a second start of the stream.
    std::optional<std::uint32_t> exposure = std::nullopt;
    RingShape ring = {};
    std::string childProgram = {};  ///< empty: findCaptureChild()
    int interruptFd = -1;           ///< ends a wait() when readable; stays the caller's
};

/// What the library says of the camera once it streams.
struct CaptureCamera {
    std::string name;
    std::uint32_t exposureMin = 0;
    std::uint32_t exposureMax = 0;
    bool lamp = false;
};

enum class CaptureEnd {
    none,
    noCamera,         ///< the library could not start a camera on the node; its messages say why
    exposureRefused,  ///< the exposure to begin with
    cameraLost,       ///< during work
    childFailed,      ///< the child ended or spoke nonsense; CaptureEvent::text says how
};

struct CaptureEvent {
    enum class Kind {
        started,      ///< the camera streams; camera() is filled
        frame,        ///< container, takenNs
        lost,         ///< lostFrames frames had no room in the ring: the reader was too slow
        message,      ///< text: one line that the library printed
        ended,        ///< end, text: no frame will come any more
        timeout,      ///< nothing happened in the time given
        interrupted,  ///< interruptFd is readable, or a signal handler ran
    };
    Kind kind = Kind::timeout;
    std::span<const std::byte> container =
        {};                    ///< shared memory: until the next wait() or release()
    std::int64_t takenNs = 0;  ///< CLOCK_MONOTONIC, when the library handed it out
    std::uint64_t lostFrames = 0;
    std::string text = {};
    CaptureEnd end = CaptureEnd::none;
};

struct CaptureStatistics {
    std::uint64_t received = 0;
    std::uint64_t lost = 0;  ///< between child and parent; what the driver lost is not known
};

class CaptureSession {
  public:
    /// Starts the child. Throws CaptureError, and std::invalid_argument for a ring without room.
    explicit CaptureSession(const CaptureOptions& options);
    CaptureSession(const CaptureSession&) = delete;
    CaptureSession& operator=(const CaptureSession&) = delete;
    /// Kills what still runs; stop() before is the orderly way.
    ~CaptureSession();

    /// Waits for the next event. Frames that came before the end are handed out before it.
    CaptureEvent wait(std::chrono::milliseconds timeout);

    /// Gives the frame of the last wait() back before the next one does.
    void release();

    /// For poll() loops: readable when something new has come. Then call wait() with no time until
    /// it returns timeout.
    int fd() const { return epoll_.get(); }

    /// Sets the exposure. False: the camera refused. The driver clamps silently.
    /// @throws CaptureError when no answer came in time, or on an interrupt
    bool setExposure(std::uint32_t exposure, std::chrono::milliseconds timeout);

    /// The exposure as the library knows it; cameras that report it inside the frame: that of the
    /// last frame taken. Nothing when the library refuses.
    /// @throws CaptureError when no answer came in time, or on an interrupt
    std::optional<std::uint32_t> exposure(std::chrono::milliseconds timeout);

    /// Ends the child: asks it, and kills it after `grace`. False when it had to be killed.
    bool stop(std::chrono::milliseconds grace);

    const CaptureCamera& camera() const { return camera_; }
    const CaptureStatistics& statistics() const { return statistics_; }
    /// The last lines that the child printed, oldest first, as UTF-8.
    const std::deque<std::string>& messages() const { return messages_; }

  private:
    using Clock = std::chrono::steady_clock;

    void watch(int fd);
    void forget(int fd);
    void pump(std::chrono::milliseconds patience);
    void readMessages();
    void readControl();
    void hear(const child::Message& message);
    void readEnding();
    void keepLine(std::string line);
    void end(CaptureEnd reason, std::string text = {});
    std::optional<CaptureEvent> nextEvent();
    std::optional<CaptureEvent> nextFrame();
    void send(const child::Message& message);
    child::Message ask(child::Word word, std::uint32_t value, std::chrono::milliseconds timeout);

    CaptureOptions options_;
    ChildProcess child_;
    UniqueFd epoll_;
    RingMapping mapping_;
    FrameReader reader_;
    LineBuffer lines_;

    std::deque<std::string> messages_;
    std::size_t unreadMessages_ = 0;
    CaptureCamera camera_;
    CaptureStatistics statistics_;
    CaptureEnd end_ = CaptureEnd::none;
    std::string endText_;
    std::optional<child::Message> answer_;
    std::uint64_t nextNumber_ = 0;
    std::uint32_t lastRequest_ = 0;
    bool running_ = false;  ///< the child said started
    bool startedUnread_ = false;
    bool frameHeld_ = false;
    bool frameAsked_ = false;  ///< pull: takeFrame was said and not answered
    bool interrupted_ = false;
    bool messagesClosed_ = false;
    bool broken_ = false;  ///< the ring holds nonsense and is not looked at again
};

}  // namespace hx
