# SPDX-License-Identifier: MIT
"""What happens in the guest, and what must come of it.

Nodes are told in the order of devtmpfs, newest first; each camera has one that captures and one of
metadata.
"""
import re
from collections.abc import Callable
from dataclasses import dataclass

from host_checks import captures_are_ramps, compliance_differs_as_accepted

HX02 = "HX02-V02.1-12345A-L"
HX01 = "HX01-V01.3-67890E"
# Of these the probe knows every sample, of one with the exposure in its frames too.
RAMPS = ("HX01-V02.1-12345A-L", HX01)
ANY = re.compile("(?s).*")
METADATA = FOREIGN = "!name: Inappropriate ioctl for device\n"
# The library says it in Chinese, in GBK.
EXPOSURE = (b"\xCE\xDE\xB7\xA8\xC9\xE8\xD6\xC3\xC6\xD8\xB9\xE2\xCA\xB1\xBC\xE4"
            .decode("ascii", "backslashreplace"))


@dataclass(frozen=True)
class Step:
    """A shell command in the guest. Texts are compared whole."""
    command: str
    status: int = 0
    out: str | re.Pattern = ""
    err: str | re.Pattern = ""


@dataclass(frozen=True)
class Scenario:
    name: str
    steps: tuple
    cameras: tuple
    vivid: bool = False
    asan: bool = False
    seconds: int = 60
    check: Callable | None = None  # gets the folder that came back; raises AssertionError
    shown: bool = False  # what the steps print is part of the result


def lines(*texts):
    return "".join(text + "\n" for text in texts)


def summary(count):
    return rf"{count} frames?, .*first .*, last .*, 0 lost\n"


LIST_OF_TWO = lines(
    "INDEX  NODE         NAME     MODEL  SPECTRAL  LAMP  EXPOSURE  IDENTIFICATION",
    f"0      /dev/video0  12345A-  HX02   A (1)     yes   1..10000  {HX02}",
    f"1      /dev/video2  67890E   HX01   E (75)    no    1..10000  {HX01}")

CAPTURE = Scenario("capture", cameras=(HX02 + ",rate=10", HX01 + ",rate=10"), seconds=180, steps=(
    Step("hxcam list", out=LIST_OF_TWO),
    Step("hxcam set exposure 321 --camera 1 && hxcam get --camera 67890E",
         out=lines("321", "exposure 321", "lamp absent")),
    Step("""hxcam capture --camera 0 -n 100 --exposure 200 -o /out/hx02 & first=$!
            hxcam capture --camera 1 -n 100 -o /out/hx01 && wait $first""",
         err=re.compile(summary(100) * 2)),
), check=captures_are_ramps({"hx02": (HX02, 200), "hx01": (HX01, 321)}))

MESSAGES = Scenario("messages", cameras=(HX02, "HX03-V01.0-1"), vivid=True, steps=(
    Step("hx_system_probe look 1", out=lines("12345A- 1..10000 3840315 bytes"),
         err=FOREIGN * 4 + METADATA + "hx verion error\n" + METADATA),
    Step("hxcam list", out="".join(LIST_OF_TWO.splitlines(True)[:2]),
         err=lines('hxcam: /dev/video2: identification "HX03-V01.0-1": unknown model')),
))

# What is printed by the calls that meet the end. Just after a frame it may be any of them, behind
# the one that asks for the exposure of the frame.
UNPLUG_MESSAGES = {
    "blocked": "-1: Invalid argument",
    "mid-frame": "-1: Invalid argument",
    "after-frame": f"({re.escape(EXPOSURE)}: No such device\n)?"
                   "(-1: Invalid argument|-1: No such device|-2: No such device)",
    "waiting": "-1: No such device",
}


# Frames must come slower than the program takes them: it hands a buffer back before it reads it.
def unplug(moment, cameras=RAMPS, asan=False):
    busy = METADATA + "fmt:: Device or resource busy\n"
    rest = f"{EXPOSURE}: Bad file descriptor\n" + busy + METADATA + busy
    return Scenario(
        f"unplug-{moment}{'-asan' if asan else ''}",
        cameras=tuple(f"{camera},rate={5 if asan else 10}" for camera in cameras),
        asan=asan, seconds=120,
        steps=(
            Step(f"hx_system_probe unplug {moment}",
                 out=re.compile("ok camera 0 .* /dev/video0 /dev/video1\n"),
                 err=re.compile(re.escape(METADATA * 2) + UNPLUG_MESSAGES[moment] + "\n"
                                + re.escape(rest))),
            Step("sim plug 0", out=ANY),
            Step("hx_system_probe look 2", out=ANY, err=METADATA * 2)))


# The last one fills its 32 bytes; the one before has 16 of them and zeros.
REFUSALS = Scenario("refusals", cameras=(
    "HX02-V02.1-00001A,xu=absent", "HX02-V02.1-00002A,xu=refuse:EIO",
    "HX02-V02.1-00003A,xu=length:16", "HX02-V02.1-00004A,exposure=none",
    "HX02-V02.1-00005A,xu=short", "HX02-V02.1-00006A-901234567890BL"), steps=(
        Step("hx_system_probe look 1", out=lines("00006A- 1..10000 3840328 bytes"),
             err=METADATA.join(lines(text) if text else "" for text in (
                 "", "", "spec resolution error", "expure:: Invalid argument",
                 "!name: No buffer space available", "!name: Input/output error",
                 "!name: No such file or directory"))),
    ))

# The driver waits for 5 s.
SILENT = Scenario("silent", cameras=(HX02 + ",xu=slow:60", HX01), steps=(
    Step("hx_system_probe look 1", out=lines("67890E 1..10000 3840313 bytes"),
         err=METADATA * 2 + "!name: Connection timed out\n"),
    Step("hxcam list --timeout 1s", out=re.compile(".*\n0 +/dev/video2 +67890E .*\n"),
         err=lines("hxcam: /dev/video0: no answer within 1000 ms")),
    Step("hxcam capture --camera /dev/video0 --timeout 1s -o /tmp", status=4,
         err=lines("hxcam: /dev/video0: no answer within 1000 ms", "hxcam: no camera found")),
))

CONTROLS = Scenario("controls", cameras=(
    HX02 + ",auto-exposure=held", HX01 + ",exposure=refuse:ERANGE",
    "HX02-V02.1-00003A,format=640x480"), steps=(
        Step("hx_system_probe look 3",
             out=lines("00003A 1..10000 no frame", "67890E 1..10000 3840313 bytes",
                       "12345A- 1..10000 3840315 bytes"),
             err=METADATA * 3 + lines(EXPOSURE + ": Numerical result out of range",
                                      EXPOSURE + ": Permission denied")),
        Step("hxcam set exposure 100 --camera 0", status=1, err=lines(
            "hxcam: /dev/video0: S_CTRL: Permission denied (is an automatic exposure on?)")),
        Step("hxcam set exposure 100 --camera 1", status=1, err=lines(
            "hxcam: /dev/video2: S_CTRL: Numerical result out of range")),
        Step("hxcam set exposure 20000 --camera 2", status=1, out=lines("10000"), err=lines(
            "hxcam: asked for 20000, the camera uses 10000 (its range is 1 to 10000)")),
        Step("hxcam capture --camera 2 --timeout 1s -o /tmp", status=4,
             err=lines("hxcam: /dev/video4: no frame within 1000 ms", "0 frames, 0 lost")),
    ))

# The reader's end ends the capture.
SHARING = Scenario("sharing", cameras=(HX02,), steps=(
    Step("""hxcam capture -n 0 -o - 2>/tmp/capture | {
                head -c 1 >/dev/null
                hxcam capture -o /tmp
                echo $?
                hx_system_probe look 0
                hxcam set exposure 222
            }""", out=lines("1", "222"), err=lines(
        "hxcam: /dev/video0: the library cannot start this camera, another program uses it",
        "library: fmt:: Device or resource busy", "0 frames, 0 lost")
        + METADATA + "fmt:: Device or resource busy\n"),
    Step("su nobody -c 'hxcam list'", status=3, err=lines(
        *(f'hxcam: /dev/video{node}: Permission denied: is this user in the group "video"?'
          for node in (0, 1)), "hxcam: no camera found")),
    Step("su nobody -c 'hx_system_probe look 0'",
         err=lines("Failed to open device: Permission denied", "hx verion error") * 2),
))

STOPPING = Scenario("stopping", cameras=(HX02 + ",stall=5", HX01 + ",unplug=5"), steps=(
    *(Step(f"hxcam capture --camera 0 -n 9 --timeout 1s {how} -o /tmp/0{how}",
           status=4, err=re.compile(r"hxcam: /dev/video0: no frame within 1000 ms\n" + summary(5)))
      for how in ("", "--pull")),
    Step("hxcam capture --camera 1 -n 9 -o /tmp/1", status=5, err=re.compile(
        r"hxcam: /dev/video2: the camera was lost\nlibrary: -1: Invalid argument\n" + summary(5))),
    Step("ls /tmp/0 /tmp/0--pull /tmp/1 | grep -c '^frame-00000[0-4].hxc$'", out="15\n"),
))

# The real camera leaves before, or its media controller would stand for the simulated one's.
COMPLIANCE = Scenario("compliance", cameras=(HX02,), check=compliance_differs_as_accepted, steps=(
    Step("v4l2-compliance -d0 -s", status=1, out=ANY),
    Step("v4l2-compliance -d1", out=ANY),
    *(Step(f"sim unplug 0; hx-sim --camera {HX02} -- v4l2-compliance {how}", status=1, out=ANY)
      for how in ("-d0 -s", "-d1")),
), seconds=120)


def endurance(seconds):
    return Scenario("endurance", cameras=tuple(f"{camera},rate=10" for camera in RAMPS), steps=(
        Step(f"hx_system_probe endure {seconds}", out=ANY, err=re.compile(f"({METADATA})*")),
    ), seconds=seconds + 60, shown=True)


SCENARIOS = [CAPTURE, MESSAGES, *(unplug(moment) for moment in UNPLUG_MESSAGES), REFUSALS, SILENT,
             CONTROLS, SHARING, STOPPING, COMPLIANCE, endurance(20),
             *(unplug(moment, RAMPS[::-1], asan=True) for moment in UNPLUG_MESSAGES)]
