// SPDX-License-Identifier: MIT
// What stands behind a handle. Private: applications only hold pointers to it.
#pragma once

#include <atomic>
#include <thread>

#include "api/hx_camera.h"
#include "camera/camera_base.h"

/// isOpen, callback and userData are plain fields where the application's thread and the capture
/// thread meet: they are read and written through the functions below.
struct HxCameraContextTag {
    CameraBase* camera = nullptr;  ///< owned
    HxCameraCallback callback = nullptr;
    bool isOpen = false;              ///< gates controls and frames; clearing it ends the thread
    std::thread* thread = nullptr;    ///< owned; null when none runs
    unsigned char* buffer = nullptr;  ///< owned, from new[]: the last container
    void* userData = nullptr;
    unsigned long capacity = 0;  ///< bytes of `buffer`
};

namespace hx {

template <class Field>
Field load(Field& field) {
    return std::atomic_ref<Field>(field).load();
}

template <class Field>
void store(Field& field, Field value) {
    std::atomic_ref<Field>(field).store(value);
}

}  // namespace hx
