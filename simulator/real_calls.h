// SPDX-License-Identifier: MIT
// The C library's own functions (or the next preload library's), found behind ours. Everything
// inside the simulator goes through these: a call by plain name would come back to
// preload_symbols.cpp.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdio>

namespace hx::sim {

void* findReal(const char* name);

// Resolved at the first call and not in a constructor: programs and sanitizer runtimes call us
// before constructors run.
template <typename Function>
class RealCall {
  public:
    constexpr explicit RealCall(const char* name) : name_(name) {}

    template <typename... Args>
    auto operator()(Args... args) const {
        return resolve()(args...);
    }

  private:
    Function* resolve() const {
        void* found = found_.load(std::memory_order_acquire);
        if (!found) {
            found = findReal(name_);
            found_.store(found, std::memory_order_release);
        }
        return reinterpret_cast<Function*>(found);
    }

    const char* name_;
    mutable std::atomic<void*> found_{nullptr};
};

namespace real {

extern const RealCall<int(int, const char*, int, ...)> openat;
extern const RealCall<int(int)> close;
extern const RealCall<ssize_t(int, void*, std::size_t)> read;
extern const RealCall<ssize_t(int, const void*, std::size_t)> write;
extern const RealCall<int(int)> dup;
extern const RealCall<int(int, int)> dup2;
extern const RealCall<int(int, int, int)> dup3;
extern const RealCall<int(int, int, ...)> fcntl;
extern const RealCall<int(int, unsigned long, ...)> ioctl;
extern const RealCall<void*(void*, std::size_t, int, int, int, off_t)> mmap;
extern const RealCall<int(void*, std::size_t)> munmap;
extern const RealCall<DIR*(const char*)> opendir;
extern const RealCall<DIR*(int)> fdopendir;
extern const RealCall<dirent*(DIR*)> readdir;
extern const RealCall<int(DIR*)> closedir;
extern const RealCall<void(DIR*)> rewinddir;
extern const RealCall<int(int, const char*, struct stat*, int)> fstatat;
extern const RealCall<int(int, struct stat*)> fstat;
extern const RealCall<int(int, const char*, int, unsigned, struct statx*)> statx;
extern const RealCall<int(int, const char*, int, int)> faccessat;
extern const RealCall<std::FILE*(const char*, const char*)> fopen;

// read(2) as the kernel does it: no cancellation point, restarted or broken off by signals like any
// driver's wait.
ssize_t readKernel(int fd, void* buffer, std::size_t size);

}  // namespace real
}  // namespace hx::sim
