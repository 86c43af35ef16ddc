// SPDX-License-Identifier: MIT
#include "frame_ring.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <string>

#include "capture_error.h"

namespace hx {
namespace {

constexpr std::size_t kLine = 64;

std::size_t stride(const RingShape& shape) {
    return sizeof(SlotHeader) + (shape.slotBytes + kLine - 1) / kLine * kLine;
}

RingIndices& indices(std::byte* memory) {
    return *reinterpret_cast<RingIndices*>(memory);
}

SlotHeader& slot(std::byte* memory, const RingShape& shape, std::uint64_t index) {
    std::byte* const first = memory + sizeof(RingIndices);
    return *reinterpret_cast<SlotHeader*>(first + index % shape.slots * stride(shape));
}

std::byte* payload(SlotHeader& header) {
    return reinterpret_cast<std::byte*>(&header) + sizeof(SlotHeader);
}

}  // namespace

std::size_t ringBytes(const RingShape& shape) {
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max() / 4;
    if (shape.slots == 0 || shape.slotBytes == 0 || shape.slotBytes > kMost / shape.slots) {
        throw std::invalid_argument("a frame ring needs slots, and room in them");
    }
    return sizeof(RingIndices) + shape.slots * stride(shape);
}

RingMapping::RingMapping(int fd, const RingShape& shape) : size_(ringBytes(shape)) {
    // Populated at once: the first round of frames must not wait for page faults.
    void* const memory =
        mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd, 0);
    if (memory == MAP_FAILED) {
        throw CaptureError(std::string("cannot map the frame ring: ") + std::strerror(errno));
    }
    data_ = static_cast<std::byte*>(memory);
}

RingMapping::~RingMapping() {
    munmap(data_, size_);
}

FrameWriter::Result FrameWriter::put(std::span<const std::uint8_t> container,
                                     std::int64_t takenNs) {
    const std::uint64_t number = offered_++;
    if (container.size() > shape_.slotBytes) return Result::tooLong;

    RingIndices& shared = indices(memory_);
    const std::uint64_t waiting = written_ - shared.released.load(std::memory_order_acquire);
    if (waiting >= shape_.slots) return Result::dropped;

    SlotHeader& header = slot(memory_, shape_, written_);
    std::memcpy(payload(header), container.data(), container.size());
    header.length.store(container.size(), std::memory_order_relaxed);
    header.number.store(number, std::memory_order_relaxed);
    header.takenNs.store(takenNs, std::memory_order_relaxed);
    shared.written.store(++written_, std::memory_order_release);
    return Result::stored;
}

std::optional<RingFrame> FrameReader::front() const {
    const std::uint64_t written = indices(memory_).written.load(std::memory_order_acquire);
    const std::uint64_t waiting = written - released_;
    if (waiting == 0) return std::nullopt;
    if (waiting > shape_.slots) {
        throw RingFault("the capture process reports " + std::to_string(waiting) +
                        " waiting frames in a ring of " + std::to_string(shape_.slots));
    }

    SlotHeader& header = slot(memory_, shape_, released_);
    // Loaded once: the length that is checked is the length that is used.
    const std::uint64_t length = header.length.load(std::memory_order_relaxed);
    if (length > shape_.slotBytes) {
        throw RingFault("the capture process reports a container of " + std::to_string(length) +
                        " bytes in a slot of " + std::to_string(shape_.slotBytes));
    }
    return RingFrame{{payload(header), static_cast<std::size_t>(length)},
                     header.number.load(std::memory_order_relaxed),
                     header.takenNs.load(std::memory_order_relaxed)};
}

void FrameReader::release() {
    indices(memory_).released.store(++released_, std::memory_order_release);
}

}  // namespace hx
