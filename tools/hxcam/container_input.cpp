// SPDX-License-Identifier: MIT
#include "container_input.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "exit_code.h"
#include "terminal.h"

namespace hxcam {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kHeader = 8;
constexpr std::size_t kCount = 2;
constexpr std::size_t kRecord = 12;
constexpr std::size_t kLongest = std::size_t{1} << 30;
// Memory follows the bytes that come, not the length that a damaged header claims.
constexpr std::size_t kStep = std::size_t{4} << 20;

[[noreturn]] void fail(const std::string& path, const std::string& what) {
    throw CommandError(exitFailed, shown(path) + ": " + what);
}

std::size_t number(const std::vector<std::byte>& bytes, std::size_t at, std::size_t width) {
    std::size_t value = 0;
    for (std::size_t i = width; i-- > 0;) {
        value = value << 8 | std::to_integer<std::size_t>(bytes[at + i]);
    }
    return value;
}

}  // namespace

ContainerInput::ContainerInput(const std::string& path, const Interrupt& interrupt)
    : path_(path), interrupt_(interrupt) {
    if (path != "-") file_.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    fd_ = path == "-" ? STDIN_FILENO : file_.get();
    if (fd_ < 0) fail(path_, std::strerror(errno));
}

bool ContainerInput::atEnd() {
    if (!ahead_.empty() || ended_) return ahead_.empty();
    std::byte next{};
    if (read(&next, 1) == 1) ahead_.push_back(next);
    return ahead_.empty();
}

hx::ContainerView ContainerInput::next(std::vector<std::byte>& bytes) {
    bytes = std::move(ahead_);
    ahead_.clear();
    extend(bytes, kHeader);
    // A header that is wrong is told by the view; only a right one is followed.
    if (bytes.size() == kHeader && bytes[0] == std::byte{'L'} && bytes[1] == std::byte{'L'}) {
        const std::size_t table = number(bytes, 4, 4);
        if (table > kLongest) fail(path_, "a container of more than 1 GiB");
        extend(bytes, table + kCount);
        if (bytes.size() == table + kCount) {
            extend(bytes, table + kCount + kRecord * number(bytes, table, kCount));
        }
    }
    const hx::ContainerView view{std::span<const std::byte>(bytes)};
    if (view.kind() != FILE_TYPE_HX) throw hx::ContainerFault(2, "it is no container of a frame");
    view.requireOrder();
    view.requirePicture();
    return view;
}

// True at a regular file's end too.
bool ContainerInput::isReady() {
    pollfd watched[] = {{fd_, POLLIN, 0}, {interrupt_.fd(), POLLIN, 0}};
    while (poll(watched, 2, -1) < 0 && errno == EINTR) {
    }
    if (watched[1].revents != 0) throw CommandError(exitInterrupted, "interrupted");
    return watched[0].revents != 0;
}

std::size_t ContainerInput::read(std::byte* to, std::size_t most) {
    while (!ended_) {
        if (!isReady()) continue;
        const ssize_t size = ::read(fd_, to, most);
        if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (size < 0) fail(path_, std::strerror(errno));
        ended_ = size == 0;
        return static_cast<std::size_t>(size);
    }
    return 0;
}

// To `size` bytes, or to as many as there are.
void ContainerInput::extend(std::vector<std::byte>& bytes, std::size_t size) {
    while (bytes.size() < size && !ended_) {
        const std::size_t used = bytes.size();
        const std::size_t most = std::min(size - used, kStep);
        bytes.resize(used + most);
        bytes.resize(used + read(bytes.data() + used, most));
    }
}

std::vector<std::string> filesOf(const std::string& argument) {
    std::error_code fault;
    if (argument == "-" || !fs::is_directory(argument, fault)) return {argument};
    std::vector<std::string> files;
    for (const auto& entry : fs::directory_iterator(argument, fault)) {
        if (entry.path().extension() == ".hxc") files.push_back(entry.path().string());
    }
    if (fault) fail(argument, fault.message());
    if (files.empty()) fail(argument, "there are no .hxc files in this folder");
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace hxcam
