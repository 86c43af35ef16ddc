// SPDX-License-Identifier: MIT
// Acquisition: the body of the capture thread, and one frame at a time.
#pragma once

#include "api/hx_camera_context.h"

/// Takes, packs and delivers frames until the handle is closed.
void cameraThread(HxCameraContextTag* ctx);
