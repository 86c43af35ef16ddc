# SPDX-License-Identifier: MIT
"""Programs that people use with cameras, unmodified, on a simulated one."""
import pathlib
import re

import numpy
import pytest

from conftest import CAMERA, sim

WORDS = 1600 * 1200


def on_camera(*command, keys=""):
    return sim("--camera", CAMERA + keys, "--", *command, errors="replace")


def expect_ramp(path, count, first=None):
    """Frames of the ramp, one behind the other. Without a first number any one may begin."""
    frames = numpy.fromfile(path, dtype="<u2").reshape(-1, WORDS)
    assert len(frames) == count
    number = int(frames[0][1]) - 1 if first is None else 257 * first
    assert number % 257 == 0
    for frame in frames:
        assert frame[0] == 156
        words = (numpy.arange(1, WORDS) + number).astype(numpy.uint16)
        assert numpy.array_equal(frame[1:], words), number
        number += 257


@pytest.mark.parametrize("key, arguments", [("capture", ["-d0", "-s"]), ("metadata", ["-d1"])])
def test_compliance_fails_exactly_where_it_is_accepted(key, arguments):
    text = on_camera("v4l2-compliance", *arguments).stdout
    assert re.search(r"^Total for .*: \d+, Succeeded", text, re.M), text
    lines = pathlib.Path(__file__).with_name("compliance-accepted.txt").read_text().splitlines()
    rows = [line.split("|") for line in lines if line and not line.startswith("#")]
    accepted = {name.strip() for node, name, _ in rows if node.strip() == key}
    assert set(re.findall(r"^\s*test (.*): FAIL$", text, re.M)) == accepted


def test_v4l2_ctl_lists_and_remembers_the_exposure():
    script = ("v4l2-ctl --list-devices && v4l2-ctl -c exposure_time_absolute=4242"
              " && v4l2-ctl -C exposure_time_absolute && v4l2-ctl --list-formats-ext")
    result = on_camera("sh", "-c", script)
    assert result.returncode == 0, result.stderr
    for told in ("Webcam gadget: UVC Camera", "/dev/video0", "/dev/video1",
                 "exposure_time_absolute: 4242", "Discrete 1600x1200", "20.000 fps"):
        assert told in result.stdout


def test_v4l2_ctl_streams_a_hundred_frames(tmp_path):
    path = tmp_path / "frames"
    result = on_camera("v4l2-ctl", "--stream-mmap=4", "--stream-count=100", "--stream-skip=97",
                       f"--stream-to={path}", keys=",rate=0")
    assert result.returncode == 0, result.stderr
    expect_ramp(path, 100, first=97)


def test_ffmpeg_reads_the_ramp(tmp_path):
    path = tmp_path / "frames"
    result = on_camera("ffmpeg", "-nostdin", "-v", "error", "-f", "v4l2", "-i", "/dev/video0",
                       "-frames:v", "5", "-vsync", "passthrough", "-f", "rawvideo", str(path))
    assert result.returncode == 0, result.stderr
    expect_ramp(path, 5)
