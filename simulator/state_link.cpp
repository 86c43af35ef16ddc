// SPDX-License-Identifier: MIT
#include "state_link.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "descriptor.h"
#include "real_calls.h"

namespace hx::sim {

namespace {

// Bytes of the state's file that locks are put on; the file need not be that long.
constexpr off_t kStateByte = 0;
constexpr off_t kNodeBytes = off_t{1} << 20;
constexpr off_t kOwnerBytes = off_t{1} << 40;
constexpr off_t kPriorityBytes = off_t{2} << 40;
constexpr std::uint32_t kPriorityLevels = 4;

// A camera that was plugged in again is a new device: who still holds the old one is not in its
// way.
off_t instanceOf(const NodeRef& node) {
    return off_t{node.generation} * kMaxCameras + node.index;
}

enum class Attachment : int { untried, absent, present };

// All of it is usable before any constructor has run.
constinit std::mutex g_mutex;
constinit std::atomic<Attachment> g_attachment{Attachment::untried};
constinit SharedState* g_state = nullptr;
constinit int g_descriptor = -1;

bool setLock(int descriptor, short type, off_t byte, bool wait) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    int result = 0;
    do {
        result = real::fcntl(descriptor, wait ? F_OFD_SETLKW : F_OFD_SETLK, &lock);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool lockedElsewhere(int descriptor, off_t byte) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return real::fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

SharedState* mapState(int descriptor) {
    void* memory =
        real::mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) return nullptr;
    auto* state = static_cast<SharedState*>(memory);
    if (state->magic == kStateMagic && state->size == sizeof(SharedState)) return state;
    real::munmap(memory, sizeof(SharedState));
    return nullptr;
}

void beforeFork() {
    g_mutex.lock();
}

void afterForkInParent() {
    g_mutex.unlock();
}

// Locks do not keep apart who shares a description: the child needs one of its own.
void afterForkInChild() {
    const int own = newLockDescriptor();
    if (own >= 0) {
        real::close(g_descriptor);
        g_descriptor = own;
    }
    g_mutex.unlock();
}

void attach(const char* path) {
    const int opened = real::openat(AT_FDCWD, path, O_RDWR | O_CLOEXEC);
    if (opened >= 0) {
        g_descriptor = moveHigh(opened);
        g_state = mapState(g_descriptor);
    }
    if (g_state) {
        pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
    } else {
        std::fputs("hx-sim: the simulated cameras are gone with their launcher\n", stderr);
    }
}

bool minorIsFree(const SharedState& state, std::uint32_t minor) {
    return !findNode(state, minor) && !lockedElsewhere(g_descriptor, kNodeBytes + minor) &&
           !(state.realDevicesShown && state.realMinors[minor]);
}

// The kernel hands out the lowest free number; a camera that comes back finds its old one unless it
// is held.
std::uint32_t chooseMinor(const SharedState& state, std::uint32_t old, std::uint32_t taken) {
    if (old != taken && minorIsFree(state, old)) return old;
    for (std::uint32_t minor = 0; minor <= kMaxMinor; ++minor) {
        if (minor != taken && minorIsFree(state, minor)) return minor;
    }
    return old;
}

void replugWhenDue(SharedState& state) {
    for (std::uint32_t i = 0; i < state.cameraCount; ++i) {
        const CameraConfig& config = state.cameras[i].config;
        CameraRun& run = state.cameras[i].run;
        if (run.plugged || config.replugAfter < 0) continue;
        const auto waited = static_cast<double>(monotonicNanoseconds() - run.unpluggedAt) / 1e9;
        if (waited < config.replugAfter) continue;
        constexpr std::uint32_t kNone = kMaxMinor + 1;
        const auto capture = chooseMinor(state, run.captureMinor, kNone);
        run.metadataMinor = chooseMinor(state, run.metadataMinor, capture);
        run.captureMinor = capture;
        run.plugOrder = ++state.plugCounter;
        state.cameras[i].powerUp();
        run.plugged = true;
    }
}

}  // namespace

std::int64_t monotonicNanoseconds() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

bool stateAttached() {
    const auto known = g_attachment.load(std::memory_order_acquire);
    if (known != Attachment::untried) return known == Attachment::present;
    const std::lock_guard lock(g_mutex);
    if (g_attachment.load(std::memory_order_relaxed) == Attachment::untried) {
        if (const char* path = std::getenv(kStateVariable)) attach(path);
        g_attachment.store(g_state ? Attachment::present : Attachment::absent,
                           std::memory_order_release);
    }
    return g_state != nullptr;
}

const CameraConfig& cameraConfig(std::uint32_t index) {
    return g_state->cameras[index].config;
}

// Changes that only time brings about are made up for whenever someone looks.
StateLock::StateLock() : state_(g_state) {
    g_mutex.lock();
    setLock(g_descriptor, F_WRLCK, kStateByte, true);
    replugWhenDue(*state_);
}

StateLock::~StateLock() {
    setLock(g_descriptor, F_UNLCK, kStateByte, true);
    g_mutex.unlock();
}

// Opened through /proc/self, which works even when the launcher has ended meanwhile.
int newLockDescriptor() {
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", g_descriptor);
    const int opened = real::openat(AT_FDCWD, path, O_RDWR | O_CLOEXEC);
    return opened < 0 ? -errno : moveHigh(opened);
}

void holdNode(int lockDescriptor, std::uint32_t minor) {
    setLock(lockDescriptor, F_RDLCK, kNodeBytes + minor, false);
}

bool tryOwnCamera(int lockDescriptor, const NodeRef& node) {
    return setLock(lockDescriptor, F_WRLCK, kOwnerBytes + instanceOf(node), false);
}

void disownCamera(int lockDescriptor, const NodeRef& node) {
    setLock(lockDescriptor, F_UNLCK, kOwnerBytes + instanceOf(node), false);
}

void setPriorityLevel(int lockDescriptor, const NodeRef& node, std::uint32_t before,
                      std::uint32_t level) {
    const off_t first = kPriorityBytes + instanceOf(node) * kPriorityLevels;
    setLock(lockDescriptor, F_RDLCK, first + level, false);
    if (before != level) setLock(lockDescriptor, F_UNLCK, first + before, false);
}

std::uint32_t highestPriority(const NodeRef& node) {
    const off_t first = kPriorityBytes + instanceOf(node) * kPriorityLevels;
    std::uint32_t level = kPriorityLevels - 1;
    while (level > 0 && !lockedElsewhere(g_descriptor, first + level)) --level;
    return level;
}

void unplugCamera(SharedState& state, std::uint32_t camera) {
    CameraRun& run = state.cameras[camera].run;
    run.plugged = false;
    run.unplugDone = true;
    ++run.generation;
    run.unpluggedAt = monotonicNanoseconds();
}

std::optional<NodeRef> findNode(const SharedState& state, std::uint32_t minor) {
    for (std::uint32_t i = 0; i < state.cameraCount; ++i) {
        const CameraRun& run = state.cameras[i].run;
        if (!run.plugged) continue;
        if (run.captureMinor == minor) {
            return NodeRef{NodeKind::capture, i, minor, run.generation};
        }
        if (run.metadataMinor == minor) {
            return NodeRef{NodeKind::metadata, i, minor, run.generation};
        }
    }
    for (std::uint32_t i = 0; i < state.foreignCount; ++i) {
        if (state.foreign[i].minor == minor) return NodeRef{NodeKind::foreign, i, minor, 0};
    }
    return std::nullopt;
}

}  // namespace hx::sim
