# SPDX-License-Identifier: MIT
"""Checks that the files that carry their translations themselves have every language: the sound
driver's entry for the password dialog, and what software centres show, whose summary is the
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
TEXTS = 8
LANGUAGE = "{http://www.w3.org/XML/1998/namespace}lang"


def translated(path, tags):
    """Yields each English text of those elements, and its translations by language."""
    for parent in ElementTree.parse(path).iter():
        english, by_language = None, {}
        for element in list(parent) + [None]:
            language = None if element is None else element.get(LANGUAGE)
            if language is None:
                if english is not None:
                    yield english, by_language
                english, by_language = None, {}
                if element is not None and element.tag in tags:
                    english = " ".join(element.text.split())
            elif language in by_language:
                raise SystemExit(f"{path.name} has {english!r} in {language} twice")
            else:
                by_language[language] = element.text


def check(root):
    problems, count = [], 0
    launcher = configparser.ConfigParser(interpolation=None, delimiters="=")
    launcher.optionxform = str
    launcher.read(root / LAUNCHER, encoding="utf-8")
    entry = launcher["Desktop Entry"]
    for name, tags in ((POLICY, {"description", "message"}),
                       (METAINFO, {"summary", "p", "li", "caption"})):
        for english, by_language in translated(root / name, tags):
            count += 1
            if set(by_language) != set(LANGUAGES):
                problems.append(f"{name}: {english!r} is in {sorted(by_language)}")
            for language, text in by_language.items():
                for rule in (punctuation_problems, letter_problems):
                    problems += [f"{name}: {text!r} {problem}"
                                 for problem in rule(language, english, text)]
                if english == entry["Comment"] and text != entry.get(f"Comment[{language}]"):
                    problems.append(f"{name}: {text!r} is not the launcher's Comment[{language}]")
    if count != TEXTS:
        problems.append(f"{count} texts found instead of {TEXTS}: has one come or gone?")
    return problems


def main():
    problems = check(pathlib.Path(sys.argv[1]))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
