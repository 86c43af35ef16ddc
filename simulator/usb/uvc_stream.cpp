// SPDX-License-Identifier: MIT
#include "uvc_stream.h"

#include <linux/usb/video.h>

#include <algorithm>

#include "usb_descriptors.h"

namespace hx::sim::usb {

namespace {

using std::chrono::milliseconds;

// A reader has taken the last frame by then and waits for the next one.
constexpr milliseconds kReaderCatchesUp{200};

UvcStream::Clock::duration intervalOf(const CameraConfig& config) {
    const std::chrono::duration<double> interval(config.rate > 0 ? 1 / config.rate : 0.0);
    return std::chrono::duration_cast<UvcStream::Clock::duration>(interval);
}

}  // namespace

void UvcStream::start(Clock::time_point now) {
    source_ = std::make_unique<FrameSource>(camera_.config);
    payload_.resize(kPayloadHeaderBytes + frameBytes(camera_.config));
    position_ = 0;
    sent_ = 0;
    due_ = now + intervalOf(camera_.config);
    lastEnded_ = now;
}

void UvcStream::stop() {
    source_.reset();
    position_ = 0;
}

void UvcStream::reset() {
    stop();
    waiting_.clear();
    paused_ = false;
}

void UvcStream::pause(bool wanted, Clock::time_point now) {
    paused_ = wanted;
    if (!wanted) due_ = std::max(due_, now);
}

void UvcStream::paceAnew(Clock::time_point now) {
    due_ = std::min(due_, now + intervalOf(camera_.config));
}

bool UvcStream::drop(std::uint32_t sequence) {
    const auto found =
        std::find_if(waiting_.begin(), waiting_.end(),
                     [sequence](const Submit& transfer) { return transfer.sequence == sequence; });
    if (found == waiting_.end()) return false;
    waiting_.erase(found);
    return true;
}

bool UvcStream::unplugPlanned() const {
    return camera_.config.unplugAfter >= 0 && !camera_.run.unplugDone;
}

bool UvcStream::frameAllowed() const {
    const CameraConfig& config = camera_.config;
    if (paused_ || (config.stallAfter >= 0 && sent_ >= config.stallAfter)) return false;
    return !unplugPlanned() || config.unplugMoment == UnplugMoment::middle ||
           camera_.run.framesTaken < config.unplugAfter;
}

bool UvcStream::beginFrame(Clock::time_point now) {
    if (!frameAllowed() || now < due_) return false;
    frameId_ ^= UVC_STREAM_FID;
    payload_[0] = std::byte{kPayloadHeaderBytes};
    payload_[1] = static_cast<std::byte>(UVC_STREAM_EOH | UVC_STREAM_EOF | frameId_);
    source_->draw(std::span(payload_).subspan(kPayloadHeaderBytes),
                  static_cast<std::uint32_t>(sent_), camera_.run.exposure);
    // A host that is too slow gets the frames later, not fewer: their numbers stay those that the
    // driver counts.
    due_ = std::max(due_ + intervalOf(camera_.config), now);
    return true;
}

void UvcStream::endFrame(Clock::time_point now) {
    position_ = 0;
    lastEnded_ = now;
    ++sent_;
    ++camera_.run.framesTaken;
}

std::optional<UvcStream::Piece> UvcStream::next(Clock::time_point now) {
    if (!running() || waiting_.empty()) return std::nullopt;
    if (position_ == 0 && !beginFrame(now)) return std::nullopt;
    Piece piece = {std::move(waiting_.front()), {}};
    waiting_.pop_front();
    const auto size = std::min<std::size_t>(piece.transfer.length, payload_.size() - position_);
    piece.data = std::span(payload_).subspan(position_, size);
    position_ += size;
    piece.endsFrame = position_ == payload_.size();
    if (piece.endsFrame) endFrame(now);
    return piece;
}

bool UvcStream::unplugDue(Clock::time_point now) const {
    if (!running() || !unplugPlanned()) return false;
    if (camera_.run.framesTaken < camera_.config.unplugAfter) return false;
    switch (camera_.config.unplugMoment) {
        case UnplugMoment::middle:
            return position_ >= payload_.size() / 2;
        case UnplugMoment::waiting:
            return true;
        default:
            return now >= lastEnded_ + kReaderCatchesUp;
    }
}

std::optional<UvcStream::Clock::time_point> UvcStream::wakeTime() const {
    if (!running()) return std::nullopt;
    const bool counted = camera_.run.framesTaken >= camera_.config.unplugAfter;
    if (unplugPlanned() && counted && camera_.config.unplugMoment == UnplugMoment::blocked) {
        return lastEnded_ + kReaderCatchesUp;
    }
    if (position_ == 0 && frameAllowed() && !waiting_.empty()) return due_;
    return std::nullopt;
}

}  // namespace hx::sim::usb
