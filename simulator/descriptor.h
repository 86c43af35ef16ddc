// SPDX-License-Identifier: MIT
// Descriptors that the simulator keeps for itself.
#pragma once

#include <fcntl.h>

#include "real_calls.h"

namespace hx::sim {

// Programs may count on getting the lowest free numbers, so ours go out of the way where the limit
// allows it.
constexpr int kHighDescriptor = 512;

inline int moveHigh(int descriptor) {
    const int moved = real::fcntl(descriptor, F_DUPFD_CLOEXEC, kHighDescriptor);
    if (moved < 0) return descriptor;
    real::close(descriptor);
    return moved;
}

// Closes its descriptor when it goes.
class OwnedDescriptor {
  public:
    OwnedDescriptor() = default;
    explicit OwnedDescriptor(int value) : value_(value) {}
    ~OwnedDescriptor() { reset(); }
    OwnedDescriptor(OwnedDescriptor&& other) noexcept : value_(other.release()) {}
    OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept {
        const int taken = other.release();
        reset();
        value_ = taken;
        return *this;
    }

    int get() const { return value_; }
    bool valid() const { return value_ >= 0; }
    int release() {
        const int value = value_;
        value_ = -1;
        return value;
    }
    void reset() {
        if (value_ >= 0) real::close(value_);
        value_ = -1;
    }

  private:
    int value_ = -1;
};

}  // namespace hx::sim
