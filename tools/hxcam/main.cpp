// SPDX-License-Identifier: MIT
#include <csignal>
#include <cstring>
#include <exception>

#include "exit_code.h"
#include "options.h"
#include "terminal.h"

int main(int argc, char** argv) {
    // A reader that goes away and a file that may not grow are noticed by the write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
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
