// SPDX-License-Identifier: MIT
// The shared memory by which containers cross from the capture child to its parent: a ring of
// equal slots, one writer, one reader, no lock.
//
//     | RingIndices | SlotHeader, container ... | SlotHeader, container ... | ...
//
// Each side keeps its own shape and its own index. What it reads from the other side is a number of
// another process and is checked before it is used.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>

namespace hx {

struct RingShape {
    std::uint32_t slots = 8;
    /// Room for one container: 1600 x 1200 samples and their entries are about 3.84 MB.
    std::size_t slotBytes = std::size_t{4} << 20;
};

/// The other side of the ring wrote something that cannot be.
class RingFault : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Bytes of shared memory for `shape`. Throws std::invalid_argument for a shape without room.
std::size_t ringBytes(const RingShape& shape);

struct RingIndices {
    alignas(64) std::atomic<std::uint64_t> written;   ///< slots filled so far, by the writer
    alignas(64) std::atomic<std::uint64_t> released;  ///< slots given back so far, by the reader
};

struct alignas(64) SlotHeader {
    std::atomic<std::uint64_t> length;  ///< bytes of the container
    std::atomic<std::uint64_t> number;  ///< frames offered before this one, kept or dropped
    std::atomic<std::int64_t> takenNs;  ///< when it was taken, CLOCK_MONOTONIC
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free,
              "a lock inside shared memory would belong to one process only");

/// Shared mapping of a ring, for its life time.
class RingMapping {
  public:
    /// Maps the ring behind `fd`. Throws CaptureError.
    RingMapping(int fd, const RingShape& shape);
    RingMapping(const RingMapping&) = delete;
    RingMapping& operator=(const RingMapping&) = delete;
    ~RingMapping();

    std::byte* data() const { return data_; }

  private:
    std::byte* data_;
    std::size_t size_;
};

/// Writing end. `memory` is ringBytes(shape) bytes, zero at the start.
class FrameWriter {
  public:
    enum class Result { stored, dropped, tooLong };

    FrameWriter(std::byte* memory, const RingShape& shape) : memory_(memory), shape_(shape) {}

    /// Copies a container into the next slot. Never waits: without a free slot the frame is
    /// dropped, and the reader sees the gap in the numbers.
    Result put(std::span<const std::uint8_t> container, std::int64_t takenNs);

  private:
    std::byte* memory_;
    RingShape shape_;
    std::uint64_t written_ = 0;
    std::uint64_t offered_ = 0;
};

struct RingFrame {
    std::span<const std::byte> container;
    std::uint64_t number = 0;
    std::int64_t takenNs = 0;
};

/// Reading end of the same memory.
class FrameReader {
  public:
    FrameReader(std::byte* memory, const RingShape& shape) : memory_(memory), shape_(shape) {}

    /// The oldest frame that was not released, or none. Its bytes stay until release().
    /// @throws RingFault
    std::optional<RingFrame> front() const;

    /// Gives the slot of front() back.
    void release();

  private:
    std::byte* memory_;
    RingShape shape_;
    std::uint64_t released_ = 0;
};

}  // namespace hx
