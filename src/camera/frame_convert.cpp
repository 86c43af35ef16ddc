// SPDX-License-Identifier: MIT
// The rules of the samples, as 16-bit integer loops that the compiler turns into vector code.
//
// HX02, with v the raw word and p the response in hundredths, is
//
//     q = floor(x + 1/2),  x = v / 64 / (p / 100) = 25 v / (16 p)
//
// (every half is rounded up by the plain rule: v is not negative, and none of the 589,824 cases is
// off by the error of its two divisions; the test goes through all of them). Without a division:
//
//     q0 = floor(v M / 2^21),  M = floor(2^21 * 25 / (16 p))
//     r  = 25 v - 16 p q0
//     q  = q0 + (r >= 8 p ? 1 : 0)
//
// v M / 2^21 falls short of x by less than v / 2^21 < 1/32. So q0 is floor(x), and r = 16 p frac(x)
// decides the rounding; or it is one less, which happens only where frac(x) < 1/32: then q is
// floor(x) = q0 + 1, and r >= 16 p says so.
//
// Nothing overflows: M < 36,009 for p >= 91. 25 v and 16 p q0 wrap around in 16 bits, but their
// difference is below 16.5 p < 1,634 and so comes out whole.
#include "camera/frame_convert.h"

#include <cstdint>
#include <cstring>

namespace hx {
namespace {

using Word = std::uint16_t;

// A multiple of three and of the lanes of every vector unit.
constexpr std::size_t kBlock = 48;

// The constants of one row of the mosaic, for blocks that begin at any column: one that begins at
// column c uses them from place c % 3 on.
struct RowConstants {
    Word multiplier[kBlock + 2];
    Word divisor[kBlock + 2];
    std::int16_t half[kBlock + 2];
};

struct MosaicConstants {
    RowConstants rows[3];
};

constexpr MosaicConstants makeConstants() {
    constexpr unsigned int hundredths[3][3] = {{93, 98, 91}, {95, 94, 96}, {99, 92, 97}};
    MosaicConstants all{};
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < kBlock + 2; ++column) {
            const unsigned int p = hundredths[row][column % 3];
            all.rows[row].multiplier[column] = static_cast<Word>((25u << 21) / (16 * p));
            all.rows[row].divisor[column] = static_cast<Word>(16 * p);
            all.rows[row].half[column] = static_cast<std::int16_t>(8 * p);
        }
    }
    return all;
}

constexpr MosaicConstants kMosaic = makeConstants();

Word wordAt(const unsigned char* raw, std::size_t index) {
    Word word;
    std::memcpy(&word, raw + 2 * index, sizeof word);
    return word;
}

// Asks for what the loop will read next. A processor looks ahead by itself, but only to the end of
// a page; frames come out of a ring that no cache may hold, and every page would begin with a wait.
[[gnu::always_inline]] inline void fetchAhead(const unsigned char* raw) {
    constexpr std::uintptr_t page = 4096;
    constexpr std::uintptr_t cacheLine = 64;
    // As a number: it may well be behind the end of the frame, where nothing is read.
    const std::uintptr_t ahead = reinterpret_cast<std::uintptr_t>(raw) + page;
    const auto fetch = [](std::uintptr_t address) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): is only a hint
        __builtin_prefetch(reinterpret_cast<const void*>(address));
    };
    fetch(ahead);
    fetch(ahead + cacheLine);
}

Word sampleOfHx01(Word word) {
    return static_cast<Word>(((word & 0xFF) << 2) + (word >> 8));
}

// `phase` is the block's first column modulo 3.
[[gnu::always_inline]] inline void convertBlock(const unsigned char* __restrict raw,
                                                unsigned short* __restrict out,
                                                const RowConstants& constants, std::size_t phase) {
    for (std::size_t i = 0; i < kBlock; ++i) {
        const Word v = wordAt(raw, i);
        const auto product = std::uint32_t{v} * constants.multiplier[phase + i];
        const auto q0 = static_cast<Word>(static_cast<Word>(product >> 16) >> 5);
        const auto r = static_cast<std::int16_t>(25 * v - constants.divisor[phase + i] * q0);
        out[i] = static_cast<Word>(q0 + (r >= constants.half[phase + i] ? 1 : 0));
    }
}

// The last block of a row overlaps the one before it: the same samples come out again.
HX_CLONES [[gnu::noinline]] void convertRow(const unsigned char* __restrict raw,
                                            unsigned short* __restrict out, std::size_t width,
                                            const RowConstants& constants) {
    for (std::size_t column = 0; column + kBlock <= width; column += kBlock) {
        fetchAhead(raw + 2 * column);
        convertBlock(raw + 2 * column, out + column, constants, 0);
    }
    const std::size_t last = width - kBlock;
    convertBlock(raw + 2 * last, out + last, constants, last % 3);
}

}  // namespace

HX_CLONES void convertHx01(const unsigned char* __restrict raw, unsigned short* __restrict out,
                           std::size_t pixels) {
    std::size_t i = 0;
    for (; i + kBlock <= pixels; i += kBlock) {
        fetchAhead(raw + 2 * i);
        for (std::size_t j = 0; j < kBlock; ++j) out[i + j] = sampleOfHx01(wordAt(raw + 2 * i, j));
    }
    for (; i < pixels; ++i) out[i] = sampleOfHx01(wordAt(raw, i));
}

void convertHx02(const unsigned char* raw, unsigned short* out, std::size_t width,
                 std::size_t height) {
    if (width < kBlock) return plain::convertHx02(raw, out, width, height);
    for (std::size_t row = 0; row < height; ++row) {
        convertRow(raw + 2 * row * width, out + row * width, width, kMosaic.rows[row % 3]);
    }
}

}  // namespace hx
