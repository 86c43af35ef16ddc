# SPDX-License-Identifier: MIT
"""Frames of HX spectral cameras as NumPy arrays.

    import hxcamera

    for frame in hxcamera.read("run1"):            # container files, or folders of them
        print(frame.entries["exposure"], frame.samples.mean())

    with hxcamera.Capture(count=10, timeout=5) as frames:     # from an attached camera
        for frame in frames:
            print(frame.entries["time"], frame.samples.shape)

Live frames come from the command hxcam, which runs the camera library in a process of its own: a
camera that is silent or lost is an exception here and blocks nothing.
"""

from .capture import CameraError, CameraLost, CameraTimeout, Capture, NoCamera
from .container import ContainerError, Frame, parse, read

__all__ = ["CameraError", "CameraLost", "CameraTimeout", "Capture", "ContainerError", "Frame",
           "NoCamera", "parse", "read"]
