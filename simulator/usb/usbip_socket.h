// SPDX-License-Identifier: MIT
// The device's end of a USB/IP connection: takes the host's requests and sends the answers. Knows
// nothing of what is asked.
#pragma once

#include <linux/usb/ch9.h>

#include <array>
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
    // A request has been read already that receive() has not returned yet.
    bool hasRequest() const { return received_.size() >= kMessageBytes; }

    // `status` is 0 or -errno in the host's numbers. The answer goes out with the next flush();
    // until then `data` must stay as it is.
    void answer(const Submit& request, int status, std::span<const std::byte> data = {});
    void answer(const Unlink& request, int status);
    // False: the host is gone, now or since an earlier call.
    bool flush();

    // Ends the connection. The host has read everything that was sent before it sees the end.
    void finish();

  private:
    static constexpr std::size_t kMessageBytes = 48;

    struct Answer {
        std::array<std::byte, kMessageBytes> message;
        std::span<const std::byte> data;
    };

    bool receiveAtLeast(std::size_t size);

    int descriptor_;
    std::array<std::byte, 4096> buffer_;
    std::vector<std::byte> received_;
    std::vector<Answer> answers_;
    bool lost_ = false;
};

}  // namespace hx::sim::usb
