// SPDX-License-Identifier: MIT
#include "api/hx_camera.h"

#include <gtest/gtest.h>

#include "support/fake_camera.h"

namespace {

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
    EXPECT_EQ(releaseHxCamera(new HxCameraContextTag*[1], -1), 0) << "the list alone";
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
