// SPDX-License-Identifier: MIT
// Which descriptors and which mappings of this process belong to simulated nodes.
//
// A node lives while the table or a running call has it. A forked child starts with an empty table:
// the inherited numbers are plain pipes there, and the parent keeps its cameras.
#pragma once

#include <cstddef>
#include <memory>

#include "video_node.h"

namespace hx::sim {

void addDescriptor(int descriptor, std::shared_ptr<VideoNode> node);

// The node behind a descriptor, or null. Costs next to nothing for other descriptors, and takes no
// lock for them.
std::shared_ptr<VideoNode> nodeOf(int descriptor);

// Forgets a descriptor that is about to be closed or replaced.
void dropDescriptor(int descriptor);

void addMapping(void* address, std::size_t length, std::shared_ptr<VideoNode> node,
                std::shared_ptr<void> mark);

// The node that has a mapping in this range, or null.
std::shared_ptr<VideoNode> mappedNode(const void* address, std::size_t length);

// Forgets what lies in the range.
void dropMappings(const void* address, std::size_t length);

}  // namespace hx::sim
