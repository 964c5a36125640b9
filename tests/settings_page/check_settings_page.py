#!/usr/bin/env python3
"""Holds the manual page of the settings, as it is shown, against what "veltor explain --list" says.

  check_settings_page.py MANDOC VELTOR PAGE
"""

import json
import re
import subprocess
import sys


def output_of(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, check=True, encoding="utf-8").stdout


def settings_of(page, mandoc):
    """(name, text) for each setting of the page, in its order."""
    # The lines are so wide that nothing is broken; what is bold or underlined was printed twice.
    lines = re.sub(".\b", "", output_of(mandoc, "-T", "ascii", "-O", "width=900", page)).splitlines()
    begin = lines.index("SETTINGS") + 1
    end = next(number for number in range(begin, len(lines)) if lines[number][:1].strip())
    section = [line for line in lines[begin:end] if line.strip()]
    margin = min(len(line) - len(line.lstrip()) for line in section)
    settings = []
    for line in section:
        if line[margin] != " ":
            name, _, text = line.strip().partition(" ")
            settings.append([name, text.strip()])
        else:
            settings[-1][1] = f"{settings[-1][1]} {line.strip()}".strip()
    return [tuple(setting) for setting in settings]


def limits_in(text):
    """What the words of a setting say, as the JSON document says it."""
    told = {"enum": None, "mask": None, "min": None, "max": None}
    if words := re.search(r"(?:one of|schemes|known): (.*?) \(", text):
        told["enum"] = words[1].split(", ")
    if mask := re.search(r"bits of (0x[0-9A-F]+)", text):
        told["mask"] = int(mask[1], 16)
    if limits := re.search(r"(?:from|of) (-?\d+) to (-?\d+)\b", text):
        told["min"], told["max"] = map(int, limits.groups())
    told["single"] = {"single-valued)": True, "several values)": False}[re.split("[(;] ?", text)[-1]]
    return told


def expected_limits(setting):
    expected = {key: setting[key] for key in ("enum", "mask", "min", "max", "single")}
    if setting["syntax"] in ("dn", "enum", "krbdn", "mask"):
        # These have no limits, whatever the catalogue holds.
        expected["min"] = expected["max"] = None
    return expected


def main():
    mandoc, veltor, page = sys.argv[1:4]
    told = settings_of(page, mandoc)
    lines = output_of(veltor, "explain", "--list").splitlines()
    settings = json.loads(output_of(veltor, "explain", "--list", "--json"))["settings"]

    failures = []

    def compare(what, on_page, in_tool):
        if on_page != in_tool:
            failures.append(f"{what}\n  page: {on_page}\n  tool: {in_tool}")

    compare("names and their order", [name for name, _ in told], [setting["name"] for setting in settings])
    for (name, text), line, setting in zip(told, lines, settings):
        compare("words", f"{name} {text}", " ".join(line.split()))
        compare(f"limits of {name}", limits_in(text), expected_limits(setting))
    for failure in failures:
        print(f"FAILED: {failure}")
    print(f"{len(told)} settings, {len(failures)} failed")
    return 1 if failures or not told else 0


if __name__ == "__main__":
    sys.exit(main())
