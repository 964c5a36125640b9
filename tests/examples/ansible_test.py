#!/usr/bin/env python3
"""Does what Ansible would do with the task file of the examples, and looks at what came of it.

  ansible_test.py VELTOR EXAMPLES DIFFERENCE

Four runs on one copy of the configuration: check mode, for real, for real once more, check mode. The first two change
something, or would, and the others do not. DIFFERENCE is what the first run shows, byte by byte. Then the same runs on
a file fresh from "veltor init", which lacks some of the entries.
"""

import json
import os
import shlex
import shutil
import subprocess
import sys
import tempfile

import jinja2
import yaml

FILE = "zorslapd.conf"


class Host:
    """The few things of Ansible that the task file uses."""

    def __init__(self, binary, tasks_file, folder):
        with open(tasks_file, encoding="utf-8") as file:
            self.tasks = yaml.safe_load(file)
        self.base = os.path.dirname(tasks_file)
        self.folder = folder
        self.environment = {"PATH": os.path.join(folder, "bin") + ":/usr/bin:/bin", "LC_ALL": "C.UTF-8"}
        os.mkdir(os.path.join(folder, "bin"))
        os.symlink(binary, os.path.join(folder, "bin", "veltor"))
        self.templates = jinja2.Environment(undefined=jinja2.StrictUndefined)
        self.templates.filters["from_json"] = json.loads
        self.templates.filters["quote"] = shlex.quote

    def lookup(self, kind, name):
        assert kind == "ansible.builtin.file", kind
        with open(os.path.join(self.base, name), encoding="utf-8") as file:
            return file.read().rstrip()

    def value_of(self, expression, variables):
        return self.templates.compile_expression(expression, undefined_to_none=False)(**variables)

    def text_of(self, template, variables):
        return self.templates.from_string(template).render(variables)

    def command(self, arguments, variables):
        done = subprocess.run(shlex.split(self.text_of(arguments["cmd"], variables)), cwd=self.folder,
                              env=self.environment, input=self.text_of(arguments["stdin"], variables) + "\n",
                              capture_output=True, text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"failed with {done.returncode}: {done.stdout} {done.stderr}")
        return {"rc": done.returncode, "stdout": done.stdout.rstrip("\r\n"), "stderr": done.stderr.rstrip("\r\n")}

    def play(self, check_mode):
        """Returns for each task that ran its name, whether it changed something, and what it showed."""
        variables = {"ansible_check_mode": check_mode, "veltor_file": FILE, "lookup": self.lookup}
        results = []
        for task in self.tasks:
            task = dict(task)
            name = task.pop("name")
            if not self.value_of(task.pop("when", "true"), variables):
                continue
            # Ansible leaves a command out in check mode unless the task says otherwise.
            runs_in_check_mode = task.pop("check_mode", check_mode) is False
            register = task.pop("register", None)
            changed_when = task.pop("changed_when", "false")
            (module, arguments), = task.items()
            shown = None
            if module == "ansible.builtin.command":
                assert runs_in_check_mode or not check_mode, name
                variables[register] = self.command(arguments, variables)
            elif module == "ansible.builtin.debug":
                shown = self.value_of(arguments["msg"].removeprefix("{{").removesuffix("}}"), variables)
            else:
                sys.exit(f"the test knows no {module}")
            results.append((name, self.value_of(changed_when, variables), shown))
        return results


def content(path):
    with open(path, "rb") as file:
        return file.read()


def fresh_file(binary, folder):
    with open(os.path.join(folder, "password"), "w", encoding="utf-8") as file:
        os.fchmod(file.fileno(), 0o600)
        file.write("of-the-fresh-file\n")
    subprocess.run([binary, "init", FILE, "-q", "--suffix", "dc=example,dc=com", "-T", "password"], cwd=folder,
                   check=True)


def play_four_times(binary, examples, folder):
    """Returns what the first run, that of check mode, shows."""
    path = os.path.join(folder, FILE)
    host = Host(binary, os.path.join(examples, "ansible", "desired_state.yml"), folder)
    desired, shows = (task["name"] for task in host.tasks)

    before = content(path)
    (first, would_change, _), (second, _, shown) = host.play(check_mode=True)
    assert (first, would_change, second) == (desired, True, shows)
    assert content(path) == before

    assert host.play(check_mode=False) == [(desired, True, None)]
    after = content(path)
    assert after != before
    inode = os.stat(path).st_ino

    assert host.play(check_mode=False) == [(desired, False, None)]
    assert host.play(check_mode=True) == [(desired, False, None)]
    assert content(path) == after and os.stat(path).st_ino == inode

    # Whole entries, which the server finds: a warning would end this.
    checked = subprocess.run([binary, "check", "--strict", FILE], cwd=folder, capture_output=True, text=True,
                             check=False)
    if checked.returncode != 0:
        sys.exit(f"the file is not sound: {checked.stdout}")
    return "".join(line + "\n" for line in shown)


def main():
    binary, examples, difference = map(os.path.abspath, sys.argv[1:4])
    with open(difference, encoding="utf-8") as file:
        expected_difference = file.read()
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, FILE)
        shutil.copy(os.path.join(examples, FILE), path)
        os.chmod(path, 0o640)
        shown = play_four_times(binary, examples, folder)
        if shown != expected_difference:
            sys.exit(f"the difference is another:\n{shown}")

        # What the difference said is what was done.
        shutil.copy(os.path.join(examples, FILE), path + ".patched")
        subprocess.run(["patch", "-s", path + ".patched", difference], check=True)
        assert content(path + ".patched") == content(path)
    with tempfile.TemporaryDirectory() as folder:
        fresh_file(binary, folder)
        play_four_times(binary, examples, folder)
    print("changed once")
    return 0


if __name__ == "__main__":
    sys.exit(main())
