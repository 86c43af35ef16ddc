// SPDX-License-Identifier: MIT
// What CaptureSession and hx-capture-child say to each other: how the child is started, and the
// messages on the control socket (SOCK_SEQPACKET, one record each). Both are built together; this
// is no interface to other programs.
#pragma once

#include <cstdint>
#include <type_traits>

namespace hx::child {

/// Command line: PROGRAM NODE push|pull SLOTS SLOTBYTES EXPOSURE, where NODE is a name below /dev
/// and EXPOSURE is a number or "-" for "leave it".
enum Argument { argNode = 1, argMode, argSlots, argSlotBytes, argExposure, argCount };

constexpr const char* kPush = "push";
constexpr const char* kPull = "pull";
constexpr const char* kKeepExposure = "-";

/// Descriptors that the child finds open.
enum Descriptor {
    fdControl = 3,  ///< socket
    fdRing = 4,     ///< memory of the frame ring
    fdReady = 5,    ///< eventfd, counted up for each frame that was put into the ring
    fdEnd
};

enum class Word : std::uint32_t {
    // to the child
    setExposure,  ///< value: exposure; answered
    getExposure,  ///< answered
    takeFrame,    ///< pull: take one frame now; a frame in the ring or noFrame is the answer
    stop,
    // to the parent
    started,          ///< value: name in `text`, range in `value` and `high`, lamp in `result`
    answer,           ///< value: exposure; result: HxResult of the library
    noCamera,         ///< the library found no camera on the node
    exposureRefused,  ///< the exposure to begin with was refused
    noFrame,          ///< getHxData returned none: the camera was lost
    tooLong,          ///< value: bytes of a container that fits no slot
    threw,            ///< an exception left the library, in `text`
};
constexpr Word kFirstToParent = Word::started;
constexpr Word kLast = Word::threw;

struct Message {
    Word word = Word::stop;
    std::uint32_t id = 0;  ///< of a request, repeated in its answer
    std::uint32_t value = 0;
    std::uint32_t high = 0;
    std::int32_t result = 0;
    char text[108] = {};  ///< NUL-terminated
};
static_assert(std::is_trivially_copyable_v<Message> && sizeof(Message) == 128);

}  // namespace hx::child
