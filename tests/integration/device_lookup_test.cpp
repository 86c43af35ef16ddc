// SPDX-License-Identifier: MIT
// The look-up by card name on simulated nodes: two cameras and a foreign device.
#include <gtest/gtest.h>

#include "v4l2/HXCamera_v4l2.h"

namespace {

TEST(DeviceLookup, FindsTheLastListedNodeOfACard) {
    std::string path;
    // Newest first: video3 to video0; the last match is the oldest camera's capture node.
    EXPECT_EQ(find_device("UVC Camera", path), 0);
    EXPECT_EQ(path, "/dev/video0");
    EXPECT_EQ(find_device("Grabber", path), 0);
    EXPECT_EQ(path, "/dev/video4");
    EXPECT_EQ(find_device("no such card", path), 0);
    EXPECT_EQ(path, "/dev/video4");
    path.clear();
    testing::internal::CaptureStderr();
    EXPECT_EQ(find_device("no such card", path), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("can't find HX camera dev", 0), 0u);
}

}  // namespace
