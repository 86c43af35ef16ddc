// SPDX-License-Identifier: MIT
#include "whole_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "capture/unique_fd.h"

namespace hxcam {
namespace {

constexpr std::size_t kLongestFile = std::size_t{1} << 30;

}  // namespace

std::vector<std::byte> readWholeFile(const std::string& path) {
    const bool isInput = path == "-";
    const hx::UniqueFd file(isInput ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const int fd = isInput ? STDIN_FILENO : file.get();
    if (fd < 0) throw ReadFailed(std::strerror(errno));

    std::vector<std::byte> bytes;
    std::size_t used = 0;
    for (;;) {
        if (used > kLongestFile) throw ReadFailed("longer than 1 GiB");
        bytes.resize(used + (std::size_t{1} << 20));
        const ssize_t size = read(fd, bytes.data() + used, bytes.size() - used);
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) throw ReadFailed(std::strerror(errno));
        used += static_cast<std::size_t>(size);
        if (size == 0) break;
    }
    bytes.resize(used);
    return bytes;
}

}  // namespace hxcam
