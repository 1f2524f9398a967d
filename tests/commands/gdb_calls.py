"""A script for gdb: runs the program and lists the functions that it called, in order of first call.

GDB_CALLS names a JSON file: "functions", each as "path:name"; "in_child", whether to follow the forked
child instead of the program; "result", the file for the list of the functions called.
"""
import json
import os

import gdb

called = []


class Noted(gdb.Breakpoint):
    """Notes its function at the first call and never stops the program."""

    def __init__(self, function):
        super().__init__(function)
        self.silent = True
        self.function_name = function

    def stop(self):
        if self.function_name not in called:
            called.append(self.function_name)
        return False


with open(os.environ["GDB_CALLS"], encoding="utf-8") as file:
    task = json.load(file)
gdb.execute("set breakpoint pending off")
gdb.execute("set detach-on-fork on")
gdb.execute(f"set follow-fork-mode {'child' if task['in_child'] else 'parent'}")
for name in task["functions"]:
    Noted(name)  # raises if the program has no such function
try:
    gdb.execute("run")
except gdb.error:
    pass  # the child has started a program in other mounts, which gdb cannot open: nothing more is called
with open(task["result"], "w", encoding="utf-8") as file:
    json.dump(called, file)
