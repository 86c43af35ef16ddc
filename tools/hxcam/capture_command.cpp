// SPDX-License-Identifier: MIT
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <string_view>

#include "camera_choice.h"
#include "capture/capture_session.h"
#include "codec/hx_container.h"
#include "commands.h"
#include "exit_code.h"
#include "frame_output.h"
#include "terminal.h"

namespace hxcam {
namespace {

using Clock = std::chrono::steady_clock;
using Kind = hx::CaptureEvent::Kind;
using std::chrono::milliseconds;

/// What was stored, for the summary and the line of progress.
struct Tally {
    std::uint64_t stored = 0;
    std::int64_t firstNs = 0;
    std::int64_t lastNs = 0;
    std::string firstTime;
    std::string lastTime;

    void add(const hx::CaptureEvent& event, const hx::ContainerView& frame) {
        if (stored == 0) {
            firstNs = event.takenNs;
            firstTime = frame.time();
        }
        lastNs = event.takenNs;
        lastTime.assign(frame.time());
        ++stored;
    }

    double rate() const {
        const double seconds = static_cast<double>(lastNs - firstNs) / 1e9;
        return stored > 1 && seconds > 0 ? static_cast<double>(stored - 1) / seconds : 0;
    }
};

std::string frames(std::uint64_t count) {
    return fmt::format("{} {}", count, count == 1 ? "frame" : "frames");
}

/// One line that is written anew, on a terminal only.
class Progress {
  public:
    explicit Progress(bool quiet) : enabled_(!quiet && isatty(STDERR_FILENO) != 0) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { clear(); }

    void show(const Tally& tally, std::uint64_t count, std::uint64_t lost) {
        if (!enabled_ || Clock::now() < next_) return;
        next_ = Clock::now() + milliseconds(200);
        const std::string of = count == 0 ? "" : fmt::format("{} of ", tally.stored);
        fmt::print(stderr, "\r\033[K{}{}, {:.1f} frames/s, {} lost", of,
                   frames(count == 0 ? tally.stored : count), tally.rate(), lost);
        isShown_ = true;
    }

    void clear() {
        if (isShown_) fmt::print(stderr, "\r\033[K");
        isShown_ = false;
    }

  private:
    bool enabled_;
    bool isShown_ = false;
    Clock::time_point next_{};
};

class Capture {
  public:
    Capture(const CaptureCommandOptions& options, const Camera& camera, FrameOutput& output,
            const Interrupt& interrupt)
        : options_(options),
          camera_(camera),
          output_(output),
          progress_(options.quiet),
          session_({.node = camera.node,
                    .mode = options.pull ? hx::CaptureMode::pull : hx::CaptureMode::push,
                    .exposure = options.exposure,
                    .interruptFd = interrupt.fd()}) {}

    int run() {
        int code = exitFailed;
        try {
            code = takeFrames();
        } catch (const CommandError& error) {
            finish(error.code());
            throw;
        } catch (const hx::ContainerFault& fault) {
            finish(exitFailed);
            throw CommandError(
                exitFailed, std::string("the library made a damaged container: ") + fault.what());
        }
        finish(code);
        return code;
    }

  private:
    int takeFrames();
    void store(const hx::CaptureEvent& event);
    int explainEnd(const hx::CaptureEvent& event);
    void checkFirst(const hx::ContainerView& frame) const;
    void finish(int code);
    void showMessages();
    bool tells(const char* text) const;

    const CaptureCommandOptions& options_;
    const Camera& camera_;
    FrameOutput& output_;
    Progress progress_;
    hx::CaptureSession session_;
    Tally tally_;
    Clock::time_point deadline_ = Clock::now() + options_.timeout;
};

int Capture::takeFrames() {
    while (options_.count == 0 || tally_.stored < options_.count) {
        const auto left = std::chrono::ceil<milliseconds>(deadline_ - Clock::now());
        const hx::CaptureEvent event = session_.wait(std::max(left, milliseconds::zero()));
        switch (event.kind) {
            case Kind::frame:
                store(event);
                break;
            case Kind::started:
                deadline_ = Clock::now() + options_.timeout;
                break;
            case Kind::message:
                progress_.clear();
                if (options_.verbose) tell("library: " + shown(event.text));
                break;
            case Kind::lost:
                break;
            case Kind::timeout:
                complain(fmt::format("{}: no frame within {} ms", camera_.node,
                                     options_.timeout.count()));
                return exitTimeout;
            case Kind::interrupted:
                return exitInterrupted;
            case Kind::ended:
                return explainEnd(event);
        }
    }
    return exitOk;
}

void Capture::store(const hx::CaptureEvent& event) {
    const hx::ContainerView frame(event.container);
    if (tally_.stored == 0) checkFirst(frame);
    output_.store(tally_.stored, frame, event.container);
    tally_.add(event, frame);
    progress_.show(tally_, options_.count, session_.statistics().lost);
    deadline_ = Clock::now() + options_.timeout;
}

// Cameras that report their exposure inside the frame have 16 bits for it.
void Capture::checkFirst(const hx::ContainerView& frame) const {
    const std::string_view text = frame.identification();
    if (text != camera_.text) {
        throw CommandError(
            exitFailed, fmt::format("{} is another camera by now: {}", camera_.node, shown(text)));
    }
    if (!options_.exposure) return;
    const std::uint64_t reported = frame.exposure();
    if (reported == *options_.exposure || reported == (*options_.exposure & 0xffff)) return;
    complain(fmt::format("warning: exposure {} was set, the first frame says {}",
                         *options_.exposure, reported));
}

bool Capture::tells(const char* text) const {
    const auto& lines = session_.messages();
    return std::any_of(lines.begin(), lines.end(), [text](const std::string& line) {
        return line.find(text) != std::string::npos;
    });
}

int Capture::explainEnd(const hx::CaptureEvent& event) {
    progress_.clear();
    switch (event.end) {
        case hx::CaptureEnd::cameraLost:
            complain(camera_.node + ": the camera was lost");
            return exitCameraLost;
        case hx::CaptureEnd::noCamera:
            complain(fmt::format("{}: the library cannot start this camera{}", camera_.node,
                                 tells(std::strerror(EBUSY)) ? ", another program uses it" : ""));
            return exitFailed;
        case hx::CaptureEnd::exposureRefused:
            complain(fmt::format("{}: the camera refuses exposure {}", camera_.node,
                                 options_.exposure.value_or(0)));
            return exitFailed;
        default:
            complain(
                fmt::format("{}: the capture process failed: {}", camera_.node, shown(event.text)));
            return exitFailed;
    }
}

void Capture::finish(int code) {
    progress_.clear();
    // Before what still lies in the ring is looked through for messages: frames that nobody wanted
    // any more are no loss.
    const std::uint64_t lost = session_.statistics().lost;
    // A camera that delivers nothing keeps the library's close waiting.
    session_.stop(milliseconds(code == exitTimeout ? 100 : 1000));
    if (options_.verbose || (code != exitOk && code != exitInterrupted)) showMessages();
    if (options_.quiet) return;
    std::string summary = frames(tally_.stored);
    if (tally_.stored > 1) summary += fmt::format(", {:.1f} frames/s", tally_.rate());
    if (tally_.stored > 0) {
        summary +=
            fmt::format(", first {}, last {}", shown(tally_.firstTime), shown(tally_.lastTime));
    }
    tell(fmt::format("{}, {} lost", summary, lost));
}

// What was not shown while it came.
void Capture::showMessages() {
    if (!options_.verbose) {
        for (const std::string& line : session_.messages()) tell("library: " + shown(line));
        return;
    }
    for (;;) {
        const hx::CaptureEvent event = session_.wait(milliseconds::zero());
        if (event.kind == Kind::message) tell("library: " + shown(event.text));
        if (event.kind == Kind::timeout || event.kind == Kind::ended) return;
    }
}

void checkRange(const CaptureCommandOptions& options, const Camera& camera) {
    if (!options.exposure) return;
    const std::int64_t wanted = *options.exposure;
    if (wanted >= camera.exposure.min && wanted <= camera.exposure.max) return;
    throw CommandError(
        exitUsage, fmt::format("exposure {} is outside of this camera's range, {} to {}", wanted,
                               camera.exposure.min, camera.exposure.max));
}

}  // namespace

int runCapture(const CaptureCommandOptions& options, const Interrupt& interrupt) {
    const Camera camera = chooseCamera(options.camera, options.timeout, interrupt);
    checkRange(options, camera);
    const std::unique_ptr<FrameOutput> output = openOutput(options, interrupt);
    return Capture(options, camera, *output, interrupt).run();
}

}  // namespace hxcam
