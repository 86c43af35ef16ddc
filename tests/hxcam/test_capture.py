# SPDX-License-Identifier: MIT
"""hxcam capture: every frame whole and right, and an end in time whatever the camera does."""
import os
import pty
import re
import select
import signal
import subprocess
import time

import numpy as np
import pytest

from conftest import (FAILED, FAST, HX01, HX02, HXCAM, INTERRUPTED, LOST, NO_CAMERA, OK, SLOW,
                      TIMEOUT, USAGE, environment, files_in, run_command, under_sim)
from cubes import by_gdal
from frames import HEIGHT, WIDTH, Container, containers, frame_number


def names(count):
    return [f"frame-{i:06}.hxc" for i in range(count)]


def stored(folder):
    return [Container(path.read_bytes()) for path in sorted(folder.glob("*.hxc"))]


def numbers(frames, identification=HX02):
    """Which frames of the ramp these are; every sample is compared."""
    return [frame_number(frame.samples, identification) for frame in frames]


@pytest.mark.parametrize("how", [(), ("--pull",), ("-o", "-"), ("--pull", "-o", "-")],
                         ids=" ".join)
@pytest.mark.parametrize("identification", [HX01, HX02, "HX05-V02.1-12345C"])
def test_every_sample_and_entry(hxcam, folder, identification, how):
    place = () if "-o" in how else ("-o", folder)
    began = time.strftime("%Y-%m-%d--%H-%M")
    # Verbose: whatever the child prints until its end would be seen, a sanitizer's report too.
    result = hxcam("capture", "-n", 3, *how, *place, "--exposure", 300, "--verbose",
                   cameras=(identification + FAST,))
    assert result.code == OK, result.err
    assert re.match(r"3 frames, .* 0 lost\n$", result.err)
    taken = list(containers(result.raw)) if "-o" in how else stored(folder)
    assert place == () or files_in(folder) == names(3)
    assert len(taken) == 3

    for frame in taken:
        kinds = [1, 2, 2, 2, 2, 0, 4, 4, 4, 2, 2, 2, *5 * [3], 0]
        counts = [*6 * [1], 22 + 1, len(identification) + 1, 9, *9 * [1]]
        assert frame.layout == list(zip(range(1, 19), kinds, counts))
        assert [frame.number(tag) for tag in (1, 2, 3, 4, 5, 6)] == [
            1, WIDTH * HEIGHT, 8, WIDTH, HEIGHT, 10]
        # Local time to the minute, then the milliseconds.
        assert re.fullmatch(r"[\d-]{18}-\d{3}", frame.text(7))
        assert began <= frame.text(7)[:17] <= time.strftime("%Y-%m-%d--%H-%M")
        assert (frame.text(8), frame.text(9)) == (identification, "1.0.1-rc")
        assert [frame.number(tag) for tag in range(10, 19)] == [
            300, 0, {"A": 1, "E": 75, "C": 10}[identification[16]], *6 * [0]]
    if not identification.startswith("HX05"):
        assert numbers(taken, identification) == [0, 1, 2]
    else:
        assert not any(frame.samples.any() for frame in taken)


@pytest.mark.parametrize("spec, args, code, told, least, most", [
    ("stall=3", "-n 9 --timeout {}ms", TIMEOUT, "no frame within", 3, 3),
    ("stall=0", "-n 1 --pull --timeout {}ms", TIMEOUT, "no frame within", 0, 0),
    ("unplug=3", "-n 9", LOST, "the camera was lost.*library: -1: Invalid argument", 3, 3),
    ("unplug=3:blocked", "-n 9 --pull", LOST, "the camera was lost", 3, 3),
    ("unplug=3:taken", "-n 9", LOST, "the camera was lost.*library: -2: No such device", 2, 3),
    ("unplug=3:taken", "-n 9 --pull", LOST, "the camera was lost", 2, 3),
    ("unplug=3:waiting", "-n 9", LOST, "the camera was lost.*library: -1: No such device", 3, 3),
    ("unplug=3:waiting", "-n 9 --pull", LOST, "the camera was lost", 3, 3),
    ("xu=slow:60", "--timeout {}ms", TIMEOUT, "no answer", 0, 0),
    ("format=refuse", "", FAILED, "cannot start this camera\n.*library: fmt:: Invalid", 0, 0),
    ("fault=REQBUFS:1=EBUSY", "", FAILED, "another program uses it", 0, 0),
    ("fault=XU:*=EIO", "", NO_CAMERA, "no camera found", 0, 0),
    ("auto-exposure=held", "--exposure 9", FAILED, "refuses exposure 9.*Permission denied", 0, 0),
    ("exposure=5:50:7", "--exposure 51", USAGE, "outside of this camera's range, 5 to 50", 0, 0),
])
def test_a_camera_that_fails(hxcam, folder, spec, args, code, told, least, most):
    args = args.format(int(700 * SLOW)).split()
    result = hxcam("capture", "-o", folder, *args, cameras=(f"{HX02},rate=0,{spec}",))
    assert (result.code, result.out) == (code, "")
    assert re.search(told, result.err, re.DOTALL), result.err
    assert result.seconds < 10 * SLOW
    # What came before is there, whole, and nothing else.
    assert least <= len(files_in(folder)) <= most
    assert files_in(folder) == names(len(numbers(stored(folder))))


def test_the_time_out_is_for_each_frame(hxcam, folder):
    result = hxcam("capture", "-n", 5, "--timeout", f"{int(600 * SLOW)}ms", "-o", folder,
                   cameras=(HX02 + ",rate=5",))
    assert result.code == OK, result.err


@pytest.mark.parametrize("args, told", [
    ("--stretch", "--png"), ("--null -o x", "--output"), ("--null --png", "--png"),
    ("--null --force", "--force"), ("-o - --png", "folder"), ("-o - --force", "folder"),
    ("-n -1", "whole"), ("-n x", "whole"), ("--exposure 1e3", "whole"), ("--timeout 0", "no time"),
    ("--timeout 5m", "no time"), ("--timeout nan", "no time"), ("--timeout 1e99s", "no time"),
    ("--frobnicate", "not expected"), ("extra", "not expected"),
])
def test_wrong_options(hxcam, tmp_path, args, told):
    result = hxcam("capture", *args.split(), cameras=(HX02,), cwd=tmp_path)
    assert result.code == USAGE
    assert told in result.err
    assert files_in(tmp_path) == []


def test_files_are_kept_unless_forced(hxcam, folder):
    folder.mkdir()
    camera = (HX02 + FAST,)
    for name, args in (("frame-000002.hxc", "-n 3"), ("frame-000007.hxc", "-n 0"),
                       ("frame-000000.png", "--png")):
        (folder / name).write_text("mine")
        result = hxcam("capture", "-o", folder, *args.split(), cameras=camera)
        assert result.code == FAILED and name in result.err and "--force" in result.err
        assert files_in(folder) == [name] and (folder / name).read_text() == "mine"
        (folder / name).unlink()

    for name in ("frame-000003.hxc", "frame-000000.png", "frame-0.txt"):
        (folder / name).write_text("mine")
    assert hxcam("capture", "-o", folder, "-n", 3, cameras=camera).code == OK
    assert hxcam("capture", "-o", folder, "-n", 4, "--force", cameras=camera).code == OK
    assert len(stored(folder)) == 4


@pytest.mark.parametrize("script, told", [
    ('"$HXCAM" capture -o - >/dev/full', "No space left"),
    ('"$HXCAM" list >/dev/full', "No space left"), ('"$HXCAM" list >&-', "Bad file descriptor"),
    ('"$HXCAM" capture -o /dev/null', "Not a directory"),
    ('"$HXCAM" capture -o /nonexistent/x', "No such file"), ('"$HXCAM" capture -o /proc', "/proc"),
])
def test_an_output_that_takes_nothing(shell, script, told):
    result = shell(script, (HX02 + FAST,))
    assert result.code == FAILED and told in result.err


def test_a_full_disk_leaves_whole_files(tmp_path):
    # 6 MiB: room for one container.
    script = (f'mount -t tmpfs -o size=6m tmpfs "{tmp_path}" || exit 77\n'
              f'"$0" capture -n 3 -o "{tmp_path}"; echo $?; ls -A "{tmp_path}"')
    result = run_command(["unshare", "-rm", *under_sim((HX02 + FAST,), ["sh", "-c", script, HXCAM])])
    if result.code == 77 or "unshare" in result.err:
        pytest.skip("no tmpfs can be mounted here")
    assert result.out.split() == [str(FAILED), "frame-000000.hxc"]
    assert "No space left" in result.err


def test_a_reader_that_goes_away(shell):
    script = '{ "$HXCAM" capture -n 0 -o -; echo $? >&2; } | head -c 5000000'
    result = shell(script, (HX02 + FAST,))
    assert len(result.raw) == 5000000
    assert re.search(r"\d frames?,.* lost\n1\n$", result.err)


def test_pictures(hxcam, folder):
    for stretch in ((), ("--stretch",)):
        result = hxcam("capture", "-o", folder, "--png", "--force", *stretch,
                       cameras=(HX02 + FAST,))
        assert result.code == OK
        assert files_in(folder) == ["frame-000000.hxc", "frame-000000.png"]
        samples = stored(folder)[0].samples.astype(np.uint64)
        if stretch:
            samples = np.minimum(65535, (samples * 65535 + 511) // 1023)
        picture, _ = by_gdal(folder / "frame-000000.png", folder.parent)
        assert np.array_equal(picture.reshape(-1), samples)


def test_lost_frames_are_counted(hxcam, tmp_path):
    # The camera delivers as fast as it is read, and compressing pictures is slower than that. Where
    # all is slow, a few frames may find room in the buffers.
    for count in (12, 60):
        taken = tmp_path / str(count)
        result = hxcam("capture", "-n", count, "--png", "-o", taken, cameras=(HX02 + FAST,))
        assert result.code == OK
        came = numbers(stored(taken))
        assert came == sorted(set(came))
        told = int(re.search(r"(\d+) lost", result.err).group(1))
        assert told == came[-1] + 1 - count
        if told > 0:
            return
    pytest.fail("no frame was lost")


def test_frames_for_nobody(hxcam, tmp_path):
    result = hxcam("capture", "-n", 40, "--null", cameras=(HX02 + FAST,), cwd=tmp_path)
    assert (result.code, result.out) == (OK, "")
    assert re.match(r"40 frames, .* lost\n$", result.err)
    assert files_in(tmp_path) == []
    result = hxcam("capture", "-n", 40, "--null", cameras=(HX02 + FAST + ",unplug=9",), cwd=tmp_path)
    assert result.code == LOST


def test_a_camera_in_use_can_be_listed_and_set_but_not_captured(shell, tmp_path):
    # The first byte says that the capture runs; it is in the middle of its work until the end.
    script = """"$HXCAM" capture -n 20 -o - 2>"$1/summary" | {
        head -c 1 >"$1/first"; "$HXCAM" list; "$HXCAM" set exposure 321; "$HXCAM" get exposure
        "$HXCAM" capture -o "$1/frames"; cat >"$1/rest"; }"""
    result = shell(script, (HX02 + FAST,), tmp_path)
    assert HX02 in result.out and result.out.endswith("321\n321\n")
    assert "another program uses it" in result.err and "library: fmt:: Device" in result.err
    assert (tmp_path / "summary").read_text().startswith("20 frames")


def test_the_library_speaks_in_the_terminal_encoding(hxcam, folder):
    # Its message about the exposure is in GBK.
    camera = (f"{HX01},rate=0,fault=G_CTRL:*=EIO",)
    args = ("capture", "-o", folder, "--force", "--quiet")
    assert hxcam(*args, cameras=camera).err == ""
    told = hxcam(*args, "--verbose", cameras=camera).err
    assert told.splitlines()[0] == "library: \u65e0\u6cd5\u8bbe\u7f6e\u66dd\u5149\u65f6\u95f4: " \
        "Input/output error"


@pytest.mark.parametrize("spec", ["rate=0", "rate=0,stall=4"])
def test_ctrl_c_on_a_terminal_leaves_whole_files(folder, spec):
    pid, terminal = pty.fork()
    if pid == 0:
        os.dup2(os.open("/dev/null", os.O_RDWR), 1)
        command = under_sim((f"{HX02},{spec}",), [HXCAM, "capture", "-n", "0", "-o", str(folder)])
        os.execvpe(command[0], command, environment())
    shown = ""
    try:
        while "frame" not in shown:
            shown += os.read(terminal, 4096).decode()
        os.write(terminal, b"\x03")
        while True:
            shown += os.read(terminal, 4096).decode()
    except OSError:  # the other end is closed
        os.close(terminal)
    assert os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) == INTERRUPTED
    count = int(re.findall(r"(\d+) frames?, [^\r]*first", shown)[-1])
    assert files_in(folder) == names(count) and len(numbers(stored(folder))) == count >= 1


def test_containers_are_not_written_to_a_terminal():
    master, slave = os.openpty()
    command = under_sim((HX02,), [HXCAM, "capture", "-o", "-"])
    done = subprocess.run(command, stdout=slave, stderr=subprocess.PIPE, check=False)
    assert done.returncode == USAGE and b"terminal" in done.stderr
    os.close(master)
    os.close(slave)


def children_of(pid):
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as children:
        return [int(child) for child in children.read().split()]


def test_the_child_ends_with_its_parent():
    # The library blocks: nothing comes any more, and its close waits for a frame.
    command = under_sim((HX02 + FAST + ",stall=1",), [HXCAM, "capture", "-n", "0", "-o", "-"])
    with subprocess.Popen(command, stdout=subprocess.PIPE) as launcher:
        launcher.stdout.read(1)
        hxcam_pid = children_of(launcher.pid)[0]
        child = os.pidfd_open(children_of(hxcam_pid)[0])
        os.kill(hxcam_pid, signal.SIGKILL)
        assert select.select([child], [], [], 20 * SLOW)[0], "the capture child lives on"
