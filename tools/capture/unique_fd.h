// SPDX-License-Identifier: MIT
// A descriptor with one owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace hx {

class UniqueFd {
  public:
    explicit UniqueFd(int fd = -1) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    /// Hands the number over to the caller.
    int take() { return std::exchange(fd_, -1); }

    void reset(int fd = -1) {
        const int old = std::exchange(fd_, fd);
        if (old >= 0) close(old);
    }

  private:
    int fd_;
};

}  // namespace hx
