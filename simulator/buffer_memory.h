// SPDX-License-Identifier: MIT
// The memory of one ring of buffers. Mappings of the program keep its pages after the ring has
// gone.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "descriptor.h"

namespace hx::sim {

constexpr std::size_t kMaxBuffers = 32;

std::size_t pageAligned(std::size_t bytes);

class BufferMemory {
  public:
    // Null when there is no file for it.
    static std::unique_ptr<BufferMemory> create();
    ~BufferMemory();
    BufferMemory(const BufferMemory&) = delete;
    BufferMemory& operator=(const BufferMemory&) = delete;

    // Adds `count` buffers of `bytes` behind the present ones, which stay where they are.
    bool add(std::size_t count, std::size_t bytes);

    std::size_t offset(std::size_t index) const { return places_[index].offset; }
    std::span<std::byte> bytes(std::size_t index) const { return places_[index].bytes; }
    int descriptor() const { return file_.get(); }

  private:
    struct Place {
        std::size_t offset;
        std::span<std::byte> bytes;
    };

    explicit BufferMemory(OwnedDescriptor file) : file_(std::move(file)) {}
    bool addOne(std::size_t bytes);

    OwnedDescriptor file_;
    std::vector<Place> places_;
};

}  // namespace hx::sim
