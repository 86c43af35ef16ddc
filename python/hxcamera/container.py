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
# Entries may overlap. All payloads together may have so many times the bytes of the container.
MOST_OVERLAP = 8


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
    files = [path]
    if path.is_dir():
        files = sorted(file for file in path.glob("*.hxc") if file.is_file())
        if not files:
            raise FileNotFoundError(f"{path}: there are no .hxc files in this folder")
    for file in files:
        with file.open("rb") as stream:
            offset = 0
            while stream.peek(1) or offset == 0:
                try:
                    frame, size = parse(_next_container(stream))
                except ContainerError as fault:
                    raise ContainerError(offset + fault.offset, fault.text, file) from None
                offset += size
                yield frame


def _next_container(stream):
    data = bytearray()

    def take(size):
        data.extend(stream.read(size - len(data)))
        if len(data) < size:
            raise ContainerError(len(data), "cut off")
        return data

    return bytes(take(container_size(take)))


def container_size(take):
    """The length of a frame's container; take(n) is to return its first n bytes, or more."""
    table = table_offset(take(HEADER.size))
    (count,) = COUNT.unpack_from(take(table + COUNT.size), table)
    return table + COUNT.size + RECORD.size * count


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
    left = MOST_OVERLAP * size
    for i in range(count):
        at = table + COUNT.size + RECORD.size * i
        tag, kind, number, offset = RECORD.unpack_from(view, at)
        payloads[tag] = (at, kind, _array(view, at, kind, number, offset))
        left -= payloads[tag][2].nbytes
        if left < 0:
            raise ContainerError(at, f"payloads exceed {MOST_OVERLAP} times the container")
    return payloads, size


def _array(view, at, kind, number, offset):
    if kind >= len(ELEMENTS):
        return np.empty(0, "<u1")
    dtype = np.dtype(ELEMENTS[kind])
    if offset + number * dtype.itemsize > len(view):
        raise ContainerError(at, f"{number} elements at {offset} reach past the end")
    return np.frombuffer(view, dtype, number, offset)


def _samples(view, payloads):
    def number(tag, size=0):
        at, _, elements = payloads.get(tag, (0, 0, np.empty(0)))
        if elements.nbytes < max(size, 1):
            raise ContainerError(at, f"it has no entry with tag {tag}, or a short one")
        # The three that describe the samples are told by their bytes, whatever type they have.
        return int.from_bytes(elements.tobytes()[:size], "little") if size else int(elements[0])

    at = payloads.get(TAG_OFFSET, (0,))[0]
    count, width, height = number(TAG_COUNT, 4), number(4), number(5)
    if number(TAG_TYPE, 2) != 1 or width * height != count or count == 0:
        raise ContainerError(at, f"{count} samples are no picture of {width} x {height}")
    return _array(view, at, 1, count, number(TAG_OFFSET, 4)).reshape(height, width)


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
