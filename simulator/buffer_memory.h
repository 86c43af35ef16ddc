// SPDX-License-Identifier: MIT
// The memory of one ring of buffers. Mappings of the program keep its pages after the ring has
// gone.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "descriptor.h"

namespace hx::sim {

constexpr std::size_t kMaxBuffers = 32;

std::size_t pageAligned(std::size_t bytes);

class BufferMemory {
  public:
    // Room for `count` buffers of `bytes`, up to kMaxBuffers later. Null when there is no memory
    // for it.
    static std::unique_ptr<BufferMemory> create(std::size_t count, std::size_t bytes);
    ~BufferMemory();
    BufferMemory(const BufferMemory&) = delete;
    BufferMemory& operator=(const BufferMemory&) = delete;

    std::size_t offset(std::size_t index) const { return index * stride_; }
    std::span<std::byte> bytes(std::size_t index) const { return {base_ + offset(index), bytes_}; }
    int descriptor() const { return file_.get(); }

    // Makes room for more buffers behind the present ones; their places stay.
    bool grow(std::size_t count);

  private:
    BufferMemory(OwnedDescriptor file, std::size_t bytes);
    bool map();

    OwnedDescriptor file_;
    std::size_t bytes_;
    std::size_t stride_;
    std::byte* base_ = nullptr;
};

}  // namespace hx::sim
