#!/usr/bin/env python3
"""Holds the JSON document of every command against its schema.

    check_documents.py BINARY SCHEMA EXAMPLE

Each row of the table is a run on a fresh copy of the example: its exit status and the members that the document must
have beyond the three that all have. A command that has no row fails the test, and so does a shown secret.
"""
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

import jsonschema

CHANGE = {"file", "dryRun", "changes"}



def change(what, *attributes):
    """Of the entry cn=Configuration; each attribute with its values before and after."""
    return {"changes": [{
        "dn": "cn=Configuration", "what": what, "goneComments": [],
        "attributes": [{"name": name, "before": before, "after": after} for name, before, after in attributes],
    }]}


# arguments, exit status, members, and what some of them are: of an error's, or else of the document's
RUNS = [
    (["init", "new.conf", "--suffix", "o=a", "-T", "password"], 0, {"file", "dryRun"}),
    (["init", "new.conf", "--suffix", "o=a", "-n"], 0, {"file", "dryRun", "text"}),
    (["init", "new.conf", "--suffix", "o=a", "-n", "--exit-code"], 1, {"file", "dryRun", "text"}),
    (["-n", "--exit-code", "init", "new.conf", "--suffix", "o=a"], 1, {"file", "dryRun", "text"}),
    (["init", "--suffix", "o=a", "-T", "password"], 8, {"file", "error"}),
    (["init", "new.conf", "--suffix", "nonsense", "-T", "password"], 3, {"file", "error"}),
    (["get", "port"], 0, {"file", "entries"}),
    (["get", "port", "security", "adminPW"], 1, {"file", "entries", "missing"}),
    (["get", "--show-secrets", "--local", "adminPW"], 0, {"file", "entries"}),
    (["get", "prot"], 3, {"file", "error"}),
    (["get", "-b", "cn=Nobody", "port"], 8, {"file", "error"}),
    (["get", "-b", "nonsense", "port"], 3, {"file", "error"}),
    (["get", "-F", "missing.conf", "port"], 4, {"file", "error"}),
    (["get", "-F", "broken.conf", "port"], 4, {"file", "error"}),
    (["get", "-D", "cn=root", "-w", "wrong", "port"], 5, {"file", "error"}),
    (["get"], 2, {"error"}),
    (["get", "--format", "xml", "port"], 2, {"error"}),
    (["nonsense"], 2, {"error"}),
    (["explain", "port", "security", "adminPW"], 0, {"file", "settings"}),
    (["explain", "-F", "missing.conf", "sslCipherSpecs"], 0, {"file", "settings"}),
    (["explain", "--list"], 0, {"settings"}),
    (["explain", "--list", "nothing*"], 1, {"settings"}),
    (["explain", "prot"], 3, {"error"}),
    (["search"], 0, {"file", "entries"}),
    (["search", "-A", "-b", "cn=Configuration", "-s", "base"], 0, {"file", "entries"}),
    (["search", "zor-slapdPort=1"], 0, {"file", "entries"}),
    (["search", "-F", "latin.conf"], 0, {"file", "entries"}),
    (["tree"], 0, {"file", "tree", "undefined"}),
    (["tree", "-b", "cn=Nobody"], 8, {"file", "error"}),
    (["check"], 0, {"file", "findings", "counts"}),
    (["check", "--deep"], 1, {"file", "findings", "counts"}),
    (["check", "broken.conf"], 1, {"file", "findings", "counts"}),
    (["check", "-F", "zorslapd.conf", "broken.conf"], 2, {"error"}),
    (["check", "missing.conf"], 4, {"file", "error"}),
    (["status"], 0, {"file", "status"}),
    (["status", "-F", "broken.conf"], 4, {"file", "status", "error"}),
    (["status", "-F", "missing.conf"], 4, {"file", "error"}),
    (["set", "port=1389"], 0, CHANGE | {"backup"},
     change("zor-slapdPort: 389 -> 1389", ("zor-slapdPort", ["389"], ["1389"]))),
    (["set", "port=389"], 0, CHANGE, change("unchanged")),
    # What is told to people can't be taken apart.
    (["set", "serverID=a -> b; c - d"], 0, CHANGE | {"backup"},
     change("zor-slapdServerID: ldap1-example-com -> a -> b; c - d",
            ("zor-slapdServerID", ["ldap1-example-com"], ["a -> b; c - d"]))),
    (["set", "-n", "port=1389"], 0, CHANGE | {"difference"}),
    (["set", "-n", "--exit-code", "port=1389"], 1, CHANGE | {"difference"}),
    (["set", "--no-backup", "port=1389"], 0, CHANGE | {"backup"}),
    (["set", "port=70000"], 3, {"file", "error"}),
    (["set", "-n", "-b", "cn=Nobody", "port=1"], 8, {"file", "error"}),
    (["-n", "set", "port=1389"], 0, CHANGE | {"difference"}),
    (["set", "--backup", "missing/x", "port=1389"], 7, {"file", "error"}),
    (["set", "--backup", "zorslapd.conf.lock", "port=1389"], 2, {"error"}),
    (["set", "port+=399"], 3, {"file", "error"},
     {"file": "zorslapd.conf", "dn": "cn=Configuration", "attribute": "zor-slapdPort", "single": True, "max": 65535}),
    (["set", "adminpw=x"], 2, {"error"}, {"dn": "cn=Configuration", "attribute": "zor-slapdAdminPW", "value": None}),
    (["set", "serverID=(a)"], 3, {"error"}, {"attribute": "zor-slapdServerID", "value": "(a)"}),
    (["unset", "--strict", "securePort"], 8, {"file", "error"},
     {"dn": "cn=Configuration", "attribute": "zor-slapdSecurePort", "single": True}),
    (["unset", "timeLimit"], 0, CHANGE | {"backup"},
     change("zor-slapdTimeLimit: - 900", ("zor-slapdTimeLimit", ["900"], []))),
    (["unset", "--allow-lockout", "adminPW"], 0, CHANGE | {"backup"},
     change("zor-slapdAdminPW removed", ("zor-slapdAdminPW", None, []))),
    (["unset", "adminDN"], 3, {"file", "error"}),
    (["add", "-f", "new.ldif"], 0, CHANGE | {"backup"}),
    (["add", "-f", "missing.ldif"], 4, {"error"}),
    (["modify", "-f", "change.ldif"], 0, CHANGE | {"backup"}),
    (["modify", "-n", "-f", "change.ldif"], 0, CHANGE | {"difference"}),
    (["add", "-f", "old.ldif"], 8, {"file", "error"}),
    (["modify", "-f", "present.ldif"], 8, {"file", "error"},
     {"file": "zorslapd.conf", "dn": "cn=Configuration", "attribute": "zor-slapdPort", "value": "389",
      "source": {"file": "present.ldif", "line": 4, "column": 16}}),
    (["modify", "-f", "absent.ldif"], 8, {"file", "error"}),
    (["modify", "-f", "new.ldif"], 3, {"error"}),
    (["modify", "-f", "range.ldif"], 3, {"file", "error"},
     {"dn": "cn=Configuration", "attribute": "zor-slapdPort", "value": "70000", "min": 1, "max": 65535,
      "source": {"file": "range.ldif", "line": 4, "column": 16}}),
    (["modify", "-f", "control.ldif"], 3, {"error"}, {"source": {"file": "control.ldif", "line": 2, "column": 1}}),
    (["apply", "-f", "unknown.ldif"], 3, {"file", "error"},
     {"file": "zorslapd.conf", "dn": "cn=Configuration", "attribute": "zor-slapdPrt",
      "source": {"file": "unknown.ldif", "line": 2, "column": 1}}),
    (["apply", "-f", "new.ldif"], 0, CHANGE | {"backup"}),
    (["delete"], 2, {"error"}),
    (["delete", "cn=Nobody"], 8, {"file", "error"}),
    (["delete", "-r", "cn=Front End, cn=Configuration"], 0, CHANGE | {"backup"}),
    (["passwd", "-T", "password"], 0, CHANGE | {"backup"},
     change("zor-slapdAdminPW changed", ("zor-slapdAdminPW", None, None))),
    (["passwd", "-T", "long"], 3, {"error"},
     {"dn": "cn=Configuration", "attribute": "zor-slapdAdminPW", "value": None, "min": 1, "max": 46}),
    (["passwd", "-T", "missing"], 4, {"error"}),
    (["auth"], 0, {"file", "boundAs"}),
    (["auth", "-D", "cn=root", "-w", "wrong"], 5, {"file", "error"}),
    (["edit"], 2, {"error"}),
    (["diff"], 4, {"file", "error"}),
    (["diff", "zorslapd.conf"], 0, {"file", "different", "difference"}),
    (["diff", "other.conf"], 1, {"file", "different", "difference"}),
    (["diff", "zorslapd.conf", "other.conf"], 1, {"file", "different", "difference"}, {"file": "other.conf"}),
    (["diff", "--ldif", "other.conf"], 1, {"file", "different", "difference"}),
    (["diff", "--ldif", "--show-secrets", "other.conf"], 1, {"file", "different", "difference"}),
    (["fmt"], 0, CHANGE),
    (["fmt", "-n", "-F", "folded.conf"], 0, CHANGE | {"difference"}),
    (["backup"], 0, {"file", "backup"}),
    (["backup", "zorslapd.conf"], 2, {"file", "error"}),
    (["restore", "--yes", "other.conf"], 0, CHANGE | {"backup", "findings"},
     change("zor-slapdPort: 389 -> 1389", ("zor-slapdPort", ["389"], ["1389"]))),
    (["restore", "-n", "other.conf"], 0, CHANGE | {"difference", "findings"}),
    (["restore"], 4, {"file", "error"}),
    (["completion", "bash"], 0, {"script"}),
    (["completion", "fish"], 2, {"error"}),
    (["help", "get"], 0, {"help"}),
    (["help", "gte"], 2, {"error"}),
    (["get", "--help"], 0, {"help"}),
    (["-h"], 0, {"help"}),
    (["version"], 0, {"version"}),
    (["-V"], 0, {"version"}),
    (["get", "--version"], 0, {"version"}),
]

SECRETS = re.compile("secret-of-the-example|>1")


def commands_of(binary):
    text = subprocess.run([binary, "--help"], capture_output=True, text=True, check=True).stdout
    listed = text.split("Commands:\n")[1].split("\n\n")[0]
    return {line.split()[0] for line in listed.splitlines() if re.match(r"  \S", line)}


def lay_out(folder, example):
    shutil.copy(example, os.path.join(folder, "zorslapd.conf"))
    with open(os.path.join(folder, "broken.conf"), "w") as broken:
        broken.write("dn: cn=Configuration\ncn: Configuration\nzor-slapdAdminPW: >1secret\n\nzor-slapdPort: 389\n")
    with open(os.path.join(folder, "latin.conf"), "wb") as latin:
        latin.write("dn: cn=Caf\u00e9 \U0001f600\nobjectclass: top\nx\u00fc-y: a\u200eb\\\n".encode())


    with open(example) as source, open(os.path.join(folder, "other.conf"), "w") as other:
        other.write(source.read().replace("slapdPort: 389", "slapdPort: 1389"))
    with open(os.path.join(folder, "folded.conf"), "w") as folded:
        folded.write("dn: cn=Configuration\nobjectclass: top\ncn: Configu\n ration\n")
    with open(os.path.join(folder, "new.ldif"), "w") as new:
        new.write("dn: cn=New, cn=Configuration\ncn: New\nobjectclass: top\nzor-audit: true\n")
    modification = "dn: cn=Configuration\nchangetype: modify\n"
    changes = {
        "change.ldif": modification + "replace: zor-slapdSizeLimit\nzor-slapdSizeLimit: 7\n",
        "present.ldif": modification + "add: zor-slapdPort\nzor-slapdPort: 389\n",
        "range.ldif": modification + "replace: zor-slapdPort\nzor-slapdPort: 70000\n",
        "control.ldif": "dn: cn=Configuration\ncontrol: 1.2\n",
        "unknown.ldif": "dn: cn=Configuration\nzor-slapdPrt: 1\n",
        "absent.ldif": modification + "delete: zor-slapdPort\nzor-slapdPort: 1\n",
        "old.ldif": "dn: cn=Configuration\ncn: Configuration\n",
    }
    for name, text in changes.items():
        with open(os.path.join(folder, name), "w") as change:
            change.write(text)
    for name, text in {"password": "secret-of-the-example-2", "long": 3 * "secret-of-the-example"}.items():
        with open(os.path.join(folder, name), "w") as password:
            password.write(text)
        os.chmod(password.name, 0o600)


def texts_in(folder):
    texts = {}
    for name in os.listdir(folder):
        with open(os.path.join(folder, name), "rb") as file:
            texts[name] = file.read()
    return texts


def complaints_about(error, status):
    if error["exit"] != status:
        yield f"error.exit is {error['exit']}"
    # The codes stand in a line of their own for people.
    told = "".join(error["details"][:1])
    result = re.match(r"result (\d+) ", told)
    if result:
        code = re.search(r", code (\d+) \(", told) or result
        if (error["ldap"], error["code"]) != (int(result[1]), int(code[1])):
            yield f"ldap {error['ldap']} and code {error['code']}, but {told}"
    elif status == 8:
        yield "no code"


def complaints(binary, validator, example, arguments, status, members, facts=None):
    with tempfile.TemporaryDirectory() as folder:
        lay_out(folder, example)
        before = texts_in(folder)
        environment = {"PATH": os.environ["PATH"], "VELTOR_FILE": "zorslapd.conf", "LC_ALL": "C"}
        run = subprocess.run([binary, "--json", *arguments], capture_output=True, cwd=folder, env=environment,
                             stdin=subprocess.DEVNULL, start_new_session=True)
        after = texts_in(folder)
    if run.returncode != status:
        yield f"exit status {run.returncode} instead of {status}"
    if run.stdout.count(b"\n") != 1 or not run.stdout.isascii():
        yield f"not one line of ASCII: {run.stdout!r}"
        return
    if "--show-secrets" not in arguments and SECRETS.search(run.stdout.decode()):
        yield "a secret is shown"
    if b"error" in run.stderr:
        yield f"an error outside the document: {run.stderr!r}"
    document = json.loads(run.stdout)
    for error in validator.iter_errors(document):
        yield f"{list(error.absolute_path)}: {error.message}"
    if set(document) != {"veltor", "ok", "changed"} | members:
        yield f"members {sorted(document)}"
    file = document.get("file", "zorslapd.conf")
    written = before.get(file) != after.get(file)
    if written != (document["changed"] and not document.get("dryRun")):
        yield f"changed is {document['changed']}, and the file was {'' if written else 'not '}changed"
    if document["ok"] != (status == 0):
        yield f"ok is {document['ok']}"
    if "error" in document:
        yield from complaints_about(document["error"], status)
    for name, value in (facts or {}).items():
        found = document.get("error", document)[name]
        if found != value:
            yield f"{name} is {found!r} instead of {value!r}"


def main():
    binary, schema_file, example = map(os.path.abspath, sys.argv[1:4])
    with open(schema_file) as file:
        schema = json.load(file)
    jsonschema.Draft7Validator.check_schema(schema)
    validator = jsonschema.Draft7Validator(schema)
    failed = 0
    for arguments, *expected in RUNS:
        for complaint in complaints(binary, validator, example, arguments, *expected):
            failed += 1
            print(f"veltor --json {' '.join(arguments)}: {complaint}")
    for command in sorted(commands_of(binary) - {arguments[0] for arguments, *_ in RUNS}):
        failed += 1
        print(f"no run of the command {command}")
    print(f"{len(RUNS)} documents, {failed} complaints")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
