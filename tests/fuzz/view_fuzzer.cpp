// SPDX-License-Identifier: MIT
// ContainerView and decodecFile accept the same containers and read the same in them.
#include <cstring>
#include <optional>
#include <vector>

#include "fuzz/fuzz_support.h"

namespace {

std::optional<hx::ContainerView> look(std::span<const unsigned char> bytes) {
    try {
        return hx::ContainerView(bytes.data(), bytes.size());
    } catch (const hx::ContainerFault& fault) {
        PROMISED(fault.offset() <= bytes.size());
        return std::nullopt;
    }
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
    if (view.mainData().empty()) return;
    PROMISED(std::memcmp(view.mainData().data(), mainData, view.mainData().size()) == 0);
    std::vector<std::uint16_t> samples(view.sampleCount());
    if (view.mainType() != Data16) return;
    view.copySamples(samples);
    PROMISED(std::memcmp(samples.data(), mainData, view.mainData().size()) == 0);
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

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::unique_ptr<unsigned char[]> block(new unsigned char[size]);
    std::copy(data, data + size, block.get());
    const std::span<const unsigned char> bytes(block.get(), size);
    const auto view = look(bytes);

    std::uint16_t kind = 0;
    if (size >= 4) std::memcpy(&kind, data + 2, sizeof kind);
    const bool isNative = size >= 4 && data[0] == 'L' && data[1] == 'L' && kind != 0x5848;
    if (!isNative) {
        PROMISED(!view);
        return 0;
    }
    const Decoded decoded(bytes, FileType{kind});
    PROMISED(view.has_value() == decoded.taken());
    if (!view) return 0;

    PROMISED(view->kind() == kind && view->size() <= size);
    PROMISED(view->entryCount() == decoded.count);
    for (std::size_t i = 0; i < decoded.count; ++i) compareEntry(view->entry(i), decoded.infos[i]);
    compareSamples(*view, decoded.mainData);
    ask(*view, size);
    return 0;
}
