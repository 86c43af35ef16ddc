// SPDX-License-Identifier: MIT
// The command line of hxcam.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hxcam {

struct ListOptions {
    bool json = false;
    bool all = false;
    std::chrono::milliseconds timeout{5000};
};

enum class Property { exposure, lamp };

struct ControlOptions {
    std::string camera;
    std::optional<Property> property;  ///< get: all of them when empty
    std::int32_t exposure = 0;         ///< set
    std::string value;                 ///< set, as it was given; "on" or "off" for the lamp
    bool json = false;                 ///< get
    std::chrono::milliseconds timeout{5000};
};

struct CaptureCommandOptions {
    std::string camera;
    std::uint64_t count = 1;  ///< 0: until interrupted
    std::string output = ".";
    bool pull = false;
    bool png = false;
    bool stretch = false;
    std::optional<std::uint32_t> exposure;
    bool force = false;
    bool null = false;
    bool quiet = false;
    bool verbose = false;
    std::chrono::milliseconds timeout{5000};

    bool toStdout() const { return output == "-"; }
};

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
};

/// "5s", "500ms", "1.5" (seconds). Throws std::invalid_argument; more than zero, at most a day.
std::chrono::milliseconds parseDuration(const std::string& text);

/// Reads the command line and runs the command. Returns the exit code; help, version and usage
/// errors are printed here. Throws CommandError.
int runCommandLine(int argc, char** argv);

}  // namespace hxcam
