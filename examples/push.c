/* SPDX-License-Identifier: MIT */
/* Frames by callback: stores ten of them as push-0.hxc ... push-9.hxc.
 *
 * The callback runs on the library's capture thread and must be quick, so it only copies the frame
 * into a mailbox; the main thread writes the files. When the disk is slow, the newest frame
 * replaces the one that is still in the mailbox, and the program says how many were passed over. */
#include <hx_camera.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <threads.h>
#include <time.h>

enum { FRAMES = 10, WAIT_SECONDS = 5 };

struct Mailbox {
    mtx_t lock;
    cnd_t arrived;
    unsigned char* frame; /* allocated by the first frame: all of a camera have one size */
    unsigned long size;
    bool full;
    unsigned long replaced;
};

static void onFrame(unsigned char* data, unsigned long size, void* userData) {
    struct Mailbox* box = userData;
    mtx_lock(&box->lock);
    if (box->frame == NULL) box->frame = malloc(size);
    if (box->frame != NULL) {
        memcpy(box->frame, data, size);
        box->size = size;
        if (box->full) ++box->replaced;
        box->full = true;
        cnd_signal(&box->arrived);
    }
    mtx_unlock(&box->lock);
}

/* Exchanges the empty block for the next frame. False when none comes in time. */
static bool takeFrame(struct Mailbox* box, unsigned char** block, unsigned long* size) {
    struct timespec until;
    timespec_get(&until, TIME_UTC);
    until.tv_sec += WAIT_SECONDS;

    mtx_lock(&box->lock);
    int waited = thrd_success;
    while (!box->full && waited == thrd_success) {
        waited = cnd_timedwait(&box->arrived, &box->lock, &until);
    }
    const bool came = box->full;
    if (came) {
        unsigned char* frame = box->frame;
        box->frame = *block;
        *block = frame;
        *size = box->size;
        box->full = false;
    }
    mtx_unlock(&box->lock);
    return came;
}

static bool store(int number, const unsigned char* data, unsigned long size) {
    char name[32];
    snprintf(name, sizeof name, "push-%d.hxc", number);
    FILE* file = fopen(name, "wb");
    if (file == NULL) {
        perror(name);
        return false;
    }
    const bool written = fwrite(data, 1, size, file) == size;
    if (fclose(file) != 0 || !written) {
        perror(name);
        return false;
    }
    return true;
}

static bool capture(struct Mailbox* box) {
    unsigned char* block = NULL;
    unsigned long size = 0;
    bool good = true;
    for (int i = 0; i < FRAMES && good; ++i) {
        if (!takeFrame(box, &block, &size)) {
            fprintf(stderr, "no frame in %d s: camera lost or silent\n", WAIT_SECONDS);
            /* closeHxCamera waits for a frame, which a silent camera does not send. */
            _Exit(1);
        }
        good = store(i, block, size);
    }
    free(block);
    return good;
}

int main(void) {
    struct Mailbox box = {0};
    if (mtx_init(&box.lock, mtx_plain) != thrd_success || cnd_init(&box.arrived) != thrd_success) {
        fprintf(stderr, "no mutex\n");
        return 1;
    }

    HxCameraContextTag** list = NULL;
    unsigned int count = 0;
    if (enumHxCamera(&list, &count) != HX_OK) {
        fprintf(stderr, "no camera found\n");
        return 1;
    }
    bool good = registerHxCameraCallback(list[0], onFrame, &box) == HX_OK &&
                openHxCamera(list[0], true) == HX_OK;
    if (good) {
        good = capture(&box);
    } else {
        fprintf(stderr, "the camera cannot be opened\n");
    }
    /* Closes the handles first: after this no callback runs. */
    if (releaseHxCamera(list, (int)count) != HX_OK) good = false;
    if (good) printf("%d frames stored, %lu passed over\n", FRAMES, box.replaced);

    free(box.frame);
    cnd_destroy(&box.arrived);
    mtx_destroy(&box.lock);
    return good ? 0 : 1;
}
