// SPDX-License-Identifier: MIT
// The controls of a camera: exposure, and an auto-exposure that may hold it.
#pragma once

#include <linux/videodev2.h>

#include <cstdint>

namespace hx::sim {

// Results are 0 or -errno.
class Controls {
  public:
    explicit Controls(std::uint32_t camera) : camera_(camera) {}

    int query(v4l2_queryctrl& argument) const;
    int queryExtended(v4l2_query_ext_ctrl& argument) const;
    int queryMenu(v4l2_querymenu& argument) const;
    int get(v4l2_control& argument) const;
    int set(v4l2_control& argument) const;
    int getMany(v4l2_ext_controls& argument) const;
    int setMany(v4l2_ext_controls& argument) const;
    int tryMany(v4l2_ext_controls& argument) const;

  private:
    struct Control;

    int find(std::uint32_t id, Control& control) const;
    int findNext(std::uint32_t id, Control& control) const;
    Control describe(std::uint32_t id) const;
    bool has(std::uint32_t id) const;
    int checkAll(v4l2_ext_controls& argument, bool forTrying) const;
    int checkValue(v4l2_ext_control& control) const;
    bool exposureHeld(const v4l2_ext_controls& argument) const;
    int apply(const v4l2_ext_control& control) const;

    std::uint32_t camera_;
};

}  // namespace hx::sim
