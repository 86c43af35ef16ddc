// SPDX-License-Identifier: MIT
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "codec/hx_container.h"
#include "support/counted_allocations.h"

namespace {

using testing::HasSubstr;
using Samples = std::vector<std::uint16_t>;

std::vector<char> contents(const std::string& name) {
    std::ifstream file(HX_TEST_DATA "/" + name, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(file), {});
}

// What a golden container says.
struct Golden {
    const char* name;
    Samples samples;
    std::size_t entries = 18;
    std::uint64_t width = 4, height = 2, exposure = 156, spectralCode = 75;
    const char* identification = "HX01-V01.3-67890E";
    std::uint32_t kind = 0x4858;
    const char* fault = nullptr;  ///< why the view refuses it
    std::uint64_t faultOffset = 0;
    std::string message = "";  ///< what decodecFile says
};

const Samples kHx01 = {0, 1, 2, 511, 512, 1022, 1023, 1275};
// In the stride of decodecFile: elements 1, 3 and 6 have changed their order.
const Samples kSwapped = {0, 1, 0x0200, 511, 0x0002, 0xFE03, 1023, 0xFB04};
const Samples kHx02 = {700, 700, 0,   1,    2,    3,    100, 200, 300,
                       400, 500, 600, 1023, 1100, 1125, 7,   8,   9};

const Golden kGolden[] = {
    {.name = "hx01.hxc", .samples = kHx01},
    {.name = "hx02-lamp.hxc",
     .samples = kHx02,
     .width = 6,
     .height = 3,
     .exposure = 10000,
     .spectralCode = 1,
     .identification = "HX02-V02.1-12345A-L"},
    {.name = "unknown-type.hxc", .samples = kHx01, .entries = 20},
    {.name = "other-kind.hxc", .samples = kHx01, .kind = 0x1234},
    {.name = "big-endian.hxc",
     .samples = {},
     .fault = "big-endian",
     .faultOffset = 2,
     .message = "file type error:22600,18520\n"},
    {.name = "overlap.hxc",
     .samples = {},
     .fault = "overlap",
     .faultOffset = 10 + 8 * 12,
     .message = "exceeding data maximum size\n"},
    {.name = "swapped.hxc", .samples = kSwapped, .fault = "no container", .faultOffset = 0},
};

void PrintTo(const Golden& golden, std::ostream* out) {
    *out << golden.name;
}

class GoldenContainer : public testing::TestWithParam<Golden> {
  protected:
    std::vector<char> bytes_ = contents(GetParam().name);
};
INSTANTIATE_TEST_SUITE_P(Files, GoldenContainer, testing::ValuesIn(kGolden));

TEST_P(GoldenContainer, IsReadInPlace) {
    const Golden& golden = GetParam();
    if (golden.fault != nullptr) {
        try {
            const hx::ContainerView view(bytes_.data(), bytes_.size());
            FAIL() << "accepted";
        } catch (const hx::ContainerFault& fault) {
            EXPECT_THAT(fault.what(), HasSubstr(golden.fault));
            EXPECT_EQ(fault.offset(), golden.faultOffset);
        }
        return;
    }
    const hx::ContainerView view(bytes_.data(), bytes_.size());
    EXPECT_EQ(view.kind(), golden.kind);
    EXPECT_EQ(view.size(), bytes_.size());
    EXPECT_EQ(view.entryCount(), golden.entries);
    EXPECT_EQ(view.width(), golden.width);
    EXPECT_EQ(view.height(), golden.height);
    EXPECT_EQ(view.depth(), 10u);
    EXPECT_EQ(view.time(), "2026-11-21--07-45--123");
    EXPECT_EQ(view.identification(), golden.identification);
    EXPECT_EQ(view.libraryVersion(), "1.0.1-rc");
    EXPECT_EQ(view.exposure(), golden.exposure);
    EXPECT_EQ(view.gain(), 0u);
    EXPECT_EQ(view.spectralCode(), golden.spectralCode);
    EXPECT_EQ(view.mainType(), Data16);
    const auto samples = view.samples();
    ASSERT_TRUE(samples);
    EXPECT_EQ(Samples(samples->begin(), samples->end()), golden.samples);
    EXPECT_NO_THROW(view.requirePicture());
    EXPECT_NO_THROW(view.requireOrder());
}

TEST_P(GoldenContainer, IsTakenApart) {
    const Golden& golden = GetParam();
    FileInfo* infos = nullptr;
    unsigned short count = 0;
    void* mainData = nullptr;
    testing::internal::CaptureStderr();
    const int result = decodecFile(reinterpret_cast<const unsigned char*>(bytes_.data()),
                                   bytes_.size(), FileType{golden.kind}, infos, count, mainData);
    const std::string message = testing::internal::GetCapturedStderr();
    EXPECT_EQ(message, golden.message);
    ASSERT_EQ(result, golden.message.empty() ? 1 : 0);
    if (result == 0) return;
    EXPECT_EQ(count, golden.entries);
    EXPECT_EQ(std::memcmp(mainData, golden.samples.data(), 2 * golden.samples.size()), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(infos[7].data), golden.identification);
    EXPECT_EQ(std::memcmp(infos[9].data, &golden.exposure, infos[9].size), 0);
    for (unsigned i = 0; i < count; ++i) delete[] infos[i].data;
    delete[] infos;
    delete[] static_cast<unsigned char*>(mainData);
}

TEST(ContainerView, AllocatesNothing) {
    const std::vector<char> bytes = contents("hx02-lamp.hxc");
    const long before = countedAllocations;
    const hx::ContainerView view(bytes.data(), bytes.size());
    const bool whole = view.samples() && view.identification().size() == 19 && view.width() == 6;
    view.requireOrder();
    EXPECT_EQ(countedAllocations, before);
    EXPECT_TRUE(whole);
}

TEST(ContainerView, ReadsSeveralBackToBackAtAnyAddress) {
    const std::vector<char> one = contents("hx01.hxc");
    std::vector<char> bytes = one;
    bytes.insert(bytes.end(), one.begin(), one.end());
    const hx::ContainerView first(bytes.data(), bytes.size());
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
    const std::vector<char> bytes = contents("unknown-type.hxc");
    const hx::ContainerView view(bytes.data(), bytes.size());
    EXPECT_FALSE(view.find(hx::Tag{99}));
    EXPECT_EQ(view.number(hx::Tag{99}), 0u);
    EXPECT_EQ(view.text(hx::Tag{99}), "");
    const auto unknown = view.find(hx::Tag{100});
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->count, 3u);
    EXPECT_EQ(unknown->text(), "");
    EXPECT_THROW(unknown->number(), std::out_of_range);
    EXPECT_EQ(view.number(hx::Tag{100}), 0u);
    EXPECT_EQ(view.number(hx::Tag{101}), 5u);
    EXPECT_THROW(view.find(hx::Tag::width)->number(1), std::out_of_range);
    EXPECT_THROW(view.entry(20), std::out_of_range);
    EXPECT_EQ(hx::tagName(12), "spectral resolution");
    EXPECT_EQ(hx::tagName(0), "unknown");
    EXPECT_EQ(hx::tagName(19), "unknown");
}

TEST(ContainerView, TellsWhenTheSamplesAreNoPicture) {
    // Offsets in hx01.hxc: payload of tag 1 at 24, of tag 2 at 26, of tag 4 at 34.
    struct Change {
        std::size_t at;
        char value;
        const char* fault;
    };
    for (const Change& change : {Change{24, Data8_0, "not of 16 bits"},
                                 {26, 7, "7 samples are no"},
                                 {34, 3, "8 samples are no picture of 3 x 2"},
                                 {34, 0, "no picture of 0 x 2"}}) {
        SCOPED_TRACE(change.fault);
        std::vector<char> bytes = contents("hx01.hxc");
        bytes[change.at] = change.value;
        const hx::ContainerView view(bytes.data(), bytes.size());
        try {
            view.requirePicture();
            ADD_FAILURE() << "accepted";
        } catch (const hx::ContainerFault& fault) {
            EXPECT_THAT(fault.what(), HasSubstr(change.fault));
            EXPECT_EQ(fault.offset(), 8u);
        }
        if (view.mainType() == Data16) continue;
        EXPECT_FALSE(view.samples());
        EXPECT_EQ(view.sampleCount(), 0u);
        EXPECT_THROW(view.copySamples({}), hx::ContainerFault);
    }
}

}  // namespace
