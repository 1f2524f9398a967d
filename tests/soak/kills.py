"""Kills the tool, one of its runs of postmap or its whole process group. Then checks that the maps are the
old or the new ones, that the command can be repeated, and that the repetition leaves nothing behind."""
import contextlib
import hashlib
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import time

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parents[1] / name) for name in ("faults", "commands")]

import calls  # noqa: E402
import mailhost  # noqa: E402
import panel  # noqa: E402
from mailhost import MAILNAMES, MAPS, REAL  # noqa: E402

DOMAIN, ALIAS, NEW = "example.com", "alias.test", "new.test"
AT = f"--domain-name={DOMAIN}"
COMMANDS = {
    "add-domain": ("--add-domain", f"--domain-name={NEW}"),
    "remove-domain": ("--remove-domain", AT),
    "rename-mailname": ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita"),
    "del-domain-alias": ("--del-domain-alias", AT, f"--domain-alias-name={ALIAS}"),
}
VICTIMS = ("tool", "child", "group")
MAP_NAMES = ("virtual", "vmailbox", "virtual_domains")
KEPT = "/root/kept"
LOG = "/root/strace"
POSTMAP = f"{REAL}/usr/sbin/postmap"
SECONDS = 120  # after which a run hangs
# The calls that change a file, a directory or what runs. A process that is killed after any other call
# leaves what it would have left when killed after the last of these.
CHANGING = re.compile(
    r"rename|link|mkdir|unlink|rmdir|chmod|fchmod|chown|fchown|utimensat|fsync|fdatasync|ftruncate|fallocate|clone|"
    r"vfork|wait4|copy_file_range|sendfile|pwrite64|write\(\d+</|sendto|flock|openat.*O_CREAT|openat.*O_TRUNC|mount")


def other_address(number):
    return f"first.last{number}@customer{number // 100}.example.test"


def other_domains(records):
    return [f"customer{number}.example.test" for number in range(records // 100)]


def prepare(records):
    """A domain with an alias domain and two mailnames, in maps of so many records of others."""
    mailhost.start("mariadb")
    panel.panel_domain(DOMAIN, aliases=[ALIAS])
    panel.panel_mailname(f"anna@{DOMAIN}", aliases=["ann"])
    panel.panel_domain(NEW)
    others = [other_address(i) for i in range(records)]
    mailhost.add_records("virtual", {address: address for address in others})
    mailhost.add_records("vmailbox", {address: "x/y/Maildir/" for address in others})
    mailhost.done("--add-domain", AT)
    mailhost.done("--add-mailname", AT, "--mailname=anna", "--disk-quota=-1")
    mailhost.done("--add-domain-alias", AT, f"--domain-alias-name={ALIAS}", "--set-reject")
    os.makedirs(os.path.dirname(calls.LOG), exist_ok=True)
    os.mkdir(KEPT)
    for path in (MAPS, MAILNAMES):
        shutil.copytree(path, f"{KEPT}{path}", copy_function=copy_with_rights)


def copy_with_rights(source, target):
    shutil.copy2(source, target)
    status = os.lstat(source)
    os.chown(target, status.st_uid, status.st_gid)


def restore():
    """Puts maps, accounts and homes back."""
    for path in (MAPS, MAILNAMES):
        ended = mailhost.run("rsync", "-a", "--delete", f"{KEPT}{path}/", f"{path}/") if shutil.which("rsync") else (
            mailhost.run("sh", "-c", f"find {path} -mindepth 1 -delete; cp -a {KEPT}{path}/. {path}/"))
        assert ended.status == 0, ended


def records(name):
    """A digest of a map's records, or None if the map does not open."""
    listed = mailhost.run(POSTMAP, "-s", mailhost.map_file(name))
    if listed.status != 0:
        return None
    return hashlib.md5("\n".join(sorted(listed.out.splitlines())).encode()).hexdigest()


class Bench:
    """A command and what a good run of it makes of the maps, step by step."""

    def __init__(self, name):
        self.name, self.arguments = name, COMMANDS[name]
        self.env = mailhost.tool_environment(leaks=False)
        restore()
        self.files = {name: self.file(name) for name in MAP_NAMES}
        self.good = {name: [records(name)] for name in MAP_NAMES}
        with calls.step_by_step(self.arguments, self.env) as step:
            seen = dict(self.files)
            while step():
                self.note(seen)
        self.note(seen)
        self.leaves = self.entries()
        restore()
        began = time.monotonic()
        ended = self.run()
        self.takes = time.monotonic() - began
        assert ended.status == 0 and self.now() == self.new(), ended
        restore()

    def file(self, name):
        return hashlib.md5(pathlib.Path(f"{MAPS}/{name}.db").read_bytes()).digest()

    def note(self, seen):
        for name in MAP_NAMES:
            file = self.file(name)
            if file != seen[name]:
                seen[name] = file
                self.good[name].append(records(name))

    def entries(self):
        return sorted(os.listdir(MAPS))

    def new(self):
        return {name: good[-1] for name, good in self.good.items()}

    def now(self):
        """The records of each map that has changed."""
        return {name: self.good[name][0] if self.file(name) == self.files[name] else records(name)
                for name in MAP_NAMES}

    def run(self):
        return mailhost.run(mailhost.TOOL, *self.arguments, env=self.env, timeout=SECONDS)

    def look(self, what):
        """What is wrong after a kill."""
        wrong = [f"{what}: {name} " + ("does not open" if found is None else "is neither old nor new")
                 for name, found in self.now().items() if found not in self.good[name]]
        ended = self.run()
        if ended.status != 0:
            wrong.append(f"{what}: the repeated command: {ended}")
        elif self.now() != self.new():
            wrong.append(f"{what}: the repeated command leaves other maps")
        elif self.entries() != self.leaves:
            wrong.append(f"{what}: left are {set(self.entries()) - set(self.leaves)}")
        restore()
        return wrong

    # ---------------------------------------------------------------- at each system call

    def changing_calls(self):
        """The calls of a good run before which a kill may make a difference."""
        _, found = calls.traced(self.arguments, self.env)
        restore()
        return [(name, number) for (_, _, last), (name, number, _) in zip(found, found[1:])
                if CHANGING.match(last)]

    def at_call(self, victim, name, number):
        words = ["strace", "-qq", "-o", LOG, "-e", f"trace={name}", "-e",
                 f"inject={name}:signal={'KILL' if victim == 'tool' else 'STOP'}:when={number}", mailhost.TOOL]
        with started(*words, *self.arguments, env=self.env) as process:
            if victim == "group":
                stopped(process)
                os.killpg(process.pid, signal.SIGKILL)
        return self.look(f"{self.name}: the {victim} killed at {name} {number}")

    def runs_of_postmap(self):
        """For each run of postmap the calls before which a kill may make a difference: the number of the
        run, the call and its number."""
        found = []
        number = 0
        while True:
            number += 1
            with postmap_under(number, "-y", "-s", "8", "-e", "signal=none"):
                ended = self.run()
            assert ended.status == 0, ended
            restore()
            if not os.path.exists(LOG):
                return found
            counts, last = {}, ""
            for line in mailhost.read(LOG).splitlines():
                name = line.split("(", 1)[0]
                counts[name] = counts.get(name, 0) + 1
                if CHANGING.match(last):
                    found.append((number, name, counts[name]))
                last = line

    def at_call_of_postmap(self, run, name, number):
        with postmap_under(run, "-e", f"trace={name}", "-e", f"inject={name}:signal=KILL:when={number}"):
            self.run()
        return self.look(f"{self.name}: postmap {run} killed at {name} {number}")

    def at_system_calls(self, victim, most=None, until=None):
        """(tried, of, wrong). Tries at most so many calls, spread over the run, and stops when time is up."""
        whole = self.runs_of_postmap() if victim == "child" else [(victim, *call) for call in self.changing_calls()]
        chosen = random.Random(1).sample(whole, min(len(whole), most or len(whole)))
        tried, wrong = 0, []
        for call in chosen:
            if until and time.monotonic() > until:
                break
            tried += 1
            wrong += (self.at_call_of_postmap if victim == "child" else self.at_call)(*call)
        return tried, len(whole), wrong

    # ----------------------------------------------------------------- at random moments

    def at_a_moment(self, victim, seed):
        """Whether the victim was there to be killed at a moment that the seed chooses, and what was wrong then."""
        moment, killed = random.Random(seed).uniform(0, self.takes * 1.1), False
        with started(mailhost.TOOL, *self.arguments, env=self.env) as process:
            time.sleep(moment)
            with contextlib.suppress(ProcessLookupError, IndexError, FileNotFoundError):
                if victim == "group":
                    os.killpg(process.pid, signal.SIGKILL)
                else:
                    os.kill(process.pid if victim == "tool" else calls.child_of(process.pid), signal.SIGKILL)
                killed = True
        if not killed or (victim != "child" and process.returncode == 0):  # it was over before
            restore()
            return False, []
        return True, self.look(f"{self.name}: the {victim} killed after {moment:.3f} s of {self.takes:.3f}")


@contextlib.contextmanager
def started(*words, env):
    """A program in a process group of its own, all of which has ended after the block."""
    with subprocess.Popen(words, env=env, start_new_session=True, stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
        yield process
        process.wait(SECONDS)
    deadline = time.monotonic() + SECONDS
    while session_lives(process.pid):
        assert time.monotonic() < deadline, "a process of a killed run hangs"
        time.sleep(0.002)


def session_lives(session):
    for pid in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError, ValueError):
            fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
            if int(fields[3]) == session and fields[0] != "Z":
                return True
    return False


def stopped(process):
    """Waits until the tracer has stopped the tool or everything has ended."""
    while process.poll() is None:
        with contextlib.suppress(FileNotFoundError):
            if "stopped by SIGSTOP" in mailhost.read(LOG):
                return
        time.sleep(0.001)


@contextlib.contextmanager
def postmap_under(run, *strace):
    """Has the run-th postmap run under strace with these words; LOG is there if there was one."""
    count, script = "/root/count", "/root/postmap"
    for path in (count, LOG):
        pathlib.Path(path).unlink(missing_ok=True)
    words = " ".join(f"'{word}'" for word in strace)
    mailhost.write(script, f"""#!/bin/sh
echo >> {count}
[ "$(wc -l < {count})" = {run} ] || exec {POSTMAP} "$@"
exec strace -qq -o {LOG} {words} {POSTMAP} "$@"
""", mode=0o755)
    mounted = mailhost.run("mount", "--bind", script, "/usr/sbin/postmap")
    assert mounted.status == 0, mounted
    try:
        yield
    finally:
        mailhost.run("umount", "/usr/sbin/postmap")
