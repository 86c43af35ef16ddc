/* SPDX-License-Identifier: MIT */
/* Shows the exposure of every camera, and sets that of the first one:  exposure [VALUE]
 *
 * Values are in units of 100 us. The driver clamps a value outside of the range without saying so:
 * check it, or read it back. */
#include <errno.h>
#include <hx_camera.h>
#include <stdio.h>
#include <stdlib.h>

struct Range {
    unsigned int least, most;
};

static bool describe(HxCameraContextTag* camera, struct Range* range) {
    const char* name = NULL;
    unsigned int now = 0;
    if (controlHxCamera(camera, HX_CMD_NAME, &name) != HX_OK ||
        controlHxCamera(camera, HX_CMD_EXPOSURE_MIN, &range->least) != HX_OK ||
        controlHxCamera(camera, HX_CMD_EXPOSURE_MAX, &range->most) != HX_OK ||
        controlHxCamera(camera, HX_CMD_GET_EXPOSURE, &now) != HX_OK) {
        fprintf(stderr, "the camera refused to answer\n");
        return false;
    }
    /* 0: no answer, or a camera that tells it inside the frames and has sent none yet */
    printf("%s: %u to %u, now ", name, range->least, range->most);
    if (now == 0) {
        printf("not known\n");
    } else {
        printf("%u\n", now);
    }
    return true;
}

/* Up to 20 frames of the old exposure wait in the driver's ring, and a few are on their way. A
 * camera with V01 in its identification does not tell them apart: it answers with the setting. */
enum { FRAMES_UNDER_WAY = 25 };

static bool setAndWait(HxCameraContextTag* camera, unsigned int wanted) {
    if (controlHxCamera(camera, HX_CMD_SET_EXPOSURE, &wanted) != HX_OK) {
        fprintf(stderr, "the exposure was not set\n");
        return false;
    }
    for (int i = 0; i < FRAMES_UNDER_WAY; ++i) {
        unsigned long size = 0;
        if (getHxData(camera, &size) == NULL) {
            fprintf(stderr, "the camera was lost\n");
            return false;
        }
    }
    unsigned int now = 0;
    if (controlHxCamera(camera, HX_CMD_GET_EXPOSURE, &now) != HX_OK || now != wanted) {
        fprintf(stderr, "the camera does not use exposure %u\n", wanted);
        return false;
    }
    printf("exposure %u in force after %d frames\n", now, FRAMES_UNDER_WAY);
    return true;
}

/* The value of the command line, 0 when it is no exposure of this camera. */
static unsigned int parse(const char* text, struct Range range) {
    char* end = NULL;
    errno = 0;
    const unsigned long value = strtoul(text, &end, 10);
    const bool isNumber = text[0] >= '0' && text[0] <= '9' && *end == '\0' && errno == 0;
    if (!isNumber || value == 0 || value < range.least || value > range.most) {
        fprintf(stderr, "%s: not from %u to %u\n", text, range.least, range.most);
        return 0;
    }
    return (unsigned int)value;
}

int main(int argc, char** argv) {
    HxCameraContextTag** list = NULL;
    unsigned int count = 0;
    if (enumHxCamera(&list, &count) != HX_OK) {
        fprintf(stderr, "no camera found\n");
        return 1;
    }
    bool good = true;
    struct Range first = {0, 0};
    for (unsigned int i = 0; i < count && good; ++i) {
        struct Range range = {0, 0};
        good = openHxCamera(list[i], false) == HX_OK && describe(list[i], &range);
        if (i == 0) first = range;
    }
    if (good && argc > 1) {
        const unsigned int wanted = parse(argv[1], first);
        good = wanted != 0 && setAndWait(list[0], wanted);
    }
    if (releaseHxCamera(list, (int)count) != HX_OK) good = false;
    return good ? 0 : 1;
}
