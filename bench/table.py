#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The table of ratios and goals, from what hx_bench, numpy_bench.py and count_arm64.py measured.

    table.py BENCHMARKS.json [NUMPY.json [ARM64.json]]

Goals are for 1600 x 1200 on x86-64 with AVX2. Ratios of processor times, medians of one run. "At
the limit" is the ratio that this machine would show if we were as fast as its memory.
"""
import json
import statistics
import sys

# What a ratio is of: numerator, denominator and goal; then what the machine's limit is instead of the
# denominator (top: of the numerator), and what the numerator's output is smaller by.
GOALS = """
HX01 samples / memcpy, one buffer           samples/hx01/hot  samples/memcpy/hot  <= 1.25
HX01 samples / memcpy, ring of 20           samples/hx01/ring  samples/memcpy/ring  <= 1.15
HX02 samples / memcpy, one buffer           samples/hx02/hot  samples/memcpy/hot  <= 1.50
HX02 samples / memcpy, ring of 20           samples/hx02/ring  samples/memcpy/ring  <= 1.20
HX02 plain rule / samples                   samples/hx02-plain/hot  samples/hx02/hot  >= 45  samples/memcpy/hot
packing / memcpy                            packing/library  packing/memcpy  <= 1.05
packing, allocations of a frame             packing/library:allocations  -  <= 0
packing, page faults of a frame             packing/library:faults  -  <= 0
encode, then copy / packing                 packing/encode-and-copy  packing/library  >= 2.6  packing/memcpy
FlatBuffers / packing                       packing/flatbuffers  packing/library  >= 0.98  packing/memcpy
MessagePack / packing                       packing/msgpack  packing/library  >= 0.98  packing/memcpy
libtiff to memory / packing                 packing/tiff  packing/library  >= 1.08  packing/memcpy
decodecFile / memcpy                        reading/library  reading/memcpy  <= 1.06
HX01 road of a frame / two memcpy           road/hx01  road/two-memcpy  <= 1.08
HX02 road of a frame / two memcpy           road/hx02  road/two-memcpy  <= 1.15
reconstruction / limit of stores            mosaic/library/noisy  mosaic/store-limit  <= 1.8
slowest picture / fastest                   max:mosaic/library/*  min:mosaic/library/*  <= 1.08
plain, noisy / reconstruction               mosaic/plain/noisy  mosaic/library/noisy  >= 14  mosaic/store-limit
plain, smooth / reconstruction              mosaic/plain/smooth  mosaic/library/smooth  >= 4.3  mosaic/store-limit
empty mask / no mask                        mosaic/library/noisy/empty  mosaic/library/noisy  <= 1.20
1 % masked / no mask                        mosaic/library/noisy/1%  mosaic/library/noisy  <= 2.6  top:mosaic/update-limit
plain / ours, 30 % masked, noisy            mosaic/plain/noisy/30%  mosaic/library/noisy/30%  >= 1.8  mosaic/update-limit
plain / ours, 30 % masked, smooth           mosaic/plain/smooth/30%  mosaic/library/smooth/30%  >= 1.8  mosaic/update-limit
plain / ours, discs masked, noisy           mosaic/plain/noisy/discs  mosaic/library/noisy/discs  >= 8  mosaic/store-limit
OpenCV Bayer, edge-aware, 16 bit, per byte  mosaic/opencv-bayer  mosaic/library/noisy  >= 3.5  mosaic/store-limit  12
OpenCV merge of nine planes, per byte       mosaic/opencv-merge  mosaic/library/noisy  >= 1.6  mosaic/store-limit
NumPy, the same rule                        numpy/mosaic  mosaic/library/noisy  >= 40  mosaic/store-limit
reconstruction, AVX2 / best level           mosaic/avx2/noisy  mosaic/library/noisy
reconstruction, baseline / best level       mosaic/baseline/noisy  mosaic/library/noisy
arm64: calls of fma() or round()            arm64:calls  -  <= 0
arm64: instructions, 48 samples of HX02     arm64:hx02  -  <= 70
arm64: instructions, pixel reconstructed    arm64:mosaic  -  <= 90
"""


def medians(path):
    runs = {}
    for run in json.load(open(path, encoding="ascii"))["benchmarks"]:
        if run["run_type"] == "iteration":
            runs.setdefault(run["run_name"], []).append(run)
    values = {}
    for name, of_name in runs.items():
        # The unit is the same for all.
        values[name] = statistics.median(run["cpu_time"] for run in of_name)
        for counter in ("allocations", "faults"):
            if counter in of_name[0]:
                values[f"{name}:{counter}"] = max(run[counter] for run in of_name)
    return values


def value_of(values, term):
    """None when it was not measured."""
    if term == "-":
        return 1
    if term.startswith(("max:", "min:")):
        pictures = [values.get(term[4:].replace("*", kind)) for kind in ("smooth", "noisy", "random")]
        return None if None in pictures else max(pictures) if term[1] == "a" else min(pictures)
    return values.get(term)


def verdict(ratio, goal):
    if not goal:
        return "", ""
    kind, bound = goal[:2]
    met = ratio <= float(bound) if kind == "<=" else ratio >= float(bound)
    return f"{kind} {bound}", "yes" if met else "NO"


def at_limit(values, terms):
    if len(terms) < 5:
        return ""
    limit = terms[4].removeprefix("top:")
    above, below = (limit, terms[1]) if limit != terms[4] else (terms[0], limit)
    return f"{(float(terms[5]) if len(terms) > 5 else 1) * values[above] / values[below]:.2f}"


def rows(values):
    for line in GOALS.strip().splitlines():
        label, rest = line[:44].strip(), line[44:].split()
        above, below = (value_of(values, term) for term in rest[:2])
        if above is None or below is None:
            yield label, "not measured", "", verdict(1, rest[2:])[0], ""
            continue
        scale = float(rest[5]) if len(rest) > 5 else 1
        ratio = scale * above / below
        yield label, f"{ratio:.2f}", at_limit(values, rest), *verdict(ratio, rest[2:])


def main():
    values = medians(sys.argv[1])
    for path in sys.argv[2:]:
        values.update(json.load(open(path, encoding="ascii")))
    # In NumPy's process copying took another time than in ours.
    if "numpy/mosaic" in values:
        values["numpy/mosaic"] *= values["samples/memcpy/hot"] / values["numpy/copyto"]
    print("| what | measured | at the limit | goal | met |\n|---|---|---|---|---|")
    for row in rows(values):
        print("| {:<42} | {:>8} | {:>8} | {:>7} | {:>3} |".format(*row))


if __name__ == "__main__":
    main()
