# SPDX-License-Identifier: MIT
"""The processors' energy as the kernel counts it (powercap), where the machine has counters."""

import pathlib
import time

POWERCAP = pathlib.Path("/sys/class/powercap")
UJ_PER_J = 1e6


class Counter:
    """One processor package. The kernel's count starts again at zero after `range_uj`."""

    def __init__(self, folder):
        self._count = folder / "energy_uj"
        self.range_uj = int((folder / "max_energy_range_uj").read_text())

    def read_uj(self):
        return int(self._count.read_text())


def counters(powercap=POWERCAP):
    """Returns the readable counters of whole packages; none on most virtual machines."""
    found = []
    for folder in sorted(powercap.glob("*:*")):
        try:
            is_package = (folder / "name").read_text().startswith("package")
            counter = Counter(folder)
            counter.read_uj()
        except (OSError, ValueError):
            continue
        if is_package:
            found.append(counter)
    return found


def mean_power_w(packages, duration_s):
    """Returns the mean power of all packages during that time."""
    before, begin_s = [one.read_uj() for one in packages], time.monotonic()
    time.sleep(duration_s)
    elapsed_s = time.monotonic() - begin_s
    used_uj = sum((one.read_uj() - uj) % one.range_uj for one, uj in zip(packages, before))
    return used_uj / UJ_PER_J / elapsed_s
