// SPDX-License-Identifier: MIT
#include "provenance.h"

#include <fmt/format.h>

namespace hxcam {

Provenance provenanceOf(const SourceFrame& frame) {
    const hx::ContainerView& view = frame.view;
    return {{"source", frame.path == "-" ? "standard input" : headerText(frame.path)},
            {"identification", headerText(view.identification())},
            {"exposure", std::to_string(view.exposure())},
            {"exposure units", "100 us"},
            {"time", headerText(view.time())},
            {"software", kSoftware}};
}

std::string linesOf(const Provenance& provenance) {
    std::string lines;
    for (const auto& [key, value] : provenance) lines += fmt::format("{} = {}\n", key, value);
    return lines;
}

std::string headerText(std::string_view text) {
    std::string plain;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = byte >= 0x20 && byte < 0x7f && c != '{' && c != '}';
        plain += isPlain ? std::string(1, c) : fmt::format("\\x{:02x}", byte);
    }
    return plain;
}

}  // namespace hxcam
