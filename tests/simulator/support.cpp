// SPDX-License-Identifier: MIT
#include "support.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace simtest {

namespace {

std::vector<std::string>& cameraOptions() {
    static std::vector<std::string> options;
    return options;
}

// Becomes hx-sim with all declared cameras, which runs this program again.
void runUnderSimulator(char** argv) {
    std::vector<std::string> words = {HX_SIM};
    for (const std::string& option : cameraOptions())
        words.insert(words.end(), {"--camera", option});
    words.push_back("--");
    words.push_back(std::string(argv[0]));
    std::vector<char*> list;
    for (std::string& word : words) list.push_back(word.data());
    for (char** word = argv + 1; *word; ++word) list.push_back(*word);
    list.push_back(nullptr);
    execv(list[0], list.data());
    std::cerr << "cannot run " << list[0] << ": " << std::strerror(errno) << "\n";
    std::exit(1);
}

}  // namespace

SimCamera::SimCamera(const std::string& keys, const std::string& identification)
    : number_(2 * cameraOptions().size()) {
    std::string option = identification + ",node=" + std::to_string(number_);
    if (!keys.empty()) option += "," + keys;
    cameraOptions().push_back(option);
}

std::vector<std::string> namesInDev() {
    std::vector<std::string> names;
    DIR* directory = opendir("/dev");
    if (!directory) return names;
    while (const dirent* entry = readdir(directory)) names.emplace_back(entry->d_name);
    closedir(directory);
    return names;
}

bool inDev(const std::string& name) {
    const auto names = namesInDev();
    return std::find(names.begin(), names.end(), name) != names.end();
}

int inChild(const std::function<int()>& work) {
    const pid_t child = fork();
    if (child == 0) _exit(work());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

Node::Node(const std::string& path, int flags) {
    fd_ = ::open(path.c_str(), O_RDWR | O_CLOEXEC | flags);
    if (fd_ < 0) openError_ = errno;
}

Node::~Node() {
    close();
    unmapAll();
}

void Node::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

int Node::callRaw(unsigned long request, void* argument) {
    return ::ioctl(fd_, request, argument) < 0 ? errno : 0;
}

int Node::setFormat() {
    v4l2_format format = {};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = 1600;
    format.fmt.pix.height = 1200;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    return call(VIDIOC_S_FMT, &format);
}

int Node::requestBuffers(std::uint32_t count) {
    v4l2_requestbuffers request = {};
    request.count = count;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    const int error = call(VIDIOC_REQBUFS, &request);
    return error ? -error : static_cast<int>(request.count);
}

int Node::queue(std::uint32_t index) {
    v4l2_buffer buffer = {};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    return call(VIDIOC_QBUF, &buffer);
}

int Node::dequeue(v4l2_buffer& buffer) {
    buffer = {};
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    return call(VIDIOC_DQBUF, &buffer);
}

int Node::streamOn() {
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    return call(VIDIOC_STREAMON, &type);
}

int Node::streamOff() {
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    return call(VIDIOC_STREAMOFF, &type);
}

int Node::setExposure(std::int32_t value) {
    v4l2_control control = {V4L2_CID_EXPOSURE_ABSOLUTE, value};
    return call(VIDIOC_S_CTRL, &control);
}

int Node::exposure() {
    v4l2_control control = {V4L2_CID_EXPOSURE_ABSOLUTE, 0};
    const int error = call(VIDIOC_G_CTRL, &control);
    return error ? -error : control.value;
}

int Node::identify(std::string& text) {
    std::uint8_t bytes[32] = {};
    uvc_xu_control_query query = {6, 10, UVC_GET_CUR, sizeof bytes, bytes};
    const int error = call(UVCIOC_CTRL_QUERY, &query);
    text.assign(reinterpret_cast<const char*>(bytes), sizeof bytes);
    return error;
}

int Node::map(std::uint32_t index) {
    v4l2_buffer buffer = {};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (const int error = call(VIDIOC_QUERYBUF, &buffer)) return error;
    void* memory =
        mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, buffer.m.offset);
    if (memory == MAP_FAILED) return errno;
    maps_.push_back({static_cast<std::byte*>(memory), buffer.length});
    return 0;
}

void Node::unmapAll() {
    for (const auto& place : maps_) munmap(place.data(), place.size());
    maps_.clear();
}

std::span<const std::uint16_t> Node::words(std::uint32_t index) const {
    const auto& place = maps_[index];
    return {reinterpret_cast<const std::uint16_t*>(place.data()), place.size() / 2};
}

int Node::start(std::uint32_t count) {
    if (const int error = setFormat()) return error;
    const int granted = requestBuffers(count);
    if (granted < 0) return -granted;
    for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(granted); ++i) {
        if (const int error = map(i)) return error;
        if (const int error = queue(i)) return error;
    }
    return streamOn();
}

bool Node::readable(int milliseconds) const {
    pollfd wait = {fd_, POLLIN, 0};
    return poll(&wait, 1, milliseconds) == 1 && (wait.revents & POLLIN);
}

std::string rampFault(std::span<const std::uint16_t> words, std::uint32_t sequence,
                      std::size_t from) {
    for (std::size_t i = from; i < words.size(); ++i) {
        if (words[i] == rampWord(i, sequence)) continue;
        return "frame " + std::to_string(sequence) + " word " + std::to_string(i) + " is " +
               std::to_string(words[i]) + ", not " + std::to_string(rampWord(i, sequence));
    }
    return {};
}

}  // namespace simtest

int main(int argc, char** argv) {
    if (!std::getenv("HX_SIM_STATE")) simtest::runUnderSimulator(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
