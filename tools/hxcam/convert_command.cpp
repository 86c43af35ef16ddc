// SPDX-License-Identifier: MIT
// hxcam convert: the samples of containers in formats of other programs.
#include <fmt/format.h>

#include <bit>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "frame_batch.h"
#include "pending_file.h"
#include "png_image.h"
#include "provenance.h"
#include "spectral/tiff_file.h"

namespace hxcam {
namespace {

// Samples are written as they lie in the container.
static_assert(std::endian::native == std::endian::little);

constexpr std::size_t kNpyBlock = 64;

void writeTiff(const SourceFrame& frame, PendingFile& file) {
    hx::TiffDescription description;
    description.size = {frame.view.height(), frame.view.width()};
    description.text = linesOf(provenanceOf(frame));
    description.software = kSoftware;
    const std::byte* const samples = frame.view.mainData().data();
    hx::writeTiff(file.fd(), description,
                  [&](std::size_t, std::size_t row, std::span<std::byte> bytes) {
                      std::memcpy(bytes.data(), samples + row * bytes.size(), bytes.size());
                  });
}

/// NumPy's format, version 1.0: magic, length and text of a header that fills up whole blocks.
std::string npyHeader(const hx::ContainerView& view) {
    std::string text =
        fmt::format("{{'descr': '<u2', 'fortran_order': False, 'shape': ({}, {}), }}",
                    view.height(), view.width());
    const std::size_t before = 10;
    const std::size_t whole = (before + text.size()) / kNpyBlock * kNpyBlock + kNpyBlock;
    text.append(whole - before - text.size() - 1, ' ');
    text += '\n';
    std::string header("\x93NUMPY\x01\x00", 8);
    header += static_cast<char>(text.size() & 0xff);
    header += static_cast<char>(text.size() >> 8);
    return header + text;
}

class Conversion {
  public:
    explicit Conversion(const ConvertOptions& options)
        : options_(options), place_(options.output, options.intoFolder, options.force) {}

    void store(const SourceFrame& frame) {
        static constexpr const char* kSuffixes[] = {".png", ".tif", ".npy", ".raw"};
        const auto format = *options_.format;
        PendingFile file(place_.pathFor(frame, kSuffixes[static_cast<std::size_t>(format)]));
        switch (format) {
            case SampleFormat::png:
                encodePng(frame.view, options_.stretch ? PngScale::stretch8 : PngScale::plain16,
                          png_);
                file.write(std::as_bytes(std::span(png_)));
                break;
            case SampleFormat::tiff:
                writeTiff(frame, file);
                break;
            case SampleFormat::npy:
                file.write(std::as_bytes(std::span(std::string_view(npyHeader(frame.view)))));
                [[fallthrough]];
            case SampleFormat::raw:
                file.write(frame.view.mainData());
                break;
        }
        file.finish(options_.force);
    }

  private:
    const ConvertOptions& options_;
    OutputPlace place_;
    std::vector<unsigned char> png_;
};

}  // namespace

int runConvert(const ConvertOptions& options, const Interrupt& interrupt) {
    Conversion conversion(options);
    return forEachFrame({options.files, options.intoFolder, options.quiet}, interrupt,
                        [&](const SourceFrame& frame) {
                            conversion.store(frame);
                            return FrameReport();
                        });
}

}  // namespace hxcam
