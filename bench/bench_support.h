// SPDX-License-Identifier: MIT
// What the stages share: frames to work on, and how a benchmark is added.
//
// Times are those of the processor, not of the clock on the wall: other work on the machine then
// shows less. bench/table.py makes ratios of them; names are paths, STAGE/WHAT/CONDITION.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <vector>

namespace bench {

constexpr int kWidth = 1600;
constexpr int kHeight = 1200;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;
constexpr std::size_t kFrameBytes = 2 * kPixels;
constexpr std::size_t kRing = 20;

/// Adds a benchmark: `work` is one pass.
template <class Work>
void add(const std::string& name, Work work) {
    benchmark::RegisterBenchmark(name.c_str(), [work](benchmark::State& state) mutable {
        for (auto _ : state) {
            work();
            benchmark::ClobberMemory();
        }
    });
}

struct FreeBlock {
    void operator()(void* block) const { std::free(block); }
};

/// A block like a driver's mapping: it begins a page, and its pages are there.
template <class Value>
class Pages {
  public:
    explicit Pages(std::size_t count)
        : values_(static_cast<Value*>(std::aligned_alloc(kPage, rounded(count * sizeof(Value))))),
          count_(count) {
        if (!values_) throw std::bad_alloc();
        for (Value& value : all()) value = Value{1};
    }
    Value* data() const { return values_.get(); }
    std::span<Value> all() const { return {values_.get(), count_}; }

  private:
    static constexpr std::size_t kPage = 4096;
    static std::size_t rounded(std::size_t size) { return (size + kPage - 1) / kPage * kPage; }

    std::unique_ptr<Value, FreeBlock> values_;
    std::size_t count_;
};

/// Random words in the first `used` buffers of a driver's ring, in turn: 1 stays in the caches, 20
/// (77 MB) only in large ones.
class DriverRing {
  public:
    explicit DriverRing(std::size_t used);
    const unsigned char* next();

  private:
    const std::vector<Pages<unsigned short>>* frames_;
    std::size_t used_;
    std::size_t taken_ = 0;
};

inline const char* conditionOf(std::size_t used) {
    return used == 1 ? "/hot" : "/ring";
}

/// The samples of one frame, which all packers get, and how long its container is.
const std::vector<unsigned short>& packedFrame();

void addFrameStages();
void addMosaicStages();

/// Registers a peer's benchmarks; an object at namespace scope in each peer's file does.
struct Peer {
    explicit Peer(void (*addAll)());
};

}  // namespace bench
