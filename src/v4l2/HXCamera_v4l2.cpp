// SPDX-License-Identifier: MIT
#include "v4l2/HXCamera_v4l2.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include <dirent.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// About a frame time: how long a thread that keeps asking a lost camera is held up each time.
constexpr std::chrono::milliseconds kLostCameraWait{20};

bool isReleased(v4l2_dev* dev) {
    return std::atomic_ref<bool>(dev->released).load();
}

// The one tear-down. The mark comes before the close, so that no other thread begins a request on
// a number that is about to become free.
// Kept: fd and buffers keep their values; the mark alone says that they are stale.
void release(v4l2_dev* dev) {
    if (std::atomic_ref<bool>(dev->released).exchange(true)) return;
    const int failure = errno;
    if (dev->buffers != nullptr) {
        for (unsigned int i = 0; i < dev->buffer_count; ++i) {
            const mapped_buffer& entry = dev->buffers[i];
            if (entry.start != nullptr) munmap(entry.start, entry.length);
        }
        std::free(dev->buffers);
    }
    if (dev->fd != -1) close(dev->fd);
    errno = failure;
}

int fail(v4l2_dev* dev, int result) {
    release(dev);
    return result;
}

bool isMultiPlanar(const v4l2_dev* dev) {
    return dev->buf_type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
}

// The record of a buffer request; the multi-planar form brings its one plane along.
class BufferRequest {
  public:
    BufferRequest(const v4l2_dev* dev, unsigned int index) {
        buffer.index = index;
        buffer.type = dev->buf_type;
        buffer.memory = dev->memory;
        if (isMultiPlanar(dev)) {
            buffer.m.planes = &plane_;
            buffer.length = 1;
        }
    }
    BufferRequest(const BufferRequest&) = delete;
    BufferRequest& operator=(const BufferRequest&) = delete;

    v4l2_buffer buffer{};

  private:
    v4l2_plane plane_{};
};

// False when the buffer cannot be queried. A failed mapping is stored as mmap returned it.
bool queryAndMap(v4l2_dev* dev, unsigned int index) {
    BufferRequest request(dev, index);
    if (device_request(dev, VIDIOC_QUERYBUF, &request.buffer) == -1) return false;

    const v4l2_buffer& buffer = request.buffer;
    const bool planes = isMultiPlanar(dev);
    const std::size_t length = planes ? buffer.m.planes[0].length : buffer.length;
    const off_t offset = planes ? buffer.m.planes[0].m.mem_offset : buffer.m.offset;

    mapped_buffer& entry = dev->buffers[index];
    entry.length = length;
    entry.start = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, dev->fd, offset);
    return true;
}

int stream(v4l2_dev* dev, unsigned long request) {
    int type = static_cast<int>(dev->buf_type);
    return device_request(dev, request, &type) == -1 ? fail(dev, -1) : 0;
}

// perror text and result are the same number.
int failFrame(v4l2_dev* dev, int result, const char* text) {
    release(dev);
    std::perror(text);
    return result;
}

int takeFrame(v4l2_dev* dev) {
    BufferRequest request(dev, 0);
    v4l2_buffer& buffer = request.buffer;
    if (device_request(dev, VIDIOC_DQBUF, &buffer) == -1) return failFrame(dev, -1, "-1");

    dev->timestamp_us = std::int64_t{buffer.timestamp.tv_sec} * 1000000 + buffer.timestamp.tv_usec;
    // The driver never gives an index outside its ring; one that did would yield no frame.
    dev->frame = buffer.index < dev->buffer_count
                     ? static_cast<unsigned char*>(dev->buffers[buffer.index].start)
                     : nullptr;
    // Kept: the buffer goes back before it is read; the depth of the ring is the reader's time.
    if (device_request(dev, VIDIOC_QBUF, &buffer) == -1) return failFrame(dev, -2, "-2");
    return 0;
}

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

// Empty for a node that cannot be opened or asked.
std::string cardName(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR);
    v4l2_capability capability{};
    ioctl(fd, VIDIOC_QUERYCAP, &capability);
    close(fd);
    const char* const card = reinterpret_cast<const char*>(capability.card);
    return {card, strnlen(card, sizeof capability.card)};
}

}  // namespace

int device_request(v4l2_dev* dev, unsigned long request, void* argument) {
    if (isReleased(dev)) {
        errno = EBADF;
        return -1;
    }
    return ioctl(dev->fd, request, argument);
}

int open_device(v4l2_dev* dev) {
    // The table of an earlier life is gone already; it must not be released with this one.
    if (isReleased(dev)) dev->buffers = nullptr;
    std::atomic_ref<bool>(dev->released).store(false);
    dev->fd = open(dev->path.c_str(), O_RDWR | O_CLOEXEC);
    return dev->fd < 0 ? fail(dev, -1) : 0;
}

int set_fmt(v4l2_dev* dev) {
    v4l2_format format{};
    format.type = dev->buf_type;
    // The first three members are the same in the multi-planar form.
    format.fmt.pix.width = static_cast<__u32>(dev->width);
    format.fmt.pix.height = static_cast<__u32>(dev->height);
    format.fmt.pix.pixelformat = dev->pixel_format;
    return device_request(dev, VIDIOC_S_FMT, &format) < 0 ? fail(dev, -1) : 0;
}

int require_buf(v4l2_dev* dev) {
    v4l2_requestbuffers request{};
    request.count = dev->buffer_count;
    request.type = dev->buf_type;
    request.memory = dev->memory;
    if (device_request(dev, VIDIOC_REQBUFS, &request) == -1) return fail(dev, -1);
    dev->buffer_count = request.count;
    return 0;
}

int alloc_buf(v4l2_dev* dev) {
    if (isReleased(dev)) {
        errno = EBADF;
        return -1;
    }
    dev->buffers =
        static_cast<mapped_buffer*>(std::calloc(dev->buffer_count, sizeof(mapped_buffer)));
    if (dev->buffers == nullptr && dev->buffer_count != 0) return fail(dev, -1);
    for (unsigned int i = 0; i < dev->buffer_count; ++i) {
        if (!queryAndMap(dev, i)) return fail(dev, -1);
        if (dev->buffers[i].start == MAP_FAILED) return fail(dev, -2);
    }
    return 0;
}

int queue_buf(v4l2_dev* dev) {
    for (unsigned int i = 0; i < dev->buffer_count; ++i) {
        BufferRequest request(dev, i);
        if (device_request(dev, VIDIOC_QBUF, &request.buffer) < 0) return fail(dev, -1);
    }
    return 0;
}

int stream_on(v4l2_dev* dev) {
    return stream(dev, VIDIOC_STREAMON);
}

int stream_off(v4l2_dev* dev) {
    return stream(dev, VIDIOC_STREAMOFF);
}

int get_frame(v4l2_dev* dev, int skip) {
    if (skip >= 0 && isReleased(dev)) {
        std::this_thread::sleep_for(kLostCameraWait);
        errno = EBADF;
        return -1;
    }
    for (int taken = 0; taken <= skip; ++taken) {
        const int result = takeFrame(dev);
        if (result != 0) return result;
    }
    return 0;
}

std::size_t frame_length(const v4l2_dev* dev) {
    if (dev->frame == nullptr) return 0;
    for (unsigned int i = 0; i < dev->buffer_count; ++i) {
        if (dev->buffers[i].start == dev->frame) return dev->buffers[i].length;
    }
    return 0;
}

int close_device(v4l2_dev* dev) {
    release(dev);
    return 0;
}

int find_device(const char* card_fragment, std::string& device_path) {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir("/dev"));
    if (!directory) {
        std::perror("Failed to open /dev");
        return -1;
    }
    // Kept: no early exit, so the last match wins; and without a match an old path stays.
    while (const dirent* entry = readdir(directory.get())) {
        const std::string name = entry->d_name;
        if (!name.starts_with("video")) continue;
        const std::string path = "/dev/" + name;
        const std::string card = cardName(path);
        if (!card.empty() && card.find(card_fragment) != std::string::npos) device_path = path;
    }
    if (!device_path.empty()) return 0;
    std::perror("can't find HX camera dev");
    return -1;
}
