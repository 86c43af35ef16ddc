// SPDX-License-Identifier: MIT
// hxcam cube: from containers to spectral cubes.
#include <fmt/format.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "cube_output.h"
#include "exit_code.h"
#include "frame_batch.h"
#include "spectral/mask_file.h"
#include "spectral/region_table.h"
#include "terminal.h"
#include "whole_file.h"

namespace hxcam {
namespace {

constexpr std::string_view kModel = "HX02";

/// Reads a file of the user by `parse`; what is wrong with it names it.
template <class Parse>
auto readUserFile(const std::string& path, const Parse& parse) {
    try {
        return parse(readWholeFile(path));
    } catch (const ReadFailed& fault) {
        throw CommandError(exitFailed, fmt::format("{}: {}", shown(path), fault.what()));
    } catch (const hx::SpectralFault& fault) {
        throw CommandError(exitFailed, fmt::format("{}: {}", shown(path), shown(fault.what())));
    }
}

std::string_view textOf(const std::vector<std::byte>& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

hx::BandTable readBands(const CubeOptions& options) {
    if (options.bands.empty()) return {};
    return readUserFile(options.bands, [](const std::vector<std::byte>& bytes) {
        return hx::parseBandTable(textOf(bytes));
    });
}

std::vector<hx::Region> readRegions(const CubeOptions& options) {
    if (options.regions.empty()) return {};
    return readUserFile(options.regions, [](const std::vector<std::byte>& bytes) {
        return hx::parseRegions(textOf(bytes));
    });
}

std::optional<hx::PixelMask> readMask(const CubeOptions& options) {
    if (options.mask.empty()) return std::nullopt;
    return readUserFile(options.mask,
                        [](const std::vector<std::byte>& bytes) { return hx::decodeMask(bytes); });
}

hx::FrameKey keyOf(const hx::ContainerView& view) {
    return {{view.height(), view.width()}, std::string(view.identification()), view.exposure()};
}

hx::References readReferences(const std::vector<std::string>& files, const Interrupt& interrupt) {
    hx::References references;
    std::vector<std::uint16_t> samples;
    forEveryFrame(files, interrupt, [&](const SourceFrame& frame) {
        samples.resize(frame.view.sampleCount());
        frame.view.copySamples(samples);
        try {
            references.add(keyOf(frame.view), samples);
        } catch (const hx::SpectralFault& fault) {
            throw CommandError(exitFailed, fmt::format("{}: {}", shown(frame.path), fault.what()));
        }
    });
    return references;
}

class CubeMaker {
  public:
    CubeMaker(const CubeOptions& options, const Interrupt& interrupt)
        : options_(options),
          bands_(readBands(options)),
          regions_(readRegions(options)),
          mask_(readMask(options)),
          output_(options, bands_) {
        calibration_.dark = readReferences(options.dark, interrupt);
        calibration_.white = readReferences(options.white, interrupt);
        calibration_.leastWhite = options.whiteMin.value_or(calibration_.leastWhite);
    }

    FrameReport make(const SourceFrame& frame) {
        requireModel(frame);
        const hx::FrameKey key = keyOf(frame.view);
        samples_.resize(frame.view.sampleCount());
        frame.view.copySamples(samples_);
        mosaic_.resize(samples_.size());
        hx::PixelMask ignore = maskFor(key.size);
        const hx::CalibrationUse use = calibration_.apply(key, samples_, mosaic_, ignore);
        cube_.reconstruct(key.size, mosaic_, ignore);

        // Before anything is stored, as a region may not fit.
        const std::string table = regions_.empty() ? "" : tableOf(frame, use);
        output_.store({frame, cube_, use});
        return {warningOf(key, use), table};
    }

  private:
    void requireModel(const SourceFrame& frame) const {
        const std::string_view text = frame.view.identification();
        if (options_.anyModel || text.starts_with(kModel)) return;
        throw CommandError(
            exitFailed, fmt::format("{}: \"{}\" is no camera with nine filters (HX02); --any-model "
                                    "reconstructs its frames all the same",
                                    shown(frame.path), shown(text)));
    }

    hx::PixelMask maskFor(hx::PictureSize size) const {
        hx::PixelMask ignore(size);
        if (!mask_) return ignore;
        if (mask_->size() != size) {
            throw hx::SpectralFault(fmt::format("the mask is {} x {}, the frame {} x {}",
                                                mask_->size().cols, mask_->size().rows, size.cols,
                                                size.rows));
        }
        std::copy_n(mask_->data(), size.pixels(), ignore.data());
        return ignore;
    }

    /// Once for each exposure that has no dark frames of its own.
    std::string warningOf(const hx::FrameKey& key, const hx::CalibrationUse& use) {
        const bool hasWhite = use.level == hx::Level::reflectance;
        if (use.level != hx::Level::raw && key.exposure != use.darkExposure &&
            warned_.insert(key.exposure).second) {
            return wrongDark(key.exposure, use.darkExposure);
        }
        if (hasWhite && use.whiteExposure != use.whiteDarkExposure &&
            warned_.insert(use.whiteExposure).second) {
            return wrongDark(use.whiteExposure, use.whiteDarkExposure);
        }
        return "";
    }

    static std::string wrongDark(std::uint64_t exposure, std::uint64_t used) {
        return fmt::format("no dark frame of exposure {}; those of exposure {} are used", exposure,
                           used);
    }

    std::string tableOf(const SourceFrame& frame, const hx::CalibrationUse& use) const {
        const int digits = use.level == hx::Level::reflectance ? 4 : 2;
        std::string text = fmt::format("{}: mean {} spectra\n  {:<12}  {:>7}", shown(frame.path),
                                       hx::levelName(use.level), "REGION", "PIXELS");
        for (const std::string& name : bands_.names) text += fmt::format("  {:>8}", name);
        text += '\n';
        for (const hx::Region& region : regions_) {
            const hx::RegionMean mean = hx::meanOf(cube_, region);
            text += fmt::format("  {:<12}  {:>7}", shown(region.name), mean.pixels);
            for (const double value : mean.bands) {
                text += mean.pixels == 0 ? fmt::format("  {:>8}", "-")
                                         : fmt::format("  {:>8.{}f}", value, digits);
            }
            text += '\n';
        }
        return text;
    }

    const CubeOptions& options_;
    hx::BandTable bands_;
    std::vector<hx::Region> regions_;
    std::optional<hx::PixelMask> mask_;
    CubeOutput output_;
    hx::Calibration calibration_;
    hx::Cube cube_;
    std::vector<std::uint16_t> samples_;
    std::vector<double> mosaic_;
    std::set<std::uint64_t> warned_;
};

}  // namespace

int runCube(const CubeOptions& options, const Interrupt& interrupt) {
    CubeMaker maker(options, interrupt);
    return forEachFrame({options.files, options.intoFolders(), options.quiet}, interrupt,
                        [&](const SourceFrame& frame) { return maker.make(frame); });
}

}  // namespace hxcam
