"""What the checks of the manual pages read from a page.

A literal block of a page of section 3 is one of these, as the comment line above it says:

  .\\" program NAME.c  a whole program; it is compiled as the overview page shows, into NAME
  .\\" file NAME       another file of the example
  .\\" header          a declaration as it stands in a public header
  (no comment line)   a session: each line that begins with "$ " is a command, which goes on in the next line behind a
                      backslash and "> ", and what follows is its output
"""

import re

# What stands for a character that the formatters would print as another one, or take for one of theirs.
ESCAPES = [("\\e", "\\"), ("\\(aq", "'"), ("\\(ha", "^"), ("\\(ti", "~"), ("\\(ga", "`"), ("\\-", "-"), ("\\&", "")]
MARKER = re.compile(r'\.\\" (program|file|header)(?: (\S+))?$')


def shown(line):
    """A line of a literal block as the reader sees it."""
    return re.sub(r"\\(?:\((?:aq|ha|ti|ga)|[e&-])", lambda match: dict(ESCAPES)[match[0]], line)


def written(line):
    """The other way round."""
    for escape, character in ESCAPES[:5]:
        line = line.replace(character, escape)
    return ("\\&" if line.startswith(".") else "") + line + ("\\&" if line.endswith(" ") else "")


class Block:
    def __init__(self, kind, name, first):
        self.kind = kind
        self.name = name
        self.first = first  # index of its first line
        self.lines = []     # as they are shown

    def text(self):
        return "".join(line + "\n" for line in self.lines)

    def commands(self):
        """The commands of a session: each as it is run, the lines that show it, and those of its output."""
        found = []
        for line in self.lines:
            if line.startswith("$ "):
                found.append([line[2:], [line], []])
            elif found and found[-1][0].endswith("\\") and line.startswith("> "):
                found[-1][0] = found[-1][0][:-1] + line[2:]
                found[-1][1].append(line)
            elif found:
                found[-1][2].append(line)
            else:
                raise ValueError(f"a session that begins with {line!r}")
        return found


def blocks_of(text):
    """The literal blocks of a page."""
    blocks = []
    marker = None
    block = None
    for number, line in enumerate(text.splitlines()):
        if block is not None and line == ".Ed":
            block = None
        elif block is not None:
            block.lines.append(shown(line))
        elif line.startswith(".Bd -literal"):
            block = Block(marker[1] if marker else "session", marker[2] if marker else None, number + 1)
            blocks.append(block)
        marker = MARKER.match(line)
    return blocks


def names_of(text):
    """The names in the page's section NAME."""
    section = re.search(r"^\.Sh NAME\n(.*?)^\.Nd ", text, re.M | re.S)
    return re.findall(r"^\.Nm (\S+)", section[1], re.M) if section else []


def sections_of(text):
    """The texts below each heading."""
    parts = re.split(r"^\.Sh (.*)\n", text, flags=re.M)
    return dict(zip(parts[1::2], parts[2::2]))
