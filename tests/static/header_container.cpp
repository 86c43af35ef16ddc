// SPDX-License-Identifier: MIT
// The container's header stands alone as C++20, with the types that programs and files rely on.
#include "codec/hx_container.h"

static_assert(sizeof(FileDataType) == 2 && sizeof(FileType) == 4);
static_assert(Data16 == 1 && Data8_4 == 4 && Data64 == 6 && FILE_TYPE_HX == 0x4858);
static_assert(static_cast<int>(hx::Tag::spectralResolution) == 12);
static_assert(static_cast<int>(hx::Tag::firstReserved) == 13);
