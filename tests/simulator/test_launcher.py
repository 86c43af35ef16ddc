# SPDX-License-Identifier: MIT
"""hx-sim as a command: its status, its messages, its signals, and state shared by what it runs."""
import os
import signal
import subprocess
import time

import pytest

from conftest import CAMERA, HX_SIM, sim


@pytest.mark.parametrize("words, status", [
    (["--", "true"], 0), (["--", "sh", "-c", "exit 7"], 7),
    (["--", "sh", "-c", "kill -TERM $$"], 128 + signal.SIGTERM),
    (["--", "hx-no-such-command"], 127), (["--", "/dev/null"], 126), ([], 2), (["--"], 2),
    (["true"], 2), (["--camra", CAMERA, "--", "true"], 2),
    (["--camera", "X,node=3", "--foreign", "B,node=4", "--", "true"], 2),
    (["--foreign", "Card,rate=5", "--", "true"], 2), (["--help"], 0), (["--version"], 0),
    (["usb"], 2), (["usb", "--camera", CAMERA + ",node=3"], 2), (["usb", "--help"], 0),
])
def test_status(words, status):
    result = sim(*words)
    assert result.returncode == status, result.stderr
    assert bool(result.stderr) == (status in (2, 126, 127))


@pytest.mark.parametrize("spec, told", [
    ("X,colour=red", "colour"), ("X,rate", "rate"), ("X,rate=-1", "rate=-1"),
    ("X,rate=fast", "fast"), ("X,rate=nan", "nan"), ("X,rate=0.001", "0.001"),
    ("X,exposure=5", "exposure=5"), ("X,exposure=10:1", "10:1"), ("X,exposure=1:10:11", "11"),
    ("X,scene=sea", "sea"), ("X,node=255", "255"), ("X,fault=QBUF=EIO", "QBUF=EIO"),
    ("X,fault=QBUF:0=EIO", "QBUF:0"), ("X,fault=QBUF:1=EWHAT", "EWHAT"),
    ("X,fault=LOOK:1=EIO", "LOOK"), ("X,ring=33", "33"), ("X,format=640", "640"),
    ("X,format=641x480", "even"), ("X,xu=refuse:", "xu=refuse"), ("X,xu=quick", "quick"),
    ("X,unplug=3:later", "3:later"), ("X,unplug=0:taken", "0:taken"), ("X,replug=1", "unplug="),
    ("X,access=granted", "granted"), ("X\\", "backslash"), ("\\x4", "backslash"),
    ("\\xzz", "digits"), (33 * "x", "33 bytes"), ("X,card=" + 32 * "x", "card="),
    ("@/nowhere/model.conf", "/nowhere/model.conf"),
])
def test_a_wrong_camera_is_named_and_nothing_run(tmp_path, spec, told):
    result = sim("--camera", spec, "--", "touch", str(tmp_path / "mark"))
    assert result.returncode == 2 and told in result.stderr
    assert not (tmp_path / "mark").exists()


def test_a_model_file_says_the_same_as_the_command_line(tmp_path):
    model = tmp_path / "model.conf"
    model.write_text(f"# a camera\nidentification = {CAMERA}\n\n  card = A\nnode=6\n")
    result = sim("--camera", f"@{model},card=B", "--", "sh", "-c",
                 "cd /dev && echo video*; cat /sys/class/video4linux/video6/name")
    assert result.stdout.split() == ["video6", "video7", "B"]
    model.write_text("identification = X\nrate = 5\nspeed = 9\n")
    assert "model.conf:3" in sim("--camera", f"@{model}", "--", "true").stderr


def test_devices_are_listed_in_order_and_go_with_the_launcher():
    result = sim("--camera", CAMERA, "--foreign", "Other", "--camera", "X,node=7", "--camera", "Y",
                 "--", "sh", "-c", "cd /dev && echo video*")
    assert result.stdout.split() == [f"video{n}" for n in (0, 1, 2, 3, 4, 7, 8)]


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_signal_sent_to_the_launcher_reaches_the_command(number):
    script = f"trap 'exit 9' {number.name[3:]}; echo ready; while :; do sleep 0.05; done"
    with subprocess.Popen([HX_SIM, "--", "sh", "-c", script], stdout=subprocess.PIPE) as launcher:
        assert launcher.stdout.readline() == b"ready\n"
        launcher.send_signal(number)
        assert launcher.wait(timeout=60) == 9


def test_command_ends_when_the_launcher_is_killed():
    script = "echo $$; exec sleep 100"
    with subprocess.Popen([HX_SIM, "--", "sh", "-c", script], stdout=subprocess.PIPE) as launcher:
        command = int(launcher.stdout.readline())
        launcher.kill()
    deadline = time.monotonic() + 60
    while os.path.exists(f"/proc/{command}") and time.monotonic() < deadline:
        time.sleep(0.01)
    assert not os.path.exists(f"/proc/{command}")


def test_preloads_of_the_user_stay_behind_ours():
    # hx-sim gets the foreign preload too, and a sanitizer's runtime in it insists on being first.
    environment = {"LD_PRELOAD": "libm.so.6", "ASAN_OPTIONS": "verify_asan_link_order=0"}
    result = sim("--", "sh", "-c", 'echo "$LD_PRELOAD"', env={**os.environ, **environment})
    libraries = result.stdout.strip().split(":")
    assert libraries[-1] == "libm.so.6"
    assert libraries[-2].endswith("libhx_camera_sim.so")
