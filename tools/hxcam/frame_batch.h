// SPDX-License-Identifier: MIT
// Frame by frame through many files: names of the results, progress, and going on after a fault.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "codec/hx_container.h"
#include "interrupt.h"

namespace hxcam {

struct SourceFrame {
    const hx::ContainerView& view;
    std::string path;  ///< - for standard input
    std::string stem;  ///< for the names of results; tells several containers of a file apart
};

/// What a frame's work has to say; told when no progress line is in the way.
struct FrameReport {
    std::string warning;  ///< empty: none
    std::string text;     ///< for standard output
};

struct BatchOptions {
    std::vector<std::string> files;  ///< files, folders, -
    bool intoFolder = false;         ///< false: there is one result, so there must be one container
    bool quiet = false;
};

/// Calls `work` for each container of the files, one after the other. A fault in one of them, or an
/// exception of `work`, is told on standard error and the rest still done; an interrupt ends it.
/// Returns the exit code.
int forEachFrame(const BatchOptions& options, const Interrupt& interrupt,
                 const std::function<FrameReport(const SourceFrame&)>& work);

/// The same where all is needed: throws CommandError at the first fault.
void forEveryFrame(const std::vector<std::string>& files, const Interrupt& interrupt,
                   const std::function<void(const SourceFrame&)>& work);

/// Whether results of these files go into a folder: there are several, or one is a folder, or
/// `output` is one or ends in a slash.
bool goesIntoFolder(const std::vector<std::string>& files, const std::string& output);

/// Where one kind of result goes: into one file, or into a folder by the stem of its source.
class OutputPlace {
  public:
    /// Makes the folder when it is missing. Throws CommandError.
    OutputPlace(std::string path, bool isFolder, bool force);

    /// The path for a result, with `suffix` in a folder. Throws CommandError when there is such a
    /// file and no `force`, and when this run has already made it.
    std::string pathFor(const SourceFrame& frame, const std::string& suffix);
    bool force() const { return force_; }

  private:
    std::string path_;
    bool isFolder_;
    bool force_;
    std::set<std::string> given_;
};

}  // namespace hxcam
