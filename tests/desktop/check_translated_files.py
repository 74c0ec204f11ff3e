# SPDX-License-Identifier: MIT
"""Checks that the files that carry their translations themselves have every language: the sound
driver's entry for the password dialog, and the summary that software centres show, which is the
launcher's comment.

usage: check_translated_files.py SOURCE_FOLDER
"""

import configparser
import pathlib
import sys
import xml.etree.ElementTree as ElementTree

sys.dont_write_bytecode = True  # the sources may be read-only

from check_string_tables import LANGUAGES  # noqa: E402
from translation_rules import letter_problems, punctuation_problems  # noqa: E402

POLICY = "driver/polkit/com.vantrel.korvel.install-driver.policy.in"
METAINFO = "resources/desktop/com.vantrel.korvel.RecordAudio.metainfo.xml"
LAUNCHER = "resources/desktop/com.vantrel.korvel.RecordAudio.desktop"
LANGUAGE = "{http://www.w3.org/XML/1998/namespace}lang"


def texts(path, tag):
    """Returns the texts of the elements by language; the English one under None."""
    found = {}
    for element in ElementTree.parse(path).iter(tag):
        if element.get(LANGUAGE) in found:
            raise SystemExit(f"{path.name} has two of {tag} {element.get(LANGUAGE)}")
        found[element.get(LANGUAGE)] = element.text
    return found


def check(root):
    problems = []
    sources = {(POLICY, "description"): {}, (POLICY, "message"): {}, (METAINFO, "summary"): {}}
    for (name, tag), by_language in sources.items():
        by_language.update(texts(root / name, tag))
        if set(by_language) != set(LANGUAGES) | {None}:
            problems.append(f"{name}: {tag} is in {sorted(map(str, by_language))}")
        english = by_language[None]
        for language, text in by_language.items():
            if language is None:
                continue
            for rule in (punctuation_problems, letter_problems):
                problems += [f"{name}: {text!r} {problem}"
                             for problem in rule(language, english, text)]
    launcher = configparser.ConfigParser(interpolation=None, delimiters="=")
    launcher.optionxform = str
    launcher.read(root / LAUNCHER, encoding="utf-8")
    for language, summary in sources[METAINFO, "summary"].items():
        key = f"Comment[{language}]" if language else "Comment"
        if launcher["Desktop Entry"].get(key) != summary:
            problems.append(f"{METAINFO}: {summary!r} is not the launcher's {key}")
    return problems


def main():
    problems = check(pathlib.Path(sys.argv[1]))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
