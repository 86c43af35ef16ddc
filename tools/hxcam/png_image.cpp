// SPDX-License-Identifier: MIT
#include "png_image.h"

#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstdint>
#include <string>

#include "exit_code.h"

namespace hxcam {
namespace {

// Level 1 takes a third of the time of the default and costs a few per cent in size.
constexpr int kCompression = 1;
constexpr std::uint32_t kWhite = 65535;

/// What libpng's callbacks work on. It ends a failure by longjmp, so nothing with a destructor may
/// live in the function that called it.
struct Encoder {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::vector<unsigned char>* out = nullptr;
    std::string fault;

    ~Encoder() { png_destroy_write_struct(&png, &info); }
};

[[noreturn]] void onFault(png_structp png, png_const_charp text) {
    static_cast<Encoder*>(png_get_error_ptr(png))->fault = text;
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

void onBytes(png_structp png, png_bytep bytes, std::size_t size) {
    auto& out = *static_cast<Encoder*>(png_get_io_ptr(png))->out;
    out.insert(out.end(), bytes, bytes + size);
}

void onFlush(png_structp) {}

// PNG samples are big-endian.
void convertRow(const std::byte* from, std::uint32_t width, std::uint32_t top, png_byte* row) {
    for (std::size_t i = 0; i < width; ++i) {
        std::uint32_t value = std::to_integer<std::uint32_t>(from[2 * i]) |
                              std::to_integer<std::uint32_t>(from[2 * i + 1]) << 8;
        if (top != 0) value = std::min(kWhite, (value * kWhite + top / 2) / top);
        row[2 * i] = static_cast<png_byte>(value >> 8);
        row[2 * i + 1] = static_cast<png_byte>(value & 0xff);
    }
}

/// `top`: the value that becomes white; 0: samples as they are.
bool encode(Encoder& encoder, const std::byte* samples, std::uint32_t width, std::uint32_t height,
            std::uint32_t top, png_byte* row) {
    png_structp png = encoder.png;
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_set_write_fn(png, &encoder, onBytes, onFlush);
    png_set_compression_level(png, kCompression);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    png_set_IHDR(png, encoder.info, width, height, 16, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, encoder.info);
    for (std::uint32_t y = 0; y < height; ++y) {
        convertRow(samples + std::size_t{2} * width * y, width, top, row);
        png_write_row(png, row);
    }
    png_write_end(png, encoder.info);
    return true;
}

}  // namespace

void encodePng(const hx::ContainerView& frame, bool stretch, std::vector<unsigned char>& out) {
    frame.requirePicture();
    const auto width = static_cast<std::uint32_t>(frame.width());
    const auto height = static_cast<std::uint32_t>(frame.height());
    const std::uint64_t depth = frame.depth();
    if (stretch && (depth == 0 || depth > 16)) {
        const auto entry = frame.find(hx::Tag::depth);
        throw hx::ContainerFault(entry ? entry->offset : 0,
                                 "its depth is " + std::to_string(depth) + " bits");
    }
    const std::uint32_t top = stretch ? (1U << depth) - 1 : 0;

    out.clear();
    Encoder encoder;
    encoder.out = &out;
    encoder.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &encoder, onFault, onWarning);
    if (encoder.png != nullptr) encoder.info = png_create_info_struct(encoder.png);
    if (encoder.info == nullptr) throw CommandError(exitFailed, "no memory for a PNG file");
    std::vector<png_byte> row(std::size_t{2} * width);
    if (!encode(encoder, frame.mainData().data(), width, height, top, row.data())) {
        throw CommandError(exitFailed, "cannot make a PNG file: " + encoder.fault);
    }
}

}  // namespace hxcam
