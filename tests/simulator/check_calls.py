#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Usage: check_calls.py MAP OBJECT...

The simulator's own code must not call a function that it stands before: the call would come back
to it. Looks at what its objects leave undefined, so that no spelling in the source can hide one.
"""

import re
import subprocess
import sys


def main():
    exported = set(re.findall(r"^\s+(\w+);", open(sys.argv[1]).read(), re.M))
    if "ioctl" not in exported or len(sys.argv) < 10:
        sys.exit("the export list or the objects are not what they should be")
    faults = []
    for path in sys.argv[2:]:
        listing = subprocess.run(["nm", "-u", path], capture_output=True, text=True, check=True)
        called = exported & set(re.findall(r"\bU (\w+)", listing.stdout))
        faults += [f"{path} calls {name}" for name in sorted(called)]
    sys.exit("\n".join(faults) or 0)


main()
