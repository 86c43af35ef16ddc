// SPDX-License-Identifier: MIT
// TIFF files, uncompressed, one page a band.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "spectral/picture_size.h"

namespace hx {

enum class SampleType { uint16, float32, float64 };

std::size_t bytesOf(SampleType type);

struct TiffDescription {
    PictureSize size;
    SampleType type = SampleType::uint16;
    std::vector<std::string> pages = {""};  ///< a name for each; empty: none
    std::string text;                       ///< goes into the first page
    std::string software;
    std::optional<double> noData;  ///< as GDAL stores it
};

/// Fills one row of a page with samples of the type. Must not throw.
using TiffRow =
    std::function<void(std::size_t page, std::size_t row, std::span<std::byte> samples)>;

/// Writes to the start of an open file that can be read and written. Throws SpectralFault.
void writeTiff(int fd, const TiffDescription& description, const TiffRow& fill);

}  // namespace hx
