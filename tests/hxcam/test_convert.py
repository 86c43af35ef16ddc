# SPDX-License-Identifier: MIT
"""hxcam convert: the same samples in every format, read by other programs."""
import signal
import subprocess

import numpy as np
import pytest

from conftest import FAILED, HX02, HXCAM, INTERRUPTED, OK, USAGE, environment, files_in, run_command
from cubes import by_gdal
from frames import pack

RNG = np.random.default_rng(1)
FRAMES = [RNG.integers(0, 1126, (9, 14)).astype("<u2") for _ in range(3)]
CONTAINERS = [pack(frame, HX02, 156) for frame in FRAMES]
DAMAGED = CONTAINERS[0][:-1]


def convert(*args, **options):
    return run_command([HXCAM, "convert", *map(str, args)], **options)


@pytest.fixture
def one(tmp_path):
    path = tmp_path / "one.hxc"
    path.write_bytes(CONTAINERS[0])
    return path


def test_every_format_has_the_samples(one, tmp_path):
    for name in ("a.png", "a.tif", "a.npy", "a.raw", "b.tiff"):
        assert convert(one, "-o", tmp_path / name).code == OK
    tiff, said = by_gdal(tmp_path / "a.tif", tmp_path)
    assert HX02 in said["metadata"][""]["TIFFTAG_IMAGEDESCRIPTION"]
    png, _ = by_gdal(tmp_path / "a.png", tmp_path)
    for read in (tiff[..., 0], png[..., 0], np.load(tmp_path / "a.npy"),
                 np.fromfile(tmp_path / "a.raw", "<u2").reshape(FRAMES[0].shape)):
        assert read.dtype == np.dtype("<u2") and np.array_equal(read, FRAMES[0])

    assert convert(one, "-o", tmp_path / "s", "--format", "png", "--stretch").code == OK
    stretched, _ = by_gdal(tmp_path / "s", tmp_path)
    expected = np.minimum(255, np.floor(FRAMES[0] * 255.0 / 1023 + 0.5))
    assert stretched.dtype == np.uint8 and np.array_equal(stretched[..., 0], expected)


def test_folders_and_streams(tmp_path):
    source, out = tmp_path / "in", tmp_path / "out"
    source.mkdir()
    for i, container in enumerate(CONTAINERS[:2]):
        (source / f"frame-{i}.hxc").write_bytes(container)
    (source / "many.hxc").write_bytes(b"".join(CONTAINERS))
    (source / "note.txt").write_text("no container")
    assert convert(source, "-o", out, "--format", "npy").code == OK
    assert convert("-", "-o", out, "--format", "npy", input=b"".join(CONTAINERS[1:])).code == OK
    names = {"frame-0": 0, "frame-1": 1, "many-000000": 0, "many-000001": 1, "many-000002": 2,
             "frame-000000": 1, "frame-000001": 2}
    assert files_in(out) == sorted(name + ".npy" for name in names)
    for name, index in names.items():
        assert np.array_equal(np.load(out / f"{name}.npy"), FRAMES[index])


def test_one_fault_leaves_the_rest(one, tmp_path):
    (tmp_path / "bad.hxc").write_bytes(DAMAGED)
    (tmp_path / "half.hxc").write_bytes(CONTAINERS[1] + DAMAGED)
    (tmp_path / "other").mkdir()
    (tmp_path / "other/one.hxc").write_bytes(CONTAINERS[2])
    out = tmp_path / "out"
    result = convert(tmp_path / "none.hxc", tmp_path / "bad.hxc", tmp_path / "half.hxc", one,
                     tmp_path / "other", "-o", out, "--format", "raw", "--force")
    assert result.code == FAILED
    lines = result.err.splitlines()
    assert len(lines) == 4 and "No such file" in lines[0] and "bad.hxc: at byte" in lines[1]
    assert f"half.hxc: at byte {2 * len(DAMAGED) + 1}: cut off" in lines[2]
    assert "already made from another" in lines[3]
    assert files_in(out) == ["half-000000.raw", "one.raw"]
    assert (out / "one.raw").read_bytes() == FRAMES[0].tobytes()


def test_nothing_is_overwritten_without_force(one, tmp_path):
    out = tmp_path / "out.raw"
    out.write_text("precious")
    result = convert(one, "-o", out)
    assert (result.code, out.read_text()) == (FAILED, "precious") and "--force" in result.err
    assert convert(one, "-o", out, "--force").code == OK
    assert out.read_bytes() == FRAMES[0].tobytes()
    (tmp_path / "two.hxc").write_bytes(2 * CONTAINERS[0])
    result = convert(tmp_path / "two.hxc", "-o", tmp_path / "two.raw")
    assert result.code == FAILED and "several containers" in result.err
    assert not [name for name in files_in(tmp_path) if name.startswith("two.raw")]


def test_interrupt_on_a_stream(tmp_path):
    out = tmp_path / "out"
    out.mkdir()
    (out / "frame-000001.raw").write_text("precious")
    with subprocess.Popen([HXCAM, "convert", "-", "-o", out, "--format", "raw"],
                          stdin=subprocess.PIPE, stderr=subprocess.PIPE,
                          env=environment()) as program:
        program.stdin.write(CONTAINERS[0] + CONTAINERS[1] + CONTAINERS[2][:50])
        program.stdin.flush()
        # So the first one is stored, and the third one is waited for.
        assert b"frame-000001.raw exists" in program.stderr.readline()
        program.send_signal(signal.SIGINT)
        assert program.wait(10) == INTERRUPTED
    assert files_in(out) == ["frame-000000.raw", "frame-000001.raw"]
    assert (out / "frame-000000.raw").read_bytes() == FRAMES[0].tobytes()
    assert (out / "frame-000001.raw").read_text() == "precious"


@pytest.mark.parametrize("args, told", [
    (("-o", "a.dat"), "--format"), (("-o", "x/"), "--format"), (("-o", "-"), "not -"),
    (("-o", "a.npy", "--stretch"), "--stretch"), (("-o", ""), "empty"), ((), "--output"),
])
def test_usage(one, args, told):
    result = convert(one, *args)
    assert result.code == USAGE and told in result.err
