// SPDX-License-Identifier: MIT
#include "camera_choice.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "terminal.h"

namespace hxcam {
namespace {

std::string withoutDash(std::string name) {
    if (name.ends_with('-')) name.pop_back();
    return name;
}

bool fits(const Camera& camera, std::size_t index, const std::string& wanted) {
    return wanted == std::to_string(index) || wanted == camera.node || wanted == camera.text ||
           wanted == camera.id.name || wanted == withoutDash(camera.id.name);
}

std::string choices(const Survey& survey) {
    std::string text;
    for (std::size_t i = 0; i < survey.cameras.size(); ++i) {
        const Camera& camera = survey.cameras[i];
        text += fmt::format("\n  {}  {}  {}  {}", i, camera.node, shown(camera.id.name),
                            shown(camera.text));
    }
    return text;
}

/// A node as the library knows it: links such as /dev/v4l/by-id/... are followed.
std::string nodeOf(const std::string& wanted) {
    if (!wanted.starts_with("/")) return "";
    std::error_code fault;
    const auto target = std::filesystem::canonical(wanted, fault);
    const std::string node = fault ? wanted : target.string();
    return node.starts_with("/dev/video") ? node : "";
}

[[noreturn]] void failWithout(const Survey& survey) {
    reportUnasked(survey);
    throw CommandError(codeWithoutCamera(survey), "no camera found");
}

Camera chooseAmong(const Survey& survey, const std::string& wanted) {
    if (survey.cameras.empty()) failWithout(survey);
    std::vector<const Camera*> fitting;
    for (std::size_t i = 0; i < survey.cameras.size(); ++i) {
        if (wanted.empty() || fits(survey.cameras[i], i, wanted)) {
            fitting.push_back(&survey.cameras[i]);
        }
    }
    if (fitting.size() == 1) return *fitting[0];
    if (fitting.empty()) {
        reportUnasked(survey);
        throw CommandError(exitNoCamera, fmt::format("no camera \"{}\"; there are:{}",
                                                     shown(wanted), choices(survey)));
    }
    const std::string what = wanted.empty()
                                 ? "several cameras, say which with --camera"
                                 : fmt::format("\"{}\" fits several cameras", shown(wanted));
    throw CommandError(exitUsage, fmt::format("{}:{}", what, choices(survey)));
}

}  // namespace

void reportUnasked(const Survey& survey) {
    for (const OtherNode& other : survey.others) {
        if (other.kind == OtherNode::Kind::foreign) continue;
        complain(fmt::format("{}: {}", other.node, shown(other.reason)));
    }
}

ExitCode codeWithoutCamera(const Survey& survey) {
    const bool silent =
        std::any_of(survey.others.begin(), survey.others.end(),
                    [](const OtherNode& other) { return other.kind == OtherNode::Kind::silent; });
    return silent ? exitTimeout : exitNoCamera;
}

Camera chooseCamera(const std::string& wanted, std::chrono::milliseconds timeout,
                    const Interrupt& interrupt) {
    const std::string node = nodeOf(wanted);
    if (node.empty()) return chooseAmong(surveyCameras(timeout, interrupt), wanted);

    // A node is asked alone: what other devices do is no concern of its user.
    const Survey one = surveyNode(node, timeout, interrupt);
    if (!one.cameras.empty()) return one.cameras[0];
    if (codeWithoutCamera(one) == exitTimeout) failWithout(one);
    const Survey all = surveyCameras(timeout, interrupt);
    throw CommandError(exitNoCamera, fmt::format("{} is no camera ({}); there are:{}", node,
                                                 shown(one.others[0].reason),
                                                 all.cameras.empty() ? " none" : choices(all)));
}

}  // namespace hxcam
