// SPDX-License-Identifier: MIT
#include "terminal.h"

#include <langinfo.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>

#include "capture/message_text.h"
#include "exit_code.h"

namespace hxcam {
namespace {

std::string encoding = "UTF-8";

// UTF-8 to the terminal's encoding, whatever of it that encoding has.
std::string encode(const std::string& utf8) {
    if (encoding == "UTF-8") return utf8;
    return hx::convertText(utf8, "UTF-8", (encoding + "//TRANSLIT").c_str()).value_or(utf8);
}

}  // namespace

void useTerminalEncoding() {
    if (std::setlocale(LC_CTYPE, "") != nullptr) encoding = nl_langinfo(CODESET);
}

std::string shown(std::string_view utf8) {
    const bool plain = hx::isUtf8(utf8);
    std::string out;
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        const bool hidden = byte < 0x20 || byte == 0x7f || (byte >= 0x80 && !plain);
        if (hidden) {
            out += fmt::format("\\x{:02x}", byte);
        } else {
            out += c;
        }
    }
    return encode(out);
}

void complain(std::string_view message) {
    fmt::print(stderr, "hxcam: {}\n", message);
}

void tell(std::string_view line) {
    fmt::print(stderr, "{}\n", line);
}

void print(std::string_view text) {
    const bool taken = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (taken && std::fflush(stdout) == 0) return;
    // A reader that has gone away has seen what it wanted.
    if (errno == EPIPE) throw CommandError(exitFailed, "");
    throw CommandError(exitFailed,
                       std::string("cannot write to standard output: ") + std::strerror(errno));
}

}  // namespace hxcam
