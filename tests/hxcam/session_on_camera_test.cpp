// SPDX-License-Identifier: MIT
// CaptureSession on simulated cameras: /dev/video0 reports its exposure in the frame, /dev/video4
// by its control, and /dev/video8 refuses to have it set.
#include <gtest/gtest.h>

#include "capture/capture_session.h"
#include "codec/hx_container.h"
#include "support/counted_allocations.h"

namespace {

using Kind = hx::CaptureEvent::Kind;

constexpr std::chrono::milliseconds kPatience{60000};

hx::CaptureEvent nextFrame(hx::CaptureSession& session) {
    for (;;) {
        hx::CaptureEvent event = session.wait(kPatience);
        if (event.kind == Kind::timeout || event.kind == Kind::ended) ADD_FAILURE() << event.text;
        if (event.kind != Kind::started && event.kind != Kind::lost && event.kind != Kind::message)
            return event;
    }
}

std::uint64_t exposureOf(const hx::CaptureEvent& event) {
    return hx::ContainerView(event.container).exposure();
}

TEST(SessionOnCamera, SetsTheExposureWhileItCaptures) {
    for (const char* const node : {"/dev/video0", "/dev/video4"}) {
        for (const auto mode : {hx::CaptureMode::push, hx::CaptureMode::pull}) {
            SCOPED_TRACE(node);
            hx::CaptureSession session({.node = node, .mode = mode, .exposure = 100});
            EXPECT_EQ(exposureOf(nextFrame(session)), 100U);
            EXPECT_TRUE(session.setExposure(321, kPatience));
            // What waits in both rings is older.
            int older = 0;
            while (exposureOf(nextFrame(session)) != 321U) ASSERT_LT(++older, 100);
            EXPECT_EQ(session.exposure(kPatience), 321U);
            EXPECT_EQ(session.camera().exposureMax, 10000U);
            EXPECT_TRUE(session.stop(kPatience));
        }
    }
}

TEST(SessionOnCamera, SaysWhenTheExposureIsRefused) {
    hx::CaptureSession session({.node = "/dev/video8"});
    nextFrame(session);
    EXPECT_FALSE(session.setExposure(321, kPatience));
    EXPECT_NE(exposureOf(nextFrame(session)), 321U);
}

TEST(SessionOnCamera, AllocatesNothingForAFrameAndSharesTheProcess) {
    hx::CaptureSession first({.node = "/dev/video0"});
    hx::CaptureSession second({.node = "/dev/video4"});
    for (hx::CaptureSession* const session : {&first, &second}) nextFrame(*session);
    const long before = countedAllocations;
    for (int i = 0; i < 10; ++i) {
        EXPECT_GT(exposureOf(nextFrame(first)), 0U);
        EXPECT_GT(exposureOf(nextFrame(second)), 0U);
    }
    EXPECT_EQ(countedAllocations, before);
}

}  // namespace
