// SPDX-License-Identifier: MIT
// Starting a second capture thread over a running one must end the process.
#include "support/fake_camera.h"

int main() {
    FakeList fake;
    registerHxCameraCallback(
        fake.ctx, [](unsigned char*, unsigned long, void*) {}, nullptr);
    openHxCamera(fake.ctx, true);
    openHxCamera(fake.ctx, true);
    return 0;
}
