# SPDX-License-Identifier: MIT
"""The Python package, on the simulator and on kept containers."""

import os
import pathlib
import struct
import subprocess
import sys
import time

import hxcamera
import numpy as np
import pytest

TESTS = pathlib.Path(__file__).parent.parent
DATA = TESTS / "data"
CAMERA = "HX01-V01.3-67890E"


def simulated(*options):
    words = [os.environ["HX_SIM"]]
    for option in options:
        words += ["--camera", option]
    return [*words, "--", os.environ["HXCAM"]]


def ramp(frame):
    """A frame of an HX01 on the simulator: words that count up, low byte first."""
    words = (np.arange(1600 * 1200) + 257 * frame) % 65536
    return ((words & 0xff) * 4 + (words >> 8)).reshape(1200, 1600)


def test_live_frames_are_those_of_the_camera():
    with hxcamera.Capture(count=3, exposure=300, program=simulated(CAMERA + ",rate=0")) as frames:
        taken = list(frames)
    assert len(taken) == 3
    first = next(i for i in range(50) if np.array_equal(ramp(i), taken[0].samples))
    for i, frame in enumerate(taken):
        assert np.array_equal(frame.samples, ramp(first + i))
        assert frame.entries["exposure"] == 300
        assert frame.entries["identification"] == CAMERA


@pytest.mark.parametrize("cameras, options, error, text", [
    ((), {}, hxcamera.NoCamera, "no camera"),
    ((CAMERA,), {"camera": "other"}, hxcamera.NoCamera, "other"),
    ((CAMERA + ",stall=2",), {"timeout": 0.5}, hxcamera.CameraTimeout, "no frame within 500 ms"),
    ((CAMERA + ",rate=0,unplug=2",), {}, hxcamera.CameraLost, "the camera was lost"),
    ((CAMERA,), {"exposure": 99999}, hxcamera.CameraError, "99999"),
])
def test_faults_are_exceptions(cameras, options, error, text):
    with hxcamera.Capture(program=simulated(*cameras), **options) as frames:
        with pytest.raises(error, match=text):
            for _ in frames:
                pass
        with pytest.raises(StopIteration):
            next(frames)


def test_spectra_of_the_target_are_plotted(tmp_path):
    script = TESTS.parent / "examples/plot_spectra.py"
    words = simulated("HX02-V02.1-12345A-L,scene=target")[:-1] + [sys.executable, script]
    path = os.pathsep.join([os.path.dirname(os.environ["HXCAM"]), os.environ["PATH"]])
    subprocess.run([*words, tmp_path / "spectra.png"], check=True,
                   env={**os.environ, "PATH": path, "MPLCONFIGDIR": str(tmp_path)})
    assert (tmp_path / "spectra.png").read_bytes().startswith(b"\x89PNG")


def test_a_child_that_hangs_is_ended():
    start = time.monotonic()
    with hxcamera.Capture(timeout=0.1, program=["sh", "-c", "exec sleep 60"]) as frames:
        with pytest.raises(hxcamera.CameraTimeout, match="does not answer"):
            next(frames)
    assert time.monotonic() - start < 30


def test_the_camera_is_freed_in_the_middle():
    with hxcamera.Capture(program=simulated(CAMERA)) as frames:
        next(frames)
        closed = frames._child
    frames = hxcamera.Capture(program=simulated(CAMERA))
    next(frames)
    abandoned = frames._child
    del frames
    assert closed.returncode is not None and abandoned.returncode is not None


def test_an_early_end_is_no_good_end():
    """Whatever the exit status says, which is 0 for who ignores SIGCHLD."""
    for words in (f"cat {DATA}/hx01.hxc", f"cat {DATA}/hx01.hxc; head -c 99 {DATA}/hx01.hxc"):
        frames = hxcamera.Capture(count=2, program=["sh", "-c", words])
        next(frames)
        with pytest.raises(hxcamera.CameraError, match="status 0"):
            next(frames)
    with pytest.raises(hxcamera.CameraError, match="no-such-hxcam"):
        hxcamera.Capture(program=["no-such-hxcam"])


def test_files_and_folders(tmp_path):
    one = (DATA / "hx01.hxc").read_bytes()
    two = (DATA / "hx02-lamp.hxc").read_bytes()
    (tmp_path / "b.hxc").write_bytes(one + two)
    (tmp_path / "a.hxc").write_bytes(two)
    (tmp_path / "notes.txt").write_text("no container")
    frames = list(hxcamera.read(tmp_path))
    models = [frame.entries["identification"][:4] for frame in frames]
    assert models == ["HX02", "HX01", "HX02"]
    assert frames[0].samples[0, 0] == 700
    assert frames[0].samples.size == 18
    with pytest.raises(ValueError):
        frames[0].samples[0, 0] = 0
    (extra,) = hxcamera.read(DATA / "unknown-type.hxc")
    assert extra.entries[100].size == 0 and 101 in extra.entries
    (tmp_path / "empty").mkdir()
    with pytest.raises(FileNotFoundError, match="no .hxc files"):
        list(hxcamera.read(tmp_path / "empty"))


def test_entries_are_read_as_the_library_reads_them():
    whole = (DATA / "hx01.hxc").read_bytes()
    table = int.from_bytes(whole[4:8], "little")
    offset_entry = table + 2 + 2 * 12
    assert whole[offset_entry:offset_entry + 8] == struct.pack("<HHI", 3, 2, 1)
    in_halves = whole[:offset_entry] + struct.pack("<HHI", 3, 1, 2) + whole[offset_entry + 8:]
    assert np.array_equal(hxcamera.parse(in_halves)[0].samples, hxcamera.parse(whole)[0].samples)
    short = whole[:offset_entry] + struct.pack("<HHI", 3, 1, 1) + whole[offset_entry + 8:]
    with pytest.raises(hxcamera.ContainerError, match="short"):
        hxcamera.parse(short)
    many = whole[:table] + struct.pack("<H", 418) + whole[table + 2:] + b"".join(
        struct.pack("<HHII", 100 + i, 4, table, 0) for i in range(400))
    with pytest.raises(hxcamera.ContainerError, match="8 times"):
        hxcamera.parse(many)


def test_every_cut_and_every_changed_byte_is_an_error_or_a_frame(tmp_path):
    whole = (DATA / "hx01.hxc").read_bytes()
    for length in range(len(whole)):
        with pytest.raises(hxcamera.ContainerError) as caught:
            hxcamera.parse(whole[:length])
        assert caught.value.offset <= length
    for at in range(len(whole)):
        damaged = whole[:at] + bytes([whole[at] ^ 0xff]) + whole[at + 1:]
        try:
            frame, _ = hxcamera.parse(damaged)
            assert frame.samples.ndim == 2
        except hxcamera.ContainerError:
            pass
    (tmp_path / "cut.hxc").write_bytes(whole + whole[:100])
    frames = hxcamera.read(tmp_path / "cut.hxc")
    next(frames)
    with pytest.raises(hxcamera.ContainerError, match=f"cut.hxc: at byte {len(whole) + 100}: cut"):
        next(frames)


@pytest.mark.parametrize("name", ["big-endian", "other-kind", "swapped", "worked-example"])
def test_what_is_no_frame_is_refused(name):
    with pytest.raises(hxcamera.ContainerError):
        list(hxcamera.read(DATA / f"{name}.hxc"))
