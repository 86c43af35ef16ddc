// SPDX-License-Identifier: MIT
// hx-capture-child: runs the camera library for one camera, in a process that its parent can end.
//
// The library's dequeue and close have no time-out, exceptions pass out of its functions or end the
// process, and its messages go to standard error. All of that stays in here. Everything that the
// parent learns comes through the control socket, the frame ring and the standard error pipe.
#include <fcntl.h>
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
#include <string>
#include <string_view>
#include <thread>

#include "api/hx_camera.h"
#include "child_protocol.h"
#include "frame_ring.h"
#include "node_filter.h"
#include "unique_fd.h"

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

/// Standard error of this process turned aside for a moment, to learn what a call prints.
class Overheard {
  public:
    Overheard() : saved_(dup(STDERR_FILENO)) {
        int pair[2];
        if (!saved_ || pipe2(pair, O_CLOEXEC | O_NONBLOCK) != 0) return;
        in_.reset(pair[0]);
        dup2(pair[1], STDERR_FILENO);
        close(pair[1]);
    }
    Overheard(const Overheard&) = delete;
    Overheard& operator=(const Overheard&) = delete;

    /// Passes on what was printed, and returns it.
    std::string end() {
        std::string text(4096, '\0');
        if (!in_) return "";
        dup2(saved_.get(), STDERR_FILENO);
        const ssize_t size = read(in_.get(), text.data(), text.size());
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        return text;
    }

  private:
    hx::UniqueFd saved_;
    hx::UniqueFd in_;
};

// "cannot set the exposure time" in Chinese, GBK: the only sign of a camera that refused.
constexpr char kExposureMessage[] =
    "\xCE\xDE\xB7\xA8\xC9\xE8\xD6\xC3\xC6\xD8\xB9\xE2\xCA\xB1\xBC\xE4";

int setExposure(HxCameraContextTag* camera, unsigned int exposure) {
    Overheard messages;
    const int result = controlHxCamera(camera, HX_CMD_SET_EXPOSURE, &exposure);
    const bool refused = messages.end().find(kExposureMessage) != std::string::npos;
    return refused ? int{HX_REFUSED} : result;
}

// Sets the exposure on a stream of its own. Enumeration starts the stream, so its first frames are
// older than any exposure that is set afterwards; those of the next enumeration are not.
std::optional<Word> applyExposure(unsigned int exposure) {
    Cameras cameras;
    if (!cameras.find()) return Word::noCamera;
    openHxCamera(cameras.first(), false);
    if (setExposure(cameras.first(), exposure) != HX_OK) return Word::exposureRefused;
    return std::nullopt;
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
    Message answer{.word = Word::answer, .id = request.id, .value = request.value};
    answer.result = request.word == Word::setExposure
                        ? setExposure(camera, request.value)
                        : controlHxCamera(camera, HX_CMD_GET_EXPOSURE, &answer.value);
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
    std::optional<Word> refusal;
    if (settings.exposure) refusal = applyExposure(*settings.exposure);
    Cameras cameras;
    if (!refusal && !cameras.find()) refusal = Word::noCamera;
    if (refusal) {
        say({.word = *refusal});
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
