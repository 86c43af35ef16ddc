// SPDX-License-Identifier: MIT
// The few files of /sys that camera programs read about a node.
#pragma once

#include <cstddef>

namespace hx::sim {

// Writes what the file has to say into `text`. False for every path that is not one of a simulated
// node's files.
bool sysfsText(const char* path, char* text, std::size_t size);

}  // namespace hx::sim
