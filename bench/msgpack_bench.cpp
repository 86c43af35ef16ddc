// SPDX-License-Identifier: MIT
// The same frame and entries as a MessagePack array, in a buffer that keeps its memory.
#define MSGPACK_NO_BOOST
#include <memory>
#include <msgpack.hpp>
#include <string>

#include "bench_support.h"

namespace {

void pack(msgpack::sbuffer& buffer) {
    buffer.clear();
    msgpack::packer<msgpack::sbuffer> packer(buffer);
    packer.pack_array(19);
    packer.pack_bin(bench::kFrameBytes);
    packer.pack_bin_body(reinterpret_cast<const char*>(bench::packedFrame().data()),
                         bench::kFrameBytes);
    for (const char* text : {"2026-11-21--07-45--123", "HX02-V02.1-12345A-L", "1.0.1-rc"}) {
        packer.pack(text);
    }
    for (std::uint32_t i = 0; i < 15; ++i) packer.pack(156 + i);
}

void addAll() {
    const auto buffer = std::make_shared<msgpack::sbuffer>(std::size_t{4} << 20);
    bench::add("packing/msgpack", [buffer] { pack(*buffer); });
}

const bench::Peer peer(addAll);

}  // namespace
