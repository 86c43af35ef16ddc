// SPDX-License-Identifier: MIT
// The requests that hxcam sends to a video node itself. None of them needs the stream, so they work
// on a camera that another program captures from and do not disturb it. Each call opens the node
// and closes it again, and may take as long as the device likes: call them by askBounded.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace hxcam {

/// What a node says of itself, for a CameraSurvey:
///     {"card", "bus", "capture": bool}                       QUERYCAP
///     {"identification": [bytes]}                            the camera's own query
///     {"exposure": {"min", "max", "step", "default"}}        QUERYCTRL
/// or, at the first step that fails, {"failed": step, "errno": number} beside what came before.
nlohmann::json describeNode(const std::string& node);

/// {"exposure": number}, or {"failed", "errno"}.
nlohmann::json readExposure(const std::string& node);

/// Sets and reads back: {"exposure": number}, or {"failed", "errno"}.
nlohmann::json writeExposure(const std::string& node, std::int32_t exposure);

}  // namespace hxcam
