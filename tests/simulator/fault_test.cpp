// SPDX-License-Identifier: MIT
// Cameras that misbehave: failing calls, odd extension units, and cameras that go away and come
// back.
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <memory>

#include "support.h"

namespace simtest {
namespace {

using Clock = std::chrono::steady_clock;

const SimCamera kFaulty(
    "rate=0,fault=open:2=EMFILE,fault=mmap:3=ENOMEM,fault=QBUF:6=EIO,fault=S_CTRL:*=EIO,"
    "fault=DQBUF:2=EIO,fault=STREAMOFF:1=EIO,fault=munmap:1=EINVAL");
const SimCamera kUnitAbsent("xu=absent");
const SimCamera kUnitRefusing("xu=refuse:EILSEQ");
const SimCamera kUnitShort("xu=short");
const SimCamera kUnitSlow("xu=slow:0.3");
const SimCamera kUnitMute("xu=slow:60");
const SimCamera kBytes("", "\\xff\\,a comma and 32 bytes of text!!");
const SimCamera kBlocked("rate=0,unplug=3");
const SimCamera kBlockedPolled("rate=0,unplug=1");
const SimCamera kTaken("rate=0,unplug=2:taken");
const SimCamera kWaiting("rate=0,unplug=2:waiting");
const SimCamera kReturning("rate=0,unplug=1:taken,replug=0.2");
const SimCamera kHeldWhileAway("rate=0,unplug=1:taken,replug=0.2");

// The N-th call fails, those before and behind it do not, and nothing is lost by it.
TEST(SimFault, HitsTheNthCallOfItsKindOnly) {
    Node node(kFaulty.path());
    ASSERT_EQ(node.openError(), 0);
    EXPECT_EQ(Node(kFaulty.path()).openError(), EMFILE);
    EXPECT_EQ(Node(kFaulty.path()).openError(), 0);
    EXPECT_EQ(node.setExposure(5), EIO);
    EXPECT_EQ(node.setExposure(5), EIO);
    ASSERT_EQ(node.requestBuffers(4), 4);
    const int mapErrors[] = {0, 0, ENOMEM, 0, 0};
    for (std::uint32_t i = 0; i < 5; ++i) EXPECT_EQ(node.map(i % 4), mapErrors[i]) << i;
    for (std::uint32_t i = 0; i < 4; ++i) EXPECT_EQ(node.queue(i), 0);
    ASSERT_EQ(node.streamOn(), 0);
    v4l2_buffer buffer;
    EXPECT_EQ(node.dequeue(buffer), 0);
    EXPECT_EQ(node.queue(buffer.index), 0);
    EXPECT_EQ(node.dequeue(buffer), EIO);
    EXPECT_EQ(node.dequeue(buffer), 0);
    EXPECT_EQ(buffer.sequence, 1U) << "the failed call took no frame";
    EXPECT_EQ(node.queue(buffer.index), EIO);
    EXPECT_EQ(node.queue(buffer.index), 0);
    EXPECT_EQ(node.streamOff(), EIO);
    EXPECT_EQ(node.streamOff(), 0);
    void* place = const_cast<std::uint16_t*>(node.words(0).data());
    EXPECT_EQ(munmap(place, kFrameBytes), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(SimFault, ExtensionUnitAnswersLikeTheDriver) {
    struct {
        std::uint8_t unit, selector, query;
        std::uint16_t size;
        int error;
    } rows[] = {
        {6, 10, UVC_GET_CUR, 32, 0},      {5, 10, UVC_GET_CUR, 32, ENOENT},
        {6, 11, UVC_GET_CUR, 32, ENOENT}, {6, 10, UVC_GET_CUR, 31, ENOBUFS},
        {6, 10, UVC_GET_LEN, 2, 0},       {6, 10, UVC_GET_LEN, 32, ENOBUFS},
        {6, 10, UVC_GET_INFO, 1, 0},      {6, 10, UVC_SET_CUR, 32, EBADRQC},
        {6, 10, 0x7f, 32, EINVAL},
    };
    Node node(kBytes.path());
    for (const auto& row : rows) {
        std::uint8_t data[32] = {};
        uvc_xu_control_query query = {row.unit, row.selector, row.query, row.size, data};
        EXPECT_EQ(node.call(UVCIOC_CTRL_QUERY, &query), row.error)
            << int{row.unit} << ":" << int{row.selector} << " query " << int{row.query};
        if (row.query == UVC_GET_LEN && row.error == 0) {
            EXPECT_EQ(data[0], 32);
        }
    }
}

TEST(SimFault, IdentificationComesAsTheCameraTellsIt) {
    const std::string name = "HX02-V02.1-12345A-L";
    struct {
        const SimCamera& camera;
        int error;
        std::string text;
    } rows[] = {
        {kUnitAbsent, ENOENT, ""},
        {kUnitRefusing, EILSEQ, ""},
        {kUnitShort, 0, name.substr(0, 16)},
        {kUnitSlow, 0, name},
        {kBytes, 0, "\xff,a comma and 32 bytes of text!!"},
    };
    for (auto& row : rows) {
        Node node(row.camera.path());
        std::string text;
        EXPECT_EQ(node.identify(text), row.error);
        row.text.resize(32);
        EXPECT_EQ(text, row.text);
    }
}

TEST(SimFault, MuteExtensionUnitTimesOutAfterFiveSeconds) {
    Node node(kUnitMute.path());
    std::string text;
    const auto start = Clock::now();
    EXPECT_EQ(node.identify(text), ETIMEDOUT);
    EXPECT_GE(Clock::now() - start, std::chrono::seconds(5));
}

// Everything on a camera that is gone, through a descriptor from before.
void expectGone(Node& node, const SimCamera& camera) {
    v4l2_buffer buffer;
    v4l2_capability capability = {};
    std::string text;
    EXPECT_EQ(node.dequeue(buffer), ENODEV);
    EXPECT_EQ(node.queue(0), ENODEV);
    EXPECT_EQ(node.call(VIDIOC_QUERYCAP, &capability), ENODEV);
    EXPECT_EQ(node.exposure(), -ENODEV);
    EXPECT_EQ(node.setExposure(3), ENODEV);
    EXPECT_EQ(node.identify(text), ENODEV);
    EXPECT_EQ(node.streamOff(), ENODEV);
    pollfd wait = {node.fd(), POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, 0), 1);
    EXPECT_TRUE(wait.revents & POLLHUP);
    EXPECT_EQ(Node(camera.path()).openError(), ENOENT);
    EXPECT_FALSE(inDev(camera.name()));
    EXPECT_FALSE(inDev(camera.metadataName()));
}

TEST(SimUnplug, BlockedReaderGetsEinvalThenEverythingEnodev) {
    Node node(kBlocked.path());
    ASSERT_EQ(node.start(4), 0);
    v4l2_buffer buffer;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(node.dequeue(buffer), 0);
        ASSERT_EQ(node.queue(buffer.index), 0);
    }
    EXPECT_EQ(node.dequeue(buffer), EINVAL);
    expectGone(node, kBlocked);
}

TEST(SimUnplug, PollingReaderIsWokenToo) {
    Node node(kBlockedPolled.path(), O_NONBLOCK);
    ASSERT_EQ(node.start(4), 0);
    v4l2_buffer buffer;
    ASSERT_TRUE(node.readable());
    ASSERT_EQ(node.dequeue(buffer), 0);
    pollfd wait = {node.fd(), POLLIN, 0};
    ASSERT_EQ(poll(&wait, 1, 20000), 1);
    EXPECT_TRUE(wait.revents & POLLHUP);
    expectGone(node, kBlockedPolled);
}

TEST(SimUnplug, TakenFrameCannotBeHandedBack) {
    Node node(kTaken.path());
    ASSERT_EQ(node.start(4), 0);
    v4l2_buffer buffer;
    ASSERT_EQ(node.dequeue(buffer), 0);
    ASSERT_EQ(node.queue(buffer.index), 0);
    ASSERT_EQ(node.dequeue(buffer), 0);
    EXPECT_EQ(node.queue(buffer.index), ENODEV);
    EXPECT_EQ(rampFault(node.words(buffer.index).first(kFrameBytes / 2), 1, 1), "");
    expectGone(node, kTaken);
}

TEST(SimUnplug, WaitingFramesAreLost) {
    Node node(kWaiting.path());
    ASSERT_EQ(node.start(4), 0);
    v4l2_buffer buffer;
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(node.dequeue(buffer), 0);
        ASSERT_EQ(node.queue(buffer.index), 0);
    }
    ASSERT_TRUE(node.readable());
    EXPECT_EQ(node.dequeue(buffer), ENODEV);
    expectGone(node, kWaiting);
}

// Takes the frame after which the camera goes.
void takeLastFrame(Node& node) {
    ASSERT_EQ(node.start(4), 0);
    v4l2_buffer buffer;
    ASSERT_EQ(node.dequeue(buffer), 0);
    ASSERT_EQ(node.queue(0), ENODEV);
}

void waitFor(const std::string& name) {
    const auto end = Clock::now() + std::chrono::seconds(20);
    while (!inDev(name) && Clock::now() < end) usleep(10'000);
    ASSERT_TRUE(inDev(name));
}

TEST(SimReplug, CameraComesBackUnderItsOldNumbersAndStays) {
    {
        Node node(kReturning.path());
        takeLastFrame(node);
    }
    EXPECT_FALSE(inDev(kReturning.name()));
    waitFor(kReturning.name());
    Node node(kReturning.path());
    ASSERT_EQ(node.start(4), 0);
    for (std::uint32_t i = 0; i < 8; ++i) {
        v4l2_buffer buffer;
        ASSERT_EQ(node.dequeue(buffer), 0);
        EXPECT_EQ(buffer.sequence, i);
        ASSERT_EQ(node.queue(buffer.index), 0);
    }
}

TEST(SimReplug, NumberThatIsHeldOpenIsNotGivenAgain) {
    const auto before = namesInDev();
    Node node(kHeldWhileAway.path());
    takeLastFrame(node);
    node.close();  // the mappings hold the old node
    waitFor(kHeldWhileAway.metadataName());
    EXPECT_FALSE(inDev(kHeldWhileAway.name()));
    EXPECT_EQ(namesInDev().size(), before.size());
    Node dead(kHeldWhileAway.path());
    EXPECT_EQ(dead.openError(), ENOENT);
    // The camera under its new number is the newest.
    Node back("/dev/" + namesInDev()[1]);
    EXPECT_EQ(back.start(4), 0);
}

}  // namespace
}  // namespace simtest
