// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <exception>

#include "exit_code.h"
#include "options.h"
#include "terminal.h"

namespace {

// A descriptor that the caller closed must not become that of a device or a socket. What is opened
// instead cannot be used either: writing to it fails.
void occupyStandardDescriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) >= 0) continue;
        [[maybe_unused]] const int opened =
            open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

}  // namespace

int main(int argc, char** argv) {
    occupyStandardDescriptors();
    // A reader that goes away and a file that may not grow are noticed by the write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    // Ignored, it would take the exit status of every child away.
    std::signal(SIGCHLD, SIG_DFL);
    hxcam::useTerminalEncoding();
    try {
        return hxcam::runCommandLine(argc, argv);
    } catch (const hxcam::CommandError& error) {
        if (std::strlen(error.what()) != 0) hxcam::complain(error.what());
        return error.code();
    } catch (const std::exception& error) {
        hxcam::complain(error.what());
        return hxcam::exitFailed;
    }
}
