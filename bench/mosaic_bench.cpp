// SPDX-License-Identifier: MIT
// The reconstruction of nine channels: kinds of pictures, kinds of masks, levels of the machine.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "bench_support.h"
#include "imgproc/imgproc.h"
#include "imgproc/mosaic_kernel.h"

int reconstructNineChannelPlainFma(const double* input, int rows, int cols, bool useMask,
                                   double* output, bool* mask);

namespace bench {
namespace {

using hx::imgproc::Kernel;
using Mask = std::unique_ptr<bool[]>;
using Reconstruct = std::function<int(const double*, int, int, bool, double*, bool*)>;

constexpr std::size_t kValues = 9 * kPixels;

// One for all: nobody reads what the one before has written, except under masks.
double* output() {
    static const Pages<double> block(kValues);
    return block.data();
}

template <class ValueAt>
std::shared_ptr<Pages<double>> picture(const ValueAt& valueAt) {
    auto made = std::make_shared<Pages<double>>(kPixels);
    for (std::size_t i = 0; i < kPixels; ++i) {
        made->data()[i] = valueAt(static_cast<double>(i / kWidth), static_cast<double>(i % kWidth));
    }
    return made;
}

// The three ways in which the tests of similarity can go: all pass, undecided, mostly fail.
std::shared_ptr<Pages<double>> pictureOf(const std::string& kind) {
    std::mt19937 random(2);
    std::uniform_real_distribution<double> noise(0.7, 1.3);
    std::uniform_int_distribution<int> any(0, 1022);
    if (kind == "smooth") {
        return picture([](double row, double column) {
            return 500 + 200 * std::sin(row / 200) + 100 * std::cos(column / 300);
        });
    }
    if (kind == "noisy") return picture([&](double, double) { return 500 * noise(random); });
    return picture([&](double, double) { return double{1} * any(random); });
}

// Sixty discs, as bad spots and glare are.
void setDiscs(bool* mask) {
    std::mt19937 random(3);
    std::uniform_int_distribution<int> radius(15, 34);
    std::uniform_int_distribution<int> row(34, kHeight - 35);
    std::uniform_int_distribution<int> column(34, kWidth - 35);
    for (int disc = 0; disc < 60; ++disc) {
        const int r = radius(random);
        const int top = row(random);
        const int left = column(random);
        for (int y = -r; y <= r; ++y) {
            for (int x = -r; x <= r; ++x) {
                if (x * x + y * y <= r * r) mask[(top + y) * kWidth + left + x] = true;
            }
        }
    }
}

std::shared_ptr<bool[]> maskOf(const std::string& kind) {
    std::shared_ptr<bool[]> mask(new bool[kPixels]());
    std::mt19937 random(4);
    std::bernoulli_distribution isSet(kind == "1%" ? 0.01 : 0.3);
    if (kind == "1%" || kind == "30%") {
        std::generate_n(mask.get(), kPixels, [&] { return isSet(random); });
    }
    if (kind == "discs") setDiscs(mask.get());
    return mask;
}

void addReconstruction(const std::string& name, const Reconstruct& reconstruct,
                       const std::string& kind) {
    add("mosaic/" + name + "/" + kind, [reconstruct, in = pictureOf(kind)] {
        reconstruct(in->data(), kHeight, kWidth, false, output(), nullptr);
    });
}

// The mask is changed by each pass, so each gets a copy: 1.9 MB beside 154.
void addMasked(const std::string& name, const Reconstruct& reconstruct, const std::string& kind,
               const std::string& maskKind) {
    add("mosaic/" + name + "/" + kind + "/" + maskKind,
        [reconstruct, in = pictureOf(kind), given = maskOf(maskKind),
         mask = std::shared_ptr<bool[]>(new bool[kPixels])] {
            std::memcpy(mask.get(), given.get(), kPixels);
            reconstruct(in->data(), kHeight, kWidth, true, output(), mask.get());
        });
}

// As fast as 138 MB can be stored.
void storeOnly() {
    double* const out = output();
#ifdef __SSE2__
    const __m128d two = _mm_set1_pd(0.5);
    for (std::size_t i = 0; i < kValues; i += 2) _mm_stream_pd(out + i, two);
    _mm_sfence();
#else
    std::fill_n(out, kValues, 0.5);
#endif
}

// As fast as 138 MB can be changed where they are: what is beside a mask keeps its old values.
void updateInPlace() {
    double* const out = output();
    for (std::size_t i = 0; i < kValues; ++i) out[i] = 1.0 - out[i];
}

Reconstruct withKernel(const Kernel& kernel) {
    return [&kernel](const double* in, int rows, int cols, bool useMask, double* out, bool* mask) {
        return hx::imgproc::reconstructWith(kernel, in, rows, cols, useMask, out, mask);
    };
}

}  // namespace

void addMosaicStages() {
    add("mosaic/store-limit", storeOnly);
    add("mosaic/update-limit", updateInPlace);
    for (const char* kind : {"smooth", "noisy", "random"}) {
        addReconstruction("library", reconstructNineChannel, kind);
    }
    for (const char* kind : {"smooth", "noisy"}) {
        addReconstruction("plain", reconstructNineChannelPlainFma, kind);
        for (const char* mask : {"empty", "1%", "30%", "discs"}) {
            addMasked("library", reconstructNineChannel, kind, mask);
        }
        addMasked("plain", reconstructNineChannelPlainFma, kind, "30%");
    }
    addMasked("plain", reconstructNineChannelPlainFma, "noisy", "discs");
    addReconstruction("baseline", withKernel(hx::imgproc::baseline::kernel), "noisy");
#ifdef __x86_64__
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
        addReconstruction("avx2", withKernel(hx::imgproc::avx2::kernel), "noisy");
    }
#endif
}

}  // namespace bench
