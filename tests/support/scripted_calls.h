// SPDX-License-Identifier: MIT
// System calls scripted at link time (-Wl,--wrap): a small world of video nodes that records what
// is asked of it and fails where a test says so.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <linux/videodev2.h>
#include <sys/types.h>

namespace scripted {

/// A call that shall fail: the nth one (from 1) of that name, or each (0).
struct Failure {
    std::string call;
    int nth;
    int error;
};

struct World {
    // The script.
    std::vector<std::string> entries;                    ///< of /dev, in this order
    std::map<std::string, std::string> identifications;  ///< node -> text; others refuse, ENOTTY
    std::map<std::string, std::string> cards;            ///< node -> card name; others refuse
    std::vector<Failure> failures;
    unsigned int granted = 3;           ///< buffers
    std::uint32_t bufferLength = 4096;  ///< bytes of each
    v4l2_queryctrl range{};             ///< of the exposure
    std::int32_t exposure = 156;
    timeval timestamp{};

    // What happened. Names are "open", "close", "mmap", "munmap", "opendir", "closedir", "XU" and
    // the V4L2 requests without their prefix.
    std::vector<std::string> trace;
    std::map<int, std::string> openFds;
    std::map<void*, std::size_t> mappings;
    std::vector<void*> bufferMemory;  ///< by buffer index
    std::vector<off_t> mapOffsets;
    std::deque<unsigned int> queued;
    int openFlags = 0;     ///< of the last open
    v4l2_format format{};  ///< last S_FMT
    v4l2_requestbuffers request{};
    v4l2_buffer buffer{};  ///< last buffer request, as it came in
    v4l2_control control{};

    long count(const std::string& call) const;
};

World& world();
/// A new world. Fails the running test when the old one still holds descriptors or mappings.
void reset();

}  // namespace scripted
