# SPDX-License-Identifier: MIT
"""Checks that the icons are legible at 16 pixels on light and dark panels, and differ clearly.

usage: check_icons.py ICON_THEME_FOLDER
"""

import pathlib
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

NAME = "com.vantrel.korvel.RecordAudio"
SIZE_PX = 16
# Panels of light and dark desktops, and the colour of symbolic icons on them.
PANELS = {"light": ("#fafafa", "#2e3436"), "dark": ("#242424", "#f6f5f4")}
# A shape is visible if this share of all pixels has the contrast to the panel that the
# accessibility guidelines require for graphics.
CONTRAST = 3.0
SHARE = 0.12

problems = []


def pixels(svg, background, colour=None):
    """Returns rows of (r, g, b), drawn at SIZE_PX on the background."""
    with tempfile.TemporaryDirectory() as folder:
        command = ["rsvg-convert", "-w", str(SIZE_PX), "-h", str(SIZE_PX), "-b", background]
        if colour:
            style = pathlib.Path(folder, "style.css")
            style.write_text(f"* {{ color: {colour}; }} path, circle, rect, g "
                             f"{{ fill: {colour} !important; }}")
            command += ["--stylesheet", style]
        picture = pathlib.Path(folder, "icon.png")
        subprocess.run(command + ["-o", picture, svg], check=True, timeout=60)
        raw = subprocess.run(["ffmpeg", "-v", "error", "-i", picture, "-f", "rawvideo",
                              "-pix_fmt", "rgb24", "-"], check=True, capture_output=True,
                             timeout=60).stdout
    return [tuple(raw[at:at + 3]) for at in range(0, len(raw), 3)]


def luminance(colour):
    parts = [value / 255 for value in colour]
    linear = [part / 12.92 if part <= 0.03928 else ((part + 0.055) / 1.055) ** 2.4
              for part in parts]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


def contrast(one, other):
    bright, dark = sorted((luminance(one), luminance(other)), reverse=True)
    return (bright + 0.05) / (dark + 0.05)


def rgb(text):
    return tuple(int(text[at:at + 2], 16) for at in (1, 3, 5))


def check(kind, suffix):
    drawn = {}
    for phase in ("", "-active"):
        svg = folder / kind / "apps" / f"{NAME}{phase}{suffix}.svg"
        ElementTree.parse(svg)
        for panel, (background, colour) in PANELS.items():
            picture = pixels(svg, background, colour if kind == "symbolic" else None)
            drawn[phase, panel] = picture
            if len(picture) != SIZE_PX * SIZE_PX:
                problems.append(f"{svg.name} is not {SIZE_PX} pixels wide and high")
            # A light shape inside a dark one is visible on both panels.
            share = sum(contrast(pixel, rgb(background)) >= CONTRAST
                        for pixel in picture) / len(picture)
            if share < SHARE:
                problems.append(f"{svg.name} is hardly visible on a {panel} panel: {share:.0%}")
            if share > 0.95:
                problems.append(f"{svg.name} is a mere square on a {panel} panel")
    for panel in PANELS:
        different = sum(one != other
                        for one, other in zip(drawn["", panel], drawn["-active", panel]))
        if different < 0.1 * SIZE_PX * SIZE_PX:
            problems.append(f"{kind}: idle and active look alike on a {panel} panel ({different})")


folder = pathlib.Path(sys.argv[1])
check("scalable", "")
check("symbolic", "-symbolic")
for problem in problems:
    print(problem)
sys.exit(1 if problems else 0)
