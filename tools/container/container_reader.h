// SPDX-License-Identifier: MIT
// Reads a container where it lies: every offset and length in it is checked against the bytes that
// are there. Nothing is copied or allocated.
//
//     "LL" | kind u16 | table offset u32 | samples | payloads | entry count u16 | entries
//
// An entry is tag u16, type u16, count u32, offset u32; all numbers are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string_view>

namespace hx {

enum class Tag : std::uint16_t {
    dataType = 1,
    dataCount,
    dataOffset,
    width,
    height,
    depth,
    time,
    identification,
    libraryVersion,
    exposure,
    gain,
    spectralResolution,
    firstReserved,
    lastReserved = 18,
};

/// "width", "reserved", ...; "unknown" for a tag of nobody here.
std::string_view tagName(std::uint16_t tag);

/// Element types. There are three of one byte and two of four; text is the only one told apart.
constexpr std::uint16_t kTextType = 4;

/// Bytes of one element; 0 for an unknown type.
std::size_t elementSize(std::uint16_t type);

/// The bytes are no whole container; what() says where.
class ContainerFault : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct ContainerEntry {
    std::uint16_t tag = 0;
    std::uint16_t type = 0;
    std::uint32_t count = 0;
    std::uint32_t offset = 0;
    std::span<const std::byte> payload;

    /// Element `index` as a number; it must be less than `count`, the type known.
    std::uint64_t number(std::size_t index) const;
    /// The bytes up to the first zero.
    std::string_view text() const;
};

class ContainerView {
  public:
    /// Checks everything that `bytes` begins with: header, table, every entry and the samples.
    /// Bytes behind the container are allowed, see size(). Throws ContainerFault.
    explicit ContainerView(std::span<const std::byte> bytes);

    std::uint16_t kind() const { return kind_; }
    std::size_t size() const { return bytes_.size(); }
    std::size_t entryCount() const { return entryCount_; }
    ContainerEntry entry(std::size_t index) const;

    /// The number or text of the last entry of that tag; 0 or empty without one.
    std::uint64_t number(Tag tag) const;
    std::string_view text(Tag tag) const;

    std::span<const std::byte> samples() const { return samples_; }
    /// Samples as 16-bit pixels of a picture. Throws ContainerFault when they are something else.
    void requirePicture() const;

  private:
    std::span<const std::byte> bytes_;
    std::span<const std::byte> samples_;
    std::uint16_t kind_ = 0;
    std::size_t table_ = 0;
    std::size_t entryCount_ = 0;
};

}  // namespace hx
