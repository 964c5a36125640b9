#!/usr/bin/env python3
"""Lets Doxygen read the public headers: it may have nothing to say about them, and must about one that lacks something.

    check_reference.py DOXYGEN DOXYFILE HEADERS
"""

import os
import subprocess
import sys
import tempfile

# What Doxygen must find fault with, each behind a header of ours.
FAULTS = [
    ("a function without a comment", "int cfg_undocumented(void *handle);\n"),
    ("an argument that is not told of", "/** Does it.\n * @return 0 */\nint cfg_silent(void *handle);\n"),
    ("a result that is not told of", "/** Does it.\n * @param handle any */\nint cfg_silent(void *handle);\n"),
    ("an argument that there is not",
     "/** Does it.\n * @param handle any\n * @param other none */\nvoid cfg_wrong(void *handle);\n"),
    ("a member without a comment", "/** A record. */\nstruct cfg_bare {\n    int line;\n};\n"),
    ("a macro without a comment", "#define CFG_BARE 1\n"),
]


def read(doxygen, doxyfile, folder, settings):
    """Runs Doxygen with some settings in place of the file's; returns what it says, and its exit status."""
    with open(doxyfile, encoding="utf-8") as file:
        configuration = file.read()
    configuration += f'\nOUTPUT_DIRECTORY = "{folder}"\n{settings}'
    done = subprocess.run([doxygen, "-"], input=configuration, cwd=folder, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    return done.stdout, done.returncode


def main():
    doxygen, doxyfile, headers = sys.argv[1:4]
    failed = 0
    with tempfile.TemporaryDirectory() as folder:
        said, status = read(doxygen, doxyfile, folder, "")
        if said or status != 0:
            failed += 1
            print(f"FAILED: the public headers (exit status {status})\n{said}")
        reference = os.path.join(folder, "html")
        pages = os.listdir(reference) if os.path.isdir(reference) else []
        for header in os.listdir(headers):
            page = header.replace("_", "__").replace(".h", "_8h.html")
            if header.endswith(".h") and page not in pages:
                failed += 1
                print(f"FAILED: the reference has no page of {header}")
    with open(os.path.join(headers, "cfg.h"), encoding="utf-8") as file:
        sound = file.read()
    for name, text in [("nothing", ""), *FAULTS]:
        with tempfile.TemporaryDirectory() as folder:
            header = os.path.join(folder, "cfg.h")
            with open(header, "w", encoding="utf-8") as file:
                file.write(sound + text)
            said, status = read(doxygen, doxyfile, folder,
                                f'INPUT = "{header}"\nUSE_MDFILE_AS_MAINPAGE =\n')
            if (status != 0) != bool(text):
                failed += 1
                print(f"FAILED: a header with {name}: exit status {status}\n{said}")
    print(f"{failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
