// SPDX-License-Identifier: MIT
// The nine-channel rules at the speed of memory. imgproc_plain.cpp has them as one reads them.
//
// The work is cut into triples, three neighbouring pixels of a row, counted from behind the left
// border: all triples of a row have the same channel in the same direction, so the lanes of a
// vector are triples, not pixels. kBlock triples are a block (mosaic_kernel.h), and the columns of
// kStripe triples are walked from top to bottom with a window on seven rows (mosaic_window.h).
//
// The last triple may reach two pixels into the right border; the border is filled afterwards.
#include "imgproc/imgproc.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "imgproc/mosaic_frame.h"
#include "imgproc/mosaic_kernel.h"
#include "imgproc/mosaic_window.h"

namespace {

using namespace hx::imgproc;

// In a window there are a triple on either side, and up to seven on the way to a cache line.
constexpr int kStripe = 272;
static_assert(kStripe % kBlock == 0 && kStripe + kBlock + 2 <= kPlane);

bool anySet(const bool* marks, int count) {
    std::uint64_t all = 0;
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        std::uint64_t eight;
        std::memcpy(&eight, marks + i, sizeof eight);
        all |= eight;
    }
    for (; i < count; ++i) all |= marks[i] ? 1 : 0;
    return all != 0;
}

struct Windows {
    MosaicWindow<double> values;
    MosaicWindow<std::int64_t> masks;
};

class Reconstruction {
  public:
    Reconstruction(const Kernel& kernel, const Frame& frame, double* output, const bool* mask,
                   bool* work)
        : kernel_(kernel),
          frame_(frame),
          output_(output),
          mask_(mask),
          work_(work),
          triples_((frame.cols - 2 * kBorder + 2) / 3) {}

    void run() {
        for (int first = 0; first == 0 || first + kBlock <= triples_; first += kStripe) {
            workStripe(first);
        }
        kernel_.finish();
    }

  private:
    void workStripe(int first);
    void loadRow(int row);
    void loadMaskRow(int row);
    void workBlocks(int row, int first, int last);
    void workOnce(int row, int triple, int count);
    void workBesideMask(int row, int triple, double* output);
    void gatherMasks(int row);
    bool isBesideMask(int triple) const;
    double* outputAt(int row, int triple) const {
        return output_ + frame_.index(row, kBorder + 3 * triple) * kChannels;
    }
    int triplesToCacheLine(int row) const;

    const Kernel& kernel_;
    const Frame& frame_;
    double* output_;
    const bool* mask_;  // null without mask, and then `work_` too
    bool* work_;
    int triples_;
    int first_ = 0;  // of the stripe
    std::size_t maskRows_ = 0;
    bool rowIsSet_[kWindowRows] = {};  // in the window of masks
    bool hasMasks_ = false;            // around the row at work
    bool columnIsSet_[kWindowRow] = {};
    std::unique_ptr<Windows> windows_ = std::make_unique<Windows>();
};

int Reconstruction::triplesToCacheLine(int row) const {
    constexpr std::uintptr_t cacheLine = 64;
    int triple = 0;
    while (reinterpret_cast<std::uintptr_t>(outputAt(row, triple)) % cacheLine != 0) ++triple;
    return triple;
}

void Reconstruction::loadRow(int row) {
    double* const planes = windows_->values.next();
    const int column = 3 * first_;
    const int there = std::min(frame_.cols - column, kWindowRow);
    const double* const in = frame_.values + frame_.index(row, column);
    kernel_.splitColumns(in, there / 3, planes);
    for (int i = there / 3 * 3; i < there; ++i) planes[i % 3 * kPlane + i / 3] = in[i];
    windows_->values.filled();
    if (mask_ != nullptr) loadMaskRow(row);
}

void Reconstruction::loadMaskRow(int row) {
    std::int64_t* const planes = windows_->masks.next();
    const int column = 3 * first_;
    const int there = std::min(frame_.cols - column, kWindowRow);
    const bool* const in = mask_ + frame_.index(row, column);
    bool& isSet = rowIsSet_[maskRows_++ % kWindowRows];
    const bool wasSet = isSet;
    isSet = anySet(in, there);
    if (!wasSet && !isSet) return;
    const int triples = there / 3;
    for (int i = 0; i < triples; ++i) {
        const bool* const marks = in + std::ptrdiff_t{3} * i;
        planes[i] = -std::int64_t{marks[0]};
        planes[kPlane + i] = -std::int64_t{marks[1]};
        planes[2 * kPlane + i] = -std::int64_t{marks[2]};
    }
    for (int i = 3 * triples; i < kWindowRow; ++i) {
        planes[i % 3 * kPlane + i / 3] = i < there && in[i] ? -1 : 0;
    }
    windows_->masks.filled();
}

void Reconstruction::workStripe(int first) {
    first_ = first;
    const bool isLast = first + kStripe + kBlock > triples_;
    for (int row = 0; row < 2 * kBorder; ++row) loadRow(row);
    for (int row = kBorder; row < frame_.rows - kBorder; ++row) {
        loadRow(row + kBorder);
        gatherMasks(row);
        if (first == 0) workOnce(row, 0, std::min(triples_, kBlock));
        const int begin = first + triplesToCacheLine(row);
        workBlocks(row, begin, std::min(begin + kStripe, triples_));
        // Overlaps the block before it: the same values come out again.
        if (isLast && triples_ > kBlock) workOnce(row, triples_ - kBlock, kBlock);
    }
}

void Reconstruction::workBlocks(int row, int begin, int end) {
    int clear = begin;  // behind what is done
    int triple = begin;
    const auto workClear = [&] {
        const int blocks = (triple - clear) / kBlock;
        kernel_.work(windows_->values.centre(clear - first_), row % 3, blocks,
                     outputAt(row, clear));
    };
    for (; triple + kBlock <= end; triple += kBlock) {
        if (!isBesideMask(triple)) continue;
        workClear();
        workBesideMask(row, triple, outputAt(row, triple));
        clear = triple + kBlock;
    }
    workClear();
}

// Marks the columns with a masked pixel in the window.
void Reconstruction::gatherMasks(int row) {
    hasMasks_ = anySet(rowIsSet_, kWindowRows);
    if (!hasMasks_) return;
    const int column = 3 * first_;
    const int there = std::min(frame_.cols - column, kWindowRow);
    std::fill_n(columnIsSet_, kWindowRow, false);
    for (int i = -kBorder; i <= kBorder; ++i) {
        const bool* const marks = mask_ + frame_.index(row + i, column);
        for (int j = 0; j < there; ++j) columnIsSet_[j] |= marks[j];
    }
}

// Whether a mask is set where the block's pixels or what they are estimated from may be.
bool Reconstruction::isBesideMask(int triple) const {
    return hasMasks_ &&
           anySet(columnIsSet_ + std::ptrdiff_t{3} * (triple - first_), kBlockPixels + 2 * kBorder);
}

void Reconstruction::workOnce(int row, int triple, int count) {
    double* const output = outputAt(row, triple);
    const int size = 3 * count * kChannels;
    alignas(64) double values[kBlockValues] = {};
    if (isBesideMask(triple)) {
        std::copy_n(output, size, values);
        workBesideMask(row, triple, values);
    } else {
        kernel_.estimate(windows_->values.centre(triple - first_), row % 3, values);
    }
    std::copy_n(values, size, output);
}

void Reconstruction::workBesideMask(int row, int triple, double* output) {
    Incomplete incomplete;
    kernel_.workBesideMask(windows_->values.centre(triple - first_),
                           windows_->masks.centre(triple - first_), row % 3, output, incomplete);
    const int column = kBorder + 3 * triple;
    bool marks[kBlock][3];
    for (int i = 0; i < kBlock; ++i) {
        for (int phase = 0; phase < 3; ++phase) marks[i][phase] = incomplete[phase][i] != 0;
    }
    const int there = std::min(kBlockPixels, frame_.cols - column);
    std::memcpy(work_ + frame_.index(row, column), marks, static_cast<std::size_t>(there));
}

}  // namespace

int hx::imgproc::reconstructWith(const Kernel& kernel, const double* input, int rows, int cols,
                                 bool useMask, double* output, bool* mask) {
    const Frame frame{input, rows, cols};
    if (!isUsable(frame, useMask, output, mask)) return 0;
    const auto work = std::make_unique<bool[]>(useMask ? frame.pixels() : 0);
    if (frame.hasInterior()) {
        Reconstruction(kernel, frame, output, useMask ? mask : nullptr, work.get()).run();
    }
    repeatBorder(frame, output, kChannels);
    if (useMask) {
        repeatBorder(frame, work.get(), 1);
        std::copy_n(work.get(), frame.pixels(), mask);
    }
    return 1;
}

int reconstructNineChannel(const double* input, int rows, int cols, bool useMask, double* output,
                           bool* mask) {
    return reconstructWith(chosenKernel(), input, rows, cols, useMask, output, mask);
}
