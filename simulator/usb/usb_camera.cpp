// SPDX-License-Identifier: MIT
#include "usb_camera.h"

#include <endian.h>
#include <linux/usb/ch9.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace hx::sim::usb {

namespace {

constexpr int kConnectionReset = -104;  // ECONNRESET, as kStall is EPIPE

Reply dataReply(std::initializer_list<std::uint8_t> values) {
    Reply reply;
    for (const auto value : values) reply.data.push_back(std::byte{value});
    return reply;
}

Reply stall() {
    Reply reply;
    reply.status = kStall;
    return reply;
}

// Whether a driver that knows `told` is right about `now` too. It asks for descriptors, range and
// length once; the rate it takes as it comes.
bool holdsFor(const CameraConfig& now, const CameraConfig& told) {
    CameraConfig paced = now;
    paced.rate = told.rate;
    return UsbDescriptors(paced) == UsbDescriptors(told) && now.unitLength == told.unitLength &&
           now.exposureMinimum == told.exposureMinimum &&
           now.exposureMaximum == told.exposureMaximum &&
           now.exposureDefault == told.exposureDefault;
}

}  // namespace

UsbCamera::UsbCamera(const CameraConfig& config, std::function<void()> left)
    : left_(std::move(left)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      control_(camera_),
      stream_(camera_) {
    if (wake_.get() < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    camera_.config = config;
}

UsbCamera::~UsbCamera() {
    disconnect();
}

void UsbCamera::connect(int socket) {
    disconnect();
    const Lock lock(mutex_);
    descriptors_.emplace(camera_.config);
    socket_.emplace(socket);
    camera_.powerUp();
    configured_ = 0;
    leaving_ = false;
    leftAsPlanned_ = false;
    serving_ = true;
    thread_ = std::thread([this] { serve(); });
}

void UsbCamera::disconnect() {
    {
        const Lock lock(mutex_);
        leaving_ = true;
    }
    wake();
    if (thread_.joinable()) thread_.join();
    socket_.reset();
}

bool UsbCamera::connected() const {
    const Lock lock(mutex_);
    return serving_;
}

CameraStatus UsbCamera::status() const {
    const Lock lock(mutex_);
    return {stream_.running(),       stream_.paused(),     stream_.framesSent(),
            camera_.run.framesTaken, camera_.run.exposure, leftAsPlanned_};
}

CameraConfig UsbCamera::config() const {
    const Lock lock(mutex_);
    return camera_.config;
}

bool UsbCamera::change(const CameraConfig& config) {
    const Lock lock(mutex_);
    if (serving_ && !holdsFor(config, camera_.config)) return false;
    if (config.unplugAfter != camera_.config.unplugAfter) camera_.run.unplugDone = false;
    camera_.config = config;
    stream_.paceAnew(Clock::now());
    wake();
    return true;
}

void UsbCamera::pause(bool wanted) {
    const Lock lock(mutex_);
    stream_.pause(wanted, Clock::now());
    wake();
}

bool UsbCamera::unplugAt(std::int64_t frames, UnplugMoment moment) {
    const Lock lock(mutex_);
    const auto gone = stream_.running() ? stream_.framesSent() : 0;
    if (frames < gone || (frames == gone && moment != UnplugMoment::middle && gone > 0)) {
        return false;
    }
    camera_.config.unplugAfter = camera_.run.framesTaken - gone + frames;
    camera_.config.unplugMoment = moment;
    camera_.run.unplugDone = false;
    wake();
    return true;
}

void UsbCamera::wake() {
    eventfd_write(wake_.get(), 1);
}

// Deadlines of two kinds: answers that take their time, and the stream's.
std::optional<UvcStream::Clock::time_point> UsbCamera::nextDeadline() const {
    auto deadline = stream_.wakeTime();
    for (const LateAnswer& answer : late_) {
        if (!deadline || answer.due < *deadline) deadline = answer.due;
    }
    return deadline;
}

// Waits for a request, an order or a deadline. False: the host is gone.
bool UsbCamera::awaitWork(Lock& lock) {
    timespec left = {};
    const auto deadline = nextDeadline();
    if (deadline) {
        const auto wait = std::max(*deadline - Clock::now(), Clock::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wait);
        left.tv_sec = seconds.count();
        left.tv_nsec = std::chrono::nanoseconds(wait - seconds).count();
    }
    std::array<pollfd, 2> watched = {
        {{socket_->descriptor(), POLLIN, 0}, {wake_.get(), POLLIN, 0}}};
    lock.unlock();
    const int ready = ppoll(watched.data(), watched.size(), deadline ? &left : nullptr, nullptr);
    lock.lock();
    if (ready <= 0) return ready == 0 || errno == EINTR;
    eventfd_t orders = 0;
    if (watched[1].revents) eventfd_read(wake_.get(), &orders);
    if (!watched[0].revents) return true;
    do {
        const auto request = socket_->receive();
        if (!request) return false;
        handle(*request);
    } while (socket_->hasRequest());
    return true;
}

void UsbCamera::handle(const Request& request) {
    if (const auto* unlink = std::get_if<Unlink>(&request)) {
        handleUnlink(*unlink);
    } else {
        handleTransfer(std::get<Submit>(request));
    }
}

void UsbCamera::handleUnlink(const Unlink& request) {
    const auto late = std::find_if(late_.begin(), late_.end(), [&](const LateAnswer& answer) {
        return answer.request.sequence == request.victim;
    });
    const bool wasLate = late != late_.end();
    if (wasLate) late_.erase(late);
    const bool waited = wasLate || stream_.drop(request.victim);
    socket_->answer(request, waited ? kConnectionReset : 0);
}

void UsbCamera::handleTransfer(const Submit& request) {
    if (request.endpoint == kStreamEndpoint && request.in) {
        stream_.take(request);
        return;
    }
    if (request.endpoint != 0) {
        socket_->answer(request, kStall);
        return;
    }
    const bool ofClass = (request.setup.bRequestType & USB_TYPE_MASK) == USB_TYPE_CLASS;
    const Reply reply =
        ofClass ? control_.handle(request.setup, request.data) : standardReply(request.setup);
    if (reply.delay > 0) {
        const std::chrono::duration<double> delay(reply.delay);
        late_.push_back({request, reply.data,
                         Clock::now() + std::chrono::duration_cast<Clock::duration>(delay)});
        return;
    }
    if (reply.commits) stream_.start(Clock::now());
    answerControl(request, reply.status, reply.data);
}

void UsbCamera::answerControl(const Submit& request, int status, const Bytes& data) {
    const auto size = std::min<std::size_t>(data.size(), request.length);
    socket_->answer(request, status, std::span(data).first(size));
    socket_->flush();  // whose failure the next one tells too
}

Reply UsbCamera::standardReply(const usb_ctrlrequest& setup) {
    const auto value = le16toh(setup.wValue);
    const auto index = le16toh(setup.wIndex);
    switch (setup.bRequest) {
        case USB_REQ_GET_DESCRIPTOR: {
            const auto* found = descriptors_->find(static_cast<std::uint8_t>(value >> 8),
                                                   static_cast<std::uint8_t>(value));
            return found ? Reply{0, *found} : stall();
        }
        case USB_REQ_GET_STATUS:
            return dataReply({0, 0});
        case USB_REQ_GET_CONFIGURATION:
            return dataReply({configured_});
        case USB_REQ_SET_CONFIGURATION:
            if (value > kConfiguration) return stall();
            configured_ = static_cast<std::uint8_t>(value);
            stream_.stop();
            return {};
        case USB_REQ_GET_INTERFACE:
            return dataReply({0});
        case USB_REQ_SET_INTERFACE:
            if (value != 0 || index > kStreamInterface) return stall();
            if (index == kStreamInterface) stream_.stop();
            return {};
        case USB_REQ_CLEAR_FEATURE:
            // The driver clears a halt that is none to end a stream over a bulk endpoint.
            if (index != (USB_DIR_IN | kStreamEndpoint) || value != USB_ENDPOINT_HALT) {
                return stall();
            }
            stream_.stop();
            return {};
        default:
            return stall();
    }
}

void UsbCamera::answerLate() {
    const auto now = Clock::now();
    for (auto answer = late_.begin(); answer != late_.end();) {
        if (answer->due > now) {
            ++answer;
            continue;
        }
        answerControl(answer->request, 0, answer->data);
        answer = late_.erase(answer);
    }
}

void UsbCamera::sendFrames() {
    const auto now = Clock::now();
    while (!stream_.unplugDue(now)) {
        const auto piece = stream_.next(now);
        if (!piece) return;
        socket_->answer(piece->transfer, 0, piece->data);
        // The next frame is drawn where this one is.
        if (piece->endsFrame) socket_->flush();
    }
}

// False ends the connection.
bool UsbCamera::serveOnce(Lock& lock) {
    answerLate();
    sendFrames();
    if (!socket_->flush()) return false;
    if (stream_.unplugDue(Clock::now())) {
        camera_.run.unplugDone = true;
        leftAsPlanned_ = true;
        return false;
    }
    return awaitWork(lock);
}

void UsbCamera::serve() {
    Lock lock(mutex_);
    while (!leaving_ && serveOnce(lock)) continue;
    const bool told = leaving_;
    lock.unlock();
    socket_->finish();
    lock.lock();
    stream_.reset();
    late_.clear();
    serving_ = false;
    lock.unlock();
    if (!told) left_();
}

}  // namespace hx::sim::usb
