// SPDX-License-Identifier: MIT
// Which paths name video nodes, and what the file system tells about simulated ones.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string_view>

#include "state_link.h"

namespace hx::sim {

// What a path means for the simulator.
enum class PathKind {
    other,   // the real file system's
    node,    // a simulated node
    hidden,  // a video node that is not there: real ones are out of sight
};

struct PathMeaning {
    PathKind kind = PathKind::other;
    NodeRef node = {};
};

// The number of a name like "video12".
std::optional<std::uint32_t> videoNumber(std::string_view name);

// `directory` is a descriptor or AT_FDCWD, as for openat. Leaves errno alone.
PathMeaning lookUpPath(int directory, const char* path);

// False for null. Out of line: the headers promise the compiler that exported functions never see a
// null path.
bool isEmptyPath(const char* path);

// Whether the path names /dev itself.
bool isDevDirectory(int directory, const char* path);

void fillStatus(const NodeRef& node, struct stat& status);
void fillStatus(const NodeRef& node, struct statx& status);

// access(2): 0 or -errno.
int checkAccess(const NodeRef& node, int mode);

}  // namespace hx::sim
