// SPDX-License-Identifier: MIT
// Containers from files, folders and standard input, one at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "capture/unique_fd.h"
#include "codec/hx_container.h"
#include "interrupt.h"

namespace hxcam {

/// A file of containers that lie back to back. Each is read by the length that it tells, so a
/// stream is worked on while it comes.
class ContainerInput {
  public:
    /// `path` may be -, standard input. Throws CommandError when it cannot be opened.
    ContainerInput(const std::string& path, const Interrupt& interrupt);

    /// Whether nothing more follows; waits for the next byte. Throws CommandError, also when
    /// interrupted.
    bool atEnd();
    /// Reads the next container and leaves what follows. Throws CommandError, and
    /// hx::ContainerFault for one that is cut off or no container of a whole frame.
    hx::ContainerView next(std::vector<std::byte>& bytes);

  private:
    bool isReady();
    std::size_t read(std::byte* to, std::size_t most);
    void extend(std::vector<std::byte>& bytes, std::size_t size);

    std::string path_;
    const Interrupt& interrupt_;
    hx::UniqueFd file_;
    int fd_ = -1;
    bool ended_ = false;
    std::vector<std::byte> ahead_;  // what atEnd() has read
};

/// The files that `arguments` name; a folder stands for its .hxc files by name. Throws CommandError
/// for a folder that cannot be read or has none.
std::vector<std::string> filesOf(const std::string& argument);

}  // namespace hxcam
