// SPDX-License-Identifier: MIT
// The command lines of hxcam convert.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace hxcam {

enum class SampleFormat { png, tiff, npy, raw };

struct ConvertOptions {
    std::vector<std::string> files;
    std::string output;
    std::optional<SampleFormat> format;  ///< always there after checkConvert()
    bool stretch = false;
    bool force = false;
    bool quiet = false;
    bool intoFolder = false;  ///< set by checkConvert()
};

/// Adds the command to the program.
CLI::App* addConvert(CLI::App& app, ConvertOptions& options);

/// Decides what was left open. Throws CommandError for what does not go together.
void checkConvert(ConvertOptions& options);

}  // namespace hxcam
