# SPDX-License-Identifier: MIT
"""hxcam under the simulator, from outside: what it prints, stores and returns."""
import os
import pathlib
import subprocess
import time
from types import SimpleNamespace

import pytest

HXCAM = os.environ["HXCAM"]
HX_SIM = os.environ["HX_SIM"]
# How much slower than a plain native build these programs may be.
SLOW = float(os.environ.get("HX_TEST_TIME_FACTOR", "1"))

HX02 = "HX02-V02.1-12345A-L"
HX01 = "HX01-V01.3-67890E"
FAST = ",rate=0"

OK, FAILED, USAGE, NO_CAMERA, TIMEOUT, LOST, INTERRUPTED = 0, 1, 2, 3, 4, 5, 130


def under_sim(cameras, command, sim=()):
    """The command line of `command` with these cameras attached."""
    specs = [part for camera in cameras for part in ("--camera", camera)]
    return [HX_SIM, *specs, *sim, "--", *command]


def environment():
    return {**os.environ, "LC_ALL": "C.UTF-8", "HXCAM": HXCAM}


def run_command(command, seconds=60, **options):
    start = time.monotonic()
    done = subprocess.run(command, capture_output=True, timeout=seconds * SLOW, env=environment(),
                          check=False, **options)
    return SimpleNamespace(
        code=done.returncode, raw=done.stdout, out=done.stdout.decode(errors="replace"),
        err=done.stderr.decode(errors="backslashreplace"), seconds=time.monotonic() - start)


@pytest.fixture
def hxcam():
    """Runs hxcam with cameras attached (none: without any)."""
    def run(*args, cameras=(), sim=(), **options):
        return run_command(under_sim(cameras, [HXCAM, *map(str, args)], sim), **options)
    return run


@pytest.fixture
def shell():
    """Runs a shell script below one simulator; "$HXCAM" is the program."""
    def run(script, cameras, *args, **options):
        return run_command(under_sim(cameras, ["sh", "-c", script, "sh", *map(str, args)]),
                           **options)
    return run


@pytest.fixture
def folder(tmp_path):
    return tmp_path / "frames"


def files_in(folder):
    return sorted(path.name for path in pathlib.Path(folder).iterdir()) if folder.exists() else []
