// SPDX-License-Identifier: MIT
// hx-sim: runs a command that sees simulated cameras.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "call_names.h"
#include "camera_spec.h"
#include "command_run.h"
#include "simulator/usb/usb_command.h"
#include "state_setup.h"

namespace {

using namespace hx::sim;
namespace fs = std::filesystem;

constexpr const char* kSanitizerRuntime = HX_SIM_SANITIZER_RUNTIME;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

struct Options {
    std::vector<DeviceSpec> devices;
    bool realDevices = false;
};

std::string footer() {
    return fmt::format(
        "A camera is IDENTIFICATION[,KEY=VALUE...], or @FILE[,KEY=VALUE...] with lines KEY = "
        "VALUE\n"
        "(one of them 'identification = TEXT') and # comments. In texts, \\, is a comma, \\\\ a\n"
        "backslash and \\xHH a byte. Keys, with their defaults:\n{}\n"
        "Calls for fault=: {}\n\n"
        "Examples:\n"
        "  hx-sim --camera HX02-V02.1-12345A-L -- v4l2-ctl --list-devices\n"
        "  hx-sim --camera HX01-V01.0-10001A,rate=5,scene=target -- PROGRAM\n"
        "  hx-sim --camera HX02-V02.1-12345A-L,fault=mmap:3=ENOMEM -- PROGRAM\n\n"
        "Ends with the command's status (128 + N after signal N), 1 when the cameras cannot be\n"
        "made, 2 for a wrong option, 126 or 127 when the command cannot be run or found.\n\n"
        "hx-sim usb plugs cameras into the kernel instead, for every program; see hx-sim usb "
        "--help.\n",
        keyHelp(FrontEnd::preload), fmt::join(kCallNames, " "));
}

// Runs at each --camera and --foreign, so that the order of the command line is the order of the
// devices.
void addDevice(Options& options, const char* option, const std::string& text, bool isCamera) {
    DeviceSpec device;
    try {
        if (isCamera) {
            device.camera = parseCamera(text);
        } else {
            device.foreign = parseForeign(text);
        }
    } catch (const SpecError& error) {
        throw CLI::ValidationError(fmt::format("{} {}", option, text), error.what());
    }
    device.isCamera = isCamera;
    options.devices.push_back(device);
}

void declareOptions(CLI::App& app, Options& options) {
    app.footer(footer());
    app.set_version_flag("--version", "hx-sim " HX_SIM_VERSION);
    app.add_option_function<std::string>(
           "--camera", [&](const std::string& text) { addDevice(options, "--camera", text, true); },
           "add a camera (repeatable)")
        ->trigger_on_parse()
        ->type_name("SPEC");
    app.add_option_function<std::string>(
           "--foreign",
           [&](const std::string& text) { addDevice(options, "--foreign", text, false); },
           "add a video device of another kind: CARD[,node=N] (repeatable)")
        ->trigger_on_parse()
        ->type_name("CARD");
    app.add_flag("--real-devices", options.realDevices, "leave real /dev/video* in sight");
}

fs::path findLibrary() {
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    // Beside the build's own programs first, then where it is installed.
    for (const char* place : {"../lib/libhx_camera_sim.so", HX_SIM_LIBRARY_FROM_BINDIR}) {
        std::error_code ignored;
        fs::path found = fs::canonical(folder / place, ignored);
        if (!found.empty()) return found;
    }
    throw std::runtime_error("libhx_camera_sim.so is neither in ../lib nor where it is installed");
}

// The sanitizer's runtime must come first of all; what the user preloads stays behind us.
std::string preloadList() {
    const std::string library = findLibrary().string();
    if (library.find_first_of(" :") != library.npos) {
        throw std::runtime_error("cannot preload " + library + ": blank or colon in its path");
    }
    std::string list = kSanitizerRuntime;
    if (!list.empty()) list += ':';
    list += library;
    const char* present = std::getenv("LD_PRELOAD");
    if (present && *present) list += fmt::format(":{}", present);
    return list;
}

int usageError(const char* message) {
    std::fprintf(stderr, "hx-sim: %s\nRun with --help for more.\n", message);
    return kUsage;
}

int run(const Options& options, char** command) {
    const StateFile state(options.devices, options.realDevices);
    setenv(kStateVariable, state.path().c_str(), 1);
    setenv("LD_PRELOAD", preloadList().c_str(), 1);
    return runCommand(command);
}

int launch(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "usb") == 0) return usb::runUsb(argc - 1, argv + 1);
    Options options;
    CLI::App app(
        "Runs COMMAND with simulated cameras as /dev/video*: hx-sim [OPTIONS] -- COMMAND [ARG...]");
    declareOptions(app, options);
    // Everything behind the first "--" is the command's own.
    char** const end = argv + argc;
    char** const dashes =
        std::find_if(argv, end, [](const char* word) { return std::strcmp(word, "--") == 0; });
    try {
        app.parse(static_cast<int>(dashes - argv), argv);
    } catch (const CLI::Success& wish) {
        return app.exit(wish);
    } catch (const CLI::ParseError& error) {
        return usageError(error.what());
    }
    if (end - dashes < 2) return usageError("no command; it stands behind '--'");
    return run(options, dashes + 1);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return launch(argc, argv);
    } catch (const SpecError& error) {
        return usageError(error.what());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "hx-sim: %s\n", error.what());
        return kFailed;
    }
}
