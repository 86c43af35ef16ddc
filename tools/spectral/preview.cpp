// SPDX-License-Identifier: MIT
#include "spectral/preview.h"

#include <algorithm>
#include <cmath>

#include "spectral/png_file.h"

namespace hx {
namespace {

constexpr double kGamma = 2.2;
constexpr std::size_t kSteps = 4096;

using Curve = std::array<unsigned char, kSteps + 1>;

Curve brightness() {
    Curve curve{};
    for (std::size_t i = 0; i <= kSteps; ++i) {
        const double share = static_cast<double>(i) / kSteps;
        curve[i] = static_cast<unsigned char>(std::lround(255 * std::pow(share, 1 / kGamma)));
    }
    return curve;
}

}  // namespace

void encodePreview(const Cube& cube, const std::array<std::size_t, 3>& bands, double white,
                   std::vector<unsigned char>& png) {
    const Curve curve = brightness();
    const std::size_t cols = cube.size().cols;
    const auto fill = [&](std::size_t row, std::span<unsigned char> bytes) {
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            // Ignored pixels have a negative value.
            const double share = cube.value(row * cols + i / 3, bands[i % 3]) / white;
            bytes[i] = curve[static_cast<std::size_t>(
                std::lround(std::clamp(share, 0.0, 1.0) * static_cast<double>(kSteps)))];
        }
    };
    encodePng(cube.size(), PngKind::rgb8, fill, png);
}

}  // namespace hx
