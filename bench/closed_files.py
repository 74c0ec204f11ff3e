# SPDX-License-Identifier: MIT
"""Notes when the files that a process writes are complete, as the kernel reports it."""

import ctypes
import os
import pathlib
import struct
import threading
import time

IN_CLOSE_WRITE = 0x8
IN_MOVE_SELF = 0x800
EVENT_HEAD = struct.Struct("iIII")  # watch, mask, cookie, bytes of the name that follows


def written_files(pid, below):
    """Returns the process's descriptors that are open for writing on files in a folder, as paths
    that lead to the file itself, whatever its name is or becomes."""
    for descriptor in pathlib.Path(f"/proc/{pid}/fd").iterdir():
        try:
            info = pathlib.Path(f"/proc/{pid}/fdinfo/{descriptor.name}").read_text()
            target = os.readlink(descriptor)
        except FileNotFoundError:
            continue
        flags = int(info.split("flags:")[1].split()[0], 8)
        if target.startswith(f"{below}/") and flags & os.O_ACCMODE != os.O_RDONLY:
            yield str(descriptor)


class ClosedFiles:
    """Notes when the files at these paths are closed by a writer or moved. Watches the files, not
    their folders, which get no events for files that began without a name."""

    def __init__(self, paths):
        libc = ctypes.CDLL(None, use_errno=True)
        self._descriptor = libc.inotify_init1(os.O_CLOEXEC)
        for path in paths:
            if libc.inotify_add_watch(self._descriptor, os.fsencode(path),
                                      IN_CLOSE_WRITE | IN_MOVE_SELF) < 0:
                raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()), path)
        self._closed = False
        self._last_s = None
        threading.Thread(target=self._listen, daemon=True).start()

    def _listen(self):
        while True:
            events = os.read(self._descriptor, 65536)
            now_s = time.monotonic()
            while events:
                _, mask, _, size = EVENT_HEAD.unpack_from(events)
                events = events[EVENT_HEAD.size + size:]
                if mask & (IN_CLOSE_WRITE | IN_MOVE_SELF):
                    self._last_s = now_s
                    self._closed = self._closed or bool(mask & IN_CLOSE_WRITE)

    def complete_s(self):
        """The time of the last event, in time.monotonic(); None while nothing was closed."""
        return self._last_s if self._closed else None
