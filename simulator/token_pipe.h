// SPDX-License-Identifier: MIT
// The descriptor that a program holds for a node: the read end of a pipe with one byte for each
// filled buffer. So poll, select, epoll and O_NONBLOCK work without any help, and a wait for a
// frame is a real read that signals break off.
#pragma once

#include <cstddef>

#include "descriptor.h"

namespace hx::sim {

class TokenPipe {
  public:
    // Returns the program's descriptor, or -errno. `flags`: O_CLOEXEC and O_NONBLOCK are taken
    // over.
    int create(int flags);

    void add();

    // Waits as the program's descriptor is set to: 1 for a byte, 0 after hangUp(), -errno.
    int wait();

    // Makes the number of bytes `wanted`. Only while nobody is in wait().
    void settle(std::size_t wanted);

    // What is left can still be read; then everything reads as ended.
    void hangUp() { writer_.reset(); }

    // Whether `descriptor` is still this pipe. It is not when it was closed behind our back
    // (closefrom, fclose).
    bool is(int descriptor) const;

  private:
    OwnedDescriptor reader_;  // a second number for the program's open file: it shares O_NONBLOCK
    OwnedDescriptor writer_;
    unsigned long inode_ = 0;
};

}  // namespace hx::sim
