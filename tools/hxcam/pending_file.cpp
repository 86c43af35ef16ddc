// SPDX-License-Identifier: MIT
#include "pending_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "exit_code.h"
#include "terminal.h"

namespace hxcam {
namespace {

[[noreturn]] void fail(const char* what, const std::string& path, int number) {
    throw CommandError(exitFailed,
                       fmt::format("{} {}: {}", what, shown(path), std::strerror(number)));
}

[[noreturn]] void failExisting(const std::string& path) {
    throw CommandError(exitFailed, shown(path) + " exists; --force overwrites");
}

}  // namespace

void refuseExisting(const std::string& path) {
    if (faccessat(AT_FDCWD, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) failExisting(path);
}

PendingFile::PendingFile(std::string path)
    : path_(std::move(path)), temporary_(fmt::format("{}.part-{}", path_, getpid())) {
    fd_.reset(open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!fd_) fail("cannot create", temporary_, errno);
}

PendingFile::~PendingFile() {
    if (!temporary_.empty()) unlink(temporary_.c_str());
}

void PendingFile::write(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t size = ::write(fd_.get(), bytes.data(), bytes.size());
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) fail("cannot write", path_, errno);
        bytes = bytes.subspan(static_cast<std::size_t>(size));
    }
}

void PendingFile::close() {
    // Some file systems tell of a full disk only here.
    if (fd_ && ::close(fd_.take()) != 0) fail("cannot write", path_, errno);
}

void PendingFile::finish(bool overwrite) {
    close();
    if (rename(overwrite ? 0 : RENAME_NOREPLACE) != 0) {
        if (errno == EEXIST) failExisting(path_);
        // A file system that cannot refuse to replace: looked for just before, then.
        if (errno != EINVAL || overwrite) fail("cannot name", path_, errno);
        refuseExisting(path_);
        if (rename(0) != 0) fail("cannot name", path_, errno);
    }
    temporary_.clear();
}

int PendingFile::rename(unsigned int flags) const {
    return renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), flags);
}

}  // namespace hxcam
