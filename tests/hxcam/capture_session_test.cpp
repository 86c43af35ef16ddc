// SPDX-License-Identifier: MIT
// The parent's side against children that misbehave: shell scripts in the child's place. Descriptor
// 3 is the control socket, 4 the ring, 5 the event.
#include "capture/capture_session.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

namespace {

using Kind = hx::CaptureEvent::Kind;
using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr milliseconds kPatience{20000};

// A child that is this script.
hx::CaptureOptions scripted(const std::string& body) {
    const std::string path = testing::TempDir() + "/child-" + std::to_string(getpid()) + ".sh";
    std::filesystem::remove(path);
    std::ofstream(path) << "#!/bin/sh\nrm \"$0\"\n" << body << '\n';
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return {.node = "/dev/video0", .childProgram = path};
}

hx::CaptureEvent waitFor(hx::CaptureSession& session, Kind kind) {
    for (;;) {
        hx::CaptureEvent event = session.wait(kPatience);
        if (event.kind == kind || event.kind == Kind::timeout || event.kind == Kind::ended) {
            return event;
        }
    }
}

// Puts bytes into the ring, first those of its first slot's header.
std::string claim(const char* written, const char* length = "") {
    const std::string into = "' | dd of=/proc/self/fd/4 bs=1 conv=notrunc 2>/dev/null seek=";
    return "printf '" + std::string(length) + into + "128\nprintf '" + written + into +
           "0\nprintf '\\1\\0\\0\\0\\0\\0\\0\\0' >&5\nexec sleep 60";
}
constexpr char kAllOnes[] = "\\377\\377\\377\\377\\377\\377\\377\\377";

// One message on the control socket; printf takes its first byte as an octal number.
std::string say(hx::child::Word word) {
    const int number = static_cast<int>(word);
    return "{ printf '\\0" + std::to_string(number / 8) + std::to_string(number % 8) +
           "\\0\\0\\0'; head -c 124 /dev/zero; } | dd bs=128 iflag=fullblock >&3 2>/dev/null\n";
}

TEST(CaptureSession, NamesWhatTheChildDidWrong) {
    const struct {
        const char* label;
        std::string script;
        const char* text;
        hx::CaptureEnd end = hx::CaptureEnd::childFailed;
    } rows[] = {
        {"ended", "exit 3", "exit status 3"},
        {"crashed", "kill -SEGV $$", "signal 11"},
        {"spoke nonsense", "echo nonsense >&3; exec sleep 60", "makes no sense"},
        {"claimed too many frames", claim("\\11"), "9 waiting"},
        {"claimed less than none", claim(kAllOnes), "waiting"},
        {"claimed a frame a byte too long", claim("\\1", "\\1\\0\\100"), "4194305 bytes in a slot"},
        {"claimed the longest frame", claim("\\1", kAllOnes), "bytes in a slot"},
        {"lost the camera before the start was heard of",
         "echo '-1: gone' >&2\n" + say(hx::child::Word::started) + "exec sleep 60", "-1: gone",
         hx::CaptureEnd::cameraLost},
        {"lost it while one frame was asked for",
         say(hx::child::Word::started) + say(hx::child::Word::noFrame) + "exec sleep 60", "",
         hx::CaptureEnd::cameraLost},
        {"shrank the ring", "truncate -s 0 /proc/self/fd/4 && exit 0; exit 7", "exit status 7"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        hx::CaptureSession session(scripted(row.script));
        const hx::CaptureEvent event = waitFor(session, Kind::ended);
        ASSERT_EQ(event.kind, Kind::ended);
        EXPECT_EQ(event.end, row.end);
        EXPECT_THAT(event.text, HasSubstr(row.text));
        session.stop(milliseconds(0));
    }
}

TEST(CaptureSession, HandsOutMessagesBeforeTheEndAsUtf8) {
    hx::CaptureSession session(
        scripted("printf 'plain\\n\\316\\336\\267\\250: x\\n\\377\\n' >&2; printf 'unfinished' "
                 ">&2; exit 1"));
    for (const char* const line : {"plain", "\xe6\x97\xa0\xe6\xb3\x95: x", "\\xff", "unfinished"}) {
        const hx::CaptureEvent event = session.wait(kPatience);
        EXPECT_EQ(event.kind, Kind::message);
        EXPECT_EQ(event.text, line);
    }
    EXPECT_EQ(session.wait(kPatience).kind, Kind::ended);
    EXPECT_EQ(session.messages().size(), 4U);
}

TEST(CaptureSession, EndsAChildThatDoesNotStop) {
    hx::CaptureSession session(scripted("trap '' TERM INT; echo up >&2; exec sleep 60"));
    ASSERT_EQ(waitFor(session, Kind::message).text, "up");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(session.stop(milliseconds(50)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, kPatience / 2);
    EXPECT_THAT(session.wait(kPatience).text, HasSubstr("signal 9"));
}

TEST(CaptureSession, WaitsNoLongerThanAskedAndHearsAnInterrupt) {
    const hx::UniqueFd interrupt(eventfd(0, EFD_CLOEXEC));
    hx::CaptureOptions options = scripted("exec sleep 60");
    options.interruptFd = interrupt.get();
    hx::CaptureSession session(options);
    EXPECT_EQ(session.wait(milliseconds(1)).kind, Kind::timeout);
    EXPECT_THROW(session.setExposure(5, milliseconds(1)), hx::CaptureError);
    ASSERT_EQ(eventfd_write(interrupt.get(), 1), 0);
    EXPECT_EQ(session.wait(kPatience).kind, Kind::interrupted);
}

TEST(CaptureSession, NeedsRoomInItsRing) {
    for (const hx::RingShape& ring : {hx::RingShape{0, 100}, {3, 0}, {4, ~std::size_t{0} / 4}}) {
        EXPECT_THROW(hx::CaptureSession({.node = "", .ring = ring, .childProgram = "/bin/true"}),
                     std::invalid_argument);
    }
}

TEST(CaptureSession, ReportsAMissingChildAtOnce) {
    hx::CaptureOptions options;
    options.childProgram = "/nonexistent/child";
    // Under an emulator the new process says it by its exit status instead.
    try {
        hx::CaptureSession session(options);
        EXPECT_THAT(session.wait(kPatience).text, HasSubstr("exit status 127"));
    } catch (const hx::CaptureError& error) {
        EXPECT_THAT(error.what(), HasSubstr("/nonexistent/child"));
    }
}

}  // namespace
