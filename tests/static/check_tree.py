#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The shape of the tree: who may include whom, ASCII sources, bounded files.

    check_tree.py ROOT
"""

import pathlib
import re
import sys

# Folder -> what its quoted includes may begin with.
ALLOWED = {
    "src/v4l2": ["v4l2/"],
    "src/codec": ["codec/"],
    "src/imgproc": ["imgproc/"],
    "src/camera": ["camera/", "v4l2/"],
    "src/api": ["api/", "camera/camera_base.h", "codec/"],
    "simulator": ["simulator/"],
    "tools/capture": ["capture/", "api/hx_camera.h"],
    "tools/spectral": ["spectral/", "imgproc/imgproc.h"],
    # The identification text is taken apart in one place for library and tool.
    "tools/hxcam": ["hxcam/", "capture/", "spectral/", "codec/hx_container.h",
                    "camera/identification.h"],
}
# Besides the uvc class itself nothing in camera/ may know the device layer.
V4L2_USERS = {"src/camera/camera_uvc_linux.h", "src/camera/camera_uvc_linux.cpp"}
# What is installed stands alone.
INSTALLED = {"src/api/hx_camera.h", "src/codec/hx_container.h"}
SOURCES = {".h", ".c", ".cpp", ".py", ".cmake", ".map", ".sh"}
MOST_LINES = 600

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def include_faults(root, path):
    name = path.relative_to(root).as_posix()
    folder = next((folder for folder in ALLOWED if name.startswith(folder + "/")), None)
    if folder is None:
        return
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        target = match.group(1)
        beside = "/" not in target and (path.parent / target).exists()
        allowed = beside or any(target.startswith(prefix) for prefix in ALLOWED[folder])
        if target.startswith("v4l2/") and folder == "src/camera":
            allowed = name in V4L2_USERS
        if name in INSTALLED:
            allowed = False
        if not allowed:
            yield f"{name}:{number}: {folder} must not include {target}"


def text_faults(root, path):
    name = path.relative_to(root).as_posix()
    data = path.read_bytes()
    if not data.isascii():
        line = next(i for i, text in enumerate(data.splitlines(), 1) if not text.isascii())
        yield f"{name}:{line}: not ASCII"
    if data and not data.endswith(b"\n"):
        yield f"{name}: no newline at the end"
    if data.count(b"\n") > MOST_LINES:
        yield f"{name}: more than {MOST_LINES} lines"


def main():
    root = pathlib.Path(sys.argv[1])
    faults = []
    checked = 0
    for folder in ("src", "simulator", "tools", "tests", "bench", "examples", "cmake"):
        for path in sorted((root / folder).rglob("*")):
            if path.suffix not in SOURCES or not path.is_file():
                continue
            checked += 1
            faults += include_faults(root, path)
            faults += text_faults(root, path)
    if checked < 20:
        faults.append(f"only {checked} files found below {root}")
    print("\n".join(faults))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
