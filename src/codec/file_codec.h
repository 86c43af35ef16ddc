// SPDX-License-Identifier: MIT
// Container: one frame and its tagged entries in one block of memory. Layout: see
// docs/container-format.md. Used by api/; includes nothing of the library.
#pragma once

#include <cstdint>

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

/// The same into an existing block of `capacity` bytes. 0, with nothing written to `out` or
/// `outSize`, also when the container is longer than the block.
int encodecFileInto(FileType type, FileInfo* infos, unsigned short infoCount, const void* mainData,
                    unsigned char* out, unsigned long capacity, unsigned long& outSize);

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

/// Copies one payload out of a container whose last byte is before `end`.
/// @param swap  change the byte order of the copy; only elements 1, 3, 6, 10, ... change
/// @return 1; 0 with a message when the payload passes the end
int copyBytes(const unsigned char* src, FileDataType type, std::uint32_t count, bool swap,
              const unsigned char* end, void* dst);
