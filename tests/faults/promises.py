"""The promises that hold after every fault. A broken one is reported as (its name, what was seen)."""
import contextlib
import fcntl
import glob
import os
import re
import time

import mailhost

# Files that a killed process may leave.
UNFINISHED = re.compile(
    r"/\.qmail\.tmp$|\.\w{6}$|/Maildir/tmp/|/orvek/\.[a-z_]+\.room-\d+(/|$)|/handlers/info/[^/]*\*|\.OrvekSaved\.\*")
LINES_OF_A_CRASH = re.compile(r"terminate called|Sanitizer|runtime error:|Assertion|stack smashing|corrupted|double free")


def of_files(seen, good, killed):
    """Compares the files after the fault with those at each step of a good run. The first step is what
    the run finds, the last what it makes."""
    paths = set(seen).union(*good)
    for path in sorted(paths):
        known = [view.get(path) for view in good]
        now = seen.get(path)
        if now is None:
            if None not in known:
                yield "lost", path
        elif not any(known) or UNFINISHED.search(path) and not (known[0] or known[-1]):
            if not (killed and UNFINISHED.search(path)):
                yield "left over", path
        else:
            yield from of_content(path, now, [entry for entry in known if entry])


def of_content(path, now, known):
    kind, mode, _, content = now
    versions = [view[3] for view in known]
    if kind not in [view[0] for view in known]:
        yield "torn", f"{path}: another kind of file"
    elif not any(mode & ~view[1] == 0 for view in known):
        yield "rights", f"{path}: mode {mode:o}"
    elif isinstance(content, dict):
        yield from of_records(path, content, versions)
    elif isinstance(content, tuple):
        yield "damaged", f"{path}: {content[1]}"
    elif content not in versions:
        yield "torn", f"{path}: {content[-200:]!r}"


def of_records(path, now, versions):
    """Each record must be as it is at some step of a good run."""
    for key in set(now).union(*versions):
        if now.get(key) not in [version.get(key) for version in versions]:
            yield "record", f"{path}: {key}: {now.get(key)}"


def of_processes(before):
    """No process may be left. Those of a killed tool get time to notice that it is gone."""
    deadline = time.monotonic() + 120
    while left := processes() - before:
        if time.monotonic() > deadline:
            for pid in left:
                yield "process", mailhost.read(f"/proc/{pid}/cmdline").replace("\0", " ")
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, 9)
            return
        time.sleep(0.002)


def processes():
    return {int(name) for name in os.listdir("/proc") if name.isdigit()}


def of_locks():
    """Every lock must be free."""
    paths = [mailhost.MAPS, "/etc/postfix/main.cf", "/etc/postfix/master.cf"]
    for path in paths + glob.glob("/run/lock/files/*") + glob.glob(f"{mailhost.MAPS}/*"):
        with contextlib.ExitStack() as stack:
            descriptor = os.open(path, os.O_RDONLY if os.path.isdir(path) else os.O_RDWR)
            stack.callback(os.close, descriptor)
            try:
                fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
                if not os.path.isdir(path):
                    fcntl.lockf(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                yield "locked", path


def of_ending(ended, fault, logged, lacking):
    """Checks how the tool ended. lacking is what differs from a good run's result, if anything."""
    if ended is None:
        yield "hang", "did not come back"
        return
    if LINES_OF_A_CRASH.search(ended.err):
        yield "crash", ended.err
    if ended.status < 0:
        if (ended.status, fault.error) != (-9, "KILL"):
            yield "crash", f"signal {-ended.status}"
    elif ended.status == 0:
        if lacking:
            yield "status", f"0 without the whole result: {lacking}; said: {ended.err}"
    elif not (ended.err or logged or reports(fault)):
        yield "silent", f"status {ended.status}"


def reports(fault):
    """Whether the call that failed was the report itself."""
    return re.match(r"writev?\([12]<", fault.shown) is not None
