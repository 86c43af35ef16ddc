# SPDX-License-Identifier: MIT
"""Programs that people use with cameras, unmodified, on a simulated one."""

import os
import pathlib
import re
import subprocess

import numpy
import pytest

HX_SIM = os.environ["HX_SIM"]
CAMERA = "HX02-V02.1-12345A-L"
WORDS = 1600 * 1200


def under_sim(spec, *command):
    result = subprocess.run(
        [HX_SIM, "--camera", spec, "--", *command], capture_output=True, timeout=100
    )
    return result.returncode, result.stdout, result.stderr.decode(errors="replace")


def ramp(frame, exposure=156):
    words = (numpy.arange(WORDS) + 257 * frame).astype(numpy.uint16)
    words[0] = exposure
    return words


def compliance(*arguments):
    """The failing tests' names, and whether all of them were run."""
    _, output, _ = under_sim(CAMERA, "v4l2-compliance", *arguments)
    text = output.decode()
    assert re.search(r"^Total for .*: \d+, Succeeded", text, re.M), text
    return set(re.findall(r"^\s*test (.*): FAIL$", text, re.M))


@pytest.mark.parametrize(
    "key, arguments", [("capture", ["-d0", "-s"]), ("metadata", ["-d1"])]
)
def test_compliance_fails_exactly_where_it_is_accepted(key, arguments):
    lines = pathlib.Path(__file__).with_name("compliance-accepted.txt").read_text().splitlines()
    rows = [line.split("|") for line in lines if line and not line.startswith("#")]
    accepted = {name.strip() for node, name, _ in rows if node.strip() == key}
    assert compliance(*arguments) == accepted


def test_v4l2_ctl_lists_and_remembers_the_exposure():
    status, output, _ = under_sim(
        CAMERA,
        "sh",
        "-c",
        "v4l2-ctl --list-devices && v4l2-ctl -c exposure_time_absolute=4242"
        " && v4l2-ctl -C exposure_time_absolute && v4l2-ctl --list-formats-ext",
    )
    text = output.decode()
    assert status == 0, text
    assert "Webcam gadget: UVC Camera" in text
    assert "/dev/video0" in text and "/dev/video1" in text
    assert "exposure_time_absolute: 4242" in text
    assert "Discrete 1600x1200" in text and "20.000 fps" in text


def test_v4l2_ctl_streams_a_hundred_frames(tmp_path):
    path = tmp_path / "frames"
    status, _, errors = under_sim(
        CAMERA + ",rate=0", "v4l2-ctl", "--stream-mmap=4", "--stream-count=100",
        "--stream-skip=97", f"--stream-to={path}",
    )  # fmt: skip
    assert status == 0, errors
    frames = numpy.fromfile(path, dtype="<u2").reshape(-1, WORDS)
    assert len(frames) == 100
    for number, words in enumerate(frames):
        assert numpy.array_equal(words, ramp(97 + number)), number


def test_ffmpeg_reads_the_ramp(tmp_path):
    path = tmp_path / "frames"
    status, _, errors = under_sim(
        CAMERA, "ffmpeg", "-nostdin", "-v", "error", "-f", "v4l2", "-i", "/dev/video0",
        "-frames:v", "5", "-vsync", "passthrough", "-f", "rawvideo", str(path),
    )  # fmt: skip
    assert status == 0, errors
    frames = numpy.fromfile(path, dtype="<u2").reshape(-1, WORDS)
    assert len(frames) == 5
    # It may look at frames before it writes some: the first number is free, and no more than that.
    first = int(frames[0][1]) - 1
    assert first % 257 == 0
    for number, words in enumerate(frames):
        assert numpy.array_equal(words, ramp(first // 257 + number)), number
