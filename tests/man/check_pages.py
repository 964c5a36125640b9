#!/usr/bin/env python3
"""Compares the manual pages of section 3 with what they describe.

  check_pages.py SOURCE LINKS PAGE...

SOURCE is the project's folder, LINKS the one where the build made a page for each name that is not a page's own; it is
"-" where there are no install rules. The PAGEs are those that are installed. Every exported function has one page,
whose synopsis is the header's declaration and which tells of values, codes and examples; programs choose a write mode
before they bind. Declarations, numbers of constants and kinds of findings are those of the sources, and the overview
names all pages and functions.
"""

import glob
import os
import re
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import pages  # noqa: E402

complaints = []


def complain(text):
    complaints.append(text)


def read(*parts):
    with open(os.path.join(*parts), encoding="utf-8") as file:
        return file.read()


def without_comments(text):
    return re.sub(r"//[^\n]*", " ", re.sub(r"/\*.*?\*/", " ", text, flags=re.S))


def squeezed(text):
    """C text with one blank where one is needed."""
    return re.sub(r" ?([*(),;{}\[\]]) ?", r"\1", " ".join(text.split()))


def with_single_members(text):
    """Squeezed C text with a declaration for each name: "int a,b;" becomes "int a;int b;"."""
    def split(match):
        return "".join(f"{match[1]}{'' if name.startswith('*') else ' '}{name};" for name in match[2].split(","))

    return re.sub(r"\b(const char|int|long) ?(\*?\w+(?:,\*?\w+)+);", split, text)


def declarations_of(header):
    """Name to declaration, of the functions and variables of a header."""
    text = without_comments(header)
    text = re.sub(r"^#.*$|extern \"C\" \{", "", text, flags=re.M)
    text = re.sub(r"^typedef struct [^{;]*\{.*?^\}[^;]*;|^enum \{.*?^\};|^typedef [^{;]*;", "", text, flags=re.M | re.S)
    found = {}
    for statement in text.split(";"):
        statement = squeezed(statement)
        function = re.match(r".*?(\w+)\(.*\)$", statement)
        variable = re.match(r"extern .*?(\w+)$", statement)
        if function or variable:
            found[(function or variable)[1]] = statement
    return found


def synopsis_of(text):
    """Name to declaration, of a page's synopsis."""
    found = {}
    result = None
    lines = iter(pages.sections_of(text).get("SYNOPSIS", "").splitlines())
    for line in lines:
        words = re.findall(r'"([^"]*)"|(\S+)', line)
        words = [quoted or bare for quoted, bare in words]
        if words[:1] == [".Ft"]:
            result = " ".join(words[1:])
        elif words[:1] == [".Fn"]:
            found[words[1]] = squeezed(f"{result} {words[1]}({','.join(words[2:])})")
        elif words[:1] == [".Fo"]:
            arguments = []
            for inner in lines:
                if inner == ".Fc":
                    break
                arguments.append(inner.removeprefix(".Fa ").strip('"'))
            found[words[1]] = squeezed(f"{result} {words[1]}({','.join(arguments)})")
        elif words[:1] == [".Vt"] and words[1] == "extern":
            found[words[-2]] = squeezed(" ".join(words[1:-1]))
    return found


def check_synopses(texts, headers, exported):
    declared = {}
    for header in ("cfg.h", "cfg_admin.h", "platform.h"):
        declared |= declarations_of(headers[header])
    shown = {}
    for page, text in texts.items():
        names = pages.names_of(text)
        if page == "ldtr.3":
            continue  # C++: overloads and classes
        synopsis = synopsis_of(text)
        own = [page.removesuffix(".3")] if page in ("cfg.3", "veltor-platform.3") else []
        if sorted(names) != sorted(list(synopsis) + own):
            complain(f"{page}: NAME and SYNOPSIS have different names: {set(names) ^ set(synopsis)}")
        for name in set(shown) & set(synopsis):
            complain(f"{page}: {name} has another page already")
        shown |= synopsis
    for name in sorted(set(declared) ^ set(shown)):
        complain(f"{name} is {'declared and has no page' if name in declared else 'on a page and not declared'}")
    for name in sorted(set(declared) & set(shown)):
        if declared[name] != shown[name]:
            complain(f"{name}: the header has\n    {declared[name]}\nand the page\n    {shown[name]}")
    for name in sorted(exported - {name for text in texts.values() for name in pages.names_of(text)}):
        complain(f"{name} is exported and has no page")


def check_text(page, text, headers, constants):
    for section in ("RETURN VALUES", "ERRORS", "EXAMPLES", "SEE ALSO"):
        if section not in pages.sections_of(text):
            complain(f"{page}: no section {section}")
    every_header = with_single_members(squeezed(without_comments("\n".join(headers.values()))))
    for block in pages.blocks_of(text):
        if block.kind == "header" and with_single_members(squeezed(block.text())) not in every_header:
            complain(f"{page}: this stands in no header:\n{block.text()}")
    for block in pages.blocks_of(text):
        # Every handle starts in the direct mode, in which a load may write.
        if block.kind in ("program", "file") and "cfg_bind_s(" in block.text() \
                and "cfg_set_write_mode(" not in block.text():
            complain(f"{page}: {block.name} binds in the direct mode")
    for name, number in re.findall(r"^\.It Dv (CFG_\w+) (?:Pq|Ta) (\d+)$", text, re.M):
        if constants.get(name) != number:
            complain(f"{page}: {name} is {constants.get(name)} and not {number}")
    for name in re.findall(r"\bCFG_[A-Z0-9_]*[A-Z0-9]\b", re.sub(r"^\.Dt .*$", "", text, flags=re.M)):
        if name not in constants:
            complain(f"{page}: there is no {name}")


def check_overview(text, texts):
    """The list of pages: each with the functions that it describes, and no others."""
    listed = {}
    for page, item in re.findall(r"^\.It Xr (\S+) 3\n(.*?)(?=^\.It |^\.El)", text, re.M | re.S):
        listed[page + ".3"] = sorted(re.findall(r"^\.Fn (\w+)", item, re.M))
    for page, other in texts.items():
        if page.startswith("cfg_") and listed.get(page) != sorted(pages.names_of(other)):
            complain(f"cfg.3: the list has {listed.get(page)} of {page}")


def check_kinds(text, source):
    known = {word: severity for word, severity in re.findall(r'FindingKind \w+\{"([\w-]+)", (\d)\}', source)}
    told = {}
    for severity, below in re.findall(r"^\.Ss Kinds of severity (\d)\n(.*?)^\.El", text, re.M | re.S):
        told |= {word: severity for word in re.findall(r"^\.It Li (\S+)$", below, re.M)}
    if not known or known != told:
        complain(f"cfg_check_s.3: other kinds than the library has: {set(known.items()) ^ set(told.items())}")


def check_links(folder, texts, source):
    """Every name is found by man, which reads pages and the files that name one."""
    expected = {f"{name}.3": f".so man3/{page}\n" for page, text in texts.items() for name in pages.names_of(text)
                if f"{name}.3" != page}
    made = {name: read(folder, name) for name in os.listdir(folder)}
    for name in sorted(set(expected) ^ set(made)):
        complain(f"{name}: a link that is {'missing' if name in expected else 'too many'}")
    for name in sorted(set(expected) & set(made)):
        if expected[name] != made[name]:
            complain(f"{name}: a link with the text {made[name]!r}")
    with tempfile.TemporaryDirectory() as manual:
        os.mkdir(os.path.join(manual, "man3"))
        for name in [*texts, *made]:
            os.symlink(os.path.join(source, "man", name) if name in texts else os.path.join(folder, name),
                       os.path.join(manual, "man3", name))
        for name in expected:
            done = subprocess.run(["mandoc", "-T", "ascii", os.path.join("man3", name)], cwd=manual,
                                  capture_output=True, text=True, check=False)
            if done.returncode != 0 or name.removesuffix(".3") not in re.sub(".\b", "", done.stdout):
                complain(f"{name}: what man would show does not name it: {done.stderr}")


def main():
    source, links = map(os.path.abspath, sys.argv[1:3])
    texts = {os.path.basename(page): read(page) for page in sorted(glob.glob(os.path.join(source, "man", "*.3")))}
    headers = {os.path.basename(header): read(header)
               for header in glob.glob(os.path.join(source, "include", "veltor", "*.h"))}
    exported = set()
    for path in glob.glob(os.path.join(source, "tests", "data", "exports", "*.txt")):
        # A name of C++ stands there with its class and its arguments.
        exported |= {re.split("[@:(]", line)[0] for line in read(path).splitlines()}
    code = without_comments("\n".join(headers.values()))
    constants = dict(re.findall(r"^#define (CFG_\w+) (\d+)", code, re.M) + re.findall(r"(CFG_\w+) = (\d+)", code))
    check_synopses(texts, headers, exported)
    for page, text in texts.items():
        check_text(page, text, headers, constants)
    check_overview(texts["cfg.3"], texts)
    check_kinds(texts["cfg_check_s.3"], read(source, "src", "libraries", "veltorstl", "file_check.h"))
    if sys.argv[2] != "-":
        check_links(links, texts, source)
    for page in sorted(set(texts) ^ set(sys.argv[3:])):
        complain(f"{page}: {'not installed' if page in texts else 'no such page'}")
    print("\n".join([*complaints, f"{len(texts)} pages, {len(exported)} exported names, {len(complaints)} complaints"]))
    return 1 if complaints or not exported else 0


if __name__ == "__main__":
    sys.exit(main())
