// SPDX-License-Identifier: MIT
#include "buffer_queue.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>

namespace hx::sim {

namespace {

constexpr std::uint32_t kBufferAbilities =
    V4L2_BUF_CAP_SUPPORTS_MMAP | V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS;

constexpr std::size_t kLargestBuffer = 64U << 20;

}  // namespace

BufferQueue::BufferQueue(std::uint32_t camera, TokenPipe& tokens)
    : camera_(camera), config_(cameraConfig(camera)), tokens_(tokens), ring_(frameBytes(config_)) {}

BufferQueue::~BufferQueue() {
    Lock lock(mutex_);
    stopProducer(lock);
}

std::size_t BufferQueue::granted(std::size_t wanted) const {
    const auto limit =
        config_.ringLimit < 0 ? kMaxBuffers : static_cast<std::size_t>(config_.ringLimit);
    return std::min({wanted, limit, kMaxBuffers});
}

int BufferQueue::request(v4l2_requestbuffers& argument) {
    const std::lock_guard setup(setup_);
    const std::lock_guard lock(mutex_);
    const auto wanted = argument;
    argument = {};
    argument.type = wanted.type;
    argument.memory = wanted.memory;
    argument.capabilities = kBufferAbilities;
    argument.count = wanted.count;
    if (wanted.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || wanted.memory != V4L2_MEMORY_MMAP) {
        return -EINVAL;
    }
    if (streaming_) return -EBUSY;
    argument.count = static_cast<std::uint32_t>(granted(wanted.count));
    return ring_.allocate(argument.count) ? 0 : -ENOMEM;
}

int BufferQueue::create(v4l2_create_buffers& argument) {
    const std::lock_guard setup(setup_);
    const std::lock_guard lock(mutex_);
    argument.capabilities = kBufferAbilities;
    argument.flags = 0;
    std::fill(std::begin(argument.reserved), std::end(argument.reserved), 0U);
    if (argument.memory != V4L2_MEMORY_MMAP) return -EINVAL;
    if (argument.format.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    argument.index = static_cast<std::uint32_t>(ring_.size());
    if (argument.count == 0) return 0;
    const std::size_t bytes = argument.format.fmt.pix.sizeimage;
    if (bytes < frameBytes(config_) || bytes > kLargestBuffer) return -EINVAL;
    const auto total = granted(ring_.size() + argument.count);
    if (total <= ring_.size()) return -ENOBUFS;
    argument.count = static_cast<std::uint32_t>(total - ring_.size());
    return ring_.extend(argument.count, bytes) ? 0 : -ENOMEM;
}

int BufferQueue::checkBuffer(const v4l2_buffer& argument) const {
    if (argument.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    return argument.index < ring_.size() ? 0 : -EINVAL;
}

int BufferQueue::query(v4l2_buffer& argument) {
    const std::lock_guard lock(mutex_);
    if (const int error = checkBuffer(argument)) return error;
    argument = ring_.describe(argument.index);
    return 0;
}

int BufferQueue::queue(v4l2_buffer& argument) {
    const std::lock_guard lock(mutex_);
    if (const int error = checkBuffer(argument)) return error;
    if (argument.memory != V4L2_MEMORY_MMAP) return -EINVAL;
    // A request of the request API; this camera takes none.
    if (argument.flags & V4L2_BUF_FLAG_REQUEST_FD) return -EBADR;
    if (!ring_.queue(argument.index)) return -EINVAL;
    argument = ring_.describe(argument.index);
    turn_.notify_all();
    return 0;
}

int BufferQueue::dequeue(v4l2_buffer& argument) {
    Lock lock(mutex_);
    if (argument.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    if (!streaming_) return -EINVAL;
    const auto stream = streams_;
    ++waiting_;
    turn_.notify_all();
    std::optional<int> result;
    while (!result) {
        lock.unlock();
        const int got = tokens_.wait();
        lock.lock();
        result = dequeued(got, stream, argument);
    }
    if (--waiting_ == 0 && !gone_) tokens_.settle(ring_.filledCount());
    return *result;
}

// Nothing when the wake-up was another waiter's: each ended stream leaves one byte for every
// waiting call.
std::optional<int> BufferQueue::dequeued(int waitResult, std::uint64_t stream,
                                         v4l2_buffer& argument) {
    // As seen with the driver: the call that was waiting when the camera went gets EINVAL, later
    // ones ENODEV.
    if (gone_) return -EINVAL;
    if (!streaming_ || stream != streams_) return -EINVAL;
    if (ring_.filledCount() > 0) return takeFrame(argument);
    if (waitResult < 0) return waitResult;
    if (waitResult == 0) return -ENODEV;
    return std::nullopt;
}

int BufferQueue::takeFrame(v4l2_buffer& argument) {
    const bool atLast = unplugArmed_ && takenOfCamera_ + 1 >= config_.unplugAfter;
    const bool past = unplugArmed_ && takenOfCamera_ >= config_.unplugAfter;
    if (past && config_.unplugMoment == UnplugMoment::waiting) {
        unplug();
        return -ENODEV;
    }
    argument = ring_.describe(ring_.takeFilled());
    argument.flags &= ~static_cast<std::uint32_t>(V4L2_BUF_FLAG_DONE);
    lastTaken_ = Clock::now();
    ++takenOfCamera_;
    {
        const StateLock state;
        state->cameras[camera_].run.framesTaken = takenOfCamera_;
    }
    if (atLast && config_.unplugMoment == UnplugMoment::taken) unplug();
    turn_.notify_all();
    return 0;
}

void BufferQueue::unplug() {
    {
        const StateLock state;
        unplugCamera(*state, camera_);
    }
    gone_ = true;
    tokens_.hangUp();
    turn_.notify_all();
}

void BufferQueue::hangUp() {
    const std::lock_guard lock(mutex_);
    if (gone_) return;
    gone_ = true;
    tokens_.hangUp();
    turn_.notify_all();
}

int BufferQueue::streamOn() {
    const std::lock_guard setup(setup_);
    const Lock lock(mutex_);
    if (streaming_) return 0;
    if (ring_.size() == 0) return -EINVAL;
    {
        const StateLock state;
        const CameraRun& run = state->cameras[camera_].run;
        unplugArmed_ = config_.unplugAfter >= 0 && !run.unplugDone;
        takenOfCamera_ = run.framesTaken;
    }
    streaming_ = true;
    ++streams_;
    filledOfStream_ = 0;
    tick_ = 0;
    started_ = lastTaken_ = Clock::now();
    producer_ = std::thread(&BufferQueue::produce, this);
    return 0;
}

int BufferQueue::streamOff() {
    const std::lock_guard setup(setup_);
    Lock lock(mutex_);
    stopProducer(lock);
    streaming_ = false;
    ring_.reset();
    for (std::size_t i = 0; i < waiting_; ++i) tokens_.add();
    if (waiting_ == 0 && !gone_) tokens_.settle(0);
    return 0;
}

void BufferQueue::stopProducer(Lock& lock) {
    if (!producer_.joinable()) return;
    stop_ = true;
    turn_.notify_all();
    lock.unlock();
    producer_.join();
    lock.lock();
    stop_ = false;
}

int BufferQueue::place(std::size_t length, int protection, int flags, std::size_t offset,
                       BufferPlace& place) {
    const std::lock_guard lock(mutex_);
    if ((flags & MAP_TYPE) != MAP_SHARED && (flags & MAP_TYPE) != MAP_SHARED_VALIDATE) {
        return -EINVAL;
    }
    const auto index = ring_.atOffset(offset);
    if (!(protection & PROT_READ) || !index) return -EINVAL;
    if (length == 0 || length > pageAligned(ring_.length(*index))) return -EINVAL;
    place.memory = OwnedDescriptor(real::fcntl(ring_.memoryDescriptor(), F_DUPFD_CLOEXEC, 0));
    place.mark = ring_.mappingMark(*index);
    return place.memory.valid() ? 0 : -errno;
}

bool BufferQueue::allocated() {
    const std::lock_guard lock(mutex_);
    return ring_.size() > 0;
}

bool BufferQueue::streaming() {
    const std::lock_guard lock(mutex_);
    return streaming_;
}

}  // namespace hx::sim
