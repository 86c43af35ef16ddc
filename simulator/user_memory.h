// SPDX-License-Identifier: MIT
// Looks at a program's pointer before it is used, so that a bad one is EFAULT and not a crash.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace hx::sim {

// Whether every page of the range is mapped. Says nothing of its protection.
inline bool userMemoryMapped(const void* pointer, std::size_t bytes) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto start = reinterpret_cast<std::uintptr_t>(pointer);
    if (start < page || bytes == 0) return start >= page;
    const auto before = start % page;
    char* first = const_cast<char*>(static_cast<const char*>(pointer)) - before;
    // msync does nothing to memory here but fails with ENOMEM where there is none.
    return msync(first, before + bytes, MS_ASYNC) == 0;
}

}  // namespace hx::sim
