"""Lists the faults to try: the calls of a good run of the tool, and how each of them may fail."""
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

# How a call may fail. EINTR is here for calls that a signal or a network file system can end.
# Other calls cannot fail, or only for lack of memory.
FILE = ("EIO", "EACCES")
NEW_NAME = ("ENOSPC", "EIO", "EACCES")
ERRORS = {
    "openat": ("EIO", "EACCES", "EMFILE", "EINTR"), "openat2": ("EIO", "EACCES", "EMFILE", "EINTR"),
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
    "clock_nanosleep": ("EINTR",), "unshare": ("EPERM",), "mount": ("EPERM",),
}
# Calls that may change what others see. A process killed after any other call leaves the same as one
# killed after the last of these.
TELLING = re.compile(
    r"write|pwrite64|writev|fsync|ftruncate|fallocate|close|rename|link|symlink|mkdir|unlink|rmdir|chmod|fchmod|chown|"
    r"fchown|lchown|utimensat|flock|fcntl|connect|sendto|clone|vfork|wait4|poll|recvfrom|read\(\d+<pipe|"
    r"openat.*O_CREAT|openat.*O_TRUNC|copy_file_range|sendfile|semop|semctl|semget")
# The libraries' search for their own parts, without which the tool cannot run at all.
LIBRARIES = re.compile(r"\"(/usr)?/lib/|</usr/lib/|ld\.so\.cache|nscd/socket")


# Calls that only the tool's children make. They fail in every child of a run.
OF_CHILDREN = ("execve", "dup2", "unshare", "mount")


@dataclasses.dataclass(frozen=True)
class Fault:
    """The number-th call of its kind fails once with error. shown is how strace shows the call. With
    KILL the process dies when the call begins, and shown is the call before it."""

    call: str
    number: int
    error: str
    shown: str

    def injection(self):
        what = "signal=KILL" if self.error == "KILL" else f"error={self.error}"
        when = "" if self.call == "execve" else f":when={self.number}"
        return f"{self.call}:{what}{when}"

    def strace(self):
        """The words before the tool's command line."""
        words = ["strace", "-qq", "-y", "-o", LOG, "-e", "signal=none", "-e", f"trace={self.call}"]
        if self.call in OF_CHILDREN:
            words += ["-f"]
        if self.call == "execve":
            words += ["-P", re.search(r'"([^"]*)"', self.shown)[1]]
        return [*words, "-e", f"inject={self.injection()}"]

    def injected(self):
        """Whether the last traced run failed at this very call. Another call may have its number, because
        runs differ in how often they read and are woken up."""
        if self.error == "KILL":
            return True
        lines = [line for line in mailhost.read(LOG).splitlines() if line.endswith("(INJECTED)")]
        if self.call in OF_CHILDREN:
            return bool(lines)
        return bool(lines) and self.error in errors(self.call, lines[0]) and place(lines[0]) == place(self.shown)

    def __str__(self):
        return f"{self.error} {'after' if self.error == 'KILL' else 'from'} #{self.number} {self.shown}"


def place(line):
    """The object of a call: the file that its descriptor is open on, the kind of a pipe or socket, or
    the path that it is given. Random parts of names are left out."""
    found = re.match(r'\w+\(\d+<([^>]*)>', line) or re.match(r'\w+\([^"]*"([^"]*)"', line)
    return found and re.sub(r"\[\d+\]|[-.]\w{6}(?=/|$)|\d+\.\d+\.|\.OrvekSaved\.\d+|\.room-\d+|/files/\w{32}", "", found[1])


def traced(arguments, env):
    """Does a good run. Returns how it ended, and its calls as (name, number, line) from the start of main."""
    words = ["strace", "-qq", "-y", "-s", "16", "-o", LOG, "-e", "signal=none"]
    ended = mailhost.run(*words, mailhost.TOOL, *arguments, env=env)
    counts, found, begun = {}, [], False
    for line in mailhost.read(LOG).splitlines():
        name = line.split("(", 1)[0]
        counts[name] = counts.get(name, 0) + 1
        if begun:
            found.append((name, counts[name], line))
        # The loader is done when it unmaps its list of libraries.
        begun = begun or (name == "munmap" and not found)
    return ended, found


# A run is inspected after each of these calls, when the files on disk are whole. None of them restarts
# after a signal, as a fork does: such a call would stop for ever.
STEPS = "rename,renameat,renameat2,unlink,unlinkat,rmdir,mkdir,mkdirat,symlink,symlinkat,link,linkat,wait4"


@contextlib.contextmanager
def step_by_step(arguments, env):
    """Does a good run that stops after each step. Yields a function that goes on to the next step and
    returns whether there was one."""
    log = pathlib.Path(LOG)
    log.write_bytes(b"")
    words = ["strace", "-qq", "-o", LOG, "-e", f"trace={STEPS}", "-e", f"inject={STEPS}:signal=STOP", "--"]
    with subprocess.Popen([*words, mailhost.TOOL, *arguments], env=env, stdout=subprocess.DEVNULL) as tracer:
        seen = [0]

        def step():
            if seen[0]:
                os.kill(child_of(tracer.pid), signal.SIGCONT)
            deadline = time.monotonic() + 300
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
    """The calls of the tool's children until exec, in the form of traced(): each program once, and the
    first, second, ... descriptor that any child puts in place."""
    words = ["strace", "-f", "-qq", "-y", "-o", LOG, "-e", "signal=none", "-e", f"trace={','.join(OF_CHILDREN)}"]
    mailhost.run(*words, mailhost.TOOL, *arguments, env=env)
    begun, counts, found = {}, {}, {}
    for line in mailhost.read(LOG).splitlines()[1:]:  # the first line is the exec of the tool itself
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
    """A call without its result. For a file opened through /proc/self/fd, the file's name follows."""
    call, _, result = line.partition(" = ")
    opened = '"/proc/self/fd/' in call and re.match(r"\d+<([^>]*)>", result)
    return call.rstrip() + (f" of {opened[1]}" if opened else "")


def faults(found, of_children):
    """Every fault for these calls of the tool and of its children."""
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
    """Whether this call has faults. written are the files written to so far.

    strace does not execute the call that it makes fail, so a descriptor stays open after a failing close.
    Only for a file that was written does that not matter, so only those closes fail.
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
        return ("EINTR",)  # no disk is involved
    if name == "newfstatat" and re.search(r"\(\d+<", line):  # of an open file
        return ("EIO",)
    return ERRORS[name]
