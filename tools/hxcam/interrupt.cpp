// SPDX-License-Identifier: MIT
#include "interrupt.h"

#include <poll.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace hxcam {
namespace {

sigset_t endingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        // What the caller ignores (nohup) stays ignored.
        struct sigaction current {};
        sigaction(number, nullptr, &current);
        if (current.sa_handler != SIG_IGN) sigaddset(&signals, number);
    }
    return signals;
}

}  // namespace

Interrupt::Interrupt() {
    const sigset_t signals = endingSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    fd_.reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd_) throw std::system_error(errno, std::generic_category(), "signalfd");
}

bool Interrupt::pending() const {
    pollfd watched{fd_.get(), POLLIN, 0};
    return poll(&watched, 1, 0) > 0;
}

void Interrupt::restoreDefaults() {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace hxcam
