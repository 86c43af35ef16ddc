// SPDX-License-Identifier: MIT
// The part of the reconstruction that is worth vector instructions: from a window to the nine
// channels of a block of triples.
#pragma once

#include <cstddef>
#include <cstdint>

#include "imgproc/mosaic_frame.h"

namespace hx::imgproc {

constexpr int kBlock = 8;  // triples
constexpr int kBlockPixels = 3 * kBlock;
constexpr int kBlockValues = kBlockPixels * kChannels;

// Where a pixel of a block is masked or has met a masked one: not 0. [column modulo 3][triple]
using Incomplete = std::int64_t[3][kBlock];

// `centre` is the block's first pixel in a window (MosaicWindow::centre), `rowPhase` its row modulo
// 3. Results come in the order of the output.
struct Kernel {
    // in: 3 * triples values of a row; planes: a row of a window.
    void (*splitColumns)(const double* in, std::ptrdiff_t triples, double* planes);
    // `output` begins a cache line, and is written past the caches where the machine can.
    void (*work)(const double* centre, int rowPhase, std::ptrdiff_t blocks, double* output);
    // One block, to where it is read again at once.
    void (*estimate)(const double* centre, int rowPhase, double* values);
    // One block beside masked pixels, whose channels keep what they have or are cut off at 0;
    // `mask` is `centre` in the window of masks, -1 where one is.
    void (*workBesideMask)(const double* centre, const std::int64_t* mask, int rowPhase,
                           double* output, Incomplete& incomplete);
    // To be called once, behind the last `work`.
    void (*finish)();
};

// mosaic_kernel.cpp, compiled for several levels of one architecture.
namespace baseline {
extern const Kernel kernel;
}
#ifdef __x86_64__
namespace avx2 {
extern const Kernel kernel;
}
namespace avx512 {
extern const Kernel kernel;
}
#endif

// The best for this machine.
const Kernel& chosenKernel();

// reconstructNineChannel on a kernel of one's own choice; the machine must have its level.
int reconstructWith(const Kernel& kernel, const double* input, int rows, int cols, bool useMask,
                    double* output, bool* mask);

}  // namespace hx::imgproc
