// SPDX-License-Identifier: MIT
#include "bounded_call.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "capture/unique_fd.h"
#include "interrupt.h"

namespace hxcam {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void answerInChild(const Question& question, int out, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    Interrupt::restoreDefaults();
    int status = 0;
    try {
        const std::string text = question();
        for (std::size_t done = 0; done < text.size();) {
            const ssize_t size = write(out, text.data() + done, text.size() - done);
            if (size < 0) _exit(1);
            done += static_cast<std::size_t>(size);
        }
    } catch (const std::exception&) {
        status = 1;
    }
    _exit(status);
}

/// A process that works on one question.
class Asked {
  public:
    explicit Asked(const Question& question) {
        int pair[2];
        if (pipe2(pair, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        in_.reset(pair[0]);
        const hx::UniqueFd out(pair[1]);
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
        if (pid_ == 0) answerInChild(question, out.get(), parent);
    }
    Asked(Asked&& other) noexcept
        : in_(std::move(other.in_)),
          pid_(std::exchange(other.pid_, -1)),
          answer_(std::move(other.answer_)) {}
    Asked& operator=(Asked&&) = delete;
    ~Asked() {
        if (pid_ < 0) return;
        kill(pid_, SIGKILL);
        // Not waited for: inside a driver it ends only when the driver lets go of it.
        waitpid(pid_, nullptr, WNOHANG);
    }

    int fd() const { return in_.get(); }
    bool isDone() const { return !in_; }
    Answer& answer() { return answer_; }

    void read() {
        std::array<char, 4096> bytes;
        const ssize_t size = ::read(in_.get(), bytes.data(), bytes.size());
        if (size < 0 && errno == EINTR) return;
        if (size > 0) {
            answer_.text.append(bytes.data(), static_cast<std::size_t>(size));
            return;
        }
        in_.reset();
        int status = -1;
        const bool ended = waitpid(pid_, &status, 0) == pid_;
        pid_ = -1;
        answer_.state = ended && status == 0 ? Answer::State::whole : Answer::State::broken;
    }

  private:
    hx::UniqueFd in_;
    pid_t pid_ = -1;
    Answer answer_;
};

/// False when the time is over or an interrupt came.
bool readSome(std::vector<Asked>& all, Clock::time_point deadline, int interruptFd,
              bool& interrupted) {
    std::vector<pollfd> watched{{interruptFd, POLLIN, 0}};
    // A done one has descriptor -1, which poll passes over.
    for (const Asked& one : all) watched.push_back({one.fd(), POLLIN, 0});
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    const int ready = poll(watched.data(), watched.size(),
                           static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
    if (ready < 0) return errno == EINTR;
    if (ready == 0) return false;
    interrupted = watched[0].revents != 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (watched[i + 1].revents != 0) all[i].read();
    }
    return !interrupted;
}

}  // namespace

std::vector<Answer> askBounded(const std::vector<Question>& questions,
                               std::chrono::milliseconds timeout, int interruptFd) {
    const Clock::time_point deadline = Clock::now() + timeout;
    std::vector<Asked> all;
    all.reserve(questions.size());
    for (const Question& question : questions) all.emplace_back(question);

    bool interrupted = false;
    const auto isDone = [](const Asked& one) { return one.isDone(); };
    while (!std::all_of(all.begin(), all.end(), isDone) &&
           readSome(all, deadline, interruptFd, interrupted)) {
    }
    std::vector<Answer> answers;
    for (Asked& one : all) {
        if (interrupted && !one.isDone()) one.answer().state = Answer::State::interrupted;
        answers.push_back(std::move(one.answer()));
    }
    return answers;
}

}  // namespace hxcam
