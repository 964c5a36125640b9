#!/usr/bin/env python3
"""Compiles the programs that a manual page shows and runs its sessions.

  run_examples.py PAGE EXAMPLES HEADERS:LIBRARIES... [--record] -- CC CXX [FLAG...]

The sessions run one after the other in a folder of their own, on a copy of the example. HEADERS is the folder of the
public headers, LIBRARIES are those of the libraries. Warnings are errors. With --record the outputs are written into
the page instead of being compared.
"""

import difflib
import os
import shlex
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, "tool"))
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import pages  # noqa: E402
from run_sessions import lay_out, output_of, without_empty_end  # noqa: E402

STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Werror"]


def write(path, text, mode=0o644):
    with open(path, "w", encoding="utf-8") as file:
        os.fchmod(file.fileno(), mode)
        file.write(text)


def lay_out_build(folder, prefix, compilers, flags):
    """Compilers and pkg-config files, so that the commands of the pages work as they are printed."""
    include, *libraries = prefix.split(":")
    for name, compiler in zip(("cc", "c++"), compilers):
        write(os.path.join(folder, name), f'#!/bin/sh\nexec {shlex.join([compiler, *STRICT, *flags])} "$@"\n', 0o755)
    where = " ".join(f"-L{library} -Wl,-rpath,{library}" for library in dict.fromkeys(libraries))
    for name, needed in {"veltorstl": "-lveltorstl -lveltorplatform", "ldtr": "-lldtr -lveltorplatform",
                         "veltorplatform": "-lveltorplatform"}.items():
        write(os.path.join(folder, name + ".pc"),
              f"Name: {name}\nDescription: as built\nVersion: 0\nLibs: {where} {needed}\nCflags: -I{include}\n")


def compile_command(source):
    """As the overview page, cfg.3, tells it."""
    return f"cc -std=c99 -o {source.removesuffix('.c')} {source} $(pkg-config --cflags --libs veltorstl)"


def main():
    before, (cc, cxx, *flags) = sys.argv[1:sys.argv.index("--")], sys.argv[sys.argv.index("--") + 1:]
    page, examples, prefix = before[:3]
    record = before[3:] == ["--record"]
    with open(page, encoding="utf-8") as file:
        text = file.read()
    lines = text.splitlines()
    commands = programs = failed = 0
    # From the end, so that what is recorded moves no line that is still to come.
    recorded = []
    with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryDirectory() as tools:
        lay_out(folder, examples)
        lay_out_build(tools, prefix, (cc, cxx), flags)
        environment = {"PATH": f"{tools}:/usr/bin:/bin", "PKG_CONFIG_PATH": tools, "LC_ALL": "C", "HOME": folder}
        for block in pages.blocks_of(text):
            if block.kind in ("program", "file"):
                write(os.path.join(folder, block.name), block.text())
            if block.kind == "program":
                programs += 1
                made = subprocess.run(["sh", "-c", compile_command(block.name)], cwd=folder, env=environment,
                                      check=False)
                if made.returncode != 0:
                    failed += 1
                    print(f"FAILED: {block.name} does not compile")
            if block.kind != "session":
                continue
            shown = []
            for command, shown_as, expected in block.commands():
                commands += 1
                actual = output_of(command, folder, environment, False)
                shown += shown_as + actual
                if not record and actual != without_empty_end(expected):
                    failed += 1
                    print(f"FAILED: {command}")
                    print("\n".join(difflib.unified_diff(expected, actual, page, "actual", lineterm="")))
            recorded.append((block, shown))
    if record:
        for block, shown in reversed(recorded):
            lines[block.first:block.first + len(block.lines)] = [pages.written(line) for line in shown]
        write(page, "\n".join(lines) + "\n")
    print(f"{programs} programs, {commands} commands, {failed} failed")
    return 1 if failed or commands == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
