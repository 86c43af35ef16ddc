// SPDX-License-Identifier: MIT
// Answers the video class's control requests of a camera: exposure, identification, and the
// negotiation of the stream.
#pragma once

#include <linux/usb/ch9.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "simulator/camera_state.h"
#include "usb_descriptors.h"

namespace hx::sim::usb {

struct Reply {
    int status = 0;  // 0 or -EPIPE, which is a stall
    Bytes data;      // may be longer than what was asked for
    double delay = 0;
    bool commits = false;  // the host takes the stream as negotiated, which starts it
};

constexpr int kStall = -32;  // EPIPE as Linux numbers it, which USB/IP speaks on every machine

// The code by which a camera refuses a control so that the driver makes `error` of it, if there is
// one.
std::optional<std::uint8_t> refusalCode(int error);

class UvcControl {
  public:
    // `camera` stays the caller's, who may change it between requests.
    explicit UvcControl(Camera& camera) : camera_(camera) {}

    // A class request to one of the two interfaces; `data` is what the host sends with it.
    Reply handle(const usb_ctrlrequest& setup, std::span<const std::byte> data);

  private:
    struct Number;

    Reply answerNumber(std::uint8_t request, const Number& number) const;
    Reply exposureTime(std::uint8_t request, std::span<const std::byte> data);
    Reply exposureMode(std::uint8_t request, std::span<const std::byte> data);
    Reply identification(std::uint8_t request) const;
    Reply currentIdentification() const;
    Reply negotiation(std::uint8_t selector, std::uint8_t request,
                      std::span<const std::byte> data) const;
    Reply dispatch(const usb_ctrlrequest& setup, std::span<const std::byte> data);

    Camera& camera_;
    std::uint8_t refusal_ = 0;  // why the last request was refused
};

}  // namespace hx::sim::usb
