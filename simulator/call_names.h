// SPDX-License-Identifier: MIT
// Names of the calls that take a fault, as written in `fault=CALL:N=ERRNO`.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "camera_state.h"

namespace hx::sim {

constexpr std::size_t kCallCount = static_cast<std::size_t>(Call::count);

constexpr std::array<std::string_view, kCallCount> kCallNames = {
    "open",     "mmap",      "munmap",   "S_FMT",     "REQBUFS", "QUERYBUF", "QBUF", "DQBUF",
    "STREAMON", "STREAMOFF", "QUERYCAP", "QUERYCTRL", "G_CTRL",  "S_CTRL",   "XU"};

}  // namespace hx::sim
