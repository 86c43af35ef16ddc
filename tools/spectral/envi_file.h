// SPDX-License-Identifier: MIT
// ENVI cubes: a text header and a file of bare numbers.
#pragma once

#include <array>
#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "spectral/band_table.h"
#include "spectral/cube.h"
#include "spectral/tiff_file.h"

namespace hx {

enum class Interleave { bsq, bil, bip };

struct EnviDescription {
    SampleType type = SampleType::float32;
    Interleave interleave = Interleave::bsq;
    BandTable bands;
    std::array<std::size_t, 3> shownBands{};  ///< red, green and blue of a picture, from 0
    std::string text;
    std::vector<std::pair<std::string, std::string>> fields;  ///< further keys and values
};

/// The header's text. `text` and `fields` must be plain ASCII without braces and line ends.
std::string enviHeader(const Cube& cube, const EnviDescription& description);

/// Hands the data file to `write`, piece by piece.
void writeEnviData(const Cube& cube, const EnviDescription& description,
                   const std::function<void(std::span<const std::byte>)>& write);

/// One value in the bytes of float32 or float64.
void storeValue(double value, SampleType type, std::byte* to);

}  // namespace hx
