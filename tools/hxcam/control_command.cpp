// SPDX-License-Identifier: MIT
// get and set: requests on the node itself, so that they work while another program captures.
#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "bounded_call.h"
#include "camera_choice.h"
#include "commands.h"
#include "device_query.h"
#include "exit_code.h"
#include "terminal.h"

namespace hxcam {
namespace {

using nlohmann::json;

std::int32_t askExposure(const Camera& camera, const Question& question,
                         const ControlOptions& options, const Interrupt& interrupt) {
    const Answer answer = askBounded({question}, options.timeout, interrupt.fd())[0];
    if (answer.state == Answer::State::interrupted) {
        throw CommandError(exitInterrupted, "interrupted");
    }
    if (answer.state == Answer::State::silent) {
        throw CommandError(exitTimeout, fmt::format("{}: no answer within {} ms", camera.node,
                                                    options.timeout.count()));
    }
    const json told = answer.state == Answer::State::whole ? json::parse(answer.text) : json();
    if (told.contains("exposure")) return told["exposure"];
    if (!told.contains("failed")) {
        throw CommandError(exitFailed, camera.node + ": the process that asked it ended early");
    }
    const int number = told["errno"];
    std::string message = fmt::format("{}: {}: {}", camera.node, told["failed"].get<std::string>(),
                                      std::strerror(number));
    if (number == EACCES) message += " (is an automatic exposure on?)";
    if (number == ENODEV) throw CommandError(exitCameraLost, message);
    throw CommandError(number == ETIMEDOUT ? exitTimeout : exitFailed, message);
}

// Nothing ever drives the lamp, so whether it shines is not known to anyone here.
const char* lampText(const Camera& camera) {
    return camera.id.lampPresent ? "present" : "absent";
}

int setExposure(const Camera& camera, const ControlOptions& options, const Interrupt& interrupt) {
    const auto write = [&] { return writeExposure(camera.node, options.exposure).dump(); };
    const std::int32_t used = askExposure(camera, write, options, interrupt);
    print(fmt::format("{}\n", used));
    if (used == options.exposure) return exitOk;
    complain(fmt::format("asked for {}, the camera uses {} (its range is {} to {})",
                         options.exposure, used, camera.exposure.min, camera.exposure.max));
    return exitFailed;
}

int setLamp(const Camera& camera, const ControlOptions& options) {
    if (!camera.id.lampPresent) {
        complain(fmt::format("{} has no lamp", shown(camera.id.name)));
    } else {
        complain(fmt::format("nothing was switched {}: no request of these cameras drives the lamp",
                             options.value));
    }
    return exitFailed;
}

}  // namespace

int runGet(const ControlOptions& options, const Interrupt& interrupt) {
    const Camera camera = chooseCamera(options.camera, options.timeout, interrupt);
    json values = json::object();
    if (options.property != Property::lamp) {
        const auto read = [&] { return readExposure(camera.node).dump(); };
        values["exposure"] = askExposure(camera, read, options, interrupt);
    }
    if (options.property != Property::exposure) values["lamp"] = lampText(camera);

    if (options.json) {
        print(values.dump() + '\n');
        return exitOk;
    }
    for (const auto& [name, value] : values.items()) {
        const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
        print(options.property ? text + '\n' : fmt::format("{} {}\n", name, text));
    }
    return exitOk;
}

int runSet(const ControlOptions& options, const Interrupt& interrupt) {
    const Camera camera = chooseCamera(options.camera, options.timeout, interrupt);
    if (options.property == Property::lamp) return setLamp(camera, options);
    return setExposure(camera, options, interrupt);
}

}  // namespace hxcam
