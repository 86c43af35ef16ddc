// SPDX-License-Identifier: MIT
#include "cube_output.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <filesystem>
#include <list>
#include <utility>

#include "pending_file.h"
#include "provenance.h"
#include "spectral/mask_file.h"
#include "spectral/preview.h"

namespace hxcam {
namespace {

constexpr std::array<std::size_t, 3> kPreviewBands = {6, 3, 0};

/// Files that get their names together, in the order in which they were added.
class PendingFiles {
  public:
    PendingFile& add(const std::string& path) { return files_.emplace_back(path); }

    void finish(bool overwrite) {
        for (PendingFile& file : files_) file.close();
        for (PendingFile& file : files_) file.finish(overwrite);
    }

  private:
    std::list<PendingFile> files_;
};

Provenance describe(const CubeResult& result) {
    const hx::CalibrationUse& use = result.calibration;
    Provenance fields = provenanceOf(result.source);
    fields.emplace_back("processing level", hx::levelName(use.level));
    if (use.level == hx::Level::raw) return fields;
    fields.emplace_back("dark exposure", std::to_string(use.darkExposure));
    fields.emplace_back("dark frames", std::to_string(use.darkFrames));
    if (use.level == hx::Level::darkSubtracted) return fields;
    fields.emplace_back("white exposure", std::to_string(use.whiteExposure));
    fields.emplace_back("white frames", std::to_string(use.whiteFrames));
    fields.emplace_back("white dark exposure", std::to_string(use.whiteDarkExposure));
    return fields;
}

void writeTiff(const CubeResult& result, const hx::BandTable& bands, hx::SampleType type,
               PendingFile& file) {
    const hx::Cube& cube = result.cube;
    Provenance fields = describe(result);
    fields.emplace_back("band names", fmt::format("{}", fmt::join(bands.names, ", ")));
    if (!bands.units.empty()) {
        fields.emplace_back("wavelength", fmt::format("{}", fmt::join(bands.wavelengths, ", ")));
        fields.emplace_back("wavelength units", bands.units);
    }
    if (!bands.widths.empty()) {
        fields.emplace_back("fwhm", fmt::format("{}", fmt::join(bands.widths, ", ")));
    }
    hx::TiffDescription description;
    description.size = cube.size();
    description.type = type;
    description.pages = bands.names;
    description.text = linesOf(fields);
    description.software = kSoftware;
    if (cube.ignored().count() > 0) description.noData = hx::kIgnored;
    const std::size_t bytes = hx::bytesOf(type);
    hx::writeTiff(file.fd(), description,
                  [&](std::size_t band, std::size_t row, std::span<std::byte> samples) {
                      const std::size_t first = row * cube.size().cols;
                      for (std::size_t col = 0; col < cube.size().cols; ++col) {
                          hx::storeValue(cube.value(first + col, band), type,
                                         samples.data() + col * bytes);
                      }
                  });
}

/// Counts that a picture shows as white.
double whiteOf(const CubeResult& result) {
    if (result.calibration.level == hx::Level::reflectance) return 1;
    const std::uint64_t depth = result.source.view.depth();
    return static_cast<double>((std::uint64_t{1} << (depth >= 1 && depth <= 16 ? depth : 16)) - 1);
}

std::string dataPath(const std::string& header) {
    return std::filesystem::path(header).replace_extension(".img").string();
}

}  // namespace

CubeOutput::CubeOutput(const CubeOptions& options, hx::BandTable bands)
    : options_(options), bands_(std::move(bands)) {
    const auto open = [&](const CubeTarget& target, std::optional<OutputPlace>& place) {
        if (target.isWanted()) place.emplace(target.path, target.isFolder, options.force);
    };
    open(options.output, output_);
    open(options.maskOut, maskOut_);
    open(options.preview, preview_);
    const bool isEnviFile = options.format == CubeFormat::envi && !options.output.isFolder;
    if (isEnviFile && !options.force) refuseExisting(dataPath(options.output.path));
}

void CubeOutput::store(const CubeResult& result) {
    const hx::Cube& cube = result.cube;
    const hx::SampleType type = options_.type.value_or(hx::SampleType::float32);
    const auto shown = options_.previewBands.value_or(kPreviewBands);
    PendingFiles files;
    std::string oldHeader;
    if (output_ && options_.format == CubeFormat::tiff) {
        writeTiff(result, bands_, type, files.add(output_->pathFor(result.source, ".tif")));
    } else if (output_) {
        const std::string path = output_->pathFor(result.source, ".hdr");
        if (!options_.force) refuseExisting(dataPath(path));
        const hx::EnviDescription description = {
            type,
            options_.interleave.value_or(hx::Interleave::bsq),
            bands_,
            shown,
            fmt::format("{} cube", hx::levelName(result.calibration.level)),
            describe(result)};
        PendingFile& data = files.add(dataPath(path));
        hx::writeEnviData(cube, description,
                          [&](std::span<const std::byte> bytes) { data.write(bytes); });
        const std::string header = hx::enviHeader(cube, description);
        files.add(path).write(std::as_bytes(std::span(header)));
        oldHeader = path;
    }
    if (maskOut_) {
        hx::encodeMask(cube.ignored(), png_);
        files.add(maskOut_->pathFor(result.source, ".png")).write(std::as_bytes(std::span(png_)));
    }
    if (preview_) {
        hx::encodePreview(cube, shown, whiteOf(result), png_);
        files.add(preview_->pathFor(result.source, ".png")).write(std::as_bytes(std::span(png_)));
    }
    // The header gets its name behind the data: at no time does a header describe other data.
    if (options_.force && !oldHeader.empty()) unlink(oldHeader.c_str());
    files.finish(options_.force);
}

}  // namespace hxcam
