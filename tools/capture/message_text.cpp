// SPDX-License-Identifier: MIT
#include "message_text.h"

#include <iconv.h>

#include <algorithm>

namespace hx {
namespace {

constexpr std::size_t kLongestLine = 1024;

/// Converts as a whole or not at all.
bool convert(const char* from, std::string_view bytes, std::string& out) {
    const iconv_t converter = iconv_open("UTF-8", from);
    if (converter == reinterpret_cast<iconv_t>(-1)) return false;
    std::string input(bytes);
    out.resize(4 * input.size());
    char* in = input.data();
    char* next = out.data();
    std::size_t inLeft = input.size();
    std::size_t outLeft = out.size();
    const bool whole = iconv(converter, &in, &inLeft, &next, &outLeft) != std::size_t(-1);
    iconv_close(converter);
    out.resize(out.size() - outLeft);
    return whole;
}

std::string escapeHighBytes(std::string_view bytes) {
    constexpr char kHex[] = "0123456789abcdef";
    std::string out;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            out += c;
        } else {
            out += {'\\', 'x', kHex[byte >> 4], kHex[byte & 15]};
        }
    }
    return out;
}

}  // namespace

bool isUtf8(std::string_view bytes) {
    std::string ignored;
    return convert("UTF-8", bytes, ignored);
}

std::string decodeMessage(std::string_view bytes) {
    if (isUtf8(bytes)) return std::string(bytes);
    std::string text;
    return convert("GBK", bytes, text) ? text : escapeHighBytes(bytes);
}

bool LineBuffer::next(std::string& line, bool atEnd) {
    std::size_t end = bytes_.find('\n');
    std::size_t used = end + 1;
    if (end == std::string::npos || end > kLongestLine) {
        if (bytes_.size() <= kLongestLine && !(atEnd && !bytes_.empty())) return false;
        end = used = std::min(bytes_.size(), kLongestLine);
    }
    line = decodeMessage(std::string_view(bytes_).substr(0, end));
    bytes_.erase(0, used);
    return true;
}

}  // namespace hx
