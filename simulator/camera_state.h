// SPDX-License-Identifier: MIT
// What a simulated camera is and how it stands: plain data, free of V4L2, laid into shared memory
// by the launcher. The launcher writes the configuration once; every process below it shares the
// run-time part.
#pragma once

#include <array>
#include <cstdint>
#include <type_traits>

namespace hx::sim {

constexpr std::uint32_t kMaxCameras = 48;
constexpr std::uint32_t kMaxForeign = 16;
constexpr std::uint32_t kMaxFaults = 16;
constexpr std::uint32_t kMaxMinor = 255;
constexpr std::uint32_t kIdentificationBytes = 32;
constexpr std::int32_t kDefaultExposure = 156;

enum class Scene : std::uint32_t { ramp, target, dark, white };

// The moment at which a camera with `unplug=` disappears.
enum class UnplugMoment : std::uint32_t { blocked, taken, waiting, middle };

// How the extension unit answers the identification query.
enum class UnitAnswer : std::uint32_t { complete, absent, refused, slow, cut };

// Calls that a fault can be put on; kCallNames in call_names.h has their names in this order.
enum class Call : std::uint32_t {
    open,
    mmap,
    munmap,
    setFormat,
    requestBuffers,
    queryBuffer,
    queueBuffer,
    dequeueBuffer,
    streamOn,
    streamOff,
    queryCapability,
    queryControl,
    getControl,
    setControl,
    extensionUnit,
    count
};

constexpr std::uint32_t kEveryCall = 0;

struct Fault {
    Call call;
    std::uint32_t nth;  // counted from 1; kEveryCall for all of them
    std::int32_t error;
};

struct CameraConfig {
    std::array<unsigned char, kIdentificationBytes> identification;
    std::array<char, 32> card;
    std::array<char, 64> serial;

    double rate;  // frames per second; 0: as fast as they are taken
    Scene scene;
    std::uint32_t width;
    std::uint32_t height;

    bool exposurePresent;
    bool autoExposureHeld;
    std::int32_t exposureMinimum;
    std::int32_t exposureMaximum;
    std::int32_t exposureDefault;
    std::int32_t exposureError;  // errno of each attempt to set it; 0: it can be set

    UnitAnswer unitAnswer;
    std::int32_t unitError;    // errno for UnitAnswer::refused
    double unitDelay;          // seconds for UnitAnswer::slow
    std::uint32_t unitLength;  // of the answer, as the unit tells it

    std::int32_t ringLimit;  // -1: as many buffers as the driver grants
    bool formatRefused;
    bool accessDenied;

    std::int64_t stallAfter;   // frames of one stream; -1: never
    std::int64_t unplugAfter;  // frames taken from the camera in its life; -1: never
    UnplugMoment unplugMoment;
    double replugAfter;  // seconds; negative: never

    std::uint32_t faultCount;
    std::array<Fault, kMaxFaults> faults;
};

struct CameraRun {
    std::int32_t exposure;
    bool exposureIsManual;  // the auto-exposure lets it go

    bool plugged;
    bool unplugDone;           // unplugs once, however often it is plugged in again
    std::uint32_t generation;  // grows at each unplug; a descriptor of an older one is dead
    std::uint32_t captureMinor;
    std::uint32_t metadataMinor;
    std::uint64_t plugOrder;   // the highest was plugged in last
    std::int64_t unpluggedAt;  // nanoseconds of CLOCK_MONOTONIC
    std::int64_t framesTaken;
};

struct Camera {
    CameraConfig config;
    CameraRun run;

    // What it has forgotten whenever it is plugged in.
    void powerUp() {
        run.exposure = config.exposureDefault;
        run.exposureIsManual = false;
    }
    bool exposureIsHeld() const { return config.autoExposureHeld && !run.exposureIsManual; }
};

// A video device of another maker: it has a node and a name, and no extension unit.
struct ForeignDevice {
    std::array<char, 32> card;
    std::uint32_t minor;
    std::uint64_t plugOrder;
};

constexpr std::uint32_t kStateMagic = 0x48583031;

struct SharedState {
    std::uint32_t magic;
    std::uint32_t size;
    bool realDevicesShown;
    std::array<bool, kMaxMinor + 1> realMinors;  // numbers not to be given to simulated nodes
    std::uint64_t plugCounter;
    std::uint32_t cameraCount;
    std::uint32_t foreignCount;
    std::array<Camera, kMaxCameras> cameras;
    std::array<ForeignDevice, kMaxForeign> foreign;
};

static_assert(std::is_trivially_copyable_v<SharedState>);

// The launcher names the state here: /proc/<its process id>/fd/<number>.
constexpr const char* kStateVariable = "HX_SIM_STATE";

}  // namespace hx::sim
