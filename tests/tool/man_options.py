#!/usr/bin/env python3
"""Holds the options that the manual page names against those that the tool has.

    man_options.py VELTOR PAGE

Each command of "veltor --help" has a section of its own in COMMANDS, and its line in SYNOPSIS. What "veltor COMMAND
--help" lists has an item there: in the command's section, in the section of the options of the commands that write if
the command's section refers to it, or, for what "veltor --help" lists, in the section of the options common to all.
The other way round, each option that the page names, wherever it does, is one that the command in question knows.
"""
import re
import shlex
import subprocess
import sys

COMMON = "Options common to all commands"
WRITING = "Options of the commands that write"
# Macros that end the arguments of the one before them.
MACROS = {"Ar", "Cm", "Dq", "Em", "Ev", "Fl", "Ic", "Li", "Nm", "Ns", "Oc", "Oo", "Op", "Pa", "Pc", "Po", "Pq", "Ql",
          "Sx", "Sy"}
DELIMITERS = set("|.,:;()[]?!")


# ---- The tool ----

def help_of(binary, *arguments):
    return subprocess.run([binary, *arguments, "--help"], check=True, capture_output=True, text=True).stdout


def block_of(text, heading):
    """The indented lines below a heading, up to the empty one."""
    lines = text.splitlines()
    begin = lines.index(heading) + 1
    return lines[begin:lines.index("", begin)]


def options_in(text):
    """The names of each option that a help lists; a line that begins further right goes on with the one above it."""
    rows = (re.match(r"  (-\S+)", line) for line in block_of(text, "Options:"))
    return [set(row[1].split(",")) for row in rows if row]


def commands_in(text):
    return [line.split()[0] for line in block_of(text, "Commands:")]


# ---- The page ----

class Option:
    """A place of the page that names options."""

    def __init__(self, line, name, owner, is_item):
        self.line, self.name = line, name
        self.owner = owner      # the command that is named in front of it
        self.is_item = is_item  # told here, and not only spoken of


class Section:
    def __init__(self, chapter, name):
        self.chapter, self.name = chapter, name
        self.lines = []  # (number, words) of each macro line that is no example


def sections_of(page):
    sections = [Section("", "")]
    literal = False
    with open(page, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            words = shlex.split(line[1:].replace("\\", "\\\\").replace("'", "\\'")) if line.startswith(".") else []
            if words[:2] == ["Bd", "-literal"] or words[:1] == ["Ed"]:
                literal = words[0] == "Bd"
            elif words[:1] == ["Sh"]:
                sections.append(Section(" ".join(words[1:]), ""))
            elif words[:1] == ["Ss"]:
                sections.append(Section(sections[-1].chapter, " ".join(words[1:])))
            elif words and not literal:
                sections[-1].lines.append((number, words))
    return sections


def long_or_short(word):
    """The option names of an argument of Fl: a long one, or letters that stand together."""
    return ["-" + word] if word.startswith("-") else sorted({"-" + letter for letter in word})


def options_of_line(number, words, commands):
    macro = owner = None
    for word in words:
        if word in MACROS:
            macro = word
        elif macro == "Cm":
            owner = word if word in commands else None
        elif macro == "Fl" and word not in DELIMITERS:
            for name in long_or_short(word):
                yield Option(number, name, owner, words[0] == "It")


def options_of(section, commands):
    return [option for number, words in section.lines for option in options_of_line(number, words, commands)]


def words_behind(section, macro):
    """What stands behind a macro at the beginning of a line, without delimiters."""
    return [word for _, words in section.lines if words[0] == macro for word in words[1:] if word not in DELIMITERS]


def refers_to_writing(section):
    return any(words[0] == "Sx" and " ".join(words[1:]).rstrip(" .;,") == WRITING for _, words in section.lines)


def synopsis_of(section, commands):
    """The lines of each command."""
    parts = {}
    part = None
    for number, words in section.lines:
        if words[0] == "Nm":
            part = Section(section.chapter, "")
        elif words[0] == "Cm" and words[1] in commands:
            parts[words[1]] = part
        if part is not None:
            part.lines.append((number, words))
    return parts


# ---- Both ----

def names_of(options):
    return set().union(*options)


class Comparison:
    def __init__(self, binary, page):
        self.page = page
        self.common = names_of(options_in(help_of(binary)))
        self.commands = commands_in(help_of(binary))
        self.options = {command: options_in(help_of(binary, command)) for command in self.commands}
        self.known = {command: names_of(options) for command, options in self.options.items()}
        self.sections = sections_of(page)
        self.writing = self.items(self.section("OPTIONS", WRITING))
        self.findings = []

    def section(self, chapter, name=""):
        for section in self.sections:
            if (section.chapter, section.name) == (chapter, name):
                return section
        return Section(chapter, name)

    def items(self, section):
        return {option.name for option in options_of(section, self.commands) if option.is_item and not option.owner}

    def find(self, line, text):
        self.findings.append(f"{self.page}:{line}: {text}" if line else f"{self.page}: {text}")

    def require_all(self, wanted, told, where):
        for name in sorted(wanted - told):
            self.find(0, f"{where} does not name {name}")

    def require_known(self, section, known, whose):
        for option in options_of(section, self.commands):
            has = self.known[option.owner] if option.owner else known
            if option.name not in has | self.common:
                self.find(option.line, f"{option.owner or whose} does not know {option.name}")

    def run(self):
        common = self.section("OPTIONS", COMMON)
        self.require_all(self.common, self.items(common), f'"{COMMON}"')
        for command in self.commands:
            self.compare_command(command)
            self.compare_synopsis(command)
        self.compare_lists()
        everything = names_of(self.known.values())
        for section in self.sections:
            if section is common:
                self.require_known(section, set(), "a command without options of its own")
            elif section.chapter != "COMMANDS":
                self.require_known(section, everything, "the tool")
        return self.findings

    def compare_command(self, command):
        section = self.section("COMMANDS", command)
        if section not in self.sections:
            self.find(0, f"there is no section for {command}")
            return
        told = self.items(section)
        if refers_to_writing(section):
            told |= self.writing
            for name in sorted(self.writing - self.known[command]):
                self.find(0, f'{command} refers to "{WRITING}", and has no option {name}')
        self.require_all(self.known[command] - self.common, told, f"the section for {command}")
        self.require_known(section, self.known[command], command)

    def compare_synopsis(self, command):
        part = synopsis_of(self.section("SYNOPSIS"), self.commands).get(command)
        if part is None:
            self.find(0, f"SYNOPSIS lacks {command}")
            return
        told = {option.name for option in options_of(part, self.commands)}
        writes = any("write-options" in words for _, words in part.lines)
        if writes != refers_to_writing(self.section("COMMANDS", command)):
            self.find(0, f"SYNOPSIS and the section for {command} do not agree on whether it writes")
        elsewhere = self.common | (self.writing if writes else set())
        for names in self.options[command]:
            # One of its names is enough here.
            if not names & (told | elsewhere):
                self.find(0, f"SYNOPSIS does not name {' or '.join(sorted(names))} for {command}")
        self.require_known(part, self.known[command], command)

    def compare_lists(self):
        """What the page says of all commands."""
        for section in self.sections:
            if section.chapter == "COMMANDS" and section.name and section.name not in self.commands:
                self.find(0, f"there is a section for {section.name}, and no such command")
        described = {words[2] for _, words in self.section("DESCRIPTION").lines if words[:2] == ["It", "Cm"]}
        for command in sorted(described ^ set(self.commands)):
            self.find(0, f"the list in DESCRIPTION and the tool do not agree on {command}")
        listed = set(words_behind(self.section("OPTIONS", WRITING), "Cm")) & set(self.commands)
        writers = {name for name in self.commands if refers_to_writing(self.section("COMMANDS", name))}
        for command in sorted(listed ^ writers):
            self.find(0, f'"{WRITING}" and the section for {command} do not agree on whether it writes')


def main():
    comparison = Comparison(*sys.argv[1:3])
    if not comparison.common or not comparison.writing or not all(comparison.known.values()):
        comparison.find(0, "nothing to compare: a help, or the section of the commands that write, has no options")
    findings = comparison.run()
    print("\n".join(findings + [f"{len(comparison.commands)} commands, {len(findings)} findings"]))
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
