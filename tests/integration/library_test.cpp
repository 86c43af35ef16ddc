// SPDX-License-Identifier: MIT
// The built library on simulated cameras, through its exported functions alone. Each test is run
// under the launcher with the cameras that CMakeLists.txt gives it.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "api/hx_camera.h"
#include "codec/hx_container.h"
#include "support/receiver.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constexpr unsigned int kPixels = 1600 * 1200;
constexpr char kMetadataNode[] = "!name: Inappropriate ioctl for device\n";

// The first pixel of an HX01 that is not what becomes of the ramp's word, or kPixels.
unsigned int firstDifference(const hx::ContainerView& frame, unsigned int number) {
    const std::span<const std::uint16_t> samples = frame.samples().value();
    for (unsigned int i = 0; i < kPixels; ++i) {
        const unsigned int raw = (i + 257 * number) % 65536;
        if (samples[i] != (raw & 255) * 4 + (raw >> 8)) return i;
    }
    return kPixels;
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// An enumeration, released at the end; what it prints is kept.
class Cameras {
  public:
    Cameras() {
        CaptureStderr();
        enumHxCamera(&list, &count);
        messages = GetCapturedStderr();
    }
    ~Cameras() { release(); }
    Cameras(const Cameras&) = delete;
    Cameras& operator=(const Cameras&) = delete;

    void release() {
        if (list != nullptr) {
            EXPECT_EQ(releaseHxCamera(list, static_cast<int>(count)), 0);
        }
        list = nullptr;
    }
    std::string name(unsigned int i) const {
        const char* text = nullptr;
        EXPECT_EQ(controlHxCamera(list[i], HX_CMD_NAME, &text), 0);
        return text;
    }

    HxCameraContextTag** list = nullptr;
    unsigned int count = 99;
    std::string messages;
};

TEST(Push, DeliversEveryFrameOfTwoCamerasAtOnce) {
    Cameras cameras;
    ASSERT_EQ(cameras.count, 2u);
    // Newest node first; each camera has a metadata node, which has no identification.
    EXPECT_EQ(cameras.messages, std::string(kMetadataNode) + kMetadataNode);
    EXPECT_EQ(cameras.name(0), "22222E");
    EXPECT_EQ(cameras.name(1), "12345A-");

    constexpr unsigned int kFrames = 12;
    Receiver receivers[2]{Receiver(kFrames), Receiver(kFrames)};
    for (int i = 0; i < 2; ++i) {
        registerHxCameraCallback(cameras.list[i], Receiver::receive, &receivers[i]);
        ASSERT_EQ(openHxCamera(cameras.list[i], true), 0);
    }
    for (int i = 0; i < 2; ++i) receivers[i].await(kFrames);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(closeHxCamera(cameras.list[i]), 0);

    for (unsigned int n = 0; n < kFrames; ++n) {
        SCOPED_TRACE(n);
        const hx::ContainerView plain(std::as_bytes(std::span(receivers[0].containers[n])));
        const hx::ContainerView mosaic(std::as_bytes(std::span(receivers[1].containers[n])));
        EXPECT_EQ(firstDifference(plain, n), kPixels);
        // The second raw word under the first filter: the exposure was taken out.
        EXPECT_EQ(mosaic.samples()->front(), std::lround((1 + 257 * n) / 64.0 / 0.93));
        EXPECT_EQ(plain.identification(), "HX01-V01.3-22222E");
        EXPECT_EQ(mosaic.identification(), "HX02-V02.1-12345A-L");
        EXPECT_EQ(plain.spectralCode(), 75u);
        EXPECT_EQ(mosaic.spectralCode(), 1u);
    }
    for (const Receiver& receiver : receivers) EXPECT_EQ(receiver.blocks(), 1u);
}

// The first camera is pulled out after some frames, the second goes on.
TEST(Unplug, LosesOneCameraAndNothingElse) {
    const std::size_t descriptors = openDescriptors();
    Cameras cameras;
    ASSERT_EQ(cameras.count, 2u);
    CaptureStderr();
    Receiver lost;
    Receiver other;
    registerHxCameraCallback(cameras.list[1], Receiver::receive, &lost);
    registerHxCameraCallback(cameras.list[0], Receiver::receive, &other);
    ASSERT_EQ(openHxCamera(cameras.list[1], true), 0);
    ASSERT_EQ(openHxCamera(cameras.list[0], true), 0);
    lost.await(4);
    other.await(8);
    // The loop on the lost camera keeps trying; close returns all the same.
    EXPECT_EQ(closeHxCamera(cameras.list[1]), 0);
    EXPECT_LE(lost.count(), 5u);
    EXPECT_EQ(openHxCamera(cameras.list[1], false), 0);
    unsigned long size = 0;
    // A slow machine may have left a frame or two before the end.
    int left = 0;
    while (getHxData(cameras.list[1], &size) != nullptr) ++left;
    EXPECT_LE(left, 2);
    other.await(other.count() + 4);
    const std::string messages = GetCapturedStderr();
    EXPECT_THAT(messages, testing::AnyOf("-1: Invalid argument\n", "-1: No such device\n",
                                         "-2: No such device\n"));
    cameras.release();
    EXPECT_EQ(openDescriptors(), descriptors);

    for (bool back = false; !back;) {
        Cameras again;
        back = again.count == 2;
        if (!back) continue;
        EXPECT_EQ(again.name(0), "12345A-") << "plugged in again, so now the newest";
        ASSERT_EQ(openHxCamera(again.list[0], false), 0);
        EXPECT_NE(getHxData(again.list[0], &size), nullptr);
    }
}

// One camera fails in some way of its own, the other one still comes.
TEST(BringUp, OfOneCameraFailsWithItsMessage) {
    const std::size_t descriptors = openDescriptors();
    Cameras cameras;
    EXPECT_EQ(cameras.count, 1u);
    const char* const expected = std::getenv("HX_EXPECTED");
    ASSERT_NE(expected, nullptr);
    std::string messages = cameras.messages;
    for (std::size_t at; (at = messages.find(kMetadataNode)) != std::string::npos;) {
        messages.erase(at, sizeof kMetadataNode - 1);
    }
    EXPECT_EQ(messages, std::string(expected) + "\n");
    ASSERT_EQ(openHxCamera(cameras.list[0], false), 0);
    unsigned long size = 0;
    EXPECT_NE(getHxData(cameras.list[0], &size), nullptr);
    cameras.release();
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(BringUp, WithTextCutShortThrowsAndLeaksNothing) {
    const std::size_t descriptors = openDescriptors();
    EXPECT_THROW(Cameras(), std::out_of_range);
    GetCapturedStderr();
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(SmallBuffers, GiveNoFrame) {
    Cameras cameras;
    ASSERT_EQ(cameras.count, 1u);
    ASSERT_EQ(openHxCamera(cameras.list[0], false), 0);
    unsigned long size = 0;
    EXPECT_EQ(getHxData(cameras.list[0], &size), nullptr);
}

// Everything that the header allows while a thread captures, for the thread sanitizer too.
TEST(Threads, MayControlRegisterAndCloseWhileFramesCome) {
    Cameras cameras;
    ASSERT_EQ(cameras.count, 2u);
    Receiver receivers[2];
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 2; ++i) {
            registerHxCameraCallback(cameras.list[i], Receiver::receive, &receivers[i]);
            ASSERT_EQ(openHxCamera(cameras.list[i], true), 0);
        }
        for (unsigned int n = 1; n <= 20; ++n) {
            for (HxCameraContextTag* const ctx : {cameras.list[0], cameras.list[1]}) {
                unsigned int exposure = 10 * n;
                EXPECT_EQ(controlHxCamera(ctx, HX_CMD_SET_EXPOSURE, &exposure), 0);
                EXPECT_EQ(controlHxCamera(ctx, HX_CMD_GET_EXPOSURE, &exposure), 0);
            }
            registerHxCameraCallback(cameras.list[0], Receiver::receive, &receivers[n % 2]);
        }
        receivers[1].await(receivers[1].count() + 2);
        for (int i = 0; i < 2; ++i) EXPECT_EQ(closeHxCamera(cameras.list[i]), 0);
    }
}

}  // namespace
