/* SPDX-License-Identifier: MIT */
/**
 * @file hx_camera.h
 * Access to HX spectral cameras (USB Video Class devices) on Linux.
 *
 * An application enumerates the attached cameras once, opens one, reads and sets its controls, and
 * receives frames: either pushed to a callback by a capture thread of the library, or pulled one at
 * a time. Every frame comes packed in a small self-describing container (docs/container-format.md):
 * the 16-bit samples, row by row, and eighteen tagged entries that say what they are.
 *
 * Order of calls:
 *
 *     enumHxCamera
 *       registerHxCameraCallback, openHxCamera(ctx, true)   ... frames ...   closeHxCamera (pushed)
 *       openHxCamera(ctx, false), getHxData ...             ... frames ...   closeHxCamera (pulled)
 *     releaseHxCamera
 *
 * Threads: call the functions of one list from one thread. The library starts at most one thread
 * for each open handle; only the callback runs there. controlHxCamera may be called while that
 * thread captures: no lock is taken, the device answers between two frames.
 *
 * Messages: when a step on a device fails, one line goes to the standard error stream. Nothing is
 * printed otherwise, and no file, environment variable or configuration is read but the time zone
 * of the frames' time stamps (TZ, /etc/localtime).
 *
 * Exceptions: the functions are written in C++ and declared for C. The standard library's
 * exceptions pass out of enumHxCamera (allocation failure; std::out_of_range for an identification
 * text that is cut short), openHxCamera (std::system_error when no thread can be started) and
 * getHxData (allocation failure); one that arises in the capture thread ends the process. An
 * application that must outlive such a fault runs the library in a process of its own.
 */
#ifndef HX_CAMERA_H
#define HX_CAMERA_H

#include <stdbool.h>

#if defined(__GNUC__)
#define HX_CAMERA_API __attribute__((visibility("default")))
#else
#define HX_CAMERA_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * One enumerated camera. Opaque: made by enumHxCamera, ended by releaseHxCamera, never looked into
 * or freed by the application. Handles of several calls of enumHxCamera are independent of each
 * other.
 */
typedef struct HxCameraContextTag HxCameraContextTag;

/**
 * Receives one packed frame. Called on the handle's capture thread, never concurrently for one
 * handle.
 *
 * The driver fills its ring of 20 buffers in turn and a buffer is handed back as soon as it is
 * taken. A callback that takes longer than one frame time therefore loses frames, and once the
 * whole ring waits, the frame being converted can be overwritten by the next one. Copy the bytes
 * and return.
 *
 * Do not call closeHxCamera or releaseHxCamera from here: they wait for this thread. No exception
 * may leave the function.
 *
 * @param data      the container. The library's own block: valid until the callback returns,
 * overwritten by the next frame of the same handle. The address stays the same until
 * releaseHxCamera.
 * @param size      its length in bytes, the same for every frame of a handle
 * @param userData  the value that was registered with the callback
 */
typedef void (*HxCameraCallback)(unsigned char* data, unsigned long size, void* userData);

/** What the int functions return. */
enum HxResult {
    HX_OK = 0,              /**< done */
    HX_NO_CAMERA = 1,       /**< enumHxCamera: no camera was found */
    HX_REFUSED = 2,         /**< null handle or list, handle not open, or no callback registered */
    HX_UNKNOWN_COMMAND = 4, /**< controlHxCamera: no such command */
};

/**
 * Commands of controlHxCamera. "out" writes to *value, "in" reads from it; the width is part of the
 * contract. Exposure is in the unit of the device's V4L2_CID_EXPOSURE_ABSOLUTE control
 * (<linux/v4l2-controls.h>), 100 us.
 */
enum HxCommand {
    HX_CMD_EXPOSURE_MAX =
        0, /**< out, unsigned int (32 bits): largest exposure. Open or closed handle. */
    HX_CMD_EXPOSURE_MIN =
        1, /**< out, unsigned int (32 bits): smallest exposure. Open or closed handle. */
    /**
     * in, unsigned int (32 bits): set the exposure. Open handle only. The value goes to the driver
     * as it is; the driver clamps it to the range. HX_OK says that the handle is open and no more:
     * for a camera that refuses or was lost, a line is printed and the result is the same. Read it
     * back ("V01"), or wait for a frame that tells it ("V02"; see HX_CMD_GET_EXPOSURE).
     */
    HX_CMD_SET_EXPOSURE = 2,
    /**
     * out, unsigned int (32 bits): current exposure. Open handle only. Cameras that report their
     * exposure inside the frame ("V02" in the identification text) answer with that of the last
     * frame, 0 before the first one; the others ("V01") are asked, and 0 stands for "no answer".
     * Their answer is the setting: frames that were under way when it was made come after it.
     */
    HX_CMD_GET_EXPOSURE = 3,
    HX_CMD_HAS_LAMP =
        4, /**< out, bool (1 byte): whether the camera has a lamp. Open or closed handle. */
    /** in, bool (1 byte): accepted and without effect, the lamp is not driven. Open handle only. */
    HX_CMD_SET_LAMP = 5,
    HX_CMD_GET_LAMP =
        6, /**< out, bool (1 byte): whether the lamp is on; false, see above. Open handle only. */
    /**
     * out, const char* (64 bits): the camera's name, NUL-terminated, as the firmware gives it (a
     * camera with a lamp has a closing dash there). Owned by the camera: valid until
     * releaseHxCamera. Open or closed handle.
     */
    HX_CMD_NAME = 7,
};

/**
 * Finds the attached cameras and starts their streams.
 *
 * Every entry of /dev whose name begins with "video" is asked for its identification. One that
 * answers with a known text is set to 1600 x 1200, given a ring of up to 20 mapped buffers and set
 * streaming; from then on no other program can capture from it, until releaseHxCamera. A node that
 * cannot be used gets a message on the standard error stream and is passed over; the metadata node
 * that the kernel makes for each camera is one of them.
 *
 * @param list   receives an array of *count handles, in the order of the directory; the library's
 * own, to be given to releaseHxCamera. Left alone when no camera is found.
 * @param count  receives the number of cameras, also when it is 0
 * @return HX_OK, or HX_NO_CAMERA
 *
 * Blocks: while the devices answer. A device that keeps silent costs the driver's time-out (about 5
 * s) per request.
 */
HX_CAMERA_API int enumHxCamera(HxCameraContextTag*** list, unsigned int* count);

/**
 * Opens a handle for control and frames.
 *
 * @param ctx          handle
 * @param startThread  true: start the capture thread, which calls the registered callback for every
 * frame. false: no thread; take frames with getHxData. On a handle whose thread runs, the thread
 * goes on.
 * @return HX_OK; HX_REFUSED for a null handle, or when a thread is asked for without a registered
 * callback (the handle is then closed)
 *
 * A second openHxCamera(ctx, true) without closeHxCamera in between ends the process
 * (std::terminate).
 */
HX_CAMERA_API int openHxCamera(HxCameraContextTag* ctx, bool startThread);

/**
 * Closes a handle and ends its capture thread. The camera goes on streaming and the handle can be
 * opened again.
 *
 * @return HX_OK, also for a handle that is closed already; HX_REFUSED for a null handle
 *
 * Blocks: until the frame in progress has been taken and its callback has returned. A camera that
 * delivers nothing keeps the call waiting: there is no time-out. At most one callback comes after
 * the call has begun, none after it has returned.
 */
HX_CAMERA_API int closeHxCamera(HxCameraContextTag* ctx);

/**
 * Closes all handles of a list, ends their streams and frees everything: handles, containers, names
 * and the list.
 *
 * @param list   from enumHxCamera
 * @param count  from the same call; 0 or less frees the array alone
 * @return HX_OK; HX_REFUSED for a null list, or when a handle in it could not be closed (what
 * follows it is kept)
 *
 * Blocks: as closeHxCamera, for each handle in turn.
 */
HX_CAMERA_API int releaseHxCamera(HxCameraContextTag** list, int count);

/**
 * Sets who receives the frames of a handle. One callback a handle.
 *
 * @param ctx       handle, open or closed
 * @param callback  may be null: frames are then taken and not delivered
 * @param userData  passed to the callback as it is; owned by the application
 * @return HX_OK; HX_REFUSED for a null handle
 *
 * While the capture thread runs, function and value take effect from the next frame on. They are
 * two separate stores: a frame that falls between them can meet the new function with the old
 * value. Close the handle first where that matters.
 */
HX_CAMERA_API int registerHxCameraCallback(HxCameraContextTag* ctx, HxCameraCallback callback,
                                           void* userData);

/**
 * Reads or sets one property of a camera.
 *
 * @param ctx      handle, not null
 * @param command  one of HxCommand
 * @param value    storage of the width that the command names, not null
 * @return HX_OK; HX_REFUSED when the command needs an open handle and this one is closed (*value is
 * left alone); HX_UNKNOWN_COMMAND (ctx and value are then not looked at)
 *
 * Blocks: for a request to the device, 1 to 40 ms while it streams.
 */
HX_CAMERA_API int controlHxCamera(HxCameraContextTag* ctx, unsigned int command, void* value);

/**
 * Takes one frame now and packs it with its metadata.
 *
 * @param ctx   handle, not null
 * @param size  receives the length of the container in bytes; left alone when the handle is closed
 * or no frame came
 * @return the handle's own container, or NULL when the handle is closed or no frame came. Not to be
 * freed: valid until releaseHxCamera, overwritten by the next call on the handle.
 *
 * Frames wait in a ring of 20: after a pause the next call returns the oldest of them, not the
 * newest.
 *
 * Threads: not while a capture thread runs on the same handle.
 * Blocks:  until the camera delivers a frame; there is no time-out. On a camera that was lost: 20
 * ms, then NULL.
 */
HX_CAMERA_API unsigned char* getHxData(HxCameraContextTag* ctx, unsigned long* size);

#ifdef __cplusplus
}
#endif

#endif /* HX_CAMERA_H */
