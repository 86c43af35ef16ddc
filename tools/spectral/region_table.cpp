// SPDX-License-Identifier: MIT
#include "spectral/region_table.h"

#include "spectral/text_table.h"

namespace hx {
namespace {

const std::vector<std::string> kColumns = {"name", "left", "top", "width", "height"};
constexpr std::size_t kFarthest = std::size_t{1} << 31;

std::size_t place(const TableLine& line, std::size_t column, std::size_t least) {
    const auto value = wholeNumber(line.fields[column]);
    if (!value || *value < least || *value > kFarthest) {
        failAtLine(line.number, "\"" + line.fields[column] + "\" is no " + kColumns[column]);
    }
    return *value;
}

}  // namespace

std::vector<Region> parseRegions(std::string_view text) {
    const std::vector<TableLine> lines = tableLines(text);
    if (lines.empty()) throw SpectralFault("it is empty");
    if (lines.front().fields != kColumns) {
        failAtLine(lines.front().number, "it must be: name,left,top,width,height");
    }
    std::vector<Region> regions;
    for (auto line = lines.begin() + 1; line != lines.end(); ++line) {
        if (line->fields.size() != kColumns.size()) {
            failAtLine(line->number, "a region has five fields");
        }
        regions.push_back({line->fields[0], place(*line, 1, 0), place(*line, 2, 0),
                           place(*line, 3, 1), place(*line, 4, 1)});
    }
    if (regions.empty()) throw SpectralFault("it has no region");
    return regions;
}

RegionMean meanOf(const Cube& cube, const Region& region) {
    if (region.left + region.width > cube.size().cols ||
        region.top + region.height > cube.size().rows) {
        throw SpectralFault("region \"" + region.name + "\" reaches out of the picture");
    }
    RegionMean mean;
    for (std::size_t row = region.top; row < region.top + region.height; ++row) {
        for (std::size_t col = region.left; col < region.left + region.width; ++col) {
            const std::size_t pixel = row * cube.size().cols + col;
            if (cube.ignored()[pixel]) continue;
            ++mean.pixels;
            for (std::size_t band = 0; band < kBands; ++band) {
                mean.bands[band] += cube.value(pixel, band);
            }
        }
    }
    for (double& value : mean.bands) {
        if (mean.pixels > 0) value /= static_cast<double>(mean.pixels);
    }
    return mean;
}

}  // namespace hx
