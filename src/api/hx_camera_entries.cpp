// SPDX-License-Identifier: MIT
#include "api/hx_camera_entries.h"

#include <chrono>
#include <ctime>

namespace hx {
namespace {

using Clock = std::chrono::system_clock;

// The version that frames carry; its length is part of every container's length.
char libraryVersion[] = "1.0.1-rc";

constexpr std::size_t kStampSize = 20;

}  // namespace

FrameEntries::FrameEntries(FrameValues& values) : pixels_(values.width * values.height) {
    add(Data16, &mainType_, 1);
    add(Data32_2, &pixels_, 1);
    add(Data32_2, &mainOffset_, 1);
    add(Data32_2, &values.width, 1);
    add(Data32_2, &values.height, 1);
    add(Data8_0, &values.depth, 1);
    addText(values.time);
    addText(values.cameraId);
    add(Data8_4, libraryVersion, sizeof libraryVersion);
    add(Data32_2, &values.exposure, 1);
    add(Data32_2, &values.gain, 1);
    add(Data32_2, &values.specResolution, 1);
    for (int reserved = 0; reserved < 5; ++reserved) add(Data8_3, &zero_, 1);
    add(Data8_0, &zero_, 1);
}

// Tags are the entries' numbers, from 1.
void FrameEntries::add(FileDataType type, void* payload, std::uint32_t count) {
    FileInfo& info = infos_[used_++];
    info.tag = used_;
    info.dataType = type;
    info.count = count;
    info.data = static_cast<unsigned char*>(payload);
    info.size = count * elementSize(type);
}

// With its terminating zero; the length is a 16-bit number.
void FrameEntries::addText(std::string& text) {
    add(Data8_4, text.data(), static_cast<std::uint16_t>(text.size() + 1));
}

void stampTime(std::string& text) {
    using std::chrono::duration_cast;
    std::tm local{};

    // Kept: a first reading that is not used. It costs one look at the clock.
    const std::time_t unused = Clock::to_time_t(Clock::now());
    localtime_r(&unused, &local);

    const auto sinceEpoch = Clock::now().time_since_epoch();
    const std::time_t seconds = duration_cast<std::chrono::seconds>(sinceEpoch).count();
    const auto milliseconds = duration_cast<std::chrono::milliseconds>(sinceEpoch).count() % 1000;
    localtime_r(&seconds, &local);

    // Kept: the room is one byte short of the whole stamp. strftime gives up at the seconds and
    // leaves the 18 characters before them, so the text ends with the first zero behind those. All
    // containers of a handle are of one length because of it.
    char stamp[kStampSize] = {};
    strftime(stamp, sizeof stamp, "%Y-%m-%d--%H-%M-%S", &local);

    text = stamp;
    text += '-';
    for (const auto unit : {100, 10, 1}) text += static_cast<char>('0' + milliseconds / unit % 10);
}

}  // namespace hx
