# SPDX-License-Identifier: MIT
"""Simulated nodes from inside: requests, users of one camera, frames, cameras that go away."""
# Run as a program, this becomes hx-sim with all cameras that its tests declare, and that runs the
# tests.
import ctypes
import fcntl
import mmap
import os
import pathlib
import select
import signal
import struct
import sys
import threading
import time
from errno import (EACCES, EAGAIN, EBADRQC, EBUSY, EFAULT, EINTR, EINVAL, EIO, EMFILE, ENOBUFS,
                   ENODEV, ENOENT, ETIMEDOUT, EXDEV)

import pytest

from conftest import CAMERA, HX_SIM

LIBC = ctypes.CDLL(None, use_errno=True)
LIBC.mmap.restype = ctypes.c_void_p
LIBC.mmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t, *3 * [ctypes.c_int], ctypes.c_long]
LIBC.munmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t]
CAPTURE, DONE, YUYV = 1, 4, 0x56595559
EXPOSURE, AUTO_EXPOSURE = 0x9a0902, 0x9a0901
QUERYCAP, S_FMT, REQBUFS, QUERYBUF, QBUF, DQBUF, STREAMON, STREAMOFF, G_CTRL, S_CTRL, XU = (
    0x80685600, 0xc0d05605, 0xc0145608, 0xc0585609, 0xc058560f, 0xc0585611, 0x40045612, 0x40045613,
    0xc008561b, 0xc008561c, 0xc0107521)
CAMERAS = []


def camera(keys="", identification=CAMERA):
    """Declares a camera and names its node; the metadata node has the next number."""
    CAMERAS.append(f"{identification},node={2 * len(CAMERAS)},{keys}".rstrip(","))
    return f"video{2 * len(CAMERAS) - 2}"


def metadata_of(name):
    return f"video{int(name[5:]) + 1}"


def error_of(call, *arguments):
    try:
        call(*arguments)
    except OSError as error:
        return error.errno
    return 0


class Node:
    """A descriptor with the ring mapped through it; calls that fail raise OSError."""

    def __init__(self, name, flags=0):
        self.fd = os.open(f"/dev/{name}", os.O_RDWR | os.O_CLOEXEC | flags)
        self.places = {}

    def __del__(self):
        self.unmap()
        self.close()

    def close(self):
        if getattr(self, "fd", -1) >= 0:
            os.close(self.fd)
        self.fd = -1

    def call(self, request, layout, *values):
        data = bytearray(struct.pack(layout, *values).ljust(request >> 16 & 0x3fff, b"\0"))
        fcntl.ioctl(self.fd, request, data)
        return struct.unpack_from(layout, data)

    def format(self):
        self.call(S_FMT, "I4x3I", CAPTURE, 1600, 1200, YUYV)

    def request(self, count):
        return self.call(REQBUFS, "3I", count, CAPTURE, 1)[0]

    def buffer(self, request, index=0):
        """Index, flags, sequence, seconds, offset and length."""
        values = self.call(request, "5I4x2q16x2IQI", index, CAPTURE, 0, 0, 0, 0, 0, 0, 1, 0, 0)
        index, _, _, flags, _, seconds, microseconds, sequence, _, offset, length = values
        return index, flags, sequence, seconds + microseconds / 1e6, offset, length

    def flags(self, index):
        return self.buffer(QUERYBUF, index)[1]

    def queue(self, index):
        self.buffer(QBUF, index)

    def dequeue(self):
        """Index and sequence."""
        return self.buffer(DQBUF)[0:3:2]

    def turn(self):
        """Takes a frame and hands its buffer back at once. Its sequence."""
        index, sequence = self.dequeue()
        self.queue(index)
        return sequence

    def stream(self, on=True):
        self.call(STREAMON if on else STREAMOFF, "i", CAPTURE)

    def map(self, index):
        *_, offset, length = self.buffer(QUERYBUF, index)
        place = LIBC.mmap(None, length, mmap.PROT_READ, mmap.MAP_SHARED, self.fd, offset)
        if place == ctypes.c_void_p(-1).value:
            raise OSError(ctypes.get_errno(), "mmap")
        self.places[index] = place, length

    def unmap(self):
        for place in getattr(self, "places", {}).values():
            LIBC.munmap(*place)
        self.places = {}

    def word(self, index, position):
        return ctypes.c_uint16.from_address(self.places[index][0] + 2 * position).value

    def start(self, count):
        self.format()
        for index in range(self.request(count)):
            self.map(index)
            self.queue(index)
        self.stream()

    def set(self, value, control=EXPOSURE):
        self.call(S_CTRL, "Ii", control, value)

    def get(self):
        return self.call(G_CTRL, "Ii", EXPOSURE, 0)[1]

    def unit(self, unit=6, selector=10, query=0x81, size=32):
        data = ctypes.create_string_buffer(33)
        self.call(XU, "3BxH2xQ", unit, selector, query, size, ctypes.addressof(data))
        return data.raw[:size]

    def poll(self, milliseconds=20000):
        waiting = select.poll()
        waiting.register(self.fd, select.POLLIN)
        return dict(waiting.poll(milliseconds)).get(self.fd, 0)


# One node by itself.

FIRST, SECOND = camera("serial=A 1\\,2"), camera()
DENIED = camera("access=denied")


def test_a_node_is_a_character_device_under_every_name_of_its_path():
    status = os.stat(f"/dev//./{SECOND}")
    assert status.st_mode & 0o170000 == 0o020000
    assert (os.major(status.st_rdev), os.minor(status.st_rdev)) == (81, int(SECOND[5:]))
    folder = os.open("/dev", os.O_RDONLY)
    node = os.open(SECOND, os.O_RDWR, dir_fd=folder)
    assert os.fstat(node).st_rdev == status.st_rdev
    assert error_of(os.read, node, 1) == EINVAL
    os.close(node)
    os.close(folder)
    assert not os.path.exists("/dev/video255")
    assert error_of(Node, DENIED) == EACCES
    assert os.path.exists(f"/dev/{DENIED}") and not os.access(f"/dev/{DENIED}", os.R_OK)


def test_sysfs_tells_what_a_node_is():
    def first_line(path):
        return pathlib.Path(path).read_text("ascii").splitlines()[0]

    folder = f"/sys/class/video4linux/{FIRST}"
    assert first_line(f"{folder}/name") == "Webcam gadget: UVC Camera"
    assert first_line(f"{folder}/device/../serial") == "A 1,2"
    assert first_line(f"/sys/class/video4linux/{metadata_of(FIRST)}/index") == "1"
    assert first_line(f"/sys/dev/char/{first_line(f'{folder}/dev')}/uevent") == "MAJOR=81"


def test_requests_are_taken_as_the_kernel_takes_them():
    node = Node(FIRST)

    def raw(request, argument):
        ctypes.set_errno(EXDEV)
        return LIBC.ioctl(node.fd, ctypes.c_ulong(request), argument), ctypes.get_errno()

    assert raw(QUERYCAP, None) == (-1, EFAULT)
    # Programs pass requests as negative ints. Success leaves errno alone.
    assert raw(QUERYCAP - 2**32, bytes(104)) == (0, EXDEV)
    assert error_of(node.dequeue) == EBUSY, "no ring of its own"
    node.request(2)
    assert error_of(node.format) == EBUSY, "a ring is there"


@pytest.mark.parametrize("name, arguments, answer", [
    (FIRST, (6, 10, 0x81, 31), ENOBUFS), (FIRST, (5, 10, 0x81, 32), ENOENT),
    (FIRST, (6, 11, 0x81, 32), ENOENT), (FIRST, (6, 10, 0x85, 2), b"\x20\0"),
    (FIRST, (6, 10, 0x85, 32), ENOBUFS), (FIRST, (6, 10, 0x86, 1), b"\1"),
    (FIRST, (6, 10, 0x01, 32), EBADRQC), (FIRST, (6, 10, 0x7f, 32), EINVAL),
    (camera("xu=slow:60"), (), ETIMEDOUT),
    (camera("xu=short"), (), CAMERA[:16].encode() + bytes(16)),
    (camera("", "\\xff\\,and a comma"), (), b"\xff,and a comma".ljust(32, b"\0")),
])
def test_an_extension_unit_answers_like_the_driver(name, arguments, answer):
    try:
        assert Node(name).unit(*arguments) == answer
    except OSError as error:
        assert error.errno == answer


FAULTY = camera("rate=0,fault=open:2=EMFILE,fault=DQBUF:2=EIO")


def test_a_fault_hits_the_nth_call_of_its_kind_only():
    node = Node(FAULTY)
    assert [error_of(Node, FAULTY), error_of(Node, FAULTY)] == [EMFILE, 0]
    node.start(4)
    assert node.turn() == 0 and error_of(node.dequeue) == EIO
    assert node.turn() == 1, "the failed call took no frame"


HELD = camera("auto-exposure=held")


def test_an_automatic_exposure_holds_the_exposure_until_it_is_manual():
    node = Node(HELD)
    assert error_of(node.set, 10) == EACCES
    assert error_of(node.set, 2, AUTO_EXPOSURE) == EINVAL, "a mode that this camera has not"
    node.set(1, AUTO_EXPOSURE)
    assert error_of(node.set, 10) == 0


# Several users of one camera.

SHARED = camera("rate=0")


def in_child(work):
    child = os.fork()
    if child == 0:
        os._exit(work())
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])


def test_who_sets_the_format_first_has_the_camera():
    def look():
        other = Node(SHARED)
        other.set(99)
        return 3 * [EBUSY] != [error_of(other.format), error_of(other.request, 4),
                               error_of(other.stream)]

    owner = Node(SHARED)
    owner.format()
    assert not look() and not in_child(look)
    assert owner.get() == 99
    owner.close()
    assert error_of(Node(SHARED).format) == 0


def test_mappings_keep_the_camera_after_its_descriptor_is_closed():
    owner, other = Node(SHARED), Node(SHARED)
    owner.start(3)
    owner.close()
    assert error_of(other.format) == EBUSY
    owner.unmap()
    assert error_of(other.format) == 0


def test_duplicates_are_one_open_file():
    owner, other = Node(SHARED), Node(SHARED)
    owner.format()
    second = os.dup(owner.fd)
    owner.close()
    assert error_of(other.format) == EBUSY
    # Replaced by another file, the last one goes too.
    null = os.open("/dev/null", os.O_RDONLY)
    os.dup2(null, second)
    assert error_of(other.format) == 0
    os.close(null)
    os.close(second)


def test_a_killed_owner_leaves_the_camera_free():
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        node = Node(SHARED)
        node.start(4)
        os.write(writer, b"y")
        signal.pause()
    assert os.read(reader, 1) == b"y"
    other = Node(SHARED)
    assert error_of(other.format) == EBUSY
    os.kill(child, signal.SIGKILL)
    os.waitid(os.P_PID, child, os.WEXITED | os.WNOWAIT)
    assert error_of(other.format) == 0, "dead but not reaped, it has no files"
    os.waitpid(child, 0)


def test_a_forked_child_leaves_the_parents_stream_alone():
    node = Node(SHARED)
    node.start(4)
    assert in_child(lambda: node.close() or error_of(Node(SHARED).format)) == EBUSY
    assert node.turn() == 0


PACED, FOUR = camera("rate=50"), camera("rate=50,ring=4")


def test_at_a_rate_the_ring_keeps_the_oldest_frames_and_later_ones_are_lost():
    node = Node(FOUR)
    node.start(20)
    # All buffers are full once the last one is; then frames are lost for a while.
    while not node.flags(3) & DONE:
        time.sleep(0.01)
    time.sleep(0.1)
    assert [node.turn() for _ in range(4)] == [0, 1, 2, 3]
    assert node.turn() >= 7, "the lost frames are counted"


def test_no_frame_comes_early_and_poll_tells_of_each():
    node = Node(PACED, os.O_NONBLOCK)
    node.start(20)
    begin = time.monotonic()
    epoll = select.epoll()
    epoll.register(node.fd, select.EPOLLIN)
    for number in range(15):
        assert epoll.poll(20) and node.poll() == select.POLLIN
        *_, sequence, stamp, _, _ = node.buffer(DQBUF)
        assert sequence == number and stamp - begin > number / 50
    # Emptied quicker than it fills.
    assert error_of(lambda: [node.turn() for _ in range(1000)]) == EAGAIN
    node.stream(False)
    assert node.poll(0) == 0, "what was filled went with the stream"


SILENT = camera("stall=0")


def test_a_blocked_dequeue_holds_up_nobody_and_ends_with_the_stream():
    def dequeue():
        said.append("begun")
        said.append(error_of(node.dequeue))

    node, other = Node(SILENT), Node(SILENT)
    node.start(2)
    said = []
    thread = threading.Thread(target=dequeue)
    thread.start()
    state = f"/proc/self/task/{thread.native_id}/stat"
    while not said or open(state, encoding="ascii").read().rsplit(")", 1)[1].split()[0] != "S":
        time.sleep(0.001)
    node.set(77)
    node.unmap()
    assert other.get() == 77 and said == ["begun"]
    node.stream(False)
    thread.join()
    assert said == ["begun", EINVAL]


def test_a_signal_breaks_a_blocked_dequeue_off():
    node = Node(SILENT)
    node.start(2)
    signal.signal(signal.SIGALRM, lambda *_: None)
    signal.setitimer(signal.ITIMER_REAL, 0.05, 0.05)
    error = error_of(node.dequeue)
    signal.setitimer(signal.ITIMER_REAL, 0)
    assert error == EINTR


STALLING = camera("stall=3,rate=0")


def test_a_stall_ends_each_stream_after_its_frames():
    node = Node(STALLING)
    node.start(4)
    for _ in range(2):
        assert node.poll() and [node.turn() for _ in range(3)] == [0, 1, 2] and node.poll(200) == 0
        node.stream(False)
        for index in range(4):
            node.queue(index)
        node.stream()


PLAIN = camera("rate=0,scene=target", "HX01-V01.0-1")
MOSAIC, WHITE, DARK = (camera(f"rate=0,scene={scene}", "HX02-V01.0-1")
                       for scene in ("target", "white", "dark"))


@pytest.mark.parametrize("name, exposure, word", [
    (PLAIN, 156, 777 >> 2 | (777 & 3) << 8), (PLAIN, 10000, 255 | 3 << 8),
    (MOSAIC, 78, round(round(0.95 * 0.8 * 1023 / 2) * 64 * 0.91)),
    (MOSAIC, 10000, round(1023 * 64 * 0.91)), (DARK, 10000, 0),
    (WHITE, 78, round(round(0.8 * 1023 / 2) * 64 * 0.91)),
])
def test_a_scenes_brightness_grows_with_the_exposure_up_to_the_top(name, exposure, word):
    node = Node(name)
    node.set(exposure)
    node.start(2)
    # Row 240, column 200: the white patch, of reflectance 0.95, under the filter 0.91.
    assert node.word(node.dequeue()[0], 240 * 1600 + 200) == word


# Cameras that go away.

UNPLUGGED = camera("rate=0,unplug=1")


def test_an_unplug_wakes_who_polls_and_nothing_is_left():
    node = Node(UNPLUGGED, os.O_NONBLOCK)
    node.start(4)
    assert node.poll() == select.POLLIN
    node.turn()
    assert node.poll() & select.POLLHUP
    for call in (node.dequeue, lambda: node.queue(0), lambda: node.call(QUERYCAP, "104x"),
                 node.get, lambda: node.set(3), node.unit, lambda: node.stream(False)):
        assert error_of(call) == ENODEV
    assert error_of(Node, UNPLUGGED) == ENOENT
    assert not {UNPLUGGED, metadata_of(UNPLUGGED)} & set(os.listdir("/dev"))


HELD_OPEN = camera("rate=0,unplug=1:taken,replug=0.2")


def test_a_number_that_is_held_open_is_not_given_again():
    count = len(os.listdir("/dev"))
    node = Node(HELD_OPEN)
    node.start(4)
    assert error_of(node.turn) == ENODEV
    node.close()  # the mappings hold the old node
    end = time.monotonic() + 20
    while metadata_of(HELD_OPEN) not in os.listdir("/dev") and time.monotonic() < end:
        time.sleep(0.01)
    assert len(os.listdir("/dev")) == count
    assert error_of(Node, HELD_OPEN) == ENOENT
    # The camera under its new number is the newest.
    newest = [name for name in os.listdir("/dev") if name.startswith("video")]
    Node(newest[1]).format()


if __name__ == "__main__":
    words = [word for spec in CAMERAS for word in ("--camera", spec)]
    os.execv(HX_SIM, [HX_SIM, *words, "--", sys.executable, "-m", "pytest", "-q", "-p",
                      "no:cacheprovider", *sys.argv])
