// SPDX-License-Identifier: MIT
#include "codec/file_codec.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>

namespace {

using hx::kHeaderSize;
using hx::kMagic;
using hx::kMostUses;
using hx::kRecordSize;

constexpr std::uint64_t kElementSizes[] = {1, 2, 4, 1, 1, 4, 8};

struct Layout {
    std::uint64_t mainSize;
    std::uint64_t table;  ///< offset of the entry table
    std::uint64_t total;
};

// Bytes in the machine's order, one behind the other.
class Writer {
  public:
    explicit Writer(unsigned char* at) : at_(at) {}

    template <class Value>
    void put(Value value) {
        putBytes(&value, sizeof value);
    }
    void putBytes(const void* bytes, std::uint64_t size) {
        if (size != 0) std::memcpy(at_, bytes, size);
        at_ += size;
    }
    void putZeros(std::uint64_t size) {
        if (size != 0) std::memset(at_, 0, size);
        at_ += size;
    }

  private:
    unsigned char* at_;
};

// A reserved entry's value can be read only when the entry is long enough for it.
bool holds(const FileInfo& info, std::uint64_t bytes) {
    return info.data != nullptr && info.size >= bytes && elementSize(info.dataType) != 0;
}

template <class Value>
void readReserved(const FileInfo& info, Value& value) {
    if (holds(info, sizeof value)) std::memcpy(&value, info.data, sizeof value);
}

// Reads what the reserved entries say of the main block; later entries override earlier ones.
std::uint64_t mainBlockSize(std::span<FileInfo> infos) {
    std::uint16_t type = 0;
    std::uint32_t count = 0;
    for (FileInfo& info : infos) {
        if (info.tag == TAG_DATA_TYPE) readReserved(info, type);
        if (info.tag == TAG_DATA_COUNT) readReserved(info, count);
        if (info.tag == TAG_DATA_OFFSET && holds(info, sizeof kHeaderSize)) {
            std::memcpy(info.data, &kHeaderSize, sizeof kHeaderSize);
        }
    }
    return count * elementSize(static_cast<FileDataType>(type));
}

Layout layOut(std::span<FileInfo> infos) {
    const std::uint64_t mainSize = mainBlockSize(infos);
    std::uint64_t position = kHeaderSize + mainSize;
    for (FileInfo& info : infos) {
        info.offset = static_cast<std::uint32_t>(position);
        position += info.size;
    }
    return {mainSize, position, position + sizeof(std::uint16_t) + kRecordSize * infos.size()};
}

// Writes every byte of the container, so the block need not be cleared before.
void write(FileType type, std::span<const FileInfo> infos, const void* mainData,
           const Layout& layout, unsigned char* out) {
    Writer writer(out);
    writer.put(kMagic);
    writer.put(static_cast<std::uint16_t>(type));
    writer.put(static_cast<std::uint32_t>(layout.table));
    writer.putBytes(mainData, layout.mainSize);
    for (const FileInfo& info : infos) {
        if (info.data != nullptr) {
            writer.putBytes(info.data, info.size);
        } else {
            writer.putZeros(info.size);
        }
    }
    writer.put(static_cast<std::uint16_t>(infos.size()));
    for (const FileInfo& info : infos) {
        writer.put(info.tag);
        writer.put(static_cast<std::uint16_t>(info.dataType));
        writer.put(info.count);
        writer.put(info.offset);
    }
}

int failBeyondEnd() {
    std::fputs("exceeding data maximum size\n", stderr);
    return 0;
}

bool isForeign(FileDataType type, bool swap) {
    return swap && elementSize(type) > 1;
}

// Kept: the step between two swapped elements grows by one element each time, beginning with none:
// element 0 is swapped twice, then 1, 3, 6, 10, ... Only containers of the other byte order, which
// the writer never makes, come here.
void swapElements(unsigned char* bytes, std::uint64_t size, std::uint32_t count,
                  std::uint64_t element) {
    std::uint64_t offset = 0;
    std::uint64_t step = 0;
    for (std::uint32_t pass = 0; pass < count && offset + element <= size; ++pass) {
        std::reverse(bytes + offset, bytes + offset + element);
        offset += step;
        step += element;
    }
}

// The bytes of a container, read with their length at hand.
class Reader {
  public:
    Reader(const unsigned char* data, std::uint64_t length) : bytes_(data, length) {}

    bool has(std::uint64_t offset, std::uint64_t size) const {
        return offset <= bytes_.size() && size <= bytes_.size() - offset;
    }
    template <class Value>
    Value get(std::uint64_t offset) const {
        unsigned char field[sizeof(Value)];
        std::memcpy(field, bytes_.data() + offset, sizeof field);
        if (swaps) std::reverse(field, field + sizeof field);
        Value value;
        std::memcpy(&value, field, sizeof value);
        return value;
    }
    // A block of its own; null for an unknown type. The payload has been checked.
    unsigned char* copy(std::uint64_t offset, FileDataType type, std::uint32_t count) const {
        const std::uint64_t element = elementSize(type);
        if (element == 0) return nullptr;
        auto* const block = new unsigned char[count * element];
        copyBytes(bytes_.data() + offset, type, count, swaps, bytes_.data() + bytes_.size(), block);
        return block;
    }
    // Counts every payload against what the length justifies.
    bool claim(std::uint64_t offset, std::uint64_t size) {
        if (!has(offset, size)) return false;
        claimed_ += size;
        return claimed_ <= kMostUses * bytes_.size();
    }

    bool swaps = false;

  private:
    std::span<const unsigned char> bytes_;
    std::uint64_t claimed_ = 0;
};

// Entries under construction; they release their payloads unless they are handed out.
class DecodedEntries {
  public:
    explicit DecodedEntries(std::uint16_t count)
        : infos_(std::make_unique<FileInfo[]>(count)), all_(infos_.get(), count) {}
    DecodedEntries(const DecodedEntries&) = delete;
    DecodedEntries& operator=(const DecodedEntries&) = delete;
    ~DecodedEntries() {
        if (!infos_) return;
        for (const FileInfo& info : all_) delete[] info.data;
    }

    std::span<FileInfo> all() const { return all_; }
    FileInfo* handOut() { return infos_.release(); }

  private:
    std::unique_ptr<FileInfo[]> infos_;
    std::span<FileInfo> all_;
};

struct MainBlock {
    std::uint16_t type = 0;
    std::uint32_t count = 0;
    std::uint32_t offset = 0;
};

// The table has been checked as a whole.
void readTable(const Reader& reader, std::uint64_t at, std::span<FileInfo> infos) {
    for (FileInfo& info : infos) {
        info.tag = reader.get<std::uint16_t>(at);
        info.dataType = static_cast<FileDataType>(reader.get<std::uint16_t>(at + 2));
        info.count = reader.get<std::uint32_t>(at + 4);
        info.offset = reader.get<std::uint32_t>(at + 8);
        info.size = info.count * elementSize(info.dataType);
        at += kRecordSize;
    }
}

template <class Value>
bool takeReserved(const FileInfo& info, std::uint16_t tag, Value& value) {
    if (info.tag != tag) return true;
    readReserved(info, value);
    return holds(info, sizeof value);
}

bool readPayloads(Reader& reader, std::span<FileInfo> infos, MainBlock& main) {
    for (FileInfo& info : infos) {
        if (!reader.claim(info.offset, info.size)) return false;
        info.data = reader.copy(info.offset, info.dataType, info.count);
        if (!takeReserved(info, TAG_DATA_TYPE, main.type) ||
            !takeReserved(info, TAG_DATA_COUNT, main.count) ||
            !takeReserved(info, TAG_DATA_OFFSET, main.offset)) {
            return false;
        }
    }
    return true;
}

// Header and entry count. 1: go on; 0: refused, and said so.
int readHeader(Reader& reader, FileType expected, std::uint32_t& table, unsigned short& infoCount) {
    if (!reader.has(0, 4)) return failBeyondEnd();
    // Kept: "LL" reads the same in both orders, so any other magic means the other byte order.
    reader.swaps = reader.get<std::uint16_t>(0) != kMagic;
    const std::uint32_t type = reader.get<std::uint16_t>(2);
    if (type != expected) {
        std::fprintf(stderr, "file type error:%u,%u\n", type, static_cast<unsigned int>(expected));
        return 0;
    }
    if (!reader.has(0, kHeaderSize)) return failBeyondEnd();
    table = reader.get<std::uint32_t>(4);
    if (!reader.has(table, sizeof infoCount)) return failBeyondEnd();
    infoCount = reader.get<std::uint16_t>(table);
    if (infoCount != 0) return 1;
    std::fputs("info count is zero\n", stderr);
    return 0;
}

}  // namespace

std::uint64_t elementSize(FileDataType type) {
    return type < std::size(kElementSizes) ? kElementSizes[type] : 0;
}

// Kept: a source without payload leaves the new object as it is, and `offset` is not copied: it
// belongs to the container that the source was packed into.
FileInfo::FileInfo(const FileInfo& other) {
    if (other.data == nullptr) return;
    tag = other.tag;
    dataType = other.dataType;
    count = other.count;
    size = other.size;
    const std::uint64_t room = count * elementSize(dataType);
    if (elementSize(dataType) == 0) return;
    data = new unsigned char[room]();
    std::memcpy(data, other.data, std::min(size, room));
}

int encodecFile(FileType type, FileInfo* infos, unsigned short infoCount, const void* mainData,
                unsigned char*& out, unsigned long& outSize) {
    if (infos == nullptr || mainData == nullptr || infoCount == 0) return 0;
    const std::span<FileInfo> entries(infos, infoCount);
    const Layout layout = layOut(entries);
    unsigned char* block = new unsigned char[layout.total];
    write(type, entries, mainData, layout, block);
    out = block;
    outSize = layout.total;
    return 1;
}

int encodecFileInto(FileType type, FileInfo* infos, unsigned short infoCount, const void* mainData,
                    unsigned char* out, unsigned long capacity, unsigned long& outSize) {
    if (infos == nullptr || mainData == nullptr || infoCount == 0) return 0;
    const std::span<FileInfo> entries(infos, infoCount);
    const Layout layout = layOut(entries);
    if (layout.total > capacity) return 0;
    write(type, entries, mainData, layout, out);
    outSize = layout.total;
    return 1;
}

int copyBytes(const unsigned char* src, FileDataType type, std::uint32_t count, bool swap,
              const unsigned char* end, void* dst) {
    const std::uint64_t element = elementSize(type);
    const std::uint64_t size = count * element;
    if (end < src || static_cast<std::uint64_t>(end - src) < size) return failBeyondEnd();
    if (size == 0) return 1;
    std::memcpy(dst, src, size);
    if (isForeign(type, swap)) swapElements(static_cast<unsigned char*>(dst), size, count, element);
    return 1;
}

int decodecFile(const unsigned char* data, unsigned long length, FileType expected,
                FileInfo*& infos, unsigned short& infoCount, void*& mainData) {
    if (data == nullptr || length == 0) {
        std::fputs("input error\n", stderr);
        return 0;
    }
    Reader reader(data, length);
    std::uint32_t table = 0;
    if (readHeader(reader, expected, table, infoCount) == 0) return 0;

    infos = nullptr;
    const std::uint64_t records = std::uint64_t{table} + sizeof infoCount;
    // As a whole and before anything is allocated for it.
    if (!reader.has(records, kRecordSize * infoCount)) return failBeyondEnd();
    DecodedEntries entries(infoCount);
    readTable(reader, records, entries.all());

    MainBlock main;
    if (!readPayloads(reader, entries.all(), main)) return failBeyondEnd();

    const auto type = static_cast<FileDataType>(main.type);
    mainData = nullptr;
    if (!reader.claim(main.offset, main.count * elementSize(type))) return failBeyondEnd();
    mainData = reader.copy(main.offset, type, main.count);
    infos = entries.handOut();
    return 1;
}
