// SPDX-License-Identifier: MIT
#include "frame_source.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "spectra.h"

namespace hx::sim {

// Words are written as they lie in memory.
static_assert(std::endian::native == std::endian::little);

namespace {

constexpr std::size_t kRampPeriod = 65536;
constexpr std::uint32_t kRampStep = 257;
constexpr double kRateWhenUnpaced = 1000.0;

}  // namespace

CameraModel modelOf(std::string_view identification) {
    const auto dash = identification.find('-');
    const auto model = identification.substr(0, dash);
    CameraModel result;
    if (model == "HX02") result.sensor = Sensor::mosaic;
    if (dash == std::string_view::npos) return result;
    const auto rest = identification.substr(dash + 1);
    result.exposureInFrame = rest.substr(0, rest.find('.')) == "V02";
    return result;
}

std::string_view identificationText(const CameraConfig& config) {
    const auto& bytes = config.identification;
    const auto end = std::find(bytes.begin(), bytes.end(), 0);
    return {reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::size_t>(end - bytes.begin())};
}

std::uint32_t frameInterval(const CameraConfig& config) {
    const double rate = config.rate > 0 ? config.rate : kRateWhenUnpaced;
    return static_cast<std::uint32_t>(std::lround(1e7 / rate));
}

FrameSource::FrameSource(const CameraConfig& config)
    : model_(modelOf(identificationText(config))),
      scene_(config.scene),
      width_(config.width),
      height_(config.height) {
    if (scene_ == Scene::ramp) prepareRamp();
}

void FrameSource::draw(std::span<std::byte> frame, std::uint32_t sequence, std::int32_t exposure) {
    if (scene_ == Scene::ramp) {
        drawRamp(frame, sequence);
    } else {
        drawPicture(frame, sequence, exposure);
    }
    if (model_.exposureInFrame) {
        const auto word = static_cast<std::uint16_t>(exposure);
        std::memcpy(frame.data(), &word, sizeof word);
    }
}

// Word i of frame f is (i + 257 * f) mod 65536: a window on a sawtooth. Two periods hold a whole
// period from any start.
void FrameSource::prepareRamp() {
    words_.resize(2 * kRampPeriod);
    for (std::size_t i = 0; i < words_.size(); ++i) words_[i] = static_cast<std::uint16_t>(i);
}

void FrameSource::drawRamp(std::span<std::byte> frame, std::uint32_t sequence) const {
    const std::size_t start = kRampStep * std::size_t{sequence} % kRampPeriod;
    constexpr std::size_t kChunk = kRampPeriod * sizeof(std::uint16_t);
    for (std::size_t done = 0; done < frame.size(); done += kChunk) {
        std::memcpy(frame.data() + done, words_.data() + start,
                    std::min(kChunk, frame.size() - done));
    }
}

void FrameSource::drawPicture(std::span<std::byte> frame, std::uint32_t sequence,
                              std::int32_t exposure) {
    if (exposure != preparedExposure_) preparePicture(exposure);
    std::memcpy(frame.data(), words_.data(), frame.size());
    if (scene_ != Scene::target) return;
    const auto side = height_ / 8;
    const auto left = std::size_t{kMoveStep} * sequence % (width_ - side);
    paint(frame, {static_cast<std::uint32_t>(left), (height_ - side) / 2, side, side},
          kSurfaces.size() - 1);
}

void FrameSource::preparePicture(std::int32_t exposure) {
    colors_.resize(kSurfaces.size() * kChannels);
    for (std::size_t i = 0; i < colors_.size(); ++i) {
        colors_[i] = sampleOf(i / kChannels, i % kChannels, exposure);
    }
    words_.resize(std::size_t{width_} * height_);
    const auto whole = std::as_writable_bytes(std::span(words_));
    paint(whole, {0, 0, width_, height_}, 0);
    const auto patches = scene_ == Scene::target ? kPatchColumns * kPatchRows : 0U;
    for (std::uint32_t i = 0; i < patches; ++i) {
        paint(whole, patchPlace(i), i + 1);
    }
    preparedExposure_ = exposure;
}

void FrameSource::paint(std::span<std::byte> frame, const Rectangle& place,
                        std::size_t surface) const {
    std::vector<std::uint16_t> line(place.width);
    for (std::uint32_t row = place.top; row < place.top + place.height; ++row) {
        const std::uint16_t* color = &colors_[surface * kChannels + std::size_t{row} % 3 * 3];
        for (std::uint32_t i = 0; i < place.width; ++i) line[i] = color[(place.left + i) % 3];
        const std::size_t at = (std::size_t{row} * width_ + place.left) * sizeof line[0];
        std::memcpy(frame.data() + at, line.data(), line.size() * sizeof line[0]);
    }
}

// Each patch fills the middle half of its cell; the rows lie in the upper and in the lower 2/5 of
// the picture.
FrameSource::Rectangle FrameSource::patchPlace(std::uint32_t index) const {
    const auto cellWidth = width_ / kPatchColumns;
    const auto cellHeight = height_ * 2 / 5;
    const auto column = index % kPatchColumns;
    const auto top = index < kPatchColumns ? 0 : height_ - cellHeight;
    return {column * cellWidth + cellWidth / 4, top + cellHeight / 4, cellWidth / 2,
            cellHeight / 2};
}

const Spectrum& FrameSource::spectrumOf(std::size_t surface) const {
    switch (scene_) {
        case Scene::dark:
            return kDark;
        case Scene::white:
            return kWhite;
        default:
            return kSurfaces[surface].reflectance;
    }
}

std::uint16_t FrameSource::sampleOf(std::size_t surface, std::size_t channel,
                                    std::int32_t exposure) const {
    const Spectrum& spectrum = spectrumOf(surface);
    double light = spectrum[channel];
    if (model_.sensor == Sensor::plain) {
        light = 0;
        for (const double part : spectrum) light += part / kChannels;
    }
    const double value = std::min(kTopValue, std::round(light * kValuePerExposure * exposure));
    if (model_.sensor == Sensor::mosaic) {
        return static_cast<std::uint16_t>(std::round(value * 64 * kChannelResponse[channel]));
    }
    // The plain sensor sends the upper eight bits first, then the lower two.
    const auto bits = static_cast<unsigned>(value);
    return static_cast<std::uint16_t>((bits >> 2) | (bits & 3) << 8);
}

}  // namespace hx::sim
