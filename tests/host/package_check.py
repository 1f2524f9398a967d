#!/usr/bin/python3
"""Installs, uses, upgrades, removes and purges the Debian package in a mail host, and checks the host.

    package_check.py PACKAGE NEXT_PACKAGE [NEEDED_PACKAGE...]

Runs inside a host (./dev package --check) that was entered without a tool. The demo runs last, from the
installed package. The last line says how many steps held. Exits 1 when one did not.
"""
import grp
import os
import pathlib
import pwd
import re
import subprocess
import sys

HOST = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HOST.parent / "commands"))

import mailhost  # noqa: E402  (found by the line above)
from demo import GOLDEN, Demo  # noqa: E402

PRISTINE = "/run/mailvek/pristine"
LINK = "/usr/sbin/mailvek"
LOCKS = "/run/lock/files"
DOCUMENTS = "/usr/share/doc/mailvek"
INSTALLED = {
    mailhost.TOOL: "f 0755 root:root",
    LINK: "l ../local/orv/admin/sbin/mailvek",
    "/usr/share/man/man8/mailvek.8.gz": "f 0644 root:root",
    "/usr/share/bash-completion/completions/mailvek": "f 0644 root:root",
    "/usr/lib/sysusers.d/mailvek.conf": "f 0644 root:root",
    "/usr/lib/tmpfiles.d/mailvek.conf": "f 0644 root:root",
    f"{DOCUMENTS}/NEWS.md.gz": "f 0644 root:root",
    f"{DOCUMENTS}/README.Debian": "f 0644 root:root",
    f"{DOCUMENTS}/changelog.gz": "f 0644 root:root",
    f"{DOCUMENTS}/copyright": "f 0644 root:root",
    f"{DOCUMENTS}/formats.md.gz": "f 0644 root:root",
    "/usr/share/lintian/overrides/mailvek": "f 0644 root:root",
}
ANOTHER_TOOL = f"{os.path.dirname(mailhost.TOOL)}/another-tool"
NOT_EMPTY = f"dpkg: warning: while removing mailvek, directory '{os.path.dirname(mailhost.TOOL)}' not empty so not removed\n"
RECORDS = ("/var/lib/dpkg/", "/var/log/dpkg.log", "/var/cache/man/", "/var/lib/systemd/")


def dpkg(*words):
    return mailhost.run("dpkg", *words, env={"PATH": mailhost.PATH, "HOME": "/root", "DEBIAN_FRONTEND": "noninteractive"})


def version_of(package):
    return mailhost.run("dpkg-deb", "-f", package, "Version").out.strip()


def installed_version():
    """The installed version, or None when dpkg does not know the package."""
    ended = mailhost.run("dpkg-query", "-W", "-f=${db:Status-Status} ${Version}", "mailvek")
    return ended.out.removeprefix("installed ") if ended.status == 0 else None


def without_time(path, described):
    """Leaves out a directory's time, which changes whenever a file in it comes or goes."""
    return described[0] if described[0].startswith("d ") else described


def host_state():
    """Everything that differs from the untouched host, except the records of dpkg and its triggers."""
    return {path: seen if isinstance(seen, str) else without_time(path, seen)
            for path, seen in mailhost.disk().items() if not f"{path}/".startswith(RECORDS) and path not in RECORDS}


def untouched(path):
    place = PRISTINE + path
    return without_time(path, mailhost.fingerprint(place)) if os.path.lexists(place) else "removed"


def comes_or_goes(path, states):
    """Whether dpkg made a missing directory for the package's files, or removed the empty one."""
    return "removed" in states and any(name.startswith(f"{path}/") for name in INSTALLED)


def changed(before, after):
    found = []
    for path in sorted(before.keys() | after.keys()):
        states = [state.get(path, untouched(path)) for state in (before, after)]
        if states[0] != states[1] and not belongs(path) and not comes_or_goes(path, states):
            found.append(path)
    return found


class Check(Demo):
    def __init__(self, package, newer, needed):
        super().__init__()
        self.package, self.newer, self.needed = package, newer, needed

    def dpkg(self, *words, version, told=""):
        """Runs dpkg, which must succeed, print just told, and leave that version installed."""
        ended = dpkg(*words)
        shown = " ".join(os.path.basename(word) for word in words)
        holds = (ended.status, installed_version()) == (0, version) and re.fullmatch(told, ended.err)
        self.step(f"dpkg {shown}   -> status {ended.status}, installed: {installed_version()}", ended.err, holds, most=20)

    def bring_needed(self):
        """Installs the dependencies of the package that this machine lacks."""
        if self.needed:
            ended = dpkg("-i", *self.needed)
            assert ended.status == 0, ended

    def install(self, package, told=""):
        self.dpkg("-i", package, version=version_of(package), told=told)

    def remove(self, option):
        self.dpkg(option, "mailvek", version=None, told=re.escape(NOT_EMPTY))

    def same(self, what, before):
        """Only the package's own files may differ from the state before."""
        different = changed(before, host_state())
        self.step(what, "\n".join(different), not different, most=20)


def is_whole(check):
    names = dpkg("-L", "mailvek").out.split("\n")
    found = {name: mailhost.described(name) for name in names
             if name not in ("", "/.") and (os.path.islink(name) or not os.path.isdir(name))}
    wrong = sorted(f"{name}: {found.get(name)}" for name in found.items() ^ INSTALLED.items())
    check.step("the package's files", "\n".join(wrong) or f"{len(found)} files", found == INSTALLED, most=20)
    verified = dpkg("--verify", "mailvek")
    check.step("dpkg --verify mailvek", verified.out, (verified.status, verified.out) == (0, ""))
    answers = [mailhost.run(place, "--help-commands").out for place in (mailhost.TOOL, LINK)]
    check.step("the tool answers, by both its paths", answers[0], answers == [mailhost.read(GOLDEN / "help-commands")] * 2, most=1)


def panel_host():
    """Makes the host of a panel, with another program in the tool's directory."""
    mailhost.reset()
    os.unlink(mailhost.TOOL)
    mailhost.write(ANOTHER_TOOL, "#!/bin/sh\n", mode=0o755)


def use(check):
    mailhost.start("mariadb")
    pathlib.Path("/etc/domainkeys").mkdir(exist_ok=True)
    pathlib.Path("/etc/orv-spf").mkdir(exist_ok=True)
    mailhost.write("/root/key", "a key\n")
    mailhost.write("/root/picture", "a picture\n")
    jo = ("--domain-name=example.com", "--mailname=jo")
    lines = [
        ("--add-domain", "--domain-name=example.com"),
        ("--add-mailname", *jo, "--disk-quota=1000000"),
        ("--add-attachment", *jo, "--file-name=/root/picture", "--attachment-file-name=picture"),
        ("--set-autoresponder", *jo),
        ("--set-domain-key", "--domain-name=example.com", "--file-name=/root/key"),
        ("--update-spf", "--spf-rules=v=spf1 -all"),
        ("--add-badmailfrom", "--domain-name=spam.example"),
    ]
    for line in lines:
        check.tool(*line, status=0)
    added = mailhost.mailvek("--add-mailbox", *jo, env={"ORV_PASSWORD": "secret"})
    mailhost.stop("mariadb")
    check.step("mailvek --add-mailbox, with a password", added.err, added.status == 0)


def belongs(path):
    """Whether the path belongs to the package. So does the directory of the locks, which gets its rights."""
    return path in INSTALLED or path in (DOCUMENTS, LOCKS)


def on_the_panels_host(check):
    check.heading("on the host of a panel, in use")
    panel_host()
    check.bring_needed()
    before = host_state()
    owner = pwd.getpwnam("popuser")
    check.install(check.package)
    is_whole(check)
    check.same("nothing but its files is new", before)
    check.step("the user popuser is the panel's", str(owner), pwd.getpwnam("popuser") == owner)
    use(check)

    used = host_state()
    check.install(check.newer)
    check.same("an upgrade changes nothing but the package's files", used)
    is_whole(check)
    check.install(check.newer)
    check.same("a second installation changes nothing", used)
    for option, words in (("-r", "a removal"), ("-P", "a purge")):
        check.remove(option)
        check.same(f"{words} takes nothing but the package's files", used)
        left = [path for path in (*INSTALLED, DOCUMENTS) if os.path.lexists(path)]
        check.step("none of them is left", "\n".join(left), not left)
        check.install(check.package)
    check.tool("--list-attachments", "--domain-name=example.com", "--mailname=jo", status=0, out="picture\t10\n")


def on_a_bare_host(check):
    check.heading("on a host without the user and the directory of locks")
    panel_host()
    check.bring_needed()
    for command in (["userdel", "popuser"], ["rm", "-r", LOCKS]):
        subprocess.run(command, check=True)
    check.install(check.package, told=r"Creating group 'popuser' with GID \d+\.\nCreating user 'popuser' .*\n")
    owner = pwd.getpwnam("popuser")
    holds = (owner.pw_dir, owner.pw_shell) == ("/var/qmail/popuser", "/bin/false") and 0 < owner.pw_uid < 1000
    check.step("popuser is made", str(owner), holds and grp.getgrgid(owner.pw_gid).gr_name == "popuser")
    check.step(f"{LOCKS} is made", mailhost.described(LOCKS), mailhost.described(LOCKS) == "d 0700 root:root")
    check.remove("-P")
    check.step("a purge leaves popuser, whom mailboxes may belong to", str(owner), pwd.getpwnam("popuser") == owner)


def demo_from_the_package(check):
    check.heading("the demo, from the installed package")
    panel_host()
    check.bring_needed()
    check.install(check.package)
    ended = subprocess.run(["/usr/bin/python3", HOST / "demo.py"], check=False, timeout=600)
    check.step("the demo", f"status {ended.returncode}", ended.returncode == 0)


def main(*packages):
    package, newer, *needed = map(os.path.abspath, packages)
    check = Check(package, newer, needed)
    for part in (on_the_panels_host, on_a_bare_host, demo_from_the_package):
        check.attempt(part)
    print(f"\n{check.held} of {check.steps} steps of the package held")
    return 0 if check.held == check.steps else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
