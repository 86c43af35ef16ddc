// SPDX-License-Identifier: MIT
#include "camera/frame_convert.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::vector<unsigned char> bytesOf(const std::vector<std::uint16_t>& words) {
    std::vector<unsigned char> bytes(2 * words.size());
    std::memcpy(bytes.data(), words.data(), bytes.size());
    return bytes;
}

TEST(Hx01Samples, AreTheFirstByteTimesFourPlusTheWholeSecond) {
    std::vector<std::uint16_t> words(65536);
    for (unsigned int i = 0; i < words.size(); ++i) words[i] = static_cast<std::uint16_t>(i);
    std::vector<unsigned short> samples(words.size());
    hx::convertHx01(bytesOf(words).data(), samples.data(), samples.size());
    EXPECT_EQ(samples[0x0312], 75);
    EXPECT_EQ(samples[0xFFFF], 1275);
    for (unsigned int i = 0; i < words.size(); ++i) ASSERT_EQ(samples[i], (i & 255) * 4 + (i >> 8));
}

// In integers: p = 100 x response, and the double rule rounds every tie of 25 v / (16 p) up.
TEST(Hx02Samples, EqualTheIntegerFormForEveryInputAndPlace) {
    constexpr unsigned int kHundredths[9] = {93, 98, 91, 95, 94, 96, 99, 92, 97};
    constexpr unsigned int kWidth = 3 * 65536;
    std::vector<std::uint16_t> words(3 * kWidth);
    for (unsigned int i = 0; i < words.size(); ++i) {
        words[i] = static_cast<std::uint16_t>(i % kWidth / 3);
    }
    std::vector<unsigned short> samples(words.size());
    hx::convertHx02(bytesOf(words).data(), samples.data(), kWidth, 3);
    for (unsigned int i = 0; i < words.size(); ++i) {
        const unsigned int p = kHundredths[i / kWidth * 3 + i % 3];
        ASSERT_EQ(samples[i], (25 * words[i] + 8 * p) / (16 * p)) << "word " << words[i];
    }
}

TEST(Hx02Samples, FollowTheMosaicForWidthsThatAreNoMultipleOfThree) {
    std::vector<std::uint16_t> words(5 * 7, 6400);
    std::vector<unsigned short> samples(words.size() + 1, 0xABCD);
    hx::convertHx02(bytesOf(words).data(), samples.data(), 7, 5);
    EXPECT_EQ(samples[0], 108);
    EXPECT_EQ(samples[1 * 7 + 1], 106);
    EXPECT_EQ(samples[4 * 7 + 5], 104);  // row 1, column 2 of the mosaic: 100 / 0.96
    EXPECT_EQ(samples[3 * 7 + 6], 108);
    EXPECT_EQ(samples.back(), 0xABCD);
}

}  // namespace
