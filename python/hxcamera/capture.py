# SPDX-License-Identifier: MIT
"""Live frames, by way of the command hxcam."""

import os
import select
import subprocess
import tempfile
import time

from .container import container_size, parse

# No frame is so large: a length beyond it would be waited for in vain.
LARGEST_FRAME = 64 << 20
# hxcam ends by itself when the camera is silent; this much later it is ended.
GRACE_SECONDS = 3
READ_SIZE = 1 << 20


class CameraError(RuntimeError):
    """The capture failed; the text is what hxcam said."""


class NoCamera(CameraError):
    """There is no camera, or not the one that was asked for."""


class CameraTimeout(CameraError):
    """The camera is silent."""


class CameraLost(CameraError):
    """The camera was unplugged."""


ERRORS = {3: NoCamera, 4: CameraTimeout, 5: CameraLost}


class Capture:
    """An iterator over frames as they come.

    camera    index, node, name or identification; needed when there are several
    count     frames to take, 0: until close()
    exposure  of all frames, in units of 100 us; None: as it is
    timeout   longest wait for each frame, and for each of two steps of the start, in seconds
    program   the command hxcam, with words before it if need be

    Frames that wait because the program is slow are kept for a moment; then frames are lost. Use it
    in a with statement, or call close(): the camera is held until then.
    """

    _child = None

    def __init__(self, camera=None, *, count=0, exposure=None, timeout=5.0, program=("hxcam",)):
        if timeout <= 0:
            raise ValueError("the time-out must be greater than 0")
        command = [*program, "capture", "--quiet", "-o", "-", "-n", str(count),
                   "--timeout", f"{max(1, round(timeout * 1000))}ms"]
        if camera is not None:
            command += ["--camera", str(camera)]
        if exposure is not None:
            command += ["--exposure", str(exposure)]
        self._timeout = timeout
        self._count = count
        self._taken = 0
        self._pending = bytearray()
        # A file: a pipe that nobody reads would hold the child up when it is full.
        self._messages = tempfile.TemporaryFile()
        try:
            self._child = subprocess.Popen(command, stdin=subprocess.DEVNULL,
                                           stdout=subprocess.PIPE, stderr=self._messages)
        except OSError as fault:
            self._messages.close()
            raise CameraError(f"{command[0]}: {fault.strerror}") from fault
        self._output = select.poll()
        self._output.register(self._child.stdout, select.POLLIN)

    def __del__(self):
        self.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def __iter__(self):
        return self

    def __next__(self):
        if self._child is None:
            raise StopIteration
        waits = 1 if self._taken else 3
        deadline = time.monotonic() + waits * self._timeout + GRACE_SECONDS
        size = container_size(lambda size: self._take(size, deadline))
        container = bytes(self._take(size, deadline)[:size])
        del self._pending[:size]
        self._taken += 1
        return parse(container)[0]

    def close(self):
        """Ends the capture and frees the camera."""
        if self._child is None:
            return
        child, self._child = self._child, None
        child.stdout.close()
        child.terminate()
        try:
            child.wait(GRACE_SECONDS)
        except subprocess.TimeoutExpired:
            child.kill()
            child.wait()
        self._messages.close()

    def _take(self, size, deadline):
        """What was read, when `size` bytes of it are there."""
        if size > LARGEST_FRAME:
            self.close()
            raise CameraError(f"hxcam announced a frame of {size} bytes")
        while len(self._pending) < size:
            left = max(0, deadline - time.monotonic())
            if not self._output.poll(1000 * left):
                self.close()
                raise CameraTimeout("hxcam does not answer")
            data = os.read(self._child.stdout.fileno(), READ_SIZE)
            if not data:
                self._end()
            self._pending += data
        return self._pending

    def _end(self):
        """The child has closed its output: the end, or the reason why."""
        try:
            code = self._child.wait(GRACE_SECONDS)
        except subprocess.TimeoutExpired:
            code = None
        self._messages.seek(0)
        text = self._messages.read().decode(errors="backslashreplace").strip()
        self.close()
        if code == 0 and not self._pending and self._taken == self._count:
            raise StopIteration
        raise ERRORS.get(code, CameraError)(text or f"hxcam ended with status {code}")
