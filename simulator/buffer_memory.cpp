// SPDX-License-Identifier: MIT
#include "buffer_memory.h"

#include <sys/mman.h>
#include <unistd.h>

namespace hx::sim {

std::size_t pageAligned(std::size_t bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

BufferMemory::BufferMemory(OwnedDescriptor file, std::size_t bytes)
    : file_(std::move(file)), bytes_(bytes), stride_(pageAligned(bytes)) {}

BufferMemory::~BufferMemory() {
    if (base_) real::munmap(base_, kMaxBuffers * stride_);
}

std::unique_ptr<BufferMemory> BufferMemory::create(std::size_t count, std::size_t bytes) {
    const int file = memfd_create("hx-sim buffers", MFD_CLOEXEC);
    if (file < 0) return nullptr;
    std::unique_ptr<BufferMemory> memory(new BufferMemory(OwnedDescriptor(moveHigh(file)), bytes));
    if (!memory->grow(count) || !memory->map()) return nullptr;
    return memory;
}

bool BufferMemory::grow(std::size_t count) {
    return ftruncate(file_.get(), static_cast<off_t>(count * stride_)) == 0;
}

// Addresses for the largest ring are taken at once: a frame may be under way while the ring grows.
bool BufferMemory::map() {
    void* base = real::mmap(nullptr, kMaxBuffers * stride_, PROT_READ | PROT_WRITE, MAP_SHARED,
                            file_.get(), off_t{0});
    if (base == MAP_FAILED) return false;
    base_ = static_cast<std::byte*>(base);
    return true;
}

}  // namespace hx::sim
