// SPDX-License-Identifier: MIT
// The buffers of one stream: who has each, in which order they come and go. No locks, no waiting.
#pragma once

#include <linux/videodev2.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "buffer_memory.h"

namespace hx::sim {

class BufferRing {
  public:
    explicit BufferRing(std::size_t frameBytes) : frameBytes_(frameBytes) {}

    // Replaces all buffers; 0 frees them. Mapped memory stays with its mappings.
    bool allocate(std::size_t count);
    // Adds buffers, which may be larger than a frame.
    bool extend(std::size_t count, std::size_t bytes);
    std::size_t size() const { return buffers_.size(); }

    // What VIDIOC_QUERYBUF tells about a buffer. `index` is in range here and below.
    v4l2_buffer describe(std::uint32_t index) const;

    // False when the program does not have the buffer.
    bool queue(std::uint32_t index);

    bool hasQueued() const { return !queued_.empty(); }
    std::uint32_t takeQueued();
    void putFilled(std::uint32_t index, std::uint32_t sequence, std::int64_t nanoseconds);

    std::size_t filledCount() const { return filled_.size(); }
    std::uint32_t takeFilled();

    // Gives every buffer back to the program, as the end of a stream does.
    void reset();

    // The place of the frame in a buffer.
    std::span<std::byte> frame(std::uint32_t index) const {
        return memory_->bytes(index).first(frameBytes_);
    }
    std::size_t length(std::uint32_t index) const { return memory_->bytes(index).size(); }

    // The buffer that starts at this offset.
    std::optional<std::uint32_t> atOffset(std::size_t offset) const;
    int memoryDescriptor() const { return memory_->descriptor(); }

    // Held by each mapping of the buffer; the buffer reports itself mapped meanwhile.
    std::shared_ptr<void> mappingMark(std::uint32_t index) const { return buffers_[index].mark; }

  private:
    enum class Holder { program, queue, camera, done };

    struct Buffer {
        Holder holder = Holder::program;
        std::uint32_t sequence = 0;
        std::int64_t nanoseconds = 0;
        std::uint32_t bytesUsed = 0;
        bool everFilled = false;
        std::shared_ptr<void> mark = std::make_shared<int>(0);
    };

    std::size_t frameBytes_;
    std::vector<Buffer> buffers_;
    std::unique_ptr<BufferMemory> memory_;
    std::deque<std::uint32_t> queued_;
    std::deque<std::uint32_t> filled_;
};

}  // namespace hx::sim
