// SPDX-License-Identifier: MIT
// Capture device: one record and the steps of the V4L2 streaming sequence on it. Used by camera/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// One buffer of the driver's ring, as it is mapped into this process.
struct mapped_buffer {
    void* start;         ///< null while not mapped; MAP_FAILED as mmap returned it
    std::size_t length;  ///< bytes, from the driver
};

/// One capture device. The owner fills the settings before open_device; the functions below do the
/// rest. One thread at a time, but for device_request.
struct v4l2_dev {
    int fd = -1;       ///< -1: nothing opened yet
    std::string path;  ///< node to open, e.g. /dev/video0
    const char* card_name = nullptr;
    const char* data_label = nullptr;
    unsigned int buf_type = 0;      ///< enum v4l2_buf_type, single- or multi-planar video capture
    unsigned int pixel_format = 0;  ///< four-character code
    int width = 0;                  ///< pixels asked for; what the driver makes of it is not read
    int height = 0;
    unsigned int buffer_count = 0;  ///< asked for; after require_buf: granted
    unsigned int memory = 0;        ///< enum v4l2_memory; only V4L2_MEMORY_MMAP can be mapped
    mapped_buffer* buffers = nullptr;
    std::int64_t timestamp_us = 0;  ///< driver's time of the last frame, CLOCK_MONOTONIC
    std::int32_t spare = 0;
    unsigned char* frame = nullptr;  ///< the last frame, inside the ring; the driver fills it anew
                                     ///< once the rest of the ring has had its turn

    /// Set by the tear-down. From then on `fd` and `buffers` are stale: the number may already be
    /// another device's. Nothing is closed, unmapped, freed or asked through them again.
    bool released = false;
};

// Every step returns 0, or a negative value after it has torn the whole record down (mappings,
// table, descriptor) with errno still that of the failing request. Order of calls: open_device,
// set_fmt, require_buf, alloc_buf, queue_buf, stream_on, any number of get_frame, close_device.

/// Opens `path` and begins a new life of the record.
int open_device(v4l2_dev* dev);
int set_fmt(v4l2_dev* dev);
int require_buf(v4l2_dev* dev);
/// Makes the table and maps the ring. -1: a query failed; -2: a mapping failed.
int alloc_buf(v4l2_dev* dev);
int queue_buf(v4l2_dev* dev);
int stream_on(v4l2_dev* dev);
int stream_off(v4l2_dev* dev);

/// Takes skip + 1 frames and keeps the last one; each buffer goes back to the driver at once.
/// Blocks until the frames have come. -1: dequeue failed, -2: handing back failed, both with a
/// message; on a released record -1 after 20 ms, without one. A negative skip takes nothing.
int get_frame(v4l2_dev* dev, int skip);

/// Bytes that may be read at `frame`; 0 without a frame.
std::size_t frame_length(const v4l2_dev* dev);

/// Unmaps, frees and closes, once. Streaming ends with the descriptor. Always 0.
int close_device(v4l2_dev* dev);

/// ioctl on the record's descriptor; EBADF on a released one. Any thread.
int device_request(v4l2_dev* dev, unsigned long request, void* argument);

/// Looks a camera up by its card name: opens and asks every node of /dev whose name begins with
/// "video". `device_path` receives the path of the last one, in the order of the directory, whose
/// card name contains `card_fragment`; it is not cleared first.
/// @return 0 when `device_path` is not empty at the end, else -1 with a message
int find_device(const char* card_fragment, std::string& device_path);
