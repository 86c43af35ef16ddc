# SPDX-License-Identifier: MIT
"""hxcam info, on whole and on damaged files."""
import json
import random

import pytest

from conftest import FAILED, HXCAM, OK, run_command
from frames import make_golden

TABLE = 8 + 8 + 21
ENTRY_1 = TABLE + 2
ENTRY_77 = ENTRY_1 + 4 * 12
WHOLE = make_golden.container([1, 2, 3, 65535], [
    (1, 1, 1), (2, 2, 4), (3, 2, 8), (8, 4, b"\xce\xdeab\0"), (77, 1, [7, 8, 9])])


def info(*args, **options):
    return run_command([HXCAM, "info", *map(str, args)], **options)


def test_every_entry_is_shown(tmp_path):
    whole = tmp_path / "whole.hxc"
    whole.write_bytes(WHOLE)
    lines = [line.split() for line in info(whole).out.splitlines()]
    assert lines[2] == ["1", "data", "type", "16", "bit", "1", "1"]
    assert lines[5] == ["8", "identification", "text", "5", "\\xce\\xdeab"]
    assert lines[6] == ["77", "unknown", "16", "bit", "3", "[7,8,9]"]

    twice = info("--json", "-", input=2 * WHOLE)
    assert twice.code == OK
    described = json.loads(twice.out)
    assert [c["offset"] for c in described["containers"]] == [0, len(WHOLE)]
    last = described["containers"][1]
    assert (last["size"], last["kind"]) == (99, 0x4858)
    assert (last["sample_type"], last["sample_bytes"]) == (1, 8)
    assert last["entries"][4] == {"tag": 77, "name": "unknown", "type": 1, "count": 3,
                                  "value": [7, 8, 9]}
    assert described["file"] == "-" and described["error"] is None and last["error"] is None
    # The text is no UTF-8: its bytes are there.
    assert bytes.fromhex(last["entries"][3]["hex"]) == b"\xce\xdeab\0"


def test_long_and_unknown_entries(tmp_path):
    long = tmp_path / "long"
    long.write_bytes(make_golden.container([], [
        (100, 1, list(range(4100))), (8, 4, b"a\0hidden\0"), (9, 4, b"text\0"), (101, 9, 3)]))
    numbers, hiding, text, unknown = json.loads(
        info("--json", long).out)["containers"][0]["entries"]
    assert numbers["value"] == list(range(4096)) and numbers["cut"]
    assert hiding["value"] == "a" and bytes.fromhex(hiding["hex"]) == b"a\0hidden\0"
    assert text["value"] == "text" and "hex" not in text
    assert (unknown["type"], unknown["value"]) == (9, None)
    assert "15] ..." in info(long).out


def changed(offset, data):
    bytes_ = bytearray(WHOLE)
    bytes_[offset:offset + len(data)] = data
    return bytes(bytes_)


@pytest.mark.parametrize("data, fault", [
    (b"", "at byte 0: the header is cut off"),
    (b"LL\x58\x48\0\0\0", "at byte 7: the header is cut off"),
    (changed(0, b"LX"), "at byte 0: no container"),
    (changed(2, b"\x48\x58"), "at byte 2: written in the other byte order"),
    (changed(4, b"\xff\xff\xff\xff"), "at byte 99: cut off"),
    (changed(TABLE, b"\0\0"), "at byte 37: it has no entries"),
    (WHOLE[:TABLE + 1], "at byte 38: cut off"),
    (WHOLE[:-1], "at byte 98: cut off"),
    (changed(TABLE, b"\xff\xff"), "cut off: 65535 entries"),
    (changed(ENTRY_1 + 4, b"\0\0\0\0"), f"at byte {ENTRY_1}: entry 0 (tag 1) is too short"),
    (changed(ENTRY_1 + 8, b"\7\0\0\0"), "entry 0 (tag 1): its payload, 2 bytes at 7, should be"),
    (changed(ENTRY_77 + 4, b"\4\0\0\0"), "at byte 4: the table is at byte 37, the payloads end"),
    (changed(ENTRY_77 + 4, b"\xff\xff\xff\xff"), f"at byte {ENTRY_77}: entry 4 (tag 77): its"),
    (changed(ENTRY_77 + 8, b"\xff\xff\xff\xff"), "entry 4 (tag 77): its payload"),
    (changed(18, b"\x0d\0\0\0"), "entry 0 (tag 1): its payload, 2 bytes at 16, should be at 34"),
    (changed(18, b"\xff\xff\xff\xff"), f"at byte {ENTRY_1 + 24}: the samples, 8589934590 bytes"),
    (changed(22, b"\7\0\0\0"), "at byte 7: the samples begin at byte 7, not at 8"),
    (WHOLE + b"rest", "at byte 99: no container"),
    (WHOLE + b"LL", "at byte 101: the header is cut off"),
])
def test_what_is_wrong_is_told(tmp_path, data, fault):
    damaged = tmp_path / "damaged.hxc"
    damaged.write_bytes(data)
    result = info(damaged)
    assert result.code == FAILED
    assert str(damaged) in result.err and fault in result.err


def test_no_damage_is_believed(tmp_path):
    # Every byte changed in turn, and every cut: each is read or refused, and the rest goes on.
    chance = random.Random(1)
    for i in range(len(WHOLE)):
        (tmp_path / f"{i:03}").write_bytes(changed(i, bytes([chance.randrange(256)])))
        (tmp_path / f"{i:03}cut").write_bytes(WHOLE[:i])
    files = sorted(tmp_path.iterdir())
    result = info("--json", *files)
    assert result.code == FAILED
    assert [json.loads(line)["file"] for line in result.out.splitlines()] == list(map(str, files))
    assert all(json.loads(line)["error"] for line in result.out.splitlines()[1::2])


def test_damage_in_the_middle_does_not_hide_the_rest():
    moved = changed(ENTRY_77 + 8, b"\x1e")
    result = info("--json", "-", input=WHOLE + moved + WHOLE + b"LL")
    line = json.loads(result.out)
    assert result.code == FAILED
    faults = [c["error"] and c["error"]["offset"] for c in line["containers"]]
    assert faults == [None, 99 + ENTRY_77, None]
    assert line["error"] == {"offset": 299, "message": "the header is cut off"}
    assert f"at byte {99 + ENTRY_77}: entry 4 (tag 77)" in result.err
    assert "at byte 299" in result.err


def test_a_missing_file_does_not_hide_the_others(tmp_path):
    (tmp_path / "whole").write_bytes(WHOLE)
    result = info(tmp_path / "none", tmp_path, tmp_path / "whole")
    assert result.code == FAILED
    assert "No such file" in result.err and "Is a directory" in result.err
    assert "identification" in result.out
