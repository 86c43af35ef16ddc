// SPDX-License-Identifier: MIT
#include "options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "commands.h"
#include "exit_code.h"
#include "terminal.h"

namespace hxcam {
namespace {

using std::chrono::milliseconds;

constexpr char kExitCodes[] =
    "Exit codes: 0 ok, 1 failed, 2 usage, 3 no camera, 4 time-out, 5 camera lost during work,\n"
    "130 interrupted.\n";

constexpr char kExamples[] =
    "\n"
    "Examples:\n"
    "  hxcam list                            what is attached\n"
    "  hxcam set exposure 200                in units of 100 us\n"
    "  hxcam capture -n 10 -o run1 --png     ten frames, each with a picture\n"
    "  hxcam capture -n 0 -o - | receiver    every frame, until Ctrl-C\n"
    "  hxcam info run1/*.hxc                 what the files say\n"
    "  hxcam convert run1 -o tiff --format tiff\n"
    "  hxcam cube --dark dark --white white run1 -o cubes\n"
    "\n";

constexpr char kCaptureNotes[] =
    "\n"
    "Writes each frame as frame-000000.hxc, frame-000001.hxc, ... A file has its name only once "
    "it\n"
    "is whole. With -o - the containers go to standard output, one behind the other.\n"
    "A summary goes to standard error; \"lost\" counts frames for which this program was too "
    "slow.\n"
    "\n"
    "Examples:\n"
    "  hxcam capture -o shots                one frame into the folder shots\n"
    "  hxcam capture -n 100 --exposure 300 -o run2\n"
    "  hxcam capture -n 1 --png --stretch    a picture to look at\n";

std::string checkDuration(const std::string& text) {
    try {
        parseDuration(text);
        return "";
    } catch (const std::invalid_argument& fault) {
        return fault.what();
    }
}

// CLI11 alone would take -1 for the largest number.
std::string checkDigits(const std::string& text) {
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    return digits ? "" : "\"" + shown(text) + "\" is no whole number";
}

void addTimeout(CLI::App& command, milliseconds& timeout, const std::string& what) {
    command
        .add_option_function<std::string>(
            "--timeout", [&timeout](const std::string& text) { timeout = parseDuration(text); },
            what + ", such as 5s or 500ms (default 5s)")
        ->check(checkDuration)
        ->type_name("TIME");
}

void addCamera(CLI::App& command, std::string& camera) {
    command
        .add_option("--camera", camera,
                    "Index in the list, node, name or whole identification; "
                    "needed when there are several")
        ->type_name("CAMERA")
        ->check([](const std::string& text) {
            return text.empty() ? std::string("must not be empty") : std::string();
        });
}

void addProperty(CLI::App& command, std::optional<Property>& property) {
    command
        .add_option_function<std::string>(
            "property",
            [&property](const std::string& name) {
                property = name == "lamp" ? Property::lamp : Property::exposure;
            },
            "exposure (units of 100 us) or lamp")
        ->check(CLI::IsMember({"exposure", "lamp"}))
        ->option_text("exposure|lamp");
}

CLI::App* addList(CLI::App& app, ListOptions& options) {
    CLI::App* const command = app.add_subcommand("list", "List the attached cameras");
    command->footer(
        "\nCameras that another program uses are listed too and are not disturbed.\n"
        "Exposure is in units of 100 us.");
    command->add_flag("--json", options.json, "Print one JSON object");
    command->add_flag("--all", options.all,
                      "Show other video nodes too, and why they are left out");
    addTimeout(*command, options.timeout, "Longest wait for the devices' answers");
    return command;
}

CLI::App* addGet(CLI::App& app, ControlOptions& options) {
    CLI::App* const command = app.add_subcommand("get", "Read exposure and lamp");
    command->footer("\nWorks while another program captures. Without a property: all of them.");
    addProperty(*command, options.property);
    command->add_flag("--json", options.json, "Print one JSON object");
    addCamera(*command, options.camera);
    addTimeout(*command, options.timeout, "Longest wait for the device's answer");
    return command;
}

CLI::App* addSet(CLI::App& app, ControlOptions& options) {
    CLI::App* const command = app.add_subcommand("set", "Set exposure or lamp");
    command->footer(
        "\nWorks while another program captures. Prints what the camera then uses; exit code 1 "
        "when\n"
        "that is not what was asked for. No request of these cameras drives the lamp.");
    addProperty(*command, options.property);
    command->get_option("property")->required();
    command->add_option("value", options.value, "Exposure, or on or off for the lamp")
        ->required()
        ->option_text("N|on|off");
    addCamera(*command, options.camera);
    addTimeout(*command, options.timeout, "Longest wait for the device's answer");
    return command;
}

CLI::App* addCapture(CLI::App& app, CaptureCommandOptions& options) {
    CLI::App* const command = app.add_subcommand("capture", "Store frames of one camera");
    command->footer(kCaptureNotes);
    addCamera(*command, options.camera);
    command->add_option("-n,--count", options.count, "Frames to take (default 1); 0: until Ctrl-C")
        ->check(checkDigits)
        ->type_name("N");
    CLI::Option* const output =
        command
            ->add_option("-o,--output", options.output,
                         "Folder, made when missing (default .), or - for standard output")
            ->type_name("DIR");
    command->add_option("--exposure", options.exposure, "Exposure of all frames, units of 100 us")
        ->check(checkDigits)
        ->type_name("N");
    command->add_flag("--pull", options.pull, "Take frames one at a time instead of a stream");
    CLI::Option* const png =
        command->add_flag("--png", options.png, "Also store each frame as 16-bit grey PNG");
    command->add_flag("--stretch", options.stretch, "PNG: scale 10-bit samples to full brightness");
    CLI::Option* const force = command->add_flag("--force", options.force, "Overwrite files");
    command->add_flag("--null", options.null, "Write nothing: check and count the frames")
        ->excludes(output, png, force);
    command->add_flag("--quiet", options.quiet, "No progress, no summary");
    command->add_flag("--verbose", options.verbose, "Show the library's messages as they come");
    addTimeout(*command, options.timeout, "Longest wait for the start and for each frame");
    return command;
}

CLI::App* addInfo(CLI::App& app, InfoOptions& options) {
    CLI::App* const command = app.add_subcommand("info", "Show what container files say");
    command->footer(
        "\nA file may hold several containers, as capture -o - writes them. Exit code 1 when one "
        "is\n"
        "damaged, with what is wrong in it and at which byte.");
    command->add_option("files", options.files, "Container files; - for standard input")
        ->required()
        ->type_name("FILE");
    command->add_flag("--json", options.json, "Print one JSON object a file");
    return command;
}

void readValue(ControlOptions& options) {
    const std::string& text = options.value;
    if (options.property == Property::lamp) {
        if (text == "on" || text == "off") return;
        throw CommandError(exitUsage, "the lamp is on or off, not \"" + shown(text) + '"');
    }
    const char* const end = text.data() + text.size();
    const auto [rest, fault] = std::from_chars(text.data(), end, options.exposure);
    if (fault == std::errc() && rest == end && options.exposure >= 0) return;
    throw CommandError(exitUsage, "\"" + shown(text) + "\" is no exposure: 0 to 2147483647");
}

// An option that cannot take effect is an error.
void checkCapture(const CaptureCommandOptions& options) {
    const auto refuse = [](const char* what) { throw CommandError(exitUsage, what); };
    if (options.output.empty()) refuse("--output must not be empty");
    if (options.stretch && !options.png) refuse("--stretch is for --png");
    if (!options.toStdout()) return;
    if (options.png) refuse("--png needs a folder, not -o -");
    if (options.force) refuse("--force needs a folder, not -o -");
}

}  // namespace

milliseconds parseDuration(const std::string& text) {
    double value = 0;
    const auto [rest, fault] =
        std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    const std::string_view unit(rest, static_cast<std::size_t>(text.data() + text.size() - rest));
    const double scale = unit == "ms" ? 1 : (unit == "s" || unit.empty()) ? 1000 : 0;
    constexpr double kDay = 24 * 3600 * 1000.0;
    const double length = value * scale;
    if (fault != std::errc() || !(length >= 1) || !(length <= kDay)) {
        throw std::invalid_argument("\"" + text +
                                    "\" is no time such as 5s or 500ms (at most 24 h)");
    }
    return milliseconds(static_cast<std::int64_t>(length));
}

int runCommandLine(int argc, char** argv) {
    CLI::App app("Lists, sets and captures from HX spectral cameras.", "hxcam");
    app.set_version_flag("--version", "hxcam " HX_VERSION);
    app.footer(std::string(kExamples) + kExitCodes + "More: man hxcam, hxcam COMMAND --help");
    app.require_subcommand(1);
    ListOptions listOptions;
    ControlOptions getOptions;
    ControlOptions setOptions;
    CaptureCommandOptions captureOptions;
    InfoOptions infoOptions;
    ConvertOptions convertOptions;
    CubeOptions cubeOptions;
    const CLI::App* const list = addList(app, listOptions);
    const CLI::App* const get = addGet(app, getOptions);
    const CLI::App* const set = addSet(app, setOptions);
    const CLI::App* const capture = addCapture(app, captureOptions);
    addInfo(app, infoOptions);
    const CLI::App* const convert = addConvert(app, convertOptions);
    const CLI::App* const cube = addCube(app, cubeOptions);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& outcome) {
        // Help and version are outcomes too, with code 0.
        std::ostringstream text;
        if (app.exit(outcome, text, text) != 0) {
            throw CommandError(exitUsage, shown(outcome.what()) + " (see hxcam --help)");
        }
        print(text.str());
        return exitOk;
    }
    if (*set) readValue(setOptions);
    if (*capture) checkCapture(captureOptions);
    if (*convert) checkConvert(convertOptions);
    if (*cube) checkCube(cubeOptions);
    // Signals are taken only where something waits for them.
    if (*list) return runList(listOptions, Interrupt());
    if (*get) return runGet(getOptions, Interrupt());
    if (*set) return runSet(setOptions, Interrupt());
    if (*capture) return runCapture(captureOptions, Interrupt());
    if (*convert) return runConvert(convertOptions, Interrupt());
    if (*cube) return runCube(cubeOptions, Interrupt());
    return runInfo(infoOptions);
}

}  // namespace hxcam
