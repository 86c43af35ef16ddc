// SPDX-License-Identifier: MIT
// The files that come out of one reconstructed frame.
#pragma once

#include <vector>

#include "cube_options.h"
#include "frame_batch.h"
#include "spectral/calibration.h"

namespace hxcam {

struct CubeResult {
    const SourceFrame& source;
    const hx::Cube& cube;
    hx::CalibrationUse calibration;
};

class CubeOutput {
  public:
    /// Makes folders that are missing. Throws CommandError for a file in the way.
    CubeOutput(const CubeOptions& options, hx::BandTable bands);

    /// Stores what is wanted: all of it, or none. Throws CommandError or hx::SpectralFault.
    void store(const CubeResult& result);

  private:
    const CubeOptions& options_;
    hx::BandTable bands_;
    std::optional<OutputPlace> output_;
    std::optional<OutputPlace> maskOut_;
    std::optional<OutputPlace> preview_;
    std::vector<unsigned char> png_;
};

}  // namespace hxcam
