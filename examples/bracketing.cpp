// SPDX-License-Identifier: MIT
// Exposure bracketing while the camera runs: stores one frame for each exposure, as
// bracket-EXPOSURE.hxc:  bracketing EXPOSURE...
//
// A setting takes a few frames to arrive: frames that were under way have the old exposure. Each
// frame tells its own, so the program takes the first one that has the exposure it asked for. This
// needs a camera that tells the exposure inside its frames (V02 in its identification); others
// answer with the setting, which runs ahead of the frames.
#include <hx_camera.h>
#include <hx_container.h>

#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr auto kLongestWait = std::chrono::seconds(5);

// Lets through the first frame that has the exposure that is waited for.
class ExposureGate {
  public:
    void await(unsigned int exposure) {
        const std::lock_guard lock(mutex_);
        wanted_ = exposure;
        frame_.clear();
    }

    std::vector<unsigned char> take() {
        std::unique_lock lock(mutex_);
        if (!came_.wait_for(lock, kLongestWait, [this] { return !frame_.empty(); })) return {};
        wanted_ = 0;
        return frame_;
    }

    // On the capture thread, from which no exception may come out.
    static void onFrame(unsigned char* data, unsigned long size, void* gate) noexcept {
        static_cast<ExposureGate*>(gate)->see(data, size);
    }

  private:
    void see(const unsigned char* data, unsigned long size) {
        const std::lock_guard lock(mutex_);
        if (wanted_ == 0 || !frame_.empty()) return;
        if (hx::ContainerView(data, size).exposure() != wanted_) return;
        frame_.assign(data, data + size);
        came_.notify_one();
    }

    std::mutex mutex_;
    std::condition_variable came_;
    std::vector<unsigned char> frame_;
    unsigned int wanted_ = 0;
};

struct Cameras {
    Cameras() {
        if (enumHxCamera(&list, &count) != HX_OK) throw std::runtime_error("no camera found");
    }
    Cameras(const Cameras&) = delete;
    Cameras& operator=(const Cameras&) = delete;
    ~Cameras() { releaseHxCamera(list, static_cast<int>(count)); }

    HxCameraContextTag** list = nullptr;
    unsigned int count = 0;
};

std::vector<unsigned int> exposures(HxCameraContextTag* camera, int count, char** texts) {
    unsigned int least = 0;
    unsigned int most = 0;
    if (controlHxCamera(camera, HX_CMD_EXPOSURE_MIN, &least) != HX_OK ||
        controlHxCamera(camera, HX_CMD_EXPOSURE_MAX, &most) != HX_OK) {
        throw std::runtime_error("the camera does not tell its range");
    }
    std::vector<unsigned int> values;
    for (int i = 0; i < count; ++i) {
        const char* end = texts[i] + std::strlen(texts[i]);
        unsigned int value = 0;
        const auto parsed = std::from_chars(texts[i], end, value);
        if (parsed.ec != std::errc() || parsed.ptr != end || value == 0 || value < least ||
            value > most) {
            throw std::runtime_error(std::string(texts[i]) + ": not from " + std::to_string(least) +
                                     " to " + std::to_string(most));
        }
        values.push_back(value);
    }
    return values;
}

void store(unsigned int exposure, const std::vector<unsigned char>& frame) {
    const std::string name = "bracket-" + std::to_string(exposure) + ".hxc";
    std::ofstream file(name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(frame.data()),
               static_cast<std::streamsize>(frame.size()));
    file.close();
    if (!file) throw std::runtime_error(name + ": cannot be written");
    std::printf("%s: %zu bytes\n", name.c_str(), frame.size());
}

void bracket(HxCameraContextTag* camera, ExposureGate& gate, std::vector<unsigned int> values) {
    for (unsigned int value : values) {
        gate.await(value);
        if (controlHxCamera(camera, HX_CMD_SET_EXPOSURE, &value) != HX_OK) {
            throw std::runtime_error("the exposure was not set");
        }
        const std::vector<unsigned char> frame = gate.take();
        if (frame.empty()) {
            std::fprintf(stderr, "no frame with exposure %u\n", value);
            // Closing waits for a frame, which a silent camera does not send.
            std::_Exit(1);
        }
        store(value, frame);
    }
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc < 2) {
        std::fprintf(stderr, "usage: bracketing EXPOSURE...   (units of 100 us)\n");
        return 2;
    }
    ExposureGate gate;  // outlives the capture thread, which ends with the cameras
    const Cameras cameras;
    HxCameraContextTag* camera = cameras.list[0];
    const std::vector<unsigned int> values = exposures(camera, argc - 1, argv + 1);
    if (registerHxCameraCallback(camera, ExposureGate::onFrame, &gate) != HX_OK ||
        openHxCamera(camera, true) != HX_OK) {
        throw std::runtime_error("the camera cannot be opened");
    }
    bracket(camera, gate, values);
    return 0;
} catch (const std::exception& fault) {
    std::fprintf(stderr, "%s\n", fault.what());
    return 1;
}
