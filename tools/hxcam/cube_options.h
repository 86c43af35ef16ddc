// SPDX-License-Identifier: MIT
// The command line of hxcam cube.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "spectral/envi_file.h"

namespace CLI {
class App;
}

namespace hxcam {

enum class CubeFormat { envi, tiff };

/// A result that the user may ask for; empty path: not asked for.
struct CubeTarget {
    std::string path;
    bool isFolder = false;  ///< set by checkCube()

    bool isWanted() const { return !path.empty(); }
};

struct CubeOptions {
    std::vector<std::string> files;
    CubeTarget output;
    CubeTarget maskOut;
    CubeTarget preview;
    std::optional<CubeFormat> format;  ///< there after checkCube() when output is wanted
    std::optional<hx::Interleave> interleave;
    std::optional<hx::SampleType> type;
    std::string bands;
    std::string mask;
    std::string regions;
    std::vector<std::string> dark;
    std::vector<std::string> white;
    std::optional<double> whiteMin;
    std::optional<std::array<std::size_t, 3>> previewBands;  ///< from 0
    bool anyModel = false;
    bool force = false;
    bool quiet = false;

    /// All results can be several.
    bool intoFolders() const;
};

/// Adds the command to the program.
CLI::App* addCube(CLI::App& app, CubeOptions& options);

/// Decides what was left open. Throws CommandError for what does not go together.
void checkCube(CubeOptions& options);

}  // namespace hxcam
