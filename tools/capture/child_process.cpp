// SPDX-License-Identifier: MIT
#include "child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "capture_error.h"
#include "child_protocol.h"

namespace hx {
namespace {

constexpr char kChildName[] = "hx-capture-child";

[[noreturn]] void fail(const char* what, int number) {
    throw CaptureError(std::string(what) + ": " + std::generic_category().message(number));
}

// Moves a new descriptor out of the range that the child's own descriptors are put into.
UniqueFd claim(int fd, const char* what) {
    if (fd < 0) fail(what, errno);
    const UniqueFd low(fd);
    UniqueFd high(fcntl(fd, F_DUPFD_CLOEXEC, child::fdEnd));
    if (!high) fail(what, errno);
    return high;
}

UniqueFd makeRing(std::size_t size) {
    UniqueFd ring = claim(memfd_create("hx-frame-ring", MFD_CLOEXEC | MFD_ALLOW_SEALING),
                          "cannot make the frame ring");
    if (ftruncate(ring.get(), static_cast<off_t>(size)) != 0) {
        fail("cannot size the frame ring", errno);
    }
    // A mapping beyond the end of a file that shrank would kill the reader.
    if (fcntl(ring.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        fail("cannot seal the frame ring", errno);
    }
    return ring;
}

/// What posix_spawn is told; freed in any case.
class SpawnPlan {
  public:
    SpawnPlan() {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        // A group of its own: Ctrl-C is for the parent, which then ends the child in order.
        posix_spawnattr_setpgroup(&attributes_, 0);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes_, &signals);
        sigaddset(&signals, SIGPIPE);
        sigaddset(&signals, SIGXFSZ);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
        posix_spawnattr_setflags(
            &attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;
    ~SpawnPlan() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    void give(const UniqueFd& fd, int number) {
        posix_spawn_file_actions_adddup2(&actions_, fd.get(), number);
    }
    void giveNothing(int number, int flags) {
        posix_spawn_file_actions_addopen(&actions_, number, "/dev/null", flags, 0);
    }

    pid_t start(const std::vector<std::string>& arguments) const {
        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        pid_t pid = -1;
        const int fault = posix_spawn(&pid, argv[0], &actions_, &attributes_, argv.data(), environ);
        if (fault != 0) fail(("cannot start " + arguments[0]).c_str(), fault);
        return pid;
    }

  private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

std::string describeEnding(int status) {
    if (WIFSIGNALED(status)) {
        const int number = WTERMSIG(status);
        return "signal " + std::to_string(number) + " (" + strsignal(number) + ")";
    }
    return "exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::string findCaptureChild() {
    std::error_code fault;
    const auto own = std::filesystem::read_symlink("/proc/self/exe", fault).parent_path();
    for (const char* const place : {kChildName, HX_CAPTURE_CHILD_FROM_BINDIR}) {
        std::string candidate = (own / place).lexically_normal().string();
        if (!fault && access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    throw CaptureError(std::string(kChildName) + " is neither in " + own.string() + " nor at " +
                       (own / HX_CAPTURE_CHILD_FROM_BINDIR).lexically_normal().string());
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, std::size_t ringSize) {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0) {
        fail("cannot make the control socket", errno);
    }
    channels_.control = UniqueFd(pair[0]);
    const UniqueFd childControl = claim(pair[1], "cannot make the control socket");
    if (pipe2(pair, O_CLOEXEC) != 0) fail("cannot make the message pipe", errno);
    channels_.errors = UniqueFd(pair[0]);
    const UniqueFd childErrors = claim(pair[1], "cannot make the message pipe");
    channels_.ready = claim(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "cannot make an event");
    channels_.ring = makeRing(ringSize);
    // Only this end: the child writes its messages as any program does.
    fcntl(channels_.errors.get(), F_SETFL, O_NONBLOCK);

    SpawnPlan plan;
    plan.giveNothing(STDIN_FILENO, O_RDONLY);
    plan.giveNothing(STDOUT_FILENO, O_WRONLY);
    plan.give(childErrors, STDERR_FILENO);
    plan.give(childControl, child::fdControl);
    plan.give(channels_.ring, child::fdRing);
    plan.give(channels_.ready, child::fdReady);
    pid_ = plan.start(arguments);

    // By number: <sys/pidfd.h> of glibc 2.36 declares pidfd_open with C++ linkage.
    exit_ = UniqueFd(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
    if (!exit_) {
        const int number = errno;
        kill();
        waitpid(pid_, nullptr, 0);
        fail("cannot watch the capture process", number);
    }
}

ChildProcess::~ChildProcess() {
    kill();
    // A process that sleeps inside a driver ends when the driver lets go of it; it is not waited
    // for longer than this.
    await(std::chrono::milliseconds(500));
}

bool ChildProcess::await(std::chrono::milliseconds patience) {
    if (!ending_.empty()) return true;
    pollfd watched{exit_.get(), POLLIN, 0};
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        const int ready =
            poll(&watched, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        if (ready > 0) break;
        if (ready == 0 || errno != EINTR) return false;
    }
    int status = 0;
    const pid_t collected = waitpid(pid_, &status, WNOHANG);
    if (collected == 0) return false;
    // Where SIGCHLD is ignored nobody gets the status.
    ending_ = collected == pid_ ? describeEnding(status) : "an unknown status";
    return true;
}

void ChildProcess::kill() {
    if (ending_.empty()) ::kill(pid_, SIGKILL);
}

}  // namespace hx
