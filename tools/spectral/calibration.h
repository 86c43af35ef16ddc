// SPDX-License-Identifier: MIT
// Dark and white references, applied to the mosaic before anything is reconstructed from it:
//
//     dark-subtracted   max(0, sample - dark)
//     reflectance       max(0, sample - dark) / (white - white's dark) * white's exposure /
//     exposure
//
// Each sample is so corrected by the pixel and filter that it comes from.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "spectral/cube.h"

namespace hx {

/// What must be the same for a frame and its references, and the exposure.
struct FrameKey {
    PictureSize size;
    std::string identification;
    std::uint64_t exposure = 0;
};

/// The mean of all reference frames of one exposure.
class ReferenceMean {
  public:
    void add(std::span<const std::uint16_t> samples);
    std::uint32_t frames() const { return frames_; }
    double at(std::size_t pixel) const { return sums_[pixel] * scale_; }

  private:
    std::vector<std::uint32_t> sums_;
    std::uint32_t frames_ = 0;
    double scale_ = 0;
};

/// Reference frames of one kind.
class References {
  public:
    using ByExposure = std::map<std::uint64_t, ReferenceMean>;

    /// Throws SpectralFault for a frame of another size or camera than those before.
    void add(const FrameKey& key, std::span<const std::uint16_t> samples);
    bool empty() const { return means_.empty(); }
    /// Throws SpectralFault unless they fit to that frame.
    void requireFit(const FrameKey& frame) const;
    /// The exposure that is nearest by ratio. Not for empty().
    const ByExposure::value_type& nearest(std::uint64_t exposure) const;

  private:
    PictureSize size_;
    std::string identification_;
    ByExposure means_;
};

enum class Level { raw, darkSubtracted, reflectance };

const char* levelName(Level level);

/// What a frame was calibrated with.
struct CalibrationUse {
    Level level = Level::raw;
    std::uint64_t darkExposure = 0;
    std::uint32_t darkFrames = 0;
    std::uint64_t whiteExposure = 0;
    std::uint64_t whiteDarkExposure = 0;
    std::uint32_t whiteFrames = 0;
    std::size_t tooDark = 0;  ///< pixels that are ignored for too little white signal
};

struct Calibration {
    References dark;
    References white;        ///< only with dark
    double leastWhite = 10;  ///< counts above dark

    Level level() const;
    /// Fills `mosaic`, and marks pixels in `ignore` that are to be left alone. Throws
    /// SpectralFault.
    CalibrationUse apply(const FrameKey& key, std::span<const std::uint16_t> samples,
                         std::span<double> mosaic, PixelMask& ignore) const;

  private:
    void toReflectance(const FrameKey& key, std::span<double> mosaic, PixelMask& ignore,
                       CalibrationUse& use) const;
};

}  // namespace hx
