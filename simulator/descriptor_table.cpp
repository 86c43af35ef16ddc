// SPDX-License-Identifier: MIT
#include "descriptor_table.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace hx::sim {

namespace {

struct Mapping {
    std::uintptr_t begin;
    std::uintptr_t end;
    std::shared_ptr<VideoNode> node;
    std::shared_ptr<void> mark;
};

struct Table {
    std::mutex mutex;
    std::unordered_map<int, std::shared_ptr<VideoNode>> nodes;
    std::vector<Mapping> mappings;
    pid_t process = getpid();
};

// What calls on other descriptors look at: no lock, no heap, good before any constructor.
constexpr std::size_t kTracked = 65536;
constinit std::array<std::atomic<bool>, kTracked> g_simulated{};
constinit std::atomic<std::size_t> g_mappingCount{0};
constinit std::atomic<Table*> g_table{nullptr};

bool tracked(int descriptor) {
    return descriptor >= 0 && static_cast<std::size_t>(descriptor) < kTracked;
}

std::atomic<bool>& flagOf(int descriptor) {
    return g_simulated[static_cast<std::size_t>(descriptor)];
}

void beforeFork() {
    g_table.load()->mutex.lock();
}

void afterForkInParent() {
    g_table.load()->mutex.unlock();
}

// The old table stays as it is, unreachable for the program but not destroyed: its threads are not
// here to be joined. Its descriptors are closed by the exec or exit that nearly always follows.
void afterForkInChild() {
    Table* inherited = g_table.load();
    for (const auto& [descriptor, node] : inherited->nodes) {
        flagOf(descriptor) = false;
        node->abandon();
    }
    for (const Mapping& mapping : inherited->mappings) mapping.node->abandon();
    g_mappingCount = 0;
    g_table = new Table;
}

// Never destroyed: threads of the program may still call while it exits.
Table& table() {
    static Table* const first = [] {
        g_table = new Table;
        pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
        return g_table.load();
    }();
    (void)first;
    return *g_table.load();
}

}  // namespace

void addDescriptor(int descriptor, std::shared_ptr<VideoNode> node) {
    if (!tracked(descriptor)) return;
    Table& all = table();
    const std::lock_guard lock(all.mutex);
    all.nodes[descriptor] = std::move(node);
    flagOf(descriptor) = true;
}

std::shared_ptr<VideoNode> nodeOf(int descriptor) {
    if (!tracked(descriptor) || !flagOf(descriptor).load(std::memory_order_acquire)) return {};
    Table& all = table();
    std::shared_ptr<VideoNode> node;
    {
        const std::lock_guard lock(all.mutex);
        const auto found = all.nodes.find(descriptor);
        if (found == all.nodes.end()) return {};
        node = found->second;
    }
    if (node->is(descriptor)) return node;
    dropDescriptor(descriptor);
    return {};
}

void dropDescriptor(int descriptor) {
    if (!tracked(descriptor) || !flagOf(descriptor).load(std::memory_order_acquire)) return;
    Table& all = table();
    // A child of vfork closes its own descriptors, but would forget them in the parent's memory.
    if (getpid() != all.process) return;
    std::shared_ptr<VideoNode> last;  // released after the lock: ending a stream takes time
    const std::lock_guard lock(all.mutex);
    const auto found = all.nodes.find(descriptor);
    if (found == all.nodes.end()) return;
    last = std::move(found->second);
    all.nodes.erase(found);
    flagOf(descriptor) = false;
}

void addMapping(void* address, std::size_t length, std::shared_ptr<VideoNode> node,
                std::shared_ptr<void> mark) {
    const auto begin = reinterpret_cast<std::uintptr_t>(address);
    Table& all = table();
    const std::lock_guard lock(all.mutex);
    all.mappings.push_back({begin, begin + pageAligned(length), std::move(node), std::move(mark)});
    g_mappingCount = all.mappings.size();
}

std::shared_ptr<VideoNode> mappedNode(const void* address, std::size_t length) {
    if (g_mappingCount.load(std::memory_order_acquire) == 0) return {};
    const auto begin = reinterpret_cast<std::uintptr_t>(address);
    Table& all = table();
    const std::lock_guard lock(all.mutex);
    for (const Mapping& mapping : all.mappings) {
        if (begin < mapping.end && mapping.begin < begin + length) return mapping.node;
    }
    return {};
}

void dropMappings(const void* address, std::size_t length) {
    if (g_mappingCount.load(std::memory_order_acquire) == 0) return;
    const auto begin = reinterpret_cast<std::uintptr_t>(address);
    const auto end = begin + pageAligned(length);
    Table& all = table();
    std::vector<Mapping> dropped;
    const std::lock_guard lock(all.mutex);
    std::vector<Mapping> kept;
    for (Mapping& mapping : all.mappings) {
        // What the range leaves of a mapping, before and behind it, stays.
        if (mapping.begin < std::min(begin, mapping.end)) {
            kept.push_back(
                {mapping.begin, std::min(begin, mapping.end), mapping.node, mapping.mark});
        }
        if (std::max(end, mapping.begin) < mapping.end) {
            kept.push_back({std::max(end, mapping.begin), mapping.end, mapping.node, mapping.mark});
        }
        dropped.push_back(std::move(mapping));
    }
    all.mappings = std::move(kept);
    g_mappingCount = all.mappings.size();
}

}  // namespace hx::sim
