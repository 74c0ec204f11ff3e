# SPDX-License-Identifier: MIT
"""The copy of the tree in which the mutants are built, with all of a file's mutants behind switches."""
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess

import mutants as finder

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
WORK = TOP / "build-mutants"
TREE = WORK / "tree"
BUILD = TREE / "build-plain"
UNSWITCHABLE = WORK / "unswitchable.json"
JOBS = os.cpu_count() or 1
DRIVER_TEST = "driver_parts_test"  # the only one without a sound server
NUMBERS_PER_FILE = 4096  # as many mutants may one file have; switch.h has room for 64 files

# What the compiler says of a switch that does not fit, the plainest first.
COMPLAINTS = (r":\d+: (?:fatal )?error: ", r":\d+:\s+required from", r":\d+: note: ")


def digest(data):
    return hashlib.sha256(data).hexdigest()[:16]


def write_if_new(path, data):
    if path.is_file() and path.read_bytes() == data:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data)


class File:
    """A source and its mutants."""

    def __init__(self, path, index):
        self.path = path
        self.room = path.split("/")[0]
        self.text = (TOP / path).read_text()
        self.id = f"{path} {digest(self.text.encode())}"
        self.mutants = finder.numbered(self.text, 1 + index * NUMBERS_PER_FILE)
        for mutant in self.mutants:
            mutant.file = self
            mutant.key = f"{self.id} {mutant.start} {mutant.end} {mutant.instead}"
            mutant.old, mutant.new = mutant.lines(self.text)
        self.unswitchable = set()  # numbers

    def line_of(self, place):
        return self.text.count("\n", 0, place) + 1

    def switched(self):
        return finder.switched(
            self.text, [m for m in self.mutants if m.number not in self.unswitchable])

    def take_out(self, line):
        """Takes out the switches that begin or end on a line. Whether there was one."""
        found = False
        for i, mutant in enumerate(self.mutants):
            places = [place for switch in mutant.switches for place in switch[:2]]
            if mutant.number in self.unswitchable or line not in map(self.line_of, places):
                continue
            found = True
            self.unswitchable.add(mutant.number)
            if i + 1 < len(self.mutants) and not self.mutants[i + 1].switches:
                self.unswitchable.add(self.mutants[i + 1].number)  # made by the same switch
        return found

    def write_with(self, mutant):
        """Into the copy, with this mutant instead of switches."""
        text = self.text[:mutant.start] + mutant.instead + self.text[mutant.end:]
        write_if_new(TREE / self.path, text.encode())

    def write(self):
        write_if_new(TREE / self.path, self.switched().encode())


def update(files):
    """Brings the copy up to date with the working tree."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=TOP, check=True,
                            capture_output=True, text=True).stdout.splitlines()
    names = {name for name in listed if os.path.lexists(TOP / name)}
    for name in names - {file.path for file in files}:
        source, copy = TOP / name, TREE / name
        if source.is_symlink():
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.unlink(missing_ok=True)
            copy.symlink_to(os.readlink(source))
        else:
            write_if_new(copy, source.read_bytes())
            shutil.copymode(source, copy)
    for file in files:
        file.write()
    for folder, folders, contents in os.walk(TREE):
        folders[:] = [name for name in folders if pathlib.Path(folder, name) != BUILD]
        for name in contents:
            if os.path.relpath(os.path.join(folder, name), TREE) not in names:
                os.unlink(os.path.join(folder, name))


def make(rooms):
    """Builds the tests of these rooms; what the build said, or None if all went well."""
    if not (BUILD / "build.ninja").exists():
        subprocess.run(["cmake", "--preset", "dev", "-S", TREE, "-B", BUILD, "-DRA_HOST=OFF",
                        "-DRA_BENCH=OFF",
                        f"-DCMAKE_PROJECT_INCLUDE={TREE}/tests/mutation/switches.cmake"],
                       cwd=TREE, check=True, stdout=subprocess.DEVNULL)
    targets = [DRIVER_TEST if room == "driver" else f"tests/{room}/all" for room in rooms]
    done = subprocess.run(["ninja", "-C", BUILD, "-j", str(JOBS), "-k", "0", *targets],
                          capture_output=True, text=True)
    return done.stdout if done.returncode else None


def take_out(complaints, files):
    """Takes out the switches that the compiler does not like. Whether there were any."""
    by_path = {file.path: file for file in files}
    for complaint in COMPLAINTS:
        taken = False
        for match in re.finditer(rf"^(\S+?):(\d+){complaint}", complaints, re.MULTILINE):
            path = os.path.relpath(BUILD / match[1], TREE)
            taken = (path in by_path and by_path[path].take_out(int(match[2]))) or taken
        if taken:
            return True
    return False


def build(files, rooms):
    """Updates the copy and builds the tests. Mutants whose switches do not compile have none then."""
    known = json.loads(UNSWITCHABLE.read_text()) if UNSWITCHABLE.exists() else {}
    for file in files:
        file.unswitchable = {file.mutants[i].number for i in known.get(file.id, [])}
    update(files)
    while complaints := make(rooms):
        if not take_out(complaints, files):
            raise SystemExit(f"{complaints[-6000:]}\nThe copy in {TREE} does not compile.")
        UNSWITCHABLE.write_text(json.dumps({
            file.id: [i for i, mutant in enumerate(file.mutants)
                      if mutant.number in file.unswitchable] for file in files}))
        for file in files:
            file.write()
