// SPDX-License-Identifier: MIT
// Owns a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace hx::sim::usb {

class UniqueDescriptor {
  public:
    UniqueDescriptor() = default;
    explicit UniqueDescriptor(int descriptor) : descriptor_(descriptor) {}
    UniqueDescriptor(UniqueDescriptor&& other) noexcept : descriptor_(other.release()) {}
    UniqueDescriptor& operator=(UniqueDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~UniqueDescriptor() {
        if (descriptor_ >= 0) close(descriptor_);
    }

    int get() const { return descriptor_; }
    int release() { return std::exchange(descriptor_, -1); }

  private:
    int descriptor_ = -1;
};

}  // namespace hx::sim::usb
