// SPDX-License-Identifier: MIT
// Any bytes, in either byte order, into decodecFile; in this machine's order ContainerView accepts
// the same and reads the same, and what was read is packed and read again.
#include <cstring>
#include <optional>
#include <vector>

#include "fuzz/fuzz_support.h"

namespace {

using Bytes = std::span<const unsigned char>;

std::optional<hx::ContainerView> look(Bytes bytes) {
    try {
        return hx::ContainerView(bytes.data(), bytes.size());
    } catch (const hx::ContainerFault& fault) {
        PROMISED(fault.offset() <= bytes.size());
        return std::nullopt;
    }
}

// Every payload lies inside, and together they stay in proportion.
void checkDecoded(const Decoded& decoded, Bytes bytes) {
    PROMISED(decoded.count != 0 && decoded.infos != nullptr && decoded.infos != &Decoded::mark);
    PROMISED(decoded.mainData != &Decoded::mark);
    std::uint64_t together = 0;
    for (const FileInfo& info : decoded.entries()) {
        PROMISED(info.size == info.count * elementSize(info.dataType));
        PROMISED((info.data == nullptr) == (elementSize(info.dataType) == 0));
        PROMISED(info.offset <= bytes.size() && info.size <= bytes.size() - info.offset);
        together += info.size;
    }
    PROMISED(together <= hx::kMostUses * bytes.size());
}

void compareEntry(const hx::ContainerEntry& seen, const FileInfo& info) {
    PROMISED(seen.tag == info.tag && seen.type == info.dataType);
    PROMISED(seen.count == info.count && seen.offset == info.offset);
    PROMISED(seen.payload.size() == info.size);
    if (info.size == 0) return;
    PROMISED(std::memcmp(seen.payload.data(), info.data, info.size) == 0);
    std::uint64_t value = 0;
    const std::uint64_t element = elementSize(info.dataType);
    std::memcpy(&value, info.data + (info.count - 1) * element, element);
    PROMISED(seen.number(info.count - 1) == value);
    PROMISED(seen.text().size() <= info.size);
}

void compareSamples(const hx::ContainerView& view, const void* mainData) {
    PROMISED((mainData == nullptr) == (elementSize(view.mainType()) == 0));
    const std::span<const std::byte> seen = view.mainData();
    PROMISED(seen.empty() || std::memcmp(seen.data(), mainData, seen.size()) == 0);
    if (seen.empty() || view.mainType() != Data16) return;
    std::vector<std::uint16_t> samples(view.sampleCount());
    view.copySamples(samples);
    PROMISED(std::memcmp(samples.data(), mainData, seen.size()) == 0);
    if (const auto inPlace = view.samples()) {
        PROMISED(std::equal(inPlace->begin(), inPlace->end(), samples.begin(), samples.end()));
    }
}

// Questions with a condition of their own: answered, or refused with a place inside.
void ask(const hx::ContainerView& view, std::size_t size) {
    try {
        view.requireOrder();
        view.requirePicture();
        PROMISED(view.width() * view.height() == view.sampleCount());
    } catch (const hx::ContainerFault& fault) {
        PROMISED(fault.offset() <= size);
    }
}

// Packing completes the entries: their offsets, and the value of TAG_DATA_OFFSET.
void packAgain(const Decoded& decoded, FileType kind) {
    const void* const mainData = decoded.mainData != nullptr ? decoded.mainData : "";
    unsigned char* block = nullptr;
    unsigned long size = 0;
    PROMISED(encodecFile(kind, decoded.infos, decoded.count, mainData, block, size) == 1);
    const std::unique_ptr<unsigned char[]> owner(block);
    std::vector<unsigned char> packed(size);
    const auto packInto = [&](unsigned long room) {
        return encodecFileInto(kind, decoded.infos, decoded.count, mainData, packed.data(), room,
                               size);
    };
    PROMISED(packInto(packed.size() - 1) == 0 && packInto(packed.size()) == 1);
    PROMISED(size == packed.size() && std::equal(packed.begin(), packed.end(), block));

    const hx::ContainerView view(packed.data(), packed.size());
    view.requireOrder();
    PROMISED(view.size() == packed.size() && view.entryCount() == decoded.count);
    for (std::size_t i = 0; i < decoded.count; ++i) compareEntry(view.entry(i), decoded.infos[i]);
    compareSamples(view, decoded.mainData);
    PROMISED(Decoded(packed, kind).taken());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::unique_ptr<unsigned char[]> block(new unsigned char[size]);
    std::copy(data, data + size, block.get());
    const Bytes bytes(block.get(), size);
    std::uint16_t kind = FILE_TYPE_HX;
    const bool isNative = size >= 4 && data[0] == 'L' && data[1] == 'L';
    if (isNative) std::memcpy(&kind, data + 2, sizeof kind);
    const Decoded decoded(bytes, FileType{kind});
    if (decoded.taken()) checkDecoded(decoded, bytes);

    constexpr std::uint16_t kKindOfOtherOrder = 0x5848;
    const auto view = look(bytes);
    PROMISED(view.has_value() == (decoded.taken() && isNative && kind != kKindOfOtherOrder));
    if (!view) return 0;
    PROMISED(view->kind() == kind && view->size() <= size);
    PROMISED(view->entryCount() == decoded.count);
    for (std::size_t i = 0; i < decoded.count; ++i) compareEntry(view->entry(i), decoded.infos[i]);
    compareSamples(*view, decoded.mainData);
    ask(*view, size);
    // Without that entry the reader would look for the samples at byte 0.
    if (view->find(hx::Tag::dataOffset)) packAgain(decoded, FileType{kind});
    return 0;
}
