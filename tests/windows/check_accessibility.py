# SPDX-License-Identifier: MIT
"""Reads the preferences window through AT-SPI, as a screen reader does. Checks that every control
has a name and the right role, that no name contains a mnemonic's ampersand, and that microphones
that are plugged in and out while the menu of audio sources is open come and go in it at once.

Usage: check_accessibility.py PROGRAM gtk|qt, in a private session with a bus
(scripts/private-session). The second argument is the toolkit of the window.
"""

import os
import subprocess
import sys
import time

PREFERENCES = "a5f597ea-d3f3-4347-bbe6-344e240acc7e"
LAUNCHER = "/usr/libexec/at-spi-bus-launcher"
DEADLINE_S = 30
# From the moment at which a device has come or gone until the menu shows it. Most of GTK's time goes
# into reading its many nested widgets.
UPDATE_LIMIT_S = {"gtk": 0.6, "qt": 0.2}
PLUGGINGS = 5
# AT-SPI's role names, with the number of each: the link to the privacy settings is visible only
# while access to the microphone is denied.
EXPECTED = {"gtk": {"combo box": 3, "button": 2, "link": 1, "level bar": 1},
            "qt": {"combo box": 3, "button": 2, "link": 1, "progress bar": 1}}
AUDIO_SOURCE = {"gtk": "Audio source", "qt": "Audio source:"}
# The names of roles in earlier releases of AT-SPI.
EARLIER_NAMES = {"push button": "button"}


def wait_for(what, condition):
    deadline = time.monotonic() + DEADLINE_S
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.05)
    sys.exit(f"gave up waiting for {what}")


def start_screen(children):
    reader, writer = os.pipe()
    children.append(
        subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", "800x600x24",
             "-nolisten", "tcp", "-noreset"],
            pass_fds=[writer], stderr=subprocess.DEVNULL))
    os.close(writer)
    os.environ["DISPLAY"] = ":" + os.read(reader, 16).decode().strip()


def walk(accessible):
    yield accessible
    for index in range(accessible.childCount):
        child = accessible.getChildAtIndex(index)
        if child is not None:
            yield from walk(child)


def role_of(accessible):
    name = accessible.getRoleName()
    return EARLIER_NAMES.get(name, name)


def shown(accessible, toolkit, pyatspi):
    """GTK lists only what is shown, and its older releases say of nothing that it is showing."""
    return toolkit == "gtk" or accessible.getState().contains(pyatspi.STATE_SHOWING)


def labels_of(accessible, pyatspi):
    return [
        relation.getTarget(index).name
        for relation in accessible.getRelationSet()
        if relation.getRelationType() == pyatspi.RELATION_LABELLED_BY
        for index in range(relation.getNTargets())
    ]


def problems_of(window, toolkit, pyatspi):
    problems = []
    counts = dict.fromkeys(EXPECTED[toolkit], 0)
    for node in walk(window):
        role = role_of(node)
        if not shown(node, toolkit, pyatspi):
            continue
        if role in counts:
            counts[role] += 1
            if not node.name:
                problems.append(f"a {role} has no name")
            labels = labels_of(node, pyatspi)
            # A combo box's name is its current choice; its label says what it is for.
            if role == "combo box" and not any(labels):
                problems.append(f"nothing says what the combo box {node.name!r} is for")
            print(f"{role}: {labels} {node.name!r}; {node.description!r}")
        if "&" in node.name:
            problems.append(f"{role} {node.name!r} would be read with its ampersand")
    if counts != EXPECTED[toolkit]:
        problems.append(f"there are {counts}, not {EXPECTED[toolkit]}")
    if not any("level" in node.name.lower() for node in walk(window)):
        problems.append("the level has no name")
    return problems


def combo_box_labelled(window, label, pyatspi):
    for node in walk(window):
        if node.getRoleName() == "combo box" and label in labels_of(node, pyatspi):
            return node
    sys.exit(f"there is no combo box {label!r}")


def items_of(box):
    names = []
    for node in walk(box):
        node.clearCache()
        if node.getRoleName() == "list item":
            names.append(node.name)
    return names


def is_open(box, pyatspi):
    box.clearCache()
    return box.getState().contains(pyatspi.STATE_EXPANDED)


def give_keyboard(toolkit):
    """As a window manager would; there is none."""
    if toolkit == "gtk":
        subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "Preferences",
                        "windowfocus", "--sync"], check=True)


def turn_wheel_and_press_arrows():
    """On the closed box, in the window's first row: a step too far would choose "Computer", which
    begins to install a driver."""
    for act in ("mousemove 320 100", "click 5", "click 5", "click 4", "mousemove 700 560",
                "key Down", "key Up"):
        subprocess.run(["xdotool", *act.split()], check=True)


class SoundServer:
    """A PipeWire shell that stays open, so that no program's start is measured."""

    def __init__(self):
        self.shell = subprocess.Popen(["pw-cli"], stdin=subprocess.PIPE,
                                      stdout=subprocess.DEVNULL, text=True)

    def tell(self, command):
        self.shell.stdin.write(command + "\n")
        self.shell.stdin.flush()

    def plug_in(self, name):
        self.tell("create-node adapter { factory.name = support.null-audio-sink "
                  f"node.name = {name} node.description = {name} "
                  "media.class = Audio/Source/Virtual audio.position = [ MONO ] "
                  "object.linger = true }")

    def pull_out(self, name):
        self.tell(f"destroy {name}")

    def close(self):
        self.shell.terminate()
        self.shell.wait()


def open_menu(box, toolkit):
    if toolkit == "qt":
        box.queryAction().doAction(0)
    else:
        # The first row has the keyboard; GTK's combo rows offer no action.
        subprocess.run(["xdotool", "key", "space"], check=True)


def late_updates(box, toolkit, pyatspi):
    """Opens the menu, plugs microphones in and out, and measures how soon the menu shows it."""
    server = SoundServer()
    times_ms = []
    try:
        if is_open(box, pyatspi):
            return ["the menu is open before anybody has opened it"]
        open_menu(box, toolkit)
        wait_for("the open menu", lambda: is_open(box, pyatspi))
        for number in range(PLUGGINGS):
            name = f"plugged-{number}"
            for act, there in ((server.plug_in, True), (server.pull_out, False)):
                begin = time.monotonic()
                act(name)
                deadline = begin + DEADLINE_S
                while (name in items_of(box)) != there:
                    if time.monotonic() > deadline:
                        return [f"the open menu never {'showed' if there else 'lost'} {name}"]
                if not is_open(box, pyatspi):
                    return [f"the menu closed when {name} came or went"]
                times_ms.append(round((time.monotonic() - begin) * 1000))
    finally:
        server.close()
    print(f"open menu: updated after {times_ms} ms")
    # A busy machine may be late once; a menu that is always late is not live.
    usual_s = sorted(times_ms)[len(times_ms) // 2] / 1000
    return [] if usual_s < UPDATE_LIMIT_S[toolkit] else [f"the menu is updated after {usual_s} s only"]


def main():
    program, toolkit = sys.argv[1:]
    children = []
    try:
        start_screen(children)
        children.append(subprocess.Popen([LAUNCHER, "--launch-immediately"]))
        # Imported only now, because the library looks for the bus when it is loaded.
        wait_for("the accessibility bus", lambda: subprocess.run(
            ["gdbus", "call", "--session", "--dest", "org.a11y.Bus", "--object-path",
             "/org/a11y/bus", "--method", "org.a11y.Bus.GetAddress"],
            capture_output=True, check=False).returncode == 0)
        import pyatspi

        environment = dict(os.environ, QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", LANGUAGE="en",
                           RECORD_AUDIO_WINDOWS=toolkit, GSK_RENDERER="cairo")
        children.append(subprocess.Popen([program, PREFERENCES], env=environment))

        def preferences_window():
            desktop = pyatspi.Registry.getDesktop(0)
            for application in desktop:
                for window in application or []:
                    if window is not None and "Preferences" in window.name:
                        return window
            return None

        window = wait_for("the preferences window", preferences_window)
        wait_for("its controls", lambda: sum(1 for _ in walk(window)) > 10)
        problems = problems_of(window, toolkit, pyatspi)
        source = combo_box_labelled(window, AUDIO_SOURCE[toolkit], pyatspi)
        chosen = items_of(source)[:1]
        give_keyboard(toolkit)
        if toolkit == "gtk":
            turn_wheel_and_press_arrows()
        # Opening the menu comes after that, so all of it has been dealt with then.
        problems += late_updates(source, toolkit, pyatspi)
        if toolkit == "gtk" and items_of(source)[:1] != chosen:
            problems.append(f"the closed box showed {chosen} and now {items_of(source)[:1]}")
        for problem in problems:
            print(problem, file=sys.stderr)
        return 1 if problems else 0
    finally:
        for child in reversed(children):
            child.terminate()
            child.wait()


sys.exit(main())
