// SPDX-License-Identifier: MIT
#include "real_calls.h"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace hx::sim {

void* findReal(const char* name) {
    if (void* found = dlsym(RTLD_NEXT, name)) return found;
    // Nothing can be done without the C library; say which name is missing before ending.
    constexpr char kText[] = "hx-sim: the C library has no function ";
    (void)!syscall(SYS_write, STDERR_FILENO, kText, sizeof kText - 1);
    (void)!syscall(SYS_write, STDERR_FILENO, name, std::strlen(name));
    (void)!syscall(SYS_write, STDERR_FILENO, "\n", 1);
    std::abort();
}

namespace real {

constinit const RealCall<int(int, const char*, int, ...)> openat{"openat"};
constinit const RealCall<int(int)> close{"close"};
constinit const RealCall<ssize_t(int, void*, std::size_t)> read{"read"};
constinit const RealCall<ssize_t(int, const void*, std::size_t)> write{"write"};
constinit const RealCall<int(int)> dup{"dup"};
constinit const RealCall<int(int, int)> dup2{"dup2"};
constinit const RealCall<int(int, int, int)> dup3{"dup3"};
constinit const RealCall<int(int, int, ...)> fcntl{"fcntl"};
constinit const RealCall<int(int, unsigned long, ...)> ioctl{"ioctl"};
constinit const RealCall<void*(void*, std::size_t, int, int, int, off_t)> mmap{"mmap"};
constinit const RealCall<int(void*, std::size_t)> munmap{"munmap"};
constinit const RealCall<DIR*(const char*)> opendir{"opendir"};
constinit const RealCall<DIR*(int)> fdopendir{"fdopendir"};
constinit const RealCall<dirent*(DIR*)> readdir{"readdir"};
constinit const RealCall<int(DIR*)> closedir{"closedir"};
constinit const RealCall<void(DIR*)> rewinddir{"rewinddir"};
constinit const RealCall<int(int, const char*, struct stat*, int)> fstatat{"fstatat"};
constinit const RealCall<int(int, struct stat*)> fstat{"fstat"};
constinit const RealCall<int(int, const char*, int, unsigned, struct statx*)> statx{"statx"};
constinit const RealCall<int(int, const char*, int, int)> faccessat{"faccessat"};
constinit const RealCall<std::FILE*(const char*, const char*)> fopen{"fopen"};

ssize_t readKernel(int fd, void* buffer, std::size_t size) {
    return syscall(SYS_read, fd, buffer, size);
}

}  // namespace real
}  // namespace hx::sim
