// SPDX-License-Identifier: MIT
#include "api/hx_camera_capture.h"

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/counted_allocations.h"
#include "support/fake_camera.h"

namespace {

using testing::ElementsAre;

// Collects what the callback gets.
class Receiver {
  public:
    static void receive(unsigned char* data, unsigned long size, void* userData) {
        auto& self = *static_cast<Receiver*>(userData);
        const std::lock_guard lock(self.mutex_);
        self.blocks.insert(data);
        self.last.assign(data, data + size);
        ++self.frames;
        self.allocations = countedAllocations;
        self.changed_.notify_all();
    }
    void await(int count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return frames >= count; });
    }

    std::set<unsigned char*> blocks;
    std::vector<unsigned char> last;
    int frames = 0;
    long allocations = 0;

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
};

std::uint32_t word(const std::vector<unsigned char>& bytes, std::size_t offset) {
    std::uint32_t value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

class CaptureThread : public testing::Test {
  protected:
    void open() {
        ASSERT_EQ(registerHxCameraCallback(fake.ctx, Receiver::receive, &receiver), 0);
        ASSERT_EQ(openHxCamera(fake.ctx, true), 0);
    }

    Receiver receiver;
    FakeList fake;
};

TEST_F(CaptureThread, DeliversEveryFrameInTheHandlesOwnBlock) {
    open();
    fake.camera->letFrames(3);
    receiver.await(3);
    EXPECT_EQ(receiver.blocks.size(), 1u);
    EXPECT_EQ(word(receiver.last, 0), 0x48584C4Cu);
    EXPECT_EQ(word(receiver.last, 8), 0x00030003u) << "samples of the third frame";
    EXPECT_EQ(receiver.last.size(), word(receiver.last, 4) + 2 + 18 * 12);
}

TEST_F(CaptureThread, AllocatesNothingPerFrame) {
    fake.camera->asked.reserve(1000);
    open();
    fake.camera->letFrames(3);
    receiver.await(3);
    const long before = receiver.allocations;
    fake.camera->letFrames(20);
    receiver.await(23);
    EXPECT_EQ(receiver.allocations, before);
}

TEST_F(CaptureThread, AsksOncePerThreadAndOncePerFrame) {
    open();
    fake.camera->letFrames(2);
    receiver.await(2);
    fake.camera->letAllFrames();
    closeHxCamera(fake.ctx);
    const auto& asked = fake.camera->asked;
    ASSERT_GE(asked.size(), 11u);
    EXPECT_THAT(std::vector(asked.begin(), asked.begin() + 11),
                ElementsAre("width", "height", "depth", "id", "resolution", "data", "exposure",
                            "gain", "data", "exposure", "gain"));
}

TEST_F(CaptureThread, KeepsTryingWithoutFrames) {
    fake.camera->delivers = false;
    open();
    fake.camera->letFrames(2);
    fake.camera->awaitCalls(3);
    EXPECT_EQ(fake.ctx->buffer, nullptr);
    fake.camera->delivers = true;
    fake.camera->letFrames(1);
    receiver.await(1);
    EXPECT_EQ(receiver.frames, 1);
}

TEST_F(CaptureThread, EndsAfterThePendingFrame) {
    open();
    fake.camera->awaitCalls(1);
    std::thread closer([&] { closeHxCamera(fake.ctx); });
    while (hx::load(fake.ctx->isOpen)) std::this_thread::yield();
    fake.camera->letFrames(5);
    closer.join();
    EXPECT_EQ(receiver.frames, 1);
    EXPECT_EQ(fake.ctx->thread, nullptr);
    // The handle can be opened again.
    ASSERT_EQ(openHxCamera(fake.ctx, true), 0);
    receiver.await(2);
    EXPECT_EQ(receiver.blocks.size(), 1u);
}

TEST_F(CaptureThread, TakesANewCallbackFromTheNextFrame) {
    open();
    fake.camera->letFrames(1);
    receiver.await(1);
    Receiver second;  // gone before the handle: no longer registered then
    registerHxCameraCallback(fake.ctx, Receiver::receive, &second);
    fake.camera->letFrames(1);
    second.await(1);
    EXPECT_EQ(receiver.frames, 1);
    registerHxCameraCallback(fake.ctx, nullptr, nullptr);
    fake.camera->letFrames(1);
    fake.camera->awaitCalls(4);
    EXPECT_EQ(second.frames, 1);
}

TEST_F(CaptureThread, FailsAFrameThatNoLongerFits) {
    fake.camera->cameraId = "short";
    open();
    fake.camera->letAllFrames();
    receiver.await(1);
    closeHxCamera(fake.ctx);
    const int frames = receiver.frames;
    fake.camera->cameraId = "longer than before";
    openHxCamera(fake.ctx, true);
    fake.camera->awaitCalls(fake.camera->calls() + 3);
    EXPECT_EQ(receiver.frames, frames);
}

TEST(OneShot, AnswersOnlyOnAnOpenHandle) {
    FakeList fake;
    unsigned long size = 4711;
    EXPECT_EQ(getHxData(fake.ctx, &size), nullptr);
    EXPECT_EQ(size, 4711u);
    EXPECT_TRUE(fake.camera->asked.empty());

    openHxCamera(fake.ctx, false);
    fake.camera->delivers = false;
    fake.camera->letFrames(1);
    EXPECT_EQ(getHxData(fake.ctx, &size), nullptr);
    EXPECT_EQ(size, 4711u);
    EXPECT_EQ(fake.ctx->buffer, nullptr);
}

TEST(OneShot, ReadsEveryValueAnewInTheOrderOfTheEntries) {
    FakeList fake;
    openHxCamera(fake.ctx, false);
    fake.camera->letFrames(2);
    unsigned long size = 0;
    unsigned char* const first = getHxData(fake.ctx, &size);
    ASSERT_NE(first, nullptr);
    const unsigned long firstSize = size;
    EXPECT_THAT(fake.camera->asked, ElementsAre("data", "width", "height", "depth", "id",
                                                "exposure", "gain", "resolution"));
    size = 0;
    EXPECT_EQ(getHxData(fake.ctx, &size), first);
    EXPECT_EQ(size, firstSize);
    EXPECT_EQ(first[8], 2) << "the newer frame";
    EXPECT_EQ(fake.camera->asked.size(), 16u);
}

}  // namespace
