// SPDX-License-Identifier: MIT
#include "convert_options.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <map>

#include "exit_code.h"
#include "frame_batch.h"

namespace hxcam {
namespace {

const std::map<std::string, SampleFormat> kFormats = {{"png", SampleFormat::png},
                                                      {"tiff", SampleFormat::tiff},
                                                      {"npy", SampleFormat::npy},
                                                      {"raw", SampleFormat::raw}};
const std::map<std::string, SampleFormat> kSuffixes = {{".png", SampleFormat::png},
                                                       {".tif", SampleFormat::tiff},
                                                       {".tiff", SampleFormat::tiff},
                                                       {".npy", SampleFormat::npy},
                                                       {".raw", SampleFormat::raw}};

constexpr char kNotes[] =
    "\n"
    "A FILE is a container file, a folder (its .hxc files) or - for standard input. With several "
    "of\n"
    "them, or a folder, OUT is a folder and each result has the name of its container file.\n"
    "npy and raw hold 16-bit numbers, low byte first, row by row from the top left.\n"
    "\n"
    "Examples:\n"
    "  hxcam convert frame-000000.hxc -o frame.tif\n"
    "  hxcam convert run1 -o pictures --format png --stretch\n";

[[noreturn]] void refuse(const char* what) {
    throw CommandError(exitUsage, what);
}

}  // namespace

CLI::App* addConvert(CLI::App& app, ConvertOptions& options) {
    CLI::App* const command = app.add_subcommand("convert", "Store the samples of containers");
    command->footer(kNotes);
    command->add_option("files", options.files, "Container files, folders, or -")
        ->required()
        ->type_name("FILE");
    command->add_option("-o,--output", options.output, "File, or folder (made when missing)")
        ->required()
        ->type_name("OUT");
    command
        ->add_option_function<std::string>(
            "--format", [&options](const std::string& name) { options.format = kFormats.at(name); },
            "png, tiff, npy or raw; else by the suffix of OUT")
        ->check(CLI::IsMember({"png", "tiff", "npy", "raw"}))
        ->type_name("FORMAT");
    command->add_flag("--stretch", options.stretch, "PNG of 8 bits, 10-bit samples scaled to it");
    command->add_flag("--force", options.force, "Overwrite files");
    command->add_flag("--quiet", options.quiet, "No progress");
    return command;
}

void checkConvert(ConvertOptions& options) {
    if (options.output.empty()) refuse("--output must not be empty");
    if (options.output == "-") refuse("--output must be a file or a folder, not -");
    options.intoFolder = goesIntoFolder(options.files, options.output);
    if (!options.format) {
        if (options.intoFolder) refuse("--output is a folder; say which --format");
        const auto suffix =
            kSuffixes.find(std::filesystem::path(options.output).extension().string());
        if (suffix == kSuffixes.end()) {
            refuse("--output ends in none of .png, .tif, .tiff, .npy, .raw; say which --format");
        }
        options.format = suffix->second;
    }
    if (options.stretch && options.format != SampleFormat::png) refuse("--stretch is for PNG");
}

}  // namespace hxcam
