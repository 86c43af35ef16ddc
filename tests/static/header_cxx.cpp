// The public header stands alone as C++, with C linkage and the signatures that programs rely on.
#include "api/hx_camera.h"

template <class A, class B>
constexpr bool same = false;
template <class A>
constexpr bool same<A, A> = true;

static_assert(same<decltype(enumHxCamera), int(HxCameraContextTag***, unsigned int*)>);
static_assert(same<decltype(openHxCamera), int(HxCameraContextTag*, bool)>);
static_assert(same<decltype(closeHxCamera), int(HxCameraContextTag*)>);
static_assert(same<decltype(releaseHxCamera), int(HxCameraContextTag**, int)>);
static_assert(
    same<decltype(registerHxCameraCallback), int(HxCameraContextTag*, HxCameraCallback, void*)>);
static_assert(same<decltype(controlHxCamera), int(HxCameraContextTag*, unsigned int, void*)>);
static_assert(same<decltype(getHxData), unsigned char*(HxCameraContextTag*, unsigned long*)>);
