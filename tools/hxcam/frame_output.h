// SPDX-License-Identifier: MIT
// Where captured frames go: files of a folder, standard output, or nowhere.
#pragma once

#include <cstdint>
#include <memory>

#include "codec/hx_container.h"
#include "interrupt.h"
#include "options.h"

namespace hxcam {

class FrameOutput {
  public:
    virtual ~FrameOutput() = default;
    /// Stores frame `index` as a whole or throws CommandError.
    virtual void store(std::uint64_t index, const hx::ContainerView& frame,
                       std::span<const std::byte> container) = 0;
};

/// The place that `options` asks for, checked: a folder that takes files and holds none that would
/// be overwritten (made when it is missing), or an output that is no terminal.
std::unique_ptr<FrameOutput> openOutput(const CaptureCommandOptions& options,
                                        const Interrupt& interrupt);

}  // namespace hxcam
