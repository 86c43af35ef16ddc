// SPDX-License-Identifier: MIT
// hx-capture-child: runs the camera library for one camera, in a process that its parent can end.
//
// The library's dequeue and close have no time-out, exceptions pass out of its functions or end the
// process, and its messages go to standard error. All of that stays in here. Everything that the
// parent learns comes through the control socket, the frame ring and the standard error pipe.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <exception>
#include <optional>
#include <string_view>
#include <thread>

#include "api/hx_camera.h"
#include "child_protocol.h"
#include "frame_ring.h"
#include "node_filter.h"

namespace {

using hx::child::Message;
using hx::child::Word;

struct Settings {
    bool push = true;
    hx::RingShape ring;
    std::optional<unsigned int> exposure;
};

template <class Number>
bool readNumber(const char* text, Number& number) {
    const char* const end = text + std::strlen(text);
    const auto [rest, fault] = std::from_chars(text, end, number);
    return fault == std::errc() && rest == end;
}

bool readSettings(char** argv, Settings& settings) {
    const std::string_view mode = argv[hx::child::argMode];
    settings.push = mode == hx::child::kPush;
    if (!settings.push && mode != hx::child::kPull) return false;
    if (!readNumber(argv[hx::child::argSlots], settings.ring.slots)) return false;
    if (!readNumber(argv[hx::child::argSlotBytes], settings.ring.slotBytes)) return false;

    const char* const exposure = argv[hx::child::argExposure];
    if (std::strcmp(exposure, hx::child::kKeepExposure) == 0) return true;
    return readNumber(exposure, settings.exposure.emplace());
}

void say(Message message) {
    // A parent that is gone is noticed by the watcher.
    send(hx::child::fdControl, &message, sizeof message, MSG_NOSIGNAL);
}

void copyText(Message& message, const char* text) {
    std::strncpy(message.text, text, sizeof message.text - 1);
}

// Ends the process when the parent's end of the socket closes, also while the library blocks.
void watchParent() {
    std::thread([] {
        pollfd control{hx::child::fdControl, 0, 0};
        while (poll(&control, 1, -1) < 0 && errno == EINTR) {
        }
        _exit(0);
    }).detach();
}

/// Puts containers into the ring. In push mode deliver() runs on the library's capture thread,
/// which a wait would make lose or tear frames: it copies and returns.
class FrameSink {
  public:
    explicit FrameSink(const hx::RingShape& shape)
        : mapping_(hx::child::fdRing, shape), writer_(mapping_.data(), shape) {}

    void deliver(const unsigned char* data, unsigned long size) {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        const auto result = writer_.put(
            {data, size}, std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
        if (result == hx::FrameWriter::Result::stored) notify();
        if (result == hx::FrameWriter::Result::tooLong) {
            Message message{.word = Word::tooLong};
            message.value = static_cast<std::uint32_t>(std::min<unsigned long>(size, UINT32_MAX));
            say(message);
        }
    }

    static void onFrame(unsigned char* data, unsigned long size, void* sink) {
        static_cast<FrameSink*>(sink)->deliver(data, size);
    }

  private:
    static void notify() {
        const std::uint64_t one = 1;
        // Not blocking; a full counter has woken the parent already.
        [[maybe_unused]] const ssize_t written = write(hx::child::fdReady, &one, sizeof one);
    }

    hx::RingMapping mapping_;
    hx::FrameWriter writer_;
};

/// The cameras that one enumeration found: one, as only one node is shown.
class Cameras {
  public:
    Cameras() = default;
    Cameras(const Cameras&) = delete;
    Cameras& operator=(const Cameras&) = delete;
    ~Cameras() {
        if (list_ != nullptr) releaseHxCamera(list_, static_cast<int>(count_));
    }

    bool find() { return enumHxCamera(&list_, &count_) == HX_OK && count_ > 0; }
    HxCameraContextTag* first() const { return list_[0]; }

  private:
    HxCameraContextTag** list_ = nullptr;
    unsigned int count_ = 0;
};

// Sets the exposure on a stream of its own. Enumeration starts the stream, so its first frames are
// older than any exposure that is set afterwards; those of the next enumeration are not. A refusal
// shows in the library's message only.
bool applyExposure(unsigned int exposure) {
    Cameras cameras;
    if (!cameras.find()) return false;
    openHxCamera(cameras.first(), false);
    controlHxCamera(cameras.first(), HX_CMD_SET_EXPOSURE, &exposure);
    return true;
}

void sayStarted(HxCameraContextTag* camera) {
    Message message{.word = Word::started};
    const char* name = "";
    bool lamp = false;
    controlHxCamera(camera, HX_CMD_EXPOSURE_MIN, &message.value);
    controlHxCamera(camera, HX_CMD_EXPOSURE_MAX, &message.high);
    controlHxCamera(camera, HX_CMD_HAS_LAMP, &lamp);
    controlHxCamera(camera, HX_CMD_NAME, &name);
    message.result = lamp ? 1 : 0;
    copyText(message, name);
    say(message);
}

void answerExposure(HxCameraContextTag* camera, const Message& request) {
    const unsigned int command =
        request.word == Word::setExposure ? HX_CMD_SET_EXPOSURE : HX_CMD_GET_EXPOSURE;
    Message answer{.word = Word::answer, .id = request.id, .value = request.value};
    answer.result = controlHxCamera(camera, command, &answer.value);
    say(answer);
}

void takeFrame(HxCameraContextTag* camera, FrameSink& sink) {
    unsigned long size = 0;
    const unsigned char* const data = getHxData(camera, &size);
    if (data == nullptr) {
        say({.word = Word::noFrame});
    } else {
        sink.deliver(data, size);
    }
}

// Serves the parent until it says stop. All calls of the library come from this thread.
void serve(HxCameraContextTag* camera, FrameSink& sink, bool push) {
    for (;;) {
        Message request;
        const ssize_t length = recv(hx::child::fdControl, &request, sizeof request, 0);
        if (length < 0 && errno == EINTR) continue;
        if (length != sizeof request || request.word == Word::stop) return;
        if (request.word == Word::takeFrame && !push) takeFrame(camera, sink);
        if (request.word == Word::setExposure || request.word == Word::getExposure) {
            answerExposure(camera, request);
        }
    }
}

int run(const Settings& settings) {
    FrameSink sink(settings.ring);
    Cameras cameras;
    if ((settings.exposure && !applyExposure(*settings.exposure)) || !cameras.find()) {
        say({.word = Word::noCamera});
        return 1;
    }
    sayStarted(cameras.first());
    if (settings.push) registerHxCameraCallback(cameras.first(), FrameSink::onFrame, &sink);
    openHxCamera(cameras.first(), settings.push);
    serve(cameras.first(), sink, settings.push);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Settings settings;
    if (argc != hx::child::argCount || !readSettings(argv, settings)) {
        constexpr char kUsage[] = "hx-capture-child is started by programs that capture.\n";
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kUsage, sizeof kUsage - 1);
        return 2;
    }
    hx::showOnlyNode(argv[hx::child::argNode]);
    watchParent();
    try {
        return run(settings);
    } catch (const std::exception& fault) {
        Message message{.word = Word::threw};
        copyText(message, fault.what());
        say(message);
        return 1;
    }
}
