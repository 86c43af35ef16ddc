// SPDX-License-Identifier: MIT
// The way from a process to the state that all processes below one hx-sim share.
//
// Every lock here is a file lock on the state's memfd that belongs to an open file description. The
// kernel drops it when the description goes, so a killed program leaves neither the state locked
// nor a camera in use, and a forked child that still holds the descriptor keeps it, as with a real
// node. It also works under user emulation, where robust futexes do not.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <optional>

#include "camera_state.h"
#include "cancel_guard.h"

namespace hx::sim {

enum class NodeKind { capture, metadata, foreign };

struct NodeRef {
    NodeKind kind;
    std::uint32_t index;  // into cameras, or into foreign devices
    std::uint32_t minor;
    std::uint32_t generation;  // of the camera when the node was found
};

std::int64_t monotonicNanoseconds();

// Exclusive access to the shared state while it lives.
class StateLock {
  public:
    StateLock();
    ~StateLock();
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;

    SharedState* operator->() const { return state_; }
    SharedState& operator*() const { return *state_; }

  private:
    CancelGuard guard_;
    SharedState* state_;
};

// False when the program was not started by hx-sim or its launcher is gone: then there are no
// simulated cameras.
bool stateAttached();

// The configuration never changes after the start and needs no lock.
const CameraConfig& cameraConfig(std::uint32_t index);

// A descriptor of the state with locks of its own, or -errno. Closing it drops them.
int newLockDescriptor();

// Marks node `minor` as held open. Never fails for want of the lock: holders share it.
void holdNode(int lockDescriptor, std::uint32_t minor);

// Tries to become the one user of a camera's stream.
bool tryOwnCamera(int lockDescriptor, const NodeRef& node);
void disownCamera(int lockDescriptor, const NodeRef& node);

// The priorities of V4L2: each open node of a camera has one, and the highest counts.
void setPriorityLevel(int lockDescriptor, const NodeRef& node, std::uint32_t before,
                      std::uint32_t level);
std::uint32_t highestPriority(const NodeRef& node);

// Takes the camera away. The caller holds the lock that `state` came from.
void unplugCamera(SharedState& state, std::uint32_t camera);

// The plugged-in node with this number.
std::optional<NodeRef> findNode(const SharedState& state, std::uint32_t minor);

}  // namespace hx::sim
