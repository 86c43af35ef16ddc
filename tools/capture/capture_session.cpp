// SPDX-License-Identifier: MIT
#include "capture_session.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

namespace hx {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kKeptMessages = 200;

std::vector<std::string> childArguments(const CaptureOptions& options) {
    const std::string program =
        options.childProgram.empty() ? findCaptureChild() : options.childProgram;
    const std::string name = options.node.substr(options.node.rfind('/') + 1);
    const bool push = options.mode == CaptureMode::push;
    return {program,
            name,
            push ? child::kPush : child::kPull,
            std::to_string(options.ring.slots),
            std::to_string(options.ring.slotBytes),
            options.exposure ? std::to_string(*options.exposure) : child::kKeepExposure};
}

// The library's words about a camera that it lost: dequeue and re-queue. It says them at no other
// time.
bool tellsOfLoss(const std::string& line) {
    return line.starts_with("-1: ") || line.starts_with("-2: ");
}

bool isAnswerable(const child::Message& message) {
    return message.word >= child::kFirstToParent && message.word <= child::kLast &&
           std::memchr(message.text, '\0', sizeof message.text) != nullptr;
}

milliseconds timeLeft(std::chrono::steady_clock::time_point deadline) {
    const auto left = deadline - std::chrono::steady_clock::now();
    return std::max(std::chrono::ceil<milliseconds>(left), milliseconds::zero());
}

}  // namespace

CaptureSession::CaptureSession(const CaptureOptions& options)
    : options_(options),
      child_(childArguments(options), ringBytes(options.ring)),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      mapping_(child_.channels().ring.get(), options.ring),
      reader_(mapping_.data(), options.ring) {
    const ChildChannels& channels = child_.channels();
    for (const int fd : {channels.control.get(), channels.ready.get(), channels.errors.get(),
                         child_.exitFd(), options.interruptFd}) {
        if (fd >= 0) watch(fd);
    }
}

CaptureSession::~CaptureSession() = default;

void CaptureSession::watch(int fd) {
    epoll_event event{.events = EPOLLIN, .data = {.fd = fd}};
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        throw CaptureError(std::string("cannot watch the capture process: ") +
                           std::strerror(errno));
    }
}

void CaptureSession::forget(int fd) {
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
}

CaptureEvent CaptureSession::wait(milliseconds timeout) {
    release();
    if (options_.mode == CaptureMode::pull && running_ && !frameAsked_) {
        frameAsked_ = true;
        send({.word = child::Word::takeFrame});
    }
    const Clock::time_point deadline = Clock::now() + timeout;
    for (milliseconds patience{0};; patience = timeLeft(deadline)) {
        const bool last = timeLeft(deadline) == milliseconds::zero();
        pump(patience);
        // First: a reader that never catches up must hear of it too.
        if (interrupted_) return {.kind = CaptureEvent::Kind::interrupted};
        if (auto event = nextEvent()) return *std::move(event);
        if (last) return {.kind = CaptureEvent::Kind::timeout};
    }
}

void CaptureSession::release() {
    if (std::exchange(frameHeld_, false)) reader_.release();
}

// Takes in what has come; waits up to `patience` for the first of it.
void CaptureSession::pump(milliseconds patience) {
    interrupted_ = false;
    std::array<epoll_event, 8> events;
    const int count = epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()),
                                 static_cast<int>(patience.count()));
    if (count < 0) interrupted_ = errno == EINTR;
    bool ended = false;
    for (int i = 0; i < count; ++i) {
        const int fd = events[static_cast<std::size_t>(i)].data.fd;
        if (fd == child_.channels().errors.get()) readMessages();
        if (fd == child_.channels().control.get()) readControl();
        if (fd == child_.exitFd()) ended = true;
        if (fd == options_.interruptFd) interrupted_ = true;
        if (fd == child_.channels().ready.get()) {
            std::uint64_t counter;
            [[maybe_unused]] const ssize_t size = read(fd, &counter, sizeof counter);
        }
    }
    if (ended) readEnding();
}

void CaptureSession::readMessages() {
    const int fd = child_.channels().errors.get();
    if (messagesClosed_) return;
    std::array<char, 4096> bytes;
    ssize_t size = 0;
    while ((size = read(fd, bytes.data(), bytes.size())) > 0) {
        lines_.append({bytes.data(), static_cast<std::size_t>(size)});
        for (std::string line; lines_.next(line);) keepLine(std::move(line));
    }
    if (size < 0) return;
    messagesClosed_ = true;
    forget(fd);
    for (std::string line; lines_.next(line, true);) keepLine(std::move(line));
}

void CaptureSession::keepLine(std::string line) {
    if (tellsOfLoss(line)) end(CaptureEnd::cameraLost, line);
    messages_.push_back(std::move(line));
    ++unreadMessages_;
    if (messages_.size() > kKeptMessages) messages_.pop_front();
    unreadMessages_ = std::min(unreadMessages_, messages_.size());
}

void CaptureSession::readControl() {
    const int fd = child_.channels().control.get();
    for (;;) {
        child::Message message;
        const ssize_t size = recv(fd, &message, sizeof message, MSG_DONTWAIT);
        if (size == 0) return forget(fd);
        if (size < 0) return;
        if (size == sizeof message && isAnswerable(message)) {
            hear(message);
        } else {
            end(CaptureEnd::childFailed, "it sent a message that makes no sense");
        }
    }
}

void CaptureSession::hear(const child::Message& message) {
    using child::Word;
    switch (message.word) {
        case Word::started:
            camera_ = {message.text, message.value, message.high, message.result != 0};
            running_ = startedUnread_ = end_ == CaptureEnd::none;
            break;
        case Word::answer:
            answer_ = message;
            break;
        case Word::noCamera:
            end(CaptureEnd::noCamera);
            break;
        case Word::exposureRefused:
            end(CaptureEnd::exposureRefused);
            break;
        case Word::noFrame:
            end(CaptureEnd::cameraLost);
            break;
        case Word::tooLong:
            end(CaptureEnd::childFailed, "a container of " + std::to_string(message.value) +
                                             " bytes does not fit into a slot of " +
                                             std::to_string(options_.ring.slotBytes));
            break;
        default:
            end(CaptureEnd::childFailed, std::string("the library threw: ") + message.text);
            break;
    }
}

// The process is gone: what it left in the pipes comes first, it may say why.
void CaptureSession::readEnding() {
    if (!child_.await(milliseconds::zero())) return;
    forget(child_.exitFd());
    readControl();
    readMessages();
    end(CaptureEnd::childFailed, "it ended with " + child_.ending());
}

void CaptureSession::end(CaptureEnd reason, std::string text) {
    if (end_ != CaptureEnd::none) return;
    end_ = reason;
    endText_ = std::move(text);
}

std::optional<CaptureEvent> CaptureSession::nextEvent() {
    if (std::exchange(startedUnread_, false)) {
        return CaptureEvent{.kind = CaptureEvent::Kind::started};
    }
    if (auto frame = nextFrame()) return frame;
    if (unreadMessages_ > 0) {
        const std::size_t index = messages_.size() - unreadMessages_--;
        return CaptureEvent{.kind = CaptureEvent::Kind::message, .text = messages_[index]};
    }
    if (end_ == CaptureEnd::none) return std::nullopt;
    return CaptureEvent{.kind = CaptureEvent::Kind::ended, .text = endText_, .end = end_};
}

std::optional<CaptureEvent> CaptureSession::nextFrame() try {
    if (broken_) return std::nullopt;
    const std::optional<RingFrame> frame = reader_.front();
    if (!frame) return std::nullopt;
    if (frame->number < nextNumber_) throw RingFault("the capture process numbers frames anew");
    if (frame->number > nextNumber_) {
        const std::uint64_t lost = frame->number - std::exchange(nextNumber_, frame->number);
        statistics_.lost += lost;
        return CaptureEvent{.kind = CaptureEvent::Kind::lost, .lostFrames = lost};
    }
    ++nextNumber_;
    ++statistics_.received;
    frameHeld_ = true;
    frameAsked_ = false;
    return CaptureEvent{.kind = CaptureEvent::Kind::frame,
                        .container = frame->container,
                        .takenNs = frame->takenNs};
} catch (const RingFault& fault) {
    broken_ = true;
    end(CaptureEnd::childFailed, fault.what());
    return std::nullopt;
}

void CaptureSession::send(const child::Message& message) {
    // A child that is gone shows through its exit; one that does not read has its answer missed.
    ::send(child_.channels().control.get(), &message, sizeof message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

child::Message CaptureSession::ask(child::Word word, std::uint32_t value, milliseconds timeout) {
    answer_.reset();
    send({.word = word, .id = ++lastRequest_, .value = value});
    const Clock::time_point deadline = Clock::now() + timeout;
    while (!answer_ || answer_->id != lastRequest_) {
        const milliseconds left = timeLeft(deadline);
        if (left == milliseconds::zero() || !child_.ending().empty()) {
            throw CaptureError("no answer from the capture process");
        }
        pump(left);
        if (interrupted_) throw CaptureError("interrupted");
    }
    return *answer_;
}

bool CaptureSession::setExposure(std::uint32_t exposure, milliseconds timeout) {
    return ask(child::Word::setExposure, exposure, timeout).result == 0;
}

std::optional<std::uint32_t> CaptureSession::exposure(milliseconds timeout) {
    const child::Message answer = ask(child::Word::getExposure, 0, timeout);
    return answer.result == 0 ? std::optional(answer.value) : std::nullopt;
}

bool CaptureSession::stop(milliseconds grace) {
    send({.word = child::Word::stop});
    const bool asked = child_.await(grace);
    if (!asked) {
        child_.kill();
        child_.await(milliseconds(500));
    }
    readControl();
    readMessages();
    return asked;
}

}  // namespace hx
