// SPDX-License-Identifier: MIT
#include <random>
#include <vector>

#include "bench_support.h"

namespace bench {
namespace {

std::vector<void (*)()>& peers() {
    static std::vector<void (*)()> all;
    return all;
}

std::vector<Pages<unsigned short>> randomFrames() {
    std::mt19937 random(1);
    std::vector<Pages<unsigned short>> frames;
    for (std::size_t i = 0; i < kRing; ++i) {
        for (unsigned short& word : frames.emplace_back(kPixels).all()) {
            word = static_cast<unsigned short>(random());
        }
    }
    return frames;
}

const std::vector<Pages<unsigned short>>& frames() {
    static const auto all = randomFrames();
    return all;
}

}  // namespace

DriverRing::DriverRing(std::size_t used) : frames_(&frames()), used_(used) {}

const unsigned char* DriverRing::next() {
    return reinterpret_cast<const unsigned char*>((*frames_)[taken_++ % used_].data());
}

const std::vector<unsigned short>& packedFrame() {
    static const std::vector<unsigned short> frame(kPixels, 511);
    return frame;
}

Peer::Peer(void (*addAll)()) {
    peers().push_back(addAll);
}

}  // namespace bench

int main(int argc, char** argv) {
    bench::addFrameStages();
    bench::addMosaicStages();
    for (const auto addAll : bench::peers()) addAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
