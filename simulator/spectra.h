// SPDX-License-Identifier: MIT
// The surfaces of the target scene: reflectance of each in the nine channels of the mosaic, and
// where they lie. Channel k is the mosaic position (row % 3) * 3 + column % 3.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace hx::sim {

constexpr std::size_t kChannels = 9;
using Spectrum = std::array<double, kChannels>;

// What the sensor makes of equal light in each channel; readers divide by it.
constexpr Spectrum kChannelResponse = {0.93, 0.98, 0.91, 0.95, 0.94, 0.96, 0.99, 0.92, 0.97};

// Decoded value of a white surface per unit of exposure: 0.8 * 1023 at the default exposure of 156.
constexpr double kValuePerExposure = 0.8 * 1023.0 / 156.0;
constexpr double kTopValue = 1023.0;

struct Surface {
    std::string_view name;
    Spectrum reflectance;
};

// References for a calibration: the lens cap on, and a surface that reflects all light.
constexpr Spectrum kDark = {};
constexpr Spectrum kWhite = {1, 1, 1, 1, 1, 1, 1, 1, 1};

// The first covers the whole picture, the last one moves, the others are the patches in reading
// order.
constexpr std::array<Surface, 10> kSurfaces = {{
    {"grey", {0.40, 0.40, 0.40, 0.40, 0.40, 0.40, 0.40, 0.40, 0.40}},
    {"white", {0.95, 0.95, 0.95, 0.95, 0.95, 0.95, 0.95, 0.95, 0.95}},
    {"black", {0.04, 0.04, 0.04, 0.04, 0.04, 0.04, 0.04, 0.04, 0.04}},
    {"blue", {0.80, 0.70, 0.45, 0.20, 0.10, 0.08, 0.08, 0.10, 0.12}},
    {"green", {0.08, 0.12, 0.40, 0.75, 0.60, 0.25, 0.10, 0.10, 0.15}},
    {"red", {0.05, 0.05, 0.06, 0.08, 0.15, 0.45, 0.80, 0.85, 0.85}},
    {"leaf", {0.05, 0.06, 0.10, 0.18, 0.12, 0.08, 0.30, 0.70, 0.90}},
    {"rising", {0.10, 0.20, 0.30, 0.40, 0.50, 0.60, 0.70, 0.80, 0.90}},
    {"comb", {0.85, 0.15, 0.85, 0.15, 0.85, 0.15, 0.85, 0.15, 0.85}},
    {"moving", {0.15, 0.15, 0.75, 0.75, 0.75, 0.15, 0.15, 0.60, 0.60}},
}};

// Eight patches in two rows of four, by fractions of the picture, and the lane of the moving one
// between the rows.
constexpr std::uint32_t kPatchColumns = 4;
constexpr std::uint32_t kPatchRows = 2;
constexpr std::uint32_t kMoveStep = 6;  // columns per frame

}  // namespace hx::sim
