// SPDX-License-Identifier: MIT
// What the tests of simulated nodes share: declaring cameras, and a thin hold on a node.
#pragma once

#include <gtest/gtest.h>
#include <linux/usb/video.h>
#include <linux/uvcvideo.h>
#include <linux/videodev2.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace simtest {

constexpr std::uint32_t kFrameBytes = 3840000;

// A camera that the test program gets from hx-sim. Each test has its own, so that none sees what
// another one did.
class SimCamera {
  public:
    // `keys` follow the identification, e.g. "rate=0,ring=3".
    explicit SimCamera(const std::string& keys = "",
                       const std::string& identification = "HX02-V02.1-12345A-L");

    std::string name() const { return "video" + std::to_string(number_); }
    std::string path() const { return "/dev/" + name(); }
    std::string metadataName() const { return "video" + std::to_string(number_ + 1); }
    std::string metadataPath() const { return "/dev/" + metadataName(); }

  private:
    std::size_t number_;
};

std::vector<std::string> namesInDev();
bool inDev(const std::string& name);

// Runs `work` in a forked child and returns what it returned: 0 to 255.
int inChild(const std::function<int()>& work);

// A descriptor with the ring mapped through it. Calls return 0 or the errno, so that a test reads
// as a table.
class Node {
  public:
    explicit Node(const std::string& path, int flags = 0);
    ~Node();
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    int fd() const { return fd_; }
    int openError() const { return openError_; }
    void close();

    template <typename Argument>
    int call(unsigned long request, Argument* argument) {
        return callRaw(request, argument);
    }

    int setFormat();
    // Returns the count that was granted, or the negative errno.
    int requestBuffers(std::uint32_t count);
    int queue(std::uint32_t index);
    int dequeue(v4l2_buffer& buffer);
    int streamOn();
    int streamOff();
    int setExposure(std::int32_t value);
    int exposure();
    int identify(std::string& text);

    // Maps one more buffer.
    int map(std::uint32_t index);
    void unmapAll();
    std::span<const std::uint16_t> words(std::uint32_t index) const;

    // Format, ring, mappings, every buffer queued and the stream on; 0 or the first errno.
    int start(std::uint32_t count);
    // Waits for a frame; false after a generous time.
    bool readable(int milliseconds = 20000) const;

  private:
    int callRaw(unsigned long request, void* argument);

    int fd_ = -1;
    int openError_ = 0;
    std::vector<std::span<std::byte>> maps_;
};

// Word i of frame f in the ramp.
inline std::uint16_t rampWord(std::size_t i, std::uint32_t sequence) {
    return static_cast<std::uint16_t>(i + std::size_t{257} * sequence);
}

// The first word from `from` on that is not the ramp's, or nothing.
std::string rampFault(std::span<const std::uint16_t> words, std::uint32_t sequence,
                      std::size_t from);

}  // namespace simtest
