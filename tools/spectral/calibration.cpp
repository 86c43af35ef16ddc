// SPDX-License-Identifier: MIT
#include "spectral/calibration.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace hx {
namespace {

std::string text(PictureSize size) {
    return std::to_string(size.cols) + " x " + std::to_string(size.rows);
}

void requireSame(PictureSize size, const std::string& identification, const FrameKey& frame) {
    if (size != frame.size) {
        throw SpectralFault("references are " + text(size) + ", the frame is " + text(frame.size));
    }
    if (identification != frame.identification) {
        throw SpectralFault("references are of another camera than the frame");
    }
}

}  // namespace

void ReferenceMean::add(std::span<const std::uint16_t> samples) {
    // So many frames of the largest value fit into a sum.
    constexpr std::uint32_t kMostFrames = 65535;
    if (frames_ == kMostFrames) throw SpectralFault("more than 65535 references of one exposure");
    sums_.resize(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) sums_[i] += samples[i];
    scale_ = 1.0 / ++frames_;
}

void References::add(const FrameKey& key, std::span<const std::uint16_t> samples) {
    if (empty()) {
        size_ = key.size;
        identification_ = key.identification;
    }
    requireFit(key);
    means_[key.exposure].add(samples);
}

void References::requireFit(const FrameKey& frame) const {
    requireSame(size_, identification_, frame);
}

const References::ByExposure::value_type& References::nearest(std::uint64_t exposure) const {
    const auto distance = [exposure](const ByExposure::value_type& mean) {
        if (mean.first == exposure) return 0.0;
        if (mean.first == 0 || exposure == 0) return std::numeric_limits<double>::infinity();
        return std::fabs(std::log(static_cast<double>(mean.first)) -
                         std::log(static_cast<double>(exposure)));
    };
    return *std::min_element(means_.begin(), means_.end(), [&](const auto& a, const auto& b) {
        return distance(a) < distance(b);
    });
}

const char* levelName(Level level) {
    constexpr const char* kNames[] = {"raw", "dark-subtracted", "reflectance"};
    return kNames[static_cast<std::size_t>(level)];
}

Level Calibration::level() const {
    if (dark.empty()) return Level::raw;
    return white.empty() ? Level::darkSubtracted : Level::reflectance;
}

CalibrationUse Calibration::apply(const FrameKey& key, std::span<const std::uint16_t> samples,
                                  std::span<double> mosaic, PixelMask& ignore) const {
    CalibrationUse use;
    use.level = level();
    if (use.level == Level::raw) {
        std::copy(samples.begin(), samples.end(), mosaic.begin());
        return use;
    }
    dark.requireFit(key);
    const auto& [exposure, mean] = dark.nearest(key.exposure);
    use.darkExposure = exposure;
    use.darkFrames = mean.frames();
    for (std::size_t i = 0; i < samples.size(); ++i) {
        mosaic[i] = std::max(0.0, samples[i] - mean.at(i));
    }
    if (use.level == Level::reflectance) toReflectance(key, mosaic, ignore, use);
    return use;
}

void Calibration::toReflectance(const FrameKey& key, std::span<double> mosaic, PixelMask& ignore,
                                CalibrationUse& use) const {
    white.requireFit(key);
    const auto& [exposure, mean] = white.nearest(key.exposure);
    const auto& [darkExposure, darkMean] = dark.nearest(exposure);
    use.whiteExposure = exposure;
    use.whiteFrames = mean.frames();
    use.whiteDarkExposure = darkExposure;
    if (exposure != key.exposure && (exposure == 0 || key.exposure == 0)) {
        throw SpectralFault("frame or white reference does not tell its exposure (0)");
    }
    const double scale = exposure == key.exposure
                             ? 1.0
                             : static_cast<double>(exposure) / static_cast<double>(key.exposure);
    for (std::size_t i = 0; i < mosaic.size(); ++i) {
        const double signal = mean.at(i) - darkMean.at(i);
        if (signal >= leastWhite) {
            mosaic[i] = mosaic[i] * scale / signal;
        } else {
            mosaic[i] = 0;
            ignore[i] = true;
            ++use.tooDark;
        }
    }
}

}  // namespace hx
