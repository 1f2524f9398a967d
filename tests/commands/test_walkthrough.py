"""docs/walkthrough.md names the functions of one command in the order of their first calls."""
import json
import os
import re

import pytest

from mailhost import CHECKOUT, HANGS, TOOL, done, run, start, tool_environment
from panel import panel_domain

OPTIMISED_TOO = False  # a debugger misses calls of functions that the compiler puts into their callers

DOMAIN = "example.com"
COMMAND = ("--add-mailname", f"--domain-name={DOMAIN}", "--mailname=jane", "--disk-quota=1000000")
STEP = re.compile(r"\| \d+ \| ")
WHERE = re.compile(r"\| \d+ \| `(src/[\w./]+)`: ((?:`\w+`(?:, )?)+) \|")


def functions_of(step):
    path, names = WHERE.match(step).groups()
    return [f"{path}:{name}" for name in re.findall(r"`(\w+)`", names)]


def road():
    """The page's list: the functions that the tool calls, and those that its child calls."""
    tool, child, in_child = [], [], False
    for line in (CHECKOUT / "docs/walkthrough.md").read_text().splitlines():
        if line == "In the child:":
            in_child = True
        elif line.startswith("#"):
            in_child = False
        elif STEP.match(line):
            (child if in_child else tool).extend(functions_of(line))
    return tool, child


def called(functions, in_child, tmp_path):
    """The functions that the command calls, in order of their first calls."""
    task, result = tmp_path / "task", tmp_path / "called"
    task.write_text(json.dumps({"functions": functions, "in_child": in_child, "result": os.fspath(result)}))
    ended = run("gdb", "-nx", "-batch", "-x", CHECKOUT / "tests/commands/gdb_calls.py", "--args", TOOL, *COMMAND,
                env={**tool_environment(leaks=False), "GDB_CALLS": os.fspath(task)}, timeout=HANGS)
    assert result.exists(), ended
    return json.loads(result.read_text())


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    panel_domain(DOMAIN, aliases=["example.net"])
    done("--add-domain", f"--domain-name={DOMAIN}")


def test_the_tool_calls_what_the_page_names_in_order(tmp_path):
    tool, child = road()
    assert len(tool) > 20 and not set(tool) & set(child)
    assert called(tool, False, tmp_path) == tool


def test_the_child_calls_what_the_page_names_in_order(tmp_path):
    child = road()[1]
    assert child and called(child, True, tmp_path) == child


def test_a_function_off_the_road_is_not_called(tmp_path):
    tool = ["src/main.cc:main"]
    off = ["src/mail/lib/quota/maildirpp_quota.cc:store_mbox_quota"]
    assert called(off + tool, False, tmp_path) == tool
