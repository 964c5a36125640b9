#!/usr/bin/env python3
"""Holds what the Markdown documents of a tree refer to against the tree.

    check_links.py TREE

A link leads to a file or folder that is there and, behind "#", to a heading of it. A path that begins with a folder of
the tree's top is there, in prose as in commands. A file of the code, or a document, that stands between backquotes is
the end of some path of the tree. "*" and the word NAME in any of them stand for whatever is there. Links to other
places are not looked at.
"""

import os
import re
import sys
import tempfile

LINK = re.compile(r"\[[^]]*\]\(([^)\s]+)\)")
CODE = re.compile(r"`[^`]*`|^    .*")
CODE_FILE = re.compile(r"`([\w.*/-]+\.(?:cpp|h|c|in|py|sh|cmake|map|md|txt|json|dict|[1-8]))`")
HEADING = re.compile(r"^#+ +(.*?) *#*$", re.MULTILINE)
PLACE = re.compile(r"\bNAME\b|(?<=_)NAME|NAME(?=_)")


def files_of(tree):
    """The paths of the tree's files and folders, without hidden ones and without build folders."""
    paths = set()
    for folder, folders, files in os.walk(tree):
        folders[:] = [name for name in folders if not name.startswith(".") and name not in ("build", "__pycache__")
                      and not os.path.exists(os.path.join(folder, name, "CMakeCache.txt"))]
        paths |= {os.path.relpath(os.path.join(folder, name), tree) for name in [*folders, *files]}
    return paths


def anchors_of(path):
    """The anchors that the headings of a Markdown file get."""
    with open(path, encoding="utf-8") as file:
        text = file.read()
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in HEADING.findall(text)}


def is_there(path, paths, folders=""):
    """Whether the tree has the path; with a pattern for the folders above it, whether it has its end."""
    pattern = re.compile(folders + re.escape(PLACE.sub("*", path).rstrip("/")).replace(r"\*", "[^/]*"))
    return any(pattern.fullmatch(known) for known in paths)


def faults_of(tree, document, paths):
    """One line for each thing that a document refers to and that is not there."""
    with open(os.path.join(tree, document), encoding="utf-8") as file:
        lines = file.read().splitlines()
    tops = "|".join(re.escape(path) for path in paths if "/" not in path and os.path.isdir(os.path.join(tree, path)))
    own_path = re.compile(rf"(?<![\w/.$\"-])(?:{tops})/[\w.*/-]*[\w*]") if tops else None
    # A link may be broken in two lines.
    prose = "\n".join(CODE.sub("", line) for line in lines)
    for link in LINK.finditer(prose):
        number = prose.count("\n", 0, link.start(1)) + 1
        target, _, anchor = link[1].partition("#")
        if re.match(r"[a-z]+:", target):
            continue
        path = os.path.normpath(os.path.join(os.path.dirname(document), target)) if target else document
        if path not in paths:
            yield f"{document}:{number}: there is no {path}"
        elif anchor and anchor not in anchors_of(os.path.join(tree, path)):
            yield f"{document}:{number}: {path} has no heading #{anchor}"
    for number, line in enumerate(lines, 1):
        named = {path for path in own_path.findall(LINK.sub("", line))} if own_path else set()
        for path in named:
            if not is_there(path, paths):
                yield f"{document}:{number}: there is no {path}"
        for name in set(CODE_FILE.findall(line)) - named:
            if not is_there(name, paths, "(?:.*/)?"):
                yield f"{document}:{number}: there is no {name}"


def check(tree):
    paths = files_of(tree)
    documents = sorted(path for path in paths if path.endswith(".md"))
    return documents, [fault for document in documents for fault in faults_of(tree, document, paths)]


def finds_what_is_wrong():
    """Whether a tree with one fault of each kind gives as many, and one without any none."""
    with tempfile.TemporaryDirectory() as tree:
        os.makedirs(os.path.join(tree, "tests", "deep"))
        for path in ["tests/deep/one_test.cpp", "LICENSE"]:
            with open(os.path.join(tree, path), "w", encoding="utf-8") as file:
                file.write("\n")

        def faults(text):
            with open(os.path.join(tree, "A.md"), "w", encoding="utf-8") as file:
                file.write("# The `code`, first\n" + text + "\n")
            return check(tree)[1]

        sound = ["[a](LICENSE) [b](tests/deep) [c](#the-code-first) [d](A.md#the-code-first) [e](https://nowhere)",
                 "`one_test.cpp` tests/deep/NAME_test.cpp `tests/*/one_test.cpp`, `deep/one_test.cpp`",
                 "    $ run tests/deep/one_test.cpp", "    test[.](one|two)", "`test[.](one|two)`"]
        wrong = ["[a](LICENCE)", "[a\nb](LICENCE)", "[a](#second)", "[a](LICENSE#x)", "tests/deep/two_test.cpp", "`two_test.cpp`",
                 "`tests/NAME.cpp`", "    $ run tests/two"]
        missed = [text for text in wrong if len(faults(text)) != 1] + [text for text in sound if faults(text)]
        for text in missed:
            print(f"FAILED: the check itself, on {text}: {faults(text)}")
        return not missed


def main():
    documents, faults = check(sys.argv[1])
    print("\n".join(faults + [f"{len(documents)} documents, {len(faults)} faults"]))
    return 0 if finds_what_is_wrong() and documents and not faults else 1


if __name__ == "__main__":
    sys.exit(main())
