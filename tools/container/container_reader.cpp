// SPDX-License-Identifier: MIT
#include "container/container_reader.h"

#include <array>
#include <cstring>
#include <string>

namespace hx {
namespace {

constexpr std::uint16_t kMagic = 0x4C4C;
constexpr std::uint16_t kKindOfOtherOrder = 0x5848;  // "HX" frames are 0x4858
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kCountSize = 2;
constexpr std::size_t kEntrySize = 12;
constexpr std::array<std::size_t, 7> kElementSizes = {1, 2, 4, 1, 1, 4, 8};
constexpr std::uint16_t kSampleType = 1;

constexpr std::array<std::string_view, 18> kTagNames = {
    "data type", "data count",     "data offset",     "width",    "height",   "depth",
    "time",      "identification", "library version", "exposure", "gain",     "spectral resolution",
    "reserved",  "reserved",       "reserved",        "reserved", "reserved", "reserved"};

/// Little-endian number of `width` bytes. The caller has checked that they are there.
std::uint64_t load(std::span<const std::byte> bytes, std::size_t at, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = width; i-- > 0;) {
        value = value << 8 | std::to_integer<std::uint64_t>(bytes[at + i]);
    }
    return value;
}

[[noreturn]] void fail(const std::string& what) {
    throw ContainerFault(what);
}

}  // namespace

std::string_view tagName(std::uint16_t tag) {
    return tag >= 1 && tag <= kTagNames.size() ? kTagNames[tag - 1U] : "unknown";
}

std::size_t elementSize(std::uint16_t type) {
    return type < kElementSizes.size() ? kElementSizes[type] : 0;
}

std::uint64_t ContainerEntry::number(std::size_t index) const {
    const std::size_t width = elementSize(type);
    return load(payload, index * width, width);
}

std::string_view ContainerEntry::text() const {
    const char* const begin = reinterpret_cast<const char*>(payload.data());
    return {begin, strnlen(begin, payload.size())};
}

ContainerView::ContainerView(std::span<const std::byte> bytes) : bytes_(bytes) {
    if (bytes.size() < kHeaderSize) fail("the header is cut off");
    if (load(bytes, 0, 2) != kMagic) fail("no container: it does not begin with \"LL\"");
    kind_ = static_cast<std::uint16_t>(load(bytes, 2, 2));
    if (kind_ == kKindOfOtherOrder) fail("written in the other byte order (big-endian)");
    table_ = load(bytes, 4, 4);
    if (table_ < kHeaderSize) fail("the table offset points into the header");
    if (table_ > bytes.size() || bytes.size() - table_ < kCountSize) {
        fail("cut off: the table should begin at byte " + std::to_string(table_) + " of " +
             std::to_string(bytes.size()));
    }
    entryCount_ = load(bytes, table_, kCountSize);
    const std::size_t size = table_ + kCountSize + kEntrySize * entryCount_;
    if (size > bytes.size()) {
        fail("cut off: " + std::to_string(entryCount_) + " entries need " + std::to_string(size) +
             " bytes, there are " + std::to_string(bytes.size()));
    }
    bytes_ = bytes.first(size);

    for (std::size_t i = 0; i < entryCount_; ++i) entry(i);
    const std::uint64_t sampleSize = elementSize(static_cast<std::uint16_t>(number(Tag::dataType)));
    const std::uint64_t sampleBytes = number(Tag::dataCount) * sampleSize;
    if (sampleBytes > table_ - kHeaderSize) {
        fail("the samples (" + std::to_string(sampleBytes) + " bytes) reach past the table");
    }
    samples_ = bytes_.subspan(kHeaderSize, sampleBytes);
}

ContainerEntry ContainerView::entry(std::size_t index) const {
    const std::size_t at = table_ + kCountSize + index * kEntrySize;
    ContainerEntry entry;
    entry.tag = static_cast<std::uint16_t>(load(bytes_, at, 2));
    entry.type = static_cast<std::uint16_t>(load(bytes_, at + 2, 2));
    entry.count = static_cast<std::uint32_t>(load(bytes_, at + 4, 4));
    entry.offset = static_cast<std::uint32_t>(load(bytes_, at + 8, 4));
    const std::uint64_t length = std::uint64_t{entry.count} * elementSize(entry.type);
    if (entry.offset < kHeaderSize || entry.offset > table_ || length > table_ - entry.offset) {
        fail("entry " + std::to_string(index) + " (tag " + std::to_string(entry.tag) +
             "): its payload, " + std::to_string(length) + " bytes at " +
             std::to_string(entry.offset) + ", is outside of the container");
    }
    entry.payload = bytes_.subspan(entry.offset, length);
    return entry;
}

std::uint64_t ContainerView::number(Tag tag) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < entryCount_; ++i) {
        const ContainerEntry found = entry(i);
        if (found.tag == static_cast<std::uint16_t>(tag) && !found.payload.empty()) {
            value = found.number(0);
        }
    }
    return value;
}

std::string_view ContainerView::text(Tag tag) const {
    std::string_view value;
    for (std::size_t i = 0; i < entryCount_; ++i) {
        const ContainerEntry found = entry(i);
        if (found.tag == static_cast<std::uint16_t>(tag)) value = found.text();
    }
    return value;
}

void ContainerView::requirePicture() const {
    const std::uint64_t width = number(Tag::width);
    const std::uint64_t height = number(Tag::height);
    const std::uint64_t pixels = samples_.size() / elementSize(kSampleType);
    if (number(Tag::dataType) != kSampleType) fail("its samples are not of 16 bits");
    if (width == 0 || height == 0 || pixels % width != 0 || pixels / width != height) {
        fail(std::to_string(pixels) + " samples are no picture of " + std::to_string(width) +
             " x " + std::to_string(height));
    }
}

}  // namespace hx
