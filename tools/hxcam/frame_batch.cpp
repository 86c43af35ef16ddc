// SPDX-License-Identifier: MIT
#include "frame_batch.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "container_input.h"
#include "exit_code.h"
#include "pending_file.h"
#include "terminal.h"

namespace hxcam {
namespace {

namespace fs = std::filesystem;

bool isFolder(const std::string& path) {
    std::error_code fault;
    return path != "-" && fs::is_directory(path, fault);
}

std::string stemOf(const std::string& path, std::size_t index, bool numbered) {
    const std::string stem = path == "-" ? "frame" : fs::path(path).stem().string();
    return numbered ? fmt::format("{}-{:06}", stem, index) : stem;
}

/// One line that is written anew, on a terminal only.
class Progress {
  public:
    explicit Progress(bool quiet) : enabled_(!quiet && isatty(STDERR_FILENO) != 0) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { clear(); }

    void show(const std::string& line) {
        if (enabled_) fmt::print(stderr, "\r\033[K{}", line);
    }
    void clear() {
        if (enabled_) fmt::print(stderr, "\r\033[K");
    }

  private:
    bool enabled_;
};

class Batch {
  public:
    Batch(const BatchOptions& options, const Interrupt& interrupt,
          const std::function<FrameReport(const SourceFrame&)>& work)
        : options_(options), interrupt_(interrupt), work_(work), progress_(options.quiet) {}

    int run() {
        std::vector<std::string> files;
        for (const std::string& argument : options_.files) {
            attempt(argument, [&] {
                for (std::string& file : filesOf(argument)) files.push_back(std::move(file));
            });
        }
        for (std::size_t i = 0; i < files.size(); ++i) {
            place_ = files.size() == 1 ? "" : fmt::format("file {} of {}, ", i + 1, files.size());
            attempt(files[i], [&] { readFile(files[i]); });
        }
        return whole_ ? exitOk : exitFailed;
    }

  private:
    template <class Step>
    void attempt(const std::string& path, const Step& step) {
        std::string fault;
        try {
            step();
            return;
        } catch (const CommandError& error) {
            if (error.code() != exitFailed || *error.what() == '\0') throw;
            fault = error.what();
        } catch (const hx::ContainerFault& damage) {
            fault = fmt::format("{}: at byte {}: {}", shown(path), offset_ + damage.offset(),
                                damage.what());
        } catch (const std::runtime_error& error) {
            fault = fmt::format("{}: {}", shown(path), error.what());
        }
        progress_.clear();
        complain(fault);
        whole_ = false;
    }

    void readFile(const std::string& path) {
        offset_ = 0;
        ContainerInput input(path, interrupt_);
        std::size_t index = 0;
        do {
            progress_.show(fmt::format("{}{}, frame {}", place_, shown(path), index + 1));
            const hx::ContainerView view = input.next(bytes_);
            // A stream into a folder is not looked ahead in: that would hold back what has come.
            const bool isStream = path == "-" && options_.intoFolder;
            const bool isOneOfMany = index > 0 || isStream || !input.atEnd();
            if (isOneOfMany && !options_.intoFolder) {
                throw CommandError(exitFailed, shown(path) +
                                                   ": it holds several containers; for all of "
                                                   "them give a folder");
            }
            attempt(path, [&] {
                tellReport(work_({view, path, stemOf(path, index, isOneOfMany)}));
            });
            if (interrupt_.pending()) throw CommandError(exitInterrupted, "interrupted");
            offset_ += view.size();
            ++index;
        } while (!input.atEnd());
    }

    void tellReport(const FrameReport& report) {
        if (report.warning.empty() && report.text.empty()) return;
        progress_.clear();
        if (!report.warning.empty() && !options_.quiet) complain("warning: " + report.warning);
        print(report.text);
    }

    const BatchOptions& options_;
    const Interrupt& interrupt_;
    const std::function<FrameReport(const SourceFrame&)>& work_;
    Progress progress_;
    std::string place_;
    std::size_t offset_ = 0;
    std::vector<std::byte> bytes_;
    bool whole_ = true;
};

}  // namespace

int forEachFrame(const BatchOptions& options, const Interrupt& interrupt,
                 const std::function<FrameReport(const SourceFrame&)>& work) {
    return Batch(options, interrupt, work).run();
}

void forEveryFrame(const std::vector<std::string>& files, const Interrupt& interrupt,
                   const std::function<void(const SourceFrame&)>& work) {
    std::vector<std::byte> bytes;
    for (const std::string& argument : files) {
        for (const std::string& path : filesOf(argument)) {
            ContainerInput input(path, interrupt);
            try {
                do {
                    work({input.next(bytes), path, ""});
                } while (!input.atEnd());
            } catch (const hx::ContainerFault& damage) {
                throw CommandError(exitFailed, fmt::format("{}: at byte {}: {}", shown(path),
                                                           damage.offset(), damage.what()));
            }
        }
    }
}

bool goesIntoFolder(const std::vector<std::string>& files, const std::string& output) {
    return files.size() > 1 || output.ends_with('/') || isFolder(output) ||
           std::any_of(files.begin(), files.end(), isFolder);
}

OutputPlace::OutputPlace(std::string path, bool isFolder, bool force)
    : path_(std::move(path)), isFolder_(isFolder), force_(force) {
    if (!isFolder) {
        if (!force) refuseExisting(path_);
        return;
    }
    if (mkdir(path_.c_str(), 0777) == 0) return;
    const int fault = errno;
    if (fault != EEXIST || !hxcam::isFolder(path_)) {
        throw CommandError(exitFailed, fmt::format("cannot make the folder {}: {}", shown(path_),
                                                   std::strerror(fault)));
    }
}

std::string OutputPlace::pathFor(const SourceFrame& frame, const std::string& suffix) {
    std::string path = isFolder_ ? (fs::path(path_) / (frame.stem + suffix)).string() : path_;
    if (!given_.insert(path).second) {
        throw CommandError(exitFailed,
                           fmt::format("{}: {} was already made from another file of that name",
                                       shown(frame.path), shown(path)));
    }
    if (!force_) refuseExisting(path);
    return path;
}

}  // namespace hxcam
