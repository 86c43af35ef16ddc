// SPDX-License-Identifier: MIT
#include "camera/frame_convert.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Bytes at an odd address, as a driver's buffer may give them to nobody's surprise.
class Raw {
  public:
    explicit Raw(const std::vector<std::uint16_t>& words) : bytes_(2 * words.size() + 1) {
        std::memcpy(bytes_.data() + 1, words.data(), 2 * words.size());
    }
    const unsigned char* data() const { return bytes_.data() + 1; }

  private:
    std::vector<unsigned char> bytes_;
};

TEST(Hx01Samples, AreTheFirstByteTimesFourPlusTheWholeSecond) {
    std::vector<std::uint16_t> words(65536 + 7);
    for (std::size_t i = 0; i < words.size(); ++i) words[i] = static_cast<std::uint16_t>(i);
    std::vector<unsigned short> samples(words.size() + 1, 0xABCD);
    hx::convertHx01(Raw(words).data(), samples.data(), words.size());
    EXPECT_EQ(samples[0x0312], 75);
    EXPECT_EQ(samples[0xFFFF], 1275);
    for (std::size_t i = 0; i < words.size(); ++i) {
        ASSERT_EQ(samples[i], (words[i] & 255) * 4 + (words[i] >> 8));
    }
    EXPECT_EQ(samples.back(), 0xABCD);
}

// Every word at every place of the mosaic, and by hand the least that tells the places apart.
TEST(Hx02Samples, EqualThePlainRuleForEveryWordAndPlace) {
    constexpr std::size_t width = 3 * 65536;
    std::vector<std::uint16_t> words(3 * width);
    for (std::size_t i = 0; i < words.size(); ++i) {
        words[i] = static_cast<std::uint16_t>(i % width / 3);
    }
    const Raw raw(words);
    std::vector<unsigned short> samples(words.size());
    std::vector<unsigned short> plain(words.size());
    hx::convertHx02(raw.data(), samples.data(), width, 3);
    hx::plain::convertHx02(raw.data(), plain.data(), width, 3);
    EXPECT_EQ(samples, plain);
    std::uint64_t hash = 0xCBF29CE484222325;  // FNV-1a; the same on every machine
    for (const unsigned short sample : samples) {
        for (const int byte : {sample & 255, sample >> 8}) {
            hash = (hash ^ static_cast<std::uint64_t>(byte)) * 0x100000001B3;
        }
    }
    EXPECT_EQ(hash, 4535123599462415899u);
    constexpr unsigned short expected[9] = {108, 102, 110, 105, 106, 104, 101, 109, 103};
    for (std::size_t place = 0; place < 9; ++place) {
        EXPECT_EQ(samples[place / 3 * width + 3 * 6400 + place % 3], expected[place]);
    }
}

TEST(Hx02Samples, EqualThePlainRuleForEveryWidth) {
    constexpr std::size_t height = 4;
    for (std::size_t width = 1; width <= 3 * 48; ++width) {
        std::vector<std::uint16_t> words(width * height);
        for (std::size_t i = 0; i < words.size(); ++i) {
            words[i] = static_cast<std::uint16_t>(i * 7919);
        }
        const Raw raw(words);
        std::vector<unsigned short> samples(words.size() + 1, 0xABCD);
        std::vector<unsigned short> plain = samples;
        hx::convertHx02(raw.data(), samples.data(), width, height);
        hx::plain::convertHx02(raw.data(), plain.data(), width, height);
        EXPECT_EQ(samples, plain) << width;
    }
}

}  // namespace
