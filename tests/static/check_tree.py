#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The shape of the tree: who may include whom, ASCII sources, bounded files, explained messages.

    check_tree.py ROOT
"""

import pathlib
import re
import sys

# Where a path begins -> what its quoted includes may begin with; the first that fits counts.
ALLOWED = {
    # What is installed stands alone.
    "src/api/hx_camera.h": [],
    "src/codec/hx_container.h": [],
    "src/v4l2/": ["v4l2/"],
    "src/codec/": ["codec/"],
    "src/imgproc/": ["imgproc/"],
    # Besides the uvc class itself nothing in camera/ may know the device layer.
    "src/camera/camera_uvc_linux.": ["camera/", "v4l2/"],
    "src/camera/": ["camera/"],
    "src/api/": ["api/", "camera/camera_base.h", "codec/"],
    "simulator/": ["simulator/"],
    "tools/capture/": ["capture/", "api/hx_camera.h"],
    "tools/spectral/": ["spectral/", "imgproc/imgproc.h"],
    # The identification text is taken apart in one place for library and tool.
    "tools/hxcam/": ["hxcam/", "capture/", "spectral/", "codec/hx_container.h",
                     "camera/identification.h"],
}
SOURCES = {".h", ".c", ".cpp", ".py", ".cmake", ".map", ".sh"}
MOST_LINES = 600

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def include_faults(root, path):
    name = path.relative_to(root).as_posix()
    place = next((place for place in ALLOWED if name.startswith(place)), None)
    if place is None:
        return
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        target = match.group(1)
        beside = ALLOWED[place] and "/" not in target and (path.parent / target).exists()
        if not beside and not any(target.startswith(prefix) for prefix in ALLOWED[place]):
            yield f"{name}:{number}: {place} must not include {target}"


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


def message_faults(root):
    """What the library prints must be explained; these sources alone print."""
    printing = {"v4l2/HXCamera_v4l2.cpp", "camera/camera_uvc_linux.cpp", "codec/file_codec.cpp"}
    no_messages = {"/dev", "/dev/", "video", "uvc", "raw", "Webcam gadget: UVC Camera", ""}
    page = (root / "docs/troubleshooting.md").read_text()
    for path in sorted((root / "src").rglob("*.cpp")):
        name = path.relative_to(root / "src").as_posix()
        code = re.sub(r"//.*|#.*", "", path.read_text())
        if name not in printing:
            if re.search(r"perror|std(err|out)|\bc(err|out)\b|printf|puts", code):
                yield f"src/{name}: prints"
            continue
        for text in set(re.findall(r'"(.*?)"', code)) - no_messages:
            shown = re.sub(r"%u.*|\\n", "", text).replace("\\x", " ").strip()
            shown = shown.lower() if "\\x" in text else shown
            if not re.search(f"[`: ]{re.escape(shown)}[`: ]", page) and f"`{shown}" not in page:
                yield f"docs/troubleshooting.md: nothing about '{shown}'"


def main():
    root = pathlib.Path(sys.argv[1])
    faults = list(message_faults(root))
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
    sys.exit("\n".join(faults) or 0)


main()
