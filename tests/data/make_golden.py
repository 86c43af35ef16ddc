#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the golden containers, from the format's description and with none of the project's code.

    make_golden.py FOLDER          writes them
    make_golden.py --check FOLDER  fails when one there is another than it would write
"""
import pathlib
import struct
import sys

BYTE, U16, U32, RESERVED, TEXT, UNKNOWN = 0, 1, 2, 3, 4, 9
FORMATS = {BYTE: "B", U16: "H", U32: "I", RESERVED: "B", TEXT: "B"}
STAMP = b"2026-11-21--07-45--123\0"


def container(samples, entries, magic=b"LL", kind=0x4858, order="<"):
    """`entries` are (tag, type, value): numbers, a text, or the count of an unknown type."""
    main = struct.pack(f"{order}{len(samples)}H", *samples)
    table = []
    payloads = b""
    for tag, type_, value in entries:
        offset = 8 + len(main) + len(payloads)
        if type_ == UNKNOWN:
            payload, count = b"", value
        else:
            values = list(value) if isinstance(value, (bytes, list)) else [value]
            count = len(values)
            payload = struct.pack(f"{order}{count}{FORMATS[type_]}", *values)
        payloads += payload
        table.append(struct.pack(order + "HHII", tag, type_, count, offset))
    start = magic + struct.pack(order + "HI", kind, 8 + len(main) + len(payloads))
    return start + main + payloads + struct.pack(order + "H", len(table)) + b"".join(table)


def frame(width, samples, identification, exposure, spectral):
    height = len(samples) // width
    return [(1, U16, U16), (2, U32, len(samples)), (3, U32, 8), (4, U32, width), (5, U32, height),
            (6, BYTE, 10), (7, TEXT, STAMP), (8, TEXT, identification.encode() + b"\0"),
            (9, TEXT, b"1.0.1-rc\0"), (10, U32, exposure), (11, U32, 0), (12, U32, spectral),
            *((tag, RESERVED, 0) for tag in range(13, 18)), (18, BYTE, 0)]


def overlapping(uses):
    """No samples, and this many entries each of which is the whole container."""
    size = 8 + 2 + 12 * uses
    entry = struct.pack("<HHII", 100, RESERVED, size, 0)
    return struct.pack("<2sHIH", b"LL", 0x4858, 8, uses) + uses * entry


HX01 = [0, 1, 2, 511, 512, 1022, 1023, 1275]
HX02 = [700, 700, 0, 1, 2, 3, 100, 200, 300, 400, 500, 600, 1023, 1100, 1125, 7, 8, 9]
HX01_ENTRIES = frame(4, HX01, "HX01-V01.3-67890E", 156, 75)
HX02_ENTRIES = frame(6, HX02, "HX02-V02.1-12345A-L", 10000, 1)

GOLDEN = {
    "hx01.hxc": container(HX01, HX01_ENTRIES),
    "hx02-lamp.hxc": container(HX02, HX02_ENTRIES),
    "unknown-type.hxc": container(HX01, [*HX01_ENTRIES, (100, UNKNOWN, 3), (101, U16, 5)]),
    "other-kind.hxc": container(HX01, HX01_ENTRIES, kind=0x1234),
    "big-endian.hxc": container(HX01, HX01_ENTRIES, order=">"),
    "swapped.hxc": container(HX01, HX01_ENTRIES, magic=b"HX", order=">"),
    "overlap.hxc": overlapping(9),
}


def main():
    folder = pathlib.Path(sys.argv[-1])
    stale = []
    for name, data in GOLDEN.items():
        if sys.argv[1] != "--check":
            (folder / name).write_bytes(data)
        elif (folder / name).read_bytes() != data:
            stale.append(name)
    if stale:
        sys.exit("not what make_golden.py writes: " + ", ".join(stale))


if __name__ == "__main__":
    main()
