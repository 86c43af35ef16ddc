// SPDX-License-Identifier: MIT
#include "api/hx_camera_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "codec/hx_container.h"
#include "support/counted_allocations.h"
#include "support/fake_camera.h"
#include "support/receiver.h"

namespace {

using testing::ElementsAre;

class CaptureThread : public testing::Test {
  protected:
    void open() {
        ASSERT_EQ(registerHxCameraCallback(fake.ctx, Receiver::receive, &receiver), 0);
        ASSERT_EQ(openHxCamera(fake.ctx, true), 0);
    }
    // Lets frames come until the thread waits for the one behind them.
    void pass(int frames) {
        const int calls = fake.camera->calls();
        fake.camera->letFrames(frames);
        fake.camera->awaitCalls(calls + frames);
    }

    Receiver receiver{3};
    FakeList fake;
};

TEST_F(CaptureThread, DeliversEveryFrameInTheHandlesOwnBlockWithoutAllocating) {
    fake.camera->asked.reserve(1000);
    open();
    fake.camera->awaitCalls(1);
    pass(3);
    const long before = countedAllocations;
    pass(20);
    EXPECT_EQ(countedAllocations, before);
    EXPECT_EQ(receiver.count(), 23u);
    EXPECT_EQ(receiver.blocks(), 1u);
    const hx::ContainerView third(std::as_bytes(std::span(receiver.containers[2])));
    EXPECT_EQ(third.size(), receiver.containers[2].size());
    EXPECT_THAT(third.samples().value(), testing::Each(3));
}

TEST_F(CaptureThread, AsksOncePerThreadAndOncePerFrameAndNothingWithoutAFrame) {
    fake.camera->delivers = false;
    open();
    fake.camera->awaitCalls(1);
    pass(1);
    EXPECT_EQ(fake.ctx->buffer, nullptr);
    fake.camera->delivers = true;
    pass(2);
    EXPECT_EQ(receiver.count(), 2u);
    EXPECT_THAT(fake.camera->asked,
                ElementsAre("width", "height", "depth", "id", "resolution", "data", "data",
                            "exposure", "gain", "data", "exposure", "gain"));
}

TEST_F(CaptureThread, EndsAfterThePendingFrameAndCanBeginAgain) {
    open();
    fake.camera->awaitCalls(1);
    std::thread closer([&] { closeHxCamera(fake.ctx); });
    while (hx::load(fake.ctx->isOpen)) std::this_thread::yield();
    fake.camera->letFrames(5);
    closer.join();
    EXPECT_EQ(receiver.count(), 1u);
    EXPECT_EQ(fake.ctx->thread, nullptr);
    ASSERT_EQ(openHxCamera(fake.ctx, true), 0);
    receiver.await(2);
    EXPECT_EQ(receiver.blocks(), 1u);
}

TEST_F(CaptureThread, TakesANewCallbackFromTheNextFrame) {
    open();
    fake.camera->awaitCalls(1);
    pass(1);
    Receiver second;  // gone before the handle: no longer registered then
    registerHxCameraCallback(fake.ctx, Receiver::receive, &second);
    pass(1);
    registerHxCameraCallback(fake.ctx, nullptr, nullptr);
    pass(1);
    EXPECT_EQ(receiver.count(), 1u);
    EXPECT_EQ(second.count(), 1u);
}

TEST_F(CaptureThread, FailsAFrameThatNoLongerFits) {
    fake.camera->cameraId = "short";
    open();
    fake.camera->letAllFrames();
    receiver.await(1);
    closeHxCamera(fake.ctx);
    const unsigned int frames = receiver.count();
    fake.camera->cameraId = "longer than before";
    openHxCamera(fake.ctx, true);
    fake.camera->awaitCalls(fake.camera->calls() + 3);
    EXPECT_EQ(receiver.count(), frames);
}

TEST(OneShot, ReadsEveryValueAnewOnAnOpenHandleOnly) {
    FakeList fake;
    unsigned long size = 4711;
    EXPECT_EQ(getHxData(fake.ctx, &size), nullptr);
    EXPECT_TRUE(fake.camera->asked.empty());
    openHxCamera(fake.ctx, false);
    fake.camera->letFrames(3);
    fake.camera->delivers = false;
    EXPECT_EQ(getHxData(fake.ctx, &size), nullptr);
    EXPECT_EQ(size, 4711u);

    fake.camera->delivers = true;
    fake.camera->asked.clear();
    unsigned char* const first = getHxData(fake.ctx, &size);
    ASSERT_NE(first, nullptr);
    EXPECT_THAT(fake.camera->asked, ElementsAre("data", "width", "height", "depth", "id",
                                                "exposure", "gain", "resolution"));
    const unsigned long firstSize = std::exchange(size, 0);
    EXPECT_EQ(getHxData(fake.ctx, &size), first);
    EXPECT_EQ(size, firstSize);
    EXPECT_EQ(first[8], 3) << "the newer frame";
    EXPECT_EQ(fake.camera->asked.size(), 16u);
}

}  // namespace
