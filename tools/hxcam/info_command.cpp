// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <vector>

#include "codec/hx_container.h"
#include "commands.h"
#include "exit_code.h"
#include "terminal.h"
#include "whole_file.h"

namespace hxcam {
namespace {

using nlohmann::json;

constexpr std::size_t kShownElements = 16;

std::string typeText(FileDataType type) {
    if (type == Data8_4) return "text";
    const std::uint64_t size = elementSize(type);
    return size == 0 ? fmt::format("unknown ({})", static_cast<unsigned>(type))
                     : fmt::format("{} bit", 8 * size);
}

json valueOf(const hx::ContainerEntry& entry, std::size_t most) {
    if (entry.type == Data8_4) return entry.text();
    if (entry.payload.empty()) return nullptr;
    if (entry.count == 1) return entry.number(0);
    json values = json::array();
    for (std::size_t i = 0; i < entry.count && i < most; ++i) values.push_back(entry.number(i));
    return values;
}

json describe(const hx::ContainerView& frame, std::size_t offset) {
    json entries = json::array();
    for (std::size_t i = 0; i < frame.entryCount(); ++i) {
        const hx::ContainerEntry entry = frame.entry(i);
        entries.push_back({{"tag", entry.tag},
                           {"name", hx::tagName(entry.tag)},
                           {"type", static_cast<unsigned>(entry.type)},
                           {"count", entry.count},
                           {"value", valueOf(entry, entry.count)}});
    }
    return {{"offset", offset},
            {"size", frame.size()},
            {"kind", frame.kind()},
            {"sample_bytes", frame.mainData().size()},
            {"entries", entries}};
}

std::string report(const hx::ContainerView& frame, const std::string& path, std::size_t offset) {
    std::string text = fmt::format(
        "{}: container at byte {}, {} bytes, kind 0x{:04X}, {} bytes of samples, {} entries\n",
        shown(path), offset, frame.size(), frame.kind(), frame.mainData().size(),
        frame.entryCount());
    text +=
        fmt::format("  {:>5}  {:<19}  {:<6}  {:>7}  {}\n", "TAG", "NAME", "TYPE", "COUNT", "VALUE");
    for (std::size_t i = 0; i < frame.entryCount(); ++i) {
        const hx::ContainerEntry entry = frame.entry(i);
        const json value = valueOf(entry, kShownElements);
        std::string shownValue = value.is_string() ? shown(value.get<std::string>()) : value.dump();
        if (value.is_array() && entry.count > kShownElements) shownValue += " ...";
        text += fmt::format("  {:>5}  {:<19}  {:<6}  {:>7}  {}\n", entry.tag,
                            hx::tagName(entry.tag), typeText(entry.type), entry.count, shownValue);
    }
    return text;
}

/// Containers may lie back to back, as capture writes them to standard output.
bool showFile(const std::string& path, bool asJson) {
    json containers = json::array();
    std::string fault;
    std::size_t offset = 0;
    try {
        const std::vector<std::byte> bytes = readWholeFile(path);
        do {
            const hx::ContainerView frame{std::span(bytes).subspan(offset)};
            if (asJson) {
                containers.push_back(describe(frame, offset));
            } else {
                print(report(frame, path, offset));
            }
            frame.requireOrder();
            offset += frame.size();
        } while (offset < bytes.size());
    } catch (const hx::ContainerFault& damage) {
        fault = fmt::format("at byte {}: {}", offset + damage.offset(), damage.what());
    } catch (const ReadFailed& failure) {
        fault = failure.what();
    }
    if (asJson) {
        json line = {{"file", path}, {"containers", containers}};
        if (!fault.empty()) line["error"] = fault;
        print(line.dump(-1, ' ', false, json::error_handler_t::replace) + '\n');
    }
    if (!fault.empty()) complain(fmt::format("{}: {}", shown(path), fault));
    return fault.empty();
}

}  // namespace

int runInfo(const InfoOptions& options) {
    bool whole = true;
    for (const std::string& path : options.files) whole = showFile(path, options.json) && whole;
    return whole ? exitOk : exitFailed;
}

}  // namespace hxcam
