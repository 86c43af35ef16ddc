// SPDX-License-Identifier: MIT
#include "codec/file_codec.h"

#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "support/decoded_container.h"

namespace {

using Bytes = std::vector<unsigned char>;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constexpr char kBeyond[] = "exceeding data maximum size\n";

Bytes workedExample() {
    std::ifstream file(HX_TEST_DATA "/worked-example.hxc", std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

template <class Value>
void append(Bytes& bytes, const Value& value) {
    const auto* const begin = reinterpret_cast<const unsigned char*>(&value);
    bytes.insert(bytes.end(), begin, begin + sizeof value);
}

// Entries with their payloads, as a caller keeps them.
class Entries {
  public:
    // No growing: a vector that grows copies, and an entry without payload is not copied.
    Entries() { infos_.reserve(8); }

    template <class Value>
    Entries& add(std::uint16_t tag, FileDataType type, const std::vector<Value>& values) {
        Bytes& payload = payloads_.emplace_back();
        for (const Value& value : values) append(payload, value);
        FileInfo& info = infos_.emplace_back();
        info.tag = tag;
        info.dataType = type;
        info.count = static_cast<std::uint32_t>(values.size());
        info.data = payload.data();
        info.size = payload.size();
        return *this;
    }

    // By both forms of the writer.
    Bytes pack(const void* mainData) {
        unsigned char* out = nullptr;
        unsigned long size = 0;
        const auto count = static_cast<unsigned short>(infos_.size());
        EXPECT_EQ(encodecFile(FILE_TYPE_HX, first(), count, mainData, out, size), 1);
        const std::unique_ptr<unsigned char[]> owner(out);
        const Bytes whole(out, out + size);
        Bytes block(size, 0xEE);
        unsigned long written = 4711;
        EXPECT_EQ(encodecFileInto(FILE_TYPE_HX, first(), count, mainData, block.data(), size - 1,
                                  written),
                  0);
        EXPECT_EQ(written, 4711u);
        EXPECT_EQ(block, Bytes(size, 0xEE)) << "one byte short, so nothing is written";
        EXPECT_EQ(
            encodecFileInto(FILE_TYPE_HX, first(), count, mainData, block.data(), size, written),
            1);
        EXPECT_EQ(written, size);
        EXPECT_EQ(block, whole);
        return whole;
    }

    FileInfo* first() { return infos_.data(); }

  private:
    std::vector<FileInfo> infos_;
    std::vector<Bytes> payloads_;
};

TEST(ContainerWriter, WritesTheWorkedExampleOfTheDocumentation) {
    const std::uint16_t samples[] = {100, 200, 300};
    Entries entries;
    entries.add<std::uint16_t>(TAG_DATA_TYPE, Data16, {Data16})
        .add<std::uint32_t>(TAG_DATA_COUNT, Data32_2, {3})
        .add<std::uint32_t>(TAG_DATA_OFFSET, Data32_2, {0})
        .add<char>(9, Data8_4, {'o', 'k', '\0'});
    EXPECT_EQ(entries.pack(samples), workedExample());
    // The caller's entries were completed on the way.
    EXPECT_EQ(entries.first()[2].data[0], 8);
    EXPECT_EQ(entries.first()[0].offset, 14u);
    EXPECT_EQ(entries.first()[3].offset, 24u);
}

TEST(ContainerWriter, RefusesNothingToWrite) {
    Entries entries;
    FileInfo* const infos = entries.add<char>(20, Data8_4, {}).first();
    unsigned char block[64];
    unsigned char* out = block;
    unsigned long size = 4711;
    EXPECT_EQ(encodecFile(FILE_TYPE_HX, nullptr, 1, block, out, size), 0);
    EXPECT_EQ(encodecFile(FILE_TYPE_HX, infos, 1, nullptr, out, size), 0);
    EXPECT_EQ(encodecFile(FILE_TYPE_HX, infos, 0, block, out, size), 0);
    EXPECT_EQ(encodecFileInto(FILE_TYPE_HX, infos, 1, nullptr, block, 64, size), 0);
    EXPECT_EQ(out, block);
    EXPECT_EQ(size, 4711u);
    EXPECT_EQ(entries.pack("").size(), 22u) << "an empty entry is something";
}

TEST(ContainerWriter, TakesTheMainBlockFromTheReservedEntries) {
    const unsigned char samples[64] = {1, 2, 3, 4, 5, 6, 7, 8};
    const auto mainSize = [&](std::uint16_t type, std::vector<std::uint32_t> count,
                              FileDataType typeOfCount = Data32_2) {
        Entries entries;
        entries.add<std::uint16_t>(TAG_DATA_TYPE, Data16, {Data8_0});
        entries.add<std::uint16_t>(TAG_DATA_TYPE, Data16, {type});  // the later entry counts
        entries.add<std::uint32_t>(TAG_DATA_COUNT, typeOfCount, count);
        entries.pack(samples);
        return entries.first()->offset - 8;
    };
    constexpr unsigned int kSizes[] = {1, 2, 4, 1, 1, 4, 8, 0, 0};
    for (std::uint16_t type = 0; type < std::size(kSizes); ++type) {
        EXPECT_EQ(mainSize(type, {3}), 3 * kSizes[type]) << "type " << type;
    }
    EXPECT_EQ(mainSize(Data16, {}), 0u) << "too short for its value";
    EXPECT_EQ(mainSize(Data16, {3}, FileDataType{9}), 0u) << "of unknown type";
}

TEST(ContainerEntry, IsCopiedDeeplyButForItsOffset) {
    Entries entries;
    FileInfo& source = *entries.add<std::uint16_t>(30, Data16, {1, 2, 3}).first();
    source.offset = 99;
    source.size = 4;  // shorter than its count says: the rest is zero
    const FileInfo copy(source);
    const std::unique_ptr<unsigned char[]> owner(copy.data);
    ASSERT_NE(copy.data, source.data);
    EXPECT_EQ(Bytes(copy.data, copy.data + 6), (Bytes{1, 0, 2, 0, 0, 0}));
    EXPECT_EQ(copy.tag, 30);
    EXPECT_EQ(copy.count, 3u);
    EXPECT_EQ(copy.size, 4u);
    EXPECT_EQ(copy.offset, 0u);

    source.dataType = FileDataType{7};
    EXPECT_EQ(FileInfo(source).data, nullptr);
    source.data = nullptr;
    EXPECT_EQ(FileInfo(source).tag, 0);
}

TEST(ContainerReader, RefusesEveryShorterContainer) {
    const Bytes whole = workedExample();
    EXPECT_EQ(DecodedContainer(whole).result, 1);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        CaptureStderr();
        const DecodedContainer decoded({whole.data(), length});
        EXPECT_EQ(GetCapturedStderr(), length == 0 ? "input error\n" : kBeyond);
        EXPECT_EQ(decoded.result, 0);
        // From the table on the outputs say so.
        const bool tableSeen = length >= 29;
        EXPECT_EQ(decoded.infos, tableSeen ? nullptr : &DecodedContainer::mark);
        EXPECT_EQ(decoded.count, tableSeen ? 4 : 4711);
        EXPECT_EQ(decoded.mainData, &DecodedContainer::mark);
    }
}

struct Record {
    std::uint16_t tag;
    std::uint16_t type;
    std::uint32_t count;
    std::uint32_t offset;
};

// 16 bytes of payload at 8, then the table.
Bytes withRecords(const std::vector<Record>& records) {
    Bytes bytes = {'L', 'L', 0x58, 0x48, 24, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8};
    bytes.resize(24);
    append(bytes, static_cast<std::uint16_t>(records.size()));
    for (const Record& record : records) append(bytes, record);
    return bytes;
}

TEST(ContainerReader, ChecksEveryPayloadAgainstTheEnd) {
    const Record good{20, Data16, 2, 8};
    const Record kBad[] = {
        {21, Data8_0, 1, 51},             // one byte beyond
        {21, Data64, 0x20000000, 8},      // longer than 32 bits
        {21, Data8_0, 0xFFFFFFFF, 0xFF},  // sum above 32 bits
        {21, 99, 1, 0xFFFFFFFF},          // nothing of it would be read
        {TAG_DATA_TYPE, Data8_0, 1, 8},   // reserved and too short
        {TAG_DATA_COUNT, Data16, 1, 8},
        {TAG_DATA_OFFSET, 99, 4, 8},        // reserved and of unknown type
        {TAG_DATA_OFFSET, Data32_2, 1, 8},  // the main data at 0x04030201
    };
    for (const Record& bad : kBad) {
        SCOPED_TRACE(bad.tag);
        CaptureStderr();
        const DecodedContainer decoded(withRecords({good, bad}));
        EXPECT_EQ(GetCapturedStderr(), kBeyond);
        EXPECT_EQ(decoded.result, 0);
        EXPECT_EQ(decoded.infos, nullptr);
        EXPECT_EQ(decoded.count, 2);
    }
    CaptureStderr();
    EXPECT_EQ(DecodedContainer(withRecords({})).count, 0);
    EXPECT_EQ(GetCapturedStderr(), "info count is zero\n");
}

TEST(ContainerReader, TakesOverlapsAndMainDataOfAnyTypeWithinMeasure) {
    EXPECT_EQ(DecodedContainer(withRecords({{20, Data8_0, 50, 0}, {21, Data64, 2, 8}})).result, 1);
    EXPECT_NE(DecodedContainer(withRecords({{20, Data8_0, 0, 24}})).mainData, nullptr)
        << "no bytes, but of a known type";
    // Its type is 0x0201.
    const DecodedContainer unknown(withRecords({{TAG_DATA_TYPE, Data16, 1, 8}}));
    EXPECT_EQ(unknown.result, 1);
    EXPECT_EQ(unknown.mainData, nullptr);
    // 60,000 entries of the whole container each.
    const std::vector<Record> many(60000, {20, Data8_0, 26 + 12 * 60000, 0});
    CaptureStderr();
    EXPECT_EQ(DecodedContainer(withRecords(many)).result, 0);
    EXPECT_EQ(GetCapturedStderr(), kBeyond);
}

}  // namespace
