"""against - compares every command of the tool with an earlier build of it

    bench/against.py TOOL EARLIER [--rounds N] [COMMAND...]

Runs inside a throw-away mail host. The commands and the host that they find are those of tests/faults. The
two tools take turns, so that other load on the machine slows both alike, and the host is put back before
each run. The table shows the medians of the time and of the processor time, children included, and the
number of system calls of one run of each. A command that takes more than 1.10 of the earlier time is marked.
Exit status 1 when a command could not be measured.
"""
import argparse
import re
import resource
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

TESTS = Path(__file__).resolve().parent.parent / "tests"
sys.path[:0] = [str(TESTS / "faults"), str(TESTS / "commands")]

import mailhost  # noqa: E402  (found by the line above, like the next)
import state  # noqa: E402
from commands import COMMANDS, inhabited  # noqa: E402

GOAL = 1.10
HEAD = ("command", "now", "earlier", "ratio", "cpu", "calls", "earlier", "")
FORMAT = "{:<26} {:>9} {:>9} {:>6} {:>6} {:>6} {:>7}  {}"


class NotMeasured(Exception):
    pass


def run(words: list, env: dict, status: int = 0) -> tuple[float, float]:
    """The time and the processor time in seconds of a run, which must end with this status."""
    def cpu() -> float:
        used = resource.getrusage(resource.RUSAGE_CHILDREN)
        return used.ru_utime + used.ru_stime

    cpu_before, begun = cpu(), time.monotonic()
    ended = subprocess.run(words, env=env, stdin=subprocess.DEVNULL, capture_output=True, check=False, cwd="/")
    seconds = time.monotonic() - begun
    if ended.returncode != status:
        raise NotMeasured(f"{words[0]} ended with {ended.returncode}: {mailhost.text(ended.stderr)[:300]}")
    return seconds, cpu() - cpu_before


def system_calls(words: list, env: dict) -> int:
    with tempfile.NamedTemporaryFile("r", dir="/tmp") as table:
        run(["strace", "-f", "-c", "-U", "calls", "-o", table.name, *words], env)
        return int(re.search(r"^ *(\d+) total$", table.read(), re.M)[1])


def measure(name: str, tools: list, rounds: int) -> tuple:
    command = COMMANDS[name]
    for before in command.before:
        mailhost.done(*before)
    env = mailhost.tool_environment(command.env, leaks=False)
    found = now = state.picture()

    def of_one(action, tool):
        nonlocal now
        result = action([tool, *command.arguments], env)
        now = state.put_back(found, state.picture(now))
        return result

    for tool in tools:  # what the first run alone pays for
        of_one(run, tool)
    spent = {tool: [] for tool in tools}
    for turn in range(rounds):
        for tool in tools if turn % 2 == 0 else reversed(tools):
            spent[tool].append(of_one(run, tool))
    (wall, cpu), (old_wall, old_cpu) = (map(statistics.median, zip(*spent[tool])) for tool in tools)
    calls = [of_one(system_calls, tool) for tool in tools]
    ratio = wall / old_wall
    return (name, f"{wall * 1000:.1f} ms", f"{old_wall * 1000:.1f} ms", f"{ratio:.2f}", f"{cpu / old_cpu:.2f}",
            *calls, "DEARER" if ratio > GOAL else "")


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("tool", type=lambda path: str(Path(path).resolve()))
    parser.add_argument("earlier", type=lambda path: str(Path(path).resolve()))
    parser.add_argument("--rounds", type=int, default=15)
    parser.add_argument("commands", nargs="*")
    options = parser.parse_intermixed_args()
    inhabited()
    status = 0
    print(FORMAT.format(*HEAD), flush=True)
    for name in options.commands or COMMANDS:
        try:
            print(FORMAT.format(*measure(name, [options.tool, options.earlier], options.rounds)).rstrip(), flush=True)
        except NotMeasured as e:
            print(f"{name}: not measured: {e}", flush=True)
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
