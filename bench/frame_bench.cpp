// SPDX-License-Identifier: MIT
// From the driver's buffer to the callback, and back out of a container.
#include <sys/resource.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "api/hx_camera_capture.h"
#include "api/hx_camera_entries.h"
#include "bench_support.h"
#include "camera/frame_convert.h"
#include "support/counted_allocations.h"

namespace bench {
namespace {

using Block = std::unique_ptr<unsigned char[]>;
using Convert = void (*)(const unsigned char* raw, unsigned short* out);

void hx01(const unsigned char* raw, unsigned short* out) {
    hx::convertHx01(raw, out, kPixels);
}
void hx02(const unsigned char* raw, unsigned short* out) {
    hx::convertHx02(raw, out, kWidth, kHeight);
}
void plain01(const unsigned char* raw, unsigned short* out) {
    hx::plain::convertHx01(raw, out, kPixels);
}
void plain02(const unsigned char* raw, unsigned short* out) {
    hx::plain::convertHx02(raw, out, kWidth, kHeight);
}
void copied(const unsigned char* raw, unsigned short* out) {
    std::memcpy(out, raw, kFrameBytes);
}

// The camera's frame and a block as long, the same for all: where memory lies shows in its speed.
unsigned short* frame() {
    static const std::unique_ptr<unsigned short[]> block(new unsigned short[kPixels]());
    return block.get();
}
unsigned short* otherFrame() {
    static const std::unique_ptr<unsigned short[]> block(new unsigned short[kPixels]());
    return block.get();
}

void addSamples(const std::string& name, Convert convert, std::size_t used) {
    add("samples/" + name + conditionOf(used),
        [=, ring = DriverRing(used)]() mutable { convert(ring.next(), frame()); });
}

/// A camera of which only the device is missing: its frames come out of a ring of memory. Without a
/// conversion its one frame is always there.
class RingCamera : public CameraBase {
  public:
    explicit RingCamera(Convert convert) : convert_(convert) {}

    bool checkDevice(std::vector<CameraBase*>&) override { return false; }
    bool setHandle(const void*) override { return false; }
    bool init() override { return true; }
    unsigned short* getData() override {
        if (convert_ != nullptr) convert_(ring_.next(), frame());
        return frame();
    }
    int getHeight() override { return kHeight; }
    int getWidth() override { return kWidth; }
    unsigned char getDepth() override { return 10; }
    std::string getCameraId() override { return "HX02-V02.1-12345A-L"; }
    int getSpecResolution() override { return 1; }
    bool getExpRange(unsigned int&, unsigned int&) override { return false; }
    unsigned int getExp() override { return 156; }
    bool setExp(unsigned int) override { return false; }
    unsigned int getGain() override { return 0; }
    bool setGain(unsigned int) override { return false; }
    bool hasLamp() override { return false; }
    bool getLamp() override { return false; }
    bool setLamp(bool) override { return false; }
    const char* getName() override { return "ring"; }

  private:
    Convert convert_;
    DriverRing ring_{kRing};
};

/// The library's own loop, which ends when there was enough to measure.
class Road {
  public:
    Road(benchmark::State& state, Convert convert) : state_(state), camera_(convert) {
        context_.camera = &camera_;
        context_.callback = onFrame;
        context_.userData = this;
        context_.isOpen = true;
    }
    Road(const Road&) = delete;
    Road& operator=(const Road&) = delete;
    ~Road() { delete[] context_.buffer; }

    // The first frame, which makes the handle's block, is not measured.
    void run() {
        cameraThread(&context_);
        const auto frames = static_cast<double>(state_.iterations());
        state_.counters["allocations"] =
            static_cast<double>(countedAllocations - allocations_) / frames;
        state_.counters["faults"] = static_cast<double>(pageFaults() - faults_) / frames;
    }

  private:
    static long pageFaults() {
        rusage usage{};
        getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_minflt;
    }
    static void onFrame(unsigned char*, unsigned long, void* userData) {
        Road& self = *static_cast<Road*>(userData);
        if (!self.isMeasuring_) {
            self.isMeasuring_ = true;
            self.allocations_ = countedAllocations;
            self.faults_ = pageFaults();
        }
        if (!self.state_.KeepRunning()) self.context_.isOpen = false;
    }

    benchmark::State& state_;
    RingCamera camera_;
    HxCameraContextTag context_;
    bool isMeasuring_ = false;
    long allocations_ = 0;
    long faults_ = 0;
};

void addRoad(const char* name, Convert convert) {
    benchmark::RegisterBenchmark(
        name, [convert](benchmark::State& state) { Road(state, convert).run(); });
}

// An entry's payloads are in it and in its values, so both stay where they are.
struct Packed {
    hx::FrameValues values{kWidth, kHeight, 10, "2026-11-21--07-45--123", "HX02-V02.1-12345A-L",
                           156,    0,       1};
    hx::FrameEntries entries{values};
    Block container;
    unsigned long size = 0;

    Packed() { encode(container); }
    void encode(Block& block) {
        unsigned char* made = nullptr;
        encodecFile(FILE_TYPE_HX, entries.first(), hx::FrameEntries::kCount, packedFrame().data(),
                    made, size);
        block.reset(made);
    }
};

// What packing would cost if each frame were packed into a block of its own first.
void encodeAndCopy(Packed& packed) {
    Block block;
    hx::stampTime(packed.values.time);
    packed.encode(block);
    std::memcpy(packed.container.get(), block.get(), packed.size);
}

void decode(const Packed& packed) {
    FileInfo* infos = nullptr;
    unsigned short count = 0;
    void* samples = nullptr;
    decodecFile(packed.container.get(), packed.size, FILE_TYPE_HX, infos, count, samples);
    for (unsigned short i = 0; i < count; ++i) delete[] infos[i].data;
    delete[] infos;
    delete[] static_cast<unsigned char*>(samples);
}

}  // namespace

void addFrameStages() {
    for (const std::size_t used : {std::size_t{1}, kRing}) {
        addSamples("memcpy", copied, used);
        addSamples("hx01", hx01, used);
        addSamples("hx02", hx02, used);
    }
    addSamples("hx01-plain", plain01, 1);
    addSamples("hx02-plain", plain02, 1);

    const auto packed = std::make_shared<Packed>();
    const auto plainly = std::make_shared<Packed>();
    add("packing/memcpy", [] { std::memcpy(otherFrame(), packedFrame().data(), kFrameBytes); });
    addRoad("packing/library", nullptr);
    add("packing/encode-and-copy", [plainly] { encodeAndCopy(*plainly); });
    add("reading/memcpy", [packed] { std::memcpy(frame(), packed->container.get(), kFrameBytes); });
    add("reading/library", [packed] { decode(*packed); });

    add("road/two-memcpy", [ring = DriverRing(kRing)]() mutable {
        std::memcpy(frame(), ring.next(), kFrameBytes);
        benchmark::ClobberMemory();
        std::memcpy(otherFrame(), frame(), kFrameBytes);
    });
    addRoad("road/hx01", hx01);
    addRoad("road/hx02", hx02);
}

}  // namespace bench
