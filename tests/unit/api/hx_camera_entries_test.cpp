// SPDX-License-Identifier: MIT
#include "api/hx_camera_entries.h"

#include <ctime>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

std::string minuteNow() {
    char text[32];
    const std::time_t now = std::time(nullptr);
    strftime(text, sizeof text, "%Y-%m-%d--%H-%M-", std::localtime(&now));
    return text;
}

TEST(TimeStamp, EndsWithTheMinutesAndTheMilliseconds) {
    std::string text;
    const std::string before = minuteNow();
    hx::stampTime(text);
    EXPECT_THAT(text, testing::MatchesRegex("[0-9-]{18}-[0-9]{3}"));
    EXPECT_THAT(text.substr(0, 18), testing::AnyOf(before, minuteNow()));
}

TEST(FrameEntriesList, IsTheSameEighteenInTagOrder) {
    const struct {
        FileDataType type;
        unsigned int count;
        std::string value;
    } kRows[] = {
        {Data16, 1, {"\1\0", 2}},         {Data32_2, 1, {"\x60\0\0\0", 4}},
        {Data32_2, 1, {"\0\0\0\0", 4}},   {Data32_2, 1, {"\x0c\0\0\0", 4}},
        {Data32_2, 1, {"\x08\0\0\0", 4}}, {Data8_0, 1, "\x0a"},
        {Data8_4, 5, {"time\0", 5}},      {Data8_4, 1, {"\0", 1}},
        {Data8_4, 9, {"1.0.1-rc\0", 9}},  {Data32_2, 1, {"\xff\xff\0\0", 4}},
        {Data32_2, 1, {"\2\0\0\0", 4}},   {Data32_2, 1, {"\x4b\0\0\0", 4}},
        {Data8_3, 1, {"\0", 1}},          {Data8_3, 1, {"\0", 1}},
        {Data8_3, 1, {"\0", 1}},          {Data8_3, 1, {"\0", 1}},
        {Data8_3, 1, {"\0", 1}},          {Data8_0, 1, {"\0", 1}},
    };
    hx::FrameValues values{12, 8, 10, "time", "", 65535, 2, 75};
    hx::FrameEntries entries(values);
    ASSERT_EQ(std::size(kRows), hx::FrameEntries::kCount);
    for (unsigned int i = 0; i < std::size(kRows); ++i) {
        SCOPED_TRACE(i + 1);
        const FileInfo& info = entries.first()[i];
        EXPECT_EQ(info.tag, i + 1);
        EXPECT_EQ(info.dataType, kRows[i].type);
        EXPECT_EQ(info.count, kRows[i].count);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(info.data), info.size), kRows[i].value);
    }
}

}  // namespace
