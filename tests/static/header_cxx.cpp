// The public header stands alone as C++, with C linkage and the signatures that programs rely on.
#include "api/hx_camera.h"

#include <type_traits>

static_assert(std::is_same_v<decltype(enumHxCamera), int(HxCameraContextTag***, unsigned int*)>);
static_assert(std::is_same_v<decltype(openHxCamera), int(HxCameraContextTag*, bool)>);
static_assert(std::is_same_v<decltype(closeHxCamera), int(HxCameraContextTag*)>);
static_assert(std::is_same_v<decltype(releaseHxCamera), int(HxCameraContextTag**, int)>);
static_assert(std::is_same_v<decltype(registerHxCameraCallback),
                             int(HxCameraContextTag*, HxCameraCallback, void*)>);
static_assert(
    std::is_same_v<decltype(controlHxCamera), int(HxCameraContextTag*, unsigned int, void*)>);
static_assert(
    std::is_same_v<decltype(getHxData), unsigned char*(HxCameraContextTag*, unsigned long*)>);
