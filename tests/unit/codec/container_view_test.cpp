// SPDX-License-Identifier: MIT
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "codec/hx_container.h"
#include "support/decoded_container.h"

namespace {

using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::ThrowsMessage;
using Bytes = std::vector<unsigned char>;
using Samples = std::vector<std::uint16_t>;

Bytes contents(const std::string& name) {
    std::ifstream file(HX_TEST_DATA "/" + name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

hx::ContainerView viewOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

const Samples kHx01 = {0, 1, 2, 511, 512, 1022, 1023, 1275};
const Samples kHx02 = {700, 700, 0,   1,    2,    3,    100, 200, 300,
                       400, 500, 600, 1023, 1100, 1125, 7,   8,   9};

TEST(ContainerView, ReadsTheGoldenFilesInPlace) {
    struct {
        const char* name;
        Samples samples;
        std::size_t entries = 18;
        std::uint64_t width = 4, height = 2, exposure = 156, spectralCode = 75;
        const char* identification = "HX01-V01.3-67890E";
        std::uint16_t kind = 0x4858;
    } const kRows[] = {
        {.name = "hx01.hxc", .samples = kHx01},
        {"hx02-lamp.hxc", kHx02, 18, 6, 3, 10000, 1, "HX02-V02.1-12345A-L"},
        {.name = "unknown-type.hxc", .samples = kHx01, .entries = 20},
        {.name = "other-kind.hxc", .samples = kHx01, .kind = 0x1234},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        const Bytes bytes = contents(row.name);
        const hx::ContainerView view = viewOf(bytes);
        EXPECT_EQ(view.kind(), row.kind);
        EXPECT_EQ(view.size(), bytes.size());
        EXPECT_EQ(view.entryCount(), row.entries);
        EXPECT_EQ(view.width(), row.width);
        EXPECT_EQ(view.height(), row.height);
        EXPECT_EQ(view.depth(), 10u);
        EXPECT_EQ(view.time(), "2026-11-21--07-45--123");
        EXPECT_EQ(view.identification(), row.identification);
        EXPECT_EQ(view.libraryVersion(), "1.0.1-rc");
        EXPECT_EQ(view.exposure(), row.exposure);
        EXPECT_EQ(view.spectralCode(), row.spectralCode);
        EXPECT_THAT(view.samples().value(), ElementsAreArray(row.samples));
        EXPECT_NO_THROW(view.requirePicture());
        EXPECT_NO_THROW(view.requireOrder());
    }
    for (const auto& [name, fault] : {std::pair{"big-endian.hxc", "big-endian"},
                                      {"overlap.hxc", "overlap"},
                                      {"swapped.hxc", "no container"}}) {
        EXPECT_THAT([file = contents(name)] { viewOf(file); },
                    ThrowsMessage<hx::ContainerFault>(HasSubstr(fault)));
    }
}

TEST(ContainerReader, TakesTheGoldenFilesApart) {
    struct {
        const char* name;
        std::size_t entries;
        const char* message;
        Samples samples = kHx01;
    } const kRows[] = {
        {"unknown-type.hxc", 20, ""},
        {"other-kind.hxc", 4711, "file type error:4660,18520\n"},
        {"big-endian.hxc", 4711, "file type error:22600,18520\n"},
        {"overlap.hxc", 9, "exceeding data maximum size\n"},
        // Elements 1, 3 and 6 alone have changed their byte order.
        {"swapped.hxc", 18, "", {0, 1, 0x0200, 511, 0x0002, 0xFE03, 1023, 0xFB04}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        testing::internal::CaptureStderr();
        const DecodedContainer decoded(contents(row.name));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.message);
        EXPECT_EQ(decoded.count, row.entries);
        ASSERT_EQ(decoded.result, *row.message == '\0' ? 1 : 0);
        if (decoded.result == 0) continue;
        EXPECT_THAT(std::span(static_cast<std::uint16_t*>(decoded.mainData), 8),
                    ElementsAreArray(row.samples));
        EXPECT_STREQ(reinterpret_cast<const char*>(decoded.infos[7].data), "HX01-V01.3-67890E");
        EXPECT_EQ(decoded.infos[9].data[0], 156) << "a single element is always in our order";
    }
}

TEST(ContainerView, ReadsSeveralBackToBackAtAnyAddress) {
    const Bytes one = contents("hx01.hxc");
    Bytes bytes = one;
    bytes.insert(bytes.end(), one.begin(), one.end());
    const hx::ContainerView first = viewOf(bytes);
    ASSERT_EQ(first.size(), 329u);
    const hx::ContainerView second(bytes.data() + first.size(), bytes.size() - first.size());
    EXPECT_TRUE(first.samples());
    EXPECT_FALSE(second.samples()) << "at an odd address";
    Samples samples(second.sampleCount());
    second.copySamples(samples);
    EXPECT_EQ(samples, kHx01);
    samples.pop_back();
    EXPECT_THROW(second.copySamples(samples), std::length_error);
}

TEST(ContainerView, AnswersForWhatIsNotThere) {
    const Bytes bytes = contents("unknown-type.hxc");
    const hx::ContainerView view = viewOf(bytes);
    EXPECT_FALSE(view.find(hx::Tag{99}));
    EXPECT_EQ(view.number(hx::Tag{99}), 0u);
    EXPECT_EQ(view.text(hx::Tag{99}), "");
    EXPECT_EQ(view.number(hx::Tag{100}), 0u) << "of unknown type";
    EXPECT_THROW(view.find(hx::Tag{100})->number(), std::out_of_range);
    EXPECT_EQ(view.number(hx::Tag{101}), 5u);
    EXPECT_THROW(view.find(hx::Tag::width)->number(1), std::out_of_range);
    EXPECT_THROW(view.entry(20), std::out_of_range);
    EXPECT_EQ(hx::tagName(0), "unknown");
    EXPECT_EQ(hx::tagName(18), "reserved");
    EXPECT_EQ(hx::tagName(19), "unknown");
}

TEST(ContainerView, TellsWhenTheSamplesAreNoPicture) {
    // Offsets in hx01.hxc: payload of tag 1 at 24, of tag 2 at 26, of tag 4 at 34.
    struct {
        std::size_t at;
        unsigned char value;
        const char* fault;
    } const kRows[] = {{24, Data8_0, "not of 16 bits"},
                       {26, 7, "7 samples are no"},
                       {34, 3, "8 samples are no picture of 3 x 2"},
                       {34, 0, "no picture of 0 x 2"}};
    for (const auto& row : kRows) {
        Bytes bytes = contents("hx01.hxc");
        bytes[row.at] = row.value;
        const hx::ContainerView view = viewOf(bytes);
        EXPECT_THAT([&] { view.requirePicture(); },
                    ThrowsMessage<hx::ContainerFault>(HasSubstr(row.fault)));
        if (view.mainType() == Data16) continue;
        EXPECT_FALSE(view.samples());
        EXPECT_EQ(view.sampleCount(), 0u);
        EXPECT_THROW(view.copySamples({}), hx::ContainerFault);
    }
}

}  // namespace
