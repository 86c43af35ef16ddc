// SPDX-License-Identifier: MIT
#include "node_path.h"

#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace hx::sim {

namespace {

constexpr unsigned kVideoMajor = 81;
constexpr gid_t kVideoGroup = 44;  // Debian's number of the group "video"

// A path put together without touching the heap: open() may be called anywhere.
class PathText {
  public:
    void append(std::string_view part) {
        const auto count = std::min(part.size(), text_.size() - length_);
        std::copy_n(part.begin(), count, text_.begin() + static_cast<std::ptrdiff_t>(length_));
        length_ += count;
    }
    // Squeezes "//" and "/./".
    void appendNormal(std::string_view path) {
        while (!path.empty()) {
            const auto end = std::min(path.find('/'), path.size());
            const auto name = path.substr(0, end);
            path.remove_prefix(std::min(end + 1, path.size()));
            if (name.empty() || name == ".") continue;
            append("/");
            append(name);
        }
    }
    std::string_view view() const { return {text_.data(), length_}; }

  private:
    std::array<char, PATH_MAX> text_;
    std::size_t length_ = 0;
};

void appendDirectory(int directory, PathText& text) {
    std::array<char, PATH_MAX> place;
    if (directory == AT_FDCWD) {
        if (getcwd(place.data(), place.size())) text.appendNormal(place.data());
        return;
    }
    char link[32];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", directory);
    const ssize_t length = readlink(link, place.data(), place.size());
    if (length > 0) text.appendNormal({place.data(), static_cast<std::size_t>(length)});
}

void makeAbsolute(int directory, const char* path, PathText& text) {
    const int saved = errno;
    if (path[0] != '/') appendDirectory(directory, text);
    text.appendNormal(path);
    errno = saved;
}

const CameraConfig* cameraOf(const NodeRef& node) {
    return node.kind == NodeKind::foreign ? nullptr : &cameraConfig(node.index);
}

bool denied(const NodeRef& node) {
    const CameraConfig* config = cameraOf(node);
    return config && config->accessDenied;
}

std::uint64_t inodeOf(const NodeRef& node) {
    return 0x81000000U + node.minor;
}

}  // namespace

std::optional<std::uint32_t> videoNumber(std::string_view name) {
    constexpr std::string_view kPrefix = "video";
    if (!name.starts_with(kPrefix)) return std::nullopt;
    name.remove_prefix(kPrefix.size());
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error != std::errc{} || end != name.data() + name.size()) return std::nullopt;
    return number;
}

PathMeaning lookUpPath(int directory, const char* path) {
    if (!path || !stateAttached()) return {};
    // Most paths are ruled out by their last name alone.
    const char* slash = std::strrchr(path, '/');
    const auto number = videoNumber(slash ? slash + 1 : path);
    if (!number) return {};
    PathText absolute;
    makeAbsolute(directory, path, absolute);
    constexpr std::string_view kDev = "/dev/";
    const auto view = absolute.view();
    if (!view.starts_with(kDev) || view.find('/', kDev.size()) != view.npos) return {};
    const StateLock state;
    if (const auto node = findNode(*state, *number)) return {PathKind::node, *node};
    return {state->realDevicesShown ? PathKind::other : PathKind::hidden, {}};
}

bool isEmptyPath(const char* path) {
    return path && !*path;
}

bool isDevDirectory(int directory, const char* path) {
    if (!path || !stateAttached()) return false;
    PathText absolute;
    makeAbsolute(directory, path, absolute);
    return absolute.view() == "/dev";
}

void fillStatus(const NodeRef& node, struct stat& status) {
    status = {};
    status.st_mode = S_IFCHR | (denied(node) ? 0600U : 0660U);
    status.st_nlink = 1;
    status.st_ino = inodeOf(node);
    status.st_gid = kVideoGroup;
    status.st_rdev = makedev(kVideoMajor, node.minor);
    status.st_blksize = 4096;
}

void fillStatus(const NodeRef& node, struct statx& status) {
    struct stat plain = {};
    fillStatus(node, plain);
    status = {};
    status.stx_mask = STATX_BASIC_STATS;
    status.stx_mode = static_cast<std::uint16_t>(plain.st_mode);
    status.stx_nlink = 1;
    status.stx_ino = plain.st_ino;
    status.stx_gid = plain.st_gid;
    status.stx_rdev_major = kVideoMajor;
    status.stx_rdev_minor = node.minor;
    status.stx_blksize = 4096;
}

int checkAccess(const NodeRef& node, int mode) {
    if (mode & X_OK) return -EACCES;
    return mode != F_OK && denied(node) ? -EACCES : 0;
}

}  // namespace hx::sim
