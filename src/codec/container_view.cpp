// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "codec/file_codec.h"

namespace hx {
namespace {

// Samples are looked at where they lie.
static_assert(std::endian::native == std::endian::little);

constexpr std::uint16_t kKindOfOtherOrder = 0x5848;
constexpr std::size_t kCountSize = 2;

constexpr std::array<std::string_view, 18> kTagNames = {
    "data type", "data count",     "data offset",     "width",    "height",   "depth",
    "time",      "identification", "library version", "exposure", "gain",     "spectral resolution",
    "reserved",  "reserved",       "reserved",        "reserved", "reserved", "reserved"};

// Little-endian number of `width` bytes. The caller has checked that they are there.
std::uint64_t load(std::span<const std::byte> bytes, std::size_t at, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = width; i-- > 0;) {
        value = value << 8 | std::to_integer<std::uint64_t>(bytes[at + i]);
    }
    return value;
}

std::string nameOf(std::size_t index, const ContainerEntry& entry) {
    return "entry " + std::to_string(index) + " (tag " + std::to_string(entry.tag) + ")";
}

std::string extent(std::uint64_t size, std::uint64_t offset) {
    return std::to_string(size) + " bytes at " + std::to_string(offset);
}

bool fits(std::uint64_t length, std::uint64_t offset, std::uint64_t size) {
    return offset <= length && size <= length - offset;
}

constexpr char kTooManyUses[] = "its payloads overlap: together more than eight times its length";

}  // namespace

std::string_view tagName(std::uint16_t tag) {
    return tag >= 1 && tag <= kTagNames.size() ? kTagNames[tag - 1U] : "unknown";
}

std::uint64_t ContainerEntry::number(std::size_t index) const {
    const std::uint64_t width = elementSize(type);
    if (width == 0 || index >= payload.size() / width) {
        throw std::out_of_range("element " + std::to_string(index) + " of a container's entry");
    }
    return load(payload, index * width, width);
}

std::string_view ContainerEntry::text() const {
    if (payload.empty()) return {};
    const char* const begin = reinterpret_cast<const char*>(payload.data());
    return {begin, strnlen(begin, payload.size())};
}

ContainerView::ContainerView(std::span<const std::byte> bytes) : bytes_(bytes) {
    readHeader();
    readEntries();
}

void ContainerView::readHeader() {
    const std::size_t length = bytes_.size();
    if (length >= sizeof kMagic && load(bytes_, 0, sizeof kMagic) != kMagic) {
        throw ContainerFault(0, "no container: it does not begin with \"LL\"");
    }
    if (length < kHeaderSize) throw ContainerFault(length, "the header is cut off");
    kind_ = static_cast<std::uint16_t>(load(bytes_, 2, 2));
    if (kind_ == kKindOfOtherOrder) {
        throw ContainerFault(2, "written in the other byte order (big-endian)");
    }
    table_ = load(bytes_, 4, 4);
    if (table_ > length || length - table_ < kCountSize) {
        throw ContainerFault(length, "cut off: the table should begin at byte " +
                                         std::to_string(table_) + " of " + std::to_string(length));
    }
    entryCount_ = load(bytes_, table_, kCountSize);
    if (entryCount_ == 0) throw ContainerFault(table_, "it has no entries");
    size_ = table_ + kCountSize + kRecordSize * entryCount_;
    if (size_ > length) {
        throw ContainerFault(length, "cut off: " + std::to_string(entryCount_) + " entries need " +
                                         std::to_string(size_) + " bytes, there are " +
                                         std::to_string(length));
    }
}

void ContainerView::readEntries() {
    std::uint64_t mainCount = 0;
    std::uint64_t mainRecord = table_;  // that of the last entry that describes the main data
    std::uint64_t used = 0;
    const auto claim = [&](std::uint64_t size, std::uint64_t at) {
        used += size;
        if (used > kMostUses * bytes_.size()) throw ContainerFault(at, kTooManyUses);
    };
    for (std::size_t i = 0; i < entryCount_; ++i) {
        const std::uint64_t at = recordAt(i);
        const ContainerEntry found = entry(i);
        const std::uint64_t size = found.count * elementSize(found.type);
        if (!fits(bytes_.size(), found.offset, size)) {
            throw ContainerFault(at, nameOf(i, found) + ": its payload, " +
                                         extent(size, found.offset) +
                                         ", is outside of the container");
        }
        claim(size, at);
        if (found.tag < TAG_DATA_TYPE || found.tag > TAG_DATA_OFFSET) continue;

        // By their bytes: what type the entry has does not matter.
        const std::size_t width = found.tag == TAG_DATA_TYPE ? 2 : 4;
        if (size < width) throw ContainerFault(at, nameOf(i, found) + " is too short");
        const std::uint64_t value = load(found.payload, 0, width);
        mainRecord = at;
        if (found.tag == TAG_DATA_TYPE) mainType_ = static_cast<FileDataType>(value);
        if (found.tag == TAG_DATA_COUNT) mainCount = value;
        if (found.tag == TAG_DATA_OFFSET) mainOffset_ = static_cast<std::uint32_t>(value);
    }
    const std::uint64_t mainSize = mainCount * elementSize(mainType_);
    if (!fits(bytes_.size(), mainOffset_, mainSize)) {
        throw ContainerFault(
            mainRecord, "the samples, " + extent(mainSize, mainOffset_) + ", reach past the end");
    }
    claim(mainSize, mainRecord);
    main_ = bytes_.subspan(mainOffset_, mainSize);
}

std::size_t ContainerView::recordAt(std::size_t index) const noexcept {
    return table_ + kCountSize + index * kRecordSize;
}

// While the constructor checks, a payload that is not there comes out empty.
ContainerEntry ContainerView::entry(std::size_t index) const {
    if (index >= entryCount_) {
        throw std::out_of_range("entry " + std::to_string(index) + " of a container");
    }
    const std::size_t at = recordAt(index);
    ContainerEntry entry;
    entry.tag = static_cast<std::uint16_t>(load(bytes_, at, 2));
    entry.type = static_cast<FileDataType>(load(bytes_, at + 2, 2));
    entry.count = static_cast<std::uint32_t>(load(bytes_, at + 4, 4));
    entry.offset = static_cast<std::uint32_t>(load(bytes_, at + 8, 4));
    const std::uint64_t size = entry.count * elementSize(entry.type);
    if (fits(bytes_.size(), entry.offset, size)) {
        entry.payload = bytes_.subspan(entry.offset, size);
    }
    return entry;
}

std::optional<ContainerEntry> ContainerView::find(Tag tag) const {
    for (std::size_t i = entryCount_; i-- > 0;) {
        const ContainerEntry found = entry(i);
        if (found.tag == static_cast<std::uint16_t>(tag)) return found;
    }
    return std::nullopt;
}

std::uint64_t ContainerView::number(Tag tag) const {
    const std::optional<ContainerEntry> found = find(tag);
    return found && !found->payload.empty() ? found->number() : 0;
}

std::string_view ContainerView::text(Tag tag) const {
    const std::optional<ContainerEntry> found = find(tag);
    return found ? found->text() : std::string_view();
}

std::size_t ContainerView::sampleCount() const noexcept {
    return mainType_ == Data16 ? main_.size() / sizeof(std::uint16_t) : 0;
}

std::optional<std::span<const std::uint16_t>> ContainerView::samples() const noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(main_.data());
    if (mainType_ != Data16 || address % alignof(std::uint16_t) != 0) return std::nullopt;
    return std::span(reinterpret_cast<const std::uint16_t*>(main_.data()), sampleCount());
}

void ContainerView::copySamples(std::span<std::uint16_t> out) const {
    if (mainType_ != Data16) throw ContainerFault(mainOffset_, "its samples are not of 16 bits");
    if (out.size() != sampleCount()) throw std::length_error("room for a container's samples");
    if (!out.empty()) std::memcpy(out.data(), main_.data(), main_.size());
}

void ContainerView::requirePicture() const {
    if (mainType_ != Data16) throw ContainerFault(mainOffset_, "its samples are not of 16 bits");
    const std::uint64_t columns = width();
    const std::uint64_t rows = height();
    const std::uint64_t pixels = sampleCount();
    if (columns == 0 || rows == 0 || pixels % columns != 0 || pixels / columns != rows) {
        throw ContainerFault(mainOffset_, std::to_string(pixels) + " samples are no picture of " +
                                              std::to_string(columns) + " x " +
                                              std::to_string(rows));
    }
}

void ContainerView::requireOrder() const {
    if (mainOffset_ != kHeaderSize) {
        throw ContainerFault(
            mainOffset_, "the samples begin at byte " + std::to_string(mainOffset_) + ", not at 8");
    }
    std::uint64_t position = kHeaderSize + main_.size();
    for (std::size_t i = 0; i < entryCount_; ++i) {
        const ContainerEntry found = entry(i);
        if (found.offset != position) {
            throw ContainerFault(recordAt(i), nameOf(i, found) + ": its payload, " +
                                                  extent(found.payload.size(), found.offset) +
                                                  ", should be at " + std::to_string(position));
        }
        position += found.payload.size();
    }
    if (table_ != position) {
        throw ContainerFault(4, "the table is at byte " + std::to_string(table_) +
                                    ", the payloads end at " + std::to_string(position));
    }
}

}  // namespace hx
