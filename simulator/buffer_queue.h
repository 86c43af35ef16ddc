// SPDX-License-Identifier: MIT
// Streaming of one open node: the buffer requests of V4L2 and the thread that stands for the
// camera's transfers.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "buffer_ring.h"
#include "frame_source.h"
#include "state_link.h"
#include "token_pipe.h"

namespace hx::sim {

// What a mapping of a buffer is made of; the offset is the program's.
struct BufferPlace {
    OwnedDescriptor memory;
    std::shared_ptr<void> mark;
};

// Results are 0 or -errno. Calls may come from several threads; a dequeue() that waits stands in
// nobody's way.
class BufferQueue {
  public:
    BufferQueue(std::uint32_t camera, TokenPipe& tokens);
    ~BufferQueue();

    int request(v4l2_requestbuffers& argument);
    int create(v4l2_create_buffers& argument);
    int query(v4l2_buffer& argument);
    int queue(v4l2_buffer& argument);
    int dequeue(v4l2_buffer& argument);
    int streamOn();
    int streamOff();
    int place(std::size_t length, int protection, int flags, std::size_t offset,
              BufferPlace& place);
    bool allocated();
    bool streaming();

    // The camera is gone: waiting calls fail, nothing more is filled.
    void hangUp();

  private:
    using Clock = std::chrono::steady_clock;
    using Lock = std::unique_lock<std::mutex>;

    int checkBuffer(const v4l2_buffer& argument) const;
    std::size_t granted(std::size_t wanted) const;
    void stopProducer(Lock& lock);

    std::optional<int> dequeued(int waitResult, std::uint64_t stream, v4l2_buffer& argument);
    int takeFrame(v4l2_buffer& argument);
    void unplug();

    void produce();
    void waitForDemand(Lock& lock);
    void waitForTick(Lock& lock);
    bool mayFill() const;
    bool unplugDue() const;
    void fillNext(Lock& lock, std::uint32_t sequence);

    const std::uint32_t camera_;
    const CameraConfig& config_;
    TokenPipe& tokens_;

    std::mutex setup_;  // held by calls that start, stop or replace; taken before mutex_
    std::mutex mutex_;
    std::condition_variable turn_;
    BufferRing ring_;
    bool streaming_ = false;
    bool stop_ = false;
    bool gone_ = false;
    std::uint64_t streams_ =
        0;  // counts starts, so that a waiting call sees that its stream has ended
    std::size_t waiting_ = 0;  // calls in dequeue()

    bool unplugArmed_ = false;
    std::int64_t filledOfStream_ = 0;
    std::int64_t takenOfCamera_ = 0;
    Clock::time_point lastTaken_;
    Clock::time_point started_;
    std::uint64_t tick_ = 0;

    std::unique_ptr<FrameSource> source_;
    std::thread producer_;
};

}  // namespace hx::sim
