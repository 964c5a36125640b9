#!/usr/bin/env python3
"""Runs the server of the examples while its configuration file changes.

  server_test.py SERVER VELTOR EXAMPLE

The tool changes the file; it is broken in several ways, and mended; and the server, which must follow the changes and
survive the rest, is told to end. Each step waits for the line in which the server tells of it. In the end each thread
must have said its part, and nothing else, in the order of the steps.
"""

import os
import queue
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

DEADLINE_SECONDS = 60
FILE = "zorslapd.conf"
THREADS = ("listener", "connections", "audit")

STARTS = {
    "listener": ["zor-slapdPort: 389", "zor-slapdSizeLimit: 500", "zor-slapdTimeLimit: 900"],
    "connections": ["zor-slapdAllowAnon: true", "zor-slapdIdleTimeOut: 300"],
    "audit": ["zor-audit: true", "zor-auditAdd: true", "zor-auditBind: true"],
}


class Server:
    """The running program and the lines that it has printed so far, by the part of it that printed them."""

    def __init__(self, binary, folder):
        self.process = subprocess.Popen([binary, FILE, "20"], cwd=folder, stdin=subprocess.DEVNULL,
                                        env={**os.environ, "LC_ALL": "C.UTF-8"}, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True)
        self.said = {}
        self.lines = queue.Queue()
        threading.Thread(target=self.read_lines, daemon=True).start()

    def read_lines(self):
        for line in self.process.stdout:
            self.lines.put(line.rstrip("\n"))
        self.lines.put(None)

    def wait_for(self, who, *texts):
        """Waits until a part of the server has said these, one after the other, and nothing behind them."""
        deadline = time.monotonic() + DEADLINE_SECONDS
        while not all(map(str.endswith, self.newest(who, len(texts)), texts)):
            try:
                line = self.lines.get(timeout=max(deadline - time.monotonic(), 0))
            except queue.Empty:
                sys.exit(f"no {who}: {texts} in time; said so far: {self.said}")
            if line is None:
                sys.exit(f"the server ended before {who}: {texts}; said: {self.said}, {self.process.stderr.read()}")
            part, _, text = line.partition(": ")
            self.said.setdefault(part, []).append(text)

    def newest(self, who, count):
        said = self.said.get(who, [])
        return said[-count:] if len(said) >= count else [""] * count

    def end(self, number):
        self.process.send_signal(number)
        self.wait_for("server", f"ended on signal {number.value}")
        status = self.process.wait(DEADLINE_SECONDS)
        assert self.lines.get(timeout=DEADLINE_SECONDS) is None, "it said more"
        assert (status, self.process.stderr.read()) == (0, ""), status


class File:
    """The configuration file in the hands of those who change it."""

    def __init__(self, veltor, folder):
        self.veltor = veltor
        self.path = os.path.join(folder, FILE)

    def tool(self, *arguments):
        subprocess.run([self.veltor, "-F", self.path, *arguments], check=True, stdout=subprocess.DEVNULL,
                       env={**os.environ, "LC_ALL": "C.UTF-8"})

    def text(self):
        with open(self.path, encoding="utf-8") as file:
            return file.read()

    def put(self, text):
        """As an editor: a new file takes the name. Readers compare whole seconds, and it is later by one."""
        seconds = max(int(os.stat(self.path).st_mtime) + 1, int(time.time()))
        with open(self.path + ".new", "w", encoding="utf-8") as file:
            file.write(text)
        os.utime(self.path + ".new", (seconds, seconds))
        os.rename(self.path + ".new", self.path)


def follow_the_file(binary, file, folder):
    server = Server(binary, folder)
    server.wait_for("server", "ready")

    # Two settings of one thread, and one of another, by the tool.
    file.tool("set", "port=1389", "timeLimit=60")
    server.wait_for("listener", "zor-slapdPort: 389 -> 1389", "zor-slapdTimeLimit: 900 -> 60")
    file.tool("set", "-b", "cn=Audit, cn=Configuration", "auditBind=false")
    server.wait_for("audit", "zor-auditBind: true -> false")

    # A text that ends the load. Nobody stops.
    good = file.text()
    line = good[:good.index("dn: cn=Audit")].count("\n") + 1
    file.put(good.replace("dn: cn=Audit", "dn: Audit"))
    broken = f"keeps its settings: {FILE}:{line}: Attribute name in DN is not valid."
    for thread in THREADS:
        server.wait_for(thread, broken)
    # It is mended, and changed by that.
    file.put(good.replace("zor-slapdIdleTimeOut: 300", "zor-slapdIdleTimeOut: 200"))
    for thread in THREADS:
        server.wait_for(thread, "the file can be used again",
                        *(["zor-slapdIdleTimeOut: 300 -> 200"] if thread == "connections" else []))

    # A value that its type refuses. The load goes on, and only the thread whose entry it is has to say something.
    file.put(file.text().replace("zor-slapdPort: 1389", "zor-slapdPort: ldap"))
    server.wait_for("listener", "keeps its settings: cn=Configuration has a line that can't be used")
    unused = file.text()
    # The tool brings back what it has kept: the text before its last change.
    file.tool("restore", "--yes")
    server.wait_for("listener", "the file can be used again")
    server.wait_for("audit", "zor-auditBind: false -> true")
    server.wait_for("connections", "zor-slapdIdleTimeOut: 200 -> 300")

    # The file is away, and comes back.
    os.rename(file.path, file.path + ".away")
    for thread in THREADS:
        server.wait_for(thread, f"keeps its settings: {FILE}: Configuration file not found.")
    os.rename(file.path + ".away", file.path)
    for thread in THREADS:
        server.wait_for(thread, "the file can be used again")
    server.end(signal.SIGTERM)

    again = "the file can be used again"
    gone = f"keeps its settings: {FILE}: Configuration file not found."
    expected = {
        "server": ["ready", "ended on signal 15"],
        "listener": [*STARTS["listener"], "zor-slapdPort: 389 -> 1389", "zor-slapdTimeLimit: 900 -> 60", broken, again,
                     "keeps its settings: cn=Configuration has a line that can't be used", again, gone, again],
        "connections": [*STARTS["connections"], broken, again, "zor-slapdIdleTimeOut: 300 -> 200",
                        "zor-slapdIdleTimeOut: 200 -> 300", gone, again],
        "audit": [*STARTS["audit"], "zor-auditBind: true -> false", broken, again, "zor-auditBind: false -> true", gone,
                  again],
    }
    assert server.said == expected, server.said
    return unused


def notice_two_texts_of_one_second(binary, file, folder):
    """Their times do not differ, so the first of them must not be taken over."""
    server = Server(binary, folder)
    server.wait_for("server", "ready")
    good = file.text()
    for size in range(1000, 2000, 2):
        wait_for_clock(lambda now: now % 1 < 0.3 and int(now) != int(os.stat(file.path).st_mtime))
        seconds = []
        for number, part in ((size, 0.6), (size + 1, 0)):
            with open(file.path, "w", encoding="utf-8") as stream:
                stream.write(good.replace("zor-slapdSizeLimit: 500", f"zor-slapdSizeLimit: {number}"))
            seconds.append(int(os.stat(file.path).st_mtime))
            # Time for many looks.
            wait_for_clock(lambda now, part=part: now % 1 >= part or int(now) > seconds[0])
        server.wait_for("listener", f" -> {size + 1}")
        # On a slow machine the second was over too soon. The next one may do.
        if seconds[0] == seconds[1]:
            break
    assert not any(text.endswith(f" -> {size}") for text in server.said["listener"]), server.said
    server.end(signal.SIGINT)
    assert server.said["server"] == ["ready", "ended on signal 2"], server.said


def wait_for_clock(condition):
    while not condition(time.time()):
        time.sleep(0.01)


def refuse_to_start(binary, file, folder, unused):
    """Nothing starts from a file that can't be used, and the file stays as it is."""
    for text, complaint in ((unused, "cn=Configuration has a line that can't be used"),
                            ("port: 389\n", f"{FILE}:1: Attribute is not a member of object class.")):
        file.put(text)
        done = subprocess.run([binary, FILE], cwd=folder, capture_output=True, text=True, check=False,
                              timeout=DEADLINE_SECONDS)
        assert (done.returncode, done.stdout, done.stderr) == (1, "", f"server: {complaint}\n"), done
        assert file.text() == text


def main():
    binary, veltor, example = map(os.path.abspath, sys.argv[1:4])
    with tempfile.TemporaryDirectory() as folder:
        file = File(veltor, folder)
        shutil.copy(example, file.path)
        os.chmod(file.path, 0o640)
        unused = follow_the_file(binary, file, folder)
        notice_two_texts_of_one_second(binary, file, folder)
        refuse_to_start(binary, file, folder, unused)
    print("followed its file")
    return 0


if __name__ == "__main__":
    sys.exit(main())
