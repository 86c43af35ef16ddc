# SPDX-License-Identifier: MIT
"""hxcam list, and how a camera is chosen."""
import json

import pytest

from conftest import HX01, HX02, NO_CAMERA, OK, SLOW, TIMEOUT, USAGE


def listing(result):
    return json.loads(result.out)


def test_two_cameras_by_node_number(hxcam):
    result = hxcam("list", "--json", "--all", sim=("--foreign", "Some webcam"),
                   cameras=(HX02 + ",exposure=2:9000:100", HX01 + ",node=10"))
    assert (result.code, result.err) == (OK, "")
    first, second = listing(result)["cameras"]
    assert first["node"] != second["node"] == "/dev/video10"
    expected = {"index": 0, "name": "12345A-", "model": "HX02", "identification": HX02,
                "spectral_code": "A", "spectral_resolution": 1, "lamp": True, "exposure_min": 2,
                "exposure_max": 9000, "exposure_default": 100, "exposure_in_frame": True}
    assert expected.items() <= first.items()
    expected = {"index": 1, "name": "67890E", "model": "HX01", "spectral_code": "E",
                "spectral_resolution": 75, "lamp": False, "exposure_in_frame": False}
    assert expected.items() <= second.items()

    others = {node["card"]: node["reason"] for node in listing(result)["other_nodes"]}
    assert "identification query" in others.pop("Some webcam")
    assert all("metadata" in reason for reason in others.values())

    table = hxcam("list", cameras=(HX02,)).out.splitlines()
    assert table[0].split() == ["INDEX", "NODE", "NAME", "MODEL", "SPECTRAL", "LAMP", "EXPOSURE",
                                "IDENTIFICATION"]
    assert table[1].split() == ["0", "/dev/video0", "12345A-", "HX02", "A", "(1)", "yes",
                                "1..10000", HX02]
    assert len(table) == 2


@pytest.mark.parametrize("spec, code, reason", [
    ("HX03-V01.0-12345A", NO_CAMERA, "unknown model"),
    ("HX01-V03.0-12345A", NO_CAMERA, "unknown exposure field"),
    ("HX01-V01.0-12345F", NO_CAMERA, "unknown spectral code"),
    ("HX01-V01.0-AB", NO_CAMERA, "too short"),
    (HX02 + ",exposure=none", NO_CAMERA, "QUERYCTRL: Invalid argument"),
    (HX02 + ",access=denied", NO_CAMERA, 'the group "video"'),
    (HX02 + ",xu=absent", NO_CAMERA, "refuses the identification query"),
    (HX02 + ",xu=slow:60", TIMEOUT, "no answer"),
    (HX02 + ",fault=QUERYCAP:*=EIO", NO_CAMERA, "no video device"),
    # A camera beside it is still listed.
    (HX02 + ",access=denied", OK, 'the group "video"'),
    (HX02 + ",xu=slow:60", OK, "no answer"),
])
def test_a_node_that_is_no_camera(hxcam, spec, code, reason):
    beside = (HX01,) if code == OK else ()
    result = hxcam("list", "--all", "--json", "--timeout", f"{1 * SLOW}s", cameras=(spec, *beside))
    assert result.code == code
    assert result.seconds < 4 * SLOW  # a driver gives up after 5 s by itself
    assert [camera["identification"] for camera in listing(result)["cameras"]] == list(beside)
    reasons = [node["reason"] for node in listing(result)["other_nodes"]
               if "metadata" not in node["reason"]]
    assert reasons and all(reason in told for told in reasons)


def test_without_all_only_nodes_that_could_not_be_asked_are_told(hxcam):
    result = hxcam("list", cameras=(HX01, HX02 + ",access=denied,node=6", HX02 + ",xu=absent"))
    assert result.code == OK
    assert len(result.out.splitlines()) == 2
    # Both nodes of the denied camera.
    assert [line.split()[1] for line in result.err.splitlines()] == ["/dev/video6:", "/dev/video7:"]
    assert result.err.count('the group "video"') == 2


@pytest.mark.parametrize("wanted, code, told", [
    ("0", OK, "111"), ("/dev/video0", OK, "111"), ("12345A-", OK, "111"), ("12345A", OK, "111"),
    (HX02, OK, "111"), ("1", OK, "222"), ("67890E", OK, "222"),
    ("4", NO_CAMERA, "/dev/video2"), ("nobody", NO_CAMERA, HX01), ("/dev/video1", NO_CAMERA, HX01),
    ("/dev/null", NO_CAMERA, HX01), ("", USAGE, "--camera"), (None, USAGE, HX01),
    ("12345C", USAGE, "/dev/video6"),
])
def test_choosing_a_camera(hxcam, wanted, code, told):
    cameras = (HX02 + ",exposure=1:999:111", HX01 + ",exposure=1:999:222",
               *2 * ("HX01-V01.3-12345C",))
    choice = () if wanted is None else ("--camera", wanted)
    result = hxcam("get", "exposure", *choice, cameras=cameras)
    assert result.code == code
    assert told in (result.out if code == OK else result.err)
