// SPDX-License-Identifier: MIT
// The extension unit that tells the identification text: unit 6, selector 10, 32 bytes to be read.
#pragma once

#include <linux/uvcvideo.h>

#include <cstdint>

namespace hx::sim {

// Answers UVCIOC_CTRL_QUERY as the driver does; 0 or -errno. May take as long as the camera is told
// to.
int queryExtensionUnit(std::uint32_t camera, const uvc_xu_control_query& query);

}  // namespace hx::sim
