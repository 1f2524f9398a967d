#!/usr/bin/python3
"""The demo: shows what the tool does, step by step, on a real mail host.

Runs inside a host (./dev demo). Each step prints its command, the status and the effect, and whether
it holds. The last line says how many steps held. Exits 1 when one did not.
"""
import pathlib
import shlex
import sys
import time

HOST = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HOST.parent / "commands"))

import demo_mail  # noqa: E402  (found by the line above, like the next two)
import demo_services  # noqa: E402
import mailhost  # noqa: E402

GOLDEN = HOST.parent / "golden"


class Demo:
    def __init__(self):
        self.held = 0
        self.steps = 0

    def heading(self, words):
        print(f"\n== {words}", flush=True)

    def step(self, shown, seen, holds, most=4):
        """Prints one step, with the first lines of what a person would look at."""
        self.steps += 1
        self.held += bool(holds)
        print(f"{'holds' if holds else 'DOES NOT HOLD':>6}  {shown}")
        lines = seen.splitlines()
        for line in lines[:most]:
            print(f"          {line[:110]}")
        if len(lines) > most:
            print(f"          ... {len(lines) - most} more lines")
        sys.stdout.flush()

    def attempt(self, part):
        """Runs a part of the demo. An exception ends the part and counts as a step that does not hold."""
        try:
            part(self)
        except Exception as error:
            self.step(f"what comes after it in {part.__name__}", f"{type(error).__name__}: {error}", False)

    def tool(self, *arguments, status, out=None, err=None, within=0):
        """Runs the tool, which must answer with this status and these texts; None allows any text. Tries
        again until it does, or within seconds have passed."""
        deadline = time.monotonic() + within
        while True:
            ended = mailhost.mailvek(*arguments)
            holds = (ended.status == status and out in (None, ended.out) and err in (None, ended.err))
            if holds or time.monotonic() >= deadline:
                break
            time.sleep(0.1)
        shown = shlex.join(("mailvek", *arguments))
        self.step(f"{shown}   -> status {ended.status}", ended.out or ended.err, holds)


def the_host_is_real(demo):
    demo.heading("a real mail host: MariaDB, Postfix and Courier are started in it")
    mailhost.start("mariadb", "postfix", "courier")
    running = [name for name in ("mariadb", "postfix", "courier") if mailhost.runs(name)]
    demo.step("services", "running: " + ", ".join(running), len(running) == 3)
    param = mailhost.panel_sql("SELECT COUNT(*) FROM misc")
    demo.step("the panel's database answers", f"misc: {param[0][0]} rows", len(param) == 1)


def the_tool_answers(demo):
    demo.heading("the tool's answers")
    for command in ("--help-commands", "--help-legacy", "--features"):
        demo.tool(command, status=0, out=mailhost.read(GOLDEN / command[2:]), err="")
    demo.tool("-h", status=0, err="")
    demo.tool("--features", "--help", status=0, out=mailhost.read(GOLDEN / "features"), err="")


def bad_usage_is_told(demo):
    demo.heading("bad usage: told on standard error, status 1, nothing changed on disk")
    short_usage = mailhost.mailvek("-h").out
    mailhost.stop("postfix", "courier", "mariadb")  # because they write at any time
    before = mailhost.disk()
    demo.tool(status=1, out="", err="Error: no command specified\n" + short_usage)
    demo.tool("foo", status=1, out="", err="Error: invalid command foo\n" + short_usage)
    demo.tool("", status=1, out="", err="Error: invalid command \n" + short_usage)
    changed = mailhost.changed_since(before)
    demo.step("the disk of the host", "\n".join(changed) or "as before", not changed)


def main():
    demo = Demo()
    for part in (the_host_is_real, demo_mail.whole_sequence, demo_services.chapters, the_tool_answers, bad_usage_is_told):
        demo.attempt(part)
    print(f"\n{demo.held} of {demo.steps} steps held")
    return 0 if demo.held == demo.steps else 1


if __name__ == "__main__":
    sys.exit(main())
