# SPDX-License-Identifier: MIT
"""Reconstruction in NumPy, from its description, and other people's programs that read cubes."""
import json
import subprocess

import numpy as np


def moved(values, rows, cols):
    return np.roll(values, (-rows, -cols), (0, 1))


def to_border(values):
    return np.pad(values[3:-3, 3:-3], [(3, 3), (3, 3)] + [(0, 0)] * (values.ndim - 2), "edge")


def reconstruct(mosaic, masked=None):
    """rows x cols x 9 values, and which pixels have none because a masked one would be needed."""
    values = np.asarray(mosaic, float)
    masked = np.zeros(values.shape, bool) if masked is None else masked
    inverse = 1 / (values + 0.0001)
    row, col = np.indices(values.shape)
    cube, lost = np.zeros((*values.shape, 9)), masked.copy()
    for dr in (-1, 0, 1):
        for dc in (-1, 0, 1):
            near, far, other_near, other_far = (moved(values, k * dr, k * dc)
                                                for k in (1, 3, -2, -3))
            choice = np.where(abs(values - far) * inverse <= 0.2, 0,
                              np.where(abs(values - other_far) * inverse <= 0.2, 1, 2))
            estimate = np.choose(choice, [near + (values - far) / 3,
                                          other_near + (values - other_far) * 2 / 3,
                                          (2 * near + other_near) / 3])
            cube[row, col, (row + dr) % 3 * 3 + (col + dc) % 3] = np.maximum(estimate, 0)
            near, far, other_near, other_far = (moved(masked, k * dr, k * dc)
                                                for k in (1, 3, -2, -3))
            lost |= np.choose(choice, [near | far, other_near | other_far, near | other_near])
    return to_border(cube), to_border(lost) | masked


def by_gdal(source, folder):
    """What GDAL reads, rows x cols x bands, and what it says."""
    said = json.loads(subprocess.run(["gdalinfo", "-json", source], capture_output=True,
                                     check=True).stdout)
    target = folder / "by-gdal.img"
    subprocess.run(["gdal_translate", "-q", "-of", "ENVI", "-co", "INTERLEAVE=BSQ", source, target], check=True)
    types = {"Byte": "u1", "UInt16": "<u2", "Float32": "<f4", "Float64": "<f8"}
    cols, rows = said["size"]
    values = np.fromfile(target, types[said["bands"][0]["type"]])
    return values.reshape(-1, rows, cols).transpose(1, 2, 0), said
