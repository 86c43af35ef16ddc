// SPDX-License-Identifier: MIT
#include "codec/file_codec.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<unsigned char>;

// Entries with their payloads, as a caller keeps them.
class Entries {
  public:
    // No growing: a vector that grows copies, and an entry without payload is not copied.
    Entries() { infos_.reserve(8); }

    template <class Value>
    Entries& add(std::uint16_t tag, FileDataType type, std::vector<Value> values) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(values.data());
        payloads_.emplace_back(bytes, bytes + values.size() * sizeof(Value));
        infos_.emplace_back();
        infos_.back().tag = tag;
        infos_.back().dataType = type;
        infos_.back().count = static_cast<std::uint32_t>(values.size());
        return *this;
    }

    // Both forms of the writer; the block from the first.
    Bytes pack(const void* mainData) {
        point();
        unsigned char* out = nullptr;
        unsigned long size = 0;
        EXPECT_EQ(encodecFile(FILE_TYPE_HX, first(), count(), mainData, out, size), 1);
        const std::unique_ptr<unsigned char[]> owner(out);
        Bytes again(size + 1, 0xEE);
        unsigned long sizeAgain = 0;
        EXPECT_EQ(encodecFileInto(FILE_TYPE_HX, first(), count(), mainData, again.data(), size,
                                  sizeAgain),
                  1);
        EXPECT_EQ(sizeAgain, size);
        EXPECT_EQ(again.back(), 0xEE);
        again.pop_back();
        EXPECT_EQ(again, Bytes(out, out + size));
        return again;
    }

    void point() {
        for (std::size_t i = 0; i < infos_.size(); ++i) {
            infos_[i].data = payloads_[i].data();
            infos_[i].size = payloads_[i].size();
        }
    }
    FileInfo* first() { return infos_.data(); }
    unsigned short count() const { return static_cast<unsigned short>(infos_.size()); }
    FileInfo& at(std::size_t i) { return infos_[i]; }
    const Bytes& payload(std::size_t i) const { return payloads_[i]; }

  private:
    std::vector<FileInfo> infos_;
    std::vector<Bytes> payloads_;
};

TEST(ContainerWriter, WritesTheWorkedExampleOfTheDocumentation) {
    std::ifstream file(HX_TEST_DATA "/worked-example.hxc", std::ios::binary);
    const Bytes golden(std::istreambuf_iterator<char>(file), {});
    ASSERT_FALSE(golden.empty());

    const std::uint16_t samples[] = {100, 200, 300};
    Entries entries;
    entries.add<std::uint16_t>(TAG_DATA_TYPE, Data16, {Data16})
        .add<std::uint32_t>(TAG_DATA_COUNT, Data32_2, {3})
        .add<std::uint32_t>(TAG_DATA_OFFSET, Data32_2, {0})
        .add<char>(9, Data8_4, {'o', 'k', '\0'});
    EXPECT_EQ(entries.pack(samples), golden);
    // The caller's entries were completed on the way.
    EXPECT_EQ(entries.payload(2), (Bytes{8, 0, 0, 0}));
    EXPECT_EQ(entries.at(0).offset, 14u);
    EXPECT_EQ(entries.at(3).offset, 24u);
}

TEST(ContainerWriter, RefusesNothingToWrite) {
    Entries entries;
    entries.add<char>(20, Data8_4, {'x'});
    entries.point();
    unsigned char block[64];
    unsigned char* out = block;
    unsigned long size = 4711;
    EXPECT_EQ(encodecFile(FILE_TYPE_HX, nullptr, 1, block, out, size), 0);
    EXPECT_EQ(encodecFile(FILE_TYPE_HX, entries.first(), 1, nullptr, out, size), 0);
    EXPECT_EQ(encodecFile(FILE_TYPE_HX, entries.first(), 0, block, out, size), 0);
    EXPECT_EQ(encodecFileInto(FILE_TYPE_HX, entries.first(), 1, nullptr, block, 64, size), 0);
    EXPECT_EQ(out, block);
    EXPECT_EQ(size, 4711u);
}

TEST(ContainerWriter, FailsRatherThanWriteBeyondTheGivenBlock) {
    Entries entries;
    entries.add<char>(20, Data8_4, {});
    entries.point();
    Bytes block(22, 0xEE);
    unsigned long size = 4711;
    EXPECT_EQ(encodecFileInto(FILE_TYPE_HX, entries.first(), 1, "", block.data(), 21, size), 0);
    EXPECT_EQ(size, 4711u);
    EXPECT_EQ(block, Bytes(22, 0xEE));
    // One empty entry of the caller's own: header, count, one record.
    EXPECT_EQ(entries.pack("").size(), 22u);
    EXPECT_EQ(entries.at(0).offset, 8u);
}

TEST(ContainerWriter, TakesTheMainBlockFromTheReservedEntries) {
    const unsigned char samples[64] = {1, 2, 3, 4, 5, 6, 7, 8};
    const auto mainSize = [&](std::uint16_t type, std::vector<std::uint32_t> count,
                              std::vector<std::uint16_t> later = {}, bool known = true) {
        Entries entries;
        entries.add<std::uint16_t>(TAG_DATA_TYPE, Data16, {type});
        entries.add<std::uint32_t>(TAG_DATA_COUNT, known ? Data32_2 : FileDataType{9}, count);
        if (!later.empty()) entries.add<std::uint16_t>(TAG_DATA_TYPE, Data16, later);
        entries.pack(samples);
        return entries.at(0).offset - 8;
    };
    for (const auto& [type, size] :
         {std::pair{0, 1}, {1, 2}, {2, 4}, {3, 1}, {4, 1}, {5, 4}, {6, 8}, {7, 0}, {0xFFFF, 0}}) {
        EXPECT_EQ(mainSize(static_cast<std::uint16_t>(type), {3}), 3u * static_cast<unsigned>(size))
            << "type " << type;
    }
    EXPECT_EQ(mainSize(Data64, {3}, {Data16}), 6u) << "the later entry counts";
    EXPECT_EQ(mainSize(Data16, {}), 0u) << "too short for its value";
    EXPECT_EQ(mainSize(Data16, {3}, {}, false), 0u) << "of unknown type";
}

TEST(ContainerEntry, IsCopiedDeeplyButForItsOffset) {
    Entries entries;
    entries.add<std::uint16_t>(30, Data16, {1, 2, 3});
    entries.point();
    FileInfo& source = entries.at(0);
    source.offset = 99;
    const FileInfo copy(source);
    const std::unique_ptr<unsigned char[]> owner(copy.data);
    ASSERT_NE(copy.data, source.data);
    EXPECT_EQ(std::memcmp(copy.data, source.data, 6), 0);
    EXPECT_EQ(copy.tag, 30);
    EXPECT_EQ(copy.count, 3u);
    EXPECT_EQ(copy.size, 6u);
    EXPECT_EQ(copy.offset, 0u);

    source.size = 4;  // shorter than its count says: the rest is zero
    const FileInfo shorter(source);
    const std::unique_ptr<unsigned char[]> shorterOwner(shorter.data);
    EXPECT_EQ(Bytes(shorter.data, shorter.data + 6), (Bytes{1, 0, 2, 0, 0, 0}));

    source.dataType = FileDataType{7};
    EXPECT_EQ(FileInfo(source).data, nullptr);
    source.data = nullptr;
    EXPECT_EQ(FileInfo(source).tag, 0);
}

}  // namespace
