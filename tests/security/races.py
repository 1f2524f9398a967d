"""A real race, won every time: strace stops the tool right after one of its system calls, the attacker
does his part, and the tool goes on.

An attack that is tried after each of a command's steps() in turn has met every gap between a check and
an act. Who swaps one path needs only the gaps() of this path: between two calls that do not meet the
path it makes no difference when he swaps it.
"""
import collections
import contextlib
import dataclasses
import os
import pathlib
import re
import signal
import time

import ground

CALLS = ("%file", "fchdir", "fchown", "fchmod", "ftruncate", "getdents64", "flock", "fsync")
STARTS = ("clone", "clone3", "fork", "vfork", "wait4", "waitid")  # a child may meet any path
CHANGES = ("rename", "mkdir", "unlink", "rmdir", "link", "symlink", "chown", "fchown", "chmod", "fchmod")
LOG = pathlib.Path("/run/mailvek/strace")


def _tracer(stop=None):
    LOG.unlink(missing_ok=True)
    traced = ",".join(CALLS if stop else CALLS + STARTS)
    words = ["strace", "-qq", "-y", "-s", "300", "-o", str(LOG), "-e", f"trace={traced}", "-e", "signal=SIGSTOP"]
    return words if stop is None else [*words, "-e", f"inject={stop.call}:signal=SIGSTOP:when={stop.number}"]


@dataclasses.dataclass(frozen=True)
class Step:
    """A call of the tool: its number among the calls of its name, from 1, and how strace shows it."""

    call: str
    number: int
    shown: str


def _trace(*arguments, env=None):
    """The calls of a good run, in order. Those that start or await a child cannot be stopped after: they
    have no number."""
    ground.mailvek(*arguments, env=env, program=_tracer(), seconds=60)
    seen, found = collections.Counter(), []
    for line in LOG.read_text(errors="replace").splitlines():
        call = line.split("(", 1)[0]
        if call.isidentifier():
            seen[call] += 1
            found.append(Step(call, 0 if call in STARTS else seen[call], line))
    return found


def steps(*arguments, where, env=None):
    """The calls of a good run that name this place, and the call before each, in order."""
    found, last = [], None
    for step in _trace(*arguments, env=env):
        if step.number:
            if where in step.shown:
                found += [step] if last is None or last in found else [last, step]
            last = step
    return found


# How strace shows a name beneath a descriptor, and then a path or a descriptor alone.
BENEATH = re.compile(r'(?:AT_FDCWD|\d+)<([^>]*)>, "((?:[^"\\]|\\.)+)"')
ALONE = re.compile(r'"(/[^"]*)"|\d+<(/[^>]*)>')


def _named(step):
    """The paths that the call looks up, each with the descriptor's path where it looks from, and the paths
    of the descriptors that it works on."""
    shown = NUMBERED.sub(r"\1\2*", step.shown)
    looked_up = [(directory, os.path.normpath(os.path.join(directory, name)))
                 for directory, name in BENEATH.findall(shown)]
    rest = ALONE.findall(BENEATH.sub("", shown))
    return looked_up + [("", os.path.normpath(path)) for path, _ in rest if path], [path for _, path in rest if path]


def meets(step, path):
    """Whether a swap of the path before this call may differ from one after it."""
    if not step.number:
        return True
    looked_up, works_on = _named(step)
    above = os.path.dirname(path)
    if any(shown.removesuffix(" (deleted)") in (path, above) for shown in works_on):
        return True
    for directory, name in looked_up:
        through = name == path or name.startswith(path + "/")
        if through and not (directory == path or directory.startswith(path + "/")):
            return True
        if (path.startswith(name + "/") or name == above) and step.call.startswith(CHANGES):
            return True
    return False


NUMBERED = re.compile(r"(\.OrvekSaved|\.room)([.-])\d+")


def gaps(*arguments, path, env=None):
    """The last call before each that meets the path, and the last that does, in order. A number in the name
    of what is aside or of a room is shown as *."""
    found, last, met = [], None, None
    for step in _trace(*arguments, env=env):
        if meets(step, path):
            if last is not None and last not in found:
                found.append(last)
            met = step if step.number else met
        last = step if step.number else last
    return found if met is None or met in found else [*found, met]


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
