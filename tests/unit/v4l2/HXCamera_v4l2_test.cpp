// SPDX-License-Identifier: MIT
#include "v4l2/HXCamera_v4l2.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include "support/scripted_calls.h"

namespace {

using scripted::world;
using testing::ElementsAre;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

using Step = int (*)(v4l2_dev*);
constexpr Step kSteps[] = {open_device, set_fmt, require_buf, alloc_buf, queue_buf, stream_on};

class CaptureDevice : public testing::Test {
  protected:
    ~CaptureDevice() override {
        close_device(&dev);
        scripted::reset();
    }

    // The first result that is not 0, or 0.
    int bringUp() {
        for (const Step step : kSteps) {
            const int result = step(&dev);
            if (result != 0) return result;
        }
        return 0;
    }

    v4l2_dev dev{.path = "/dev/video7",
                 .buf_type = V4L2_BUF_TYPE_VIDEO_CAPTURE,
                 .pixel_format = V4L2_PIX_FMT_YUYV,
                 .width = 1600,
                 .height = 1200,
                 .buffer_count = 20,
                 .memory = V4L2_MEMORY_MMAP};
};

TEST_F(CaptureDevice, IsBroughtUpInTheOrderOfTheStreamingSequence) {
    EXPECT_EQ(close_device(&dev), 0);
    EXPECT_TRUE(world().trace.empty()) << "nothing to release yet";
    ASSERT_EQ(bringUp(), 0);
    EXPECT_THAT(world().trace,
                ElementsAre("open", "S_FMT", "REQBUFS", "QUERYBUF", "mmap", "QUERYBUF", "mmap",
                            "QUERYBUF", "mmap", "QBUF", "QBUF", "QBUF", "STREAMON"));
    EXPECT_EQ(world().openFlags, O_RDWR | O_CLOEXEC);
    EXPECT_EQ(world().format.type, 1u);
    EXPECT_EQ(world().format.fmt.pix.field, 0u);
    EXPECT_EQ(world().request.memory, 1u);
    EXPECT_EQ(dev.buffer_count, 3u);
    EXPECT_THAT(world().mapOffsets, ElementsAre(0, 4096, 8192));

    EXPECT_EQ(close_device(&dev), 0);
    EXPECT_EQ(world().count("STREAMOFF"), 0);
    EXPECT_EQ(world().count("munmap"), 3);
}

// From the last step to the first, so that each new life finds the table of an old one, which is
// left alone.
TEST_F(CaptureDevice, ThatFailsTearsEverythingDownOnceAndKeepsTheError) {
    struct {
        const char* call;
        int nth;
        int result;
        int unmapped;  // with the failed mapping itself
    } const kRows[] = {{"STREAMON", 1, -1, 3}, {"QBUF", 2, -1, 3},     {"mmap", 3, -2, 3},
                       {"mmap", 1, -2, 1},     {"QUERYBUF", 3, -1, 2}, {"REQBUFS", 1, -1, 0},
                       {"S_FMT", 1, -1, 0},    {"open", 1, -1, 0}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.call);
        scripted::reset();
        world().failures = {{row.call, row.nth, EPROTO}};
        EXPECT_EQ(bringUp(), row.result);
        EXPECT_EQ(errno, EPROTO);
        EXPECT_TRUE(world().openFds.empty());
        EXPECT_TRUE(world().mappings.empty());
        EXPECT_EQ(world().count("munmap"), row.unmapped);

        // Stale values stay, and nothing is asked, closed or unmapped through them again.
        const int staleFd = dev.fd;
        const auto before = world().trace;
        EXPECT_EQ(close_device(&dev), 0);
        for (const Step again : {set_fmt, require_buf, alloc_buf, stream_on, stream_off}) {
            errno = 0;
            EXPECT_EQ(again(&dev), -1);
            EXPECT_EQ(errno, EBADF);
        }
        EXPECT_EQ(dev.fd, staleFd);
        EXPECT_EQ(world().trace, before);
    }
    scripted::reset();
    EXPECT_EQ(bringUp(), 0);
    EXPECT_EQ(get_frame(&dev, 0), 0);
}

TEST_F(CaptureDevice, TakesSkipPlusOneFramesAndHandsEachBackAtOnce) {
    ASSERT_EQ(bringUp(), 0);
    world().trace.clear();
    EXPECT_EQ(get_frame(&dev, -1), 0);
    EXPECT_TRUE(world().trace.empty());
    EXPECT_EQ(dev.frame, nullptr);

    world().timestamp = {12, 345678};
    EXPECT_EQ(get_frame(&dev, 1), 0);
    EXPECT_THAT(world().trace, ElementsAre("DQBUF", "QBUF", "DQBUF", "QBUF"));
    EXPECT_EQ(dev.frame, world().bufferMemory[1]);
    EXPECT_EQ(frame_length(&dev), world().bufferLength);
    EXPECT_EQ(dev.timestamp_us, 12345678);
    EXPECT_EQ(world().buffer.index, 1u);
    EXPECT_THAT(world().queued, ElementsAre(2u, 0u, 1u));
}

TEST_F(CaptureDevice, SaysOnceThatTheStreamIsLostAndThenWaitsQuietly) {
    struct {
        const char* call;
        int nth;
        int result;
        const char* text;
    } const kRows[] = {{"DQBUF", 2, -1, "-1: No such device\n"},
                       {"QBUF", 5, -2, "-2: No such device\n"}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.call);
        scripted::reset();
        world().failures = {{row.call, row.nth, ENODEV}};
        ASSERT_EQ(bringUp(), 0);
        ASSERT_EQ(get_frame(&dev, 0), 0);
        CaptureStderr();
        EXPECT_EQ(get_frame(&dev, 0), row.result);
        EXPECT_EQ(GetCapturedStderr(), row.text);
        EXPECT_TRUE(world().mappings.empty());
        const auto requests = world().trace.size();

        CaptureStderr();
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(get_frame(&dev, 0), -1);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
        EXPECT_EQ(GetCapturedStderr(), "");
        EXPECT_EQ(world().trace.size(), requests);
    }
}

TEST_F(CaptureDevice, AsksInMultiPlanarFormWhenTheTypeSaysSo) {
    dev.buf_type = V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
    ASSERT_EQ(bringUp(), 0);
    EXPECT_EQ(world().format.fmt.pix_mp.width, 1600u);
    EXPECT_EQ(world().format.fmt.pix_mp.num_planes, 0u);
    EXPECT_EQ(world().buffer.length, 1u) << "planes";
    ASSERT_EQ(get_frame(&dev, 0), 0);
    EXPECT_EQ(world().buffer.length, 1u);
    EXPECT_EQ(dev.frame, world().bufferMemory[0]);
    EXPECT_EQ(frame_length(&dev), world().bufferLength);
}

TEST(Lookup, TakesTheLastNodeWhoseCardNameContainsTheText) {
    world().entries = {"vid", "video3", "v4l-subdev0", "video", "videodev", "video0", "video9"};
    world().cards = {{"/dev/video3", "Webcam gadget: UVC Camera"},
                     {"/dev/video", ""},
                     // No terminator: a name may fill its field.
                     {"/dev/videodev", "Webcam gadget: UVC Camera no. 0x"},
                     {"/dev/video0", "vivid"}};
    std::string path;
    const auto find = [&path](const char* fragment) { return find_device(fragment, path); };
    EXPECT_EQ(find("0x"), 0);
    EXPECT_EQ(path, "/dev/videodev");
    EXPECT_EQ(find(""), 0);
    EXPECT_EQ(path, "/dev/video0");
    EXPECT_EQ(find("no such card"), 0) << "an old path stays";
    EXPECT_EQ(path, "/dev/video0");
    path.clear();
    CaptureStderr();
    EXPECT_EQ(find("no such card"), -1);
    world().failures = {{"opendir", 0, EACCES}};
    EXPECT_EQ(find("UVC"), -1);
    EXPECT_EQ(GetCapturedStderr(),
              "can't find HX camera dev: Inappropriate ioctl for device\n"
              "Failed to open /dev: Permission denied\n");
    scripted::reset();
}

}  // namespace
