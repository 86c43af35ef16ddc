// SPDX-License-Identifier: MIT
#include "vhci_port.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/usb/ch9.h>
#include <linux/usbip.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "unique_descriptor.h"

namespace hx::sim::usb {

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr const char* kController = "/sys/devices/platform/vhci_hcd.0";

constexpr std::size_t kNodesOfCamera = 2;
constexpr std::chrono::seconds kPatience{10};

// sysfs tells of no changes; it has to be looked at.
constexpr milliseconds kLook{10};

[[noreturn]] void fail(const std::string& message) {
    throw std::runtime_error(message);
}

bool awaitThat(const std::function<bool()>& holds) {
    const auto end = Clock::now() + kPatience;
    while (!holds()) {
        if (Clock::now() > end) return false;
        std::this_thread::sleep_for(kLook);
    }
    return true;
}

struct PortState {
    unsigned port = 0;
    bool free = false;
};

// The ports of the high-speed half of the controller, in the order of their numbers. A line is
// "hs 0000 004 ...": kind, number, state.
std::vector<PortState> highSpeedPorts() {
    std::ifstream file(fs::path(kController) / "status");
    if (!file) fail("no virtual USB host controller; as root: modprobe vhci-hcd");
    std::vector<PortState> ports;
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        std::string kind;
        PortState state;
        int status = 0;
        if (!(words >> kind >> state.port >> status) || kind != "hs") continue;
        state.free = status == VDEV_ST_NULL;
        ports.push_back(state);
    }
    return ports;
}

// usbN below the controller, the one of the two that runs at high speed.
fs::path highSpeedBus() {
    for (const auto& entry : fs::directory_iterator(kController)) {
        const std::string name = entry.path().filename();
        if (!name.starts_with("usb")) continue;
        std::string speed;
        std::ifstream(entry.path() / "speed") >> speed;
        if (speed == "480") return entry.path();
    }
    fail(fmt::format("{} has no high-speed bus", kController));
}

void writeAttach(const std::string& text) {
    const auto path = fs::path(kController) / "attach";
    const UniqueDescriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (file.get() < 0 && errno == EACCES) fail("no right to plug devices in; run as root");
    if (file.get() < 0) fail(fmt::format("{}: {}", path.string(), std::strerror(errno)));
    if (write(file.get(), text.data(), text.size()) < 0) {
        fail(fmt::format("cannot plug in ({}): {}", text, std::strerror(errno)));
    }
}

}  // namespace

VhciPort::VhciPort(int socket, unsigned number) {
    const auto ports = highSpeedPorts();
    const auto found =
        std::find_if(ports.begin(), ports.end(), [](const PortState& state) { return state.free; });
    if (found == ports.end()) fail("every port of the virtual USB host controller is taken");
    port_ = found->port;
    const auto bus = highSpeedBus();
    // Bus usb1 has its devices in 1-1, 1-2 and so on.
    const auto busNumber = bus.filename().string().substr(3);
    folder_ = bus / fmt::format("{}-{}", busNumber, found - ports.begin() + 1);
    constexpr unsigned kBusOfOtherHost = 1;
    writeAttach(fmt::format("{} {} {} {}", port_, socket, kBusOfOtherHost << 16 | (number + 1),
                            static_cast<int>(USB_SPEED_HIGH)));
}

std::vector<std::string> VhciPort::nodes() const {
    const auto videos = folder_ / (folder_.filename().string() + ":1.0") / "video4linux";
    std::vector<std::string> names;
    std::error_code absent;
    for (const auto& entry : fs::directory_iterator(videos, absent)) {
        names.push_back("/dev/" + entry.path().filename().string());
    }
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return std::pair(a.size(), a) < std::pair(b.size(), b);
    });
    return names;
}

std::vector<std::string> VhciPort::awaitNodes() const {
    std::vector<std::string> found;
    const bool complete = awaitThat([&] {
        found = nodes();
        return found.size() >= kNodesOfCamera &&
               std::all_of(found.begin(), found.end(), [](const std::string& name) {
                   std::error_code absent;
                   return fs::exists(name, absent);
               });
    });
    if (!complete) {
        fail(fmt::format("{} has {} of {} video nodes after {} s; is the module uvcvideo there?",
                         device(), found.size(), kNodesOfCamera, kPatience.count()));
    }
    return found;
}

bool VhciPort::isFree() const {
    const auto ports = highSpeedPorts();
    return std::any_of(ports.begin(), ports.end(), [this](const PortState& state) {
        return state.port == port_ && state.free;
    });
}

bool VhciPort::awaitGone() const {
    return awaitThat([this] {
        std::error_code absent;
        return !fs::exists(folder_, absent) && isFree();
    });
}

}  // namespace hx::sim::usb
