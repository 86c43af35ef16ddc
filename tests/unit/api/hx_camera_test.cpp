// SPDX-License-Identifier: MIT
#include "api/hx_camera.h"

#include <stdexcept>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_camera.h"

namespace {

std::string probed;

enum class Finds { nothing, two, oneAndFails };

struct Probe : FakeCamera {
    Probe(char name, Finds what) : name_(name), what_(what) {}
    bool checkDevice(std::vector<CameraBase*>& found) override {
        probed += name_;
        if (what_ == Finds::nothing) return false;
        found.push_back(new FakeCamera);
        if (what_ == Finds::oneAndFails) throw std::out_of_range("cut short");
        found.push_back(new FakeCamera);
        return true;
    }

  private:
    char name_;
    Finds what_;
};

// Replaces the registered classes for one test.
class Registry : public testing::Test {
  protected:
    Registry() : kept_(std::exchange(CameraFactory::registerMap, {})) {
        FakeCamera::destroyed = 0;
        probed.clear();
    }
    ~Registry() override { CameraFactory::registerMap = std::move(kept_); }

    static void add(const std::string& key, char name, Finds what) {
        CameraFactory::registerMap[key] = [name, what] { return new Probe(name, what); };
    }

    HxCameraContextTag** list = nullptr;
    unsigned int count = 5;

  private:
    decltype(CameraFactory::registerMap) kept_;
};

TEST_F(Registry, WithoutCameraLeavesTheListAlone) {
    HxCameraContextTag** const mark = list = new HxCameraContextTag*[1];
    EXPECT_EQ(enumHxCamera(&list, &count), 1);
    EXPECT_EQ(count, 0u);
    add("none", 'n', Finds::nothing);
    count = 5;
    EXPECT_EQ(enumHxCamera(&list, &count), 1);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(list, mark);
    EXPECT_EQ(FakeCamera::destroyed, 1) << "the probe";
    // Freed alone.
    EXPECT_EQ(releaseHxCamera(list, -1), 0);
}

TEST_F(Registry, IsWalkedInByteOrderOfItsKeys) {
    add("uvc", 'a', Finds::two);
    add("UVC", 'b', Finds::two);
    ASSERT_EQ(enumHxCamera(&list, &count), 0);
    EXPECT_EQ(probed, "ba");
    ASSERT_EQ(count, 4u);
    EXPECT_NE(list[0], list[1]);
    EXPECT_NE(list[0]->camera, list[1]->camera);
    EXPECT_EQ(FakeCamera::destroyed, 2);
    EXPECT_EQ(releaseHxCamera(list, 4), 0);
    EXPECT_EQ(FakeCamera::destroyed, 6);
}

TEST_F(Registry, PassesExceptionsOnAndFreesWhatWasFound) {
    add("a", 'a', Finds::two);
    add("b", 'f', Finds::oneAndFails);
    EXPECT_THROW(enumHxCamera(&list, &count), std::out_of_range);
    EXPECT_EQ(FakeCamera::destroyed, 5);  // two probes, three cameras
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
    EXPECT_EQ(fake.ctx->thread, nullptr);
    EXPECT_EQ(closeHxCamera(fake.ctx), 0);
    EXPECT_EQ(closeHxCamera(fake.ctx), 0);
    EXPECT_FALSE(fake.ctx->isOpen);
}

TEST(Handle, ReleaseStopsAtAHandleThatCannotBeClosed) {
    FakeList fake;
    HxCameraContextTag* list[] = {nullptr, fake.ctx};
    EXPECT_EQ(releaseHxCamera(list, 2), 2);
    EXPECT_EQ(fake.ctx->camera, fake.camera);
}

TEST(Controls, AnswerByCommandWidthAndState) {
    constexpr std::uint64_t kUntouched = 0xEEEEEEEEEEEEEEEE;
    constexpr std::uint64_t kTrue = 0xEEEEEEEEEEEEEE01;
    struct {
        bool open;
        unsigned int command;
        int result;
        std::uint64_t after, before = kUntouched;
    } const kRows[] = {
        {false, HX_CMD_EXPOSURE_MAX, 0, 0xEEEEEEEE00000009},
        {false, HX_CMD_EXPOSURE_MIN, 0, 0xEEEEEEEE00000003},
        {false, HX_CMD_HAS_LAMP, 0, kTrue},
        {false, HX_CMD_SET_EXPOSURE, 2, kUntouched},
        {false, HX_CMD_GET_EXPOSURE, 2, kUntouched},
        {false, HX_CMD_SET_LAMP, 2, kUntouched},
        {false, HX_CMD_GET_LAMP, 2, kUntouched},
        {false, 8, 4, kUntouched},
        {false, 0xFFFFFFFF, 4, kUntouched},
        // The camera refuses settings, which is not the result. Any byte but 0 is on.
        {true, HX_CMD_SET_EXPOSURE, 0, 42, 42},
        {true, HX_CMD_GET_EXPOSURE, 0, 0xEEEEEEEE0000002A},
        {true, HX_CMD_SET_LAMP, 0, 0x80, 0x80},
        {true, HX_CMD_GET_LAMP, 0, kTrue},
    };
    FakeList fake;
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.command);
        if (row.open) openHxCamera(fake.ctx, false);
        std::uint64_t value = row.before;
        EXPECT_EQ(controlHxCamera(fake.ctx, row.command, &value), row.result);
        EXPECT_EQ(value, row.after);
    }
    const char* name = nullptr;
    EXPECT_EQ(controlHxCamera(fake.ctx, HX_CMD_NAME, &name), 0);
    EXPECT_STREQ(name, "fake");
    fake.camera->hasRange = false;
    EXPECT_EQ(controlHxCamera(fake.ctx, HX_CMD_EXPOSURE_MIN, nullptr), 2);
}

}  // namespace
