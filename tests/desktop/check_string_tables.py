# SPDX-License-Identifier: MIT
"""Checks that every text shown to the user is in every string table, and nothing else is, and that
the translations keep to the rules of their languages (translation_rules.py).

Reads the sources, the windows and the tables, so it fails when a text is added and not translated.

usage: check_string_tables.py SOURCE_FOLDER
"""

import pathlib
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

sys.dont_write_bytecode = True  # the sources may be read-only

import translation_rules  # noqa: E402

LANGUAGES = """ar cs da de el es fa fi fr he hi hu id it ja ko nb nl pl pt pt_BR ro ru sv th tr uk vi zh_CN
    zh_TW""".split()

# Where texts for the user are.
ROOMS = """app settings shared capture routing suite hosts/linux hosts/linux/indicator hosts/linux/host
    hosts/linux/windows hosts/linux/windows_gtk hosts/linux/windows_qt hosts/linux/notifications
    hosts/linux/power""".split()

# Calls whose texts go to the log, to standard output or over the bus, and stay English.
UNSHOWN_CALLS = re.compile(
    r"VKLogVariadic|log\w*|reportOnce|failRecording|runtime_error|logic_error|invalid_argument|CommandLineError"
    r"|g_dbus\w*|g_variant\w*|printf|snprintf|asm|volatile|assert\w*|static_assert|emit|warn\w*")
UNSHOWN_FILES = {"app/command_line.cpp", "capture/mp3_encoding.cpp", "capture/mp3_encoder.cpp"}

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<preprocessor>^[ \t]*\#[^\n]*)
      | R"(?P<mark>\w*)\((?P<raw>.*?)\)(?P=mark)"
      | "(?P<string>(?:\\.|[^"\\\n])*)"
      | '(?:\\.|[^'\\])'
      | (?P<name>[A-Za-z_]\w*)
      | (?P<space>\s+)
      | (?P<other>.)""", re.S | re.X | re.M)


def decoded(literal):
    text = re.sub(r"\\u([0-9a-fA-F]{4})", lambda found: chr(int(found.group(1), 16)), literal)
    return (text.replace(r"\n", "\n").replace(r"\"", '"').replace(r"\t", "\t")
            .replace("\\\\", "\\"))


def literals(source):
    """Yields (literal, names of the enclosing calls), with adjacent literals joined."""
    calls, name, joined = [], "", None
    for token in TOKEN.finditer(source):
        kind = token.lastgroup if token.lastgroup != "mark" else "raw"
        if kind in ("comment", "preprocessor", "space"):
            continue
        if kind == "string":
            joined = (joined or "") + decoded(token.group("string"))
            continue
        if joined is not None:
            yield joined, list(calls)
            joined = None
        if kind == "name":
            name = token.group()
            continue
        if token.group() in "({":
            calls.append(name if token.group() == "(" else "")
        elif token.group() in ")}" and calls:
            calls.pop()
        elif token.group() == ";":
            while calls and calls[-1] != "":
                calls.pop()
        if token.group() not in "<>:":
            name = ""
    if joined is not None:
        yield joined, []


def looks_like_text(literal):
    """Whether the literal is a sentence, several words, or one word as on a button."""
    if re.search(r"[A-Za-z]{2,} [A-Za-z&]", literal):
        return True
    return re.fullmatch(r"[A-Z][a-z]+[….:]?", literal) is not None


def texts_in_code(root):
    """Returns the literals that may be shown, with their files; and all literals."""
    shown, everything = {}, set()
    for room in ROOMS:
        for path in sorted((root / room).glob("*.cpp")) + sorted((root / room).glob("*.h")):
            name = str(path.relative_to(root))
            for literal, calls in literals(path.read_text(encoding="utf-8")):
                everything.add(literal)
                if name in UNSHOWN_FILES:
                    continue
                silent = any(UNSHOWN_CALLS.fullmatch(call) for call in calls)
                if calls[-1:] == ["localizedString"] or (looks_like_text(literal) and not silent):
                    shown.setdefault(literal, name)
    return shown, everything


def texts_in_windows(root):
    texts = set()
    for path in (root / "resources/windows").glob("*.ui"):
        for string in ElementTree.parse(path).iter("string"):
            if string.get("notr") != "true" and string.text:
                texts.add(string.text)
    for path in (root / "resources/windows_gtk").glob("*.ui"):
        for element in ElementTree.parse(path).iter():
            if element.get("translatable") == "yes" and element.text:
                texts.add(element.text)
    return texts


def table(path):
    """Returns msgid to msgstr, as read by gettext's own tool."""
    lines = subprocess.run(["msgcat", "--no-wrap", "--no-location", path], check=True,
                           capture_output=True, encoding="utf-8").stdout.splitlines()
    entries, key, current = {}, None, None
    for line in lines + [""]:
        found = re.match(r'(msgid|msgstr)?\s*"(.*)"$', line)
        if line.startswith("#") or not found:
            continue
        text = decoded(found.group(2))
        if found.group(1) == "msgid":
            key, current = text, "id"
        elif found.group(1) == "msgstr":
            entries[key], current = text, "str"
        elif current == "id":
            key += text
        else:
            entries[key] += text
    entries.pop("", None)
    return entries


def check(root):
    shown, everything = texts_in_code(root)
    not_shown = set((root / "tests/desktop/texts_not_shown.txt")
                    .read_text(encoding="utf-8").split("\n"))
    windows = texts_in_windows(root)
    shown = {text: name for text, name in shown.items() if text.strip() not in not_shown}
    used = set(shown) | windows
    problems = [f"tests/desktop/texts_not_shown.txt has {text!r}, which is not in the code"
                for text in not_shown - {text.strip() for text in everything} - {""}]

    folder = root / "resources/strings"
    languages = sorted(path.stem for path in folder.glob("*.po"))
    if languages != sorted(LANGUAGES + ["en"]):
        problems.append(f"the tables are {languages}")
    for path in sorted(folder.glob("*.po")):
        result = subprocess.run(["msgfmt", "--check", "-o", "/dev/null", path],
                                capture_output=True, encoding="utf-8")
        if result.returncode != 0:
            problems.append(result.stderr)
            continue
        entries = table(path)
        if path.stem != "en":
            problems += [f"{path.name} lacks {text!r} ({shown.get(text, 'a window')})"
                         for text in sorted(used - set(entries))]
        for key, text in entries.items():
            if key not in everything | windows:
                problems.append(f"{path.name}: nothing uses {key!r}")
            if not text:
                problems.append(f"{path.name}: {key!r} is not translated")
        problems += [f"{path.name}: {problem}" for problem in
                     translation_rules.problems_of_table(path.stem, entries, windows)]
    if len(used) < 40:
        problems.append(f"only {len(used)} texts found: the sources are not parsed correctly")
    return problems, len(used)


def main():
    problems, count = check(pathlib.Path(sys.argv[1]))
    for problem in problems:
        print(problem)
    print(f"{count} texts in {len(LANGUAGES)} languages, {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
