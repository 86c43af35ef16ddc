// SPDX-License-Identifier: MIT
#include "frame_output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "capture/unique_fd.h"
#include "exit_code.h"
#include "pending_file.h"
#include "png_image.h"

namespace hxcam {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrefix = "frame-";
constexpr std::string_view kContainerSuffix = ".hxc";
constexpr std::string_view kPngSuffix = ".png";

[[noreturn]] void fail(const std::string& what, int number) {
    throw CommandError(exitFailed, fmt::format("{}: {}", what, std::strerror(number)));
}

class FolderOutput : public FrameOutput {
  public:
    explicit FolderOutput(const CaptureCommandOptions& options) : options_(options) {
        if (mkdir(folder().c_str(), 0777) != 0 && errno != EEXIST) {
            fail("cannot make the folder " + folder(), errno);
        }
        std::error_code fault;
        if (!fs::is_directory(folder(), fault)) fail(folder(), ENOTDIR);
        if (access(folder().c_str(), W_OK | X_OK) != 0) fail(folder(), errno);
        if (!options.force) refuseExisting();
    }

    void store(std::uint64_t index, const hx::ContainerView& frame,
               std::span<const std::byte> container) override {
        const std::string stem = fmt::format("{}/{}{:06}", folder(), kPrefix, index);
        PendingFile file(stem + std::string(kContainerSuffix));
        file.write(container);
        if (!options_.png) return file.finish(options_.force);

        encodePng(frame, options_.stretch ? PngScale::stretch16 : PngScale::plain16, png_);
        PendingFile picture(stem + std::string(kPngSuffix));
        picture.write(std::as_bytes(std::span(png_)));
        file.close();
        picture.close();
        file.finish(options_.force);
        picture.finish(options_.force);
    }

  private:
    const std::string& folder() const { return options_.output; }

    void refuseExisting() const {
        std::error_code fault;
        for (const auto& entry : fs::directory_iterator(folder(), fault)) {
            if (wouldBeOverwritten(entry.path().filename().string())) {
                hxcam::refuseExisting(entry.path().string());
            }
        }
        if (fault) fail(folder(), fault.value());
    }

    bool wouldBeOverwritten(std::string_view name) const {
        if (!name.starts_with(kPrefix)) return false;
        name.remove_prefix(kPrefix.size());
        std::uint64_t index = 0;
        const auto [rest, fault] = std::from_chars(name.data(), name.data() + name.size(), index);
        if (fault != std::errc()) return false;
        name.remove_prefix(static_cast<std::size_t>(rest - name.data()));
        const bool ours = name == kContainerSuffix || (options_.png && name == kPngSuffix);
        return ours && (options_.count == 0 || index < options_.count);
    }

    CaptureCommandOptions options_;
    std::vector<unsigned char> png_;
};

class StreamOutput : public FrameOutput {
  public:
    explicit StreamOutput(const Interrupt& interrupt) : interrupt_(interrupt) {
        if (isatty(STDOUT_FILENO) != 0) {
            throw CommandError(exitUsage, "containers are not for a terminal; redirect the output");
        }
        struct stat status {};
        const bool known = fstat(STDOUT_FILENO, &status) == 0;
        if (known && !S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode)) return;
        // The pipe once more: whether it blocks can then be chosen without choosing for others that
        // have it open. Not possible for sockets, and for pipes of other users.
        pipe_.reset(open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        mayBlock_ = !pipe_;
    }

    void store(std::uint64_t, const hx::ContainerView&,
               std::span<const std::byte> container) override {
        const int fd = pipe_ ? pipe_.get() : STDOUT_FILENO;
        while (!container.empty()) {
            if (mayBlock_) awaitReader();
            // So much never blocks once a pipe is ready; an interrupt can thus come through.
            const std::size_t most = mayBlock_ ? PIPE_BUF : container.size();
            const ssize_t size = write(fd, container.data(), std::min(most, container.size()));
            if (size < 0 && errno == EAGAIN) awaitReader();
            if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (size < 0 && errno == EPIPE) throw CommandError(exitFailed, "");
            if (size < 0) fail("cannot write to standard output", errno);
            container = container.subspan(static_cast<std::size_t>(size));
        }
    }

  private:
    void awaitReader() const {
        pollfd watched[] = {{STDOUT_FILENO, POLLOUT, 0}, {interrupt_.fd(), POLLIN, 0}};
        while (poll(watched, 2, -1) < 0 && errno == EINTR) {
        }
        if (watched[1].revents != 0 && watched[0].revents == 0) {
            throw CommandError(exitInterrupted, "interrupted; the last container is cut off");
        }
    }

    const Interrupt& interrupt_;
    hx::UniqueFd pipe_;
    bool mayBlock_ = false;
};

// The frames have been checked before they come here.
class NullOutput : public FrameOutput {
  public:
    void store(std::uint64_t, const hx::ContainerView&, std::span<const std::byte>) override {}
};

}  // namespace

std::unique_ptr<FrameOutput> openOutput(const CaptureCommandOptions& options,
                                        const Interrupt& interrupt) {
    if (options.null) return std::make_unique<NullOutput>();
    if (options.toStdout()) return std::make_unique<StreamOutput>(interrupt);
    return std::make_unique<FolderOutput>(options);
}

}  // namespace hxcam
