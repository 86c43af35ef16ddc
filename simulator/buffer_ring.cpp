// SPDX-License-Identifier: MIT
#include "buffer_ring.h"

namespace hx::sim {

bool BufferRing::allocate(std::size_t count) {
    reset();
    buffers_.clear();
    memory_.reset();
    if (count == 0) return true;
    return extend(count, frameBytes_);
}

bool BufferRing::extend(std::size_t count, std::size_t bytes) {
    if (!memory_) memory_ = BufferMemory::create();
    if (!memory_ || !memory_->add(count, bytes)) return false;
    buffers_.resize(buffers_.size() + count);
    return true;
}

v4l2_buffer BufferRing::describe(std::uint32_t index) const {
    const Buffer& buffer = buffers_[index];
    v4l2_buffer answer = {};
    answer.index = index;
    answer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    answer.memory = V4L2_MEMORY_MMAP;
    answer.length = static_cast<std::uint32_t>(length(index));
    answer.m.offset = static_cast<std::uint32_t>(memory_->offset(index));
    answer.bytesused = buffer.bytesUsed;
    answer.field = buffer.everFilled ? V4L2_FIELD_NONE : V4L2_FIELD_ANY;
    answer.sequence = buffer.sequence;
    answer.timestamp.tv_sec = buffer.nanoseconds / 1'000'000'000;
    answer.timestamp.tv_usec = buffer.nanoseconds % 1'000'000'000 / 1000;
    answer.flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC | V4L2_BUF_FLAG_TSTAMP_SRC_SOE;
    if (buffer.mark.use_count() > 1) answer.flags |= V4L2_BUF_FLAG_MAPPED;
    if (buffer.holder == Holder::done) answer.flags |= V4L2_BUF_FLAG_DONE;
    if (buffer.holder == Holder::queue || buffer.holder == Holder::camera) {
        answer.flags |= V4L2_BUF_FLAG_QUEUED;
    }
    return answer;
}

bool BufferRing::queue(std::uint32_t index) {
    Buffer& buffer = buffers_[index];
    if (buffer.holder != Holder::program) return false;
    buffer.holder = Holder::queue;
    buffer.nanoseconds = 0;
    buffer.sequence = 0;
    buffer.bytesUsed = 0;
    queued_.push_back(index);
    return true;
}

std::uint32_t BufferRing::takeQueued() {
    const auto index = queued_.front();
    queued_.pop_front();
    buffers_[index].holder = Holder::camera;
    return index;
}

void BufferRing::putFilled(std::uint32_t index, std::uint32_t sequence, std::int64_t nanoseconds) {
    Buffer& buffer = buffers_[index];
    buffer.holder = Holder::done;
    buffer.everFilled = true;
    buffer.sequence = sequence;
    buffer.nanoseconds = nanoseconds;
    buffer.bytesUsed = static_cast<std::uint32_t>(frameBytes_);
    filled_.push_back(index);
}

std::uint32_t BufferRing::takeFilled() {
    const auto index = filled_.front();
    filled_.pop_front();
    buffers_[index].holder = Holder::program;
    return index;
}

void BufferRing::reset() {
    queued_.clear();
    filled_.clear();
    for (Buffer& buffer : buffers_) buffer.holder = Holder::program;
}

std::optional<std::uint32_t> BufferRing::atOffset(std::size_t offset) const {
    for (std::uint32_t i = 0; i < buffers_.size(); ++i) {
        if (memory_->offset(i) == offset) return i;
    }
    return std::nullopt;
}

}  // namespace hx::sim
