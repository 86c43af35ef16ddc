// SPDX-License-Identifier: MIT
#include "api/hx_camera_capture.h"

#include "api/hx_camera_entries.h"
#include "codec/file_codec.h"

namespace {

// Packs into the handle's block, which the first frame makes and every later one reuses. The frame
// is copied once.
bool packFrame(HxCameraContextTag& ctx, hx::FrameValues& values, const unsigned short* frame,
               unsigned long& size) {
    hx::FrameEntries entries(values);
    constexpr unsigned short count = hx::FrameEntries::kCount;
    if (ctx.buffer != nullptr) {
        return encodecFileInto(FILE_TYPE_HX, entries.first(), count, frame, ctx.buffer,
                               ctx.capacity, size) == 1;
    }
    if (encodecFile(FILE_TYPE_HX, entries.first(), count, frame, ctx.buffer, size) != 1) {
        return false;
    }
    ctx.capacity = size;
    return true;
}

void deliver(HxCameraContextTag& ctx, unsigned long size) {
    const HxCameraCallback callback = hx::load(ctx.callback);
    if (callback != nullptr) callback(ctx.buffer, size, hx::load(ctx.userData));
}

// Without a frame there is nothing to describe: the camera is not asked for the rest, which on a
// lost one would print a message each time.
void captureOne(HxCameraContextTag& ctx, hx::FrameValues& values) {
    CameraBase& camera = *ctx.camera;
    const unsigned short* frame = camera.getData();
    if (frame == nullptr) return;
    hx::stampTime(values.time);
    values.exposure = camera.getExp();
    values.gain = camera.getGain();
    unsigned long size = 0;
    if (packFrame(ctx, values, frame, size)) deliver(ctx, size);
}

}  // namespace

void cameraThread(HxCameraContextTag* ctx) {
    CameraBase& camera = *ctx->camera;
    hx::FrameValues values;
    values.width = static_cast<std::uint32_t>(camera.getWidth());
    values.height = static_cast<std::uint32_t>(camera.getHeight());
    values.depth = camera.getDepth();
    values.cameraId = camera.getCameraId();
    values.specResolution = static_cast<std::uint32_t>(camera.getSpecResolution());

    while (hx::load(ctx->isOpen)) captureOne(*ctx, values);
}

unsigned char* getHxData(HxCameraContextTag* ctx, unsigned long* size) {
    if (!hx::load(ctx->isOpen)) return nullptr;
    CameraBase& camera = *ctx->camera;
    const unsigned short* frame = camera.getData();
    if (frame == nullptr) return nullptr;

    hx::FrameValues values;
    values.width = static_cast<std::uint32_t>(camera.getWidth());
    values.height = static_cast<std::uint32_t>(camera.getHeight());
    values.depth = camera.getDepth();
    hx::stampTime(values.time);
    values.cameraId = camera.getCameraId();
    values.exposure = camera.getExp();
    values.gain = camera.getGain();
    values.specResolution = static_cast<std::uint32_t>(camera.getSpecResolution());
    return packFrame(*ctx, values, frame, *size) ? ctx->buffer : nullptr;
}
