// SPDX-License-Identifier: MIT
// Small tables that people write: lines of fields, with comments.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hx {

struct TableLine {
    std::size_t number = 0;  ///< in the file, from 1
    std::vector<std::string> fields;
};

/// The lines of `text` that are neither empty nor begin with #. Fields end at a comma and lose the
/// blanks around them.
std::vector<TableLine> tableLines(std::string_view text);

/// Numbers that are that and nothing else.
std::optional<double> realNumber(std::string_view text);
std::optional<std::size_t> wholeNumber(std::string_view text);

/// Throws SpectralFault "line N: what".
[[noreturn]] void failAtLine(std::size_t number, const std::string& what);

}  // namespace hx
