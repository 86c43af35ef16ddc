#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Frames a second and processor time a frame of hxcam and others, on one simulated camera.

    end_to_end.py BIN [REPETITIONS]

The camera delivers as fast as frames are taken (rate=0). Each program runs for a few and for many
frames, so that its start does not count. All processes of a run are counted, the simulator's work
too: v4l2-ctl, which looks at no frame, shows how much that is.
"""
import os
import shlex
import statistics
import subprocess
import sys
import time

NODE = "/dev/video0"
FEW = 50
PROGRAMS = {
    "v4l2-ctl --stream-mmap":
        "v4l2-ctl -d {node} --stream-mmap=20 --stream-count={count}",
    "ffmpeg -f v4l2 -f null":
        "ffmpeg -v error -f v4l2 -i {node} -fps_mode passthrough -frames:v {count} -f null -",
    "v4l2src ! fakesink":
        "gst-launch-1.0 -q v4l2src device={node} num-buffers={count} ! fakesink sync=false",
    "hxcam capture --null": "{bin}/hxcam capture -n {count} --null --quiet",
    "hxcam capture --null --pull": "{bin}/hxcam capture -n {count} --null --quiet --pull",
    "hxcam capture -o - | cat":
        "{bin}/hxcam capture -n {count} -o - --quiet | cat >/dev/null",
}


def run(binaries, command, count):
    """Seconds of the clock and of the processors; None when the program fails."""
    command = command.format(bin=shlex.quote(binaries), node=NODE, count=count)
    words = [f"{binaries}/hx-sim", "--camera", "HX02-V02.1-12345A-L,rate=0", "--",
             "bash", "-o", "pipefail", "-c", command]
    before, start = os.times(), time.monotonic()
    done = subprocess.run(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    after = os.times()
    spent = (after.children_user + after.children_system
             - before.children_user - before.children_system)
    return (time.monotonic() - start, spent) if done.returncode == 0 else None


def figure(value, text):
    """Of too few frames a difference may be lost in the noise."""
    return text if value > 0 else "-"


def main():
    binaries = os.path.abspath(sys.argv[1])
    repetitions = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    many = FEW + (400 if repetitions > 1 else 10)
    results = {name: [] for name in PROGRAMS}
    for _ in range(repetitions):
        for name, command in PROGRAMS.items():
            short, long = (run(binaries, command, count) for count in (FEW, many))
            if short and long:
                results[name].append([(b - a) / (many - FEW) for a, b in zip(short, long)])
    print("| end to end, simulated camera | frames/s | processor ms a frame |\n|---|---|---|")
    for name, runs in results.items():
        if not runs:
            print(f"| {name:<28} | failed | |")
            continue
        clock, spent = (statistics.median(times) for times in zip(*runs))
        rate = figure(clock, f"{1 / max(clock, 1e-6):.0f}")
        print(f"| {name:<28} | {rate:>8} | {figure(spent, f'{1000 * spent:.2f}'):>20} |")
    failed = [name for name, runs in results.items() if name.startswith("hxcam") and not runs]
    sys.exit(f"failed: {', '.join(failed)}" if failed else 0)


if __name__ == "__main__":
    main()
