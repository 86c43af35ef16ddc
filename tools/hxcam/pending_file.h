// SPDX-License-Identifier: MIT
// A file that has its name only once it is whole.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "capture/unique_fd.h"

namespace hxcam {

/// Throws CommandError when there is something of that name.
void refuseExisting(const std::string& path);

class PendingFile {
  public:
    /// Makes the file under a temporary name in the same folder. All members throw CommandError.
    explicit PendingFile(std::string path);
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;
    /// Removes what was not finished.
    ~PendingFile();

    void write(std::span<const std::byte> bytes);
    /// For writers that seek; readable too.
    int fd() const { return fd_.get(); }
    const std::string& path() const { return path_; }

    /// To be called before the first finish() of files that belong together.
    void close();
    /// Closes the file and gives it its name. What has that name already is an error, or replaced.
    void finish(bool overwrite);

  private:
    int rename(unsigned int flags) const;

    std::string path_;
    std::string temporary_;
    hx::UniqueFd fd_;
};

}  // namespace hxcam
