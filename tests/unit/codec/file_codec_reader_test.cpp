// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "codec/file_codec.h"

namespace {

using Bytes = std::vector<unsigned char>;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constexpr char kBeyond[] = "exceeding data maximum size\n";

// Containers byte by byte, also wrong ones and such of the other byte order.
class Builder {
  public:
    explicit Builder(bool foreign = false) : foreign_(foreign) {}

    template <class Value>
    Builder& put(Value value) {
        for (std::size_t i = 0; i < sizeof value; ++i) {
            const std::size_t shift = 8 * (foreign_ ? sizeof value - 1 - i : i);
            bytes.push_back(static_cast<unsigned char>(std::uint64_t{value} >> shift));
        }
        return *this;
    }
    Builder& header(std::uint32_t table) {
        bytes = foreign_ ? Bytes{'I', 'I'} : Bytes{'L', 'L'};
        return put<std::uint16_t>(0x4858).put(table);
    }
    Builder& record(std::uint16_t tag, std::uint16_t type, std::uint32_t count,
                    std::uint32_t offset) {
        return put(tag).put(type).put(count).put(offset);
    }

    Bytes bytes;

  private:
    bool foreign_;
};

// A decode of a block of exactly its size, so that a sanitizer sees any byte read beyond.
struct Decoded {
    explicit Decoded(const Bytes& bytes, FileType expected = FILE_TYPE_HX) {
        const std::unique_ptr<unsigned char[]> block(new unsigned char[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), block.get());
        CaptureStderr();
        result = decodecFile(block.get(), bytes.size(), expected, infos, count, mainData);
        message = GetCapturedStderr();
    }
    ~Decoded() {
        if (result != 1) return;
        for (unsigned int i = 0; i < count; ++i) delete[] infos[i].data;
        delete[] infos;
        delete[] static_cast<unsigned char*>(mainData);
    }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    Bytes payload(unsigned int i) const {
        return Bytes(infos[i].data, infos[i].data + infos[i].size);
    }

    static inline FileInfo mark;
    int result;
    FileInfo* infos = &mark;
    unsigned short count = 4711;
    void* mainData = &mark;
    std::string message;
};

Bytes golden() {
    std::ifstream file(HX_TEST_DATA "/worked-example.hxc", std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

TEST(ContainerReader, ReadsTheWorkedExample) {
    const Decoded decoded(golden());
    ASSERT_EQ(decoded.result, 1) << decoded.message;
    ASSERT_EQ(decoded.count, 4);
    EXPECT_EQ(decoded.infos[3].tag, 9);
    EXPECT_EQ(decoded.infos[3].dataType, Data8_4);
    EXPECT_EQ(decoded.infos[3].offset, 24u);
    EXPECT_EQ(decoded.payload(3), (Bytes{'o', 'k', 0}));
    const unsigned char samples[] = {100, 0, 200, 0, 0x2c, 1};
    EXPECT_EQ(std::memcmp(decoded.mainData, samples, sizeof samples), 0);
    EXPECT_EQ(decoded.message, "");
}

TEST(ContainerReader, RefusesEveryShorterContainer) {
    const Bytes whole = golden();
    for (std::size_t length = 1; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        const Decoded decoded(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
        EXPECT_EQ(decoded.result, 0);
        EXPECT_EQ(decoded.message, kBeyond);
        // From the table on the outputs say so.
        const bool tableSeen = length >= 29;
        EXPECT_EQ(decoded.infos, tableSeen ? nullptr : &Decoded::mark);
        EXPECT_EQ(decoded.count, tableSeen ? 4 : 4711);
        EXPECT_EQ(decoded.mainData, &Decoded::mark);
    }
    EXPECT_EQ(Decoded(Bytes()).message, "input error\n");
    const Decoded noEntries(Builder().header(8).put<std::uint16_t>(0).bytes);
    EXPECT_EQ(noEntries.message, "info count is zero\n");
    EXPECT_EQ(noEntries.count, 0);
}

TEST(ContainerReader, RefusesAnotherFileType) {
    const Decoded other(golden(), FileType{7});
    EXPECT_EQ(other.message, "file type error:18520,7\n");
    // The low half alone does not count.
    const Decoded wide(golden(), FileType{0x14858});
    EXPECT_EQ(wide.result, 0);
    EXPECT_EQ(wide.message, "file type error:18520,84056\n");
    EXPECT_EQ(wide.count, 4711);
}

struct Record {
    std::uint16_t tag;
    std::uint16_t type;
    std::uint32_t count;
    std::uint32_t offset;
};

// 16 bytes of payload at 8, then the table.
Bytes withRecords(std::initializer_list<Record> records) {
    Builder builder;
    builder.header(24).put<std::uint64_t>(0x0807060504030201).put<std::uint64_t>(0);
    builder.put(static_cast<std::uint16_t>(records.size()));
    for (const Record& r : records) builder.record(r.tag, r.type, r.count, r.offset);
    return builder.bytes;
}

TEST(ContainerReader, ChecksEveryPayloadAgainstTheEnd) {
    const Record good{20, Data16, 2, 8};
    const std::initializer_list<Record> kBad[] = {
        {good, {21, Data8_0, 1, 51}},             // one byte beyond
        {good, {21, Data64, 0x20000000, 8}},      // longer than 32 bits
        {good, {21, Data8_0, 0xFFFFFFFF, 0xFF}},  // sum above 32 bits
        {good, {21, 99, 1, 0xFFFFFFFF}},          // nothing of it would be read
        {good, {TAG_DATA_TYPE, Data8_0, 1, 8}},   // reserved and too short
        {good, {TAG_DATA_COUNT, Data16, 1, 8}},
        {good, {TAG_DATA_OFFSET, 99, 4, 8}},  // reserved and of unknown type
    };
    for (const auto& records : kBad) {
        const Decoded decoded(withRecords(records));
        EXPECT_EQ(decoded.result, 0);
        EXPECT_EQ(decoded.message, kBeyond);
        EXPECT_EQ(decoded.infos, nullptr);
        EXPECT_EQ(decoded.count, 2);
        EXPECT_EQ(decoded.mainData, &Decoded::mark);
    }
}

TEST(ContainerReader, FindsTheMainDataByTheReservedEntries) {
    // Type at 8 (0x0201 is unknown), at 16 it is 0; count at 16 is 0.
    const Decoded none(withRecords({{20, Data8_0, 0, 24}}));
    EXPECT_EQ(none.result, 1);
    EXPECT_NE(none.mainData, nullptr) << "no bytes, but of a known type";
    const Decoded unknown(withRecords({{TAG_DATA_TYPE, Data16, 1, 8}}));
    EXPECT_EQ(unknown.result, 1);
    EXPECT_EQ(unknown.mainData, nullptr);
    const Decoded beyond(withRecords({{TAG_DATA_OFFSET, Data32_2, 1, 8}}));
    EXPECT_EQ(beyond.result, 0) << "offset 0x04030201";
    EXPECT_EQ(beyond.message, kBeyond);
    EXPECT_EQ(beyond.mainData, nullptr);
    EXPECT_EQ(beyond.infos, nullptr);
}

TEST(ContainerReader, KeepsMemoryInProportion) {
    // 60,000 entries of the whole container each.
    constexpr std::uint16_t kEntries = 60000;
    const std::uint32_t length = 8 + 2 + 12 * kEntries;
    Builder builder;
    builder.header(8).put(kEntries);
    for (unsigned int i = 0; i < kEntries; ++i) builder.record(20, Data8_0, length, 0);
    EXPECT_EQ(Decoded(builder.bytes).message, kBeyond);
    // A few uses of the same bytes are in order.
    EXPECT_EQ(Decoded(withRecords({{20, Data8_0, 60, 0}, {21, Data64, 2, 8}, {22, Data8_3, 9, 3}}))
                  .result,
              1);
}

TEST(ContainerReader, SwapsTheOtherByteOrderInItsOwnStride) {
    Builder builder(true);
    builder.header(8 + 28 + 6);
    for (std::uint32_t i = 0; i < 7; ++i) builder.put(0x01020300 + i);
    builder.put<std::uint16_t>(0x0102).put<std::uint16_t>(0x0304).put<std::uint16_t>(0x0506);
    builder.put<std::uint16_t>(2).record(20, Data32_2, 7, 8).record(21, Data16, 1, 36);
    const Decoded decoded(builder.bytes);
    ASSERT_EQ(decoded.result, 1) << decoded.message;
    EXPECT_EQ(decoded.infos[0].count, 7u);
    for (std::uint32_t i = 0; i < 7; ++i) {
        std::uint32_t value;
        std::memcpy(&value, decoded.infos[0].data + 4 * i, 4);
        const bool swapped = i == 1 || i == 3 || i == 6;
        const std::uint32_t asItStands = 0x00030201 + (i << 24);
        EXPECT_EQ(value, swapped ? 0x01020300 + i : asItStands) << i;
    }
    EXPECT_EQ(decoded.payload(1), (Bytes{2, 1})) << "a single element is swapped";
}

TEST(PayloadCopy, IsBoundedByTheEnd) {
    const unsigned char source[] = {1, 2, 3, 4, 5, 6, 7, 8};
    unsigned char target[8] = {};
    const unsigned char* const end = source + 8;
    EXPECT_EQ(copyBytes(source, Data64, 1, true, end, target), 1);
    EXPECT_EQ(Bytes(target, target + 8), (Bytes{8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(copyBytes(source, Data8_4, 8, true, end, target), 1);
    EXPECT_EQ(Bytes(target, target + 8), Bytes(source, source + 8));
    CaptureStderr();
    EXPECT_EQ(copyBytes(source, Data16, 5, false, end, target), 0);
    EXPECT_EQ(copyBytes(end, Data8_0, 1, false, source, target), 0);
    EXPECT_EQ(GetCapturedStderr(), std::string(kBeyond) + kBeyond);
    EXPECT_EQ(copyBytes(end, FileDataType{9}, 4711, true, end, target), 1);
}

}  // namespace
