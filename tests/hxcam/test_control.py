# SPDX-License-Identifier: MIT
"""hxcam get and set."""
import json

import pytest

from conftest import FAILED, HX01, HX02, LOST, OK, SLOW, TIMEOUT, USAGE


@pytest.mark.parametrize("args, spec, code, out, err", [
    ("get", "", OK, "exposure 156\nlamp present\n", ""),
    ("get exposure", "", OK, "156\n", ""),
    ("get lamp", "", OK, "present\n", ""),
    ("get exposure", ",fault=G_CTRL:*=EIO", FAILED, "", "G_CTRL: Input/output error"),
    ("get exposure", ",fault=G_CTRL:*=ENODEV", LOST, "", "No such device"),
    ("set exposure 200", "", OK, "200\n", ""),
    ("set exposure 0", "", FAILED, "1\n", "asked for 0, the camera uses 1 (its range is 1 to 10000"),
    ("set exposure 20000", "", FAILED, "10000\n", "asked for 20000, the camera uses 10000"),
    ("set exposure 200", ",auto-exposure=held", FAILED, "", "automatic exposure"),
    ("set exposure 200", ",fault=S_CTRL:1=EBUSY", FAILED, "", "Device or resource busy"),
    ("set lamp on", "", FAILED, "", "drives the lamp"),
    ("set exposure 200 --timeout 1s", ",xu=slow:60", TIMEOUT, "", "no answer"),
    ("set exposure -- -1", "", USAGE, "", "no exposure"),
    ("set exposure 2147483648", "", USAGE, "", "no exposure"),
    ("set exposure 10ms", "", USAGE, "", "no exposure"),
    ("set lamp 1", "", USAGE, "", "on or off"),
    ("get gain", "", USAGE, "", "gain"),
])
def test_properties(hxcam, args, spec, code, out, err):
    result = hxcam(*args.split(), cameras=(HX02 + spec,))
    assert (result.code, result.out) == (code, out)
    assert err in result.err and bool(err) == bool(result.err)
    assert result.seconds < 4 * SLOW  # a driver gives up after 5 s by itself


def test_json_and_a_camera_without_lamp(hxcam):
    result = hxcam("get", "--json", cameras=(HX01 + ",exposure=5:50:7",))
    assert json.loads(result.out) == {"exposure": 7, "lamp": "absent"}
    result = hxcam("set", "lamp", "off", cameras=(HX01,))
    assert result.code == FAILED and "has no lamp" in result.err
