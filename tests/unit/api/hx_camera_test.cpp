// SPDX-License-Identifier: MIT
#include "api/hx_camera.h"

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_camera.h"

namespace {

// Replaces the registered classes for one test.
class Registry : public testing::Test {
  protected:
    Registry() : kept_(std::move(CameraFactory::registerMap)) {
        CameraFactory::registerMap.clear();
        FakeCamera::destroyed = 0;
        probed.clear();
    }
    ~Registry() override { CameraFactory::registerMap = std::move(kept_); }

    static inline std::vector<std::string> probed;

  private:
    std::map<std::string, std::function<CameraBase*()>> kept_;
};

// Finds two cameras, and under the name "Faulty" throws after the first.
template <char Name>
class Probe : public FakeCamera {
  public:
    bool checkDevice(std::vector<CameraBase*>& found) override {
        ProbeLog().emplace_back(1, Name);
        if (Name == 'n') return false;
        found.push_back(new FakeCamera);
        if (Name == 'f') throw std::out_of_range("cut short");
        found.push_back(new FakeCamera);
        return true;
    }
    static std::vector<std::string>& ProbeLog();
};

std::vector<std::string>& probeLog() {
    static std::vector<std::string> log;
    return log;
}

template <char Name>
std::vector<std::string>& Probe<Name>::ProbeLog() {
    return probeLog();
}

TEST_F(Registry, ThatIsEmptyHasNoCamera) {
    HxCameraContextTag** list = reinterpret_cast<HxCameraContextTag**>(this);
    unsigned int count = 5;
    EXPECT_EQ(enumHxCamera(&list, &count), 1);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(list, reinterpret_cast<HxCameraContextTag**>(this));

    const CameraFactory::register_t<Probe<'n'>> none("none");
    EXPECT_EQ(enumHxCamera(&list, &count), 1);
    EXPECT_EQ(list, reinterpret_cast<HxCameraContextTag**>(this));
    EXPECT_EQ(FakeCamera::destroyed, 1) << "the probe";
}

TEST_F(Registry, IsWalkedInByteOrderOfItsKeys) {
    probeLog().clear();
    const CameraFactory::register_t<Probe<'n'>> replaced("uvc");
    const CameraFactory::register_t<Probe<'a'>> lower("uvc");
    const CameraFactory::register_t<Probe<'b'>> upper("UVC");
    HxCameraContextTag** list = nullptr;
    unsigned int count = 0;
    ASSERT_EQ(enumHxCamera(&list, &count), 0);
    EXPECT_THAT(probeLog(), testing::ElementsAre("b", "a"));
    ASSERT_EQ(count, 4u);
    EXPECT_NE(list[0], list[1]);
    for (unsigned int i = 0; i < count; ++i) {
        EXPECT_FALSE(list[i]->isOpen);
        EXPECT_EQ(list[i]->callback, nullptr);
        EXPECT_EQ(list[i]->thread, nullptr);
        EXPECT_EQ(list[i]->buffer, nullptr);
        EXPECT_EQ(list[i]->userData, nullptr);
    }
    EXPECT_EQ(FakeCamera::destroyed, 2);
    EXPECT_EQ(releaseHxCamera(list, 4), 0);
    EXPECT_EQ(FakeCamera::destroyed, 6);
}

TEST_F(Registry, PassesExceptionsOnAndFreesWhatWasFound) {
    const CameraFactory::register_t<Probe<'f'>> faulty("b");
    const CameraFactory::register_t<Probe<'a'>> before("a");
    HxCameraContextTag** list = nullptr;
    unsigned int count = 5;
    EXPECT_THROW(enumHxCamera(&list, &count), std::out_of_range);
    EXPECT_EQ(FakeCamera::destroyed, 5);  // two probes, three cameras
    CameraFactory::registerMap["c"] = nullptr;
    CameraFactory::registerMap.erase("b");
    EXPECT_THROW(enumHxCamera(&list, &count), std::bad_function_call);
    EXPECT_EQ(list, nullptr);
}

TEST(Handle, NullIsRefused) {
    EXPECT_EQ(openHxCamera(nullptr, false), 2);
    EXPECT_EQ(closeHxCamera(nullptr), 2);
    EXPECT_EQ(releaseHxCamera(nullptr, 1), 2);
    EXPECT_EQ(registerHxCameraCallback(nullptr, nullptr, nullptr), 2);
    EXPECT_EQ(controlHxCamera(nullptr, 8, nullptr), 4);
}

TEST(Handle, NeedsACallbackForItsThread) {
    FakeList fake;
    EXPECT_EQ(openHxCamera(fake.ctx, true), 2);
    EXPECT_FALSE(fake.ctx->isOpen);
    EXPECT_EQ(openHxCamera(fake.ctx, false), 0);
    EXPECT_TRUE(fake.ctx->isOpen);
    EXPECT_EQ(fake.ctx->thread, nullptr);
    EXPECT_EQ(closeHxCamera(fake.ctx), 0);
    EXPECT_EQ(closeHxCamera(fake.ctx), 0);
    EXPECT_FALSE(fake.ctx->isOpen);
}

TEST(Handle, ListIsFreedAloneForNoOrNegativeCount) {
    for (const int count : {0, -1}) {
        EXPECT_EQ(releaseHxCamera(
                      new HxCameraContextTag* [1] { nullptr }, count),
                  0);
    }
}

TEST(Handle, ReleaseStopsAtAHandleThatCannotBeClosed) {
    FakeList fake;
    auto* const list = new HxCameraContextTag* [2] { nullptr, fake.ctx };
    EXPECT_EQ(releaseHxCamera(list, 2), 2);
    EXPECT_EQ(fake.ctx->camera, fake.camera);
    delete[] list;
}

TEST(Controls, AnswerByCommandWidthAndState) {
    FakeList fake;
    HxCameraContextTag* const ctx = fake.ctx;
    unsigned int number[2] = {0, 0xEEEEEEEE};
    unsigned char byte[2] = {2, 0xEE};
    const char* name = nullptr;
    // On a closed handle.
    EXPECT_EQ(controlHxCamera(ctx, HX_CMD_EXPOSURE_MAX, number), 0);
    EXPECT_EQ(number[0], 9u);
    EXPECT_EQ(controlHxCamera(ctx, HX_CMD_EXPOSURE_MIN, number), 0);
    EXPECT_EQ(number[0], 3u);
    EXPECT_EQ(controlHxCamera(ctx, HX_CMD_HAS_LAMP, byte), 0);
    EXPECT_EQ(byte[0], 1);
    EXPECT_EQ(controlHxCamera(ctx, HX_CMD_NAME, &name), 0);
    EXPECT_STREQ(name, "fake");
    for (const unsigned int command : {2u, 3u, 5u, 6u}) {
        EXPECT_EQ(controlHxCamera(ctx, command, number), 2) << command;
    }
    EXPECT_TRUE(fake.camera->asked.empty());
    for (const unsigned int command : {8u, 0xFFFFFFFFu}) {
        EXPECT_EQ(controlHxCamera(ctx, command, number), 4) << command;
    }
    EXPECT_EQ(number[0], 3u);

    // On an open one; a camera that refuses a setting changes nothing in the result.
    openHxCamera(ctx, false);
    number[0] = 42;
    EXPECT_EQ(controlHxCamera(ctx, HX_CMD_SET_EXPOSURE, number), 0);
    number[0] = 0;
    EXPECT_EQ(controlHxCamera(ctx, HX_CMD_GET_EXPOSURE, number), 0);
    EXPECT_EQ(number[0], 42u);
    byte[0] = 0x80;  // any byte but 0 is on
    EXPECT_EQ(controlHxCamera(ctx, HX_CMD_SET_LAMP, byte), 0);
    EXPECT_EQ(controlHxCamera(ctx, HX_CMD_GET_LAMP, byte), 0);
    EXPECT_EQ(byte[0], 1);
    EXPECT_EQ(number[1], 0xEEEEEEEE);
    EXPECT_EQ(byte[1], 0xEE);

    fake.camera->hasRange = false;
    EXPECT_EQ(controlHxCamera(ctx, HX_CMD_EXPOSURE_MAX, number), 2);
    EXPECT_EQ(controlHxCamera(ctx, HX_CMD_EXPOSURE_MIN, number), 2);
    EXPECT_EQ(number[0], 42u);
}

}  // namespace
