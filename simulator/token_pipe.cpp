// SPDX-License-Identifier: MIT
#include "token_pipe.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace hx::sim {

namespace {

constexpr unsigned long kBytesWaiting = FIONREAD;

}  // namespace

int TokenPipe::create(int flags) {
    int ends[2];
    // The writer never waits: the pipe holds many more bytes than there are buffers.
    if (pipe2(ends, flags & (O_CLOEXEC | O_NONBLOCK)) != 0) return -errno;
    writer_ = OwnedDescriptor(moveHigh(ends[1]));
    reader_ = OwnedDescriptor(real::fcntl(ends[0], F_DUPFD_CLOEXEC, kHighDescriptor));
    if (!reader_.valid()) reader_ = OwnedDescriptor(real::fcntl(ends[0], F_DUPFD_CLOEXEC, 0));
    struct stat status = {};
    if (!reader_.valid() || real::fstat(ends[0], &status) != 0) {
        const int error = errno;
        real::close(ends[0]);
        return -error;
    }
    inode_ = status.st_ino;
    return ends[0];
}

void TokenPipe::add() {
    const char token = 0;
    if (writer_.valid()) (void)!real::write(writer_.get(), &token, sizeof token);
}

int TokenPipe::wait() {
    char token = 0;
    const ssize_t got = real::readKernel(reader_.get(), &token, 1);
    return got < 0 ? -errno : static_cast<int>(got);
}

void TokenPipe::settle(std::size_t wanted) {
    int present = 0;
    if (real::ioctl(reader_.get(), kBytesWaiting, &present) != 0) return;
    auto count = static_cast<std::size_t>(present);
    for (; count > wanted; --count) wait();
    for (; count < wanted; ++count) add();
}

bool TokenPipe::is(int descriptor) const {
    struct stat status = {};
    return real::fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode) &&
           status.st_ino == inode_;
}

}  // namespace hx::sim
