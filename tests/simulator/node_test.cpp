// SPDX-License-Identifier: MIT
// One node by itself: what each request answers, and with which errno.
#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "support.h"

namespace simtest {
namespace {

const SimCamera kFirst("serial=A 1\\,2");
const SimCamera kSecond;
const SimCamera kLimited("ring=3");
const SimCamera kEmptyRing("ring=0");
const SimCamera kSmall("format=640x480");
const SimCamera kRefusing("format=refuse");
const SimCamera kDenied("access=denied");
const SimCamera kWithoutExposure("exposure=none");
const SimCamera kHeld("auto-exposure=held");

TEST(SimNode, NodesComeNewestFirstAndBeforeEverythingElse) {
    const auto names = namesInDev();
    const auto at = [&](const std::string& name) {
        return std::find(names.begin(), names.end(), name) - names.begin();
    };
    EXPECT_EQ(at(kSecond.metadataName()) + 1, at(kSecond.name()));
    EXPECT_EQ(at(kSecond.name()) + 1, at(kFirst.metadataName()));
    EXPECT_EQ(at(kFirst.metadataName()) + 1, at(kFirst.name()));
    EXPECT_LT(at(kFirst.name()), at("null"));
    EXPECT_EQ(std::count(names.begin(), names.end(), "null"), 1);
}

TEST(SimNode, IsACharacterDeviceUnderEveryNameOfItsPath) {
    const std::string name = kFirst.name();
    struct stat status = {};
    ASSERT_EQ(stat(("/dev//./" + name).c_str(), &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    EXPECT_EQ(major(status.st_rdev), 81U);
    EXPECT_EQ("video" + std::to_string(minor(status.st_rdev)), name);

    const int dev = open("/dev", O_RDONLY | O_DIRECTORY);
    const int node = openat(dev, name.c_str(), O_RDWR);
    struct stat opened = {};
    ASSERT_EQ(fstat(node, &opened), 0);
    EXPECT_EQ(opened.st_rdev, status.st_rdev);
    close(node);
    close(dev);
    EXPECT_EQ(access("/dev/video255", F_OK), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(SimNode, SysfsTellsWhatTheNodeIs) {
    const auto firstLine = [](const std::string& path) {
        std::string line;
        std::getline(std::ifstream(path).seekg(0), line);
        return line;
    };
    const std::string folder = "/sys/class/video4linux/" + kFirst.name();
    EXPECT_EQ(firstLine(folder + "/name"), "Webcam gadget: UVC Camera");
    EXPECT_EQ(firstLine(folder + "/device/../serial"), "A 1,2");
    EXPECT_EQ(firstLine("/sys/class/video4linux/" + kFirst.metadataName() + "/index"), "1");
    EXPECT_EQ(firstLine("/sys/dev/char/" + firstLine(folder + "/dev") + "/uevent"), "MAJOR=81");
}

TEST(SimNode, DeniedNodeIsSeenButNotOpened) {
    Node node(kDenied.path());
    EXPECT_EQ(node.openError(), EACCES);
    EXPECT_EQ(access(kDenied.path().c_str(), F_OK), 0);
    EXPECT_EQ(access(kDenied.path().c_str(), R_OK), -1);
}

TEST(SimNode, MetadataNodeHasNoExtensionUnitAndOtherAbilities) {
    Node node(kFirst.metadataPath());
    v4l2_capability answer = {};
    ASSERT_EQ(node.call(VIDIOC_QUERYCAP, &answer), 0);
    EXPECT_EQ(answer.device_caps, 0x04a00000U);
    EXPECT_EQ(answer.capabilities, 0x84a00001U);
    std::string text;
    EXPECT_EQ(node.identify(text), ENOTTY);
}

TEST(SimNode, RequestsThatMakeNoSenseGetTheDriversErrno) {
    Node node(kFirst.path());
    v4l2_capability capability = {};
    v4l2_buffer buffer = {};
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    const auto errorOf = [&](unsigned long request, void* argument) {
        return node.call(request, static_cast<char*>(argument));
    };
    EXPECT_EQ(errorOf(_IOWR('V', 200, int), &capability), ENOTTY);
    EXPECT_EQ(errorOf(VIDIOC_EXPBUF, &capability), ENOTTY);
    EXPECT_EQ(errorOf(VIDIOC_QUERYCAP, nullptr), EFAULT);
    EXPECT_EQ(errorOf(VIDIOC_DQBUF, &buffer), EBUSY) << "not the camera's owner";
    EXPECT_EQ(node.streamOn(), EBUSY) << "not the camera's owner";
    // Programs pass requests as negative ints.
    EXPECT_EQ(errorOf(VIDIOC_QUERYCAP | 0xffffffff00000000UL, &capability), 0);

    ASSERT_EQ(node.requestBuffers(2), 2);
    EXPECT_EQ(node.queue(2), EINVAL) << "no such slot";
    EXPECT_EQ(node.queue(0), 0);
    EXPECT_EQ(node.queue(0), EINVAL) << "queued already";
    buffer.index = 7;
    EXPECT_EQ(errorOf(VIDIOC_QUERYBUF, &buffer), EINVAL);
    EXPECT_EQ(errorOf(VIDIOC_DQBUF, &buffer), EINVAL) << "no stream";
    EXPECT_EQ(node.setFormat(), EBUSY) << "ring is there";
    char byte = 0;
    EXPECT_EQ(read(node.fd(), &byte, 1), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(SimNode, SuccessLeavesErrnoAlone) {
    Node node(kFirst.path());
    v4l2_capability capability = {};
    errno = EXDEV;
    ASSERT_EQ(ioctl(node.fd(), VIDIOC_QUERYCAP, &capability), 0);
    EXPECT_EQ(errno, EXDEV);
}

TEST(SimNode, EveryFormatBecomesTheOnlyOne) {
    struct {
        const SimCamera& camera;
        std::uint32_t width, height, bytes;
    } rows[] = {{kFirst, 1600, 1200, kFrameBytes}, {kSmall, 640, 480, 614400}};
    for (const auto& row : rows) {
        Node node(row.camera.path());
        v4l2_format format = {};
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        format.fmt.pix.width = 320;
        format.fmt.pix.height = 200;
        format.fmt.pix.pixelformat = V4L2_PIX_FMT_MJPEG;
        ASSERT_EQ(node.call(VIDIOC_S_FMT, &format), 0);
        EXPECT_EQ(format.fmt.pix.width, row.width);
        EXPECT_EQ(format.fmt.pix.height, row.height);
        EXPECT_EQ(format.fmt.pix.sizeimage, row.bytes);
        EXPECT_EQ(format.fmt.pix.pixelformat, V4L2_PIX_FMT_YUYV);
    }
    Node refusing(kRefusing.path());
    EXPECT_EQ(refusing.setFormat(), EINVAL);
}

TEST(SimNode, RingIsGrantedUpToItsLimit) {
    struct {
        const SimCamera& camera;
        std::uint32_t wanted;
        int granted;
    } rows[] = {{kFirst, 20, 20}, {kFirst, 40, 32}, {kLimited, 20, 3}, {kEmptyRing, 20, 0}};
    for (const auto& row : rows) {
        Node node(row.camera.path());
        EXPECT_EQ(node.requestBuffers(row.wanted), row.granted) << row.wanted;
    }
}

TEST(SimNode, MappingsMustFitABufferAndBeShared) {
    Node node(kFirst.path());
    ASSERT_EQ(node.requestBuffers(2), 2);
    v4l2_buffer second = {};
    second.index = 1;
    second.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ASSERT_EQ(node.call(VIDIOC_QUERYBUF, &second), 0);
    EXPECT_EQ(second.length, kFrameBytes);
    struct {
        std::size_t length;
        int protection, flags;
        off_t offset;
    } rows[] = {
        {kFrameBytes, PROT_READ, MAP_PRIVATE, 0},
        {kFrameBytes, PROT_WRITE, MAP_SHARED, 0},
        {kFrameBytes + 8192, PROT_READ, MAP_SHARED, 0},
        {kFrameBytes, PROT_READ, MAP_SHARED, second.m.offset + 4096},
    };
    for (const auto& row : rows) {
        errno = 0;
        EXPECT_EQ(mmap(nullptr, row.length, row.protection, row.flags, node.fd(), row.offset),
                  MAP_FAILED);
        EXPECT_EQ(errno, EINVAL) << row.length << " at " << row.offset;
    }
    ASSERT_EQ(node.map(1), 0);
    ASSERT_EQ(node.call(VIDIOC_QUERYBUF, &second), 0);
    EXPECT_TRUE(second.flags & V4L2_BUF_FLAG_MAPPED);
    node.unmapAll();
    ASSERT_EQ(node.call(VIDIOC_QUERYBUF, &second), 0);
    EXPECT_FALSE(second.flags & V4L2_BUF_FLAG_MAPPED);
}

TEST(SimNode, ExposureIsClampedAndItsAbsenceIsAnError) {
    Node node(kFirst.path());
    EXPECT_EQ(node.exposure(), 156);
    const int rows[][2] = {{0, 1}, {20000, 10000}, {-5, 10000}, {200, 200}};
    for (const auto& row : rows) {
        EXPECT_EQ(node.setExposure(row[0]), 0);
        EXPECT_EQ(node.exposure(), row[1]);
    }
    v4l2_control unknown = {V4L2_CID_BRIGHTNESS, 1};
    EXPECT_EQ(node.call(VIDIOC_S_CTRL, &unknown), EINVAL);

    Node without(kWithoutExposure.path());
    v4l2_queryctrl query = {};
    query.id = V4L2_CID_EXPOSURE_ABSOLUTE;
    EXPECT_EQ(without.call(VIDIOC_QUERYCTRL, &query), EINVAL);
    EXPECT_EQ(without.exposure(), -EINVAL);
    EXPECT_EQ(without.setExposure(10), EINVAL);
}

TEST(SimNode, AutoExposureHoldsTheExposureUntilItIsManual) {
    Node node(kHeld.path());
    EXPECT_EQ(node.setExposure(10), EACCES);
    v4l2_control shutterPriority = {V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_SHUTTER_PRIORITY};
    EXPECT_EQ(node.call(VIDIOC_S_CTRL, &shutterPriority), EINVAL) << "not in this camera";
    v4l2_control manual = {V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_MANUAL};
    EXPECT_EQ(node.call(VIDIOC_S_CTRL, &manual), 0);
    EXPECT_EQ(node.setExposure(10), 0);
}

}  // namespace
}  // namespace simtest
