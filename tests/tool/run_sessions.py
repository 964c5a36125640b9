#!/usr/bin/env python3
"""Runs the commands that a document shows, and compares what they print with what the document says.

In a Markdown file, a block that is indented by four blanks and begins with "$ " is a session, in a manual page a literal
block: each line that begins with "$ " is a command, and what follows is its output, standard error included, in
Markdown with "(exit status N)" behind it where that is not 0. What "$ cat FILE" shows is the content of a file for the
commands behind it. A command whose output has questions runs on a terminal, where the answers that stand behind them
are typed, each when its question has been asked. All sessions of a document run one after the other in a folder of
their own, on a copy of the example, which VELTOR_FILE names for those of Markdown.

  run_sessions.py VELTOR EXAMPLES DOCUMENT            compares
  run_sessions.py VELTOR EXAMPLES DOCUMENT --show     compares, and prints headings, commands and outputs
  run_sessions.py VELTOR EXAMPLES DOCUMENT --record   writes the outputs into the document
"""

import difflib
import os
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile

INDENT = "    "
SECRETS = {"first-password": "first-secret\n", "second-password": "second-secret\n",
           "password": "secret-of-the-example\n"}
QUESTION = re.compile(r"(.*(?:\[y/N\]|e\(x\)it(?: \[x\])?:) )(\w*)")
PATIENCE = 30  # seconds that a command on a terminal may be silent


def parts_of_page(text):
    """As parts_of_markdown, of a manual page."""
    parts = []
    literal = False
    for line in text.splitlines():
        if line.startswith(".Bd -literal") or line == ".Ed":
            literal = line != ".Ed"
            parts.append((line,))
        elif literal and line.startswith("$ "):
            parts.append((line[2:].replace("\\e", "\\"), []))
        elif literal and len(parts[-1]) == 2:
            # A line of output that begins with a dot has "\&" before it.
            parts[-1][1].append(line.removeprefix("\\&").replace("\\e", "\\"))
        else:
            parts.append((line,))
    return parts


def parts_of_markdown(text):
    """The document as (line,) for what is no session, and (command, output lines) for what is."""
    parts = []
    session = False
    lines = text.splitlines()
    for number, line in enumerate(lines):
        # An empty line belongs to the output if more of it follows.
        following = next((later for later in lines[number:] if later.strip()), "")
        inside = line.startswith(INDENT) or (not line.strip() and following.startswith(INDENT))
        shown = line[len(INDENT):] if inside else None
        if shown is not None and shown.startswith("$ "):
            session = True
            parts.append((shown[2:], []))
        elif session and shown is not None:
            parts[-1][1].append(shown)
        else:
            session = False
            parts.append((line,))
    return parts


def lines_for_markdown(command, output):
    return [f"{INDENT}$ {command}", *(INDENT + line if line else "" for line in output)]


def lines_for_page(command, output):
    """As roff takes them: a backslash by its name, and no line that begins like a request."""
    lines = [line.replace("\\", "\\e") for line in [f"$ {command}", *output]]
    return ["\\&" + line if line.startswith((".", "'")) else line for line in lines]


def lay_out(folder, examples):
    path = os.path.join(folder, "zorslapd.conf")
    shutil.copy(os.path.join(examples, "zorslapd.conf"), path)
    os.chmod(path, 0o640)
    for name, content in SECRETS.items():
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            os.fchmod(file.fileno(), 0o600)
            file.write(content)


def without_empty_end(lines):
    while lines and not lines[-1].strip():
        lines = lines[:-1]
    return lines


def run_alone(command, folder, environment):
    """Without a terminal. Returns the output and the exit status."""
    done = subprocess.run(["sh", "-c", command], cwd=folder, env=environment, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True, check=False)
    return done.stdout, done.returncode


def run_and_answer(command, folder, environment, dialogue):
    """As run_alone, on a terminal. The dialogue has questions with their answers: an answer is typed when its question
    is the end of what has been shown. A question that the dialogue does not have ends the command."""
    child, terminal = pty.fork()
    if child == 0:
        try:
            os.chdir(folder)
            os.execvpe("sh", ["sh", "-c", command], environment)
        finally:
            os._exit(127)
    shown = b""
    left = list(dialogue)
    while select.select([terminal], [], [], PATIENCE)[0]:
        try:
            more = os.read(terminal, 4096)
        except OSError:  # how a terminal tells that nobody has it open any more
            break
        shown += more
        if left and shown.endswith(left[0][0].encode()):
            os.write(terminal, left.pop(0)[1].encode() + b"\n")
        else:
            question = QUESTION.fullmatch(shown.decode(errors="replace").split("\n")[-1])
            if question and not question[2]:
                break
    os.close(terminal)  # which hangs up a command that still waits
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    return shown.replace(b"\r\n", b"\n"), status if status >= 0 else 128 - status


def output_of(command, folder, environment, tells_status, dialogue=()):
    output, status = run_and_answer(command, folder, environment, dialogue) if dialogue else run_alone(
        command, folder, environment)
    lines = without_empty_end(output.decode().splitlines())
    if status != 0 and tells_status:
        lines.append(f"(exit status {status})")
    return lines


def run(command, expected, folder, environment, tells_status):
    made = re.fullmatch(r"cat ([\w.-]+)", command)
    if made and not os.path.exists(os.path.join(folder, made[1])):
        with open(os.path.join(folder, made[1]), "w", encoding="utf-8") as file:
            file.write("".join(line + "\n" for line in expected))
    dialogue = [question.groups() for question in map(QUESTION.fullmatch, expected) if question and question[2]]
    return output_of(command, folder, environment, tells_status, dialogue)


def main():
    binary, examples, document = map(os.path.abspath, sys.argv[1:4])
    mode = sys.argv[4] if len(sys.argv) > 4 else ""
    is_markdown = document.endswith(".md")
    # What a document makes is safe from others, whatever the user who runs it has set.
    os.umask(0o027)
    with open(document, encoding="utf-8") as file:
        parts = (parts_of_markdown if is_markdown else parts_of_page)(file.read())
    failed = commands = 0
    made = []
    with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryDirectory() as programs:
        os.symlink(binary, os.path.join(programs, "veltor"))
        environment = {"PATH": programs + ":/usr/bin:/bin", "LC_ALL": "C", "HOME": folder}
        if is_markdown:
            environment["VELTOR_FILE"] = "zorslapd.conf"
        lay_out(folder, examples)
        for part in parts:
            if len(part) == 1:
                made.append(part[0])
                if mode == "--show" and part[0].startswith("#"):
                    print(f"\n{part[0]}\n", flush=True)
                continue
            command, expected = part[0], without_empty_end(part[1])
            commands += 1
            actual = run(command, expected, folder, environment, is_markdown)
            made += (lines_for_markdown if is_markdown else lines_for_page)(command, actual)
            if mode == "--show":
                print("\n".join([f"$ {command}", *actual]), flush=True)
            if mode != "--record" and actual != expected:
                failed += 1
                print(f"FAILED: {command}")
                print("\n".join(difflib.unified_diff(expected, actual, document, "actual", lineterm="")))
    if mode == "--record":
        with open(document, "w", encoding="utf-8") as file:
            file.write("\n".join(made) + "\n")
    print(f"{commands} commands, {failed} failed")
    return 1 if failed or commands == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
