# SPDX-License-Identifier: MIT
"""Live frames, by way of the command hxcam."""

import os
import select
import subprocess
import tempfile
import time

from .container import COUNT, HEADER, RECORD, parse, table_offset

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
    timeout   longest wait for the start and for each frame, in seconds
    program   the command hxcam, with words before it if need be

    Frames that wait because the program is slow are kept for a moment; then frames are lost. Use it
    in a with statement, or call close(): the camera is held until then.
    """

    def __init__(self, camera=None, *, count=0, exposure=None, timeout=5.0, program=("hxcam",)):
        if timeout <= 0:
            raise ValueError("the time-out must be greater than 0")
        command = [*program, "capture", "--quiet", "-o", "-", "-n", str(count),
                   "--timeout", f"{max(1, round(timeout * 1000))}ms"]
        if camera is not None:
            command += ["--camera", str(camera)]
        if exposure is not None:
            command += ["--exposure", str(exposure)]
        self._wait = timeout + GRACE_SECONDS
        self._pending = bytearray()
        # A file: a pipe that nobody reads would hold the child up when it is full.
        self._messages = tempfile.TemporaryFile()
        try:
            self._child = subprocess.Popen(command, stdin=subprocess.DEVNULL,
                                           stdout=subprocess.PIPE, stderr=self._messages)
        except OSError:
            self._messages.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def __iter__(self):
        return self

    def __next__(self):
        if self._child is None:
            raise StopIteration
        deadline = time.monotonic() + self._wait
        if not self._fill(HEADER.size, deadline):
            self._end()
        table = table_offset(self._pending)
        self._need(table + COUNT.size, deadline)
        (entries,) = COUNT.unpack_from(self._pending, table)
        size = table + COUNT.size + RECORD.size * entries
        self._need(size, deadline)
        container = bytes(self._pending[:size])
        del self._pending[:size]
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

    def _need(self, size, deadline):
        if size > LARGEST_FRAME:
            self.close()
            raise CameraError(f"hxcam announced a frame of {size} bytes")
        if not self._fill(size, deadline):
            self._end()

    def _fill(self, size, deadline):
        """Reads until `size` bytes are there. False when the child ends before that."""
        pipe = self._child.stdout.fileno()
        while len(self._pending) < size:
            left = max(0, deadline - time.monotonic())
            if not select.select([pipe], [], [], left)[0]:
                self.close()
                raise CameraTimeout("hxcam does not answer")
            data = os.read(pipe, READ_SIZE)
            if not data:
                return False
            self._pending += data
        return True

    def _end(self):
        """The child has closed its output: the end, or the reason why."""
        try:
            code = self._child.wait(GRACE_SECONDS)
        except subprocess.TimeoutExpired:
            code = None
        self._messages.seek(0)
        text = self._messages.read().decode(errors="backslashreplace").strip()
        self.close()
        if code == 0:
            raise StopIteration
        raise ERRORS.get(code, CameraError)(text or f"hxcam ended with status {code}")
