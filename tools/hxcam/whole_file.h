// SPDX-License-Identifier: MIT
// Small files as a whole.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace hxcam {

class ReadFailed : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// All of a file of up to 1 GiB, - for standard input. Throws ReadFailed, which does not name it.
std::vector<std::byte> readWholeFile(const std::string& path);

}  // namespace hxcam
