// SPDX-License-Identifier: MIT
#include "camera/camera_uvc_linux.h"

#include <cerrno>
#include <memory>

#include <gtest/gtest.h>

#include "support/scripted_calls.h"

namespace {

using scripted::world;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constexpr char kExposureMessage[] =
    "\xCE\xDE\xB7\xA8\xC9\xE8\xD6\xC3\xC6\xD8\xB9\xE2\xCA\xB1\xBC\xE4: Input/output error\n";

class UvcCamera : public testing::Test {
  protected:
    ~UvcCamera() override {
        camera.reset();
        scripted::reset();
    }

    bool start(const std::string& text) {
        world().identifications["/dev/video0"] = text;
        const std::string path = "/dev/video0";
        camera->setHandle(&path);
        return camera->init();
    }

    std::unique_ptr<CameraUvc> camera = std::make_unique<CameraUvc>();
};

TEST_F(UvcCamera, TakesANodeThatCannotBeOpenedForOneOfUnknownModel) {
    world().failures = {{"open", 0, EACCES}};
    CaptureStderr();
    EXPECT_FALSE(start("HX01-V01.3-12345E"));
    EXPECT_EQ(GetCapturedStderr(), "Failed to open device: Permission denied\nhx verion error\n");
}

TEST_F(UvcCamera, ReadsAndSetsTheExposureControlUnchanged) {
    world().range.minimum = -2;
    world().range.maximum = 5000;
    ASSERT_TRUE(start("HX01-V01.3-12345E"));
    unsigned int min = 0;
    unsigned int max = 0;
    EXPECT_TRUE(camera->getExpRange(min, max));
    EXPECT_EQ(min, 0xFFFFFFFEu);
    EXPECT_EQ(max, 5000u);
    EXPECT_EQ(camera->getExp(), 156u);
    EXPECT_TRUE(camera->setExp(0xFFFFFFFF));
    EXPECT_EQ(world().control.id, 0x009A0902u);
    EXPECT_EQ(world().control.value, -1);
    world().failures = {{"G_CTRL", 0, EIO}, {"S_CTRL", 0, EIO}};
    CaptureStderr();
    EXPECT_EQ(camera->getExp(), 0u);
    EXPECT_FALSE(camera->setExp(5));
    EXPECT_EQ(GetCapturedStderr(), std::string(kExposureMessage) + kExposureMessage);
}

TEST_F(UvcCamera, DrivesNeitherLampNorGain) {
    ASSERT_TRUE(start("HX02-V02.1-12345A-L"));
    EXPECT_TRUE(camera->hasLamp());
    EXPECT_TRUE(camera->setLamp(true));
    EXPECT_FALSE(camera->getLamp());
    EXPECT_EQ(camera->getGain(), 0u);
    EXPECT_FALSE(camera->setGain(5));
}

TEST_F(UvcCamera, ProbesEveryNodeWhoseNameBeginsWithVideo) {
    world().entries = {"vid", "video9", "v4l-subdev0", "video", "videoX", "null", "video0"};
    world().identifications = {{"/dev/video9", "HX01-V01.3-1111AE"},
                               // As long as the answer, so nothing ends it.
                               {"/dev/video", "HX02-V02.1-12345A-0123456789ABCD"},
                               {"/dev/video0", "HX03-V01.3-3333AE"}};
    std::vector<CameraBase*> found;
    CaptureStderr();
    EXPECT_TRUE(camera->checkDevice(found));
    EXPECT_EQ(GetCapturedStderr(), "!name: Inappropriate ioctl for device\nhx verion error\n");
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0]->getCameraId(), "HX01-V01.3-1111AE");
    EXPECT_EQ(found[1]->getCameraId(), "HX02-V02.1-12345A-0123456789ABCD");
    EXPECT_EQ(world().count("closedir"), 1);
    for (CameraBase* const one : found) delete one;
}

}  // namespace
