# SPDX-License-Identifier: MIT
"""Finds the mutants of a C++ source that clang-format has laid out.

Works on tokens. The layout tells what would otherwise need a parser: a binary operator has a blank
on both sides; a bracket of a template and the star of a pointer have not.
"""
import re
from dataclasses import dataclass, field

TOKEN = re.compile(r"""
    (?P<skip>\s+|//[^\n]*|/\*.*?\*/|\#(?:\\\n|[^\n])*)
  | (?P<text>(?:u8|[uUL])?"(?:[^"\\\n]|\\.)*"|(?:u8|[uUL])?'(?:[^'\\\n]|\\.)+')
  | (?P<number>(?:0[xX][\da-fA-F']+|\d[\d']*(?:\.\d*)?(?:[eE][+-]?\d+)?)[uUlLfFzZ]*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<sign><=>|->\*|\.\.\.|<<=|>>=|::|->|\.\*|\+\+|--|<<|>>|[<>=!+*/%&|^-]=|&&|\|\||.)
""", re.VERBOSE | re.DOTALL)

# Operator: the name of its switch in switch.h, and what it becomes.
OPERATORS = {
    "<": ("Less", "<=", ">="), "<=": ("LessOrEqual", "<", ">"),
    ">": ("Greater", ">=", "<="), ">=": ("GreaterOrEqual", ">", "<"),
    "==": ("Equal", "!="), "!=": ("Unequal", "=="),
    "+": ("Plus", "-"), "-": ("Minus", "+"), "*": ("Times", "/"), "/": ("Over", "*"),
    "%": ("Modulo", "*"), "&": ("BitAnd", "|"), "|": ("BitOr", "&"),
    "+=": ("PlusAssign", "-="), "-=": ("MinusAssign", "+="), "*=": ("TimesAssign", "/="),
}
COMPARISONS = {"<", "<=", ">", ">=", "==", "!="}
ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>="}
# Where a condition, or an operand of `||`, begins or ends.
BOUNDARIES = ASSIGNMENTS | {",", ";", "?", ":", "return", "else", "case", "..."}
NO_EXPRESSION = set("""alignas auto break case catch class const constexpr continue default do else
    enum extern for friend goto if inline namespace private protected public return signed static
    static_assert struct switch template thread_local throw try typedef typename union unsigned
    using virtual void volatile while assert""".split())


@dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclass
class Mutant:
    """One change of the text, and where the switch goes that makes it: (from, to, before, after).

    A switch may make the next mutant, too. @ stands for a mutant's number.
    """
    start: int
    end: int
    instead: str
    switches: list = field(default_factory=list)
    number: int = 0
    is_equivalent: bool = False

    def lines(self, text):
        """The changed code before and after, each on one line, from the start of its first line."""
        begin = text.rfind("\n", 0, self.start) + 1
        end = text.find("\n", self.end)
        plain = lambda code: " ".join(code.split())
        return (plain(text[begin:end]),
                plain(text[begin:self.start] + self.instead + text[self.end:end]))


class Source:
    def __init__(self, text):
        self.text = text
        self.tokens = [Token(m.lastgroup, m.group(), m.start(), m.end())
                       for m in TOKEN.finditer(text) if m.lastgroup != "skip"]
        self.partner = {}
        open_brackets = []
        for i, token in enumerate(self.tokens):
            if token.kind == "sign" and token.text in "([{":
                open_brackets.append(i)
            elif token.kind == "sign" and token.text in ")]}":
                self.partner[i] = open_brackets.pop()
                self.partner[self.partner[i]] = i

    def at(self, i):
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def spaced(self, i):
        token = self.tokens[i]
        return self.text[token.start - 1].isspace() and self.text[token.end].isspace()

    def left_end(self, i, boundaries):
        """The first token of the expression that ends before token i."""
        i -= 1
        while i >= 0 and self.at(i) not in boundaries and self.at(i) not in "([{":
            if self.at(i) == "}" and self.is_block(self.partner[i]):
                break
            i = self.partner[i] - 1 if self.at(i) in (")", "]", "}") else i - 1
        return i + 1

    def right_end(self, i, boundaries):
        """The last token of the expression that begins after token i."""
        i += 1
        while self.at(i) not in boundaries and self.at(i) not in ")]}":
            i = self.partner[i] + 1 if self.at(i) in ("(", "[", "{") else i + 1
        return i - 1

    def is_block(self, i):
        """Whether the brace holds statements or declarations, not an initial value."""
        before = self.at(i - 1)
        if before == ":":
            return self.at(self.left_end(i - 1, {";", "}", ":"})) in ("case", "default")
        return self.text[self.tokens[i].start - 1].isspace() and before not in (
            "=", "return", ",", "(", "{", "?", "")

    def head(self, i):
        """What a block belongs to: a keyword such as `if`, or "function" (a lambda, too)."""
        if self.at(i - 1) == ")":
            before = self.partner[i - 1] - 1
            before -= self.at(before) == "constexpr"
            if self.at(before) in ("if", "for", "while", "switch", "catch"):
                return self.at(before)
            return "function"
        if self.at(i - 1) in ("else", "do", "try"):
            return self.at(i - 1)
        k = self.left_end(i, {";", "{", "}"})
        if self.at(k) == "template":
            while not (self.at(k) == ">" and self.text[self.tokens[k].end].isspace()):
                k += 1
            k += 1
        words = [self.at(j) for j in range(k, i)]
        scopes = {"namespace", "class", "struct", "union", "enum"}
        return "scope" if scopes & set(words) and "(" not in words else "function"

    def statements(self, brace):
        """The plain statements right in a block: (first token, semicolon, keyword they hang on)."""
        i, end, hangs_on = brace + 1, self.partner[brace], ""
        while i < end:
            word = self.at(i)
            if word in ("case", "default"):
                i = self.right_end(i, {":"}) + 2
            elif word in ("if", "for", "while", "switch", "catch"):
                hangs_on = word
                i += 1 + (self.at(i + 1) == "constexpr")
                i = self.partner[i] + 1
            elif word in ("else", "do", "try"):
                hangs_on, i = word, i + 1
            elif word == "{":
                hangs_on, i = "", self.partner[i] + 1
            else:
                stop = self.right_end(i - 1, {";"}) + 1
                if i < stop:
                    yield i, stop, hangs_on
                hangs_on, i = "", stop + 1

    def is_expression(self, first, stop):
        """Whether a statement computes something and declares nothing."""
        if self.at(first) in NO_EXPRESSION or re.fullmatch(r"assert\w*", self.at(stop - 3)):
            return False
        i = first
        while i < stop - 1:
            if self.at(i) in ("(", "[", "{"):
                i = self.partner[i]
            elif self.at(i) in ASSIGNMENTS:
                break
            is_type = self.tokens[i].kind == "name" or (self.at(i) in (">", "*", "&") and i > first)
            if is_type and self.tokens[i + 1].kind == "name" and not self.spaced(i):
                return False
            if self.tokens[i].kind == self.tokens[i + 1].kind == "name":
                return False
            i += 1
        return True

    def mutants(self):
        found = []
        skipped = self.skipped()
        for i, token in enumerate(self.tokens):
            if i in skipped:
                continue
            if token.kind == "number":
                found += self.of_number(i)
            elif token.text in ("true", "false"):
                instead = "false" if token.text == "true" else "true"
                found.append(self.wrap(token.start, token.end, "mutation::pick(@, ",
                                       f", {instead})", instead))
            elif token.text in ("&&", "||") and self.spaced(i) and self.at(i + 1) != "...":
                found.append(self.of_logic(i))
            elif token.text in OPERATORS and token.kind == "sign" and self.spaced(i):
                found += self.of_operator(i)
            elif token.text in ("if", "while") and self.at(i + 1) == "(":
                found += self.of_condition(i)
            elif token.text == "?":
                first = self.left_end(i, BOUNDARIES)
                found += self.negation(first, i - 1)
            elif token.text == "!":
                found += self.of_not(i)
            elif token.text == "{" and self.is_block(i) and self.head(i) != "scope":
                found += self.of_block(i)
        return found

    def skipped(self):
        """Tokens of assertions, which only check."""
        skipped = set()
        for i, token in enumerate(self.tokens):
            if token.text in ("assert", "static_assert") and self.at(i + 1) == "(":
                skipped.update(range(i, self.partner[i + 1] + 1))
        return skipped

    def wrap(self, start, end, before, after, instead):
        return Mutant(start, end, instead, [(start, end, before, after)])

    def of_number(self, i):
        token = self.tokens[i]
        is_template_argument = self.at(i - 1) in ("<", ",") and not self.spaced(i - 1) and \
            self.at(i + 1).startswith(">") and not self.spaced(i + 1)
        is_length = self.at(i - 1) == "[" and self.tokens[i - 3].kind == "name" and \
            self.at(i + 1) == "]" and self.at(i - 3) not in ("return", "else")
        if is_template_argument or is_length or self.at(i - 1) == "case":
            return []
        digits, suffix = re.fullmatch(r"(0[xX][\da-fA-F']+|[\d'.]+(?:[eE][+-]?\d+)?)(\w*)",
                                      token.text).groups()
        digits = digits.replace("'", "")
        if "." in digits or "e" in digits and not digits.startswith("0x"):
            value = float(digits)
            others = [repr(value + 1 if value + 1 != value else value * 2) + suffix]
        else:
            value = int(digits, 8 if re.fullmatch("0[0-7]+", digits) else 0)
            show = hex if digits.lower().startswith("0x") else str
            others = [show(other) + suffix for other in (value + 1, value - 1) if other >= 0]
        mutants = [Mutant(token.start, token.end, other) for other in others]
        mutants[0].switches = [(token.start, token.end, "mutation::pick(@, ",
                                "".join(", " + other for other in others) + ")")]
        return mutants

    def of_operator(self, i):
        token = self.tokens[i]
        name, *others = OPERATORS[token.text]
        mutants = [Mutant(token.start, token.end, other) for other in others]
        numbers = "@, @" if len(others) == 2 else "@"
        mutants[0].switches = [(token.end, token.end,
                                f" mutation::{name}{{{numbers}}} {token.text}", "")]
        return mutants

    def of_logic(self, i):
        boundaries = BOUNDARIES | {"||"} if self.at(i) == "&&" else BOUNDARIES
        first = self.left_end(i, boundaries)
        start, end = self.tokens[first].start, \
            self.tokens[self.right_end(i, boundaries | {self.at(i)})].end
        left_end, right_start = self.tokens[i - 1].end, self.tokens[i + 1].start
        left, right = self.text[start:left_end], self.text[right_start:end]
        if self.at(i) == "||" and any(token.text == "||" for token in self.tokens[first:i]):
            left = f"({left})"
        other = "||" if self.at(i) == "&&" else "&&"
        # Either is the other of the negations, negated.
        return Mutant(start, end, f"({left} {other} {right})",
                      [(start, end, "mutation::negated(@, ", ")"),
                       (start, left_end, "mutation::negated(@, ", ")"),
                       (right_start, end, "mutation::negated(@, ", ")")])

    def of_condition(self, i):
        first, last = i + 2, self.partner[i + 1] - 1
        semicolon = self.right_end(first - 1, {";"}) + 1
        if semicolon < last:
            first = semicolon + 1
        assigned = self.right_end(first - 1, {"="}) + 1
        if assigned >= last:
            return self.negation(first, last)
        # `if (const auto a = b)`
        name, end = self.at(assigned - 1), self.tokens[last].end
        return [Mutant(end, end, f"; !{name}", [(end, end, f"; mutation::negated(@, {name})", "")])]

    def negation(self, first, last):
        """None if the condition is one comparison or one negation, which is a mutant by itself."""
        inner = range(first, last + 1)
        signs = [self.at(i) for i in inner if self.tokens[i].kind == "sign" and
                 (self.spaced(i) or self.at(i) == "!") and self.depth(first, i) == 0]
        if sum(sign in COMPARISONS for sign in signs) == 1 and not {"&&", "||"} & set(signs):
            return []
        if self.at(first) == "!" and not {"&&", "||"} & set(signs):
            return []
        start, end = self.tokens[first].start, self.tokens[last].end
        return [self.wrap(start, end, "mutation::negated(@, ", ")",
                          f"!({self.text[start:end]})")]

    def depth(self, first, i):
        signs = [self.at(k) for k in range(first, i)]
        return sum(sign in "([{" for sign in signs) - sum(sign in ")]}" for sign in signs)

    def of_not(self, i):
        token = self.tokens[i]
        return [Mutant(token.start, token.end, "", [(token.end, token.end,
                                                     "mutation::Not{@}->*", "")])]

    def of_block(self, brace):
        found = []
        for first, stop, hangs_on in self.statements(brace):
            start, end = self.tokens[first].start, self.tokens[stop].end
            early = self.at(first) in ("return", "continue") and \
                self.at(stop + 1) != "else" and (hangs_on == "if" or (
                    not hangs_on and self.head(brace) == "if" and
                    self.at(self.partner[brace] + 1) != "else"))
            if early or (self.tokens[first].kind != "text" and self.is_expression(first, stop)):
                found.append(self.wrap(start, end, "if (mutation::on(@)) {} else ", "", ";"))
        return found


def numbered(text, first):
    """The mutants of a source in a fixed order, numbered from `first` on."""
    mutants = Source(text).mutants()
    for i, mutant in enumerate(mutants):
        mutant.number = first + i
    return mutants


def switched(text, mutants):
    """The text with all these mutants in it, each behind its switch. Lines keep their numbers."""
    inserts = []
    for i, mutant in enumerate(mutants):
        for start, end, before, after in mutant.switches:
            for k in range(before.count("@")):
                before = before.replace("@", str(mutant.number + k), 1)
            # At one place, what closes comes first, the inner before the outer; then what opens.
            inserts.append((start, 1 if end > start else 2, start - end, before))
            inserts.append((end, 0, end - start, after))
    for match in re.finditer(r"\bconstexpr\b[^;({=]*[={][^;]*;", text):
        if any(match.start() < start < match.end() for start, _, _, _ in inserts):
            text = text[:match.start()] + "static   " + text[match.start() + 9:]
    parts, at = [], 0
    for place, _, _, insert in sorted(inserts, key=lambda entry: entry[:3]):
        parts += [text[at:place], insert]
        at = place
    return '#include "tests/mutation/switch.h"  ' + "".join(parts) + text[at:]
