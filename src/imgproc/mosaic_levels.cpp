// SPDX-License-Identifier: MIT
#include "imgproc/mosaic_kernel.h"

namespace hx::imgproc {

const Kernel& chosenKernel() {
#ifdef __x86_64__
    const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    if (hasAvx2 && __builtin_cpu_supports("avx512f")) return avx512::kernel;
    if (hasAvx2) return avx2::kernel;
#endif
    return baseline::kernel;
}

}  // namespace hx::imgproc
