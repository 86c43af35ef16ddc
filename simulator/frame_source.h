// SPDX-License-Identifier: MIT
// The bytes of a camera's frames. Knows the model and the scene, nothing of V4L2 or of who carries
// the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "camera_state.h"
#include "spectra.h"

namespace hx::sim {

enum class Sensor { mosaic, plain };

// The parts of the identification text that shape a frame.
struct CameraModel {
    Sensor sensor = Sensor::plain;
    bool exposureInFrame = false;  // the first sample carries the exposure in force
};

CameraModel modelOf(std::string_view identification);

// The text up to its first NUL, or all 32 bytes.
std::string_view identificationText(const CameraConfig& config);

inline std::size_t frameBytes(const CameraConfig& config) {
    return std::size_t{config.width} * config.height * 2;
}

// The interval at which frames come, as a device tells it: in units of 100 ns. A camera that has no
// rate of its own tells one that it does not reach.
std::uint32_t frameInterval(const CameraConfig& config);

// Draws frames. Everything that does not change from frame to frame is prepared once, so that
// drawing is little more than a copy. One thread at a time.
class FrameSource {
  public:
    explicit FrameSource(const CameraConfig& config);

    // `frame` must have frameBytes(config) bytes; `sequence` is the number of the frame in its
    // stream.
    void draw(std::span<std::byte> frame, std::uint32_t sequence, std::int32_t exposure);

  private:
    struct Rectangle {
        std::uint32_t left, top, width, height;
    };

    void drawRamp(std::span<std::byte> frame, std::uint32_t sequence) const;
    void drawPicture(std::span<std::byte> frame, std::uint32_t sequence, std::int32_t exposure);
    void prepareRamp();
    void preparePicture(std::int32_t exposure);
    void paint(std::span<std::byte> frame, const Rectangle& place, std::size_t surface) const;
    Rectangle patchPlace(std::uint32_t index) const;
    const Spectrum& spectrumOf(std::size_t surface) const;
    std::uint16_t sampleOf(std::size_t surface, std::size_t channel, std::int32_t exposure) const;

    CameraModel model_;
    Scene scene_;
    std::uint32_t width_;
    std::uint32_t height_;
    std::int32_t preparedExposure_ = -1;
    std::vector<std::uint16_t> words_;   // ramp: two periods; else: the picture without what moves
    std::vector<std::uint16_t> colors_;  // samples of each surface in each channel
};

}  // namespace hx::sim
