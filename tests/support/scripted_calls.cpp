// SPDX-License-Identifier: MIT
#include "support/scripted_calls.h"

#include <algorithm>
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
int nextFd = kFirstFd;
std::size_t nextEntry;
dirent currentEntry;

const std::map<unsigned long, std::string> kRequests = {
    {VIDIOC_S_FMT, "S_FMT"},         {VIDIOC_REQBUFS, "REQBUFS"},     {VIDIOC_QUERYBUF, "QUERYBUF"},
    {VIDIOC_QBUF, "QBUF"},           {VIDIOC_DQBUF, "DQBUF"},         {VIDIOC_STREAMON, "STREAMON"},
    {VIDIOC_STREAMOFF, "STREAMOFF"}, {VIDIOC_QUERYCTRL, "QUERYCTRL"}, {VIDIOC_G_CTRL, "G_CTRL"},
    {VIDIOC_S_CTRL, "S_CTRL"},       {VIDIOC_QUERYCAP, "QUERYCAP"},   {UVCIOC_CTRL_QUERY, "XU"}};

int refuse(int error) {
    errno = error;
    return -1;
}

// What is asked of something that is not open, or no longer.
int refuseForeign(int error) {
    ADD_FAILURE() << world().trace.back() << " on a stale descriptor or mapping";
    return refuse(error);
}

// Records the call; true when it shall fail.
bool record(const std::string& call) {
    world().trace.push_back(call);
    const long nth = world().count(call);
    for (const Failure& failure : world().failures) {
        if (failure.call != call || (failure.nth != 0 && failure.nth != nth)) continue;
        errno = failure.error;
        return true;
    }
    return false;
}

int tell(const std::map<std::string, std::string>& texts, int fd, unsigned char* to) {
    const auto known = texts.find(world().openFds[fd]);
    if (known == texts.end()) return refuse(ENOTTY);
    std::memcpy(to, known->second.data(), known->second.size());
    return 0;
}

int identify(int fd, const uvc_xu_control_query& query) {
    if (query.unit != 6 || query.selector != 10) return refuse(ENOENT);
    if (query.query != 0x81 || query.size != 32) return refuse(ENOBUFS);
    return tell(world().identifications, fd, query.data);
}

int answerBuffer(const std::string& name, v4l2_buffer& buffer) {
    World& w = world();
    w.buffer = buffer;
    if (name == "DQBUF") {
        if (w.queued.empty()) return refuse(EINVAL);
        buffer.index = w.queued.front();
        buffer.timestamp = w.timestamp;
        w.queued.pop_front();
    }
    if (name == "QBUF") w.queued.push_back(buffer.index);
    const std::uint32_t offset = buffer.index * w.bufferLength;
    if (buffer.type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE) {
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
    if (name == "QUERYCAP") return tell(w.cards, fd, static_cast<v4l2_capability*>(argument)->card);
    if (name == "S_FMT") w.format = *static_cast<v4l2_format*>(argument);
    if (name == "REQBUFS") {
        w.request = *static_cast<v4l2_requestbuffers*>(argument);
        static_cast<v4l2_requestbuffers*>(argument)->count = w.granted;
    }
    if (name == "QUERYCTRL") *static_cast<v4l2_queryctrl*>(argument) = w.range;
    if (name == "S_CTRL") w.control = *static_cast<v4l2_control*>(argument);
    if (name == "G_CTRL") static_cast<v4l2_control*>(argument)->value = w.exposure;
    if (name == "QUERYBUF" || name == "QBUF" || name == "DQBUF") {
        return answerBuffer(name, *static_cast<v4l2_buffer*>(argument));
    }
    return 0;
}

}  // namespace

long World::count(const std::string& call) const {
    return std::count(trace.begin(), trace.end(), call);
}

World& world() {
    static World instance;
    return instance;
}

void reset() {
    EXPECT_TRUE(world().openFds.empty()) << "a test left a descriptor open";
    EXPECT_TRUE(world().mappings.empty()) << "a test left a mapping";
    world() = World();
}

}  // namespace scripted

using scripted::record;
using scripted::world;

// The names that the linker looks for. Only `close` is called by the test framework too.
extern "C" {

int __real_close(int fd);
void* __real_mmap(void* address, std::size_t length, int protection, int flags, int fd, off_t at);
int __real_munmap(void* address, std::size_t length);

int __wrap_open(const char* path, int flags, ...) {
    world().openFlags = flags;
    if (record("open")) return -1;
    world().openFds[scripted::nextFd] = path;
    return scripted::nextFd++;
}

int __wrap_close(int fd) {
    if (fd >= 0 && fd < scripted::kFirstFd) return __real_close(fd);
    if (record("close")) return -1;
    if (fd == -1) return scripted::refuse(EBADF);
    return world().openFds.erase(fd) == 1 ? 0 : scripted::refuseForeign(EBADF);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list list;
    va_start(list, request);
    void* const argument = va_arg(list, void*);
    va_end(list);
    const std::string& name = scripted::kRequests.at(request);
    if (record(name)) return -1;
    if (fd == -1) return scripted::refuse(EBADF);
    if (world().openFds.count(fd) == 0) return scripted::refuseForeign(EBADF);
    return scripted::answer(fd, name, argument);
}

void* __wrap_mmap(void*, std::size_t length, int protection, int flags, int, off_t at) {
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
        return scripted::refuseForeign(EINVAL);
    }
    world().mappings.erase(mapping);
    return __real_munmap(address, length);
}

DIR* __wrap_opendir(const char* path) {
    EXPECT_STREQ(path, "/dev");
    scripted::nextEntry = 0;
    return record("opendir") ? nullptr : reinterpret_cast<DIR*>(&scripted::currentEntry);
}

dirent* __wrap_readdir(DIR*) {
    if (scripted::nextEntry == world().entries.size()) return nullptr;
    const std::string& name = world().entries[scripted::nextEntry++];
    std::strncpy(scripted::currentEntry.d_name, name.c_str(),
                 sizeof scripted::currentEntry.d_name - 1);
    return &scripted::currentEntry;
}

int __wrap_closedir(DIR*) {
    return record("closedir") ? -1 : 0;
}
}
