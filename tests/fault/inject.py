#!/usr/bin/env python3
"""Lets every system call of one safe change fail, and kills the process before and after each.

A good change is traced first. Then it runs again for every call that the library made in it, from the bind to the
unbind, with strace injecting one fault into that very call; each time in a folder of its own. Afterwards the
configuration's name holds exactly the old or the new text, the one that codes and message tell; the backup is whole;
the next change succeeds without help; nothing is left over and nothing else was touched. What a kill can't show, that
things are on the disk in the right order, is read from the trace of the good change.

  inject.py DRIVER           a subset: each call once, each error of each kind of call once, every kill
  inject.py DRIVER --full    all of it; so does the variable VELTOR_FAULT_FULL

Ends with 77 where nothing can be traced.
"""

import argparse
import collections
import concurrent.futures
import os
import re
import shutil
import stat
import struct
import subprocess
import sys
import tempfile
import threading

SKIPPED = 77
ERRORS = ["ENOSPC", "EIO", "EDQUOT", "EACCES"]
# A signal interrupts these; the library has to try again.
RESTARTABLE = {
    "openat", "fstat", "newfstatat", "read", "pread64", "write", "fcntl", "fsync", "fchown", "fchmod", "fgetxattr",
    "fsetxattr", "utimensat", "renameat", "renameat2", "ftruncate",
}
# A new file must not take a place when one of these failed on it.
NEVER_IGNORED = {"write", "fchown", "fchmod", "fsetxattr", "utimensat", "fsync"}
# Work on memory: a failure is a want of it, which no install is to blame for.
MEMORY = {"mmap", "munmap", "brk", "mremap", "madvise"}
# The steps that everything hangs on: all errors in the subset, too.
ALWAYS_ALL = {"write", "fsync", "renameat"}
SECONDS_TO_A_HANG = 60

OLD = ("charset: UTF-8\nversion: 1\n\ndn: o=x\nobjectclass: top\n\n"
       "# the first one\ndn: cn=a, o=x\nobjectclass: top\n# where it listens\nzor-slapdPort: 389\n\n")
OLDER = OLD.replace("389", "1")


def with_port(text, port):
    return re.sub(r"(where it listens\nzor-slapdPort: )\d+", r"\g<1>" + port, text)


def with_entry(text, port):
    return text + f"dn: cn={port}, o=x\nzor-slapdPort: {port}\n\n"


class Failure(Exception):
    pass


def need(condition, message):
    if not condition:
        raise Failure(message)


# ---- Folders ----


class Scene:
    """A folder before a change, and what the change makes of it."""

    name = ""
    configuration = "zorslapd.conf"  # as the driver is told
    real = "zorslapd.conf"
    backup = "zorslapd.conf.bak"
    older_backup = OLDER  # None: there is none
    adds = False
    leftovers = []

    def prepare(self, folder):
        """Makes the files. Their content and what they are is compared later."""
        raise NotImplementedError

    def options(self):
        return ["-b", self.backup] + (["-a"] if self.adds else []) + [self.configuration, "636"]

    def new_text(self):
        return with_entry(OLD, "636") if self.adds else with_port(OLD, "636")

    def is_temporary(self, path):
        """True for a name that a crash may leave."""
        folder, name = os.path.split(path)
        owners = {self.real: folder == os.path.dirname(self.real),
                  self.backup: folder == os.path.dirname(self.backup)}
        return any(there and re.fullmatch(re.escape("." + os.path.basename(owner) + ".veltor.") + "[0-9A-Za-z]+", name)
                   for owner, there in owners.items())


def put(folder, name, text, mode=0o644):
    path = os.path.join(folder, name)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, mode)
    return path


def bystanders(folder, owner):
    """Names that come close to those that are cleaned."""
    put(folder, f".{owner}.veltor", "mine")
    put(folder, f".{owner}.veltor.", "mine")
    put(folder, f".{owner}x.veltor.abcdef", "mine")
    put(folder, f"{owner}.veltor.abcdef", "mine")
    put(folder, f".{owner}.swp", "mine")
    put(folder, "other.conf", "mine", 0o600)
    put(folder, f".{owner}.veltor.folder/file", "mine")


def foreign(path):
    """A file with an owner and an access list of its own, as far as the system lets a test make one."""
    if os.geteuid() == 0:
        os.chown(path, 1, 2)
    entries = [(0x01, 6, 0xFFFFFFFF), (0x02, 4, 3), (0x04, 4, 0xFFFFFFFF), (0x10, 4, 0xFFFFFFFF),
               (0x20, 0, 0xFFFFFFFF)]
    try:
        os.setxattr(path, "system.posix_acl_access",
                    struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries))
    except OSError:
        pass  # a file system without lists


class FirstChange(Scene):
    """Nobody wrote safely before; the backup lies beside the file and replaces an older one."""

    name = "first change"

    def prepare(self, folder):
        foreign(put(folder, self.real, OLD, 0o640))
        put(folder, self.backup, OLDER, 0o600)
        bystanders(folder, self.real)


class LaterChange(Scene):
    """After a crash of another writer; a link leads to the file, and the backup lies elsewhere."""

    name = "later change"
    configuration = "link.conf"
    real = "etc/zorslapd.conf"
    backup = "backup/old.conf"
    older_backup = None
    adds = True
    leftovers = ["etc/.zorslapd.conf.veltor.aaaaaa", "etc/.zorslapd.conf.veltor.bbbbbb",
                 "backup/.old.conf.veltor.cccccc"]

    def prepare(self, folder):
        put(folder, self.real, OLD, 0o604)
        put(folder, self.real + ".lock", "12345\nanother\n", 0o600)
        os.symlink(self.real, os.path.join(folder, self.configuration))
        for name in self.leftovers:
            put(folder, name, OLD[:40], 0o600)
        bystanders(os.path.join(folder, "etc"), "zorslapd.conf")
        bystanders(os.path.join(folder, "backup"), "old.conf")


SCENES = [FirstChange(), LaterChange()]


def content(path):
    with open(path, "rb") as file:
        return file.read().decode("utf-8")


def attributes(path):
    status = os.stat(path)
    try:
        access_list = os.getxattr(path, "system.posix_acl_access")
    except OSError:
        access_list = None
    return status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode), access_list


def everything(folder):
    """What lies in the folder: path -> what it is."""
    found = {}
    for parent, folders, files in os.walk(folder):
        for name in folders + files:
            path = os.path.join(parent, name)
            status = os.lstat(path)
            if stat.S_ISREG(status.st_mode):
                what = (status.st_ino, status.st_mtime_ns, attributes(path), content(path))
            elif stat.S_ISLNK(status.st_mode):
                what = os.readlink(path)
            else:
                what = "folder"
            found[os.path.relpath(path, folder)] = what
    return found


# ---- Traces ----

Call = collections.namedtuple("Call", "step name occurrence arguments result")


def calls_of(log):
    """Every call of a trace in order. The step is None where the library is not at work."""
    counts = collections.Counter()
    step = None
    calls = []
    with open(log, encoding="utf-8", errors="replace") as lines:
        for line in lines:
            match = re.match(r"(\w+)\((.*)\)\s+= (.*)$", line) or re.match(r"(\w+)\((.*?)(?:\)\s+= (\?.*))?$", line)
            if match is None:
                continue
            name, arguments, result = match.groups()
            counts[name] += 1
            mark = re.search(r'"/mark/(\w+)"', arguments)
            if mark is not None:
                step = None if mark[1] in ("pause", "end") else mark[1]
                continue
            calls.append(Call(step, name, counts[name], arguments, result))
    return calls


def path_of(call):
    """The path of the file that the call works on, as strace -y tells it."""
    match = re.match(r"\d+<([^>]*)>", call.arguments)
    return match[1] if match else ""


def renamed(call):
    """The folder and both names of a rename."""
    match = re.match(r'\d+<([^>]*)>, "([^"]*)", \d+<[^>]*>, "([^"]*)"', call.arguments)
    return match.groups() if match else ("", "", "")


class Trace:
    """The good change."""

    def __init__(self, calls, scene, folder):
        self.calls = calls
        self.library = [index for index, call in enumerate(calls) if call.step is not None]
        self.scene = scene
        self.folder = folder
        self.install = self._rename_to(scene.real)
        self.keep = self._rename_to(scene.backup)

    def _rename_to(self, name):
        folder, base = os.path.split(os.path.join(self.folder, name))
        found = [index for index in self.library if self.calls[index].name == "renameat" and
                 renamed(self.calls[index])[0::2] == (folder, base)]
        need(len(found) == 1, f"{name} is renamed to {len(found)} times")
        return found[0]

    def check_order(self):
        """What is renamed was synced before as it is; the folder is synced after it; the backup comes first."""
        for rename in (self.keep, self.install):
            folder, temporary, _ = renamed(self.calls[rename])
            path = os.path.join(folder, temporary)
            works = [(index, self.calls[index].name) for index in self.library if path_of(self.calls[index]) == path]
            syncs = [index for index, name in works if name == "fsync"]
            changes = [index for index, name in works if name in NEVER_IGNORED - {"fsync"}]
            need(any(name == "write" for _, name in works), f"{path} is not written")
            need(syncs and changes and max(changes) < max(syncs) < rename,
                 f"{path} is not synced between its last change and its rename")
            after = [index for index in self.library if self.calls[index].name == "fsync" and index > rename and
                     path_of(self.calls[index]) == folder]
            need(after, f"{folder} is not synced after the rename")
            if rename == self.keep:
                need(min(after) < self.install, "the backup's folder is not synced before the install")
        need(self.keep < self.install, "the backup is not in place before the install")
        # Nothing but new files and the lock is ever opened to be written.
        for index in self.library:
            call = self.calls[index]
            if call.name == "openat" and re.search("O_WRONLY|O_RDWR|O_TRUNC|O_CREAT", call.arguments):
                name = re.search('"([^"]*)"', call.arguments)[1]
                need(name.endswith(".lock") or ".veltor." in name, f"{name} is opened to be written")
            if call.name in ("unlink", "rename", "link"):
                raise Failure(f"{call.name} works on a path, not in a folder that is held open")

    def text_after(self, index):
        """What the configuration holds when the calls before this one happened."""
        return self.scene.new_text() if index > self.install else OLD

    def backup_after(self, index):
        return OLD if index > self.keep else self.scene.older_backup


# ---- Cases ----

Case = collections.namedtuple("Case", "scene trace index fault")  # fault: an error's name or "SIGKILL"


def cases_of(trace, full):
    """A call that is killed is not made: before the next one is after this one."""
    seen = collections.Counter()
    for index in trace.library:
        call = trace.calls[index]
        errors = ERRORS + (["EINTR"] if call.name in RESTARTABLE else ["ENOMEM"] if call.name in MEMORY else [])
        turn = seen[call.name]
        total = sum(1 for other in trace.library if trace.calls[other].name == call.name)
        seen[call.name] += 1
        for number, error in enumerate(errors):
            if full or call.name in ALWAYS_ALL or number % total == turn % len(errors):
                yield Case(trace.scene, trace, index, error)
    last = max(trace.library)
    for index in trace.library + [last + 1]:
        yield Case(trace.scene, trace, index, "SIGKILL")


class Bench:
    """Runs the driver in folders of their own."""

    def __init__(self, driver, base):
        self.driver = driver
        self.base = base
        self.lock = threading.Lock()
        self.count = 0
        self.environment = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LC_ALL": "C.UTF-8"}
        if "LD_LIBRARY_PATH" in os.environ:
            self.environment["LD_LIBRARY_PATH"] = os.environ["LD_LIBRARY_PATH"]

    def folder(self, scene):
        with self.lock:
            self.count += 1
            folder = os.path.join(self.base, f"{self.count:05}")
        os.makedirs(folder)
        scene.prepare(folder)
        return folder

    def run(self, folder, options, strace=()):
        try:
            done = subprocess.run([*strace, self.driver, *options], cwd=folder, env=self.environment,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                  timeout=SECONDS_TO_A_HANG, check=False)
        except subprocess.TimeoutExpired:
            raise Failure("the change hangs") from None
        return done.returncode, done.stdout.decode(), done.stderr.decode()

    def traced(self, scene):
        folder = self.folder(scene)
        log = folder + ".log"
        status, told, errors = self.run(folder, scene.options(), ["strace", "-y", "-s", "4096", "-o", log])
        need(status == 0, f"the good change failed: {told}{errors}")
        return Trace(calls_of(log), scene, folder)


def reported(told):
    """What the driver printed: step, code, whether memory is as the disk, and the message."""
    match = re.match(r"step (\w+)\ncode (\d+)\nlibrary (\d+)\nmemory (\w+)\n", told)
    need(match, f"the driver printed {told!r}")
    message = re.search(r"^msg     (.*)$", told, re.MULTILINE)
    return match[1], int(match[2]), match[4], message[1] if message else ""


def check_words(case, told, text):
    """Codes and message agree with what is in place."""
    step, code, memory, message = reported(told)
    name = case.trace.calls[case.index].name
    new = case.scene.new_text()
    need(memory == ("none" if step == "bind" else "same"), f"memory and disk: {memory}")
    if code == 0:
        need(step == "commit" and text == new, "the change succeeds, and the old text is in place")
        need(name not in NEVER_IGNORED or case.fault == "EINTR" or
             ".veltor." not in path_of(case.trace.calls[case.index]), f"{name} failed and nobody is told")
        need(case.index != case.trace.install or case.fault == "EINTR", "the install failed and nobody is told")
        return
    need(case.fault != "EINTR", "an interrupted call is not made again")
    need(message != "" or code == 90, f"code {code} without a message")
    if name in MEMORY:
        need(code in (80, 90) and text == OLD, f"code {code} for want of memory, or the new text is in place")
    elif step == "commit":
        place = "the new text is in place" if text == new else "the old text is in place"
        need(message.endswith(place), f"{place!r}, but the message is {message!r}")
    else:
        need(text == OLD, f"a failed {step}, and the new text is in place")


def check_folder(case, before, folder, killed):
    """The file holds one of both texts and is what it was; the backup is whole; all else is untouched."""
    scene = case.scene
    after = everything(folder)
    need(scene.real in after, "the configuration is gone")
    text = after[scene.real][3]
    need(text in (OLD, scene.new_text()), f"the configuration holds {text!r}")
    need(after[scene.real][2] == before[scene.real][2], f"the configuration became {after[scene.real][2]}")
    if text == OLD:
        need(after[scene.real] == before[scene.real], "the old text is in place in another file")
    else:
        need(after[scene.real][1] // 10**9 > before[scene.real][1] // 10**9, "a reader would not see the change")
    kept = after[scene.backup][3] if scene.backup in after else None
    need(kept in (scene.older_backup, OLD), f"the backup holds {kept!r}")
    need(text == OLD or kept == OLD, "the new text is in place without a backup of the old one")
    if kept == OLD:
        need(after[scene.backup][2] == before[scene.real][2], f"the backup became {after[scene.backup][2]}")
    changing = {scene.real, scene.real + ".lock", scene.backup, *scene.leftovers}
    for name, what in before.items():
        need(name in changing or after.get(name) == what, f"{name} was touched")
    for name in after.keys() - before.keys() - changing:
        need(scene.is_temporary(name), f"{name} appeared")
        need(killed or case.trace.calls[case.index].name == "unlinkat", f"{name} is left over")
        need(after[name][2][2] & 0o077 == 0 or after[name][2][:3] == before[scene.real][2][:3],
             f"{name} can be read by more than may read the configuration")
    lock = scene.real + ".lock"
    if lock in before:
        need(after[lock][0] == before[lock][0], "the lock was replaced")
    return text, kept


def check_next(bench, case, folder, text):
    """The next change works without help, and cleans up."""
    scene = case.scene
    before = everything(folder)
    status, told, errors = bench.run(folder, ["-b", scene.backup, scene.configuration, "8389"])
    need(status == 0, f"the next change fails: {told}{errors}")
    after = everything(folder)
    need(after[scene.real][3] == with_port(text, "8389"), f"after the next change: {after[scene.real][3]!r}")
    need(after[scene.backup][3] == text, f"the next backup holds {after[scene.backup][3]!r}")
    need(after[scene.real][2] == before[scene.real][2], "the next change gives the file other attributes")
    left = [name for name in after if scene.is_temporary(name) and after[name] != "folder"]
    need(not left, f"left over after the next change: {left}")
    lost = [name for name in before.keys() - after.keys() if not scene.is_temporary(name) or before[name] == "folder"]
    need(not lost, f"the next change removed {lost}")


def run_case(bench, case):
    """@return None, or what is wrong"""
    trace = case.trace
    folder = bench.folder(case.scene)
    log = folder + ".log"
    # Behind the last call nothing but the process's own end is left to kill it at.
    is_call = case.index <= max(trace.library)
    name, occurrence = (trace.calls[case.index].name, trace.calls[case.index].occurrence) if is_call else \
        ("exit_group", 1)
    try:
        before = everything(folder)
        kills = case.fault == "SIGKILL"
        action = "signal=SIGKILL" if kills else f"error={case.fault}"
        status, told, errors = bench.run(
            folder, case.scene.options(),
            ["strace", "-o", log, "-e", f"trace={name}", "-e", f"inject={name}:{action}:when={occurrence}"])
        made = calls_of(log)
        text, kept = check_folder(case, before, folder, kills)
        if kills:
            need(status == -9 and len(made) == occurrence, f"it was not killed: {status}, {len(made)} calls")
            need(text == trace.text_after(case.index), "a kill at this call leaves another text")
            need(kept == trace.backup_after(case.index), "a kill at this call leaves another backup")
        else:
            need(len(made) >= occurrence and "(INJECTED)" in made[occurrence - 1].result, "the call did not fail")
            need(status in (0, 1), f"the driver ended with {status}: {told}{errors}")
            check_words(case, told, text)
        check_next(bench, case, folder, text)
    except (Failure, OSError) as failure:
        where = "the end" if not is_call else \
            f"{name} {occurrence} in {trace.calls[case.index].step} ({trace.calls[case.index].arguments[:160]})"
        return f"{case.scene.name}, {case.fault} at {where}: {failure}"
    shutil.rmtree(folder)
    os.unlink(log)
    return None


def can_trace():
    if shutil.which("strace") is None:
        return "there is no strace"
    tried = subprocess.run(["strace", "-o", os.devnull, "true"], stdin=subprocess.DEVNULL, stderr=subprocess.PIPE,
                           check=False)
    return "" if tried.returncode == 0 else "nothing can be traced here: " + tried.stderr.decode().strip()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("driver")
    parser.add_argument("--full", action="store_true", default=bool(os.environ.get("VELTOR_FAULT_FULL")))
    parser.add_argument("--jobs", type=int, default=3)
    parser.add_argument("--sanitized", action="store_true", help="the driver is built with sanitizers")
    arguments = parser.parse_args()

    reason = "sanitizers make calls of their own" if arguments.sanitized else can_trace()
    if reason:
        print("skipped:", reason)
        return SKIPPED

    base = os.path.realpath(tempfile.mkdtemp(prefix="veltor-fault-"))
    bench = Bench(os.path.realpath(arguments.driver), base)
    wrong = []
    try:
        cases = []
        for scene in SCENES:
            trace = bench.traced(scene)
            trace.check_order()
            for text in (OLD, scene.new_text()):
                put(base, "check.conf", text)
                status, told, _ = bench.run(base, ["-c", "check.conf"])
                need((status, told) == (0, text), f"{scene.name}: this text is not what a load reads: {told}")
            own = list(cases_of(trace, arguments.full))
            names = collections.Counter(trace.calls[index].name for index in trace.library)
            print(f"{scene.name}: {len(trace.library)} calls,", ", ".join(f"{n} {c}" for c, n in names.most_common()))
            kills = sum(1 for case in own if case.fault == "SIGKILL")
            print(f"{scene.name}: {len(own)} cases, {len(own) - kills} failing calls and {kills} kills")
            cases += own
        with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
            wrong = [told for told in pool.map(lambda case: run_case(bench, case), cases) if told is not None]
        print(f"{len(cases)} cases, {len(wrong)} wrong")
    except Failure as failure:
        wrong.append(str(failure))
    for told in wrong:
        print("WRONG:", told)
    if wrong:
        print("kept:", base)
        return 1
    shutil.rmtree(base)
    return 0


if __name__ == "__main__":
    sys.exit(main())
