// SPDX-License-Identifier: MIT
// Containers, in which every frame is handed over: one block of memory with the samples and the
// tagged entries that describe them. Byte by byte: docs/container-format.md.
//
// Link libhx_container.a; no camera library is needed. Two ways to read:
//   hx::ContainerView  looks at a container where it lies: nothing is copied, allocated or printed
//   decodecFile        copies everything out, and prints why it refuses
// Both accept the same containers of this machine's byte order. Both check every offset, count and
// length against the bytes that are there, so containers of any origin can be given to them.
//
// Nothing here has a state of its own: different threads may call anything at once, on different
// or, for reading, on the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

/// Kind of a container; the header holds its low 16 bits.
enum FileType : std::uint32_t {
    FILE_TYPE_HX = 0x4858,  ///< the letters HX: a frame with its metadata
};

/// Type of the elements of a payload. Values above 6 are unknown and have size 0.
enum FileDataType : std::uint16_t {
    Data8_0 = 0,   ///< 1 byte
    Data16 = 1,    ///< 2 bytes
    Data32_2 = 2,  ///< 4 bytes
    Data8_3 = 3,   ///< 1 byte
    Data8_4 = 4,   ///< 1 byte, text
    Data32_5 = 5,  ///< 4 bytes
    Data64 = 6,    ///< 8 bytes
};

/// Tags that describe the main data block; all others are the caller's.
enum : std::uint16_t {
    TAG_DATA_TYPE = 1,    ///< one 16-bit value, a FileDataType
    TAG_DATA_COUNT = 2,   ///< one 32-bit value
    TAG_DATA_OFFSET = 3,  ///< one 32-bit value, set by the writer
};

/// One tagged entry. It does not own `data`: whoever allocated the payload releases it.
struct FileInfo {
    FileInfo() = default;
    /// Deep copy: a payload of its own, from new[]. Without a payload nothing at all is copied.
    FileInfo(const FileInfo& other);
    FileInfo& operator=(const FileInfo&) = delete;

    std::uint16_t tag = 0;
    FileDataType dataType = Data8_0;
    std::uint32_t count = 0;   ///< elements
    std::uint32_t offset = 0;  ///< bytes from the start of the container; set by the writer
    unsigned char* data = nullptr;
    std::uint64_t size = 0;  ///< bytes of `data`; keep it count x element size
};

/// Bytes of one element; 0 for an unknown type.
std::uint64_t elementSize(FileDataType type);

/// Packs main data and entries into a new block.
///
/// Sets every entry's `offset`, and the value of every TAG_DATA_OFFSET entry. A reserved entry that
/// is too short for its value, or of unknown type, is packed but not understood.
/// @return 1 with `out` (from new[], the caller's) and `outSize`; 0 with both untouched when
///         `infos` or `mainData` is null or `infoCount` is 0
int encodecFile(FileType type, FileInfo* infos, unsigned short infoCount, const void* mainData,
                unsigned char*& out, unsigned long& outSize);

/// Takes a container apart again.
///
/// Prints one line on standard error for what it refuses. Every read is checked against `length`; a
/// container whose payloads overlap so much that they are together more than eight times its length
/// is refused too, so that memory stays in proportion.
/// @param data       `length` bytes
/// @param expected   file type that the header must show
/// @param infos      receives an array from new[]; each entry's `data` is a block of its own, from
///                   new unsigned char[], null for an unknown type. All the caller's
/// @param infoCount  receives the number of entries
/// @param mainData   receives the main data, from new unsigned char[]; null for an unknown type
/// @return 1; 0 with nothing allocated. From the table on a failure sets `infos` to null and
///         `infoCount` to the number that the container claims; one in the main data sets
///         `mainData` to null. What a failure does not reach is untouched
int decodecFile(const unsigned char* data, unsigned long length, FileType expected,
                FileInfo*& infos, unsigned short& infoCount, void*& mainData);

namespace hx {

/// Tags of a frame's entries.
enum class Tag : std::uint16_t {
    dataType = TAG_DATA_TYPE,
    dataCount = TAG_DATA_COUNT,
    dataOffset = TAG_DATA_OFFSET,
    width,               ///< pixels
    height,              ///< pixels
    depth,               ///< bits per sample
    time,                ///< text, see ContainerView::time()
    identification,      ///< text of the camera's firmware
    libraryVersion,      ///< text
    exposure,            ///< units of 100 us
    gain,                ///< 0 where the camera has none
    spectralResolution,  ///< 1, 10, 20 or 75
    firstReserved,
    lastReserved = 18,
};

/// "width", "identification", "reserved", ...; "unknown" for a tag that no frame has.
std::string_view tagName(std::uint16_t tag);

/// The bytes are no whole container, or it is not what was asked for.
class ContainerFault : public std::runtime_error {
  public:
    /// what() is `text`, which does not say the offset.
    ContainerFault(std::uint64_t offset, const std::string& text)
        : std::runtime_error(text), offset_(offset) {}

    /// The field or entry record that is wrong, or the end of the bytes where they end too early:
    /// bytes from the start of what the view was made of, never past its end.
    std::uint64_t offset() const noexcept { return offset_; }

  private:
    std::uint64_t offset_;
};

/// One entry, as it lies in the container.
struct ContainerEntry {
    std::uint16_t tag = 0;
    FileDataType type = Data8_0;
    std::uint32_t count = 0;   ///< elements
    std::uint32_t offset = 0;  ///< of the payload, from the start of the container
    std::span<const std::byte> payload;

    /// Element `index` as a number.
    /// @throws std::out_of_range beyond the payload (also for an unknown type, which has none)
    std::uint64_t number(std::size_t index = 0) const;
    /// The bytes up to the first zero. In any encoding: they are the device's.
    std::string_view text() const;
};

/// A container where it lies. It and all that it hands out point into the bytes it was made of:
/// they must outlive it and stay as they are.
class ContainerView {
  public:
    /// Checks header, table, every entry and the main data.
    /// @param bytes  begin with a container; bytes behind it are allowed, see size()
    /// @throws ContainerFault
    explicit ContainerView(std::span<const std::byte> bytes);
    /// The same for a block such as getHxData() or a callback delivers.
    ContainerView(const void* bytes, std::size_t size)
        : ContainerView(std::span(static_cast<const std::byte*>(bytes), size)) {}

    /// The file type in the header, FILE_TYPE_HX for a frame.
    std::uint16_t kind() const noexcept { return kind_; }
    /// Bytes from the start to the end of the table. A further container begins there when several
    /// lie back to back.
    std::size_t size() const noexcept { return size_; }

    /// Never 0.
    std::size_t entryCount() const noexcept { return entryCount_; }
    /// @throws std::out_of_range
    ContainerEntry entry(std::size_t index) const;
    /// The last entry of that tag.
    std::optional<ContainerEntry> find(Tag tag) const;
    /// First element, or text, of the last entry of that tag; 0 or empty without one.
    std::uint64_t number(Tag tag) const;
    std::string_view text(Tag tag) const;

    std::uint64_t width() const { return number(Tag::width); }
    std::uint64_t height() const { return number(Tag::height); }
    std::uint64_t depth() const { return number(Tag::depth); }
    /// Local time to the minute, and the milliseconds: "2026-11-21--07-45--123".
    std::string_view time() const { return text(Tag::time); }
    std::string_view identification() const { return text(Tag::identification); }
    std::string_view libraryVersion() const { return text(Tag::libraryVersion); }
    /// Units of 100 us.
    std::uint64_t exposure() const { return number(Tag::exposure); }
    std::uint64_t gain() const { return number(Tag::gain); }
    /// 1, 10, 20 or 75.
    std::uint64_t spectralCode() const { return number(Tag::spectralResolution); }

    /// Type of the main data's elements; Data16 for a frame.
    FileDataType mainType() const noexcept { return mainType_; }
    /// The main data as bytes; empty for an unknown type.
    std::span<const std::byte> mainData() const noexcept { return main_; }

    /// Number of 16-bit samples; 0 for main data of another type.
    std::size_t sampleCount() const noexcept;
    /// The samples where they lie. Nothing when they are not of 16 bits, or lie at an odd address:
    /// always even in a block of the library, often odd in a stream of several containers. Then use
    /// copySamples().
    std::optional<std::span<const std::uint16_t>> samples() const noexcept;
    /// Copies the samples, wherever they lie.
    /// @param out  as long as sampleCount(), std::length_error otherwise
    /// @throws ContainerFault when they are not of 16 bits
    void copySamples(std::span<std::uint16_t> out) const;

    /// @throws ContainerFault unless the main data are width() x height() samples of 16 bits, at
    ///         least one
    void requirePicture() const;
    /// The format puts main data, payloads and table one behind the other, in this order. A reader
    /// can do without, and the constructor does; a container for which it does not hold has most
    /// likely been damaged.
    /// @throws ContainerFault for the first that lies elsewhere
    void requireOrder() const;

  private:
    void readHeader();
    void readEntries();
    std::size_t recordAt(std::size_t index) const noexcept;

    std::span<const std::byte> bytes_;
    std::span<const std::byte> main_;
    std::size_t size_ = 0;
    std::size_t table_ = 0;
    std::size_t entryCount_ = 0;
    std::uint32_t mainOffset_ = 0;
    FileDataType mainType_ = Data8_0;
    std::uint16_t kind_ = 0;
};

}  // namespace hx
