// SPDX-License-Identifier: MIT
// The same frame as an uncompressed TIFF file in memory that is kept.
#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "bench_support.h"

namespace {

struct Memory {
    std::vector<unsigned char> bytes = std::vector<unsigned char>(4 << 20);
    std::size_t position = 0;
    std::size_t end = 0;
};

tmsize_t readBytes(thandle_t, void*, tmsize_t) {
    return 0;
}

tmsize_t writeBytes(thandle_t handle, void* data, tmsize_t size) {
    Memory& memory = *static_cast<Memory*>(handle);
    const auto length = static_cast<std::size_t>(size);
    std::memcpy(memory.bytes.data() + memory.position, data, length);
    memory.position += length;
    memory.end = std::max(memory.end, memory.position);
    return size;
}

toff_t seekTo(thandle_t handle, toff_t offset, int whence) {
    Memory& memory = *static_cast<Memory*>(handle);
    const std::size_t base = whence == SEEK_SET   ? 0
                             : whence == SEEK_CUR ? memory.position
                                                  : memory.end;
    return memory.position = base + offset;
}

toff_t sizeOf(thandle_t handle) {
    return static_cast<Memory*>(handle)->end;
}

int closeIt(thandle_t) {
    return 0;
}

void pack(Memory& memory) {
    memory.position = memory.end = 0;
    TIFF* const tiff = TIFFClientOpen("memory", "w", &memory, readBytes, writeBytes, seekTo,
                                      closeIt, sizeOf, nullptr, nullptr);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, bench::kWidth);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, bench::kHeight);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 16);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, bench::kHeight);
    TIFFSetField(tiff, TIFFTAG_IMAGEDESCRIPTION, "HX02-V02.1-12345A-L exposure 156");
    TIFFSetField(tiff, TIFFTAG_DATETIME, "2026:11:21 07:45:00");
    auto* const samples = const_cast<unsigned short*>(bench::packedFrame().data());
    TIFFWriteEncodedStrip(tiff, 0, samples, static_cast<tmsize_t>(bench::kFrameBytes));
    TIFFClose(tiff);
}

void addAll() {
    const auto memory = std::make_shared<Memory>();
    bench::add("packing/tiff", [memory] { pack(*memory); });
}

const bench::Peer peer(addAll);

}  // namespace
