// SPDX-License-Identifier: MIT
// The camera as a USB device, judged by a host that this test plays over a socket: what a driver
// does not do, or not at a moment of its own choice. What it does, a real one does in tests/system.
#include <endian.h>
#include <gtest/gtest.h>
#include <linux/usb/ch9.h>
#include <linux/usb/video.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <future>
#include <map>

#include "simulator/usb/usb_camera.h"
#include "simulator/usb/usb_spec.h"

namespace hx::sim::usb {
namespace {

constexpr std::uint8_t kClassIn = USB_DIR_IN | USB_TYPE_CLASS | USB_RECIP_INTERFACE;
constexpr std::uint8_t kClassOut = USB_TYPE_CLASS | USB_RECIP_INTERFACE;
constexpr std::uint16_t kExposure = 0x0100;  // entity in the upper byte, interface in the lower
constexpr std::uint16_t kUnit = 0x0600;
constexpr std::size_t kSmallFrame = 64 * 48 * 2;

using Text = std::vector<std::uint8_t>;

// The host's end. Reads are blocking: a camera that does not answer shows in the test's time limit.
class Host {
  public:
    struct Answer {
        std::uint32_t command = 0;  // 0: the camera is unplugged
        std::uint32_t sequence = 0;
        int status = 0;
        Text data;
    };

    explicit Host(const std::string& keys)
        : camera(parseUsbCamera("HX02-V02.1-1A-L," + keys).config, [this] { left.set_value(); }) {
        plug();
    }
    ~Host() { hangUp(); }

    void plug() {
        std::array<int, 2> ends = {};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        socket_ = ends[0];
        camera.disconnect();
        left = {};
        camera.connect(ends[1]);
    }
    void hangUp() {
        if (socket_ >= 0) close(socket_);
        socket_ = -1;
    }

    // Words 5 to 9 of a message, then the setup bytes.
    std::uint32_t send(std::uint32_t command, bool in, std::uint32_t endpoint,
                       std::array<std::uint32_t, 5> words, const Text& setup = {},
                       const Text& data = {}) {
        std::array<std::uint32_t, 12> message = {command, ++sequence_, 1, in, endpoint};
        std::copy(words.begin(), words.end(), message.begin() + 5);
        for (auto& word : message) word = htobe32(word);
        if (!setup.empty()) std::memcpy(&message[10], setup.data(), 8);
        EXPECT_EQ(write(socket_, message.data(), sizeof message), 48);
        EXPECT_EQ(write(socket_, data.data(), data.size()), static_cast<ssize_t>(data.size()));
        incoming_[sequence_] = in;
        return sequence_;
    }

    std::uint32_t bulk(std::uint32_t length) { return send(1, true, 1, {0, length}); }
    std::uint32_t unlink(std::uint32_t victim) { return send(2, false, 0, {victim}); }

    Answer receive() {
        std::array<std::uint32_t, 12> message = {};
        if (recv(socket_, message.data(), sizeof message, MSG_WAITALL) != 48) return {};
        for (auto& word : message) word = be32toh(word);
        Answer answer = {message[0], message[1], static_cast<int>(message[5]), {}};
        if (message[0] == 3 && incoming_[message[1]]) answer.data.resize(message[6]);
        if (answer.data.empty()) return answer;
        const auto size = static_cast<ssize_t>(answer.data.size());
        EXPECT_EQ(recv(socket_, answer.data.data(), answer.data.size(), MSG_WAITALL), size);
        return answer;
    }

    Answer control(std::uint8_t type, std::uint8_t request, std::uint16_t value,
                   std::uint16_t index, std::uint16_t length, const Text& data = {}) {
        const auto low = [](std::uint16_t word) { return static_cast<std::uint8_t>(word); };
        const auto high = [](std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); };
        const Text setup = {type,       request,     low(value),  high(value),
                            low(index), high(index), low(length), high(length)};
        const auto sent = send(1, type & USB_DIR_IN, 0, {0, length}, setup, data);
        const Answer answer = receive();
        EXPECT_EQ(answer.sequence, sent);
        return answer;
    }

    std::int64_t number(std::uint8_t request, std::uint16_t selector, std::uint16_t index,
                        std::uint16_t length) {
        const auto value16 = static_cast<std::uint16_t>(selector << 8);
        const auto answer = control(kClassIn, request, value16, index, length);
        if (answer.status) return answer.status;
        std::uint32_t value = 0;
        std::memcpy(&value, answer.data.data(), std::min<std::size_t>(answer.data.size(), 4));
        return value;
    }
    std::int64_t refusal() { return number(UVC_GET_CUR, 2, 0, 1); }
    int setExposure(std::uint8_t low, std::uint8_t high) {
        return control(kClassOut, UVC_SET_CUR, 0x0400, kExposure, 4, {low, high, 0, 0}).status;
    }
    void commit() {
        const Text wish(34);
        EXPECT_EQ(control(kClassOut, UVC_SET_CUR, 0x0200, 1, 34, wish).status, 0);
    }
    // Gives up a transfer; false: it has been answered, or is being.
    bool waited(std::uint32_t transfer) {
        EXPECT_EQ(number(UVC_GET_LEN, 10, kUnit, 2), 32) << "all before is dealt with";
        unlink(transfer);
        const auto answer = receive();
        return answer.command == 4 && answer.status == -104;
    }

    std::promise<void> left;
    UsbCamera camera;

  private:
    int socket_ = -1;
    std::uint32_t sequence_ = 0;
    std::map<std::uint32_t, bool> incoming_;
};

TEST(SimUsb, CardNameIsProductAndFunction) {
    Host host("card=Lab: Two");
    const auto text = [&](std::uint16_t index) {
        return host.control(USB_DIR_IN, USB_REQ_GET_DESCRIPTOR, 0x0300 | index, 0x409, 255);
    };
    EXPECT_EQ(text(2).data, (Text{8, 3, 'L', 0, 'a', 0, 'b', 0}));
    EXPECT_EQ(text(4).data, (Text{8, 3, 'T', 0, 'w', 0, 'o', 0}));
    EXPECT_EQ(text(3).status, kStall) << "no serial number";
}

TEST(SimUsb, ExposureKeepsItsRangeAndItsRefusals) {
    Host host("exposure=2:900:300");
    EXPECT_EQ(host.number(UVC_GET_DEF, 4, kExposure, 4), 300);
    EXPECT_EQ(host.setExposure(0x84, 3), 0) << "900";
    EXPECT_EQ(host.setExposure(0x85, 3), kStall);
    EXPECT_EQ(host.refusal(), 4);
    EXPECT_EQ(host.number(UVC_GET_CUR, 4, kExposure, 4), 900);
    EXPECT_EQ(host.refusal(), 0) << "not of the last request";

    CameraSpec spec = parseUsbCamera("X,exposure=2:900:300,exposure=refuse:EBUSY");
    EXPECT_TRUE(host.camera.change(spec.config)) << "may change at any time";
    EXPECT_EQ(host.setExposure(7, 0), kStall);
    EXPECT_EQ(host.refusal(), 1);
    for (const char* key : {"exposure=1:900:300", "exposure=2:901:300", "exposure=none",
                            "xu=absent", "xu=length:3", "format=64x48", "serial=7"}) {
        CameraSpec other = spec;
        changeUsbCamera(other, key);
        EXPECT_FALSE(host.camera.change(other.config)) << key << ": the driver has asked for it";
    }

    Host held("auto-exposure=held");
    EXPECT_EQ(held.setExposure(7, 0), kStall);
    EXPECT_EQ(held.refusal(), 2);
    EXPECT_EQ(held.control(kClassOut, UVC_SET_CUR, 0x0200, kExposure, 1, {1}).status, 0);
    EXPECT_EQ(held.setExposure(7, 0), 0);
}

TEST(SimUsb, UnlinkedTransfersAreNeverAnswered) {
    Host host("format=64x48,rate=0,xu=slow:3600");
    host.bulk(512);
    EXPECT_TRUE(host.waited(host.bulk(512)));
    host.commit();
    const Text first = host.receive().data;
    ASSERT_EQ(first.size(), 512U) << "the first still waited";
    EXPECT_FALSE(host.waited(1)) << "it was answered before";

    host.camera.pause(true);
    Text rest;
    while (rest.size() < kSmallFrame + 2 - 512) {
        host.bulk(512);
        const auto part = host.receive().data;
        rest.insert(rest.end(), part.begin(), part.end());
    }
    const Text ask = {kClassIn, UVC_GET_CUR, 0, 10, 0, 6, 32, 0};
    for (const auto waiting : {host.bulk(512), host.send(1, true, 0, {0, 32}, ask)}) {
        EXPECT_TRUE(host.waited(waiting));
        EXPECT_FALSE(host.waited(waiting)) << "forgotten";
    }
    host.camera.pause(false);
    host.bulk(16384);
    const Text second = host.receive().data;
    ASSERT_EQ(second.size(), kSmallFrame + 2);
    EXPECT_EQ(second[1] ^ first[1], UVC_STREAM_FID) << "of the next frame";
    EXPECT_EQ(host.control(USB_RECIP_ENDPOINT, USB_REQ_CLEAR_FEATURE, 0, 0x81, 0).status, 0);
    EXPECT_TRUE(host.waited(host.bulk(512))) << "the stream has ended";
}

TEST(SimUsb, UnplugsAtItsMomentAndComesBackAsNew) {
    struct {
        const char* moment;
        std::size_t bytes;
    } rows[] = {{"1", kSmallFrame + 2},
                {"1:waiting", kSmallFrame + 2},
                {"0:mid-frame", kSmallFrame / 2 + 1},
                {"1:mid-frame", kSmallFrame + 2 + kSmallFrame / 2 + 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.moment);
        Host host(std::string("format=64x48,rate=0,unplug=") + row.moment);
        EXPECT_EQ(host.setExposure(9, 0), 0);
        host.commit();
        for (int i = 0; i < 16; ++i) host.bulk(1025);
        std::size_t bytes = 0;
        for (auto part = host.receive(); part.command; part = host.receive()) {
            bytes += part.data.size();
        }
        EXPECT_GE(bytes, row.bytes);
        EXPECT_LE(bytes, row.bytes + 1025);
        host.hangUp();
        host.left.get_future().wait();
        EXPECT_FALSE(host.camera.connected());
        EXPECT_TRUE(host.camera.status().leftAsPlanned);
        host.plug();
        EXPECT_EQ(host.number(UVC_GET_CUR, 4, kExposure, 4), 156);
    }
}

TEST(SimUsb, KeysThatMeanNothingOverUsbAreErrors) {
    for (const char* key :
         {"node=1", "ring=3", "access=denied", "fault=QBUF:1=EIO", "format=refuse",
          "unplug=3:taken", "xu=refuse:ENOENT", "exposure=refuse:EACCES", "card=\\xe4"}) {
        EXPECT_THROW(parseUsbCamera(std::string("X,") + key), SpecError) << key;
    }
    EXPECT_THROW(parseCamera("X,unplug=3:mid-frame"), SpecError);
}

}  // namespace
}  // namespace hx::sim::usb
