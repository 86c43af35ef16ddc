// SPDX-License-Identifier: MIT
// The library through its public header on the nodes of a real driver, the simulator steered
// meanwhile. Ends with 1 and a line "FAULT: ..." where something is not as it must be.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "api/hx_camera.h"
#include "codec/hx_container.h"

namespace {

using Clock = std::chrono::steady_clock;

void require(bool holds, const std::string& what) {
    if (!holds) throw std::runtime_error(what);
}

// The simulator's standard input and output, as the guest's first program laid them.
class Simulator {
  public:
    std::string ask(const std::string& line) {
        commands_ << line << std::endl;
        std::string answer;
        std::getline(answers_, answer);
        require(answer.starts_with("ok"), line + ": " + answer);
        return answer;
    }
    unsigned long framesSent() {
        const std::string answer = ask("status 0");
        return std::stoul(answer.substr(answer.find(" frames=") + 8));
    }

  private:
    std::ofstream commands_{"/run/sim.in"};
    std::ifstream answers_{"/run/sim.out"};
};

// Whether these are the samples of an HX01 for the ramp's frame: its word i is i + 257 n, modulo
// 65536. Whole stretches are compared: a callback that takes longer than a frame does gets frames
// that are overwritten while the library reads them.
bool isFrame(const unsigned char* samples, unsigned int number, bool exposureInFrame) {
    constexpr unsigned int kPixels = 1600 * 1200;
    static const std::vector<std::uint16_t> table = [] {
        std::vector<std::uint16_t> all(65536);
        for (unsigned int raw = 0; raw < 65536; ++raw) {
            all[raw] = static_cast<std::uint16_t>((raw & 255) * 4 + (raw >> 8));
        }
        return all;
    }();
    // The first word had to make room for the exposure.
    for (unsigned int i = exposureInFrame ? 1 : 0, length = 0; i < kPixels; i += length) {
        const unsigned int raw = (i + 257 * number) % 65536;
        length = std::min(65536 - raw, kPixels - i);
        if (std::memcmp(samples + 2 * i, &table[raw], 2 * length) != 0) return false;
    }
    return true;
}

// Compares the frames of one stream while they come: none is lost, repeated or mixed.
class Watch {
  public:
    unsigned int count = 0;
    unsigned int wrong = 0;

    static void receive(unsigned char* data, unsigned long size, void* userData) {
        auto& self = *static_cast<Watch*>(userData);
        const std::lock_guard lock(self.mutex_);
        const hx::ContainerView frame(std::as_bytes(std::span(data, size)));
        const bool inFrame = frame.identification().find("-V02.") != std::string_view::npos;
        if (!isFrame(data + 8, self.count, inFrame)) ++self.wrong;
        self.exposure_ = frame.exposure();
        ++self.count;
        self.changed_.notify_all();
    }
    template <typename Condition>
    void awaitThat(Condition holds, const std::string& what) {
        std::unique_lock lock(mutex_);
        require(changed_.wait_for(lock, std::chrono::seconds(20), holds), what);
    }
    void await(unsigned int more) {
        awaitThat([this, wanted = received() + more] { return count >= wanted; }, "no frames");
    }
    // How many frames came until one had this exposure.
    unsigned int awaitExposure(unsigned int exposure) {
        const unsigned int before = received();
        awaitThat([&] { return exposure_ == exposure; }, "an exposure does not show");
        return received() - before;
    }
    unsigned int received() {
        const std::lock_guard lock(mutex_);
        return count;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t exposure_ = 0;
};

// An enumeration; newest node first, so the list runs against the simulator's numbers.
class Cameras {
  public:
    explicit Cameras(unsigned int expected) {
        const int result = enumHxCamera(&list_, &count_);
        require(count_ == expected, "found " + std::to_string(count_) + " cameras");
        require(result == (expected == 0 ? HX_NO_CAMERA : HX_OK), "result of enumHxCamera");
    }
    ~Cameras() {
        if (list_ != nullptr) releaseHxCamera(list_, static_cast<int>(count_));
    }
    Cameras(const Cameras&) = delete;
    Cameras& operator=(const Cameras&) = delete;

    HxCameraContextTag* operator[](unsigned int i) const { return list_[i]; }
    void start(unsigned int i, Watch& watch) const {
        registerHxCameraCallback(list_[i], Watch::receive, &watch);
        require(openHxCamera(list_[i], true) == HX_OK, "openHxCamera");
    }
    void stop(unsigned int i) const { require(closeHxCamera(list_[i]) == HX_OK, "closeHxCamera"); }
    template <typename Value>
    void control(unsigned int i, HxCommand command, Value* value) const {
        require(controlHxCamera(list_[i], command, value) == HX_OK, "controlHxCamera");
    }
    void setExposure(unsigned int i, unsigned int value) const {
        control(i, HX_CMD_SET_EXPOSURE, &value);
    }

  private:
    HxCameraContextTag** list_ = nullptr;
    unsigned int count_ = 0;
};

long openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

long residentKilobytes() {
    std::ifstream status("/proc/self/status");
    const std::string text(std::istreambuf_iterator<char>(status), {});
    return std::stol(text.substr(text.find("VmRSS:") + 6));
}

// What each camera is, and whether it gives a frame.
void look(unsigned int expected) {
    const Cameras cameras(expected);
    for (unsigned int i = 0; i < expected; ++i) {
        const char* name = nullptr;
        unsigned int low = 0;
        unsigned int high = 0;
        unsigned long size = 0;
        cameras.control(i, HX_CMD_NAME, &name);
        cameras.control(i, HX_CMD_EXPOSURE_MIN, &low);
        cameras.control(i, HX_CMD_EXPOSURE_MAX, &high);
        openHxCamera(cameras[i], false);
        cameras.setExposure(i, 100);
        const bool frame = getHxData(cameras[i], &size) != nullptr;
        std::cout << name << ' ' << low << ".." << high << ' '
                  << (frame ? std::to_string(size) + " bytes\n" : "no frame\n");
    }
}

// Until camera 0 sends nothing and its thread has taken all that was sent. Frames of the other one
// give the time for a frame that had begun.
void drain(Simulator& simulator, Watch& watch, Watch& other) {
    simulator.ask("pause 0");
    other.await(3);
    while (watch.received() < simulator.framesSent()) other.await(1);
}

// Brings camera 0 to the moment, and out.
void pullOut(const std::string& moment, Simulator& simulator, const Cameras& cameras, Watch& watch,
             Watch& other) {
    if (moment == "waiting") {
        while (simulator.framesSent() < 20) other.await(1);
    } else {
        cameras.start(1, watch);
        watch.await(3);
        drain(simulator, watch, other);
    }
    if (moment == "blocked" || moment == "waiting") {
        simulator.ask("unplug 0");
        return;
    }
    // Frames count from 0, so this is the next one.
    simulator.ask("unplug 0 " + moment + " " + std::to_string(simulator.framesSent()));
    simulator.ask("resume 0");
    simulator.ask("wait 0");
}

// Camera 0, plugged in again: an exposure that is set while the thread sits in the dequeue shows
// in the next frame.
void comeBack(Simulator& simulator, Watch& watch, Watch& other) {
    std::cout << simulator.ask("plug 0") << '\n';
    const Cameras again(1);
    again.start(0, watch);
    watch.await(5);
    drain(simulator, watch, other);
    again.setExposure(0, 321);
    simulator.ask("resume 0");
    require(watch.awaitExposure(321) == 1, "an exposure shows too late");
    again.stop(0);
    simulator.ask("unplug 0");
}

// Camera 0 goes at the moment and comes back; the other one streams all the time.
void unplug(const std::string& moment) {
    const long descriptors = openDescriptors();
    {
        Simulator simulator;
        Watch lost;
        Watch other;
        Watch back;
        const Cameras first(2);
        first.start(0, other);
        pullOut(moment, simulator, first, lost, other);
        // Time for a thread that would not come to rest.
        other.await(5);

        unsigned long size = 4711;
        first.stop(1);
        require(openHxCamera(first[1], false) == HX_OK, "openHxCamera");
        require(getHxData(first[1], &size) == nullptr && size == 4711, "a frame without a camera");
        first.setExposure(1, 100);
        { const Cameras none(0); }

        comeBack(simulator, back, other);
        other.await(2);
        first.stop(0);
        require(lost.wrong + back.wrong + other.wrong == 0, "wrong frames");
    }
    require(openDescriptors() == descriptors, "descriptors are left open");
}

// A handle's life: opened, controlled while it captures, closed.
void live(const Cameras& cameras, Watch* watches, unsigned int value) {
    for (unsigned int i = 0; i < 2; ++i) cameras.start(i, watches[i]);
    for (unsigned int change = 1; change <= 2; ++change) {
        for (unsigned int i = 0; i < 2; ++i) cameras.setExposure(i, value + change);
        for (unsigned int i = 0; i < 2; ++i) {
            // A ring of frames may have waited, and one was under way.
            require(watches[i].awaitExposure(value + change) <= 21, "an exposure shows too late");
        }
    }
    for (unsigned int i = 0; i < 2; ++i) cameras.stop(i);
}

void endure(unsigned int seconds) {
    unsigned int frames = 0;
    unsigned int wrong = 0;
    long descriptors = 0;
    long memory = 0;
    unsigned int lives = 0;
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    while (lives <= 4 || Clock::now() < end) {
        {
            Watch watches[2];
            const Cameras cameras(2);
            for (int i = 0; i < 2; ++i) live(cameras, watches, 2 + 2 * (lives++ % 4000));
            for (const Watch& watch : watches) {
                frames += watch.count;
                wrong += watch.wrong;
            }
        }
        // The first lives fill what the C library keeps.
        if (lives != 4) continue;
        descriptors = openDescriptors();
        memory = residentKilobytes();
    }
    std::cout << "lives " << lives << ", descriptors " << descriptors << " to " << openDescriptors()
              << ", resident " << memory << " kB to " << residentKilobytes() << " kB, frames "
              << frames << ", wrong " << wrong << '\n';
    require(wrong == 0, "wrong frames");
    require(openDescriptors() == descriptors, "descriptors are left open");
    require(residentKilobytes() - memory < 512, "memory grows");
}

}  // namespace

int main(int argc, char** argv) {
    try {
        require(argc == 3, "usage: hx_system_probe look COUNT | unplug MOMENT | endure SECONDS");
        const std::string what = argv[1];
        if (what == "unplug") {
            unplug(argv[2]);
        } else {
            (what == "look" ? look : endure)(static_cast<unsigned int>(std::stoul(argv[2])));
        }
    } catch (const std::exception& fault) {
        std::cout << "FAULT: " << fault.what() << std::endl;
        // Threads of the library may still call back into what is being left.
        std::_Exit(1);
    }
    return 0;
}
