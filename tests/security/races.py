"""A real race, won every time: strace stops the tool right after one of its system calls, the attacker
does his part, and the tool goes on.

An attack that is tried after each of a command's steps() in turn has met every gap between a check and
an act.
"""
import collections
import contextlib
import dataclasses
import os
import pathlib
import signal
import time

import ground

CALLS = ("open,openat,openat2,stat,lstat,newfstatat,statx,access,faccessat,faccessat2,readlink,readlinkat,mkdir,"
         "mkdirat,chdir,fchdir,chown,lchown,fchown,fchownat,chmod,fchmod,fchmodat,rename,renameat,renameat2,unlink,"
         "unlinkat,rmdir,link,linkat,symlink,symlinkat,utime,utimes,utimensat,truncate,ftruncate,getdents64,flock")
LOG = pathlib.Path("/run/mailvek/strace")


def _tracer(stop=None):
    LOG.unlink(missing_ok=True)
    words = ["strace", "-qq", "-y", "-s", "300", "-o", str(LOG), "-e", f"trace={CALLS}", "-e", "signal=SIGSTOP"]
    return words if stop is None else [*words, "-e", f"inject={stop.call}:signal=SIGSTOP:when={stop.number}"]


@dataclasses.dataclass(frozen=True)
class Step:
    """A call of the tool: its number among the calls of its name, from 1, and how strace shows it."""

    call: str
    number: int
    shown: str


def steps(*arguments, where, env=None):
    """The calls of a good run that name this place, and the call before each, in order."""
    ground.mailvek(*arguments, env=env, program=_tracer(), seconds=60)
    seen, found, last = collections.Counter(), [], None
    for line in LOG.read_text(errors="replace").splitlines():
        call = line.split("(", 1)[0]
        if call.isidentifier():
            seen[call] += 1
            step = Step(call, seen[call], line)
            if where in line:
                found += [step] if last is None or last in found else [last, step]
            last = step
    return found


def stopped_tool(tracer, deadline):
    """Waits until the process under the tracer has stopped. None when it has ended before."""
    while time.monotonic() < deadline:
        if tracer.poll() is not None:
            return None
        with contextlib.suppress(FileNotFoundError, ValueError, IndexError):
            if "stopped by SIGSTOP" in LOG.read_text(errors="replace"):
                return tool_of(tracer)
        time.sleep(0.001)
    return None


def tool_of(tracer):
    """The process id of the tool under a tracer."""
    return int(pathlib.Path(f"/proc/{tracer.pid}/task/{tracer.pid}/children").read_text().split()[0])


def stopped_after(step, *arguments, attack, env=None, seconds=ground.SECONDS):
    """Runs the tool, stops it after that call and runs the attack. Returns how the tool ended, and
    whether it was stopped at all."""
    tracer = ground.start(*arguments, env=env, program=_tracer(step))
    tool = stopped_tool(tracer, time.monotonic() + seconds)
    if tool is not None:
        attack()
        os.kill(tool, signal.SIGCONT)
    return ground.ended(tracer, seconds), tool is not None
