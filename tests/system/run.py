#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Boots a virtual arm64 machine for each scenario and compares what came of it."""
import argparse
import concurrent.futures
import dataclasses
import functools
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import textwrap
import time

from guest_image import make_image
from scenarios import SCENARIOS, endurance

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build/system"
PROGRAMS = ["hx_system_probe", "hxcam", "hx-capture-child"]
# A fault of the kernel is a fault of the run, whatever the programs made of it.
KERNEL_FAULT = re.compile(r"^.*(?:WARNING:|BUG:|Oops|Call trace:|Unable to handle).*$", re.M)
# A second of the guest may take some of the host; the guest has its own limit for what hangs.
SLOWEST, BOOT_SECONDS = 10, 60


def build(preset, programs):
    """Cross-builds programs; their paths."""
    log = ROOT / f"build/{preset}-system.log"
    log.parent.mkdir(exist_ok=True)
    for command in (["cmake", "--preset", preset],
                    ["cmake", "--build", "--preset", preset, "--target", *programs]):
        with log.open("w") as out:
            if subprocess.run(command, cwd=ROOT, stdout=out, stderr=out, check=False).returncode:
                sys.exit(log.read_text()[-4000:] + f"\n{shlex.join(command)} failed")
    return [ROOT / "build" / preset / "bin" / name for name in programs]


def plan_of(scenario):
    """What the guest's first program reads."""
    # The simulator is never the sanitized one: the library is what is looked at.
    path = "export PATH=/asan/bin:$PATH LD_LIBRARY_PATH=/asan/lib/aarch64-linux-gnu"
    return "\n".join([
        "main() {", f"plug {shlex.join(scenario.cameras)}", *["modprobe vivid"] * scenario.vivid,
        *[path] * scenario.asan,
        *(f"step {number} {shlex.quote(step.command)}"
          for number, step in enumerate(scenario.steps)),
        "}", "main &", "running=$!", f"limit {scenario.seconds} &", "wait $running", ""])


def boot(image, folder, seconds):
    """Until the guest powers off; what went wrong."""
    kernel, initramfs = image
    # Guest time is counted in instructions, so that a busy host makes the guest slow and not late:
    # rates, time-outs and who waits for whom stay the same. That takes one virtual CPU.
    command = [
        "qemu-system-aarch64", "-M", "virt", "-cpu", "cortex-a57", "-m", "1024", "-smp", "1",
        "-icount", "shift=0", "-nographic", "-nodefaults", "-serial", "stdio", "-no-reboot",
        "-nic", "none", "-kernel", kernel, "-initrd", initramfs,
        "-append", "console=ttyAMA0 quiet loglevel=3 panic=-1 usbcore.autosuspend=-1",
        "-fsdev", f"local,security_model=none,id=out,path={folder}",
        "-device", "virtio-9p-device,fsdev=out,mount_tag=out"]
    with open(folder / "console", "wb") as console:
        try:
            subprocess.run(command, stdin=subprocess.DEVNULL, stdout=console, stderr=console,
                           timeout=SLOWEST * seconds + BOOT_SECONDS, check=True)
        except (subprocess.TimeoutExpired, subprocess.CalledProcessError) as fault:
            return [f"the guest did not power off: {type(fault).__name__}"]
    return []


def read(path):
    return path.read_bytes().decode("ascii", "backslashreplace") if path.exists() else ""


def step_faults(number, step, folder):
    if not (folder / f"{number}.status").exists():
        return [f"step {number} was not reached or did not end: {step.command}"]
    faults = []
    for suffix, wanted in (("status", f"{step.status}\n"), ("out", step.out), ("err", step.err)):
        got = read(folder / f"{number}.{suffix}")
        pattern = wanted.pattern if isinstance(wanted, re.Pattern) else re.escape(wanted)
        if not re.fullmatch(pattern, got):
            faults.append(f"step {number}: {step.command}\n    {suffix} expected: {wanted!r}\n"
                          f"    {suffix} came:     {got[-3000:]!r}")
    return faults


def run(image, scenario):
    """What went wrong, and how long it took."""
    start = time.monotonic()
    folder = WORK / "logs" / scenario.name
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    (folder / "plan.sh").write_text(plan_of(scenario))
    faults = boot(image, folder, scenario.seconds)
    for number, step in enumerate(scenario.steps):
        faults += step_faults(number, step, folder)
    if not (folder / "dmesg").exists():
        faults.append("no kernel log came back: " + read(folder / "console")[-1000:])
    faults += KERNEL_FAULT.findall(read(folder / "dmesg"))
    if scenario.check and not faults:
        try:
            scenario.check(folder)
        except Exception as fault:  # a damaged container may end in any
            faults.append(f"{type(fault).__name__}: {fault}")
    return faults, time.monotonic() - start


def report(scenario, faults, seconds, suffixes):
    folder = WORK / "logs" / scenario.name
    print(f"{scenario.name:24} {'no' if faults else 'yes':3} {seconds:6.1f} s")
    for number, step in enumerate(scenario.steps):
        if suffixes:
            texts = [f"$ {step.command}\n", *(read(folder / f"{number}.{one}") for one in suffixes)]
            print(textwrap.indent("".join(texts), "    "), end="")
    for fault in faults:
        print(f"  {fault}")
    if faults:
        print(f"  kept: {folder}; the guest's script said:\n{read(folder / 'runner.log')}")
    sys.stdout.flush()


def options():
    parser = argparse.ArgumentParser(
        prog="scripts/test-system",
        description="The library on a real arm64 kernel in a virtual machine.")
    parser.add_argument("--scenario", action="append", metavar="NAME",
                        choices=[scenario.name for scenario in SCENARIOS], help="only this one")
    parser.add_argument("--endurance", nargs="?", type=int, const=10, metavar="MINUTES",
                        help="only the scenario endurance, for so long (10)")
    parser.add_argument("--asan", action="store_true", help="all of it under AddressSanitizer")
    parser.add_argument("-v", "--verbose", action="store_true", help="show what the steps print")
    parser.add_argument("--list", action="store_true", help="print the names of the scenarios")
    wish = parser.parse_args()
    if wish.endurance is not None and (wish.scenario or not 1 <= wish.endurance <= 1440):
        parser.error("--endurance takes 1 to 1440 minutes, and no --scenario")
    return wish


def main():
    wish = options()
    chosen = [one for one in SCENARIOS if not wish.scenario or one.name in wish.scenario]
    if wish.endurance:
        chosen = [endurance(60 * wish.endurance)]
    if wish.asan:
        # The leak check alone takes a process some ten seconds to end.
        chosen = [dataclasses.replace(scenario, asan=True, seconds=4 * scenario.seconds)
                  for scenario in chosen]
    if wish.list:
        print("\n".join(scenario.name for scenario in chosen))
        return 0
    start = time.monotonic()
    programs = build("arm64", [*PROGRAMS, "hx-sim"])
    sanitized = []
    if any(scenario.asan for scenario in chosen):
        sanitized = build("arm64-asan", PROGRAMS if wish.asan else PROGRAMS[:1])
    image = make_image(WORK, programs, sanitized)
    print(f"{'built':28} {time.monotonic() - start:6.1f} s", flush=True)
    red = 0
    with concurrent.futures.ThreadPoolExecutor(min(os.cpu_count(), 4)) as pool:
        runs = pool.map(functools.partial(run, image), chosen)
        for scenario, (faults, seconds) in zip(chosen, runs):
            shown = ["out", "err"] if wish.verbose else ["out"] * scenario.shown
            report(scenario, faults, seconds, shown)
            red += bool(faults)
    print(f"{red} of {len(chosen)} red, {time.monotonic() - start:.0f} s")
    return 1 if red else 0


if __name__ == "__main__":
    sys.exit(main())
