"""The source of the picture of the rooms: the text that Graphviz's dot draws, and its digest."""
import hashlib

from layers import ROOT, read_table

PICTURE = ROOT / "docs" / "rooms.svg"
BUILDINGS = ("lib", "mail/lib", "postfix")  # directories that hold only rooms
STYLE = """
  rankdir=TB; bgcolor=white; newrank=true; nodesep=0.3; ranksep=0.55; fontname="Helvetica"; fontsize=13;
  node [shape=box, style="rounded,filled", fillcolor=white, fontname="Helvetica", fontsize=13, height=0.35];
  edge [color="#555555", arrowsize=0.7];
"""


def without_consequences(table):
    """The table without the uses that another row implies: a room that a used room may use itself."""
    reached = {}
    for room, uses in table.items():
        reached[room] = set(uses).union(*(reached[used] for used in uses))
    return {room: [used for used in uses if not any(used in reached[other] for other in uses)]
            for room, uses in table.items()}


def drawing():
    """The picture in dot's language: a box per room, a frame per building, an arrow per use."""
    table = read_table()
    lines = []
    for building in BUILDINGS:
        rooms = [room for room in table if room.rpartition("/")[0] == building]
        boxes = " ".join(f'"{room}" [label="{room.rpartition("/")[2]}"];' for room in rooms)
        lines.append(f'  subgraph "cluster {building}" {{ label="src/{building}"; labeljust=l; '
                     f'style="rounded,filled"; color="#e8edf3"; {boxes} }}')
    lines += [f'  "{room}";' for room in table if room.rpartition("/")[0] not in BUILDINGS]
    lines += [f'  "{room}" -> "{used}";' for room, uses in without_consequences(table).items() for used in uses]
    return "digraph rooms {" + STYLE + "\n".join(lines) + "\n}\n"


def mark():
    """The last line of a picture of today's table."""
    return f"<!-- drawn from src/layers.txt, {hashlib.sha256(drawing().encode()).hexdigest()} -->"
