// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <vector>

#include "capture/message_text.h"
#include "codec/hx_container.h"
#include "commands.h"
#include "exit_code.h"
#include "terminal.h"
#include "whole_file.h"

namespace hxcam {
namespace {

using nlohmann::json;

constexpr std::size_t kShownElements = 16;
constexpr std::size_t kListedElements = 4096;  // in JSON, where each takes many bytes

std::string typeText(FileDataType type) {
    if (type == Data8_4) return "text";
    const std::uint64_t size = elementSize(type);
    return size == 0 ? fmt::format("type {}", static_cast<unsigned>(type))
                     : fmt::format("{} bit", 8 * size);
}

std::string toHex(std::span<const std::byte> bytes) {
    std::string text;
    for (const std::byte byte : bytes) text += fmt::format("{:02x}", std::to_integer<int>(byte));
    return text;
}

json valueOf(const hx::ContainerEntry& entry, std::size_t most) {
    if (entry.type == Data8_4) return entry.text();
    if (entry.payload.empty()) return nullptr;
    if (entry.count == 1) return entry.number();
    json values = json::array();
    for (std::size_t i = 0; i < entry.count && i < most; ++i) values.push_back(entry.number(i));
    return values;
}

// JSON has no place for a text that is not UTF-8, nor a text entry a sign for what follows its
// zero.
bool isMoreThanText(const hx::ContainerEntry& entry) {
    const std::string_view text = entry.text();
    return entry.type == Data8_4 && (!hx::isUtf8(text) || text.size() + 1 < entry.payload.size());
}

json errorOf(const hx::ContainerFault& fault, std::size_t start) {
    return {{"offset", start + fault.offset()}, {"message", fault.what()}};
}

json describe(const hx::ContainerView& frame, std::size_t offset) {
    json entries = json::array();
    for (std::size_t i = 0; i < frame.entryCount(); ++i) {
        const hx::ContainerEntry entry = frame.entry(i);
        json& last = entries.emplace_back(json{{"tag", entry.tag},
                                               {"name", hx::tagName(entry.tag)},
                                               {"type", static_cast<unsigned>(entry.type)},
                                               {"count", entry.count},
                                               {"value", valueOf(entry, kListedElements)}});
        if (isMoreThanText(entry)) last["hex"] = toHex(entry.payload);
        if (last["value"].is_array() && entry.count > kListedElements) last["cut"] = true;
    }
    return {{"offset", offset},
            {"size", frame.size()},
            {"kind", frame.kind()},
            {"sample_type", static_cast<unsigned>(frame.mainType())},
            {"sample_bytes", frame.mainData().size()},
            {"entries", entries}};
}

std::string samplesText(const hx::ContainerView& frame) {
    const std::uint64_t element = elementSize(frame.mainType());
    return fmt::format("{} samples of {}", element == 0 ? 0 : frame.mainData().size() / element,
                       typeText(frame.mainType()));
}

std::string report(const hx::ContainerView& frame, const std::string& path, std::size_t offset) {
    std::string text = fmt::format(
        "{}: container at byte {}, {} bytes, kind 0x{:04X}, {}, {} entries\n", shown(path), offset,
        frame.size(), frame.kind(), samplesText(frame), frame.entryCount());
    text +=
        fmt::format("  {:>5}  {:<19}  {:<6}  {:>7}  {}\n", "TAG", "NAME", "TYPE", "COUNT", "VALUE");
    for (std::size_t i = 0; i < frame.entryCount(); ++i) {
        const hx::ContainerEntry entry = frame.entry(i);
        const json value = valueOf(entry, kShownElements);
        std::string shownValue = value.is_string() ? shown(value.get<std::string>())
                                 : value.is_null() ? "-"
                                                   : value.dump();
        if (value.is_array() && entry.count > kShownElements) shownValue += " ...";
        text += fmt::format("  {:>5}  {:<19}  {:<6}  {:>7}  {}\n", entry.tag,
                            hx::tagName(entry.tag), typeText(entry.type), entry.count, shownValue);
    }
    return text;
}

json disorderOf(const hx::ContainerView& frame, std::size_t offset) {
    try {
        frame.requireOrder();
        return nullptr;
    } catch (const hx::ContainerFault& damage) {
        return errorOf(damage, offset);
    }
}

void complainOf(const std::string& path, const json& error) {
    const std::string place =
        error["offset"].is_null() ? "" : fmt::format("at byte {}: ", error["offset"].dump());
    complain(shown(path) + ": " + place + error["message"].get<std::string>());
}

/// Containers may lie back to back, as capture writes them to standard output.
bool showFile(const std::string& path, bool asJson) {
    json containers = json::array();
    json faults = json::array();
    json error;
    std::size_t offset = 0;
    try {
        const std::vector<std::byte> bytes = readWholeFile(path);
        do {
            const hx::ContainerView frame{std::span(bytes).subspan(offset)};
            const json disorder = disorderOf(frame, offset);
            if (asJson) {
                containers.push_back(describe(frame, offset));
                containers.back()["error"] = disorder;
            } else {
                print(report(frame, path, offset));
            }
            if (!disorder.is_null()) faults.push_back(disorder);
            offset += frame.size();
        } while (offset < bytes.size());
    } catch (const hx::ContainerFault& damage) {
        error = errorOf(damage, offset);
    } catch (const ReadFailed& failure) {
        error = {{"offset", nullptr}, {"message", failure.what()}};
    }
    if (asJson) {
        const json line = {{"file", path}, {"containers", containers}, {"error", error}};
        print(line.dump(-1, ' ', false, json::error_handler_t::replace) + '\n');
    }
    if (!error.is_null()) faults.push_back(error);
    for (const json& fault : faults) complainOf(path, fault);
    return faults.empty();
}

}  // namespace

int runInfo(const InfoOptions& options) {
    bool whole = true;
    for (const std::string& path : options.files) whole = showFile(path, options.json) && whole;
    return whole ? exitOk : exitFailed;
}

}  // namespace hxcam
