// SPDX-License-Identifier: MIT
// The camera's model without any node: texts that describe it, and the target scene as a lab would
// decode it.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>

#include "camera_spec.h"
#include "frame_source.h"
#include "spectra.h"

namespace hx::sim {
namespace {

constexpr std::size_t kWidth = 1600;

// Response of the mosaic's positions, written down apart from the simulator's table.
constexpr double kResponse[9] = {.93, .98, .91, .95, .94, .96, .99, .92, .97};

std::vector<std::byte> drawn(const std::string& spec, std::uint32_t sequence,
                             std::int32_t exposure) {
    const CameraConfig config = parseCamera(spec).config;
    FrameSource source(config);
    std::vector<std::byte> frame(frameBytes(config));
    source.draw(frame, sequence, exposure);
    return frame;
}

int mosaicValue(const std::vector<std::byte>& frame, std::size_t row, std::size_t column) {
    std::uint16_t word = 0;
    std::memcpy(&word, frame.data() + 2 * (row * kWidth + column), sizeof word);
    return static_cast<int>(std::lround(word / 64.0 / kResponse[row % 3 * 3 + column % 3]));
}

int plainValue(const std::vector<std::byte>& frame, std::size_t row, std::size_t column) {
    const auto* bytes = frame.data() + 2 * (row * kWidth + column);
    return std::to_integer<int>(bytes[0]) * 4 + std::to_integer<int>(bytes[1]);
}

// Middle of patch 1 to 8, in reading order.
std::pair<std::size_t, std::size_t> middleOf(std::size_t patch) {
    const std::size_t index = patch - 1;
    return {index < 4 ? 240 : 960, 200 + index % 4 * 400};
}

TEST(SimTarget, MosaicPatchesDecodeToTheirSpectra) {
    const auto frame = drawn("HX02-V01.0-1,scene=target", 0, 156);
    for (std::size_t patch = 1; patch <= 8; ++patch) {
        const auto [row, column] = middleOf(patch);
        for (std::size_t k = 0; k < 9; ++k) {
            const std::size_t y = row / 3 * 3 + k / 3;
            const std::size_t x = column / 3 * 3 + k % 3;
            const auto wanted =
                std::lround(kSurfaces[patch].reflectance[k] * 0.8 * 1023 * 156 / 156);
            EXPECT_EQ(mosaicValue(frame, y, x), wanted)
                << kSurfaces[patch].name << " channel " << k;
        }
    }
}

TEST(SimTarget, BrightnessGrowsWithTheExposureUpToTheTop) {
    const auto [row, column] = middleOf(1);
    for (const char* model : {"HX02-V01.0-1", "HX01-V01.0-1"}) {
        const auto value = model[3] == '2' ? mosaicValue : plainValue;
        const std::string spec = std::string(model) + ",scene=target";
        const int half = value(drawn(spec, 0, 78), row, column);
        EXPECT_NEAR(value(drawn(spec, 0, 156), row, column), 2 * half, 1) << model;
        EXPECT_EQ(value(drawn(spec, 0, 10000), row, column), 1023) << model;
    }
}

TEST(SimTarget, SomethingMovesAndTheExposureIsInTheFirstWord) {
    const auto first = drawn("HX02-V02.1-1,scene=target", 0, 0x0123);
    const auto later = drawn("HX02-V02.1-1,scene=target", 5, 0x0123);
    EXPECT_NE(first, later);
    EXPECT_EQ(std::to_integer<int>(first[0]), 0x23);
    EXPECT_EQ(std::to_integer<int>(first[1]), 0x01);
}

TEST(SimModel, IdentificationDecidesTheFrame) {
    struct {
        const char* text;
        Sensor sensor;
        bool exposureInFrame;
    } rows[] = {
        {"HX02-V02.1-12345A-L", Sensor::mosaic, true},
        {"HX02-V01.1-1", Sensor::mosaic, false},
        {"HX01-V02.0-AB", Sensor::plain, true},
        {"HX03-V01.0-1", Sensor::plain, false},
        {"HX02", Sensor::mosaic, false},
        {"HX02-V02", Sensor::mosaic, true},
        {"HX022-V020.1", Sensor::plain, false},
        {"", Sensor::plain, false},
    };
    for (const auto& row : rows) {
        const CameraModel model = modelOf(row.text);
        EXPECT_EQ(model.sensor, row.sensor) << row.text;
        EXPECT_EQ(model.exposureInFrame, row.exposureInFrame) << row.text;
    }
}

TEST(SimSpec, BadTextsAreNamedInTheError) {
    const char* rows[][2] = {
        {"X,colour=red", "colour"},
        {"X,rate", "rate"},
        {"X,rate=-1", "rate=-1"},
        {"X,rate=fast", "fast"},
        {"X,rate=nan", "nan"},
        {"X,rate=0.001", "0.001"},
        {"X,exposure=5", "exposure=5"},
        {"X,exposure=10:1", "10:1"},
        {"X,exposure=1:10:11", "11"},
        {"X,scene=sea", "sea"},
        {"X,node=255", "255"},
        {"X,fault=QBUF=EIO", "QBUF=EIO"},
        {"X,fault=QBUF:0=EIO", "QBUF:0"},
        {"X,fault=QBUF:1=EWHAT", "EWHAT"},
        {"X,fault=LOOK:1=EIO", "LOOK"},
        {"X,ring=33", "33"},
        {"X,format=640", "640"},
        {"X,format=641x480", "even"},
        {"X,xu=refuse:", "xu=refuse"},
        {"X,xu=quick", "quick"},
        {"X,unplug=3:later", "3:later"},
        {"X,unplug=0:taken", "0:taken"},
        {"X,replug=1", "unplug="},
        {"X,access=granted", "granted"},
        {"X\\", "backslash"},
        {"\\x4", "backslash"},
        {"\\xzz", "digits"},
        {"123456789012345678901234567890123", "33 bytes"},
        {"X,card=12345678901234567890123456789012", "card="},
        {"@/nowhere/model.conf", "/nowhere/model.conf"},
    };
    for (const auto& row : rows) {
        try {
            parseCamera(row[0]);
            ADD_FAILURE() << row[0] << " was taken";
        } catch (const SpecError& error) {
            EXPECT_NE(std::string(error.what()).find(row[1]), std::string::npos)
                << row[0] << ": " << error.what();
        }
    }
    EXPECT_THROW(parseForeign("Card,rate=5"), SpecError);
}

TEST(SimSpec, ModelFileSaysTheSameAsTheCommandLine) {
    const std::string path = testing::TempDir() + "hx_sim_model_test.conf";
    std::ofstream(path) << "# a camera\nidentification = HX02-V02.1-12345A-L\n\n"
                           "rate = 5\n  fault = QBUF:2=EIO\nunplug=7:waiting\n";
    const CameraConfig file = parseCamera("@" + path + ",rate=6").config;
    const CameraConfig line =
        parseCamera("HX02-V02.1-12345A-L,fault=QBUF:2=EIO,unplug=7:waiting,rate=6").config;
    EXPECT_EQ(std::memcmp(&file, &line, sizeof file), 0);
    EXPECT_EQ(file.faults[0].error, EIO);

    std::ofstream(path) << "identification = X\nrate = 5\nspeed = 9\n";
    try {
        parseCamera("@" + path);
        ADD_FAILURE() << "the unknown key was taken";
    } catch (const SpecError& error) {
        EXPECT_NE(std::string(error.what()).find("model_test.conf:3"), std::string::npos)
            << error.what();
    }
}

}  // namespace
}  // namespace hx::sim
