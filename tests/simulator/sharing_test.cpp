// SPDX-License-Identifier: MIT
// Several users of one camera: descriptors, mappings and processes.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "support.h"

namespace simtest {
namespace {

const SimCamera kShared("rate=0");
const SimCamera kMapped("rate=0");
const SimCamera kKilled("rate=0");
const SimCamera kDuplicated("rate=0");
const SimCamera kForked("rate=0");

// What someone else finds while the camera is in use: bits for what went wrong.
int lookAtCameraInUse() {
    Node other(kShared.path());
    std::string text;
    int wrong = 0;
    if (other.setFormat() != EBUSY) wrong |= 1;
    if (other.requestBuffers(4) != -EBUSY) wrong |= 2;
    if (other.streamOn() != EBUSY) wrong |= 4;
    if (other.identify(text) != 0 || !text.starts_with("HX02-V02.1-12345A-L")) wrong |= 8;
    if (other.setExposure(99) != 0) wrong |= 16;
    return wrong;
}

TEST(SimSharing, WhoeverSetsTheFormatFirstHasTheCamera) {
    Node owner(kShared.path());
    ASSERT_EQ(owner.setFormat(), 0);
    EXPECT_EQ(lookAtCameraInUse(), 0) << "from the same process";
    EXPECT_EQ(inChild(lookAtCameraInUse), 0) << "from another process";
    EXPECT_EQ(owner.exposure(), 99) << "set by the other process";
    owner.close();
    Node next(kShared.path());
    EXPECT_EQ(next.setFormat(), 0);
}

TEST(SimSharing, FreeingTheRingFreesTheCamera) {
    Node owner(kShared.path());
    ASSERT_EQ(owner.requestBuffers(2), 2);
    Node next(kShared.path());
    ASSERT_EQ(next.setFormat(), EBUSY);
    ASSERT_EQ(owner.requestBuffers(0), 0);
    EXPECT_EQ(next.setFormat(), 0);
}

TEST(SimSharing, MappingsKeepTheCameraAfterItsDescriptorIsClosed) {
    auto owner = std::make_unique<Node>(kMapped.path());
    ASSERT_EQ(owner->start(3), 0);
    v4l2_buffer buffer;
    ASSERT_EQ(owner->dequeue(buffer), 0);
    owner->close();
    EXPECT_EQ(rampFault(owner->words(buffer.index).first(kFrameBytes / 2), 0, 1), "");
    Node next(kMapped.path());
    EXPECT_EQ(next.setFormat(), EBUSY);
    owner->unmapAll();
    EXPECT_EQ(next.setFormat(), 0);
}

TEST(SimSharing, DuplicatesAreOneOpenFile) {
    Node node(kDuplicated.path());
    ASSERT_EQ(node.setFormat(), 0);
    const int second = fcntl(node.fd(), F_DUPFD_CLOEXEC, 0);
    const int third = dup(second);
    ASSERT_GE(third, 0);
    node.close();
    close(second);
    Node next(kDuplicated.path());
    EXPECT_EQ(next.setFormat(), EBUSY);
    // Replaced by another file, the last one goes too.
    const int null = open("/dev/null", O_RDONLY);
    ASSERT_EQ(dup2(null, third), third);
    EXPECT_EQ(next.setFormat(), 0);
    close(third);
    close(null);
}

TEST(SimSharing, KilledOwnerLeavesTheCameraFree) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        Node owner(kKilled.path());
        const char answer = owner.start(4) == 0 ? 'y' : 'n';
        if (write(ready[1], &answer, 1) == 1) pause();
        _exit(1);
    }
    char answer = 0;
    ASSERT_EQ(read(ready[0], &answer, 1), 1);
    ASSERT_EQ(answer, 'y');
    Node next(kKilled.path());
    EXPECT_EQ(next.setFormat(), EBUSY);
    kill(child, SIGKILL);
    siginfo_t info = {};
    // Dead but not reaped: a process number is still there, its files are not.
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(next.setFormat(), 0);
    waitpid(child, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
}

TEST(SimSharing, ForkedChildLeavesTheParentsStreamAlone) {
    Node node(kForked.path());
    ASSERT_EQ(node.start(4), 0);
    EXPECT_EQ(inChild([&] {
                  node.close();
                  Node own(kForked.path());
                  return own.setFormat();
              }),
              EBUSY);
    v4l2_buffer buffer;
    EXPECT_EQ(node.dequeue(buffer), 0);
}

}  // namespace
}  // namespace simtest
