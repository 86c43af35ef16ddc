// SPDX-License-Identifier: MIT
#pragma once

#include <pthread.h>

namespace hx::sim {

// Keeps pthread_cancel away while it lives. ioctl and its kin are no cancellation points, but what
// they do inside is.
class CancelGuard {
  public:
    CancelGuard() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancelGuard() { pthread_setcancelstate(before_, nullptr); }
    CancelGuard(const CancelGuard&) = delete;
    CancelGuard& operator=(const CancelGuard&) = delete;

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace hx::sim
