# SPDX-License-Identifier: MIT
"""Checks that the desktop entry is valid, is found by common search words in every language, and
tells the desktop what the program does.

usage: check_desktop_entry.py DESKTOP_FILE
"""

import configparser
import pathlib
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # the sources may be read-only

from check_string_tables import LANGUAGES  # noqa: E402

# In the Sound category, as a recorder.
CATEGORIES = {"AudioVideo", "Audio", "Recorder"}
# The file formats have the same names in every language.
WORDS_EVERYWHERE = {"mp3", "m4a"}
FEWEST_KEYWORDS = 6


def words(value):
    return {word for word in value.split(";") if word}


def check(entry):
    main = entry["Desktop Entry"]
    problems = []
    if missing := CATEGORIES - words(main.get("Categories", "")):
        problems.append(f"Categories lacks {sorted(missing)}")
    # Without this a desktop does not offer to switch the program's notifications on and off.
    if main.get("X-GNOME-UsesNotifications") != "true":
        problems.append("X-GNOME-UsesNotifications is not true")
    # Through these a desktop matches windows to this launcher, and offers no second window.
    if main.get("StartupWMClass") != pathlib.Path(sys.argv[1]).stem:
        problems.append("StartupWMClass is not the name of the file, which the windows have")
    if main.get("SingleMainWindow") != "true":
        problems.append("SingleMainWindow is not true")
    for section in entry.sections():
        for key in {key.split("[")[0] for key in entry[section] if "[" in key}:
            for language in LANGUAGES:
                if f"{key}[{language}]" not in entry[section]:
                    problems.append(f"{section}: {key} lacks {language}")
    for key in ["Keywords"] + [f"Keywords[{language}]" for language in LANGUAGES]:
        found = words(main.get(key, ""))
        if len(found) < FEWEST_KEYWORDS or not WORDS_EVERYWHERE <= found:
            problems.append(f"{key} has only {sorted(found)}")
    return problems


def refusals(path):
    """The validator's complaints, except about the newest key, which it may not know yet."""
    text = pathlib.Path(path).read_text(encoding="utf-8")
    with tempfile.TemporaryDirectory() as folder:
        known = pathlib.Path(folder, pathlib.Path(path).name)
        known.write_text(text.replace("SingleMainWindow=true\n", ""), encoding="utf-8")
        result = subprocess.run(["desktop-file-validate", known], capture_output=True,
                                encoding="utf-8", check=False)
    return [result.stdout] if result.returncode != 0 else []


def main():
    path = sys.argv[1]
    entry = configparser.ConfigParser(interpolation=None, delimiters="=")
    entry.optionxform = str
    entry.read(path, encoding="utf-8")
    problems = check(entry)
    problems += refusals(path)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
