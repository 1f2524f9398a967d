"""Reads src/layers.txt, the table of the rooms: who may use whom."""
import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
TABLE = ROOT / "src" / "layers.txt"


def read_table():
    """The rooms in the table's order, each with the rooms in its row. Ends the program when a row
    names a room that has no row above it."""
    table = {}
    for row in TABLE.read_text().splitlines():
        if not row.strip() or row.startswith("#"):
            continue
        room, _, uses = row.partition(":")
        uses = uses.split()
        for used in uses:
            if used not in table:
                sys.exit(f"src/layers.txt: {room.strip()} uses {used}, which no row above it names")
        table[room.strip()] = uses
    return table
