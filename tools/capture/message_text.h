// SPDX-License-Identifier: MIT
// The child's standard error, cut into lines of UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace hx {

/// As a whole or not at all. `from` and `to` are names that iconv knows.
std::optional<std::string> convertText(std::string_view bytes, const char* from, const char* to);

bool isUtf8(std::string_view bytes);

/// A line as UTF-8. The library prints one of its messages in GBK: bytes that are not UTF-8 are
/// taken for GBK, and what is not GBK either is shown as \xNN.
std::string decodeMessage(std::string_view bytes);

/// Collects bytes and hands out whole lines. A line that does not end is cut at a fixed length.
class LineBuffer {
  public:
    void append(std::string_view bytes) { bytes_.append(bytes); }
    /// Moves the next whole line into `line`; at the stream's end also one without newline.
    bool next(std::string& line, bool atEnd = false);

  private:
    std::string bytes_;
};

}  // namespace hx
