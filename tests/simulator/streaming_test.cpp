// SPDX-License-Identifier: MIT
// Frames: their bytes, their numbers and times, and who waits for whom.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "support.h"

namespace simtest {
namespace {

const SimCamera kQuick("rate=0");
const SimCamera kQuickPlain("rate=0", "HX01-V01.0-10001A");
const SimCamera kPaced("rate=50");
const SimCamera kPolled("rate=50");
const SimCamera kExposed("rate=0");
const SimCamera kSilent("stall=0");
const SimCamera kStalling("stall=3,rate=0");
const SimCamera kTorn("rate=50");

TEST(SimStream, RampFollowsItsFormulaInEveryWordOfEveryFrame) {
    struct {
        const SimCamera& camera;
        bool exposureInFrame;
    } rows[] = {{kQuick, true}, {kQuickPlain, false}};
    for (const auto& row : rows) {
        Node node(row.camera.path());
        ASSERT_EQ(node.start(4), 0);
        for (std::uint32_t frame = 0; frame < 6; ++frame) {
            v4l2_buffer buffer;
            ASSERT_EQ(node.dequeue(buffer), 0);
            ASSERT_EQ(buffer.sequence, frame);
            EXPECT_EQ(buffer.bytesused, kFrameBytes);
            EXPECT_EQ(buffer.field, static_cast<unsigned>(V4L2_FIELD_NONE));
            const auto words = node.words(buffer.index).first(kFrameBytes / 2);
            EXPECT_EQ(rampFault(words, frame, row.exposureInFrame ? 1 : 0), "");
            if (row.exposureInFrame) {
                EXPECT_EQ(words[0], 156);
            }
            ASSERT_EQ(node.queue(buffer.index), 0);
        }
    }
}

// The reader hands the buffer back first and reads it afterwards, as programs do that fear to lose
// frames.
TEST(SimStream, WithoutARateABufferHandedBackStaysWhole) {
    for (const std::uint32_t ring : {2U, 3U, 20U}) {
        Node node(kQuick.path());
        ASSERT_EQ(node.start(ring), 0);
        for (int i = 0; i < 30; ++i) {
            v4l2_buffer buffer;
            ASSERT_EQ(node.dequeue(buffer), 0);
            ASSERT_EQ(node.queue(buffer.index), 0);
            const auto words = node.words(buffer.index).first(kFrameBytes / 2);
            ASSERT_EQ(rampFault(words, buffer.sequence, 1), "") << "ring of " << ring;
        }
    }
}

TEST(SimStream, AtARateTheOldestFramesAreKeptAndLaterOnesLost) {
    constexpr std::uint32_t kRing = 4;
    Node node(kTorn.path());
    ASSERT_EQ(node.start(kRing), 0);
    // All buffers are full once the last one is; then frames are lost for a while.
    v4l2_buffer last = {};
    last.index = kRing - 1;
    last.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    do {
        ASSERT_EQ(node.call(VIDIOC_QUERYBUF, &last), 0);
    } while (!(last.flags & V4L2_BUF_FLAG_DONE));
    usleep(100'000);
    v4l2_buffer buffer;
    for (std::uint32_t frame = 0; frame < kRing; ++frame) {
        ASSERT_EQ(node.dequeue(buffer), 0);
        EXPECT_EQ(buffer.sequence, frame);
        ASSERT_EQ(node.queue(buffer.index), 0);
    }
    ASSERT_EQ(node.dequeue(buffer), 0);
    EXPECT_GE(buffer.sequence, kRing + 3) << "the lost frames are counted";
}

TEST(SimStream, RateAndTimeStampsAgree) {
    Node node(kPaced.path());
    ASSERT_EQ(node.start(20), 0);
    double first = 0;
    for (std::uint32_t frame = 0; frame < 15; ++frame) {
        v4l2_buffer buffer;
        ASSERT_EQ(node.dequeue(buffer), 0);
        ASSERT_EQ(buffer.sequence, frame);
        const double time = static_cast<double>(buffer.timestamp.tv_sec) +
                            static_cast<double>(buffer.timestamp.tv_usec) / 1e6;
        if (frame == 0) first = time;
        // A busy machine may be late with any frame, the first one too; none is early.
        EXPECT_GT(time - first, (frame - 1.0) / 50 - 0.2);
        ASSERT_EQ(node.queue(buffer.index), 0);
    }
}

TEST(SimStream, DescriptorsWorkWithPollAndEpoll) {
    Node node(kPolled.path(), O_NONBLOCK);
    v4l2_buffer buffer;
    ASSERT_EQ(node.start(4), 0);
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event wanted = {};
    wanted.events = EPOLLIN;
    ASSERT_EQ(epoll_ctl(epoll, EPOLL_CTL_ADD, node.fd(), &wanted), 0);
    for (int i = 0; i < 5; ++i) {
        epoll_event event = {};
        ASSERT_EQ(epoll_wait(epoll, &event, 1, 20000), 1);
        ASSERT_TRUE(node.readable());
        ASSERT_EQ(node.dequeue(buffer), 0);
        ASSERT_EQ(node.queue(buffer.index), 0);
    }
    close(epoll);
    // Emptied quicker than it fills.
    int error = 0;
    while ((error = node.dequeue(buffer)) == 0) continue;
    EXPECT_EQ(error, EAGAIN);
    ASSERT_EQ(node.streamOff(), 0);
    EXPECT_FALSE(node.readable(0)) << "what was filled went with the stream";
}

TEST(SimStream, NewExposureShowsInAFollowingFrame) {
    Node node(kExposed.path());
    ASSERT_EQ(node.start(4), 0);
    ASSERT_EQ(node.setExposure(4321), 0);
    v4l2_buffer buffer;
    std::uint16_t word = 0;
    for (int i = 0; i < 4 && word != 4321; ++i) {
        ASSERT_EQ(node.dequeue(buffer), 0);
        word = node.words(buffer.index)[0];
        ASSERT_EQ(node.queue(buffer.index), 0);
    }
    EXPECT_EQ(word, 4321);
}

// Starts a DQBUF that no frame will end, and waits until it has gone into the kernel.
class BlockedReader {
  public:
    explicit BlockedReader(Node& node) {
        thread_ = std::thread([this, &node] {
            id_ = gettid();
            v4l2_buffer buffer;
            error_ = node.dequeue(buffer);
            ended_ = true;
        });
        while (state() != 'S') usleep(1000);
    }
    ~BlockedReader() { thread_.join(); }

    int join() {
        thread_.join();
        thread_ = std::thread([] {});
        return error_;
    }
    bool ended() const { return ended_; }
    pthread_t handle() { return thread_.native_handle(); }

  private:
    char state() const {
        if (id_ == 0) return ' ';
        char name[64];
        std::snprintf(name, sizeof name, "/proc/self/task/%d/stat", id_.load());
        std::FILE* file = std::fopen(name, "r");
        char state = ' ';
        if (file && std::fscanf(file, "%*d (%*[^)]) %c", &state) != 1) state = ' ';
        if (file) std::fclose(file);
        return state;
    }

    std::thread thread_;
    std::atomic<int> id_{0};
    std::atomic<int> error_{-1};
    std::atomic<bool> ended_{false};
};

TEST(SimStream, BlockedDequeueHoldsUpNobodyAndEndsWithTheStream) {
    Node node(kSilent.path());
    ASSERT_EQ(node.start(2), 0);
    BlockedReader reader(node);
    EXPECT_EQ(node.setExposure(77), 0);
    EXPECT_EQ(node.exposure(), 77);
    node.unmapAll();
    Node second(kSilent.path());
    EXPECT_EQ(second.exposure(), 77);
    second.close();
    EXPECT_FALSE(reader.ended());
    EXPECT_EQ(node.streamOff(), 0);
    EXPECT_EQ(reader.join(), EINVAL);
}

TEST(SimStream, SignalBreaksABlockedDequeueOff) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    Node node(kSilent.path());
    ASSERT_EQ(node.start(2), 0);
    BlockedReader reader(node);
    while (!reader.ended()) {
        pthread_kill(reader.handle(), SIGUSR1);
        usleep(1000);
    }
    EXPECT_EQ(reader.join(), EINTR);
}

TEST(SimStream, StallEndsEachStreamAfterItsFrames) {
    Node node(kStalling.path(), O_NONBLOCK);
    for (int stream = 0; stream < 2; ++stream) {
        ASSERT_EQ(stream == 0 ? node.start(4) : node.streamOn(), 0);
        v4l2_buffer buffer;
        for (int frame = 0; frame < 3; ++frame) {
            ASSERT_TRUE(node.readable());
            ASSERT_EQ(node.dequeue(buffer), 0);
            ASSERT_EQ(node.queue(buffer.index), 0);
        }
        EXPECT_FALSE(node.readable(200));
        ASSERT_EQ(node.streamOff(), 0);
        for (std::uint32_t i = 0; i < 4; ++i) ASSERT_EQ(node.queue(i), 0);
    }
}

}  // namespace
}  // namespace simtest
