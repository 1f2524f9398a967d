#!/usr/bin/python3
"""Runs commands of the tool in a throw-away mail host, makes their system calls fail one at a time,
and checks after each failure whether the promises hold.

usage: tests/host/enter --tool PATH /usr/bin/python3 tests/faults/run.py [--every N] [COMMAND...]
       tests/faults/run.py --list

--every N tries only each N-th fault of a command. Prints a line for each broken promise, and a line
with the number of faults for each command. Exits 1 when a promise was broken. --list prints the
commands.
"""
import argparse
import os
import pathlib
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "commands")]

import calls  # noqa: E402
import mailhost  # noqa: E402
import promises  # noqa: E402
import state  # noqa: E402
from commands import COMMANDS, inhabited  # noqa: E402
from exceptions import reason_for  # noqa: E402

SECONDS = 120  # a run that takes longer counts as hanging
SYSLOG = "/var/log/syslog"


class Bench:
    """A command, the host that it finds, and the host that a good run leaves."""

    def __init__(self, name):
        self.name, self.command = name, COMMANDS[name]
        for before in self.command.before:
            mailhost.done(*before)
        self.env = mailhost.tool_environment(self.command.env, leaks=False)
        self.processes = promises.processes()
        self.found = self.now = state.picture()
        self.elsewhere = state.changes_elsewhere()
        self.old = state.view(self.found)
        self.children = calls.children(self.command.arguments, self.env)
        self.new = self.look()
        self.restore()
        # On a host that was put back, as for each fault: directories list their files in that order.
        ended, self.calls = calls.traced(self.command.arguments, self.env)
        assert ended.status == 0, ended
        again = self.look()
        assert again == self.new, f"two good runs differ: {differences(again, self.new)}"
        self.restore()
        self.good = [self.old, *self.steps(), self.new]
        self.repeats = {}  # the promises that a repeat breaks, by the state it started from

    def steps(self):
        """The views after each step of a good run."""
        found = []
        with calls.step_by_step(self.command.arguments, self.env) as step:
            while step():
                seen = self.look()
                if seen not in found:
                    found.append(seen)
        again = self.look()
        assert again == self.new, f"a run by steps differs: {differences(again, self.new)}"
        self.restore()
        return found

    def look(self):
        self.now = state.picture(self.now)
        return state.view(self.now)

    def restore(self):
        self.now = state.put_back(self.found, self.now)

    def run(self, *words):
        """Runs the tool with these words before its own. None when it did not come back."""
        try:
            return mailhost.run(*words, mailhost.TOOL, *self.command.arguments, env=self.env, timeout=SECONDS)
        except subprocess.TimeoutExpired:
            return None

    def try_fault(self, fault):
        """The promises that this fault breaks. None when the run did not reach the call."""
        logged = os.path.getsize(SYSLOG)
        ended = self.run(*fault.strace())
        broken = list(promises.of_processes(self.processes))
        if not fault.injected() or fault.error == "KILL" and ended and ended.status != -9:
            self.restore_after(broken)
            return None
        seen = self.look()
        lacking = differences(seen, self.new)
        broken += promises.of_ending(ended, fault, os.path.getsize(SYSLOG) > logged, lacking)
        broken += promises.of_files(seen, self.good, fault.error == "KILL")
        broken += promises.of_locks()
        if self.now != self.found and lacking:
            broken += self.repeat(seen)
        return self.restore_after(broken)

    def restore_after(self, broken):
        self.look()
        self.restore()
        return broken

    def repeat(self, seen):
        """The promises that the command breaks when it runs again on what the fault has left."""
        key = repr(sorted(seen.items()))
        if key not in self.repeats:
            ended = self.run()
            after = self.look()
            for path in after.keys() & seen.keys() - self.new.keys():
                if promises.UNFINISHED.search(path):
                    del after[path]
            wrong = differences(after, self.new)
            self.repeats[key] = [("repeat", f"{wrong}; said {ended}")] if wrong else []
        return self.repeats[key]

    def everything(self, every):
        """Tries each every-th fault. Returns how many there were, how many of them the tool reached, and
        each broken promise as (fault, promise, what was seen)."""
        tried, broken = 0, []
        chosen = calls.faults(self.calls, self.children)[::every]
        for fault in chosen:
            found = self.try_fault(fault)
            if found is None:  # this run has read or been woken up more often than the good one
                found = self.try_fault(fault)
            if found is not None:
                tried += 1
                broken += self.unexplained(fault, found)
        if strangers := state.changes_elsewhere() - self.elsewhere:
            broken.append(("some fault", "elsewhere", sorted(strangers)))
        return len(chosen), tried, broken

    def unexplained(self, fault, found):
        """A row for each promise that was broken and has no exception."""
        found = [row for row in found if not reason_for(self.name, fault, *row)]
        return [(fault, promise, first_of(said for name, said in found if name == promise))
                for promise in dict.fromkeys(name for name, _ in found)]


def first_of(rows):
    first, *others = rows
    return f"{first} and {len(others)} more" if others else first


def differences(after, wanted):
    """How a view differs from the wanted one: the first few differences, handlers last."""
    paths = [path for path in after.keys() | wanted.keys() if after.get(path) != wanted.get(path)]
    paths.sort(key=lambda path: ("/handlers/" in path, path))
    return "; ".join(f"{path} {difference(after.get(path), wanted.get(path))}" for path in paths[:3]) + (
        f" and {len(paths) - 3} more" if len(paths) > 3 else "")


def difference(there, should):
    if there is None or should is None:
        return "is missing" if there is None else "is there"
    if isinstance(there[3], dict) and isinstance(should[3], dict):
        keys = [key for key in there[3].keys() | should[3].keys() if there[3].get(key) != should[3].get(key)]
        return ", ".join(f"{key}: {there[3].get(key)} instead of {should[3].get(key)}" for key in keys)
    return f"is {there} instead of {should}"[:400]


def prepare():
    inhabited()
    state.SCRATCH.mkdir()


def try_command(name, every=1):
    """Tries the faults of one command, in a prepared host, and leaves the host as it was."""
    bench = Bench(name)
    return bench.everything(every)


def told(name, fault, promise, said):
    return f"  {name}: {promise}: {fault}: {said}".replace("\n", " / ")[:1000]


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1])
    parser.add_argument("--every", type=int, default=1)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("commands", nargs="*")
    given = parser.parse_args()
    if unknown := set(given.commands) - COMMANDS.keys():
        parser.error(f"no such command here: {', '.join(unknown)}")
    if given.list:
        print(*COMMANDS, sep="\n")
        return 0
    prepare()
    empty = state.picture()
    failed = False
    for name in given.commands or COMMANDS:
        started = time.monotonic()
        chosen, tried, broken = try_command(name, given.every)
        state.put_back(empty, state.picture())
        for fault, promise, said in broken:
            print(told(name, fault, promise, said))
        seconds = time.monotonic() - started
        print(f"{name}: {tried} of {chosen} faults, {len(broken)} broken promises, {seconds:.0f} s", flush=True)
        failed = failed or bool(broken) or tried == 0
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
