// SPDX-License-Identifier: MIT
// The eighteen entries that describe a frame, and its time stamp. Used by both ways of acquisition.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "codec/file_codec.h"

namespace hx {

/// What the entries say.
struct FrameValues {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint8_t depth = 0;
    std::string time;
    std::string cameraId;
    std::uint32_t exposure = 0;
    std::uint32_t gain = 0;
    std::uint32_t specResolution = 0;
};

/// The entries of one frame, with their payloads inside the object and inside `values`: nothing is
/// allocated. `values` must outlive it.
class FrameEntries {
  public:
    static constexpr unsigned short kCount = 18;

    explicit FrameEntries(FrameValues& values);
    FrameEntries(const FrameEntries&) = delete;
    FrameEntries& operator=(const FrameEntries&) = delete;

    FileInfo* first() { return infos_.data(); }

  private:
    void add(FileDataType type, void* payload, std::uint32_t count);
    void addText(std::string& text);

    std::uint16_t mainType_ = Data16;
    std::uint32_t mainOffset_ = 0;
    std::uint32_t pixels_;
    std::uint8_t zero_ = 0;
    std::array<FileInfo, kCount> infos_;
    std::uint16_t used_ = 0;
};

/// Local time now, to the minute, and the milliseconds: "2026-11-21--07-45--123". `text` keeps its
/// memory.
void stampTime(std::string& text);

}  // namespace hx
