# SPDX-License-Identifier: MIT
"""What is looked at on the host, in the folder that came back from a guest."""
import pathlib
import re
import sys

HERE = pathlib.Path(__file__).parent
sys.path.append(str(HERE.parent / "hxcam"))
from frames import Container, frame_number  # noqa: E402 the reader of the other tests


def captures_are_ramps(expected):
    """Folder -> identification and exposure; every sample of a hundred containers each."""
    def check(folder):
        for name, (identification, exposure) in expected.items():
            for n in range(100):
                path = folder / name / f"frame-{n:06}.hxc"
                frame = Container(path.read_bytes())
                assert (frame.text(8), frame.number(10)) == (identification, exposure), path
                assert frame_number(frame.samples, identification) == n, path
                path.unlink()
    return check


def compliance(folder, step):
    text = (folder / f"{step}.out").read_text()
    assert re.search(r"^Total for .*: \d+, Succeeded", text, re.M), text
    return dict(re.findall(r"^\s*test (.*): (.*)$", text, re.M))


def compliance_differs_as_accepted(folder):
    """Steps 0 and 1: capture and metadata node of the real driver; 2 and 3: of the preloaded."""
    seen = set()
    for number, node in enumerate(("capture", "metadata")):
        real, simulated = compliance(folder, number), compliance(folder, 2 + number)
        tests = real.keys() | simulated.keys()
        rows = {(node, test, real.get(test, "-"), simulated.get(test, "-")) for test in tests}
        seen |= {row for row in rows if row[2] != row[3]}
    lines = (HERE / "compliance-differences.txt").read_text().splitlines()
    accepted = {tuple(line.split(" | ")[:4]) for line in lines if not line.startswith("#")}
    assert seen == accepted, (f"only in this run: {sorted(seen - accepted)}; "
                              f"only in the list: {sorted(accepted - seen)}")
