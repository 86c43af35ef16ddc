// SPDX-License-Identifier: MIT
#include "steering.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace hx::sim::usb {

namespace {

[[noreturn]] void fail(const std::string& message) {
    throw std::runtime_error(message);
}

std::int64_t numberFrom(const std::string& text) {
    std::int64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    if (error != std::errc{} || stop != end || number < 0 || number > kMost) {
        fail(fmt::format("'{}' is no number from 0 to {}", text, kMost));
    }
    return number;
}

}  // namespace

struct Steering::Order {
    const char* name;
    const char* form;  // of what follows the name
    const char* meaning;
    std::size_t fewest;
    std::size_t most;  // words, with the name
    Answer (Steering::*carryOut)(const Words&);
};

const std::vector<Steering::Order>& Steering::orders() {
    static const std::vector<Order> kOrders = {
        {"unplug", "N [after-frame K | mid-frame K]",
         "unplugs camera N: now, just after frame K of the stream, or in its middle", 2, 4,
         &Steering::unplug},
        {"plug", "N", "plugs it in again", 2, 2, &Steering::plug},
        {"pause", "N", "no frame begins", 2, 2, &Steering::pause},
        {"resume", "N", "frames come again", 2, 2, &Steering::resume},
        {"set", "N KEY=VALUE",
         "changes the camera; what the driver asks only once, while it is unplugged", 3,
         std::numeric_limits<std::size_t>::max(), &Steering::set},
        {"status", "N", "tells how it stands", 2, 2, &Steering::status},
        {"wait", "N", "answers when camera N has left as `unplug` or its keys say", 2, 2,
         &Steering::wait},
        {"help", "", "lists the orders", 1, 1, &Steering::help},
        {"quit", "", "unplugs all cameras and ends", 1, 1, &Steering::quit},
    };
    return kOrders;
}

Steering::Answer Steering::answer(const std::string& line) {
    std::istringstream stream(line);
    const Words words{std::istream_iterator<std::string>(stream), {}};
    try {
        const Answer done = carryOut(words);
        return done ? "ok " + *done : done;
    } catch (const std::exception& error) {
        return fmt::format("error {}", error.what());
    }
}

Steering::Answer Steering::carryOut(const Words& words) {
    if (words.empty()) fail("an empty line; see help");
    const auto& known = orders();
    const auto order = std::find_if(known.begin(), known.end(), [&](const Order& candidate) {
        return words[0] == candidate.name;
    });
    if (order == known.end()) fail(fmt::format("'{}' is no order; see help", words[0]));
    if (words.size() < order->fewest || words.size() > order->most) {
        fail(fmt::format("use: {} {}", order->name, order->form));
    }
    return (this->*order->carryOut)(words);
}

CameraBay& Steering::bayOf(const Words& words) {
    const auto number = static_cast<std::size_t>(numberFrom(words[1]));
    if (number >= bays_.size()) fail(fmt::format("there is no camera {}", number));
    return *bays_[number];
}

CameraBay& Steering::pluggedBayOf(const Words& words) {
    CameraBay& bay = bayOf(words);
    if (!bay.plugged()) fail(fmt::format("camera {} is not plugged in", bay.number()));
    return bay;
}

Steering::Answer Steering::plug(const Words& words) {
    CameraBay& bay = bayOf(words);
    if (bay.plugged()) fail(fmt::format("camera {} is plugged in", bay.number()));
    return bay.plug();
}

Steering::Answer Steering::unplug(const Words& words) {
    CameraBay& bay = pluggedBayOf(words);
    if (words.size() == 2) {
        bay.unplug();
        return fmt::format("camera {} unplugged", bay.number());
    }
    const bool after = words[2] == "after-frame";
    if (words.size() != 4 || (!after && words[2] != "mid-frame")) {
        fail("use: unplug N [after-frame K | mid-frame K]");
    }
    const auto frame = numberFrom(words[3]);
    // `frame` counts from 0, unplugAt() whole frames.
    const bool planned = after ? bay.camera().unplugAt(frame + 1, UnplugMoment::waiting)
                               : bay.camera().unplugAt(frame, UnplugMoment::middle);
    if (!planned) fail(fmt::format("frame {} of the stream is over", frame));
    return fmt::format("camera {} goes {} {}", bay.number(), words[2], frame);
}

Steering::Answer Steering::pause(const Words& words) {
    CameraBay& bay = pluggedBayOf(words);
    bay.camera().pause(true);
    return fmt::format("camera {} pauses", bay.number());
}

Steering::Answer Steering::resume(const Words& words) {
    CameraBay& bay = pluggedBayOf(words);
    bay.camera().pause(false);
    return fmt::format("camera {} sends", bay.number());
}

Steering::Answer Steering::set(const Words& words) {
    CameraBay& bay = bayOf(words);
    std::string text = words[2];
    for (std::size_t i = 3; i < words.size(); ++i) text += " " + words[i];
    bay.change(text);
    return fmt::format("camera {} {}", bay.number(), text);
}

Steering::Answer Steering::status(const Words& words) {
    return bayOf(words).status();
}

Steering::Answer Steering::wait(const Words& words) {
    const CameraBay& bay = bayOf(words);
    if (bay.plugged()) return std::nullopt;
    return bay.status();
}

Steering::Answer Steering::quit(const Words&) {
    ended_ = true;
    return "quits";
}

Steering::Answer Steering::help(const Words&) {
    std::string text;
    for (const Order& order : orders()) {
        text += fmt::format("{}{} {}", text.empty() ? "" : "; ", order.name, order.form);
    }
    return text;
}

std::string Steering::orderHelp() {
    std::string text;
    for (const Order& order : orders()) {
        text += fmt::format("  {} {}\n        {}\n", order.name, order.form, order.meaning);
    }
    return text;
}

}  // namespace hx::sim::usb
