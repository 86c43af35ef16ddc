#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The reconstruction's rule in NumPy, beside numpy.copyto of a frame; times in ns as JSON.

    numpy_bench.py [REPETITIONS]
"""
import json
import statistics
import sys
import time

import numpy as np

HEIGHT, WIDTH = 1200, 1600
BORDER = 3


def reconstruct(values, output):
    """All nine channels in the interior; without fused rounding, without border and mask."""
    rows, cols = values.shape

    def moved(dr, dc):
        return values[BORDER + dr:rows - BORDER + dr, BORDER + dc:cols - BORDER + dc]

    value = moved(0, 0)
    inverse = 1 / (value + 0.0001)
    for dr in (-1, 0, 1):
        for dc in (-1, 0, 1):
            near, opposite = moved(dr, dc), moved(-2 * dr, -2 * dc)
            slope = value - moved(3 * dr, 3 * dc)
            opposite_slope = value - moved(-3 * dr, -3 * dc)
            result = np.where(np.abs(slope) * inverse <= 0.2, slope / 3 + near,
                              np.where(np.abs(opposite_slope) * inverse <= 0.2,
                                       opposite_slope * (2 / 3) + opposite,
                                       (2 * near + opposite) / 3))
            np.maximum(result, 0, out=result)
            # Each place of the mosaic has this direction's value in a channel of its own.
            for r in range(3):
                for c in range(3):
                    channel = (BORDER + r + dr) % 3 * 3 + (BORDER + c + dc) % 3
                    output[BORDER + r:rows - BORDER:3, BORDER + c:cols - BORDER:3, channel] = \
                        result[r::3, c::3]


def median_ns(work, repetitions):
    times = []
    for _ in range(repetitions):
        before = time.process_time_ns()
        work()
        times.append(time.process_time_ns() - before)
    return statistics.median(times)


def main():
    repetitions = int(sys.argv[1]) if len(sys.argv) > 1 else 5
    noise = np.random.default_rng(2)
    values = 500 * noise.uniform(0.7, 1.3, (HEIGHT, WIDTH))
    output = np.zeros((HEIGHT, WIDTH, 9))
    frame = np.ones((HEIGHT, WIDTH), np.uint16)
    copy = np.empty_like(frame)
    np.copyto(copy, frame)
    print(json.dumps({
        "numpy/copyto": median_ns(lambda: np.copyto(copy, frame), 20 * repetitions),
        "numpy/mosaic": median_ns(lambda: reconstruct(values, output), repetitions),
    }))


if __name__ == "__main__":
    main()
