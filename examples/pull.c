/* SPDX-License-Identifier: MIT */
/* One frame when it is wanted, without a thread: stores it as pull.hxc.
 *
 * getHxData has no time-out. A program that must go on without a frame takes them by callback. */
#include <hx_camera.h>
#include <stdio.h>

static bool store(const unsigned char* data, unsigned long size) {
    FILE* file = fopen("pull.hxc", "wb");
    if (file == NULL) {
        perror("pull.hxc");
        return false;
    }
    const bool written = fwrite(data, 1, size, file) == size;
    if (fclose(file) != 0 || !written) {
        perror("pull.hxc");
        return false;
    }
    return true;
}

static bool takeOne(HxCameraContextTag* camera) {
    if (openHxCamera(camera, false) != HX_OK) {
        fprintf(stderr, "the camera cannot be opened\n");
        return false;
    }
    unsigned long size = 0;
    const unsigned char* frame = getHxData(camera, &size);
    if (frame == NULL) {
        fprintf(stderr, "the camera was lost\n");
        return false;
    }
    if (!store(frame, size)) return false;
    printf("%lu bytes in pull.hxc\n", size);
    return true;
}

int main(void) {
    HxCameraContextTag** list = NULL;
    unsigned int count = 0;
    if (enumHxCamera(&list, &count) != HX_OK) {
        fprintf(stderr, "no camera found\n");
        return 1;
    }
    bool good = takeOne(list[0]);
    if (releaseHxCamera(list, (int)count) != HX_OK) good = false;
    return good ? 0 : 1;
}
