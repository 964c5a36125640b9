#!/usr/bin/env python3
"""Holds the grammar that the manual page of the file tells against what the tool reads and writes.

The productions are taken out of the page and matched as they say: of alternatives the first one that fits counts, and a
repetition takes as much as it can. Files are made at random of lines that are good, bad and odd. A file loads if and
only if it fits, and then has the values that the grammar finds; and what the tool writes in the form of the library
fits the productions of that.

  check_grammar.py VELTOR PAGE [COUNT [SEED]]
"""

import json
import os
import random
import re
import subprocess
import sys
import tempfile

TOKEN = re.compile(r'\s*(?:"([^"]*)"|%x([0-9A-F]+)(?:-([0-9A-F]+))?|(\d*\*\d*)|([()\[\]/])|([A-Za-z][\w-]*))')


def productions_of(page):
    """The rules, and for some what must not stand where they begin, for which RFC 5234 has no word."""
    rules = {}
    barred = {}
    with open(page, encoding="utf-8") as file:
        lines = file.read().replace("\\e", "\\").splitlines()
    literal = False
    for line in lines:
        if line.startswith(".Bd -literal") or line == ".Ed":
            literal = line != ".Ed"
        elif literal and (found := re.fullmatch(r"([A-Za-z][\w-]*) +(=/?) (.*)", line)):
            name, how, text = found.groups()
            text, _, remark = text.partition(" ; ")
            rules[name] = f"{rules[name]} / {text}" if how == "=/" else text
            if remark.startswith("no "):
                barred[name] = remark[3:].replace(" and no ", " / ")
    return rules, barred


class Grammar:
    """Matchers take a text and a position and give the position behind what they match, or None."""

    def __init__(self, rules, barred):
        self.found = []  # (rule, begin, end) of those that are asked for
        self.wanted = ()
        self.rules = {name: self.parse(text) for name, text in rules.items()}
        self.barred = {name: self.parse(text) for name, text in barred.items()}

    def match(self, rule, text, wanted=()):
        """What the wanted rules matched, or None for a text that does not fit."""
        self.found, self.wanted = [], wanted
        return self.found if self.rules[rule](text, 0) == len(text) else None

    def parse(self, text):
        tokens = []
        position = 0
        while position < len(text.rstrip()):
            token = TOKEN.match(text, position)
            assert token, f"not understood: {text[position:]}"
            tokens.append(token.groups())
            position = token.end()
        matcher = self.alternatives(tokens)
        assert not tokens, f"not understood: {tokens}"
        return matcher

    def alternatives(self, tokens):
        options = [self.sequence(tokens)]
        while tokens and tokens[0][4] == "/":
            tokens.pop(0)
            options.append(self.sequence(tokens))

        def match(text, position):
            for option in options:
                mark = len(self.found)
                end = option(text, position)
                if end is not None:
                    return end
                del self.found[mark:]
            return None
        return match

    def sequence(self, tokens):
        parts = []
        while tokens and tokens[0][4] not in ("/", ")", "]"):
            parts.append(self.element(tokens))

        def match(text, position):
            for part in parts:
                position = part(text, position)
                if position is None:
                    return None
            return position
        return match

    def element(self, tokens):
        string, first, last, repeat, bracket, name = tokens.pop(0)
        if repeat is not None:
            return self.repetition(int(repeat.split("*")[0] or 0), self.element(tokens))
        if bracket is not None:
            inner = self.alternatives(tokens)
            tokens.pop(0)
            return inner if bracket == "(" else self.option(inner)
        if string is not None:
            return self.string(string)
        return self.character(int(first, 16), int(last or first, 16)) if first is not None else self.rule(name)

    def string(self, wanted):
        def match(text, position):
            end = position + len(wanted)
            return end if text[position:end].lower() == wanted.lower() else None
        return match

    def character(self, low, high):
        def match(text, position):
            return position + 1 if position < len(text) and low <= ord(text[position]) <= high else None
        return match

    def option(self, inner):
        def match(text, position):
            end = inner(text, position)
            return position if end is None else end
        return match

    def rule(self, name):
        def match(text, position):
            mark = len(self.found)
            if name in self.barred and self.barred[name](text, position) is not None:
                del self.found[mark:]
                return None
            if name in self.wanted:
                self.found.append(None)
            end = self.rules[name](text, position)
            if end is None:
                del self.found[mark:]
            elif name in self.wanted:
                self.found[mark] = (name, position, end)
            return end
        return match

    def repetition(self, least, inner):
        def match(text, position):
            count = 0
            while True:
                mark = len(self.found)
                end = inner(text, position)
                if end is None or end == position:
                    del self.found[mark:]
                    return position if count >= least else None
                position = end
                count += 1
        return match


class Reader:
    """Reads a file by the grammar and what the page says about values."""

    def __init__(self, grammar):
        self.grammar = grammar

    def is_pad(self, character):
        return self.grammar.match("PAD", character) is not None

    def without_pad(self, value):
        end = len(value)
        while end > 0 and self.is_pad(value[end - 1]):
            end -= 1
        return value[:1] if end == 0 and value[:1] in ("(", ")") else value[:end]

    def unfolded(self, value):
        lines = value[:-1].split("\n")
        return lines[0] + "".join(line[1:] for line in lines[1:])

    def read(self, text):
        """The values of the file by their names in small letters, or None where it does not load."""
        has_end = text.endswith("\n")
        text += "" if has_end else "\n"
        found = self.grammar.match("file", text, ("root", "dn-line", "attribute", "rejected", "name", "value", "tail"))
        if found is None:
            return None
        values = []
        roots = []
        is_root = False
        for index, (rule, begin, end) in enumerate(found):
            if rule not in ("root", "dn-line", "attribute", "rejected"):
                continue
            parts = {name: text[first:last] for name, first, last in reversed(found[index + 1:]) if last <= end}
            loses = end == len(text) and not has_end
            line = text[begin:end]
            if rule == "rejected" or (rule == "dn-line" and "value" not in parts):
                head = line.split("\n")[0]
                value = "" if loses else self.without_pad(self.unfolded("\n" + line.partition("\n")[2]))
                name, value = "zor-slapdInvalidLine", f"{head}: {value}"
            else:
                name = line.partition(":")[0]
                value = "" if loses else self.without_pad(self.unfolded(parts["value"]))
            refused = name.lower() == "version" and not re.fullmatch("[+]?0*1", value)
            if rule == "root":
                if refused or name.lower() in roots:
                    return None
                roots.append(name.lower())
            elif rule == "dn-line":
                rdns = self.grammar.match("dn", value, ("rdn",))
                if rdns is None:
                    return None
                # What belongs to the root is not printed with the entries.
                is_root = not rdns
            elif not is_root:
                name, value = ("zor-slapdInvalidLine", f"{name}: {value}") if refused else (name, value)
                values.append((name.lower(), "1" if name.lower() == "version" else value))
        return values


class Maker:
    """Makes files. Names are such that every text is a value, and none is hidden."""

    def __init__(self, chance):
        self.chance = chance

    def some(self, characters, most):
        return "".join(self.chance.choice(characters) for _ in range(self.chance.randint(0, most)))

    def dn(self):
        if self.chance.random() < 0.25:
            return self.some("cn=,;+#\"\\()<> 4aZ1.-:", 12)
        parts = []
        for _ in range(self.chance.randint(1, 3)):
            kind = self.chance.choice(["cn", "ou", "2.5", "o-x", "CN"])
            value = self.chance.choice(["a", "b", "#41", "#4", '"a, b"', '"a', "a\\,b", "a\\2Cb", "\\20a", "(a)", "a b ", "",
                                        "a\\zb", "#41 ", '"a" x', "\\28", "\u00e4", "\u2003b"])
            gap = self.chance.choice(["", "", " "])
            parts.append(f"{kind}{gap}={gap}{value}")
        return self.chance.choice([",", ", ", ";", "+", " + "]).join(parts)

    def line(self):
        one = self.chance.choice
        kinds = {
            lambda: one(["dn: ", "dn: ", "DN:", "dn:: ", "dn : ", "dn ", "dn"]) + self.dn(): 4,
            lambda: one(["x", "X", "y y", " z", "q(", "n\u00e4"]) + self.some(":", 2) + self.some(" ()ab:#\u2003", 6): 4,
            lambda: "x: " + self.some("abc ", 6): 6,
            lambda: one(["version: 1", "VERSION:(+01)", "charset: a", "version: 2", "version", "version :1"]): 1,
            lambda: one(["#", "# ", " #"]) + self.some("ab: ", 4): 2,
            lambda: one([" ", "  ", "\t", "\u3000", "\u00a0"]) + self.some(" ()ab:", 5): 3,
            lambda: self.some(" \t\u2003", 2): 1,
            lambda: "": 3,
            lambda: self.some("adnDN:= ()#", 6): 1,
        }
        return self.chance.choices(list(kinds), list(kinds.values()))[0]()

    def file(self):
        lines = [self.line() for _ in range(self.chance.randint(0, 7))]
        if self.chance.random() < 0.85:
            lines.insert(0, "dn: cn=a")
            if self.chance.random() < 0.2:
                lines.insert(0, self.line())
        end = "" if self.chance.random() < 0.15 else "\n"
        return "\n".join(lines) + (end if lines else "")


def run(veltor, *arguments):
    environment = dict(os.environ, LC_ALL="C.UTF-8")
    return subprocess.run([veltor, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False, env=environment)


def loaded(veltor, path):
    """The values that the tool finds, as Reader.read has them, and the DNs; None for values that it can't print."""
    done = run(veltor, "search", "-F", path, "--json")
    document = json.loads(done.stdout)
    if done.returncode == 4:
        return False, None, []
    if done.returncode == 3 and document["error"]["code"] == 1013:
        # A DN with an empty value.
        return True, None, []
    if done.returncode != 0:
        raise RuntimeError(f"{path}: exit status {done.returncode}: {done.stdout.decode()}")
    entries = document["entries"]
    values = [(name.lower(), value) for entry in entries for name, those in entry["attributes"].items() for value in those]
    return True, values, [entry["dn"] for entry in entries]


def failures_of(text, veltor, path, grammar, totals):
    reader = Reader(grammar)
    with open(path, "w", encoding="utf-8", newline="") as file:
        file.write(text)
    expected = reader.read(text)
    loads, values, dns = loaded(veltor, path)
    totals["loaded" if loads else "refused"] += 1
    totals["values"] += len(values or [])
    if loads != (expected is not None):
        return [f"{text!r}\n  grammar: {expected}\n  tool:    {values}"]
    if values is None:
        return []
    # Equal values count once in an entry, and entries are merged.
    failures = []
    if set(expected) != set(values):
        failures.append(f"{text!r}\n  grammar: {expected}\n  tool:    {values}")
    failures += [f"{text!r}\n  no own-dn: {dn}" for dn in dns if grammar.match("own-dn", dn) is None]
    if run(veltor, "fmt", "-F", path, "--no-backup", "--yes").returncode == 0:
        totals["written"] += 1
        with open(path, encoding="utf-8", newline="") as file:
            written = file.read()
        if grammar.match("own-file", written) is None or reader.read(written) is None:
            failures.append(f"{text!r}\n  no own-file: {written!r}")
    return failures


def main():
    veltor, page = sys.argv[1:3]
    count, seed = (int(number) for number in (sys.argv[3:] + ["300", "1"][len(sys.argv) - 3:]))
    grammar = Grammar(*productions_of(page))
    maker = Maker(random.Random(seed))
    totals = {"loaded": 0, "refused": 0, "values": 0, "written": 0}
    failures = []
    with tempfile.TemporaryDirectory() as folder:
        for _ in range(count):
            failures += failures_of(maker.file(), veltor, os.path.join(folder, "made.conf"), grammar, totals)
    for failure in failures[:20]:
        print(f"FAILED: {failure}")
    print(", ".join(f"{number} {what}" for what, number in totals.items()) + f", {len(failures)} failed")
    # A grammar that nothing fits, or everything, shows nothing.
    return 1 if failures or min(totals.values()) < count // 5 else 0


if __name__ == "__main__":
    sys.exit(main())
