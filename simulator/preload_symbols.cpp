// SPDX-License-Identifier: MIT
// The exported functions: each decides whether a call concerns a simulated node and passes
// everything else on.
#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "cancel_guard.h"
#include "descriptor.h"
#include "descriptor_table.h"
#include "directory.h"
#include "node_path.h"
#include "real_calls.h"
#include "sysfs_text.h"

#define HX_EXPORT extern "C" __attribute__((visibility("default")))

namespace hx::sim {
namespace {

// Work inside must not show in errno: it is put back, or becomes the error of a failed call.
class ErrnoKeeper {
  public:
    int finish(int result) const {
        errno = result < 0 ? -result : saved_;
        return result < 0 ? -1 : result;
    }

  private:
    CancelGuard guard_;
    int saved_ = errno;
};

int openNode(const NodeRef& ref, int flags) {
    const ErrnoKeeper keeper;
    if (flags & O_DIRECTORY) return keeper.finish(-ENOTDIR);
    const auto node = std::make_shared<VideoNode>(ref);
    const int descriptor = node->open(flags);
    if (descriptor >= 0) addDescriptor(descriptor, node);
    return keeper.finish(descriptor);
}

// The descriptor of a file that reads as `text`.
int openText(const char* text) {
    OwnedDescriptor file(memfd_create("hx-sim text", MFD_CLOEXEC));
    if (!file.valid()) return -1;
    const auto size = std::strlen(text);
    if (real::write(file.get(), text, size) != static_cast<ssize_t>(size)) return -1;
    return lseek(file.get(), 0, SEEK_SET) == 0 ? file.release() : -1;
}

int openPath(int directory, const char* path, int flags, mode_t mode) {
    const PathMeaning meaning = lookUpPath(directory, path);
    if (meaning.kind == PathKind::node) return openNode(meaning.node, flags);
    if (meaning.kind == PathKind::hidden) {
        errno = ENOENT;
        return -1;
    }
    std::array<char, 128> text;
    if (sysfsText(path, text.data(), text.size())) return openText(text.data());
    return real::openat(directory, path, flags, mode);
}

// The mode is there only when a file may be made; else what was read in its place means nothing.
bool hasMode(int flags) {
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
}

template <typename Status>
int statusOf(const NodeRef& node, Status* status) {
    if (!status) {
        errno = EFAULT;
        return -1;
    }
    fillStatus(node, *status);
    return 0;
}

int statPath(int directory, const char* path, struct stat* status, int flags) {
    const PathMeaning meaning = lookUpPath(directory, path);
    if (meaning.kind == PathKind::node) return statusOf(meaning.node, status);
    if (meaning.kind == PathKind::hidden) {
        errno = ENOENT;
        return -1;
    }
    if ((flags & AT_EMPTY_PATH) && isEmptyPath(path)) {
        if (const auto node = nodeOf(directory)) return statusOf(node->reference(), status);
    }
    return real::fstatat(directory, path, status, flags);
}

int statDescriptor(int descriptor, struct stat* status) {
    if (const auto node = nodeOf(descriptor)) return statusOf(node->reference(), status);
    return real::fstat(descriptor, status);
}

int accessPath(int directory, const char* path, int mode, int flags) {
    const PathMeaning meaning = lookUpPath(directory, path);
    if (meaning.kind == PathKind::other) return real::faccessat(directory, path, mode, flags);
    const ErrnoKeeper keeper;
    if (meaning.kind == PathKind::hidden) return keeper.finish(-ENOENT);
    return keeper.finish(checkAccess(meaning.node, mode));
}

int duplicated(int from, int to) {
    const ErrnoKeeper keeper;
    if (to < 0) return to;
    if (auto node = nodeOf(from)) addDescriptor(to, std::move(node));
    return keeper.finish(to);
}

// The call that replaces `wanted` is about to be made; it fails without touching it when `from` is
// no descriptor.
void beforeReplacing(int from, int wanted) {
    const ErrnoKeeper keeper;
    if (from != wanted && real::fcntl(from, F_GETFD) >= 0) dropDescriptor(wanted);
    keeper.finish(0);
}

void* mapNode(const std::shared_ptr<VideoNode>& node, void* address, std::size_t length,
              int protection, int flags, off_t offset) {
    const ErrnoKeeper keeper;
    BufferPlace place;
    const int error =
        node->place(length, protection, flags, static_cast<std::size_t>(offset), place);
    if (error) {
        keeper.finish(error);
        return MAP_FAILED;
    }
    void* mapped = real::mmap(address, length, protection, flags, place.memory.get(), offset);
    if (mapped == MAP_FAILED) return mapped;
    addMapping(mapped, length, node, place.mark);
    keeper.finish(0);
    return mapped;
}

void* mapDescriptor(void* address, std::size_t length, int protection, int flags, int descriptor,
                    off_t offset) {
    if (!(flags & MAP_ANONYMOUS)) {
        if (const auto node = nodeOf(descriptor)) {
            return mapNode(node, address, length, protection, flags, offset);
        }
    }
    return real::mmap(address, length, protection, flags, descriptor, offset);
}

int control(int descriptor, int command, void* argument) {
    if (command == F_DUPFD || command == F_DUPFD_CLOEXEC) {
        return duplicated(descriptor, real::fcntl(descriptor, command, argument));
    }
    return real::fcntl(descriptor, command, argument);
}

std::FILE* openStream(const char* path, const char* mode) {
    std::array<char, 128> text;
    if (!sysfsText(path, text.data(), text.size())) return real::fopen(path, mode);
    const int file = openText(text.data());
    return file < 0 ? nullptr : fdopen(file, "r");
}

// Generic requests are the file's business, not the driver's.
bool isFileRequest(std::uint32_t request) {
    return request == FIONBIO || request == FIOCLEX || request == FIONCLEX;
}

}  // namespace
}  // namespace hx::sim

using namespace hx::sim;

HX_EXPORT int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const auto mode = va_arg(rest, mode_t);
    va_end(rest);
    return openPath(AT_FDCWD, path, flags, hasMode(flags) ? mode : 0);
}

HX_EXPORT int open64(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const auto mode = va_arg(rest, mode_t);
    va_end(rest);
    return openPath(AT_FDCWD, path, flags, hasMode(flags) ? mode : 0);
}

HX_EXPORT int openat(int directory, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const auto mode = va_arg(rest, mode_t);
    va_end(rest);
    return openPath(directory, path, flags, hasMode(flags) ? mode : 0);
}

HX_EXPORT int openat64(int directory, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const auto mode = va_arg(rest, mode_t);
    va_end(rest);
    return openPath(directory, path, flags, hasMode(flags) ? mode : 0);
}

// Names that the C library reserves for itself are just what has to be replaced.
// NOLINTBEGIN(bugprone-reserved-identifier)

// What open becomes in programs built with _FORTIFY_SOURCE when there is no mode.
HX_EXPORT int __open_2(const char* path, int flags) {
    return openPath(AT_FDCWD, path, flags, 0);
}
HX_EXPORT int __open64_2(const char* path, int flags) {
    return openPath(AT_FDCWD, path, flags, 0);
}
HX_EXPORT int __openat_2(int directory, const char* path, int flags) {
    return openPath(directory, path, flags, 0);
}
HX_EXPORT int __openat64_2(int directory, const char* path, int flags) {
    return openPath(directory, path, flags, 0);
}

// NOLINTEND(bugprone-reserved-identifier)

HX_EXPORT std::FILE* fopen(const char* path, const char* mode) {
    return openStream(path, mode);
}
HX_EXPORT std::FILE* fopen64(const char* path, const char* mode) {
    return openStream(path, mode);
}

HX_EXPORT int close(int descriptor) {
    {
        const ErrnoKeeper keeper;
        dropDescriptor(descriptor);
        keeper.finish(0);
    }
    return real::close(descriptor);
}

// The driver has frames for mapped buffers only.
HX_EXPORT ssize_t read(int descriptor, void* buffer, std::size_t size) {
    if (!nodeOf(descriptor)) return real::read(descriptor, buffer, size);
    errno = EINVAL;
    return -1;
}

HX_EXPORT ssize_t write(int descriptor, const void* buffer, std::size_t size) {
    if (!nodeOf(descriptor)) return real::write(descriptor, buffer, size);
    errno = EINVAL;
    return -1;
}

HX_EXPORT int dup(int descriptor) noexcept {
    return duplicated(descriptor, real::dup(descriptor));
}

HX_EXPORT int dup2(int descriptor, int wanted) noexcept {
    beforeReplacing(descriptor, wanted);
    return duplicated(descriptor, real::dup2(descriptor, wanted));
}

HX_EXPORT int dup3(int descriptor, int wanted, int flags) noexcept {
    beforeReplacing(descriptor, wanted);
    return duplicated(descriptor, real::dup3(descriptor, wanted, flags));
}

HX_EXPORT int fcntl(int descriptor, int command, ...) {
    va_list rest;
    va_start(rest, command);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    return control(descriptor, command, argument);
}

HX_EXPORT int fcntl64(int descriptor, int command, ...) {
    va_list rest;
    va_start(rest, command);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    return control(descriptor, command, argument);
}

HX_EXPORT int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    // The kernel looks at 32 bits; programs pass negative ints.
    const auto number = static_cast<std::uint32_t>(request);
    const auto node = nodeOf(descriptor);
    if (!node || isFileRequest(number)) return real::ioctl(descriptor, request, argument);
    const ErrnoKeeper keeper;
    return keeper.finish(node->ioctl(number, argument));
}

HX_EXPORT void* mmap(void* address, std::size_t length, int protection, int flags, int descriptor,
                     off_t offset) noexcept {
    return mapDescriptor(address, length, protection, flags, descriptor, offset);
}

HX_EXPORT void* mmap64(void* address, std::size_t length, int protection, int flags, int descriptor,
                       off64_t offset) noexcept {
    return mapDescriptor(address, length, protection, flags, descriptor, offset);
}

HX_EXPORT int munmap(void* address, std::size_t length) noexcept {
    if (const auto node = mappedNode(address, length)) {
        const ErrnoKeeper keeper;
        if (const int error = node->beforeUnmap()) return keeper.finish(error);
    }
    // Before the range is free: another thread may be given the same addresses at once.
    dropMappings(address, length);
    return real::munmap(address, length);
}

HX_EXPORT DIR* opendir(const char* path) {
    DIR* directory = real::opendir(path);
    if (directory) addDirectory(directory, isDevDirectory(AT_FDCWD, path));
    return directory;
}

HX_EXPORT DIR* fdopendir(int descriptor) {
    DIR* directory = real::fdopendir(descriptor);
    if (directory) addDirectory(directory, isDevDirectory(descriptor, "."));
    return directory;
}

HX_EXPORT dirent* readdir(DIR* directory) {
    return nextEntry(directory);
}

HX_EXPORT dirent64* readdir64(DIR* directory) {
    static_assert(sizeof(dirent) == sizeof(dirent64));
    return reinterpret_cast<dirent64*>(nextEntry(directory));
}

HX_EXPORT void rewinddir(DIR* directory) noexcept {
    rewindDirectory(directory);
    real::rewinddir(directory);
}

HX_EXPORT int closedir(DIR* directory) {
    dropDirectory(directory);
    return real::closedir(directory);
}

HX_EXPORT int stat(const char* path, struct stat* status) noexcept {
    return statPath(AT_FDCWD, path, status, 0);
}

HX_EXPORT int lstat(const char* path, struct stat* status) noexcept {
    return statPath(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

HX_EXPORT int fstat(int descriptor, struct stat* status) noexcept {
    return statDescriptor(descriptor, status);
}

HX_EXPORT int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
    return statPath(directory, path, status, flags);
}

static_assert(sizeof(struct stat) == sizeof(struct stat64));

HX_EXPORT int stat64(const char* path, struct stat64* status) noexcept {
    return statPath(AT_FDCWD, path, reinterpret_cast<struct stat*>(status), 0);
}

HX_EXPORT int lstat64(const char* path, struct stat64* status) noexcept {
    return statPath(AT_FDCWD, path, reinterpret_cast<struct stat*>(status), AT_SYMLINK_NOFOLLOW);
}

HX_EXPORT int fstat64(int descriptor, struct stat64* status) noexcept {
    return statDescriptor(descriptor, reinterpret_cast<struct stat*>(status));
}

HX_EXPORT int fstatat64(int directory, const char* path, struct stat64* status,
                        int flags) noexcept {
    return statPath(directory, path, reinterpret_cast<struct stat*>(status), flags);
}

// NOLINTBEGIN(bugprone-reserved-identifier)

// What the calls above were in programs built before glibc 2.33, and still are in sanitizer
// runtimes. The first argument is a layout's version; a 64-bit machine has only one.
HX_EXPORT int __xstat(int, const char* path, struct stat* status) noexcept {
    return statPath(AT_FDCWD, path, status, 0);
}

HX_EXPORT int __lxstat(int, const char* path, struct stat* status) noexcept {
    return statPath(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

HX_EXPORT int __fxstat(int, int descriptor, struct stat* status) noexcept {
    return statDescriptor(descriptor, status);
}

HX_EXPORT int __fxstatat(int, int directory, const char* path, struct stat* status,
                         int flags) noexcept {
    return statPath(directory, path, status, flags);
}

HX_EXPORT int __xstat64(int, const char* path, struct stat64* status) noexcept {
    return statPath(AT_FDCWD, path, reinterpret_cast<struct stat*>(status), 0);
}

HX_EXPORT int __lxstat64(int, const char* path, struct stat64* status) noexcept {
    return statPath(AT_FDCWD, path, reinterpret_cast<struct stat*>(status), AT_SYMLINK_NOFOLLOW);
}

HX_EXPORT int __fxstat64(int, int descriptor, struct stat64* status) noexcept {
    return statDescriptor(descriptor, reinterpret_cast<struct stat*>(status));
}

HX_EXPORT int __fxstatat64(int, int directory, const char* path, struct stat64* status,
                           int flags) noexcept {
    return statPath(directory, path, reinterpret_cast<struct stat*>(status), flags);
}

// NOLINTEND(bugprone-reserved-identifier)

HX_EXPORT int statx(int directory, const char* path, int flags, unsigned mask,
                    struct statx* status) noexcept {
    const PathMeaning meaning = lookUpPath(directory, path);
    if (meaning.kind == PathKind::node) return statusOf(meaning.node, status);
    if (meaning.kind == PathKind::hidden) {
        errno = ENOENT;
        return -1;
    }
    if ((flags & AT_EMPTY_PATH) && isEmptyPath(path)) {
        if (const auto node = nodeOf(directory)) return statusOf(node->reference(), status);
    }
    return real::statx(directory, path, flags, mask, status);
}

HX_EXPORT int access(const char* path, int mode) noexcept {
    return accessPath(AT_FDCWD, path, mode, 0);
}

HX_EXPORT int eaccess(const char* path, int mode) noexcept {
    return accessPath(AT_FDCWD, path, mode, AT_EACCESS);
}

HX_EXPORT int euidaccess(const char* path, int mode) noexcept {
    return accessPath(AT_FDCWD, path, mode, AT_EACCESS);
}

HX_EXPORT int faccessat(int directory, const char* path, int mode, int flags) noexcept {
    return accessPath(directory, path, mode, flags);
}
