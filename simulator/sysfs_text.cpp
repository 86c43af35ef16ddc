// SPDX-License-Identifier: MIT
#include "sysfs_text.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>

#include "state_link.h"

namespace hx::sim {

namespace {

struct SysfsPath {
    std::uint32_t minor;
    std::string_view file;
};

std::optional<SysfsPath> splitPath(std::string_view path) {
    for (const std::string_view folder : {"/sys/dev/char/81:", "/sys/class/video4linux/video"}) {
        if (!path.starts_with(folder)) continue;
        path.remove_prefix(folder.size());
        SysfsPath result = {};
        const char* end = path.data() + path.size();
        const auto [stop, error] = std::from_chars(path.data(), end, result.minor);
        if (error != std::errc{} || stop == end || *stop != '/') return std::nullopt;
        result.file = path.substr(static_cast<std::size_t>(stop - path.data()) + 1);
        return result;
    }
    return std::nullopt;
}

const char* cardOf(const SharedState& state, const NodeRef& node) {
    if (node.kind == NodeKind::foreign) return state.foreign[node.index].card.data();
    return state.cameras[node.index].config.card.data();
}

const char* serialOf(const SharedState& state, const NodeRef& node) {
    return node.kind == NodeKind::foreign ? "" : state.cameras[node.index].config.serial.data();
}

}  // namespace

bool sysfsText(const char* path, char* text, std::size_t size) {
    constexpr std::string_view kSys = "/sys/";
    if (!path || !std::string_view(path).starts_with(kSys) || !stateAttached()) return false;
    const auto wanted = splitPath(path);
    if (!wanted) return false;
    const StateLock state;
    const auto node = findNode(*state, wanted->minor);
    if (!node) return false;
    const auto number = node->minor;
    if (wanted->file == "uevent") {
        std::snprintf(text, size, "MAJOR=81\nMINOR=%u\nDEVNAME=video%u\n", number, number);
    } else if (wanted->file == "dev") {
        std::snprintf(text, size, "81:%u\n", number);
    } else if (wanted->file == "index") {
        std::snprintf(text, size, "%d\n", node->kind == NodeKind::metadata ? 1 : 0);
    } else if (wanted->file == "name") {
        std::snprintf(text, size, "%s\n", cardOf(*state, *node));
    } else if (wanted->file == "device/../serial" && *serialOf(*state, *node)) {
        std::snprintf(text, size, "%s\n", serialOf(*state, *node));
    } else {
        return false;
    }
    return true;
}

}  // namespace hx::sim
