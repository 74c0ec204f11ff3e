# SPDX-License-Identifier: MIT
"""The test programs: which test comes to which switch, and whether tests pass with a mutant."""
import collections
import json
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time

from copy_of_tree import BUILD, DRIVER_TEST, WORK, digest

ASLEEP_S = 10  # a program whose threads have all been asleep for so long hangs
MEMORY_BYTES = 4 << 30
SLOW_TEST_S = 0.5


def is_asleep(pid):
    try:
        return all(stat.read_text().rpartition(")")[2].split()[0] == "S"
                   for stat in pathlib.Path(f"/proc/{pid}/task").glob("*/stat"))
    except (OSError, IndexError):
        return False


class Program:
    def __init__(self, room, entry):
        self.room = room
        self.command = entry["command"]
        self.environment = dict(os.environ)
        for field in entry["properties"]:
            if field["name"] == "ENVIRONMENT":
                self.environment.update(value.split("=", 1) for value in field["value"])
        self.digest = digest(pathlib.Path(self.command[0]).read_bytes())
        self.tests = {}  # name: (processor seconds, switches that it comes to, impossible ones)
        self.impossible = set()
        self.reaching = collections.defaultdict(list)  # number of a switch: names of tests

    def run(self, tests, cpu_s, **environment):
        """Whether the tests pass, and the processor time. What spins or hangs does not pass."""
        with tempfile.TemporaryDirectory(prefix="ra-mutant-", ignore_cleanup_errors=True) as folder:
            process = subprocess.Popen(
                ["prlimit", f"--cpu={int(cpu_s)}", "--core=0", f"--data={MEMORY_BYTES}",
                 *self.command, f"--gtest_filter={':'.join(tests)}", "--gtest_fail_fast"],
                env={**self.environment, "TMPDIR": folder, **environment}, cwd=folder,
                start_new_session=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL)
            return self.end_of(process)

    @staticmethod
    def end_of(process):
        looks_at, asleep, pause_s, ended = time.monotonic() + 1, 0, 0.002, 0
        try:
            while not ended and asleep < ASLEEP_S:
                ended, status, usage = os.wait4(process.pid, os.WNOHANG)
                if not ended:
                    time.sleep(pause_s)
                    pause_s = min(2 * pause_s, 0.1)
                if time.monotonic() > looks_at:
                    looks_at += 1
                    asleep = asleep + 1 if is_asleep(process.pid) else 0
        finally:
            if not ended:
                os.killpg(process.pid, signal.SIGKILL)
                _, status, usage = os.wait4(process.pid, 0)
            process.returncode = status
        return status == 0, usage.ru_utime + usage.ru_stime

    def names(self):
        listed = subprocess.run([*self.command, "--gtest_list_tests"], env=self.environment,
                                check=True, capture_output=True, text=True).stdout
        suite = ""
        for line in listed.splitlines():
            name = line.split("#")[0].strip()
            if not line.startswith(" "):
                suite = name
            elif not name.startswith("DISABLED_"):
                yield suite + name

    def learn_of(self, test):
        with tempfile.NamedTemporaryFile(dir=WORK) as reached:
            for _ in range(3):
                passes, cpu_s = self.run([test], 600, RA_REACHED=reached.name)
                if passes:
                    marks = pathlib.Path(reached.name).read_bytes()
                    return cpu_s, *([match.start() for match in re.finditer(mark, marks)]
                                    for mark in (b"\x01", b"\x02"))
        raise SystemExit(f"{self.command[0]}: {test} fails without any mutant")

    def learn(self, pool):
        """What the tests come to, unless that is known of the same program."""
        known = WORK / "reached" / f"{self.digest}.json"
        if known.exists():
            self.tests = json.loads(known.read_text())
        else:
            names = list(self.names())
            self.tests = dict(zip(names, pool.map(self.learn_of, names)))
            known.parent.mkdir(exist_ok=True)
            known.write_text(json.dumps(self.tests))
        for name, (_, numbers, impossible) in self.tests.items():
            self.impossible.update(impossible)
            for number in numbers:
                self.reaching[number].append(name)


def of_rooms(rooms, pool):
    found = []
    for room in rooms:
        listed = subprocess.run(
            ["ctest", "--test-dir", BUILD / "tests" / room, "--show-only=json-v1"],
            check=True, capture_output=True, text=True).stdout
        found += [Program(room, entry) for entry in json.loads(listed)["tests"]
                  if room != "driver" or entry["name"] == DRIVER_TEST]
    for program in found:
        program.learn(pool)
    return found


def verdict(mutant, programs):
    """Of the tests of its room on a mutant that is switched on, or compiled in."""
    batches = []
    for program in programs:
        if program.room != mutant.file.room:
            continue
        if mutant.number in program.impossible:
            return "not compiled"
        tests = program.reaching[mutant.number]
        if mutant.number in mutant.file.unswitchable:
            tests = list(program.tests)
        for is_slow in (False, True):
            batch = [test for test in tests if (program.tests[test][0] > SLOW_TEST_S) == is_slow]
            if batch:
                cost_s = sum(program.tests[test][0] for test in batch)
                batches.append((is_slow, cost_s, program, batch))
    for _, cost_s, program, tests in sorted(batches, key=lambda batch: batch[:2]):
        if not program.run(tests, 3 + 10 * cost_s, RA_MUTANT=str(mutant.number))[0]:
            return "noticed"
    return "survived"
