#!/usr/bin/env python3
"""Takes a configuration full of secrets through every command, form and error, and looks for them in what is printed.

Each secret is a word of its own, so that a find tells where it came from. What is given on purpose with --show-secrets
is left out. What a command leaves in files beside the configuration and its backups is searched as well.

  secret_hunt.py VELTOR
"""

import itertools
import os
import re
import shutil
import subprocess
import sys
import tempfile

# What no output may have in it: clear texts, and the encoded forms of the file.
CONFIGURATION = """\
charset: UTF-8
version: 1

# The administrator. password: SecretComment
dn: cn=Configuration
cn: Configuration
objectclass: top
zor-slapdAdminDN: cn=root
zor-slapdAdminPW: {encoded}
zor-slapdErrorLog: /var/log/slapd.err
 zor-slapdAdminPW: SecretSwallowed
zor-slapdPort: 389
zor-slapdSetenv: TOKEN=SecretEnvironment
unheardOfPassword: SecretUnknown
zor-slapdAdminPW SecretRejected: x
zor-slapdMasterPW: {encoded}
zor-slapdSizeLimit: pw:SecretLimit

dn: cn=Front End, cn=Configuration
cn: Front End
objectclass: top
zor-slapdInvalidLine: zor-slapdPeerPW: SecretKept
another password SecretName1: x
another password SecretName2: x

dn: cn=Swallower, cn=Configuration
 zor-slapdPeerPW: SecretDn
cn: Swallower
objectclass: top
zor-slapdPort: 3899

dn: cn=Below, cn=Swallower, cn=Configuration
 zor-slapdPeerPW: SecretDn
cn: Below
objectclass: top

dn: cn=Swallower, cn=Configuration
 zor-slapdPeerPW: SecretDn
description: again
"""
# The administrator's DN has a line in it, and so has that of an entry which the library's own form can't express.
ADMINISTRATOR = """\
dn: cn=Configuration
cn: Configuration
objectclass: top
zor-slapdAdminDN: cn=root
 zor-slapdDbUserPW: SecretAdministrator
zor-slapdAdminPW: {encoded}
zor-slapdReferral: ldap://a
zor-slapdReferral: ldap://b
 zor-slapdPeerPW: SecretReferral

dn: cn=In, cn=Configuration
 zor-slapdPeerPW: SecretIn
cn: In
objectclass: top
junk
"""
BROKEN = "\nzor-slapdPeerPW: SecretBroken\n"
NEW_PASSWORD = "SecretNew"
WORDS = re.compile(r"Secret[A-Z]\w*|>1[\w-]{6,}<")

FILES = {
    "old": "SecretOld",
    "new": NEW_PASSWORD,
    "long": "SecretLong" * 5,
    "encoded": ">1SecretEncoded<",
    "change.ldif": "dn: cn=Configuration\nchangetype: modify\nreplace: zor-slapdAdminPW\nzor-slapdAdminPW: SecretChange\n",
    "setenv.ldif": "dn: cn=Configuration\nchangetype: modify\nadd: zor-slapdSetenv\nzor-slapdSetenv: A=SecretSet\n",
    "bad.ldif": "dn: cn=Configuration\nchangetype: modify\nadd: zor-slapdAdminPW\nzor-slapdAdminPW: " +
                "SecretTooLong" * 6 + "\n",
    "undecodable.ldif": "dn: cn=Configuration\nchangetype: modify\nreplace: zor-slapdPeerPW\n"
                        "zor-slapdPeerPW: >1SecretUndecodable<\n",
    "mistyped.ldif": "dn: cn=Configuration\nchangetype: modify\nreplace: zor-slapdAdminPW\n"
                     "zor-slapdAdminPW SecretMistyped\n",
    "colon.ldif": "dn: cn=Configuration\nchangetype: modify\nreplace: zor-slapdAdminPW\nzor-slapdAdminPW:: Secret!!\n",
    "dn.ldif": "dn: cn=X, cn=Configuration\n zor-slapdPeerPW: SecretFolded\nchangetype: modify\nreplace: zor-slapdPort\n"
               "zor-slapdPort: 1\n",
    "below.ldif": "dn: cn=new, cn=gone, cn=In, cn=Configuration zor-slapdPeerPW: SecretIn\ncn: new\nobjectclass: top\n",
    "mask.ldif": "dn: cn=Configuration\nzor-slapdReferral: ***\n",
    "dns": "cn=Swallower, cn=Configuration zor-slapdPeerPW: SecretDn\n",
    "content.ldif": "dn: cn=Peer, cn=Configuration\ncn: Peer\nobjectclass: top\nzor-slapdPeerPW: SecretPeer\n",
}

COMMANDS = [
    ["get", "adminPW", "masterPW", "setenv"], ["get", "adminPW"], ["get", "errorLog"], ["get", "adminPwx"],
    ["search"], ["search", "--comments"], ["search", "-A"], ["search", "(zor-slapdAdminPW=SecretFilter"],
    ["search", "(zor-slapdAdminPW>=1)"], ["search", "zor-slapdAdminPW=*", "zor-slapdAdminPW"],
    ["tree"], ["explain", "adminPW", "setenv", "masterPW"], ["explain", "port", "zor-slapdMasterDN"], ["search", "dn"], ["explain", "errorLog"], ["check"], ["check", "--deep"],
    ["check", "--strict"], ["status"], ["check", "broken.conf"], ["status", "-F", "broken.conf"],
    ["get", "-F", "broken.conf", "port"],
    ["set", "port=1"], ["set", "-n", "port=1"], ["set", "setenv=A=SecretArgument"], ["set", "adminPW=SecretArgument"],
    ["set", "-n", "setenv+=A=SecretArgument"], ["set", "--allow-unknown", "xPassword=SecretArgument"],
    ["set", "port=SecretArgument"], ["set", "port=password: SecretArgument"], ["set", "-m", "password: SecretArgument", "port=7"],
    ["unset", "adminPW"], ["unset", "--allow-lockout", "adminPW"], ["unset", "-n", "setenv"], ["unset", "setenv"],
    ["modify", "-f", "change.ldif"], ["modify", "-n", "-f", "change.ldif"], ["modify", "-f", "setenv.ldif"],
    ["modify", "-n", "-f", "setenv.ldif"], ["modify", "-f", "bad.ldif"], ["modify", "-f", "undecodable.ldif"],
    ["modify", "-f", "mistyped.ldif"], ["modify", "-f", "colon.ldif"], ["modify", "-f", "old"],
    ["add", "-f", "content.ldif"], ["add", "-n", "-f", "content.ldif"], ["apply", "-f", "content.ldif"],
    ["apply", "-n", "-f", "content.ldif"], ["apply", "--prune", "--allow-lockout", "-f", "content.ldif"],
    ["modify", "-f", "dn.ldif"], ["apply", "-f", "dn.ldif"], ["add", "-f", "dn.ldif"],
    ["delete", "-f", "dns"], ["delete", "-r", "-f", "dns"], ["delete", "--strict", "-r", "-f", "dns"],
    ["delete", "cn=Front End, cn=Configuration"], ["delete", "-n", "cn=Front End, cn=Configuration"],
    ["passwd", "-T", "new"], ["passwd", "-n", "-T", "new"], ["passwd", "-T", "long"], ["passwd", "-T", "encoded"],
    ["passwd", "SecretName", "-T", "new"],
    ["auth", "-y", "old"], ["auth", "-y", "new"], ["auth", "-y", "encoded"], ["auth", "-D", "cn=x", "-y", "old"],
    ["diff", "other.conf"], ["diff", "--ldif", "other.conf"], ["diff", "zorslapd.conf", "broken.conf"],
    ["auth", "-y", "old", "-F", "administrator.conf"], ["auth", "-y", "new", "-F", "administrator.conf"],
    ["set", "-y", "new", "-F", "administrator.conf", "port=1"], ["fmt", "-n", "-F", "administrator.conf"],
    ["add", "-F", "administrator.conf", "-f", "below.ldif"], ["apply", "-F", "administrator.conf", "-f", "mask.ldif"],
    ["get", "-F", "administrator.conf", "adminDN", "referral"],
    ["diff", "--ldif", "zorslapd.conf", "administrator.conf"], ["diff", "--ldif", "administrator.conf", "zorslapd.conf"],
    ["fmt"], ["fmt", "-n"], ["backup"], ["backup", "copy.conf"],
    ["restore", "--yes", "other.conf"], ["restore", "-n", "other.conf"], ["restore", "--yes", "broken.conf"],
    ["restore", "other.conf"], ["restore", "-F", "broken.conf", "--yes", "other.conf"],
    ["init", "fresh.conf", "--suffix", "o=x", "-T", "new"], ["init", "-n", "fresh.conf", "--suffix", "o=x", "-T", "new"],
    ["init", "fresh.conf", "--suffix", "o=x", "-T", "long"],
    ["edit"], ["edit", "--yes"], ["completion", "bash"], ["help", "passwd"], ["version"],
]
FORMS = [[], ["--json"], ["--format", "ldif"], ["--format", "value"], ["-v"], ["--format", "text", "-v", "--color", "always"]]
# What these files hold is theirs.
OWN_FILES = {"administrator.conf", "administrator.conf.bak", "zorslapd.conf", "zorslapd.conf.bak", "other.conf", "broken.conf", "broken.conf.bak", "copy.conf",
             "fresh.conf", *FILES}


def veltor(binary, folder, arguments):
    environment = {"PATH": "/usr/bin:/bin", "LC_ALL": "C", "HOME": folder, "VELTOR_FILE": "zorslapd.conf",
                   "TMPDIR": folder}
    return subprocess.run([binary, *arguments], cwd=folder, env=environment, stdin=subprocess.DEVNULL,
                          capture_output=True, start_new_session=True, check=False, timeout=60)


def put(folder, name, text):
    path = os.path.join(folder, name)
    with open(path, "w", encoding="utf-8") as file:
        os.fchmod(file.fileno(), 0o600)
        file.write(text)


def prepared(binary, base):
    """A folder with all files; the administrator's password is SecretOld."""
    folder = os.path.join(base, "prepared")
    os.mkdir(folder)
    for name, text in FILES.items():
        put(folder, name, text)
    put(folder, "zorslapd.conf", "dn: cn=Configuration\nobjectclass: top\n")
    veltor(binary, folder, ["passwd", "--no-backup", "-T", "old"])
    with open(os.path.join(folder, "zorslapd.conf"), encoding="utf-8") as file:
        encoded = re.search(r">.*<", file.read())[0]
    text = CONFIGURATION.replace("{encoded}", encoded)
    put(folder, "zorslapd.conf", text)
    put(folder, "broken.conf", text + BROKEN)
    put(folder, "administrator.conf", ADMINISTRATOR.replace("{encoded}", encoded))
    put(folder, "other.conf", text.replace("389", "390").replace("SecretRejected: x", "SecretRejected: y").replace("3899", "3898")
        .replace("SecretEnvironment", "SecretOther").replace("SecretLimit", "SecretOtherLimit"))
    os.unlink(os.path.join(folder, "zorslapd.conf.lock"))
    return folder, text


def shown(output, arguments):
    """The secrets in an output. What somebody types on the command line is theirs to see, but for a password."""
    for word in set(WORDS.findall(output)):
        typed = word in ("SecretName", "SecretFilter") or "port=" + word in arguments
        if not typed:
            yield word


def main():
    binary = os.path.abspath(sys.argv[1])
    runs = failed = 0
    listed = re.findall(r"^  ([a-z]+) ", subprocess.run([binary, "--help"], capture_output=True, text=True,
                                                        check=True).stdout.split("Commands:\n")[1], re.MULTILINE)
    for command in sorted(set(listed) - {arguments[0] for arguments in COMMANDS}):
        failed += 1
        print(f"no run of the command {command}")
    with tempfile.TemporaryDirectory() as base:
        source, text = prepared(binary, base)
        if not WORDS.search(text):
            sys.exit("the configuration holds no secret")
        for arguments, form in itertools.product(COMMANDS, FORMS):
            folder = os.path.join(base, "run")
            shutil.copytree(source, folder)
            done = veltor(binary, folder, [*arguments, *form])
            runs += 1
            outputs = {"output": done.stdout, "error": done.stderr}
            for name in set(os.listdir(folder)) - OWN_FILES:
                with open(os.path.join(folder, name), "rb") as file:
                    outputs[name] = file.read()
            if done.returncode in (70, 134, 139) or done.returncode < 0:
                failed += 1
                print(f"veltor {' '.join([*arguments, *form])}: exit status {done.returncode}")
            for place, output in outputs.items():
                for word in shown(output.decode(errors="replace"), arguments):
                    failed += 1
                    print(f"veltor {' '.join([*arguments, *form])}: {place} shows {word}")
            shutil.rmtree(folder)
    print(f"{runs} runs, {failed} complaints")
    return 1 if failed or runs == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
