// SPDX-License-Identifier: MIT
#include "spectral/tiff_file.h"

#include <fcntl.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

namespace hx {
namespace {

constexpr std::uint32_t kTagNoData = 42113;
constexpr std::size_t kStripBytes = std::size_t{256} << 10;

[[gnu::format(printf, 4, 0)]] int onFault(TIFF*, void* fault, const char*, const char* format,
                                          va_list arguments) {
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    *static_cast<std::string*>(fault) = text.data();
    return 1;
}

int onWarning(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

class Writer {
  public:
    Writer(int fd, const TiffDescription& description) : description_(description) {
        // libtiff closes what it was given.
        const int own = fcntl(fd, F_DUPFD_CLOEXEC, 0);
        if (own < 0) throw SpectralFault(std::strerror(errno));
        const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(
            TIFFOpenOptionsAlloc(), TIFFOpenOptionsFree);
        TIFFOpenOptionsSetErrorHandlerExtR(options.get(), onFault, &fault_);
        TIFFOpenOptionsSetWarningHandlerExtR(options.get(), onWarning, nullptr);
        file_.reset(TIFFFdOpenExt(own, "TIFF", "wl", options.get()));
        if (!file_) {
            close(own);
            fail();
        }
    }

    void writePage(std::size_t page, const TiffRow& fill) {
        describe(page);
        const PictureSize size = description_.size;
        const std::size_t rowBytes = size.cols * bytesOf(description_.type);
        const std::size_t rowsInStrip = std::max<std::size_t>(1, kStripBytes / rowBytes);
        set(TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(rowsInStrip));
        strip_.resize(std::min(rowsInStrip, size.rows) * rowBytes);
        std::uint32_t index = 0;
        for (std::size_t row = 0; row < size.rows; row += rowsInStrip, ++index) {
            const std::size_t count = std::min(rowsInStrip, size.rows - row);
            for (std::size_t i = 0; i < count; ++i) {
                fill(page, row + i, std::span(strip_).subspan(i * rowBytes, rowBytes));
            }
            const auto bytes = static_cast<tmsize_t>(count * rowBytes);
            if (TIFFWriteEncodedStrip(file_.get(), index, strip_.data(), bytes) != bytes) fail();
        }
        if (TIFFWriteDirectory(file_.get()) == 0) fail();
    }

    void finish() {
        file_.reset();
        if (!fault_.empty()) fail();
    }

  private:
    void describe(std::size_t page) {
        const bool real = description_.type != SampleType::uint16;
        set(TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(description_.size.cols));
        set(TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(description_.size.rows));
        set(TIFFTAG_BITSPERSAMPLE, static_cast<int>(8 * bytesOf(description_.type)));
        set(TIFFTAG_SAMPLESPERPIXEL, 1);
        set(TIFFTAG_SAMPLEFORMAT, real ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
        set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        set(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        set(TIFFTAG_SOFTWARE, description_.software.c_str());
        if (page == 0 && !description_.text.empty()) {
            set(TIFFTAG_IMAGEDESCRIPTION, description_.text.c_str());
        }
        if (!description_.pages[page].empty()) {
            set(TIFFTAG_PAGENAME, description_.pages[page].c_str());
        }
        if (description_.pages.size() > 1) {
            set(TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
            set(TIFFTAG_PAGENUMBER, static_cast<int>(page),
                static_cast<int>(description_.pages.size()));
        }
        if (description_.noData) setNoData(*description_.noData);
    }

    void setNoData(double value) {
        char name[] = "GDALNoDataValue";
        const TIFFFieldInfo field = {kTagNoData, -1, -1, TIFF_ASCII, FIELD_CUSTOM, 1, 0, name};
        if (TIFFFindField(file_.get(), kTagNoData, TIFF_ANY) == nullptr &&
            TIFFMergeFieldInfo(file_.get(), &field, 1) != 0) {
            fail();
        }
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%g", value);
        set(kTagNoData, text.data());
    }

    template <class... Values>
    void set(std::uint32_t tag, Values... values) {
        if (TIFFSetField(file_.get(), tag, values...) == 0) fail();
    }

    [[noreturn]] void fail() const { throw SpectralFault("cannot write TIFF: " + fault_); }

    const TiffDescription& description_;
    std::string fault_;
    std::vector<std::byte> strip_;
    std::unique_ptr<TIFF, decltype(&TIFFClose)> file_{nullptr, TIFFClose};
};

}  // namespace

std::size_t bytesOf(SampleType type) {
    return type == SampleType::uint16 ? 2 : type == SampleType::float32 ? 4 : 8;
}

void writeTiff(int fd, const TiffDescription& description, const TiffRow& fill) {
    Writer writer(fd, description);
    for (std::size_t page = 0; page < description.pages.size(); ++page) {
        writer.writePage(page, fill);
    }
    writer.finish();
}

}  // namespace hx
