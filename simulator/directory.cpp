// SPDX-License-Identifier: MIT
#include "directory.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "node_path.h"
#include "real_calls.h"
#include "state_link.h"

namespace hx::sim {

namespace {

// One opened /dev. As with any DIR, one thread at a time uses it.
struct Listing {
    std::vector<std::uint32_t> minors;
    std::size_t next = 0;
    bool realShown = false;
    dirent entry = {};
};

struct Listings {
    std::mutex mutex;
    std::map<DIR*, std::unique_ptr<Listing>> open;
};

constinit std::atomic<std::size_t> g_openCount{0};

Listings& listings() {
    static Listings* const all = new Listings;
    return *all;
}

Listing* find(DIR* directory) {
    if (g_openCount.load(std::memory_order_acquire) == 0) return nullptr;
    const std::lock_guard lock(listings().mutex);
    const auto found = listings().open.find(directory);
    return found == listings().open.end() ? nullptr : found->second.get();
}

void fill(Listing& listing) {
    struct Node {
        std::uint64_t order;
        std::uint32_t minor;
    };
    std::vector<Node> nodes;
    {
        const StateLock state;
        for (std::uint32_t i = 0; i < state->cameraCount; ++i) {
            const CameraRun& run = state->cameras[i].run;
            if (!run.plugged) continue;
            nodes.push_back({2 * run.plugOrder, run.captureMinor});
            nodes.push_back({2 * run.plugOrder + 1, run.metadataMinor});
        }
        for (std::uint32_t i = 0; i < state->foreignCount; ++i) {
            nodes.push_back({2 * state->foreign[i].plugOrder, state->foreign[i].minor});
        }
        listing.realShown = state->realDevicesShown;
    }
    std::sort(nodes.begin(), nodes.end(),
              [](const Node& left, const Node& right) { return left.order > right.order; });
    listing.minors.clear();
    for (const Node& node : nodes) listing.minors.push_back(node.minor);
    listing.next = 0;
}

dirent* simulatedEntry(Listing& listing) {
    const auto minor = listing.minors[listing.next++];
    dirent& entry = listing.entry;
    entry = {};
    entry.d_ino = 0x81000000U + minor;
    entry.d_off = static_cast<off_t>(listing.next);
    entry.d_reclen = sizeof entry;
    entry.d_type = DT_CHR;
    std::snprintf(entry.d_name, sizeof entry.d_name, "video%u", minor);
    return &entry;
}

}  // namespace

void addDirectory(DIR* directory, bool isDev) {
    if (!directory || !isDev) return;
    auto listing = std::make_unique<Listing>();
    fill(*listing);
    const std::lock_guard lock(listings().mutex);
    listings().open[directory] = std::move(listing);
    g_openCount = listings().open.size();
}

dirent* nextEntry(DIR* directory) {
    Listing* listing = find(directory);
    if (!listing) return real::readdir(directory);
    if (listing->next < listing->minors.size()) return simulatedEntry(*listing);
    dirent* entry = real::readdir(directory);
    while (entry && !listing->realShown && videoNumber(entry->d_name)) {
        entry = real::readdir(directory);
    }
    return entry;
}

void rewindDirectory(DIR* directory) {
    if (Listing* listing = find(directory)) fill(*listing);
}

void dropDirectory(DIR* directory) {
    if (g_openCount.load(std::memory_order_acquire) == 0) return;
    const std::lock_guard lock(listings().mutex);
    listings().open.erase(directory);
    g_openCount = listings().open.size();
}

}  // namespace hx::sim
