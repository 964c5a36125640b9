#!/usr/bin/env python3
"""Sends a signal at every system call of a change that the tool makes.

A good change is traced first. Then it runs again for every call of it, from the one that opens the lock file, and
strace sends SIGTERM, SIGINT or SIGHUP at that very call. Afterwards the file holds the old text or the new one, the
new one exactly when the tool said so; nothing is half-written or left over, and the next change succeeds.

  signal_steps.py BINARY EXAMPLE

Ends with 77 where nothing can be traced.
"""

import collections
import concurrent.futures
import os
import re
import shutil
import signal
import stat
import subprocess
import sys
import tempfile

SKIPPED = 77
SIGNALS = [signal.SIGTERM, signal.SIGINT, signal.SIGHUP]
FILE = "zorslapd.conf"
COMMAND = ["-F", FILE, "set", "port=1389"]
# A program under the sanitizers can't look for leaks while it is traced.
ENVIRONMENT = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LC_ALL": "C.UTF-8",
               "ASAN_OPTIONS": "detect_leaks=0"}


def content(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


class Bench:
    def __init__(self, binary, example, base):
        self.binary = binary
        self.example = example
        self.base = base
        self.old = content(example)
        self.new = self.old.replace("zor-slapdPort: 389\n", "zor-slapdPort: 1389\n")

    def run(self, name, strace):
        folder = os.path.join(self.base, name)
        os.mkdir(folder)
        path = os.path.join(folder, FILE)
        shutil.copy(self.example, path)
        os.chmod(path, 0o600)
        return folder, subprocess.run([*strace, self.binary, *COMMAND], cwd=folder, env=ENVIRONMENT,
                                      stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60,
                                      check=False)

    def calls(self):
        """The calls of a good change from its lock on: name, and which call of that name it is."""
        log = os.path.join(self.base, "log")
        _, done = self.run("good", ["strace", "-o", log])
        if done.returncode != 0:
            sys.exit(f"the good change failed: {done.stderr}")
        counts = collections.Counter()
        calls = []
        locked = False
        with open(log, encoding="utf-8", errors="replace") as lines:
            for match in filter(None, (re.match(r"(\w+)\((.*)", line) for line in lines)):
                counts[match[1]] += 1
                locked = locked or (match[1] == "openat" and FILE + ".lock" in match[2])
                # Nothing is delivered to a process that has ended.
                if locked and match[1] != "exit_group":
                    calls.append((match[1], counts[match[1]]))
        return calls

    def complaints(self, number, call, sent):
        inject = f"inject={call[0]}:signal={sent.value}:when={call[1]}"
        folder, done = self.run(str(number), ["strace", "-o", "/dev/null", "-e", inject])
        text = content(os.path.join(folder, FILE))
        told = "written; backup" in done.stdout
        if done.returncode not in (0, -sent, 128 + sent):
            yield f"exit status {done.returncode}: {done.stderr}"
        if text != (self.new if told else self.old):
            yield f"told {done.stdout!r}, and the file holds {'another' if text == self.old else 'an odd'} text"
        if stat.S_IMODE(os.stat(os.path.join(folder, FILE)).st_mode) != 0o600:
            yield "the mode was changed"
        backup = os.path.join(folder, FILE + ".bak")
        if (told or os.path.exists(backup)) and content(backup) != self.old:
            yield "the backup does not hold the old text"
        left = set(os.listdir(folder)) - {FILE, FILE + ".bak", FILE + ".lock"}
        if left:
            yield f"left over: {left}"
        again = subprocess.run([self.binary, *COMMAND], cwd=folder, env=ENVIRONMENT, stdin=subprocess.DEVNULL,
                               capture_output=True, text=True, timeout=60, check=False)
        if again.returncode != 0 or content(os.path.join(folder, FILE)) != self.new:
            yield f"the next change: {again.returncode} {again.stderr}"


def main():
    binary, example = map(os.path.abspath, sys.argv[1:3])
    try:
        subprocess.run(["strace", "-o", "/dev/null", "true"], check=True, capture_output=True)
    except (OSError, subprocess.CalledProcessError) as error:
        print(f"nothing can be traced here: {error}")
        return SKIPPED
    with tempfile.TemporaryDirectory() as base, concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        bench = Bench(binary, example, base)
        calls = bench.calls()
        jobs = [(number, call, SIGNALS[number % len(SIGNALS)]) for number, call in enumerate(calls)]
        results = pool.map(lambda job: (job, list(bench.complaints(*job))), jobs)
        failed = 0
        for (_, call, sent), complaints in results:
            for complaint in complaints:
                failed += 1
                print(f"{sent.name} at {call[0]} number {call[1]}: {complaint}")
    print(f"{len(jobs)} signals, {failed} complaints")
    return 1 if failed or not jobs else 0


if __name__ == "__main__":
    sys.exit(main())
