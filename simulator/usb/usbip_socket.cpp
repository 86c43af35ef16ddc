// SPDX-License-Identifier: MIT
#include "usbip_socket.h"

#include <endian.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace hx::sim::usb {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// Numbers and layout of the messages as the kernel has them in drivers/usb/usbip; it exports no
// header of them. All fields are big-endian.
enum Command : std::uint32_t { submit = 1, unlink = 2, submitAnswer = 3, unlinkAnswer = 4 };

struct Message {
    std::uint32_t command;
    std::uint32_t sequence;
    std::uint32_t device;
    std::uint32_t direction;  // 1: to the host
    std::uint32_t endpoint;
    // What follows depends on the command:
    std::uint32_t detail0;  // transfer flags; status of an answer; sequence to be unlinked
    std::uint32_t detail1;  // length of the buffer; length that was used
    std::uint32_t detail2;  // first frame
    std::uint32_t packets;
    std::uint32_t detail4;  // interval; count of errors
    usb_ctrlrequest setup;
};
static_assert(sizeof(Message) == 48);

// Only control transfers send to the device; their length has 16 bits.
constexpr std::uint32_t kMostOutBytes = 65535;

// A host that does not read for so long is taken for gone.
constexpr time_t kSendPatience = 10;
constexpr milliseconds kFinishPatience{2000};

using Bytes = std::span<const std::byte>;

template <typename Value>
Bytes bytesOf(const Value& value) {
    return std::as_bytes(std::span(&value, 1));
}

iovec vectorOf(Bytes bytes) {
    return {const_cast<std::byte*>(bytes.data()), bytes.size()};
}

}  // namespace

UsbipSocket::UsbipSocket(int descriptor) : descriptor_(descriptor) {
    const timeval patience = {kSendPatience, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

UsbipSocket::~UsbipSocket() {
    close(descriptor_);
}

bool UsbipSocket::receiveAll(std::span<std::byte> bytes) {
    while (!bytes.empty()) {
        const auto count = recv(descriptor_, bytes.data(), bytes.size(), MSG_WAITALL);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

std::optional<Request> UsbipSocket::receive() {
    Message message = {};
    if (!receiveAll(std::as_writable_bytes(std::span(&message, 1)))) return std::nullopt;
    const auto sequence = be32toh(message.sequence);
    const auto command = be32toh(message.command);
    if (command == Command::unlink) return Unlink{sequence, be32toh(message.detail0)};
    if (command != Command::submit) return std::nullopt;

    Submit request;
    request.sequence = sequence;
    request.in = be32toh(message.direction) == 1;
    request.endpoint = be32toh(message.endpoint);
    request.length = be32toh(message.detail1);
    request.packets = be32toh(message.packets);
    request.setup = message.setup;
    if (!request.in) {
        if (request.length > kMostOutBytes) return std::nullopt;
        request.data.resize(request.length);
        if (!receiveAll(request.data)) return std::nullopt;
    }
    return request;
}

bool UsbipSocket::sendAll(Bytes head, Bytes data) {
    while (!head.empty() || !data.empty()) {
        std::array parts = {vectorOf(head), vectorOf(data)};
        msghdr message = {};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        const auto sent = sendmsg(descriptor_, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        const auto count = static_cast<std::size_t>(sent);
        const auto ofHead = std::min(count, head.size());
        head = head.subspan(ofHead);
        data = data.subspan(count - ofHead);
    }
    return true;
}

bool UsbipSocket::answer(const Submit& request, int status, Bytes data) {
    Message message = {};
    message.command = htobe32(Command::submitAnswer);
    message.sequence = htobe32(request.sequence);
    message.detail0 = htobe32(static_cast<std::uint32_t>(status));
    const auto used = request.in ? data.size() : request.data.size();
    message.detail1 = htobe32(static_cast<std::uint32_t>(status ? 0 : used));
    message.packets = htobe32(request.packets);
    return sendAll(bytesOf(message), request.in ? data : Bytes{});
}

bool UsbipSocket::answer(const Unlink& request, int status) {
    Message message = {};
    message.command = htobe32(Command::unlinkAnswer);
    message.sequence = htobe32(request.sequence);
    message.detail0 = htobe32(static_cast<std::uint32_t>(status));
    return sendAll(bytesOf(message), {});
}

// Only our sending half is shut: the host reads to the end of what was sent, then closes. Closing
// at once would let it fail in its next request and drop what it has not read yet.
void UsbipSocket::finish() {
    shutdown(descriptor_, SHUT_WR);
    const auto end = Clock::now() + kFinishPatience;
    std::array<std::byte, 4096> ignored;
    for (;;) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
        pollfd readable = {descriptor_, POLLIN, 0};
        if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0) return;
        if (recv(descriptor_, ignored.data(), ignored.size(), 0) <= 0) return;
    }
}

}  // namespace hx::sim::usb
