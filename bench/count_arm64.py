#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Counts the instructions of the inner loops in the arm64 build's object files, as JSON.

    count_arm64.py BUILD

No arm64 machine is needed, and no time is told: a loop that is no longer vector code, or a call in
it, shows all the same.
"""
import json
import pathlib
import re
import subprocess
import sys

# "  1c:	b.ls	17c <...>"
LINE = re.compile(r"^ *([0-9a-f]+):\t(\S+)(?:\t([^<]*))?")


def functions(path):
    """Mangled name -> disassembly, with relocations."""
    text = subprocess.run(["aarch64-linux-gnu-objdump", "-dr", "--no-show-raw-insn", path],
                          check=True, capture_output=True, text=True).stdout
    parts = re.split(r"^[0-9a-f]+ <(.*)>:$", text, flags=re.MULTILINE)
    return dict(zip(parts[1::2], parts[2::2]))


def instructions_per(function, mark, done, wanted):
    """In the innermost loop that has `mark`, of which each does `done` pixels: for `wanted` pixels."""
    code = [(int(match[1], 16), match[2], (match[3] or "").split(", ")[-1].strip())
            for match in map(LINE.match, function.splitlines()) if match]
    loops = []
    for address, name, target in code:
        if name.startswith(("b.", "cb", "tb")) and int(target, 16) < address:
            body = [line[1] for line in code if int(target, 16) <= line[0] <= address]
            if mark in body:
                loops.append(body)
    body = min(loops, key=len)
    return len(body) * wanted / (done * body.count(mark))


def only(code, name):
    found, = (text for symbol, text in code.items() if name in symbol)
    return found


def main():
    objects = pathlib.Path(sys.argv[1]) / "src/CMakeFiles"
    samples = functions(objects / "hx_camera_model.dir/camera/frame_convert.cpp.o")
    mosaic = functions(objects / "hx_kernel_baseline.dir/imgproc/mosaic_kernel.cpp.o")
    calls = [call for text in (*samples.values(), *mosaic.values())
             for call in re.findall(r"R_AARCH64_CALL26\t((?:fma|l?l?round)f?)\b", text)]
    print(json.dumps({
        "arm64:calls": len(calls),
        # One multiplication of the upper four lanes for eight samples, one division for two pixels.
        "arm64:hx02": instructions_per(only(samples, "convertRow"), "umull2", 8, 48),
        "arm64:mosaic": instructions_per(only(mosaic, "4workEPK"), "fdiv", 2, 1),
    }))


if __name__ == "__main__":
    main()
