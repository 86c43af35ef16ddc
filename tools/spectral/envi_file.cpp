// SPDX-License-Identifier: MIT
#include "spectral/envi_file.h"

#include <fmt/format.h>

#include <bit>
#include <cstring>

namespace hx {
namespace {

// The header says byte order 0.
static_assert(std::endian::native == std::endian::little);

constexpr int kTypeFloat32 = 4;
constexpr int kTypeFloat64 = 5;
constexpr const char* kInterleaveNames[] = {"bsq", "bil", "bip"};

template <class Item>
std::string list(const std::vector<Item>& items) {
    return fmt::format("{{ {} }}", fmt::join(items, ", "));
}

/// The values of a cube by three nested counts; a piece of output for each of the outer.
struct Order {
    std::array<std::size_t, 3> counts;
    std::array<std::size_t, 3> steps;  // in values of the cube
};

Order orderOf(Interleave interleave, PictureSize size) {
    const std::size_t row = size.cols * kBands;
    switch (interleave) {
        case Interleave::bsq:
            return {{kBands, size.rows, size.cols}, {1, row, kBands}};
        case Interleave::bil:
            return {{size.rows, kBands, size.cols}, {row, 1, kBands}};
        default:
            return {{size.rows, size.cols, kBands}, {row, kBands, 1}};
    }
}

}  // namespace

void storeValue(double value, SampleType type, std::byte* to) {
    if (type == SampleType::float64) {
        std::memcpy(to, &value, sizeof value);
    } else {
        const auto single = static_cast<float>(value);
        std::memcpy(to, &single, sizeof single);
    }
}

std::string enviHeader(const Cube& cube, const EnviDescription& description) {
    const BandTable& bands = description.bands;
    std::string text = fmt::format(
        "ENVI\ndescription = {{ {} }}\nsamples = {}\nlines = {}\nbands = {}\nheader offset = 0\n"
        "file type = ENVI Standard\ndata type = {}\ninterleave = {}\nbyte order = 0\n",
        description.text, cube.size().cols, cube.size().rows, kBands,
        description.type == SampleType::float32 ? kTypeFloat32 : kTypeFloat64,
        kInterleaveNames[static_cast<std::size_t>(description.interleave)]);
    if (cube.ignored().count() > 0) text += fmt::format("data ignore value = {}\n", kIgnored);
    const auto& shown = description.shownBands;
    text +=
        fmt::format("default bands = {{ {}, {}, {} }}\n", shown[0] + 1, shown[1] + 1, shown[2] + 1);
    text += fmt::format("band names = {}\n", list(bands.names));
    if (!bands.wavelengths.empty()) {
        text += fmt::format("wavelength = {}\nwavelength units = {}\n", list(bands.wavelengths),
                            bands.units);
    }
    if (!bands.widths.empty()) text += fmt::format("fwhm = {}\n", list(bands.widths));
    for (const auto& [key, value] : description.fields)
        text += fmt::format("{} = {}\n", key, value);
    return text;
}

void writeEnviData(const Cube& cube, const EnviDescription& description,
                   const std::function<void(std::span<const std::byte>)>& write) {
    const auto [counts, steps] = orderOf(description.interleave, cube.size());
    const std::size_t bytes = bytesOf(description.type);
    std::vector<std::byte> piece(counts[1] * counts[2] * bytes);
    for (std::size_t i = 0; i < counts[0]; ++i) {
        std::byte* to = piece.data();
        for (std::size_t j = 0; j < counts[1]; ++j) {
            for (std::size_t k = 0; k < counts[2]; ++k, to += bytes) {
                const std::size_t at = i * steps[0] + j * steps[1] + k * steps[2];
                storeValue(cube.values()[at], description.type, to);
            }
        }
        write(piece);
    }
}

}  // namespace hx
