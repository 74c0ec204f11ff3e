# SPDX-License-Identifier: MIT
"""Breaks each rule of translation_rules.py once, so that none of them can rot.

usage: translation_rules_test.py
"""

import sys
import unittest

sys.dont_write_bytecode = True  # the sources may be read-only

from translation_rules import problems_of_table  # noqa: E402

NBSP, NNBSP, ISOLATED = "\u00a0", "\u202f", "\u2068%@\u2069"

# language, English text, translation, what is said about it; None: nothing.
CASES = [
    ("de", "%@ and %d", "%@ und %d", None),
    ("de", "%@ and %d", "%d und %@", "other placeholders"),
    ("de", "one\ntwo", "eins zwei", "other line breaks"),
    ("de", "&Open", "Öffnen", "other key marks"),
    ("de", "&Name:", "&Name", "other end with a colon"),
    ("zh_CN", "&Name:", "名称(&N)：", None),
    ("de", "Change…", "Ändern", "other ellipsis"),
    ("de", "Open", " Öffnen", "other blanks around"),
    ("de", "Do not", "Ist's nicht", "typewriters"),
    ("de", "Change…", "Ändern...", "typewriters"),
    ("de", "Two words", "Zwei  Worte", "needless space"),
    ("de", "Less than 100 MB.", "Unter 100 MB.", "number and its unit"),
    ("de", "Less than 100 MB.", f"Unter 100{NBSP}MB.", None),
    ("de", "The MP3 encoder.", "Ein MP3 kommt.", None),
    ("de", "It is.", "Es ist", "does not end as a sentence"),
    ("hi", "It is.", "यह है.", "does not end as a sentence"),
    ("hi", "It is.", "यह है।", None),
    ("th", "It is.", "มันคือ", None),
    ("th", "It is.", "มันคือ.", "does not end as a sentence"),
    ("de", "Open", "Öffnen.", "ends as a sentence"),
    ("sv", "at", "kl.", None),
    ("el", "Is it?", "Είναι;", None),
    ("el", "Is it?", "Είναι?", "does not end as a question"),
    ("de", 'The "%@"', "Das „%@“", None),
    ("de", 'The "%@"', "Das “%@”", "does not quote"),
    ("de", 'The "%@"', "Das „%@”", "does not quote"),
    ("de", "The thing", "Das „Ding“", "does not quote"),
    ("uk", "The thing", "Моє ім’я", None),
    ("fr", "Is it?", f"Est-ce{NNBSP}?", None),
    ("fr", "Is it?", "Est-ce ?", "lacks the narrow"),
    ("fr", "Name:", f"Nom{NBSP}:", None),
    ("fr", "Name:", "Nom :", "lacks the no-break space"),
    ("fr", 'The "%@"', f"Le «{NBSP}%@{NBSP}»", None),
    ("fr", 'The "%@"', "Le « %@ »", "lacks the no-break space"),
    ("de", "Open", "O\u0308ffnen", "composed form"),
    ("ro", "Preferences", "Preferin\u0163e", "another language"),
    ("fa", "Quality", "\u0643\u06cc\u0641\u06cc\u062a", "another language"),
    ("de", "Choose a folder", "Choose a folder", "is English"),
    ("de", "Record Audio", "Record Audio", None),
    ("ru", "Stop", "Stop", "letters of the language"),
    ("ja", "Stop", "停止", None),
    ("he", "The folder %@", f"התיקייה {ISOLATED}", None),
    ("he", "The folder %@", "התיקייה %@", "does not isolate"),
    ("he", "Stop", "\u200fעצירה", "does not isolate"),
    ("de", "Stop", "\u200eStopp", "marks of direction"),
    ("ar", "&Quality:", "ال&جودة:", "joined to another"),
    ("ar", "&Quality:", "الجو&دة:", None),
    ("fa", "&Keyboard shortcut:", "میا&ن\u200cبر:", None),
    ("fa", "&Quality:", "&کیفیت:", "joined to another"),
    ("ar", "Record Audio stops", "Record Audio يتوقف", "begins from left to right"),
    ("ar", "One\nRecord Audio", "واحد\nRecord Audio هو", "begins from left to right"),
]


class Rules(unittest.TestCase):
    def test_each_finds_what_breaks_it(self):
        for language, key, text, complaint in CASES:
            with self.subTest(language=language, text=text):
                problems = list(problems_of_table(language, {key: text}, set()))
                if complaint is None:
                    self.assertEqual(problems, [])
                else:
                    self.assertTrue(any(complaint in problem for problem in problems), problems)

    def test_texts_name_each_other_as_they_are_called(self):
        entries = {"Name": "Titel", "&Name:": "&Name:"}
        self.assertIn("elsewhere", "".join(problems_of_table("de", entries, set())))
        entries["&Name:"] = "&Titel:"
        self.assertEqual(list(problems_of_table("de", entries, set())), [])
        entries = {"Name": "名前", "&Name:": "名前(&N):"}
        self.assertEqual(list(problems_of_table("ja", entries, set())), [])
        entries = {"Don't": "Nicht", 'The "Don’t" option': "Die Option „Nie“"}
        self.assertIn("does not name", "".join(problems_of_table("de", entries, set())))

    def test_the_key_marks_of_a_window_differ_and_can_be_typed(self):
        entries = {"&One": "&Eins", "&Two": "Zw&ei"}
        self.assertEqual(list(problems_of_table("de", entries, set())), [])
        self.assertIn("same letter", "".join(problems_of_table("de", entries, set(entries))))
        entries = {"&One": "ห&ึ"}
        self.assertIn("no letter", "".join(problems_of_table("th", entries, set(entries))))


if __name__ == "__main__":
    unittest.main()
