// SPDX-License-Identifier: MIT
// OpenCV on one thread: what it has for a mosaic, and the mere weaving of nine finished channels.
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench_support.h"

namespace {

using bench::kHeight;
using bench::kWidth;

void addAll() {
    cv::setNumThreads(1);
    const cv::Mat raw(kHeight, kWidth, CV_16U, cv::Scalar(511));
    bench::add("mosaic/opencv-bayer", [raw, out = cv::Mat()]() mutable {
        cv::cvtColor(raw, out, cv::COLOR_BayerBG2BGR_EA);
    });
    std::vector<cv::Mat> planes;
    for (int i = 0; i < 9; ++i) planes.emplace_back(kHeight, kWidth, CV_64F, cv::Scalar(i));
    bench::add("mosaic/opencv-merge",
               [planes, out = cv::Mat()]() mutable { cv::merge(planes, out); });
}

const bench::Peer peer(addAll);

}  // namespace
