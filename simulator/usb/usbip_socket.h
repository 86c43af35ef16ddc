// SPDX-License-Identifier: MIT
// The device's end of a USB/IP connection: takes the host's requests and sends the answers. Knows
// nothing of what is asked.
#pragma once

#include <linux/usb/ch9.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <variant>
#include <vector>

namespace hx::sim::usb {

// A transfer that waits for its answer.
struct Submit {
    std::uint32_t sequence = 0;
    bool in = false;  // the device sends
    std::uint32_t endpoint = 0;
    std::uint32_t length = 0;   // bytes that the host has room for, or sends
    std::uint32_t packets = 0;  // means something for isochronous transfers only; handed back
    usb_ctrlrequest setup = {};
    std::vector<std::byte> data;  // what the host sends
};

// The host gives up the transfer `victim`.
struct Unlink {
    std::uint32_t sequence = 0;
    std::uint32_t victim = 0;
};

using Request = std::variant<Submit, Unlink>;

class UsbipSocket {
  public:
    // Owns `descriptor`, a connected stream socket.
    explicit UsbipSocket(int descriptor);
    ~UsbipSocket();
    UsbipSocket(const UsbipSocket&) = delete;
    UsbipSocket& operator=(const UsbipSocket&) = delete;

    int descriptor() const { return descriptor_; }

    // Blocks for one request. Nothing: the host has closed, or what it says is no USB/IP.
    std::optional<Request> receive();

    // `status` is 0 or -errno in the host's numbers. False: the host is gone.
    bool answer(const Submit& request, int status, std::span<const std::byte> data = {});
    bool answer(const Unlink& request, int status);

    // Ends the connection. The host has read everything that was sent before it sees the end.
    void finish();

  private:
    bool receiveAll(std::span<std::byte> bytes);
    bool sendAll(std::span<const std::byte> head, std::span<const std::byte> data);

    int descriptor_;
};

}  // namespace hx::sim::usb
