// SPDX-License-Identifier: MIT
// Loads the built library and counts its registered camera classes: each is asked once for its
// devices, and the one there is looks into /dev once. An object file left out by the linker, or
// initialised ahead of the registry, shows here.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <dirent.h>
#include <dlfcn.h>

#include "api/hx_camera.h"

namespace {
int searches = 0;
}

// The library finds this one first.
extern "C" __attribute__((visibility("default"))) DIR* opendir(const char* path) {
    if (std::strcmp(path, "/dev") == 0) ++searches;
    errno = ENOENT;
    return nullptr;
}

int main(int, char** arguments) {
    void* const library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    auto* const enumerate =
        reinterpret_cast<decltype(&enumHxCamera)>(dlsym(library, "enumHxCamera"));
    HxCameraContextTag** list = nullptr;
    unsigned int count = 7;
    const int result = enumerate(&list, &count);
    std::printf("result %d, cameras %u, searches %d\n", result, count, searches);
    const bool unloaded = dlclose(library) == 0;
    return result == HX_NO_CAMERA && count == 0 && searches == 1 && unloaded ? 0 : 1;
}
