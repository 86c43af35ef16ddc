// SPDX-License-Identifier: MIT
// Rows and columns, and what is thrown for all that cannot be read, computed or written here.
#pragma once

#include <cstddef>
#include <stdexcept>

namespace hx {

struct PictureSize {
    std::size_t rows = 0;
    std::size_t cols = 0;

    std::size_t pixels() const { return rows * cols; }
    bool operator==(const PictureSize&) const = default;
};

class SpectralFault : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace hx
