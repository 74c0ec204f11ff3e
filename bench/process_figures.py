# SPDX-License-Identifier: MIT
"""What the kernel reports about a running process: its CPU time, its wake-ups, and its memory by
origin."""

import pathlib
import re
import time

# The owner of a mapped file, by its name; the first match counts. Other libraries count as loaded
# by the m4a's encoder, see owner().
OWNERS = [
    ("record-audio", r"record-audio"),
    ("C and C++ library", r"(ld-linux|libc|libm|libstdc\+\+|libgcc_s)[.-]"),
    ("PipeWire", r"lib(pipewire|spa)-|memfd:pipewire|pipewire-|spa-"),
    ("GLib", r"lib(glib|gio|gobject|gmodule|gvfs|dconf|mount|blkid|selinux|ffi|pcre2)|"
             r"gschemas|giomodule|gconv|locale|LC_|.*\.mo$"),
    ("LAME", r"libmp3lame"),
    ("ICU", r"libicu"),
    ("D-Bus of PipeWire", r"lib(dbus|systemd|gcrypt|gpg-error|lz4|lzma|zstd|cap)[.-]"),
    ("libpng and libsamplerate", r"lib(png16|samplerate|z)\."),
]
CODEC = "libavcodec with its libraries"
UNNAMED = "data of all"


def cpu_s(pid):
    """Returns the CPU time of all threads so far, including those that have ended."""
    scheduler_clock = 2  # the low three bits of a process's clock id, as in clock_getcpuclockid
    return time.clock_gettime((~pid << 3) | scheduler_clock)


def wake_ups(pid):
    """Returns how often each running thread has gone to sleep so far, by thread id."""
    counts = {}
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        try:
            status = (task / "status").read_text()
        except (FileNotFoundError, ProcessLookupError):
            continue  # the thread has just ended
        counts[task.name] = int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status, re.M)[1])
    return counts


def wake_ups_between(before, after):
    return sum(count - before.get(thread, 0) for thread, count in after.items())


def peak_mb(pid):
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith("VmHWM:"):
            return int(line.split()[1]) / 1024
    raise RuntimeError("the process has no memory")


def owner(path):
    if not path.startswith("/"):
        return UNNAMED
    name = path.rsplit("/", 1)[1]
    return next((who for who, pattern in OWNERS if re.match(pattern, name)), CODEC)


def memory_by_owner_mb(pid):
    """Returns the resident memory: of mapped files by owner, and the rest as one figure."""
    sums_kb = {}
    current = UNNAMED
    for line in pathlib.Path(f"/proc/{pid}/smaps").read_text().splitlines():
        if head := re.match(r"[0-9a-f]+-[0-9a-f]+ \S+ \S+ \S+ \d+\s*(.*)", line):
            current = owner(head[1])
        elif line.startswith("Rss:"):
            sums_kb[current] = sums_kb.get(current, 0) + int(line.split()[1])
    return {who: kb / 1024 for who, kb in sums_kb.items() if kb > 0}
