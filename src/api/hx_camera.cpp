// SPDX-License-Identifier: MIT
#include "api/hx_camera.h"

#include <memory>
#include <utility>
#include <vector>

#include "api/hx_camera_capture.h"
#include "api/hx_camera_context.h"
#include "camera/camera_base.h"

namespace {

// Cameras that were found and belong to no handle yet; freed if an exception comes in between.
struct FoundCameras {
    FoundCameras() = default;
    FoundCameras(const FoundCameras&) = delete;
    FoundCameras& operator=(const FoundCameras&) = delete;
    ~FoundCameras() {
        for (CameraBase* camera : cameras) delete camera;
    }

    std::vector<CameraBase*> cameras;
};

void probeAllClasses(std::vector<CameraBase*>& cameras) {
    for (const auto& [key, create] : CameraFactory::registerMap) {
        const std::unique_ptr<CameraBase> probe(create());
        probe->checkDevice(cameras);
    }
}

// One handle for each camera; ownership moves once nothing can fail any more.
HxCameraContextTag** makeHandles(FoundCameras& found) {
    const std::size_t count = found.cameras.size();
    std::vector<std::unique_ptr<HxCameraContextTag>> contexts(count);
    for (auto& context : contexts) context = std::make_unique<HxCameraContextTag>();
    auto* const handles = new HxCameraContextTag*[count];
    for (std::size_t i = 0; i < count; ++i) {
        handles[i] = contexts[i].release();
        handles[i]->camera = found.cameras[i];
    }
    found.cameras.clear();
    return handles;
}

bool needsOpenHandle(unsigned int command) {
    return command == HX_CMD_SET_EXPOSURE || command == HX_CMD_GET_EXPOSURE ||
           command == HX_CMD_SET_LAMP || command == HX_CMD_GET_LAMP;
}

// Kept: command 0 is the largest exposure, 1 the smallest.
int readExposureLimit(CameraBase& camera, unsigned int command, void* value) {
    unsigned int min = 0;
    unsigned int max = 0;
    if (!camera.getExpRange(min, max)) return HX_REFUSED;
    *static_cast<unsigned int*>(value) = command == HX_CMD_EXPOSURE_MAX ? max : min;
    return HX_OK;
}

}  // namespace

int enumHxCamera(HxCameraContextTag*** list, unsigned int* count) {
    FoundCameras found;
    probeAllClasses(found.cameras);
    *count = static_cast<unsigned int>(found.cameras.size());
    if (found.cameras.empty()) return HX_NO_CAMERA;
    *list = makeHandles(found);
    return HX_OK;
}

int openHxCamera(HxCameraContextTag* ctx, bool startThread) {
    if (ctx == nullptr) return HX_REFUSED;
    hx::store(ctx->isOpen, true);
    if (!startThread) return HX_OK;
    if (hx::load(ctx->callback) == nullptr) {
        hx::store(ctx->isOpen, false);
        return HX_REFUSED;
    }
    // Kept: a thread that still runs here ends the process; so does the end of `previous`.
    const std::unique_ptr<std::thread> previous(
        std::exchange(ctx->thread, new std::thread(cameraThread, ctx)));
    return HX_OK;
}

int closeHxCamera(HxCameraContextTag* ctx) {
    if (ctx == nullptr) return HX_REFUSED;
    hx::store(ctx->isOpen, false);
    if (ctx->thread == nullptr) return HX_OK;
    if (ctx->thread->joinable()) ctx->thread->join();
    delete std::exchange(ctx->thread, nullptr);
    return HX_OK;
}

int releaseHxCamera(HxCameraContextTag** list, int count) {
    if (list == nullptr) return HX_REFUSED;
    for (int i = 0; i < count; ++i) {
        HxCameraContextTag* const ctx = list[i];
        const int closed = closeHxCamera(ctx);
        if (closed != HX_OK) return closed;
        delete[] ctx->buffer;
        delete ctx->camera;
        delete ctx;
    }
    delete[] list;
    return HX_OK;
}

int registerHxCameraCallback(HxCameraContextTag* ctx, HxCameraCallback callback, void* userData) {
    if (ctx == nullptr) return HX_REFUSED;
    hx::store(ctx->callback, callback);
    hx::store(ctx->userData, userData);
    return HX_OK;
}

int controlHxCamera(HxCameraContextTag* ctx, unsigned int command, void* value) {
    if (command > HX_CMD_NAME) return HX_UNKNOWN_COMMAND;
    if (needsOpenHandle(command) && !hx::load(ctx->isOpen)) return HX_REFUSED;
    CameraBase& camera = *ctx->camera;
    switch (command) {
        case HX_CMD_EXPOSURE_MAX:
        case HX_CMD_EXPOSURE_MIN:
            return readExposureLimit(camera, command, value);
        // Kept: what the camera makes of a setting is not the result; the caller reads it back.
        case HX_CMD_SET_EXPOSURE:
            camera.setExp(*static_cast<const unsigned int*>(value));
            break;
        case HX_CMD_GET_EXPOSURE:
            *static_cast<unsigned int*>(value) = camera.getExp();
            break;
        case HX_CMD_HAS_LAMP:
            *static_cast<bool*>(value) = camera.hasLamp();
            break;
        case HX_CMD_SET_LAMP:
            // Any byte but 0 means on; read as a byte, since 2 is no valid bool.
            camera.setLamp(*static_cast<const unsigned char*>(value) != 0);
            break;
        case HX_CMD_GET_LAMP:
            *static_cast<bool*>(value) = camera.getLamp();
            break;
        case HX_CMD_NAME:
            *static_cast<const char**>(value) = camera.getName();
            break;
        default:
            break;
    }
    return HX_OK;
}
