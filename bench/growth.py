"""growth - how what each command costs grows with the host

    bench/growth.py TOOL [--most N] [--only COMMAND]... [COLUMN...]

Runs inside a throw-away mail host. The commands are those of tests/commands/budget_rows.py, in their order, on a
domain of 100 mailnames and of ten times as many up to N (10,000 unless given, 1,000,000 at most), then for 0, 10
and 100 alias domains and for 100 and 400 handlers. A COLUMN is one of the table's heads, such as 10,000; --only may be
there several times and names a command without its dashes, and those before it that it needs. Prints the processor
time of each command, its children's included, in milliseconds: unlike the time that passes, it hardly depends on
what else the machine does. From 100,000 mailnames on, mailnames have no files, and the commands that look at those
of all mailnames show "-". A million takes many minutes.
"""
import argparse
import sys
from pathlib import Path

TESTS = Path(__file__).resolve().parent.parent / "tests"
sys.path[:0] = [str(TESTS / "faults"), str(TESTS / "commands")]

import budgets  # noqa: E402  (found by the line above, like the next ones)
import mailhost  # noqa: E402
from against import NotMeasured, run  # noqa: E402
from budget_rows import BUDGETS  # noqa: E402

MOST_HOMES = 10_000
NEED_HOMES = ("--set-domain-disk-quota", "--list-attachments")
NAME = "{:<30}"


def hosts(most: int) -> dict:
    """What to measure on: a column's head, and the arguments of budgets.full_host()."""
    found, mailnames = {}, 100
    while mailnames <= most:
        found[f"{mailnames:,}"] = {"mailnames": mailnames, "alias_domains": 1, "handlers": 10,
                                   "homes": mailnames <= MOST_HOMES}
        mailnames *= 10
    for domains in (0, 10, 100):
        found[f"{domains} alias"] = {"mailnames": 1000, "alias_domains": domains, "handlers": 10}
    for handlers in (100, 400):
        found[f"{handlers} hooks"] = {"mailnames": 1000, "alias_domains": 1, "handlers": handlers}
    return found


def row_name(arguments: tuple, seen: dict) -> str:
    """The command, with a number if it is there more than once."""
    seen[arguments[0]] = seen.get(arguments[0], 0) + 1
    return arguments[0] if seen[arguments[0]] == 1 else f"{arguments[0]} {seen[arguments[0]]}"


def measure(tool: str, host: dict, only: list) -> dict:
    """The processor time of each command in seconds, by name. None for one that cannot run on this host. Tells each
    at once too, since those after it may take long."""
    budgets.full_host(**host)
    spent, seen = {}, {}
    for arguments, budget in BUDGETS:
        name = row_name(arguments, seen)
        if only and arguments[0].removeprefix("--") not in only:
            continue
        if arguments[0] in NEED_HOMES and not host.get("homes", True):
            spent[name] = None
            continue
        env = mailhost.tool_environment(budget.env, leaks=False)
        spent[name] = run([tool, *arguments], env, budget.status)[1]
        print(f"  {name}: {spent[name] * 1000:.0f} ms", file=sys.stderr, flush=True)
    mailhost.reset()
    return spent


def print_table(table: dict) -> None:
    print(NAME.format("command"), *(f"{head:>9}" for head in table))
    for name in next(iter(table.values())):
        cells = (column[name] for column in table.values())
        print(NAME.format(name), *(f"{'-' if cell is None else round(cell * 1000):>9}" for cell in cells))


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("tool", type=lambda path: str(Path(path).resolve()))
    parser.add_argument("--most", type=int, default=10_000)
    parser.add_argument("--only", action="append", default=[])
    parser.add_argument("columns", nargs="*", help="their heads; all unless given")
    options = parser.parse_intermixed_args()
    table = {}
    for head, host in hosts(min(options.most, 1_000_000)).items():
        if options.columns and head not in options.columns:
            continue
        print(f"measuring: {head}", file=sys.stderr, flush=True)
        try:
            table[head] = measure(options.tool, host, options.only)
        except NotMeasured as e:
            print(f"{head}: not measured: {e}", file=sys.stderr)
    if table:
        print_table(table)
    return 0 if table else 1


if __name__ == "__main__":
    sys.exit(main())
