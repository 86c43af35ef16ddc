// SPDX-License-Identifier: MIT
#include "support/scripted_calls.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <dirent.h>
#include <gtest/gtest.h>
#include <linux/uvcvideo.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

namespace scripted {
namespace {

constexpr int kFirstFd = 5000;
int directoryMark;
dirent currentEntry;
std::size_t nextEntry;
int nextFd = kFirstFd;
std::map<int, std::string> paths;

const std::map<unsigned long, std::string> kRequests = {
    {VIDIOC_S_FMT, "S_FMT"},         {VIDIOC_REQBUFS, "REQBUFS"},     {VIDIOC_QUERYBUF, "QUERYBUF"},
    {VIDIOC_QBUF, "QBUF"},           {VIDIOC_DQBUF, "DQBUF"},         {VIDIOC_STREAMON, "STREAMON"},
    {VIDIOC_STREAMOFF, "STREAMOFF"}, {VIDIOC_QUERYCTRL, "QUERYCTRL"}, {VIDIOC_G_CTRL, "G_CTRL"},
    {VIDIOC_S_CTRL, "S_CTRL"},       {VIDIOC_QUERYCAP, "QUERYCAP"},   {UVCIOC_CTRL_QUERY, "XU"}};

// Records the call; true when it shall fail.
bool record(const std::string& call) {
    World& w = world();
    w.trace.push_back(call);
    const int nth = ++w.counts[call];
    for (const Failure& failure : w.failures) {
        if (failure.call != call || (failure.nth != 0 && failure.nth != nth)) continue;
        errno = failure.error;
        return true;
    }
    return false;
}

int refuse(int error) {
    errno = error;
    return -1;
}

int identify(int fd, uvc_xu_control_query& query) {
    const auto known = world().identifications.find(paths[fd]);
    if (known == world().identifications.end()) return refuse(ENOTTY);
    if (query.unit != 6 || query.selector != 10) return refuse(ENOENT);
    if (query.query != 0x81 || query.size != 32) return refuse(ENOBUFS);
    std::memcpy(query.data, known->second.data(), known->second.size());
    return 0;
}

int describe(int fd, v4l2_capability& capability) {
    const auto known = world().cards.find(paths[fd]);
    if (known == world().cards.end()) return refuse(ENOTTY);
    std::memcpy(capability.card, known->second.data(), known->second.size());
    return 0;
}

int answerBuffer(const std::string& name, v4l2_buffer& buffer) {
    World& w = world();
    const bool multiPlanar = buffer.type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
    w.buffer = buffer;
    w.planes = multiPlanar ? buffer.length : 0;
    if (name == "DQBUF") {
        if (w.queued.empty()) return refuse(EINVAL);
        buffer.index = w.queued.front();
        buffer.timestamp = w.timestamp;
        w.queued.pop_front();
    }
    if (name == "QBUF") w.queued.push_back(buffer.index);
    const std::uint32_t offset = buffer.index * w.bufferLength;
    if (multiPlanar) {
        buffer.m.planes[0].length = w.bufferLength;
        buffer.m.planes[0].m.mem_offset = offset;
    } else {
        buffer.length = w.bufferLength;
        buffer.m.offset = offset;
    }
    return 0;
}

int answer(int fd, const std::string& name, void* argument) {
    World& w = world();
    if (name == "XU") return identify(fd, *static_cast<uvc_xu_control_query*>(argument));
    if (name == "QUERYCAP") return describe(fd, *static_cast<v4l2_capability*>(argument));
    if (name == "S_FMT") w.format = *static_cast<v4l2_format*>(argument);
    if (name == "REQBUFS") {
        auto& request = *static_cast<v4l2_requestbuffers*>(argument);
        w.request = request;
        request.count = w.granted;
    }
    if (name == "QUERYCTRL") {
        auto& control = *static_cast<v4l2_queryctrl*>(argument);
        control.minimum = w.exposureMin;
        control.maximum = w.exposureMax;
    }
    if (name == "S_CTRL") w.control = *static_cast<v4l2_control*>(argument);
    if (name == "G_CTRL") static_cast<v4l2_control*>(argument)->value = w.exposure;
    if (name == "QUERYBUF" || name == "QBUF" || name == "DQBUF") {
        return answerBuffer(name, *static_cast<v4l2_buffer*>(argument));
    }
    return 0;
}

}  // namespace

int World::count(const std::string& call) const {
    const auto found = counts.find(call);
    return found == counts.end() ? 0 : found->second;
}

unsigned char* World::frameMemory(unsigned int index) {
    return static_cast<unsigned char*>(bufferMemory.at(index));
}

World& world() {
    static World instance;
    return instance;
}

void reset() {
    EXPECT_TRUE(world().openFds.empty()) << "a test left a descriptor open";
    EXPECT_TRUE(world().mappings.empty()) << "a test left a mapping";
    EXPECT_EQ(world().foreignRequests, 0) << "a stale descriptor or mapping was used";
    world() = World();
}

}  // namespace scripted

using scripted::record;
using scripted::world;

// The names that the linker looks for.
extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_close(int fd);
int __real_ioctl(int fd, unsigned long request, ...);
void* __real_mmap(void* address, std::size_t length, int protection, int flags, int fd, off_t at);
int __real_munmap(void* address, std::size_t length);
DIR* __real_opendir(const char* path);
dirent* __real_readdir(DIR* directory);
int __real_closedir(DIR* directory);

int __wrap_open(const char* path, int flags, ...) {
    if (std::strncmp(path, "/dev/video", 10) != 0) {
        va_list list;
        va_start(list, flags);
        const mode_t mode = va_arg(list, mode_t);
        va_end(list);
        return __real_open(path, flags, mode);
    }
    world().openFlags = flags;
    if (record("open")) return -1;
    scripted::paths[scripted::nextFd] = path;
    world().openFds.insert(scripted::nextFd);
    return scripted::nextFd++;
}

int __wrap_close(int fd) {
    if (fd >= 0 && fd < scripted::kFirstFd) return __real_close(fd);
    if (record("close")) return -1;
    if (fd == -1) return scripted::refuse(EBADF);
    if (world().openFds.erase(fd) == 1) return 0;
    ++world().foreignRequests;
    return scripted::refuse(EBADF);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list list;
    va_start(list, request);
    void* const argument = va_arg(list, void*);
    va_end(list);
    const auto known = scripted::kRequests.find(request);
    if ((fd >= 0 && fd < scripted::kFirstFd) || known == scripted::kRequests.end()) {
        return __real_ioctl(fd, request, argument);
    }
    if (record(known->second)) return -1;
    if (fd == -1) return scripted::refuse(EBADF);
    if (world().openFds.count(fd) == 0) {
        ++world().foreignRequests;
        return scripted::refuse(EBADF);
    }
    return scripted::answer(fd, known->second, argument);
}

void* __wrap_mmap(void* address, std::size_t length, int protection, int flags, int fd, off_t at) {
    if (fd < scripted::kFirstFd) return __real_mmap(address, length, protection, flags, fd, at);
    if (record("mmap")) return MAP_FAILED;
    EXPECT_EQ(flags, MAP_SHARED);
    EXPECT_EQ(protection, PROT_READ | PROT_WRITE);
    world().mapOffsets.push_back(at);
    void* const memory =
        __real_mmap(nullptr, length, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    world().mappings[memory] = length;
    world().bufferMemory.push_back(memory);
    return memory;
}

int __wrap_munmap(void* address, std::size_t length) {
    if (record("munmap")) return -1;
    if (address == MAP_FAILED) return scripted::refuse(EINVAL);
    const auto mapping = world().mappings.find(address);
    if (mapping == world().mappings.end() || mapping->second != length) {
        ++world().foreignRequests;
        return scripted::refuse(EINVAL);
    }
    world().mappings.erase(mapping);
    return __real_munmap(address, length);
}

DIR* __wrap_opendir(const char* path) {
    if (std::strcmp(path, "/dev") != 0) return __real_opendir(path);
    if (record("opendir")) return nullptr;
    scripted::nextEntry = 0;
    return reinterpret_cast<DIR*>(&scripted::directoryMark);
}

dirent* __wrap_readdir(DIR* directory) {
    if (directory != reinterpret_cast<DIR*>(&scripted::directoryMark)) {
        return __real_readdir(directory);
    }
    if (scripted::nextEntry == world().entries.size()) return nullptr;
    const std::string& name = world().entries[scripted::nextEntry++];
    std::strncpy(scripted::currentEntry.d_name, name.c_str(),
                 sizeof scripted::currentEntry.d_name - 1);
    return &scripted::currentEntry;
}

int __wrap_closedir(DIR* directory) {
    if (directory != reinterpret_cast<DIR*>(&scripted::directoryMark)) {
        return __real_closedir(directory);
    }
    return record("closedir") ? -1 : 0;
}
}
