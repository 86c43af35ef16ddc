// SPDX-License-Identifier: MIT
// Counts the calls of operator new in this program.
#pragma once

#include <atomic>

inline std::atomic<long> countedAllocations = 0;
