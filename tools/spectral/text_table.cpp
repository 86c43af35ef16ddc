// SPDX-License-Identifier: MIT
#include "spectral/text_table.h"

#include <charconv>
#include <cmath>

#include "spectral/picture_size.h"

namespace hx {
namespace {

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

/// Takes what stands before `mark` off the front of `rest`.
std::string_view takeUpTo(char mark, std::string_view& rest) {
    const std::size_t end = rest.find(mark);
    const std::string_view part = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return part;
}

template <class Number>
std::optional<Number> wholeText(std::string_view text) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [rest, fault] = std::from_chars(text.data(), end, value);
    if (fault != std::errc() || rest != end) return std::nullopt;
    return value;
}

}  // namespace

std::vector<TableLine> tableLines(std::string_view text) {
    std::vector<TableLine> lines;
    for (std::size_t number = 1; !text.empty(); ++number) {
        std::string_view line = trimmed(takeUpTo('\n', text));
        if (line.empty() || line.front() == '#') continue;
        TableLine& added = lines.emplace_back();
        added.number = number;
        const bool endsOpen = line.back() == ',';
        while (!line.empty()) added.fields.emplace_back(trimmed(takeUpTo(',', line)));
        if (endsOpen) added.fields.emplace_back();
    }
    return lines;
}

std::optional<double> realNumber(std::string_view text) {
    const auto value = wholeText<double>(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

std::optional<std::size_t> wholeNumber(std::string_view text) {
    return wholeText<std::size_t>(text);
}

void failAtLine(std::size_t number, const std::string& what) {
    throw SpectralFault("line " + std::to_string(number) + ": " + what);
}

}  // namespace hx
