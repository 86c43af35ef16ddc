// SPDX-License-Identifier: MIT
// What a camera tells of itself over USB: its descriptors, and the numbers that its parts have in
// them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/camera_state.h"

namespace hx::sim::usb {

constexpr std::uint8_t kControlInterface = 0;
constexpr std::uint8_t kStreamInterface = 1;

constexpr std::uint8_t kCameraTerminal = 1;
constexpr std::uint8_t kProcessingUnit = 2;
constexpr std::uint8_t kOutputTerminal = 3;
constexpr std::uint8_t kExtensionUnit = 6;
constexpr std::uint8_t kIdentificationSelector = 10;

constexpr std::uint8_t kStreamEndpoint = 1;
constexpr std::uint8_t kConfiguration = 1;
constexpr std::uint8_t kFormatIndex = 1;
constexpr std::uint8_t kFrameIndex = 1;

// In front of each frame: length of the header and its flags.
constexpr std::size_t kPayloadHeaderBytes = 2;

using Bytes = std::vector<std::byte>;

class UsbDescriptors {
  public:
    explicit UsbDescriptors(const CameraConfig& config);

    // Null for one that this device has not. `type` and `index` as in GET_DESCRIPTOR.
    const Bytes* find(std::uint8_t type, std::uint8_t index) const;

    bool operator==(const UsbDescriptors&) const = default;

  private:
    Bytes device_;
    Bytes configuration_;
    std::array<Bytes, 5> strings_;  // by index; an empty one does not exist
};

}  // namespace hx::sim::usb
