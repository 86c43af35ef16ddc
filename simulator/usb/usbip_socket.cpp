// SPDX-License-Identifier: MIT
#include "usbip_socket.h"

#include <endian.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>
#include <climits>
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

// Transfers come in bursts: as much is read at once as there is.
bool UsbipSocket::receiveAtLeast(std::size_t size) {
    while (received_.size() < size) {
        const auto count = recv(descriptor_, buffer_.data(), buffer_.size(), 0);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        received_.insert(received_.end(), buffer_.begin(), buffer_.begin() + count);
    }
    return true;
}

std::optional<Request> UsbipSocket::receive() {
    if (!receiveAtLeast(sizeof(Message))) return std::nullopt;
    Message message = {};
    std::memcpy(&message, received_.data(), sizeof message);
    const auto sequence = be32toh(message.sequence);
    const auto command = be32toh(message.command);
    if (command != Command::submit && command != Command::unlink) return std::nullopt;

    Submit request;
    request.sequence = sequence;
    request.in = be32toh(message.direction) == 1;
    request.endpoint = be32toh(message.endpoint);
    request.length = be32toh(message.detail1);
    request.packets = be32toh(message.packets);
    request.setup = message.setup;
    const bool hasData = command == Command::submit && !request.in;
    if (hasData && request.length > kMostOutBytes) return std::nullopt;
    const auto size = sizeof message + (hasData ? request.length : 0);
    if (!receiveAtLeast(size)) return std::nullopt;
    const auto end = received_.begin() + static_cast<std::ptrdiff_t>(size);
    request.data.assign(received_.begin() + sizeof message, end);
    received_.erase(received_.begin(), end);
    if (command == Command::unlink) return Unlink{sequence, be32toh(message.detail0)};
    return request;
}

void UsbipSocket::answer(const Submit& request, int status, Bytes data) {
    Message message = {};
    message.command = htobe32(Command::submitAnswer);
    message.sequence = htobe32(request.sequence);
    message.detail0 = htobe32(static_cast<std::uint32_t>(status));
    const auto used = request.in ? data.size() : request.data.size();
    message.detail1 = htobe32(static_cast<std::uint32_t>(status ? 0 : used));
    message.packets = htobe32(request.packets);
    answers_.push_back({std::bit_cast<std::array<std::byte, kMessageBytes>>(message),
                        request.in && !status ? data : Bytes{}});
}

void UsbipSocket::answer(const Unlink& request, int status) {
    Message message = {};
    message.command = htobe32(Command::unlinkAnswer);
    message.sequence = htobe32(request.sequence);
    message.detail0 = htobe32(static_cast<std::uint32_t>(status));
    answers_.push_back({std::bit_cast<std::array<std::byte, kMessageBytes>>(message), {}});
}

bool UsbipSocket::flush() {
    std::vector<iovec> parts;
    for (const Answer& answer : answers_) {
        parts.push_back(vectorOf(answer.message));
        parts.push_back(vectorOf(answer.data));
    }
    for (std::size_t done = 0; done < parts.size() && !lost_;) {
        msghdr message = {};
        message.msg_iov = &parts[done];
        message.msg_iovlen = std::min<std::size_t>(parts.size() - done, IOV_MAX);
        const auto sent = sendmsg(descriptor_, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        lost_ = sent < 0;
        if (lost_) break;
        auto count = static_cast<std::size_t>(sent);
        while (done < parts.size() && count >= parts[done].iov_len) count -= parts[done++].iov_len;
        if (count == 0) continue;
        parts[done].iov_base = static_cast<std::byte*>(parts[done].iov_base) + count;
        parts[done].iov_len -= count;
    }
    answers_.clear();
    return !lost_;
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
