"""Which faults there are: the calls of a good run of the tool, and how each of them may fail."""
import contextlib
import dataclasses
import os
import pathlib
import re
import signal
import subprocess
import time

import mailhost

LOG = "/run/mailvek/faults/strace"

# How a call may fail. EINTR stands where a signal or a file system over a network can end it.
# Calls that are not named here cannot fail, or fail by lack of memory alone.
FILE = ("EIO", "EACCES")
NEW_NAME = ("ENOSPC", "EIO", "EACCES")
ERRORS = {
    "openat": ("EIO", "EACCES", "EMFILE", "EINTR"),
    "read": ("EIO", "EINTR"), "pread64": ("EIO", "EINTR"), "getdents64": ("EIO",),
    "write": ("ENOSPC", "EIO", "EINTR"), "pwrite64": ("ENOSPC", "EIO", "EINTR"),
    "writev": ("ENOSPC", "EIO", "EINTR"), "sendfile": ("EIO", "EINTR"), "copy_file_range": ("ENOSPC", "EIO"),
    "fsync": ("ENOSPC", "EIO"), "fdatasync": ("ENOSPC", "EIO"), "ftruncate": ("EIO", "EINTR"),
    "fallocate": ("ENOSPC", "EIO", "EINTR"), "close": ("EIO", "EINTR"),
    "rename": NEW_NAME, "renameat": NEW_NAME, "renameat2": NEW_NAME, "link": NEW_NAME, "linkat": NEW_NAME,
    "symlink": NEW_NAME, "symlinkat": NEW_NAME, "mkdir": NEW_NAME, "mkdirat": NEW_NAME,
    "unlink": FILE, "unlinkat": FILE, "rmdir": FILE, "chmod": FILE, "fchmod": FILE, "fchmodat": FILE,
    "chown": FILE, "fchown": FILE, "lchown": FILE, "fchownat": FILE, "utimensat": FILE, "chdir": FILE,
    "fchdir": FILE, "getcwd": ("EACCES",), "newfstatat": FILE, "statx": FILE, "access": FILE, "faccessat2": FILE,
    "readlink": FILE, "statfs": ("EIO", "EINTR"), "fstatfs": ("EIO", "EINTR"),
    "flock": ("EINTR",), "socket": ("EMFILE", "EACCES"), "connect": ("EACCES", "EINTR"),
    "sendto": ("EACCES", "EINTR"), "recvfrom": ("EINTR",), "dup": ("EMFILE", "EINTR"), "dup2": ("EMFILE", "EINTR"),
    "pipe": ("EMFILE",), "pipe2": ("EMFILE",), "poll": ("EINTR",), "ppoll": ("EINTR",), "select": ("EINTR",),
    "pselect6": ("EINTR",), "wait4": ("EINTR",), "clone": ("EAGAIN",), "clone3": ("EAGAIN",), "vfork": ("EAGAIN",),
    "execve": ("EIO", "EACCES", "EMFILE"), "semop": ("EINTR",), "semget": ("ENOSPC", "EACCES"), "semctl": ("EACCES",),
    "clock_nanosleep": ("EINTR",),
}
# Calls that may change what others see. A process that is killed after any other call leaves
# what it would have left when killed after the last of these.
TELLING = re.compile(
    r"write|pwrite64|writev|fsync|ftruncate|fallocate|close|rename|link|symlink|mkdir|unlink|rmdir|chmod|fchmod|chown|"
    r"fchown|lchown|utimensat|flock|fcntl|connect|sendto|clone|vfork|wait4|poll|recvfrom|read\(\d+<pipe|"
    r"openat.*O_CREAT|openat.*O_TRUNC|copy_file_range|sendfile|semop|semctl|semget")
# The libraries' own search for their parts, without which there is nothing to run.
LIBRARIES = re.compile(r"\"(/usr)?/lib/|</usr/lib/|ld\.so\.cache|nscd/socket")


# Calls that are failed in the tool's children alone, which the tool itself does not make. They
# fail in each child of a run.
OF_CHILDREN = ("execve", "dup2")


@dataclasses.dataclass(frozen=True)
class Fault:
    """One call of the tool, the number-th of its kind, that fails once with error, and how strace
    shows it; with KILL the process dies at its beginning, and shown is the call before it."""

    call: str
    number: int
    error: str
    shown: str

    def injection(self):
        what = "signal=KILL" if self.error == "KILL" else f"error={self.error}"
        when = "" if self.call == "execve" else f":when={self.number}"
        return f"{self.call}:{what}{when}"

    def strace(self):
        """The words in front of the tool's own."""
        words = ["strace", "-qq", "-y", "-o", LOG, "-e", "signal=none", "-e", f"trace={self.call}"]
        if self.call in OF_CHILDREN:
            words += ["-f"]
        if self.call == "execve":
            words += ["-P", re.search(r'"([^"]*)"', self.shown)[1]]
        return [*words, "-e", f"inject={self.injection()}"]

    def injected(self):
        """Whether the run that has just been traced came to this call, and not to another one
        of its number: runs differ in how often they read and are woken up."""
        if self.error == "KILL":
            return True
        lines = [line for line in mailhost.read(LOG).splitlines() if line.endswith("(INJECTED)")]
        if self.call in OF_CHILDREN:
            return bool(lines)
        return bool(lines) and self.error in errors(self.call, lines[0]) and place(lines[0]) == place(self.shown)

    def __str__(self):
        return f"{self.error} {'after' if self.error == 'KILL' else 'from'} #{self.number} {self.shown}"


def place(line):
    """What a call is about: what its descriptor is open on, of pipes and sockets the kind, or
    the path that it is given. Without what is random in names."""
    found = re.match(r'\w+\(\d+<([^>]*)>', line) or re.match(r'\w+\([^"]*"([^"]*)"', line)
    return found and re.sub(r"\[\d+\]|[-.]\w{6}(?=/|$)|\d+\.\d+\.|\.OrvekSaved\.\d+|/files/\w{32}", "", found[1])


def traced(arguments, env):
    """A good run: how it ended, and its calls as (name, number, line) from main's beginning."""
    words = ["strace", "-qq", "-y", "-s", "16", "-o", LOG, "-e", "signal=none"]
    ended = mailhost.run(*words, mailhost.TOOL, *arguments, env=env)
    counts, found, begun = {}, [], False
    for line in mailhost.read(LOG).splitlines():
        name = line.split("(", 1)[0]
        counts[name] = counts.get(name, 0) + 1
        if begun:
            found.append((name, counts[name], line))
        # The loader is done when it gives back its list of libraries.
        begun = begun or (name == "munmap" and not found)
    return ended, found


# A run is looked at after each of these: what is on the disk then is whole. None of them is
# begun again for a signal, as a fork is, and so would stop for ever.
STEPS = "rename,renameat,unlink,rmdir,mkdir,symlink,wait4"


@contextlib.contextmanager
def step_by_step(arguments, env):
    """A good run that stops after each step: what is given goes on to the next one, and says
    whether there was one."""
    log = pathlib.Path(LOG)
    log.write_bytes(b"")
    words = ["strace", "-qq", "-o", LOG, "-e", f"trace={STEPS}", "-e", f"inject={STEPS}:signal=STOP", "--"]
    with subprocess.Popen([*words, mailhost.TOOL, *arguments], env=env, stdout=subprocess.DEVNULL) as tracer:
        seen = [0]

        def step():
            if seen[0]:
                os.kill(child_of(tracer.pid), signal.SIGCONT)
            deadline = time.monotonic() + 20
            while (stops := log.read_bytes().count(b"stopped by SIGSTOP")) == seen[0]:
                if tracer.poll() is not None:
                    return False
                assert time.monotonic() < deadline, "a run by steps hangs"
                time.sleep(0.001)
            seen[0] = stops
            return True

        try:
            yield step
        finally:
            tracer.kill()


def child_of(pid):
    return int(mailhost.read(f"/proc/{pid}/task/{pid}/children").split()[0])


def children(arguments, env):
    """What the tool's children do until they become another program, as traced() gives it: the
    programs, each once, and the first, second, ... descriptor that any of them puts in place."""
    words = ["strace", "-f", "-qq", "-y", "-o", LOG, "-e", "signal=none", "-e", f"trace={','.join(OF_CHILDREN)}"]
    mailhost.run(*words, mailhost.TOOL, *arguments, env=env)
    begun, counts, found = {}, {}, {}
    for line in mailhost.read(LOG).splitlines()[1:]:  # the first is how the tool itself became one
        pid, line = line.split(maxsplit=1)
        name = line.split("(", 1)[0]
        if begun.get(pid) or name not in OF_CHILDREN:
            continue
        begun[pid] = name == "execve"
        counts[pid, name] = 1 if begun[pid] else counts.get((pid, name), 0) + 1
        what = line.split(",")[0] + ")" if begun[pid] else line.split(" = ")[0].rstrip()
        found.setdefault((name, what if begun[pid] else counts[pid, name]), (name, counts[pid, name], what))
    return list(found.values())


def shown_of(line):
    """A call without its result. A file that is opened by way of its descriptor is named after it."""
    call, _, result = line.partition(" = ")
    opened = '"/proc/self/fd/' in call and re.match(r"\d+<([^>]*)>", result)
    return call.rstrip() + (f" of {opened[1]}" if opened else "")


def faults(found, of_children):
    """Every fault of a run with these calls of the tool and of its children."""
    rows, last, written = [], None, set()
    for name, number, line in found:
        shown = shown_of(line)
        if last and TELLING.match(last):
            rows.append(Fault(name, number, "KILL", last))
        last = shown
        if LIBRARIES.search(line) or not may_fail(name, line, written):
            continue
        rows += [Fault(name, number, error, shown) for error in errors(name, line)]
    return rows + [Fault(*call[:2], error, call[2]) for call in of_children for error in ERRORS[call[0]]]


def may_fail(name, line, written):
    """Whether there are faults of this call; written are the files written to so far.

    strace does not make the call that it lets fail. A descriptor is gone after a close that
    fails, so only those fail whose staying open means nothing: of files that were written.
    """
    file = re.search(r"<([^>]*)>", line)
    if name in ("write", "pwrite64", "writev") and file:
        written.add(file[1])
    if name == "close":
        return bool(file) and file[1].startswith("/") and file[1] in written
    if name == "fcntl":
        return "F_SETLK" in line and "F_UNLCK" not in line or "F_DUPFD" in line
    return name in ERRORS


def errors(name, line):
    if name == "fcntl":
        return ("EMFILE",) if "F_DUPFD" in line else ("EIO", "EINTR") if "F_SETLKW" in line else ("EIO", "EACCES")
    if name == "openat" and "O_CREAT" in line:
        return ("ENOSPC", *ERRORS[name])
    if re.search(r"\(\d+<(pipe|socket):", line) and name in ("read", "write", "writev"):
        return ("EINTR",)  # no disk can fail
    if name == "newfstatat" and re.search(r"\(\d+<", line):  # of an open file
        return ("EIO",)
    return ERRORS[name]
