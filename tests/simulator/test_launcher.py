# SPDX-License-Identifier: MIT
"""hx-sim as a command: its status, its messages, its signals, and state shared by what it runs."""

import os
import signal
import subprocess
import time

import pytest

HX_SIM = os.environ["HX_SIM"]
CAMERA = "HX02-V02.1-12345A-L"


def run(*words, **options):
    return subprocess.run(
        [HX_SIM, *words], capture_output=True, text=True, timeout=100, **options
    )


@pytest.mark.parametrize(
    "words, status",
    [
        (["--", "true"], 0),
        (["--", "sh", "-c", "exit 7"], 7),
        (["--", "sh", "-c", "kill -TERM $$"], 128 + signal.SIGTERM),
        (["--", "hx-no-such-command"], 127),
        (["--", "/dev/null"], 126),
        ([], 2),
        (["--"], 2),
        (["true"], 2),
        (["--camra", CAMERA, "--", "true"], 2),
        (["--camera", CAMERA + ",rate=x", "--", "true"], 2),
        (["--camera", CAMERA + ",node=3", "--foreign", "B,node=4", "--", "true"], 2),
        (["--help"], 0),
        (["--version"], 0),
        (["usb"], 2),
        (["usb", "--camera", CAMERA + ",node=3"], 2),
        (["usb", "--help"], 0),
    ],
)
def test_status(words, status):
    result = run(*words)
    assert result.returncode == status, result.stderr
    assert bool(result.stderr) == (status in (2, 126, 127))


def test_wrong_option_runs_nothing(tmp_path):
    mark = tmp_path / "mark"
    result = run("--camera", CAMERA + ",colour=red", "--", "touch", str(mark))
    assert result.returncode == 2
    assert "colour" in result.stderr
    assert not mark.exists()


def test_devices_are_listed_in_order_and_go_with_the_launcher():
    result = run(
        "--camera", CAMERA, "--foreign", "Other", "--camera", "X,node=7", "--camera", "Y",
        "--", "sh", "-c", "cd /dev && echo video*",
    )  # fmt: skip
    assert result.stdout.split() == [f"video{n}" for n in (0, 1, 2, 3, 4, 7, 8)]


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_signal_sent_to_the_launcher_reaches_the_command(number):
    script = f"trap 'exit 9' {number.name[3:]}; echo ready; while :; do sleep 0.05; done"
    with subprocess.Popen([HX_SIM, "--", "sh", "-c", script], stdout=subprocess.PIPE) as sim:
        assert sim.stdout.readline() == b"ready\n"
        sim.send_signal(number)
        assert sim.wait(timeout=60) == 9


def test_command_ends_when_the_launcher_is_killed():
    script = "echo $$; exec sleep 100"
    with subprocess.Popen([HX_SIM, "--", "sh", "-c", script], stdout=subprocess.PIPE) as sim:
        command = int(sim.stdout.readline())
        sim.kill()
    deadline = time.monotonic() + 60
    while os.path.exists(f"/proc/{command}") and time.monotonic() < deadline:
        time.sleep(0.01)
    assert not os.path.exists(f"/proc/{command}")


def test_preloads_of_the_user_stay_behind_ours():
    # hx-sim gets the foreign preload too, and a sanitizer's runtime in it insists on being first.
    environment = {"LD_PRELOAD": "libm.so.6", "ASAN_OPTIONS": "verify_asan_link_order=0"}
    result = run("--", "sh", "-c", 'echo "$LD_PRELOAD"', env={**os.environ, **environment})
    libraries = result.stdout.strip().split(":")
    assert libraries[-1] == "libm.so.6"
    assert libraries[-2].endswith("libhx_camera_sim.so")
