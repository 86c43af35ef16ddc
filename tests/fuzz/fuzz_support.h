// SPDX-License-Identifier: MIT
// What the fuzz targets share.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <span>

#include "support/decoded_container.h"

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

// A decode, with nothing in it after a refusal that a caller might take for a result: outputs are
// null or untouched.
struct Decoded : DecodedContainer {
    Decoded(std::span<const unsigned char> bytes, FileType expected)
        : DecodedContainer(bytes, expected) {
        PROMISED(result == 0 || result == 1);
        if (taken()) return;
        PROMISED(infos == nullptr || (infos == &mark && mainData == &mark));
        PROMISED(mainData == nullptr || mainData == &mark);
    }
    bool taken() const { return result == 1; }
};
