// SPDX-License-Identifier: MIT
// What people read: messages on standard error, tables on standard output.
#pragma once

#include <fmt/core.h>

#include <string>
#include <string_view>

namespace hxcam {

/// Takes the terminal's encoding from the locale. Called once, before anything is printed.
void useTerminalEncoding();

/// `utf8` as the terminal can show it: control characters and broken UTF-8 as \xNN, then in the
/// terminal's encoding. Texts of devices and files go through this.
std::string shown(std::string_view utf8);

/// One line on standard error: "hxcam: message".
void complain(std::string_view message);

/// One line on standard error as it is.
void tell(std::string_view line);

/// Prints to standard output. Throws CommandError at once when it cannot take it.
void print(std::string_view text);

}  // namespace hxcam
