#!/usr/bin/env python3
"""Holds the change records of veltor diff --ldif against what veltor modify takes.

Pairs of small files are made at random of lines that are good, bad and odd. Whatever records are printed must be taken,
and nothing may differ behind them but what stands above the entries; where the command refuses, it must print nothing
and say why.

  check_differences.py VELTOR [COUNT [SEED]]
"""

import os
import random
import re
import subprocess
import sys
import tempfile

# A DN, and lines that its entry may have. The first line is there mostly: it names the entry.
ENTRIES = [
    ("cn=Configuration", ["cn: Configuration", "zor-slapdAdminDN: cn=root"]),
    ("cn=P", ["cn: P"]),
    ("cn=C, cn=P", ["cn: C"]),
    ("cn=G, cn=C, cn=P", ["cn: G", "cn: other"]),
    ("CN=q+ou=r, cn=P", ["cn: q", "ou: r"]),
    ("o=(x)", ["o: (x)"]),
]
GOOD = [
    "objectclass: top",
    "description: a",
    "description: b",
    "description: A",
    "description: c: d",
    "description: a\tb",
    "description: <a",
    "description: k\u00f6ln",
    "zor-slapdPort: 389",
    "zor-slapdPort: 390",
    "zor-slapdSuffix: o=a",
    "zor-slapdSuffix: o=b",
    "zor-slapdSuffix: O=A",
    "zor-slapdSetenv: A=1",
    "zor-slapdSetenv: A=2",
    "zor-slapdAdminPW: >1xIheSypXWzXARA<",
    "zor-slapdReferral: ldap://a",
    "zor-slapdErrorLog: /a\n b",
    "zor-slapdInvalidLine: a",
]
ODD = [
    "no colon",
    "no colon either",
    ": no name",
    "odd name: 1",
    "odd password name: 1",
    "x:",
    "x:  ( )",
    "x: (a",
    "x: a\x01b",
    "x: ***",
    "control: 1",
    "changetype: add",
    "version: 1",
    "dn-like: 1",
    "myPassword: ***",
    "zor-slapdPort:",
    "zor-slapdPort: 70000",
    "zor-slapdPort: 391\nzor-slapdPort: 392",
    "zor-slapdSuffix:",
    "zor-slapdSuffix: none",
    "zor-slapdAdminPW: clear",
    "zor-slapdAdminPW: >1vTmXX<",
    "zor-slapdAdminPW: a\x02b",
    "zor-slapdMasterDN: cn=\\28x\\29",
    "# a comment",
    " continued",
]
WHY_NOT = re.compile(r"is a secret and differs|has a secret in it|change records can't (make|name)|the last line has no line feed")
PERMITS = ["--orphan", "--allow-unknown", "--allow-lockout"]


def lines_of_entry(chance, names, odd):
    lines = [line for line in names if chance.random() < 0.97]
    for _ in range(chance.randrange(4)):
        lines.append(chance.choice(ODD if chance.random() < odd else GOOD))
    return lines


def changed(chance, entries, odd):
    """Another list of entries, mostly near to the first."""
    result = []
    for dn, lines in entries:
        fate = chance.random()
        if fate < 0.2:
            continue
        lines = list(lines)
        if fate > 0.5:
            for _ in range(chance.randrange(3)):
                if lines and chance.random() < 0.4:
                    # What names the entry stays mostly.
                    lines.pop(chance.randrange(len(lines)) if chance.random() < 0.2 else -1)
                elif chance.random() < 0.3:
                    chance.shuffle(lines)
                else:
                    pool = ODD if chance.random() < odd else GOOD
                    lines.insert(chance.randrange(len(lines) + 1), chance.choice(pool))
        result.append((dn, lines))
    for dn, names in ENTRIES:
        if chance.random() < 0.1:
            result.append((dn, lines_of_entry(chance, names, odd)))
    return result


def text_of(chance, entries):
    """Of some files the last line has no line feed."""
    text = "charset: UTF-8\nversion: 1\n"
    for dn, lines in entries:
        text += f"\ndn: {dn}\n" + "".join(line + "\n" for line in lines)
    return text[:-1] if chance.random() < 0.1 else text


class Check:
    def __init__(self, program, folder):
        self.program = program
        self.folder = folder
        self.environment = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "HOME": folder}
        self.count = {}

    def run(self, *arguments):
        run = subprocess.run([self.program, *arguments], cwd=self.folder, env=self.environment,
                             stdin=subprocess.DEVNULL, capture_output=True, check=False)
        return run.returncode, run.stdout.decode(), run.stderr.decode()

    def write(self, name, text):
        with open(os.path.join(self.folder, name), "w", encoding="utf-8") as file:
            file.write(text)

    def hold(self, before, after, secrets):
        """What is wrong with a pair; "" for nothing."""
        self.write("before.conf", before)
        self.write("after.conf", after)
        show = ["--show-secrets"] if secrets else []
        code, out, err = self.run("diff", "--ldif", *show, "before.conf", "after.conf")
        self.count[code] = self.count.get(code, 0) + 1
        if code in (2, 3):
            fits = not out and WHY_NOT.search(err) and not (secrets and code == 2)
            return "" if fits else f"exit {code}: {out}{err}"
        if code == 4:
            loads = [self.run("search", "-F", name)[0] for name in ("before.conf", "after.conf")]
            return "" if loads != [0, 0] and not out else f"exit 4: {out}{err}"
        if code == 0:
            return f"exit 0: {out}" if out else ""
        if code != 1:
            return f"exit {code}: {err}"
        self.write("changes.ldif", out)
        # Only what the comments tell of is permitted.
        permits = [option for option in PERMITS if f"veltor modify {option} permits that" in out]
        code, _, err = self.run("modify", "--yes", "--no-backup", *permits, "-F", "before.conf", "-f", "changes.ldif")
        if code != 0:
            return f"modify, exit {code}: {err}{out}"
        code, rest, err = self.run("diff", "--ldif", "--show-secrets", "before.conf", "after.conf")
        above = "\ndn: " not in rest and "\n# Above the entries" in rest
        return "" if code == 0 or (code == 1 and above) else f"left over, exit {code}: {rest}{err}of: {out}"


def main():
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 150
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else 1
    chance = random.Random(seed)
    with tempfile.TemporaryDirectory() as folder:
        check = Check(os.path.realpath(sys.argv[1]), folder)
        failed = 0
        for _ in range(count):
            odd = chance.choice([0, 0.2, 0.5])
            entries = [(dn, lines_of_entry(chance, names, odd)) for dn, names in ENTRIES if chance.random() < 0.5]
            before, after = text_of(chance, entries), text_of(chance, changed(chance, entries, odd))
            if chance.random() < 0.5:
                before, after = after, before
            finding = check.hold(before, after, chance.random() < 0.7)
            if finding:
                failed += 1
                print(f"--- {before!r}\n+++ {after!r}\n{finding}\n")
        print(f"{count} pairs, exit statuses: {dict(sorted(check.count.items()))}, {failed} failed")
        if failed:
            return 1
        # Enough of each kind, or the lines above do not make what they should.
        return 0 if check.count.get(1, 0) * 3 > count and all(check.count.get(code) for code in (0, 2, 3)) else 1


if __name__ == "__main__":
    sys.exit(main())
