/* SPDX-License-Identifier: MIT */
/* Two cameras at once: counts the frames of each until both have sent twenty.
 *
 * Every open handle has a capture thread of its own, so the two callbacks run at the same time.
 * Each gets its own counter as user data, and the one thing they share has a lock. */
#include <hx_camera.h>
#include <stdio.h>
#include <stdlib.h>
#include <threads.h>
#include <time.h>

enum { CAMERAS = 2, FRAMES = 20, WAIT_SECONDS = 10 };

static mtx_t lock;
static cnd_t counted;

static void onFrame(unsigned char* data, unsigned long size, void* userData) {
    unsigned long* frames = userData;
    (void)data;
    (void)size;
    mtx_lock(&lock);
    ++*frames;
    cnd_signal(&counted);
    mtx_unlock(&lock);
}

static bool bothHaveEnough(const unsigned long* frames) {
    return frames[0] >= FRAMES && frames[1] >= FRAMES;
}

static bool waitForBoth(const unsigned long* frames) {
    struct timespec until;
    timespec_get(&until, TIME_UTC);
    until.tv_sec += WAIT_SECONDS;
    mtx_lock(&lock);
    int waited = thrd_success;
    while (!bothHaveEnough(frames) && waited == thrd_success) {
        waited = cnd_timedwait(&counted, &lock, &until);
    }
    const bool enough = bothHaveEnough(frames);
    mtx_unlock(&lock);
    return enough;
}

static bool run(HxCameraContextTag** list, unsigned long* frames) {
    for (int i = 0; i < CAMERAS; ++i) {
        if (registerHxCameraCallback(list[i], onFrame, &frames[i]) != HX_OK ||
            openHxCamera(list[i], true) != HX_OK) {
            fprintf(stderr, "camera %d cannot be opened\n", i);
            return false;
        }
    }
    if (!waitForBoth(frames)) {
        fprintf(stderr, "no %d frames of both cameras in %d s\n", FRAMES, WAIT_SECONDS);
        /* closeHxCamera waits for a frame, which a silent camera does not send. */
        _Exit(1);
    }
    bool good = true;
    for (int i = 0; i < CAMERAS; ++i) {
        const char* name = "";
        /* After closing nobody else touches the counter. */
        if (closeHxCamera(list[i]) != HX_OK ||
            controlHxCamera(list[i], HX_CMD_NAME, &name) != HX_OK) {
            fprintf(stderr, "camera %d cannot be closed\n", i);
            good = false;
        }
        printf("%s: %lu frames\n", name, frames[i]);
    }
    return good;
}

int main(void) {
    unsigned long frames[CAMERAS] = {0, 0};
    HxCameraContextTag** list = NULL;
    unsigned int count = 0;
    if (mtx_init(&lock, mtx_plain) != thrd_success || cnd_init(&counted) != thrd_success) {
        fprintf(stderr, "no mutex\n");
        return 1;
    }
    if (enumHxCamera(&list, &count) != HX_OK) {
        fprintf(stderr, "no camera found\n");
        return 1;
    }
    bool good = count >= CAMERAS;
    if (good) {
        good = run(list, frames);
    } else {
        fprintf(stderr, "two cameras are needed, %u found\n", count);
    }
    if (releaseHxCamera(list, (int)count) != HX_OK) good = false;
    cnd_destroy(&counted);
    mtx_destroy(&lock);
    return good ? 0 : 1;
}
