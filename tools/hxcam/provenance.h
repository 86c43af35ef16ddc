// SPDX-License-Identifier: MIT
// Where a result comes from, for its header.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "frame_batch.h"

namespace hxcam {

constexpr char kSoftware[] = "hxcam " HX_VERSION;

/// Keys and values, all of plain ASCII on one line each.
using Provenance = std::vector<std::pair<std::string, std::string>>;

/// Source file, identification, exposure, time, software.
Provenance provenanceOf(const SourceFrame& frame);

/// "key = value", a line for each.
std::string linesOf(const Provenance& provenance);

/// Texts of devices and files as headers can carry them: other bytes than plain ASCII, and braces,
/// as \xNN.
std::string headerText(std::string_view text);

}  // namespace hxcam
