// SPDX-License-Identifier: MIT
#include "camera_survey.h"

#include <dirent.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <utility>

#include "bounded_call.h"
#include "device_query.h"
#include "exit_code.h"

namespace hxcam {
namespace {

using nlohmann::json;

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

// "video2" before "video10".
bool comesBefore(const std::string& a, const std::string& b) {
    return std::pair(a.size(), a) < std::pair(b.size(), b);
}

std::vector<std::string> videoNodes() {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir("/dev"));
    if (!directory) {
        throw CommandError(exitFailed, fmt::format("cannot read /dev: {}", std::strerror(errno)));
    }
    std::vector<std::string> nodes;
    while (const dirent* entry = readdir(directory.get())) {
        if (std::strncmp(entry->d_name, "video", 5) == 0) {
            nodes.push_back(std::string("/dev/") + entry->d_name);
        }
    }
    std::sort(nodes.begin(), nodes.end(), comesBefore);
    return nodes;
}

std::string textOf(const json& bytes) {
    const auto values = bytes.get<std::vector<unsigned char>>();
    return {values.begin(), values.end()};
}

// The code stands between the fifth character of the name and the name's closing dash.
std::string spectralCodeOf(const std::string& text) {
    const std::size_t nameDash = text.find('-', text.find('.'));
    const std::size_t begin = nameDash + 6;
    const std::size_t end = text.find('-', nameDash + 1);
    return text.substr(begin, end == std::string::npos ? end : end - begin);
}

/// Why the library refuses an identification; nothing when it does not.
std::optional<std::string> faultOf(const std::string& text, hx::Identification& id) {
    try {
        switch (hx::parseIdentification(text, id)) {
            case hx::IdentificationFault::none:
                return std::nullopt;
            case hx::IdentificationFault::model:
                return "unknown model";
            case hx::IdentificationFault::exposure:
                return "unknown exposure field";
            case hx::IdentificationFault::spectral:
                return "unknown spectral code";
        }
    } catch (const std::out_of_range&) {
        return "too short for a spectral code";
    }
    return "not understood";
}

OtherNode failedNode(OtherNode other, const std::string& step, int number) {
    const bool atOpen = step == "open";
    const char* const text = std::strerror(number);
    other.kind = OtherNode::Kind::failed;
    other.reason = fmt::format("{}: {}", step, text);
    if (atOpen && (number == EACCES || number == EPERM)) {
        other.kind = OtherNode::Kind::denied;
        other.reason = fmt::format("{}: is this user in the group \"video\"?", text);
    } else if (number == ETIMEDOUT) {
        other.kind = OtherNode::Kind::silent;
        other.reason = fmt::format("no answer to the {} request", step);
    } else if (step == "QUERYCAP") {
        other.kind = OtherNode::Kind::foreign;
        other.reason = "no video device";
    } else if (step == "identification") {
        other.kind = OtherNode::Kind::foreign;
        other.reason = fmt::format("no HX camera: it refuses the identification query ({})", text);
    }
    return other;
}

void addNode(Survey& survey, const std::string& node, const json& told) {
    OtherNode other{.node = node};
    if (told.contains("card")) other.card = textOf(told["card"]);
    if (told.value("capture", true) == false) {
        other.kind = OtherNode::Kind::foreign;
        other.reason = "no video capture on this node (metadata or output)";
        survey.others.push_back(other);
        return;
    }

    Camera camera{.node = node, .card = other.card};
    std::optional<std::string> fault;
    if (told.contains("identification")) {
        camera.text = textOf(told["identification"]);
        fault = faultOf(camera.text, camera.id);
    }
    if (fault) {
        other.kind = OtherNode::Kind::refused;
        other.reason = fmt::format("identification \"{}\": {}", camera.text, *fault);
        survey.others.push_back(other);
    } else if (told.contains("failed")) {
        survey.others.push_back(failedNode(other, told["failed"], told["errno"]));
    } else {
        const json& range = told["exposure"];
        camera.bus = textOf(told["bus"]);
        camera.spectralCode = spectralCodeOf(camera.text);
        camera.exposure = {range["min"], range["max"], range["step"], range["default"]};
        survey.cameras.push_back(std::move(camera));
    }
}

Survey surveyNodes(const std::vector<std::string>& nodes, std::chrono::milliseconds timeout,
                   const Interrupt& interrupt) {
    std::vector<Question> questions;
    questions.reserve(nodes.size());
    for (const std::string& node : nodes) {
        questions.push_back([node] { return describeNode(node).dump(); });
    }
    const std::vector<Answer> answers = askBounded(questions, timeout, interrupt.fd());

    Survey survey;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        OtherNode other{.node = nodes[i]};
        switch (answers[i].state) {
            case Answer::State::interrupted:
                throw CommandError(exitInterrupted, "interrupted");
            case Answer::State::whole:
                addNode(survey, nodes[i], json::parse(answers[i].text));
                break;
            case Answer::State::silent:
                other.kind = OtherNode::Kind::silent;
                other.reason = fmt::format("no answer within {} ms", timeout.count());
                survey.others.push_back(other);
                break;
            case Answer::State::broken:
                other.reason = "the process that asked it ended early";
                survey.others.push_back(other);
                break;
        }
    }
    return survey;
}

}  // namespace

Survey surveyCameras(std::chrono::milliseconds timeout, const Interrupt& interrupt) {
    return surveyNodes(videoNodes(), timeout, interrupt);
}

Survey surveyNode(const std::string& node, std::chrono::milliseconds timeout,
                  const Interrupt& interrupt) {
    return surveyNodes({node}, timeout, interrupt);
}

}  // namespace hxcam
