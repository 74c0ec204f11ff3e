# SPDX-License-Identifier: MIT
"""What a translation must be beside complete: parts of the English text that it keeps, and the
punctuation, letters and direction of its language."""

import re
import unicodedata

# Quotation marks around a word of the program; “ ” in the languages that are not listed.
QUOTES = {
    "ar": "«»", "cs": "„“", "de": "„“", "el": "«»", "es": "«»", "fa": "«»", "fi": "””", "fr": "«»",
    "he": "””", "hu": "„”", "it": "«»", "ja": "「」", "ko": "‘’", "nb": "«»", "nl": "‘’",
    "pl": "„”", "pt": "«»", "ro": "„”", "ru": "«»", "sv": "””", "uk": "«»", "zh_TW": "「」",
}
QUOTATION_MARKS = "«»‹›„“”‘‚「」『』"
FULL_STOPS = {"hi": "।", "ja": "。", "th": "", "zh_CN": "。", "zh_TW": "。"}
QUESTION_MARKS = {"ar": "؟", "el": ";", "fa": "؟", "ja": "？", "zh_CN": "？", "zh_TW": "？"}
# As Unicode calls the letters of the languages that are not written in Latin ones.
SCRIPTS = {
    "ar": "ARABIC", "el": "GREEK", "fa": "ARABIC", "he": "HEBREW", "hi": "DEVANAGARI",
    "ja": "CJK|HIRAGANA|KATAKANA", "ko": "HANGUL", "ru": "CYRILLIC", "th": "THAI",
    "uk": "CYRILLIC", "zh_CN": "CJK", "zh_TW": "CJK",
}
# Letters that look like those of the language and belong to another.
STRANGERS = {"ar": "\u06a9\u06cc", "fa": "\u0643\u064a", "ro": "\u015e\u015f\u0162\u0163",
             "ru": "іїєґ", "uk": "ыэъё"}
# Arabic letters that do not join the next one.
NOT_JOINING = "اأإآدذرزژو"
RIGHT_TO_LEFT = {"ar", "fa", "he"}
FIRST_STRONG_ISOLATE, POP_ISOLATE = "\u2068", "\u2069"
BIDI_CONTROLS = "\u061c\u200e\u200f\u202a\u202b\u202c\u202d\u202e\u2066\u2067\u2068\u2069"
NO_BREAK_SPACE, NARROW_NO_BREAK_SPACE = "\u00a0", "\u202f"

NAMES = {"Record Audio", "m4a (AAC)", "MP3", "OK"}
# A word between the date and the time in a file's name; may be abbreviated.
WORD_BEFORE_TIME = "at"

PLACEHOLDER = re.compile(r"%@|%d|%s|%\d\$@|%[.\d]*[a-z]")
MNEMONIC = re.compile(r"&(?=[^\s&])")


def without_mnemonic(text):
    """The text of a label as the name of its control: "ja" and others write "音質(&Q):"."""
    return re.sub(r"\s*\(&\w\)|&", "", text).rstrip(":：").rstrip(" " + NO_BREAK_SPACE)


def kept_parts(text):
    """Returns the parts of a key that every translation must keep."""
    return {
        "placeholders": PLACEHOLDER.findall(text),
        "line breaks": text.count("\n"),
        "key marks (&)": len(MNEMONIC.findall(text)),
        "end with a colon": text.endswith((":", "：")),
        "ellipsis at the end": text.endswith("…"),
        "blanks around": (text != text.lstrip(), text != text.rstrip()),
    }


def punctuation_problems(language, key, text):
    if re.search(r"[\"'`]|\.\.\.", text):
        yield "has a mark of typewriters"
    if re.search(r"  |[ \u00a0\u202f]\n|\n ", text):
        yield "has a needless space"
    if re.search(r"(?<![A-Za-z\d])\d+ (?=\S)", text):
        yield "may break between a number and its unit"
    stop = FULL_STOPS.get(language, ".")
    if key.endswith("."):
        if not text.endswith(stop) or (not stop and text.endswith(".")):
            yield "does not end as a sentence"
    elif key != WORD_BEFORE_TIME and re.search(r"[.。।]$", text):
        yield "ends as a sentence"
    if key.endswith("?") and not text.endswith(QUESTION_MARKS.get(language, "?")):
        yield "does not end as a question"
    opening, closing = QUOTES.get(language, "“”")
    quoted = re.findall(f"{opening}[^{QUOTATION_MARKS}]+?{closing}", text)
    marks = [mark for mark in re.sub(r"(?<=\w)’(?=\w)", "", text) if mark in QUOTATION_MARKS + "’"]
    if len(quoted) != key.count('"') // 2 or len(marks) != 2 * len(quoted):
        yield f"does not quote with {opening} {closing}"
    if language == "fr":
        if re.search(rf"(?<!{NARROW_NO_BREAK_SPACE})[;!?]", text):
            yield "lacks the narrow no-break space before ; ! ?"
        if re.search(rf"(?<!{NO_BREAK_SPACE})[:»]|«(?!{NO_BREAK_SPACE})", text):
            yield "lacks the no-break space before : or inside « »"


def letter_problems(language, key, text):
    if unicodedata.normalize("NFC", text) != text:
        yield "is not in Unicode's composed form"
    if strangers := set(text.lower()) & set(STRANGERS.get(language, "")):
        yield f"has letters of another language: {''.join(sorted(strangers))}"
    if key in NAMES:
        return
    if text == key and " " in key:
        yield "is English"
    script = SCRIPTS.get(language)
    if script and not any(re.match(script, unicodedata.name(letter, "")) for letter in text):
        yield "is not in the letters of the language"


def joined_mark_problems(language, key, text):
    """Qt cuts a word at a marked letter. Joined ones get wider, and the label's end is cut off."""
    for at in MNEMONIC.finditer(text if language in ("ar", "fa") and key.endswith(":") else ""):
        before, letter, after = text[:at.start()][-1:], text[at.end()], text[at.end() + 1:][:1]
        if (before.isalpha() and before not in NOT_JOINING
                or after.isalpha() and letter not in NOT_JOINING):
            yield "marks a letter that is joined to another"


def direction_problems(language, key, text):
    controls = "".join(letter for letter in text if letter in BIDI_CONTROLS)
    if language not in RIGHT_TO_LEFT:
        if controls:
            yield "has marks of direction"
        return
    isolated = FIRST_STRONG_ISOLATE + "%@" + POP_ISOLATE
    if text.count(isolated) != text.count("%@") or len(controls) != 2 * text.count(isolated):
        # The slashes of a path and the parentheses of a name would change sides.
        yield "does not isolate (U+2068, U+2069) exactly what is put in"
    for line in [] if key in NAMES else text.split("\n"):
        strong = [letter for letter in re.sub("\u2068.*?\u2069", "", line)
                  if unicodedata.bidirectional(letter) in ("L", "R", "AL")]
        if strong and unicodedata.bidirectional(strong[0]) == "L":
            # Toolkits take the direction of a line from its first letter.
            yield "begins from left to right"


def agreement_problems(entries, key, text):
    """Texts that speak of each other use the same words."""
    name = key.replace("&", "").rstrip(":")
    if name != key and name in entries and without_mnemonic(text) != entries[name]:
        yield f"is not called {entries[name]!r} as elsewhere"
    for quoted in re.findall('"([^"%]+)"', key):
        named = entries.get(quoted.replace("’", "'"))
        if named is not None and named not in text:
            yield f"does not name {named!r}"


def mnemonic_problems(entries, windows):
    """The key marks of one window differ, and can be typed."""
    taken = {}
    for key in sorted(windows):
        text = entries.get(key, "")
        for at in MNEMONIC.finditer(text):
            letter = text[at.end()].casefold()
            if unicodedata.category(letter)[0] not in "LN":
                yield f"{text!r} marks no letter"
            if letter in taken:
                yield f"{text!r} and {taken[letter]!r} mark the same letter"
            taken[letter] = text


def problems_of_table(language, entries, windows):
    for key, text in entries.items():
        for what, wanted in kept_parts(key).items():
            if kept_parts(text)[what] != wanted:
                yield f"other {what} in {text!r} than in {key!r}"
        if language == "en":
            continue
        for rule in (punctuation_problems, letter_problems, joined_mark_problems,
                     direction_problems):
            for problem in rule(language, key, text):
                yield f"{text!r} {problem}"
        for problem in agreement_problems(entries, key, text):
            yield f"{text!r} {problem}"
    if language != "en":
        yield from mnemonic_problems(entries, windows)
