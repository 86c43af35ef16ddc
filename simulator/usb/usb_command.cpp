// SPDX-License-Identifier: MIT
#include "usb_command.h"

#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "camera_bay.h"
#include "steering.h"
#include "unique_descriptor.h"
#include "usb_spec.h"

namespace hx::sim::usb {

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

int opened(int descriptor, const char* what) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), what);
    return descriptor;
}

void say(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

// Standard output has one line for each order, whatever else happens.
void report(const std::string& news) {
    std::fprintf(stderr, "hx-sim usb: %s\n", news.c_str());
}

// Signals that end the command are read like everything else that it waits for.
int endingSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, number);
    // Before any thread is made, so that none of them takes the signals.
    sigprocmask(SIG_BLOCK, &set, nullptr);
    // A reader of our answers who is gone shows in write; cameras stay.
    signal(SIGPIPE, SIG_IGN);
    return opened(signalfd(-1, &set, SFD_CLOEXEC), "signalfd");
}

class UsbCommand {
  public:
    explicit UsbCommand(const std::vector<CameraSpec>& specs);
    // Until it is told to end.
    void run();

  private:
    using Clock = CameraBay::Clock;

    void settle();
    void readOrders();
    void carryOutOrders();
    int timeLeft() const;

    UniqueDescriptor signals_;
    UniqueDescriptor departures_;
    CameraBays bays_;
    Steering steering_;
    bool ordersEnded_ = false;
    std::string orders_;  // lines that wait, and the beginning of one
};

UsbCommand::UsbCommand(const std::vector<CameraSpec>& specs)
    : signals_(endingSignals()),
      departures_(opened(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      steering_(bays_) {
    for (const CameraSpec& spec : specs) {
        const auto left = [this] { eventfd_write(departures_.get(), 1); };
        const auto number = static_cast<unsigned>(bays_.size());
        bays_.push_back(std::make_unique<CameraBay>(number, spec, left));
    }
}

// Cameras that have left, and cameras whose time to come back it is.
void UsbCommand::settle() {
    for (const auto& bay : bays_) {
        try {
            const auto news = bay->settle();
            if (!news.empty()) report(news);
            // One that has just left is first seen away by who waits for it.
            const auto due = news.empty() ? bay->returnTime() : std::nullopt;
            if (due && *due <= Clock::now()) report(bay->plug() + " plugged in again");
        } catch (const std::exception& error) {
            report(error.what());
        }
    }
}

// The end of the input is no order.
void UsbCommand::readOrders() {
    std::array<char, 4096> text;
    const auto count = read(STDIN_FILENO, text.data(), text.size());
    if (count < 0 && errno == EINTR) return;
    if (count <= 0) {
        ordersEnded_ = true;
        return;
    }
    orders_.append(text.data(), static_cast<std::size_t>(count));
}

void UsbCommand::carryOutOrders() {
    for (auto end = orders_.find('\n'); end != std::string::npos && !steering_.ended();
         end = orders_.find('\n')) {
        const auto answer = steering_.answer(orders_.substr(0, end));
        if (!answer) return;
        say(*answer);
        orders_.erase(0, end + 1);
    }
}

int UsbCommand::timeLeft() const {
    std::optional<Clock::time_point> first;
    for (const auto& bay : bays_) {
        const auto due = bay->returnTime();
        if (due && (!first || *due < *first)) first = due;
    }
    if (!first) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*first - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, 60'000));
}

void UsbCommand::run() {
    // One after the other, so that the numbers of the nodes are in the cameras' order.
    for (const auto& bay : bays_) say("ready " + bay->plug());
    while (!steering_.ended()) {
        std::array<pollfd, 3> watched = {{{signals_.get(), POLLIN, 0},
                                          {departures_.get(), POLLIN, 0},
                                          {ordersEnded_ ? -1 : STDIN_FILENO, POLLIN, 0}}};
        if (poll(watched.data(), watched.size(), timeLeft()) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (watched[0].revents) break;
        eventfd_t count = 0;
        if (watched[1].revents) eventfd_read(departures_.get(), &count);
        settle();
        if (watched[2].revents) readOrders();
        carryOutOrders();
    }
    for (const auto& bay : bays_) bay->unplug();
}

std::string footer() {
    return fmt::format(
        "Needs root and the kernel's modules vhci-hcd and uvcvideo. Each camera is announced by "
        "a line\n\"ready camera N port P usb ID NODES\" on standard output.\n\n"
        "A camera is IDENTIFICATION[,KEY=VALUE...], or @FILE[,KEY=VALUE...]; see hx-sim --help. "
        "Keys,\nwith their defaults:\n{}\n"
        "Lines on standard input steer the cameras; each is answered by a line, \"ok ...\" or\n"
        "\"error ...\". What happens by itself is told on standard error. Orders:\n{}\n"
        "Ends with 0 after quit, SIGINT or SIGTERM, with 1 when a camera cannot be plugged in, "
        "and\nwith 2 for a wrong option. The end of the input does not end it.\n",
        keyHelp(FrontEnd::usb), Steering::orderHelp());
}

}  // namespace

int runUsb(int argc, char** argv) {
    std::vector<CameraSpec> specs;
    CLI::App app("Plugs simulated cameras into this machine's kernel, as USB devices.",
                 "hx-sim usb");
    app.footer(footer());
    app.add_option_function<std::string>(
           "--camera",
           [&](const std::string& text) {
               try {
                   specs.push_back(parseUsbCamera(text));
               } catch (const SpecError& error) {
                   throw CLI::ValidationError("--camera " + text, error.what());
               }
           },
           "add a camera (repeatable)")
        ->trigger_on_parse()
        ->required()
        ->type_name("SPEC");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& wish) {
        return app.exit(wish);
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "hx-sim usb: %s\nRun with --help for more.\n", error.what());
        return kUsage;
    }
    try {
        UsbCommand(specs).run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "hx-sim usb: %s\n", error.what());
        return kFailed;
    }
    return 0;
}

}  // namespace hx::sim::usb
