// SPDX-License-Identifier: MIT
#include "node_filter.h"

#include <dirent.h>
#include <dlfcn.h>

#include <cstring>

// The library asks and streams every node of /dev that begins with "video", so one capture would
// take all cameras, and its handles do not say which node they came from. This process therefore
// answers the library's readdir itself (the program's own symbols come before those of any
// library) and leaves the chosen node as the only one of that kind. Other cameras stay untouched
// and another capture can use them. The next definition does the reading: the C library's, or that
// of a preloaded library before it.
namespace {

constexpr char kVideo[] = "video";

const char* chosen = "";

bool isShown(const char* name) {
    return std::strncmp(name, kVideo, std::strlen(kVideo)) != 0 || std::strcmp(name, chosen) == 0;
}

template <class Entry>
Entry* nextShown(const char* symbol, DIR* directory) {
    using ReadDir = Entry* (*)(DIR*);
    const ReadDir next = reinterpret_cast<ReadDir>(dlsym(RTLD_NEXT, symbol));
    Entry* entry = next(directory);
    while (entry != nullptr && !isShown(entry->d_name)) entry = next(directory);
    return entry;
}

}  // namespace

void hx::showOnlyNode(const char* name) {
    chosen = name;
}

extern "C" __attribute__((visibility("default"))) dirent* readdir(DIR* directory) {
    return nextShown<dirent>("readdir", directory);
}

extern "C" __attribute__((visibility("default"))) dirent64* readdir64(DIR* directory) {
    return nextShown<dirent64>("readdir64", directory);
}
