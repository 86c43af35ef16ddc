// SPDX-License-Identifier: MIT
// What a callback collects; it copies and returns, as every callback should.
#pragma once

#include <condition_variable>
#include <mutex>
#include <set>
#include <vector>

class Receiver {
  public:
    /// Keeps the first `keep` containers.
    explicit Receiver(std::size_t keep = 1) : keep_(keep) {}

    static void receive(unsigned char* data, unsigned long size, void* userData) {
        auto& self = *static_cast<Receiver*>(userData);
        const std::lock_guard lock(self.mutex_);
        self.blocks_.insert(data);
        if (self.containers.size() < self.keep_) self.containers.emplace_back(data, data + size);
        ++self.count_;
        self.changed_.notify_all();
    }
    void await(unsigned int count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return count_ >= count; });
    }
    unsigned int count() {
        const std::lock_guard lock(mutex_);
        return count_;
    }
    /// How many different addresses came. As `containers`, not while frames still come.
    std::size_t blocks() const { return blocks_.size(); }

    std::vector<std::vector<unsigned char>> containers;

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::set<unsigned char*> blocks_;
    std::size_t keep_;
    unsigned int count_ = 0;
};
