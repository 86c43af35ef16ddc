// SPDX-License-Identifier: MIT
#include "cube_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>

#include "exit_code.h"
#include "frame_batch.h"
#include "spectral/text_table.h"

namespace hxcam {
namespace {

const std::map<std::string, CubeFormat> kFormats = {{"envi", CubeFormat::envi},
                                                    {"tiff", CubeFormat::tiff}};
const std::map<std::string, CubeFormat> kSuffixes = {
    {".hdr", CubeFormat::envi}, {".tif", CubeFormat::tiff}, {".tiff", CubeFormat::tiff}};
const std::map<std::string, hx::Interleave> kInterleaves = {
    {"bsq", hx::Interleave::bsq}, {"bil", hx::Interleave::bil}, {"bip", hx::Interleave::bip}};
const std::map<std::string, hx::SampleType> kTypes = {{"float32", hx::SampleType::float32},
                                                      {"float64", hx::SampleType::float64}};

constexpr char kNotes[] =
    "\n"
    "Estimates all nine bands at every pixel of a frame of an HX02 camera, and stores them as\n"
    "OUT.hdr with OUT.img (ENVI) or as TIFF with a page a band. A FILE is a container file, a "
    "folder\n"
    "(its .hxc files) or - for standard input. With several of them, or a folder, OUT, PICTURE "
    "and\n"
    "MASK are folders and each result has the name of its container file.\n"
    "Bands count from 1. Reflectance is (sample - dark) / (white - dark), scaled by the "
    "exposures.\n"
    "\n"
    "Examples:\n"
    "  hxcam cube frame-000000.hxc -o leaf.hdr\n"
    "  hxcam cube --dark dark --white white --bands bands.csv run1 -o cubes\n"
    "  hxcam cube frame-000000.hxc --regions patches.csv\n";

[[noreturn]] void refuse(const std::string& what) {
    throw CommandError(exitUsage, what);
}

template <class Value>
void addChoice(CLI::App& command, const std::string& name,
               const std::map<std::string, Value>& choices, std::optional<Value>& value,
               const std::string& what) {
    command
        .add_option_function<std::string>(
            name, [&value, &choices](const std::string& text) { value = choices.at(text); }, what)
        ->check(CLI::IsMember(&choices))
        ->type_name("NAME");
}

std::optional<std::array<std::size_t, 3>> threeBands(const std::string& text) {
    const auto lines = hx::tableLines(text);
    if (lines.size() != 1 || lines.front().fields.size() != 3) return std::nullopt;
    std::array<std::size_t, 3> bands{};
    for (std::size_t i = 0; i < bands.size(); ++i) {
        const auto band = hx::wholeNumber(lines.front().fields[i]);
        if (!band || *band < 1 || *band > hx::kBands) return std::nullopt;
        bands[i] = *band - 1;
    }
    return bands;
}

void addPreview(CLI::App& command, CubeOptions& options) {
    command
        .add_option("--preview", options.preview.path, "Picture (PNG) of three bands, to look at")
        ->type_name("PICTURE");
    command
        .add_option_function<std::string>(
            "--preview-bands",
            [&options](const std::string& text) { options.previewBands = threeBands(text); },
            "Bands of the picture's red, green and blue (default 7,4,1)")
        ->check([](const std::string& text) {
            return threeBands(text) ? "" : "needs three bands from 1 to 9, such as 7,4,1";
        })
        ->type_name("R,G,B");
}

void addCalibration(CLI::App& command, CubeOptions& options) {
    // One each time: what follows may be the frames.
    command.add_option("--dark", options.dark, "Containers or folders of dark frames, averaged")
        ->allow_extra_args(false)
        ->type_name("FILE");
    command
        .add_option("--white", options.white,
                    "The same of a white reference: gives reflectance; needs --dark")
        ->allow_extra_args(false)
        ->type_name("FILE");
    command
        .add_option("--white-min", options.whiteMin,
                    "Pixels with fewer counts of white above dark are ignored (default 10)")
        ->check([](const std::string& text) {
            const auto value = hx::realNumber(text);
            return value && *value > 0 ? "" : "must be a number above 0";
        })
        ->type_name("COUNTS");
    command.add_option("--mask", options.mask, "PNG or PGM; what is not black is left alone")
        ->type_name("FILE");
    command
        .add_option("--mask-out", options.maskOut.path,
                    "PNG of the ignored pixels: masked, or not to be reconstructed")
        ->type_name("MASK");
}

bool names(const std::string& path, const char* suffix) {
    return std::filesystem::path(path).extension() == suffix;
}

void decideFormat(CubeOptions& options) {
    if (!options.output.isWanted()) {
        if (options.format) refuse("--format is for --output");
        if (options.interleave) refuse("--interleave is for --output");
        if (options.type) refuse("--type is for --output");
        if (!options.bands.empty() && options.regions.empty()) {
            refuse("--bands is for --output and --regions");
        }
        return;
    }
    const std::string& path = options.output.path;
    if (!options.format && options.output.isFolder) options.format = CubeFormat::envi;
    if (!options.format) {
        const auto suffix = kSuffixes.find(std::filesystem::path(path).extension().string());
        if (suffix == kSuffixes.end()) refuse("--output must end in .hdr, .tif or .tiff");
        options.format = suffix->second;
    }
    if (options.format == CubeFormat::envi && !options.output.isFolder && !names(path, ".hdr")) {
        refuse("--output of ENVI must end in .hdr");
    }
    if (options.format == CubeFormat::tiff && options.interleave) {
        refuse("--interleave is for ENVI; TIFF has a page a band");
    }
}

void decideFolders(CubeOptions& options) {
    const bool many = goesIntoFolder(options.files, "");
    for (CubeTarget* target : {&options.output, &options.maskOut, &options.preview}) {
        if (target->path == "-") refuse("results go into files, not to -");
        target->isFolder = target->isWanted() && (many || goesIntoFolder({}, target->path));
    }
}

void checkInputs(const CubeOptions& options) {
    std::ptrdiff_t streams = 0;
    for (const auto* files : {&options.files, &options.dark, &options.white}) {
        streams += std::count(files->begin(), files->end(), "-");
    }
    for (const auto* file : {&options.mask, &options.bands, &options.regions}) {
        streams += *file == "-" ? 1 : 0;
    }
    if (streams > 1) refuse("standard input (-) can be read once only");
    if (!options.white.empty() && options.dark.empty()) refuse("--white needs --dark");
    if (options.whiteMin && options.white.empty()) refuse("--white-min is for --white");
    if (options.previewBands && !options.preview.isWanted()) {
        refuse("--preview-bands is for --preview");
    }
}

}  // namespace

bool CubeOptions::intoFolders() const {
    const auto takesMany = [](const CubeTarget* target) {
        return !target->isWanted() || target->isFolder;
    };
    const auto targets = {&output, &maskOut, &preview};
    return std::all_of(targets.begin(), targets.end(), takesMany);
}

CLI::App* addCube(CLI::App& app, CubeOptions& options) {
    CLI::App* const command = app.add_subcommand("cube", "Make spectral cubes of containers");
    command->footer(kNotes);
    command->add_option("files", options.files, "Container files, folders, or -")
        ->required()
        ->type_name("FILE");
    command
        ->add_option("-o,--output", options.output.path,
                     "File.hdr or .tif, or folder (made when missing)")
        ->type_name("OUT");
    addChoice(*command, "--format", kFormats, options.format,
              "envi or tiff; else by the suffix of OUT, ENVI in a folder");
    addChoice(*command, "--interleave", kInterleaves, options.interleave,
              "ENVI: bsq (default), bil or bip");
    addChoice(*command, "--type", kTypes, options.type, "float32 (default) or float64");
    command->add_option("--bands", options.bands, "Table of the bands' wavelengths and names")
        ->type_name("FILE");
    addCalibration(*command, options);
    addPreview(*command, options);
    command
        ->add_option("--regions", options.regions,
                     "Table of rectangles; prints the mean spectrum of each")
        ->type_name("FILE");
    command->add_flag("--any-model", options.anyModel,
                      "Also reconstruct frames of cameras that are no HX02");
    command->add_flag("--force", options.force, "Overwrite files");
    command->add_flag("--quiet", options.quiet, "No progress, no warnings");
    return command;
}

void checkCube(CubeOptions& options) {
    const bool stores =
        options.output.isWanted() || options.maskOut.isWanted() || options.preview.isWanted();
    if (!stores && options.regions.empty()) {
        refuse("nothing to make: give --output, --preview, --mask-out or --regions");
    }
    decideFolders(options);
    decideFormat(options);
    checkInputs(options);
}

}  // namespace hxcam
