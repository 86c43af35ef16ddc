// SPDX-License-Identifier: MIT
// The thread behind a streaming BufferQueue: when a frame is made, into which buffer, and when
// there is none.
#include <pthread.h>
#include <signal.h>

#include <algorithm>

#include "buffer_queue.h"

namespace hx::sim {

namespace {

using std::chrono::duration;
using std::chrono::seconds;

// A reader that polls is never seen waiting; its camera goes this long after the last frame.
constexpr seconds kUnplugPatience{2};

// Signals belong to the program's own threads.
void blockSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

}  // namespace

void BufferQueue::produce() {
    blockSignals();
    if (!source_) source_ = std::make_unique<FrameSource>(config_);
    Lock lock(mutex_);
    while (!stop_ && !gone_) {
        if (config_.rate > 0) {
            waitForTick(lock);
        } else {
            waitForDemand(lock);
        }
        if (stop_ || gone_) break;
        if (unplugDue()) {
            unplug();
            break;
        }
        // A frame that finds no buffer is lost, and its number with it.
        const auto sequence = static_cast<std::uint32_t>(tick_++);
        if (mayFill() && ring_.hasQueued()) fillNext(lock, sequence);
    }
}

void BufferQueue::waitForTick(Lock& lock) {
    const duration<double> since(static_cast<double>(tick_ + 1) / config_.rate);
    const auto due = started_ + std::chrono::duration_cast<Clock::duration>(since);
    turn_.wait_until(lock, due, [this] { return stop_ || gone_ || unplugDue(); });
}

// Without a rate the reader sets the pace: at most two frames wait for it. A buffer that was just
// handed back is then the last in line, and stays as it is until the reader has come for all the
// others. In a ring of one it is the only one.
void BufferQueue::waitForDemand(Lock& lock) {
    const auto ahead = std::clamp<std::size_t>(ring_.size() - 1, 1, 2);
    const auto wanted = [this, ahead] {
        if (stop_ || gone_ || unplugDue()) return true;
        return mayFill() && ring_.hasQueued() && ring_.filledCount() < ahead;
    };
    while (!wanted()) {
        if (unplugArmed_ && !mayFill()) {
            turn_.wait_for(lock, kUnplugPatience);
        } else {
            turn_.wait(lock);
        }
    }
}

bool BufferQueue::mayFill() const {
    if (config_.stallAfter >= 0 && filledOfStream_ >= config_.stallAfter) return false;
    if (!unplugArmed_ || config_.unplugMoment != UnplugMoment::blocked) return true;
    const auto filled = static_cast<std::int64_t>(ring_.filledCount());
    return takenOfCamera_ + filled < config_.unplugAfter;
}

bool BufferQueue::unplugDue() const {
    if (!unplugArmed_ || config_.unplugMoment != UnplugMoment::blocked) return false;
    if (takenOfCamera_ < config_.unplugAfter) return false;
    return waiting_ > 0 || Clock::now() >= lastTaken_ + kUnplugPatience;
}

void BufferQueue::fillNext(Lock& lock, std::uint32_t sequence) {
    const auto index = ring_.takeQueued();
    const auto frame = ring_.frame(index);
    lock.unlock();
    std::int32_t exposure = 0;
    {
        const StateLock state;
        exposure = state->cameras[camera_].run.exposure;
    }
    source_->draw(frame, sequence, exposure);
    lock.lock();
    ring_.putFilled(index, sequence, monotonicNanoseconds());
    ++filledOfStream_;
    tokens_.add();
}

}  // namespace hx::sim
