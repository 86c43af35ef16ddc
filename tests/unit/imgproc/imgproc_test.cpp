// SPDX-License-Identifier: MIT
#include "imgproc/imgproc.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Mask bytes that can be handed out as bool*.
using Mask = std::vector<std::uint8_t>;

struct Image {
    int rows;
    int cols;
    std::vector<double> values;
    double at(int row, int col) const { return values[static_cast<std::size_t>(row * cols + col)]; }
};

// The same rules told the other way round: by wanted channel instead of by direction, by the place
// of the nearest pixel that has it, and the border by clamping. Small frames are a case of their
// own.
class Expected {
  public:
    Expected(const Image& image, const std::vector<double>& before, const Mask* mask)
        : image_(image), output(before) {
        if (mask != nullptr) marks.assign(mask->size(), 0);
        for (int row = 3; row < image.rows - 3; ++row) {
            for (int col = 3; col < image.cols - 3; ++col) pixel(row, col, mask);
        }
        border();
    }

  private:
    struct Choice {
        double value;
        int usedA;
        int usedB;
    };

    // Steps along (dr, dc): 1, 3, -2, -3.
    Choice choose(int row, int col, int dr, int dc) const {
        const auto value = [&](int step) { return image_.at(row + step * dr, col + step * dc); };
        const double own = image_.at(row, col);
        const double reciprocal = 1.0 / (own + 0.0001);
        if (std::abs(own - value(3)) * reciprocal <= 0.2) {
            return {std::fma(own - value(3), 0.3333333333333333, value(1)), 1, 3};
        }
        if (std::abs(own - value(-3)) * reciprocal <= 0.2) {
            return {std::fma(own - value(-3), 0.6666666666666666, value(-2)), -2, -3};
        }
        return {std::fma(value(1), 2.0, value(-2)) * 0.3333333333333333, 1, -2};
    }

    void pixel(int row, int col, const Mask* mask) {
        const auto place = static_cast<std::size_t>(row * image_.cols + col);
        if (mask != nullptr && (*mask)[place] != 0) {
            marks[place] = 1;
            return;
        }
        for (int direction = 0; direction < 9; ++direction) {
            const int dr = direction / 3 - 1;
            const int dc = direction % 3 - 1;
            const Choice choice = choose(row, col, dr, dc);
            const auto masked = [&](int step) {
                const int at = (row + step * dr) * image_.cols + col + step * dc;
                return mask != nullptr && (*mask)[static_cast<std::size_t>(at)] != 0;
            };
            const auto channel = static_cast<std::size_t>((row + dr) % 3 * 3 + (col + dc) % 3);
            double& target = output[place * 9 + channel];
            const bool stop = masked(choice.usedA) || masked(choice.usedB);
            if (!stop) target = choice.value;
            if (target < 0) target = 0;
            if (stop) {
                marks[place] = 1;
                return;
            }
        }
    }

    // Where a border pixel's value comes from; frames of four to six rows or columns copy twice.
    static int source(int i, int size) {
        if (size >= 7) return std::clamp(i, 3, size - 4);
        const int first = i < 3 ? 3 : i;  // rows 0, 1, 2 take row 3
        if (i < size - 3) return first;
        const int from = size - 4;  // the last three then take this one, as it now is
        return from < 3 ? 3 : from;
    }

    void border() {
        const std::vector<double> inside = output;
        const Mask marksInside = marks;
        for (int row = 0; row < image_.rows; ++row) {
            for (int col = 0; col < image_.cols; ++col) {
                const int fromRow = source(row, image_.rows);
                const int fromCol = image_.rows >= 7 ? source(col, image_.cols) : col;
                const auto from = static_cast<std::size_t>(fromRow * image_.cols + fromCol);
                const auto to = static_cast<std::size_t>(row * image_.cols + col);
                std::copy_n(&inside[from * 9], 9, &output[to * 9]);
                if (!marks.empty()) marks[to] = marksInside[from];
            }
        }
    }

    const Image& image_;

  public:
    std::vector<double> output;
    Mask marks;
};

bool sameBits(const std::vector<double>& a, const std::vector<double>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), 8 * a.size()) == 0;
}

int run(const Image& image, std::vector<double>& output, Mask* mask) {
    return reconstructNineChannel(
        image.values.data(), image.rows, image.cols, mask != nullptr, output.data(),
        mask == nullptr ? nullptr : reinterpret_cast<bool*>(mask->data()));
}

class Random {
  public:
    double uniform(double from, double to) {
        return std::uniform_real_distribution<double>(from, to)(engine_);
    }
    std::vector<double> values(std::size_t count, double from, double to) {
        std::vector<double> all(count);
        for (double& value : all) value = uniform(from, to);
        return all;
    }
    Mask mask(std::size_t count, double share) {
        Mask all(count);
        for (std::uint8_t& one : all) one = uniform(0, 1) < share ? 1 : 0;
        return all;
    }

  private:
    std::mt19937 engine_{20261121};
};

TEST(NineChannels, EqualTheOtherFormulationForAllSmallFrames) {
    Random random;
    for (int rows = 4; rows <= 12; ++rows) {
        for (int cols = 4; cols <= 12; ++cols) {
            const auto pixels = static_cast<std::size_t>(rows * cols);
            // Smooth enough for the first rule, rough, and around zero with negative estimates.
            for (const auto& [from, to] : {std::pair{480., 520.}, {350., 650.}, {-30., 30.}}) {
                for (const double share : {-1., 0., 0.03, 0.3}) {
                    SCOPED_TRACE(std::to_string(rows) + " x " + std::to_string(cols) + ", from " +
                                 std::to_string(from) + ", masked " + std::to_string(share));
                    const Image image{rows, cols, random.values(pixels, from, to)};
                    const auto before = random.values(9 * pixels, -5, 5);
                    Mask mask = random.mask(pixels, share);
                    const bool useMask = share >= 0;
                    const Expected expected(image, before, useMask ? &mask : nullptr);
                    auto output = before;
                    ASSERT_EQ(run(image, output, useMask ? &mask : nullptr), 1);
                    ASSERT_TRUE(sameBits(output, expected.output));
                    if (useMask) {
                        ASSERT_EQ(mask, expected.marks);
                    }
                }
            }
        }
    }
}

// One pixel in the middle of 7 x 7, by hand: channel 0 of pixel (3, 3) is its own.
TEST(NineChannels, FollowTheThreeRules) {
    Image image{7, 7, std::vector<double>(49, 100)};
    const auto set = [&](int row, int col, double v) {
        image.values[static_cast<std::size_t>(row * 7 + col)] = v;
    };
    set(3, 4, 40);
    set(3, 1, 70);
    const auto rightChannel = [&] {
        std::vector<double> output(9 * 49);
        run(image, output, nullptr);
        return output[24 * 9 + 1];
    };
    set(3, 6, 90);
    EXPECT_EQ(rightChannel(), std::fma(10.0, 0.3333333333333333, 40.0));
    set(3, 6, 79.99);  // no longer similar: the other side
    set(3, 0, 110);
    EXPECT_EQ(rightChannel(), std::fma(-10.0, 0.6666666666666666, 70.0));
    set(3, 0, 130);  // neither
    EXPECT_EQ(rightChannel(), std::fma(40.0, 2.0, 70.0) * 0.3333333333333333);
    set(3, 4, -400);
    EXPECT_EQ(rightChannel(), 0.0);
}

TEST(NineChannels, KeepWhatIsNotBelowZero) {
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    Random random;
    for (const double odd : {kNan, kInfinity, -kInfinity, -0.0, 5e-324, 1e308}) {
        SCOPED_TRACE(odd);
        Image image{12, 11, random.values(132, 1, 2)};
        for (const std::size_t at : {38u, 50u, 62u, 77u}) image.values[at] = odd;
        std::vector<double> output(9 * 132);
        const Expected expected(image, output, nullptr);
        ASSERT_EQ(run(image, output, nullptr), 1);
        for (std::size_t i = 0; i < output.size(); ++i) {
            const double a = output[i];
            const double b = expected.output[i];
            ASSERT_TRUE(std::isnan(a) ? std::isnan(b) : std::memcmp(&a, &b, 8) == 0) << i;
        }
    }
}

TEST(NineChannels, AreRefusedWithoutAFrameOrAPlaceForThem) {
    const Image image{8, 8, std::vector<double>(64, 1)};
    const double* const in = image.values.data();
    std::vector<double> output(9 * 64, -1);
    const std::vector<double> untouched = output;
    double* const out = output.data();
    EXPECT_EQ(reconstructNineChannel(nullptr, 8, 8, false, out, nullptr), 0);
    EXPECT_EQ(reconstructNineChannel(in, 8, 8, false, nullptr, nullptr), 0);
    EXPECT_EQ(reconstructNineChannel(in, 8, 8, true, out, nullptr), 0);
    for (const auto& [rows, cols] :
         {std::pair{0, 8}, {-1, 8}, {8, 0}, {8, -1}, {1, 8}, {3, 8}, {7, 3}, {8, 1}}) {
        EXPECT_EQ(reconstructNineChannel(in, rows, cols, false, out, nullptr), 0)
            << rows << " x " << cols;
    }
    EXPECT_EQ(output, untouched);
    // Six rows and fewer than four columns: nothing to the sides is repeated.
    EXPECT_EQ(reconstructNineChannel(in, 6, 2, false, out, nullptr), 1);
}

}  // namespace
