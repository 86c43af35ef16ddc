// SPDX-License-Identifier: MIT
#include "spectral/mask_file.h"

#include <algorithm>
#include <string_view>

#include "spectral/png_file.h"

namespace hx {
namespace {

constexpr std::string_view kPngStart = "\x89PNG\r\n\x1a\n";
constexpr std::size_t kLongestSide = 65535;
constexpr std::size_t kTopValue = 65535;

bool isBlank(char c) {
    return std::string_view(" \t\r\n\v\f").find(c) != std::string_view::npos;
}

/// Takes a PGM file apart: numbers between blanks and comments, then bare bytes.
class PgmReader {
  public:
    explicit PgmReader(std::string_view text) : rest_(text) {}

    std::size_t number(std::size_t least, std::size_t most) {
        skipBlanks();
        std::size_t value = 0;
        std::size_t digits = 0;
        for (; digits < rest_.size() && rest_[digits] >= '0' && rest_[digits] <= '9'; ++digits) {
            value = std::min(most + 1, value * 10 + static_cast<std::size_t>(rest_[digits] - '0'));
        }
        if (digits == 0) throw SpectralFault("damaged PGM file: a number is missing");
        if (value < least || value > most) throw SpectralFault("damaged PGM file: a wrong number");
        rest_.remove_prefix(digits);
        return value;
    }

    /// What follows the one blank behind the header.
    std::string_view bytes() {
        if (rest_.empty() || !isBlank(rest_.front())) throw SpectralFault("damaged PGM file");
        return rest_.substr(1);
    }

  private:
    void skipBlanks() {
        while (!rest_.empty() && (isBlank(rest_.front()) || rest_.front() == '#')) {
            if (rest_.front() == '#') rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size()));
            if (!rest_.empty()) rest_.remove_prefix(1);
        }
    }

    std::string_view rest_;
};

PixelMask decodePgm(std::string_view text) {
    const bool isBinary = text[1] == '5';
    PgmReader reader(text.substr(2));
    PictureSize size;
    size.cols = reader.number(1, kLongestSide);
    size.rows = reader.number(1, kLongestSide);
    const std::size_t top = reader.number(1, kTopValue);
    const std::size_t width = isBinary && top > 255 ? 2 : 1;
    // A value takes at least a byte in both kinds: memory stays in proportion to the file.
    if (size.pixels() * width > text.size()) {
        throw SpectralFault("damaged PGM file: it is cut off");
    }
    PixelMask mask(size);
    if (!isBinary) {
        for (std::size_t i = 0; i < size.pixels(); ++i) mask[i] = reader.number(0, top) != 0;
        return mask;
    }
    const std::string_view bytes = reader.bytes();
    if (bytes.size() < size.pixels() * width) {
        throw SpectralFault("damaged PGM file: it is cut off");
    }
    for (std::size_t i = 0; i < size.pixels(); ++i) {
        const std::string_view value = bytes.substr(i * width, width);
        mask[i] = value.find_first_not_of('\0') != std::string_view::npos;
    }
    return mask;
}

}  // namespace

PixelMask decodeMask(std::span<const std::byte> file) {
    const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
    if (text.starts_with("P5") || text.starts_with("P2")) return decodePgm(text);
    if (!text.starts_with(kPngStart)) throw SpectralFault("it is neither a PNG nor a PGM file");
    PictureSize size;
    const std::vector<unsigned char> marked = decodeNonBlack(file, size);
    PixelMask mask(size);
    for (std::size_t i = 0; i < marked.size(); ++i) mask[i] = marked[i] != 0;
    return mask;
}

void encodeMask(const PixelMask& mask, std::vector<unsigned char>& png) {
    const auto fill = [&mask](std::size_t row, std::span<unsigned char> bytes) {
        for (std::size_t col = 0; col < bytes.size(); ++col) {
            bytes[col] = mask[row * bytes.size() + col] ? 255 : 0;
        }
    };
    encodePng(mask.size(), PngKind::grey8, fill, png);
}

}  // namespace hx
