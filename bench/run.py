"""run - measures the rows of bench/ inside a throw-away mail host and prints their table

    bench/run.py PROGRAMS [--disk DIRECTORY] [--rounds N] [--markdown] [ROW...]

PROGRAMS is the directory of the optimised programs. A row is a file bench/<room>/<row>.py with a
function row(bench), which makes what its two sides need and returns a Row. A file with SIZES, a table
of names and sizes, gives one row per size, <row>_<name>, and its function takes the size too. Sizes in
DISK_SIZES give <row>_<name>_disk, for which the files lie on the disk of --disk. The two sides take turns, so that other load on the machine slows both alike. The table shows the medians. Peak
memory is that of the program itself, without the programs that it starts, from a run that is not timed.
--markdown prints the table for a document, with the machine above it.

A row that misses its goal is marked and is not a failure. Exit status 1 when a row could not be
measured: a side exits non-zero, or the two sides leave different results.
"""

import argparse
import ctypes
import dataclasses
import fnmatch
import os
import re
import resource
import runpy
import signal
import statistics
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

HERE = Path(__file__).resolve().parent
Command = list  # of what stands for words; the first is a path


@dataclass
class Row:
    """The two commands that a row compares. The goal is for the ratio of their times, ours to other."""

    ours: Command
    other: Command
    goal: float
    memory: int = 0  # the goal for the peak memory of ours in MiB; 0 asks for none
    times: int = 1  # runs per timing, for commands that take little time
    stdin: Path = Path("/dev/null")
    before: Callable[[], None] = lambda: None  # before each run of a side
    left: Callable[[], object] = lambda: None  # what a side leaves, which must be the same for both


@dataclass
class Bench:
    """The argument of row(): a directory of its own, the directory of the programs, and for a row on a real disk
    a directory there."""

    directory: Path
    programs: Path
    disk: Path | None = None

    def program(self, name: str) -> str:
        return str(self.programs / name)


class NotMeasured(Exception):
    pass


@dataclass
class Spent:
    wall: float = 0
    cpu: float = 0


def start(command: Command, stdin: Path) -> subprocess.Popen:
    with open(stdin, "rb") as source:
        return subprocess.Popen([str(word) for word in command], stdin=source, stdout=subprocess.DEVNULL)


def require_success(command: Command, status: int) -> None:
    if status != 0:
        raise NotMeasured(f"{command[0]} ended with {status}")


def cpu_of_children() -> float:
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def timed(row: Row, command: Command) -> Spent:
    row.before()
    cpu, wall = cpu_of_children(), time.monotonic()
    for _ in range(row.times):
        require_success(command, start(command, row.stdin).wait())
    wall_end, cpu_end = time.monotonic(), cpu_of_children()
    return Spent((wall_end - wall) / row.times, (cpu_end - cpu) / row.times)


PTRACE_TRACEME, PTRACE_CONT, PTRACE_SETOPTIONS = 0, 7, 0x4200
PTRACE_O_TRACEEXIT, PTRACE_EVENT_EXIT = 0x40, 6
ptrace = ctypes.CDLL(None, use_errno=True).ptrace
ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]


def become_traced(command: Command, stdin: Path) -> None:
    """Runs in a child. It stops first, so that it cannot end before its parent watches it."""
    try:
        os.dup2(os.open(stdin, os.O_RDONLY), 0)
        os.dup2(os.open("/dev/null", os.O_WRONLY), 1)
        ptrace(PTRACE_TRACEME, 0, None, None)
        os.kill(os.getpid(), signal.SIGSTOP)
        os.execv(str(command[0]), [str(word) for word in command])
    finally:
        os._exit(127)


def peak_memory(row: Row) -> float:
    """The program's VmHWM at its end, in MiB. The resource usage of a child would not do: it starts from
    this process's own, and includes the programs that the child has started."""
    row.before()
    pid = os.fork()
    if pid == 0:
        become_traced(row.ours, row.stdin)
    peak = 0.0
    _, status = os.waitpid(pid, 0)
    ptrace(PTRACE_SETOPTIONS, pid, None, PTRACE_O_TRACEEXIT)
    passed_on = 0
    while os.WIFSTOPPED(status):
        if status >> 16 == PTRACE_EVENT_EXIT:
            text = Path(f"/proc/{pid}/status").read_text()
            peak = int(re.search(r"^VmHWM:\s*(\d+) kB", text, re.M)[1]) / 1024
        ptrace(PTRACE_CONT, pid, None, passed_on)
        _, status = os.waitpid(pid, 0)
        stopped_by = os.WSTOPSIG(status) if os.WIFSTOPPED(status) else 0
        passed_on = 0 if stopped_by == signal.SIGTRAP else stopped_by
    require_success(row.ours, os.waitstatus_to_exitcode(status))
    return peak


def compare_results(row: Row) -> None:
    results = []
    for command in (row.ours, row.other):
        row.before()
        require_success(command, start(command, row.stdin).wait())
        results.append(row.left())
    if results[0] != results[1]:
        raise NotMeasured("the two sides leave something different")


def measure(row: Row, rounds: int) -> tuple[list[Spent], list[Spent], float]:
    compare_results(row)
    ours, other = [], []
    for turn in range(rounds):
        sides = [(ours, row.ours), (other, row.other)]
        for kept, command in sides if turn % 2 == 0 else reversed(sides):
            kept.append(timed(row, command))
    return ours, other, peak_memory(row) if row.memory else 0


def median(spent: list[Spent], what: str) -> float:
    return statistics.median(getattr(one, what) for one in spent)


def milliseconds(seconds: float) -> str:
    return f"{seconds * 1000:.0f} ms" if seconds >= 0.1 else f"{seconds * 1000:.2f} ms"


HEAD = ("row", "ours", "other", "ratio", "goal", "cpu", "peak memory", "")
FORMAT = "{:<28} {:>10} {:>10} {:>6} {:>6} {:>6} {:>20}  {}"
MARKDOWN = "| `{}` | {} | {} | {} | {} | {} | {} | {} |"


def print_head(markdown: bool, rounds: int) -> None:
    if not markdown:
        print(FORMAT.format(*HEAD), flush=True)
        return
    print(machine(), f"Medians of {rounds} runs of each side.", "", sep="\n")
    print(MARKDOWN.replace("`", "").format(*HEAD))
    print("| --- " + "| ---: " * 6 + "| --- |", flush=True)


def machine() -> str:
    def first(pattern: str, path: str) -> str:
        found = re.search(pattern, Path(path).read_text(), re.M)
        return found[1].strip() if found else "unknown"

    memory = int(first(r"^MemTotal:\s*(\d+)", "/proc/meminfo")) / 1024**2
    postfix = subprocess.run(["/usr/sbin/postconf", "-hd", "mail_version"], capture_output=True, text=True, check=True)
    return (f"{os.cpu_count()} cores of {first('^model name.*: (.*)', '/proc/cpuinfo')}, {memory:.0f} GiB of "
            f"memory, Linux {os.uname().release.split('-')[0]}, Debian {first('(.*)', '/etc/debian_version')}, "
            f"Postfix {postfix.stdout.strip()}.")


def cells(name: str, row: Row, ours: list[Spent], other: list[Spent], memory: float) -> tuple:
    wall = median(ours, "wall"), median(other, "wall")
    ratio = wall[0] / wall[1]
    cpu = median(other, "cpu")
    missed = ratio > row.goal or (row.memory and memory > row.memory)
    return (
        name,
        *(milliseconds(side) for side in wall),
        f"{ratio:.2f}",
        f"{row.goal:.2f}",
        f"{median(ours, 'cpu') / cpu:.2f}" if cpu else "-",
        f"{memory:.1f} of {row.memory} MiB" if row.memory else "",
        "MISSED" if missed else "",
    )


def load(path: Path) -> dict:
    sys.path.insert(0, str(path.parent))  # for what rows of a room share, in _<name>.py
    return runpy.run_path(str(path))


def rows_of(path: Path) -> list[tuple[str, Callable[[Bench], Row]]]:
    """The name of each row of a file, and what makes it."""
    names = load(path)
    row, sizes = names["row"], names.get("SIZES")
    if sizes is None:
        return [(path.stem, row)]
    in_memory = [(f"{path.stem}_{name}", lambda bench, size=size: row(dataclasses.replace(bench, disk=None), size))
                 for name, size in sizes.items()]
    return in_memory + [(f"{path.stem}_{name}_disk", lambda bench, size=size: row(bench, size))
                        for name, size in names.get("DISK_SIZES", {}).items()]


def chosen(patterns: list[str]) -> list[tuple[str, Callable[[Bench], Row]]]:
    paths = [p for p in sorted(HERE.glob("*/**/*.py")) if not p.name.startswith("_")]
    rows = [row for path in paths for row in rows_of(path)]
    return [row for row in rows if not patterns or any(fnmatch.fnmatch(row[0], f"*{q}*") for q in patterns)]


def run(name: str, make: Callable[[Bench], Row], options: argparse.Namespace) -> bool:
    # In memory and not on the host's overlay, which no server has below its maps.
    with tempfile.TemporaryDirectory(prefix="bench", dir="/tmp") as directory:
        try:
            row = make(Bench(Path(directory), options.programs, options.disk))
            form = MARKDOWN if options.markdown else FORMAT
            print(form.format(*cells(name, row, *measure(row, options.rounds))).rstrip(), flush=True)
            return True
        except Exception as e:  # whatever a row does, the others are measured
            print(f"{name}: not measured: {type(e).__name__}: {e}", flush=True)
            return False


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("programs", type=Path)
    parser.add_argument("--disk", type=Path)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--markdown", action="store_true")
    parser.add_argument("rows", nargs="*")
    options = parser.parse_intermixed_args()
    sys.modules["run"] = sys.modules["__main__"]  # for the rows, which import their Row
    rows = [row for row in chosen(options.rows) if options.disk or not row[0].endswith("_disk")]
    if not rows:
        print("no such row", file=sys.stderr)
        return 1
    print_head(options.markdown, options.rounds)
    return 0 if all([run(*row, options) for row in rows]) else 1


if __name__ == "__main__":
    sys.exit(main())
