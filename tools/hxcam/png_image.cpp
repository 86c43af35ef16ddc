// SPDX-License-Identifier: MIT
#include "png_image.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "spectral/png_file.h"

namespace hxcam {
namespace {

/// The value that becomes white.
std::uint32_t topOf(const hx::ContainerView& frame) {
    const std::uint64_t depth = frame.depth();
    if (depth >= 1 && depth <= 16) return (1U << depth) - 1;
    const auto entry = frame.find(hx::Tag::depth);
    throw hx::ContainerFault(entry ? entry->offset : 0,
                             "its depth is " + std::to_string(depth) + " bits");
}

}  // namespace

void encodePng(const hx::ContainerView& frame, PngScale scale, std::vector<unsigned char>& out) {
    frame.requirePicture();
    const hx::PictureSize size{frame.height(), frame.width()};
    const bool wide = scale != PngScale::stretch8;
    const std::uint32_t white = wide ? 65535 : 255;
    const std::uint32_t top = scale == PngScale::plain16 ? white : topOf(frame);

    const auto fill = [&](std::size_t row, std::span<unsigned char> bytes) {
        const std::byte* from = frame.mainData().data() + 2 * row * size.cols;
        for (std::size_t at = 0; at < bytes.size(); from += 2) {
            std::uint32_t value = std::to_integer<std::uint32_t>(from[0]) |
                                  std::to_integer<std::uint32_t>(from[1]) << 8;
            if (top != white) value = std::min(white, (value * white + top / 2) / top);
            if (wide) bytes[at++] = static_cast<unsigned char>(value >> 8);
            bytes[at++] = static_cast<unsigned char>(value & 0xff);
        }
    };
    hx::encodePng(size, wide ? hx::PngKind::grey16 : hx::PngKind::grey8, fill, out);
}

}  // namespace hxcam
