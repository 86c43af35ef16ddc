// SPDX-License-Identifier: MIT
// The rules of the samples, without any thought of speed.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "camera/frame_convert.h"

namespace hx::plain {
namespace {

// Response of the nine filters, by row modulo 3 and column modulo 3.
constexpr double param[9] = {0.93, 0.98, 0.91,  //
                             0.95, 0.94, 0.96,  //
                             0.99, 0.92, 0.97};

std::uint16_t sampleAt(const unsigned char* raw, std::size_t index) {
    std::uint16_t value;
    std::memcpy(&value, raw + 2 * index, sizeof value);
    return value;
}

}  // namespace

// The first byte carries the high eight of ten bits.
// Kept: the second byte is added whole, so values up to 255 * 4 + 255 = 1275 occur.
void convertHx01(const unsigned char* raw, unsigned short* out, std::size_t pixels) {
    for (std::size_t i = 0; i < pixels; ++i) {
        out[i] = static_cast<unsigned short>(raw[2 * i] * 4 + raw[2 * i + 1]);
    }
}

// Largest result: 65535 / 64 / 0.91 = 1125.
void convertHx02(const unsigned char* raw, unsigned short* out, std::size_t width,
                 std::size_t height) {
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            const std::size_t i = row * width + column;
            const double value = sampleAt(raw, i) * 0.015625 / param[row % 3 * 3 + column % 3];
            out[i] = static_cast<unsigned short>(static_cast<std::int32_t>(std::round(value)));
        }
    }
}

}  // namespace hx::plain
