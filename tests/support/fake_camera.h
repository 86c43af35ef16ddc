// SPDX-License-Identifier: MIT
// A camera without a device, for the exported functions.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "api/hx_camera_context.h"

/// 2 x 2 samples. Frames come when the test lets them.
class FakeCamera : public CameraBase {
  public:
    void letFrames(int more) {
        const std::lock_guard lock(mutex_);
        frames_ += more;
        changed_.notify_all();
    }
    /// So many that the handle can be closed at any time.
    void letAllFrames() { letFrames(1 << 20); }
    int calls() {
        const std::lock_guard lock(mutex_);
        return calls_;
    }
    /// Until that many calls of getData have been made.
    void awaitCalls(int calls) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return calls_ >= calls; });
    }

    bool checkDevice(std::vector<CameraBase*>&) override { return true; }
    bool setHandle(const void*) override { return false; }
    bool init() override { return true; }
    unsigned short* getData() override {
        std::unique_lock lock(mutex_);
        ++calls_;
        changed_.notify_all();
        changed_.wait(lock, [&] { return frames_ > 0; });
        --frames_;
        note("data");
        samples_.fill(static_cast<unsigned short>(calls_));
        return delivers ? samples_.data() : nullptr;
    }
    int getHeight() override { return note("height"), 2; }
    int getWidth() override { return note("width"), 2; }
    unsigned char getDepth() override { return note("depth"), 10; }
    std::string getCameraId() override { return note("id"), cameraId; }
    int getSpecResolution() override { return note("resolution"), 75; }
    bool getExpRange(unsigned int& min, unsigned int& max) override {
        min = 3;
        max = 9;
        return hasRange;
    }
    unsigned int getExp() override { return note("exposure"), exposure.load(); }
    bool setExp(unsigned int value) override {
        exposure = value;
        return false;
    }
    unsigned int getGain() override { return note("gain"), 5; }
    bool setGain(unsigned int) override { return false; }
    bool hasLamp() override { return true; }
    bool getLamp() override { return lamp; }
    bool setLamp(bool on) override {
        lamp = on;
        return false;
    }
    const char* getName() override { return "fake"; }

    std::string cameraId = "HX01-V01.3-12345E";
    std::atomic<unsigned int> exposure = 7;
    std::atomic<bool> delivers = true;
    bool hasRange = true;
    bool lamp = false;
    std::vector<std::string> asked;  ///< in order; not read while a thread captures

  private:
    void note(const char* what) { asked.emplace_back(what); }

    std::mutex mutex_;
    std::condition_variable changed_;
    int frames_ = 0;
    int calls_ = 0;
    std::array<unsigned short, 4> samples_{};
};

/// A list of one handle around a FakeCamera, as enumHxCamera makes it.
struct FakeList {
    FakeList() : camera(new FakeCamera), list(new HxCameraContextTag*[1]) {
        list[0] = ctx = new HxCameraContextTag;
        ctx->camera = camera;
    }
    ~FakeList() {
        if (list == nullptr) return;
        camera->letAllFrames();
        releaseHxCamera(list, 1);
    }
    FakeList(const FakeList&) = delete;
    FakeList& operator=(const FakeList&) = delete;

    FakeCamera* camera;
    HxCameraContextTag** list;
    HxCameraContextTag* ctx;
};
