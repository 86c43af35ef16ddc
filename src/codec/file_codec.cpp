// SPDX-License-Identifier: MIT
#include "codec/file_codec.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace {

constexpr std::uint64_t kElementSizes[] = {1, 2, 4, 1, 1, 4, 8};
constexpr std::uint16_t kMagic = 0x4C4C;  // "LL"
constexpr std::uint32_t kHeaderSize = 8;
constexpr std::uint64_t kRecordSize = 12;

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
