// SPDX-License-Identifier: MIT
// Listing of /dev: the simulated nodes come first, newest first, then what is really there.
#pragma once

#include <dirent.h>

namespace hx::sim {

// A directory that was opened; does nothing unless it is /dev.
void addDirectory(DIR* directory, bool isDev);

// The next entry: null at the end, errno as readdir has it.
dirent* nextEntry(DIR* directory);

void rewindDirectory(DIR* directory);
void dropDirectory(DIR* directory);

}  // namespace hx::sim
