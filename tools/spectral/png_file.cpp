// SPDX-License-Identifier: MIT
#include "spectral/png_file.h"

#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <string>

namespace hx {
namespace {

// Level 1 takes a third of the time of the default and costs a few per cent in size.
constexpr int kCompression = 1;
constexpr std::size_t kMostPixels = std::size_t{1} << 26;

/// What libpng's callbacks work on. It ends a failure by longjmp, so nothing with a destructor may
/// live in the function that called setjmp.
struct Encoder {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::vector<unsigned char>* out = nullptr;
    std::string fault;

    ~Encoder() { png_destroy_write_struct(&png, &info); }
};

struct Decoder {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::span<const std::byte> rest;
    std::string fault;
    PictureSize size;
    std::size_t rowBytes = 0;
    std::vector<unsigned char> pixels;
    std::vector<png_bytep> rows;

    ~Decoder() { png_destroy_read_struct(&png, &info, nullptr); }
};

template <class Coder>
[[noreturn]] void onFault(png_structp png, png_const_charp text) {
    static_cast<Coder*>(png_get_error_ptr(png))->fault = text;
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

void onBytes(png_structp png, png_bytep bytes, std::size_t size) {
    auto& out = *static_cast<Encoder*>(png_get_io_ptr(png))->out;
    out.insert(out.end(), bytes, bytes + size);
}

void onFlush(png_structp) {}

void onWanted(png_structp png, png_bytep bytes, std::size_t size) {
    auto& rest = static_cast<Decoder*>(png_get_io_ptr(png))->rest;
    if (size > rest.size()) png_error(png, "it is cut off");
    std::memcpy(bytes, rest.data(), size);
    rest = rest.subspan(size);
}

std::size_t bytesPerPixel(PngKind kind) {
    return kind == PngKind::grey8 ? 1 : kind == PngKind::grey16 ? 2 : 3;
}

bool encode(Encoder& encoder, PictureSize size, PngKind kind, const PngRow& fill,
            std::span<unsigned char> row) {
    png_structp png = encoder.png;
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_set_write_fn(png, &encoder, onBytes, onFlush);
    png_set_compression_level(png, kCompression);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    png_set_IHDR(png, encoder.info, static_cast<png_uint_32>(size.cols),
                 static_cast<png_uint_32>(size.rows), kind == PngKind::grey16 ? 16 : 8,
                 kind == PngKind::rgb8 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, encoder.info);
    for (std::size_t y = 0; y < size.rows; ++y) {
        fill(y, row);
        png_write_row(png, row.data());
    }
    png_write_end(png, encoder.info);
    return true;
}

bool readHeader(Decoder& decoder) {
    png_structp png = decoder.png;
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_set_read_fn(png, &decoder, onWanted);
    png_read_info(png, decoder.info);
    png_set_packing(png);
    if (png_get_color_type(png, decoder.info) == PNG_COLOR_TYPE_PALETTE) {
        png_set_palette_to_rgb(png);
    }
    png_set_strip_alpha(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, decoder.info);
    decoder.size = {png_get_image_height(png, decoder.info),
                    png_get_image_width(png, decoder.info)};
    decoder.rowBytes = png_get_rowbytes(png, decoder.info);
    return true;
}

bool readRows(Decoder& decoder) {
    if (setjmp(png_jmpbuf(decoder.png)) != 0) return false;
    png_read_image(decoder.png, decoder.rows.data());
    png_read_end(decoder.png, nullptr);
    return true;
}

}  // namespace

void encodePng(PictureSize size, PngKind kind, const PngRow& fill,
               std::vector<unsigned char>& out) {
    out.clear();
    Encoder encoder;
    encoder.out = &out;
    encoder.png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, &encoder, onFault<Encoder>, onWarning);
    if (encoder.png != nullptr) encoder.info = png_create_info_struct(encoder.png);
    if (encoder.info == nullptr) throw SpectralFault("no memory for a PNG file");
    std::vector<unsigned char> row(bytesPerPixel(kind) * size.cols);
    if (!encode(encoder, size, kind, fill, row)) {
        throw SpectralFault("cannot make a PNG file: " + encoder.fault);
    }
}

std::vector<unsigned char> decodeNonBlack(std::span<const std::byte> file, PictureSize& size) {
    Decoder decoder;
    decoder.rest = file;
    decoder.png =
        png_create_read_struct(PNG_LIBPNG_VER_STRING, &decoder, onFault<Decoder>, onWarning);
    if (decoder.png != nullptr) decoder.info = png_create_info_struct(decoder.png);
    if (decoder.info == nullptr) throw SpectralFault("no memory for a PNG file");
    if (!readHeader(decoder)) throw SpectralFault("damaged PNG file: " + decoder.fault);

    size = decoder.size;
    if (size.pixels() > kMostPixels) throw SpectralFault("more than 64 million pixels");
    decoder.pixels.resize(size.rows * decoder.rowBytes);
    for (std::size_t y = 0; y < size.rows; ++y) {
        decoder.rows.push_back(decoder.pixels.data() + y * decoder.rowBytes);
    }
    if (!readRows(decoder)) throw SpectralFault("damaged PNG file: " + decoder.fault);

    std::vector<unsigned char> marked(size.pixels());
    const std::size_t step = decoder.rowBytes / size.cols;
    for (std::size_t i = 0; i < marked.size(); ++i) {
        const auto pixel = decoder.pixels.begin() + static_cast<std::ptrdiff_t>(i * step);
        marked[i] = std::any_of(pixel, pixel + static_cast<std::ptrdiff_t>(step),
                                [](unsigned char byte) { return byte != 0; });
    }
    return marked;
}

}  // namespace hx
