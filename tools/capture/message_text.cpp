// SPDX-License-Identifier: MIT
#include "message_text.h"

#include <iconv.h>

#include <algorithm>

namespace hx {
namespace {

constexpr std::size_t kLongestLine = 1024;

// iconv_open's failure value, made once from the integer that POSIX gives.
const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr)

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

std::optional<std::string> convertText(std::string_view bytes, const char* from, const char* to) {
    iconv_t converter = iconv_open(to, from);
    if (converter == kNoConverter) return std::nullopt;
    std::string input(bytes);
    std::string out(4 * bytes.size() + 16, '\0');
    char* in = input.data();
    char* next = out.data();
    std::size_t inLeft = input.size();
    std::size_t outLeft = out.size();
    const bool whole = iconv(converter, &in, &inLeft, &next, &outLeft) != std::size_t(-1);
    iconv_close(converter);
    if (!whole) return std::nullopt;
    out.resize(out.size() - outLeft);
    return out;
}

bool isUtf8(std::string_view bytes) {
    return convertText(bytes, "UTF-8", "UTF-8").has_value();
}

std::string decodeMessage(std::string_view bytes) {
    if (isUtf8(bytes)) return std::string(bytes);
    return convertText(bytes, "GBK", "UTF-8").value_or(escapeHighBytes(bytes));
}

bool LineBuffer::next(std::string& line, bool atEnd) {
    std::size_t end = bytes_.find('\n');
    std::size_t used = end + 1;
    if (end > kLongestLine) {  // npos too
        const bool mayGrow = !atEnd || bytes_.empty();
        if (bytes_.size() <= kLongestLine && mayGrow) return false;
        end = used = std::min(bytes_.size(), kLongestLine);
    }
    line = decodeMessage(std::string_view(bytes_).substr(0, end));
    bytes_.erase(0, used);
    return true;
}

}  // namespace hx
