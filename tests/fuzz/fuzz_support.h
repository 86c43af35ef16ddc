// SPDX-License-Identifier: MIT
// What the fuzz targets share.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>

#include "codec/file_codec.h"

// A promise that was broken ends the process, which libFuzzer takes as a finding.
#define PROMISED(condition) (static_cast<bool>(condition) ? void() : broken(#condition, __LINE__))

[[noreturn]] inline void broken(const char* condition, int line) {
    std::printf("broken, line %d: %s\n", line, condition);
    std::fflush(stdout);
    std::abort();
}

// decodecFile says on stderr what it refuses, millions of times here. libFuzzer has kept the real
// stream, and sanitizers write to the descriptor.
inline void silenceMessages() {
    stderr = std::fopen("/dev/null", "w");
    PROMISED(stderr != nullptr);
}

// A decode of a block of exactly its size, so that a sanitizer sees any byte read beyond.
class Decoded {
  public:
    Decoded(std::span<const unsigned char> bytes, FileType expected) {
        const std::unique_ptr<unsigned char[]> block(new unsigned char[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), block.get());
        result_ = decodecFile(block.get(), bytes.size(), expected, infos, count, mainData);
        PROMISED(result_ == 0 || result_ == 1);
        if (result_ == 0) checkRefusal();
    }
    ~Decoded() {
        if (!taken()) return;
        for (const FileInfo& info : entries()) delete[] info.data;
        delete[] infos;
        delete[] static_cast<unsigned char*>(mainData);
    }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    bool taken() const { return result_ == 1; }
    std::span<const FileInfo> entries() const { return {infos, count}; }

    static inline FileInfo mark;
    FileInfo* infos = &mark;
    unsigned short count = 0;
    void* mainData = &mark;

  private:
    // Nothing that a caller might take for a result: outputs are null or untouched.
    void checkRefusal() const {
        PROMISED(infos == nullptr || infos == &mark);
        PROMISED(mainData == nullptr || mainData == &mark);
        PROMISED(infos == nullptr || mainData == &mark);
    }

    int result_ = 0;
};
