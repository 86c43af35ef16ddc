/* SPDX-License-Identifier: MIT */
/* Everything that the public header declares, so that a description can be made of it. The library
 * itself would bring its private types along. */
#include "api/hx_camera.h"

#define SIGNATURE(name) __typeof__(name)* const signature_##name = name

SIGNATURE(enumHxCamera);
SIGNATURE(openHxCamera);
SIGNATURE(closeHxCamera);
SIGNATURE(releaseHxCamera);
SIGNATURE(registerHxCameraCallback);
SIGNATURE(controlHxCamera);
SIGNATURE(getHxData);
const HxCameraCallback callback = 0;
const enum HxResult result = HX_OK;
const enum HxCommand command = HX_CMD_NAME;
