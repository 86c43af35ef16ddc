// SPDX-License-Identifier: MIT
// The same frame and entries as a FlatBuffers table, with a builder that keeps its memory.
#include <flatbuffers/flatbuffers.h>

#include <memory>

#include "bench_support.h"

namespace {

using flatbuffers::FlatBufferBuilder;

// Of each field of a table, where its offset stands in the table's index.
flatbuffers::voffset_t field(int index) {
    return static_cast<flatbuffers::voffset_t>(2 * (index + 2));
}

void pack(FlatBufferBuilder& builder) {
    builder.Clear();
    const auto& frame = bench::packedFrame();
    const auto samples = builder.CreateVector(frame.data(), frame.size());
    const auto time = builder.CreateString("2026-11-21--07-45--123");
    const auto id = builder.CreateString("HX02-V02.1-12345A-L");
    const auto version = builder.CreateString("1.0.1-rc");
    const auto table = builder.StartTable();
    builder.AddOffset(field(0), samples);
    builder.AddOffset(field(1), time);
    builder.AddOffset(field(2), id);
    builder.AddOffset(field(3), version);
    for (int i = 0; i < 14; ++i) builder.AddElement<std::uint32_t>(field(4 + i), 156, 0);
    builder.Finish(flatbuffers::Offset<flatbuffers::Table>(builder.EndTable(table)));
}

void addAll() {
    const auto builder = std::make_shared<FlatBufferBuilder>(4 << 20);
    bench::add("packing/flatbuffers", [builder] { pack(*builder); });
}

const bench::Peer peer(addAll);

}  // namespace
