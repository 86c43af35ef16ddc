// SPDX-License-Identifier: MIT
// What encodecFile packs, decodecFile takes apart again.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <vector>

#include "fuzz/fuzz_support.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kMostEntries = 300;

// Main data and entries, built from the input. The reserved entries come first; of the later ones
// none but the offset may be reserved too, or the main data would have to be as long as they say.
struct Frame {
    explicit Frame(FuzzedDataProvider& input) {
        const auto type = input.ConsumeIntegralInRange<std::uint16_t>(0, 8);
        const auto count = input.ConsumeIntegralInRange<std::uint32_t>(0, 300);
        mainData = input.ConsumeBytes<unsigned char>(count);
        mainData.resize(count * elementSize(FileDataType{type}) + 1);
        mainSize = mainData.size() - 1;
        infos.reserve(kMostEntries);  // growing copies, and an entry without payload is not copied
        add(TAG_DATA_TYPE, Data16, valueBytes(type));
        add(TAG_DATA_COUNT, Data32_2, valueBytes(count));
        add(TAG_DATA_OFFSET, Data32_5, Bytes(4));
        while (input.remaining_bytes() > 0 && infos.size() < kMostEntries) addAny(input);
        for (std::size_t i = 0; i < infos.size(); ++i) infos[i].data = payloads[i].data();
    }

    template <class Value>
    static Bytes valueBytes(Value value) {
        Bytes bytes(sizeof value);
        std::memcpy(bytes.data(), &value, sizeof value);
        return bytes;
    }
    void add(std::uint16_t tag, FileDataType type, Bytes payload) {
        const std::uint64_t element = elementSize(type);
        FileInfo& info = infos.emplace_back();
        info.tag = tag;
        info.dataType = type;
        info.count = static_cast<std::uint32_t>(element == 0 ? 4711 : payload.size() / element);
        info.size = info.count * element;
        payload.reserve(1);  // never null
        payloads.push_back(std::move(payload));
    }
    void addAny(FuzzedDataProvider& input) {
        const auto tag = input.ConsumeIntegralInRange<std::uint16_t>(TAG_DATA_OFFSET, 0xFFFF);
        const auto type = static_cast<FileDataType>(input.ConsumeIntegralInRange(0, 8));
        add(tag, type, input.ConsumeBytes<unsigned char>(input.ConsumeIntegral<std::uint8_t>()));
        const FileInfo& info = infos.back();
        isReadable = isReadable && (tag != TAG_DATA_OFFSET || info.size >= sizeof(std::uint32_t));
    }

    Bytes mainData;
    std::uint64_t mainSize;
    std::vector<Bytes> payloads;
    std::vector<FileInfo> infos;
    bool isReadable = true;  // a reserved entry that is too short is written but not read
};

Bytes pack(Frame& frame) {
    unsigned char* block = nullptr;
    unsigned long size = 0;
    const auto count = static_cast<unsigned short>(frame.infos.size());
    auto* const infos = frame.infos.data();
    auto* const mainData = frame.mainData.data();
    PROMISED(encodecFile(FILE_TYPE_HX, infos, count, mainData, block, size) == 1);
    const std::unique_ptr<unsigned char[]> owner(block);
    Bytes again(size);
    unsigned long used = 0;
    const auto packInto = [&](unsigned long room) {
        return encodecFileInto(FILE_TYPE_HX, infos, count, mainData, again.data(), room, used);
    };
    PROMISED(packInto(size - 1) == 0 && packInto(size) == 1);
    PROMISED(used == size && std::memcmp(block, again.data(), size) == 0);
    return again;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    Frame frame(input);
    const Bytes packed = pack(frame);
    const Decoded decoded(packed, FILE_TYPE_HX);
    PROMISED(decoded.taken() == frame.isReadable);
    if (!decoded.taken()) return 0;

    PROMISED(decoded.count == frame.infos.size());
    for (std::size_t i = 0; i < decoded.count; ++i) {
        const FileInfo& in = frame.infos[i];
        const FileInfo& out = decoded.infos[i];
        PROMISED(out.tag == in.tag && out.dataType == in.dataType && out.count == in.count);
        PROMISED(out.offset == in.offset && out.size == in.size);
        PROMISED(in.size == 0 || std::memcmp(out.data, in.data, in.size) == 0);
    }
    PROMISED(frame.mainSize == 0 ||
             std::memcmp(decoded.mainData, frame.mainData.data(), frame.mainSize) == 0);
    const hx::ContainerView view(packed.data(), packed.size());
    view.requireOrder();
    PROMISED(view.size() == packed.size());
    return 0;
}
