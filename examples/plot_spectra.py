#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plots the spectra of the simulated target: a frame of an attached HX02 camera, nine surfaces.

    hx-sim --camera HX02-V02.1-12345A-L,scene=target -- ./plot_spectra.py OUT.png [REGIONS.csv]

Needs python3-hxcamera and python3-matplotlib. Each sample of the mosaic has one band; the mean over a
surface is taken for each band by itself, without any reconstruction. Camera and simulator tell no
wavelengths, so bands are numbered, in the order of the mosaic.
"""

import csv
import pathlib
import sys

import matplotlib

matplotlib.use("Agg")

import hxcamera
import matplotlib.pyplot as plt
import numpy as np

MOSAIC = 3
# A white surface has 0.8 of the largest 10-bit value at exposure 156.
WHITE_PER_EXPOSURE = 0.8 * 1023 / 156
COLOURS = {"grey": "0.6", "white": "0.85", "black": "0", "blue": "tab:blue", "green": "tab:green",
           "red": "tab:red", "leaf": "olive", "rising": "tab:orange", "comb": "tab:purple"}


def take_frame():
    with hxcamera.Capture(count=1) as frames:
        return next(frames)


def read_regions(path):
    lines = (line for line in path.read_text().splitlines() if not line.startswith("#"))
    for row in csv.DictReader(lines):
        yield row["name"], *(int(row[key]) for key in ("left", "top", "width", "height"))


def spectrum(samples, left, top, width, height):
    """Mean of each band; band 3 r + c + 1 has row r and column c of the mosaic."""
    rows, columns = np.mgrid[top:top + height, left:left + width]
    band = rows % MOSAIC * MOSAIC + columns % MOSAIC
    patch = samples[top:top + height, left:left + width]
    return [patch[band == i].mean() for i in range(MOSAIC * MOSAIC)]


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit("usage: plot_spectra.py OUT.png [REGIONS.csv]")
    beside = pathlib.Path(__file__).parent / "target-regions.csv"
    regions = pathlib.Path(sys.argv[2]) if len(sys.argv) == 3 else beside
    try:
        frame = take_frame()
    except hxcamera.CameraError as error:
        sys.exit(str(error))
    white = WHITE_PER_EXPOSURE * frame.entries["exposure"]

    figure, axes = plt.subplots(figsize=(8, 4.5))
    bands = range(1, MOSAIC * MOSAIC + 1)
    for name, *place in read_regions(regions):
        values = np.array(spectrum(frame.samples, *place)) / white
        axes.plot(bands, values, marker="o", label=name, color=COLOURS.get(name))
    axes.set(xlabel="band", ylabel="reflectance", xticks=list(bands), ylim=(0, 1),
             title=f"{frame.entries['identification']}, exposure {frame.entries['exposure']}")
    axes.grid(alpha=0.3)
    axes.legend(loc="center left", bbox_to_anchor=(1, 0.5))
    figure.savefig(sys.argv[1], dpi=100, bbox_inches="tight", metadata={"Software": None})


if __name__ == "__main__":
    main()
