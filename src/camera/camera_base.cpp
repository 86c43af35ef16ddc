// SPDX-License-Identifier: MIT
#include "camera/camera_base.h"

std::map<std::string, std::function<CameraBase*()>> CameraFactory::registerMap;

CameraFactory& CameraFactory::get() {
    static CameraFactory instance;
    return instance;
}
