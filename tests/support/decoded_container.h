// SPDX-License-Identifier: MIT
// What decodecFile makes of some bytes; for unit tests and fuzz targets.
#pragma once

#include <algorithm>
#include <memory>
#include <span>

#include "codec/file_codec.h"

/// Decodes a block of exactly its size, so that a sanitizer sees any byte read beyond. Outputs that
/// were left alone are `mark` and 4711.
struct DecodedContainer {
    explicit DecodedContainer(std::span<const unsigned char> bytes,
                              FileType expected = FILE_TYPE_HX) {
        const std::unique_ptr<unsigned char[]> block(new unsigned char[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), block.get());
        result = decodecFile(block.get(), bytes.size(), expected, infos, count, mainData);
    }
    ~DecodedContainer() {
        if (result != 1) return;
        for (const FileInfo& info : entries()) delete[] info.data;
        delete[] infos;
        delete[] static_cast<unsigned char*>(mainData);
    }
    DecodedContainer(const DecodedContainer&) = delete;
    DecodedContainer& operator=(const DecodedContainer&) = delete;

    std::span<const FileInfo> entries() const { return {infos, count}; }

    static inline FileInfo mark;
    FileInfo* infos = &mark;
    unsigned short count = 4711;
    void* mainData = &mark;
    int result = -1;
};
