# SPDX-License-Identifier: MIT
"""Containers: one frame each, samples and the entries that describe them."""

import pathlib
import struct
from dataclasses import dataclass

import numpy as np

HEADER = struct.Struct("<2sHI")
COUNT = struct.Struct("<H")
RECORD = struct.Struct("<HHII")
KIND_FRAME = 0x4858
TEXT_TYPE = 4
# Elements by their type; other types are unknown and have no payload.
ELEMENTS = ("<u1", "<u2", "<u4", "<u1", "<u1", "<u4", "<u8")
NAMES = {4: "width", 5: "height", 6: "depth", 7: "time", 8: "identification",
         9: "library_version", 10: "exposure", 11: "gain", 12: "spectral_resolution"}
TAG_TYPE, TAG_COUNT, TAG_OFFSET = 1, 2, 3


class ContainerError(ValueError):
    """The bytes are no whole container. `offset` says where."""

    def __init__(self, offset, text, file=None):
        place = f"{file}: " if file is not None else ""
        super().__init__(f"{place}at byte {offset}: {text}")
        self.offset = offset
        self.text = text
        self.file = file


@dataclass(frozen=True)
class Frame:
    """A frame. The arrays cannot be written to: copy what is to be changed."""

    samples: np.ndarray
    """Rows x columns, 16 bits; they look into the bytes of the container."""
    entries: dict
    """width, height, depth, time, identification, library_version, exposure (units of 100 us),
    gain, spectral_resolution; other tags by their number."""


def parse(data, offset=0):
    """The frame that begins at `offset` of `data`, and the offset behind it."""
    view = memoryview(data)[offset:].toreadonly()
    try:
        payloads, size = _payloads(view)
        return Frame(_samples(view, payloads), _entries(payloads)), offset + size
    except ContainerError as fault:
        raise ContainerError(offset + fault.offset, fault.text) from None


def read(path):
    """The frames of a container file, one after the other, or those of all .hxc files of a folder
    in the order of their names."""
    path = pathlib.Path(path)
    files = sorted(path.glob("*.hxc")) if path.is_dir() else [path]
    for file in files:
        data = file.read_bytes()
        end = 0
        while end < len(data) or end == 0:
            try:
                frame, end = parse(data, end)
            except ContainerError as fault:
                raise ContainerError(fault.offset, fault.text, file) from None
            yield frame


def table_offset(header):
    """Where the table begins, from the first bytes of a frame's container."""
    if len(header) < HEADER.size:
        raise ContainerError(len(header), "the header is cut off")
    magic, kind, table = HEADER.unpack_from(header)
    if magic != b"LL":
        raise ContainerError(0, "no container")
    if kind != KIND_FRAME:
        raise ContainerError(2, f"kind {kind:#06x} is no frame")
    return table


def _payloads(view):
    table = table_offset(view)
    if table + COUNT.size > len(view):
        raise ContainerError(len(view), "cut off before its table")
    (count,) = COUNT.unpack_from(view, table)
    size = table + COUNT.size + RECORD.size * count
    if size > len(view):
        raise ContainerError(len(view), "cut off in its table")
    payloads = {}
    for i in range(count):
        at = table + COUNT.size + RECORD.size * i
        tag, kind, number, offset = RECORD.unpack_from(view, at)
        payloads[tag] = (at, kind, _array(view, at, kind, number, offset))
    return payloads, size


def _array(view, at, kind, number, offset):
    if kind >= len(ELEMENTS):
        return np.empty(0, "<u1")
    dtype = np.dtype(ELEMENTS[kind])
    if offset + number * dtype.itemsize > len(view):
        raise ContainerError(at, f"{number} elements at {offset} reach past the end")
    return np.frombuffer(view, dtype, number, offset)


def _samples(view, payloads):
    def number(tag):
        at, _, elements = payloads.get(tag, (0, 0, ()))
        if len(elements) == 0:
            raise ContainerError(at, f"it has no entry with tag {tag}")
        return int(elements[0])

    at = payloads.get(TAG_OFFSET, (0,))[0]
    count, width, height = number(TAG_COUNT), number(4), number(5)
    if number(TAG_TYPE) != 1 or width * height != count or count == 0:
        raise ContainerError(at, f"{count} samples are no picture of {width} x {height}")
    return _array(view, at, 1, count, number(TAG_OFFSET)).reshape(height, width)


def _entries(payloads):
    entries = {}
    for tag, (_, kind, elements) in payloads.items():
        if tag in (TAG_TYPE, TAG_COUNT, TAG_OFFSET):
            continue
        if kind == TEXT_TYPE:
            value = elements.tobytes().split(b"\0")[0].decode(errors="backslashreplace")
        else:
            value = int(elements[0]) if len(elements) == 1 else elements
        entries[NAMES.get(tag, tag)] = value
    return entries
