# SPDX-License-Identifier: MIT
"""Help, man page and completion name the same options."""
import pathlib
import re
import subprocess

import pytest

from conftest import HX_SIM, HXCAM, run_command

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMMANDS = ("list", "get", "set", "capture", "info", "convert", "cube")


def options_in(text):
    return set(re.findall(r"--[a-z]+(?:-[a-z]+)*", text))


def completed(*words, completion="tools/hxcam/completions/hxcam"):
    script = f"""source "{ROOT}/{completion}"; hxcam() {{ "{HXCAM}" "$@"; }}
        COMP_WORDS=(program "$@"); COMP_CWORD=$#; $(complete | sed 's/.*-F //; s/ .*//')
        echo "${{COMPREPLY[@]}}" """
    done = subprocess.run(["bash", "-c", script, "bash", *words], capture_output=True, text=True,
                          check=True)
    return done.stdout.split()


@pytest.mark.parametrize("command", COMMANDS)
def test_options_are_the_same_everywhere(command):
    options = options_in(run_command([HXCAM, command, "--help"]).out)
    words = (command, "exposure", "1", "-") if command == "set" else (command, "-")
    assert set(completed(*words)) == options
    manual = (ROOT / "docs/man/hxcam.1.scd").read_text()
    assert options - {"--help"} <= options_in(manual)


@pytest.mark.parametrize("words, answer", [
    (("",), {*COMMANDS, "--help", "--version"}), (("set", ""), {"exposure", "lamp", "--help"}),
    (("set", "lamp", "o"), {"on", "off"}), (("get", "l"), {"lamp"}),
    (("capture", "--timeout", "5"), {"500ms", "5s"}), (("capture", "-n", ""), set()),
    (("cube", "--interleave", "b"), {"bsq", "bil", "bip"}), (("convert", "--format", "t"), {"tiff"}),
])
def test_completion(words, answer):
    assert set(completed(*words)) == answer


@pytest.mark.parametrize("words", [(), ("usb",)])
def test_completion_of_hx_sim(words):
    options = options_in(run_command([HX_SIM, *words, "--help"]).out)
    answer = completed(*words, "-", completion="simulator/completions/hx-sim")
    assert set(answer) - {"--"} == options - {"--list-devices"}
