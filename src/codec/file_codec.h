// SPDX-License-Identifier: MIT
// Container: one frame and its tagged entries in one block of memory. Beside what programs may use
// (hx_container.h) the parts that only the library needs. Used by api/; includes nothing of it.
#pragma once

#include "codec/hx_container.h"

namespace hx {

constexpr std::uint16_t kMagic = 0x4C4C;  ///< "LL"
constexpr std::uint32_t kHeaderSize = 8;
constexpr std::uint64_t kRecordSize = 12;
/// What a container may make of its own bytes: the writer's payloads never overlap, others' may.
constexpr std::uint64_t kMostUses = 8;

}  // namespace hx

/// encodecFile() into an existing block of `capacity` bytes. 0, with nothing written to `out` or
/// `outSize`, also when the container is longer than the block.
int encodecFileInto(FileType type, FileInfo* infos, unsigned short infoCount, const void* mainData,
                    unsigned char* out, unsigned long capacity, unsigned long& outSize);

/// Copies one payload out of a container whose last byte is before `end`.
/// @param swap  change the byte order of the copy; only elements 1, 3, 6, 10, ... change
/// @return 1; 0 with a message when the payload passes the end
int copyBytes(const unsigned char* src, FileDataType type, std::uint32_t count, bool swap,
              const unsigned char* end, void* dst);
