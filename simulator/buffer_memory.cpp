// SPDX-License-Identifier: MIT
#include "buffer_memory.h"

#include <sys/mman.h>
#include <unistd.h>

namespace hx::sim {

std::size_t pageAligned(std::size_t bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

std::unique_ptr<BufferMemory> BufferMemory::create() {
    const int file = memfd_create("hx-sim buffers", MFD_CLOEXEC);
    if (file < 0) return nullptr;
    return std::unique_ptr<BufferMemory>(new BufferMemory(OwnedDescriptor(moveHigh(file))));
}

BufferMemory::~BufferMemory() {
    for (const Place& place : places_) {
        real::munmap(static_cast<void*>(place.bytes.data()), pageAligned(place.bytes.size()));
    }
}

bool BufferMemory::add(std::size_t count, std::size_t bytes) {
    for (std::size_t i = 0; i < count; ++i) {
        if (!addOne(bytes)) return false;
    }
    return true;
}

bool BufferMemory::addOne(std::size_t bytes) {
    std::size_t offset = 0;
    if (!places_.empty()) offset = places_.back().offset + pageAligned(places_.back().bytes.size());
    const std::size_t size = pageAligned(bytes);
    if (ftruncate(file_.get(), static_cast<off_t>(offset + size)) != 0) return false;
    void* base = real::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file_.get(),
                            static_cast<off_t>(offset));
    if (base == MAP_FAILED) return false;
    places_.push_back({offset, {static_cast<std::byte*>(base), bytes}});
    return true;
}

}  // namespace hx::sim
