// SPDX-License-Identifier: MIT
// Any bytes, in either byte order, into decodecFile.
#include <cstring>

#include "fuzz/fuzz_support.h"

namespace {

volatile unsigned char sink;

// Every byte of a payload is there, and those of one-byte elements are the container's own.
void touch(std::span<const unsigned char> container, const FileInfo& info) {
    PROMISED(info.size == info.count * elementSize(info.dataType));
    PROMISED((info.data == nullptr) == (elementSize(info.dataType) == 0));
    PROMISED(info.offset <= container.size() && info.size <= container.size() - info.offset);
    if (info.size == 0) return;
    sink = info.data[info.size - 1];
    if (elementSize(info.dataType) != 1) return;
    PROMISED(std::memcmp(info.data, container.data() + info.offset, info.size) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::span bytes(data, size);
    const Decoded decoded(bytes, FILE_TYPE_HX);
    if (!decoded.taken()) return 0;
    PROMISED(decoded.count != 0);
    PROMISED(decoded.infos != nullptr && decoded.infos != &Decoded::mark);
    PROMISED(decoded.mainData != &Decoded::mark);
    std::uint64_t together = 0;
    for (const FileInfo& info : decoded.entries()) {
        touch(bytes, info);
        together += info.size;
    }
    PROMISED(together <= hx::kMostUses * size);
    // Copies stand alone.
    const FileInfo copy(decoded.entries().back());
    const std::unique_ptr<unsigned char[]> owner(copy.data);
    PROMISED(copy.data == nullptr || copy.data != decoded.entries().back().data);
    return 0;
}
