// SPDX-License-Identifier: MIT
#include "imgproc/imgproc.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "imgproc/imgproc_plain.h"
#include "imgproc/mosaic_kernel.h"

namespace {

using hx::imgproc::Kernel;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

struct Level {
    std::string name;
    const Kernel* kernel;
};

// Those of this machine.
std::vector<Level> levels() {
    std::vector<Level> all{{"baseline", &hx::imgproc::baseline::kernel}};
#ifdef __x86_64__
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
        all.push_back({"avx2", &hx::imgproc::avx2::kernel});
        if (__builtin_cpu_supports("avx512f")) {
            all.push_back({"avx512", &hx::imgproc::avx512::kernel});
        }
    }
#endif
    return all;
}

// What a call reads and writes, with guards around what it writes.
struct Job {
    static constexpr std::size_t kGuard = 24;

    int rows;
    int cols;
    std::vector<double> input;
    std::vector<double> output;
    std::vector<std::uint8_t> mask;  // empty: none

    template <class Function>
    int run(const Function& function) {
        return function(input.data(), rows, cols, !mask.empty(), output.data() + kGuard,
                        reinterpret_cast<bool*>(mask.empty() ? nullptr : mask.data() + kGuard));
    }
    double at(int row, int col, int channel) const {
        return output[kGuard + static_cast<std::size_t>((row * cols + col) * 9 + channel)];
    }
};

class Random {
  public:
    double uniform(double from, double to) {
        return std::uniform_real_distribution<double>(from, to)(engine_);
    }
    double oneOf(const std::vector<double>& values) { return values[engine_() % values.size()]; }
    Job job(int rows, int cols, double from, double to, double odd, double masked) {
        Job job{rows, cols, {}, {}, {}};
        const auto pixels = static_cast<std::size_t>(rows * cols);
        job.input.resize(pixels);
        for (double& value : job.input) {
            value = uniform(0, 1) < odd ? oneOf({0.0, -0.0, kInfinity, -kInfinity, kNan, 5e-324,
                                                 1e308, -1e308, -0.0001, -7.0})
                                        : uniform(from, to);
        }
        job.output.resize(9 * pixels + 2 * Job::kGuard);
        for (double& value : job.output) value = uniform(0, 1) < 0.1 ? -0.0 : uniform(-5, 5);
        if (masked >= 0) job.mask.resize(pixels + 2 * Job::kGuard);
        for (std::uint8_t& mark : job.mask) mark = uniform(0, 1) < masked ? 1 : 0;
        return job;
    }

  private:
    std::mt19937 engine_{20261121};
};

// Which NaN comes out of two is up to the compiler; all other values must have the same bits.
bool sameValues(const std::vector<double>& a, const std::vector<double>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](double x, double y) {
        return std::isnan(x) ? std::isnan(y) : std::memcmp(&x, &y, sizeof x) == 0;
    });
}

TEST(NineChannels, EqualThePlainRulesAtEachLevel) {
    Random random;
    const auto compare = [&](int rows, int cols, double from, double to, double odd,
                             double masked) {
        const Job before = random.job(rows, cols, from, to, odd, masked);
        Job plain = before;
        ASSERT_EQ(plain.run(reconstructNineChannelPlain), 1);
        for (const Level& level : levels()) {
            SCOPED_TRACE(level.name + ": " + std::to_string(rows) + " x " + std::to_string(cols) +
                         " from " + std::to_string(from) + " odd " + std::to_string(odd) +
                         " masked " + std::to_string(masked));
            Job job = before;
            ASSERT_EQ(job.run([&](auto... arguments) {
                return hx::imgproc::reconstructWith(*level.kernel, arguments...);
            }),
                      1);
            ASSERT_TRUE(sameValues(job.output, plain.output));
            ASSERT_EQ(job.mask, plain.mask);
        }
    };
    // Each width around the blocks of 24 columns and the stripes of 816, each small height.
    std::vector<int> widths{813, 825, 852, 1641};
    for (int cols = 4; cols <= 70; ++cols) widths.push_back(cols);
    for (const int cols : widths) {
        for (const int rows : {4, 6, 7, 8, 12}) {
            const double share =
                std::array{0., 0.02, 0.3, 0.95}[static_cast<std::size_t>(cols + rows) % 4];
            for (const double masked : {-1., share}) {
                compare(rows, cols, 480, 520, 0, masked);    // the first rule
                compare(rows, cols, 350, 650, 0.1, masked);  // all of them
                compare(rows, cols, -30, 30, 0.5, masked);   // negative estimates
            }
        }
    }
    compare(61, 200, 350, 650, 0.01, 0.003);  // blocks with and without a mask in one row
}

// FNV-1a over the bytes of the values, NaN as one of them.
std::uint64_t hashOf(const std::vector<double>& values) {
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const double value : values) {
        std::uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        if (std::isnan(value)) bits = 0x7FF8000000000000;
        for (int i = 0; i < 64; i += 8) hash = (hash ^ (bits >> i & 255)) * 0x100000001B3;
    }
    return hash;
}

// On x86-64 and on arm64, with and without a mask.
TEST(NineChannels, AreTheSameOnEveryMachine) {
    Job job{120, 200, {}, std::vector<double>(9 * 120 * 200 + 2 * Job::kGuard, -1), {}};
    std::mt19937 numbers{7};
    for (int i = 0; i < job.rows * job.cols; ++i) {
        job.input.push_back(static_cast<double>(numbers() % 4096) / 16 - 8);
    }
    job.run(reconstructNineChannel);
    EXPECT_EQ(hashOf(job.output), 5637538998700143784u);
    job.mask.resize(job.input.size() + 2 * Job::kGuard);
    for (std::uint8_t& mark : job.mask) mark = numbers() % 50 == 0 ? 1 : 0;
    std::fill(job.output.begin(), job.output.end(), -1.0);
    job.run(reconstructNineChannel);
    EXPECT_EQ(hashOf(job.output), 8142233201567354270u);
}

// One pixel in the middle of 7 x 7, by hand: channel 1 of pixel (3, 3) is that of (3, 4).
TEST(NineChannels, FollowTheThreeRules) {
    Job job{7, 7, std::vector<double>(49, 100), std::vector<double>(9 * 49 + 48), {}};
    const auto set = [&](int row, int col, double v) {
        job.input[static_cast<std::size_t>(row * 7 + col)] = v;
    };
    const auto rightChannel = [&] {
        job.run(reconstructNineChannelPlain);
        const double plain = job.at(3, 3, 1);
        job.run(reconstructNineChannel);
        EXPECT_EQ(job.at(3, 3, 1), plain);
        return plain;
    };
    set(3, 4, 40);
    set(3, 1, 70);
    set(3, 6, 90);
    EXPECT_EQ(rightChannel(), std::fma(10.0, 0.3333333333333333, 40.0));
    set(3, 6, 79.99);  // no longer similar: the other side
    set(3, 0, 110);
    EXPECT_EQ(rightChannel(), std::fma(-10.0, 0.6666666666666666, 70.0));
    set(3, 0, 130);  // neither
    EXPECT_EQ(rightChannel(), std::fma(40.0, 2.0, 70.0) * 0.3333333333333333);
    set(3, 4, -400);
    EXPECT_EQ(rightChannel(), 0.0);
    // Beside a mask the pixel stops there: what it had done stays, what follows is left alone.
    job.mask.assign(49 + 48, 0);
    job.mask[Job::kGuard + 25] = 1;
    std::fill(job.output.begin(), job.output.end(), -2.0);
    job.run(reconstructNineChannel);
    EXPECT_EQ(std::count(job.mask.begin(), job.mask.end(), 1), 49);  // the border repeats it
    EXPECT_EQ(job.at(3, 3, 8), 100.0);  // up and to the left, the first direction
    EXPECT_EQ(job.at(3, 3, 1), 0.0);    // where it stopped
    EXPECT_EQ(job.at(3, 3, 3), -2.0);   // never reached
}

TEST(NineChannels, AreRepeatedOutwards) {
    Random random;
    Job job = random.job(9, 10, 480, 520, 0, -1);
    job.run(reconstructNineChannel);
    for (int row = 0; row < 9; ++row) {
        for (int col = 0; col < 10; ++col) {
            EXPECT_EQ(job.at(row, col, 4), job.at(std::clamp(row, 3, 5), std::clamp(col, 3, 6), 4));
        }
    }
    // Without an interior what was in row 3 goes up, and from there down again.
    Job flat = random.job(5, 8, 480, 520, 0, -1);
    const Job before = flat;
    flat.run(reconstructNineChannel);
    for (int row = 0; row < 5; ++row) EXPECT_EQ(flat.at(row, 5, 2), before.at(3, 5, 2));
}

TEST(NineChannels, AreRefusedWithoutAFrameOrAPlaceForThem) {
    const std::vector<double> input(64, 1);
    const double* const in = input.data();
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
