"""Starting the tool: its feature report, against a program that does nothing."""

from run import Row


def row(bench):
    def many(command):
        return ["/bin/sh", "-c", f"for i in $(seq 200); do {command}; done"]

    return Row(ours=many(f"{bench.program('mailvek')} --features"), other=many("/bin/true"), goal=2.5)
