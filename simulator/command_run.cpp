// SPDX-License-Identifier: MIT
#include "command_run.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace hx::sim {

namespace {

constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;
constexpr int kSignalled = 128;

sigset_t handledSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&set, number);
    return set;
}

[[noreturn]] void becomeCommand(char** command, const sigset_t& mask, pid_t launcher) {
    // The simulated devices go with the launcher; so does who uses them.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != launcher) _exit(kCannotRun);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    execvp(command[0], command);
    const int error = errno;
    std::fprintf(stderr, "hx-sim: %s: %s\n", command[0], std::strerror(error));
    _exit(error == ENOENT ? kNotFound : kCannotRun);
}

int statusFrom(int status) {
    return WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
}

// A signal typed at the terminal reaches the command by itself; only one sent to us alone is passed
// on.
void passOn(const siginfo_t& signal, pid_t child) {
    if (signal.si_code != SI_KERNEL) kill(child, signal.si_signo);
}

int waitFor(pid_t child, const sigset_t& handled) {
    for (;;) {
        siginfo_t signal = {};
        if (sigwaitinfo(&handled, &signal) < 0) continue;
        if (signal.si_signo != SIGCHLD) {
            passOn(signal, child);
            continue;
        }
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) return statusFrom(status);
    }
}

}  // namespace

int runCommand(char** command) {
    // An inherited "ignore" would make the command's status disappear.
    signal(SIGCHLD, SIG_DFL);
    const sigset_t handled = handledSignals();
    sigset_t before;
    sigprocmask(SIG_BLOCK, &handled, &before);
    const pid_t launcher = getpid();
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) becomeCommand(command, before, launcher);
    return waitFor(child, handled);
}

}  // namespace hx::sim
