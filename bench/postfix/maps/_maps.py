"""_maps - makes maps like those on servers, and the rows that rewrite or extend them"""

import shutil
import subprocess
from pathlib import Path

from run import Bench, Row

PER_DOMAIN = 100  # records


def virtual_text(records: int) -> str:
    """The text source of a `virtual` map: domains of mailboxes, aliases, lists and a catch-all."""
    lines = []
    for number in range(records // PER_DOMAIN):
        domain = f"customer{number}.example.test"
        lines.append(f"@{domain} info@{domain}\n")
        for i in range(1, PER_DOMAIN):
            box = f"first.last{i}@{domain}"
            if i % 10 == 0:
                lines.append(f"team{i}@{domain} {box}, first.last{i + 1}@{domain}, boss@other.test\n")
            elif i % 3 == 0:
                lines.append(f"alias{i}@{domain} {box}\n")
            else:
                lines.append(f"{box} {box}\n")
    return "".join(lines)


def build(path: Path, text: str) -> None:
    path.write_text(text)
    subprocess.run(["/usr/sbin/postmap", f"hash:{path}"], check=True)
    path.unlink()


def dump_sum(path: Path) -> bytes:
    return subprocess.run(
        f"/usr/sbin/postmap -s hash:{path} | LC_ALL=C sort | md5sum",
        shell=True, check=True, capture_output=True,
    ).stdout


def rename_row(bench: Bench, records: int) -> Row:
    """Renaming one domain with filterRecords, against the pipeline that a person would write."""
    path, kept = bench.directory / "virtual", bench.directory / "kept"
    build(path, virtual_text(records))
    shutil.copyfile(f"{path}.db", kept)
    pipeline = (
        f"/usr/sbin/postmap -s hash:{path}"
        r" | LC_ALL=C sed 's/@customer42\.example\.test\b/@renamed.test/g'"
        f" > {path} && /usr/sbin/postmap hash:{path}; status=$?; rm {path}; exit $status"
    )
    return Row(
        ours=[bench.program("bench_filter_records"), f"hash:{path}", "customer42.example.test", "renamed.test"],
        other=["/bin/sh", "-c", pipeline],
        goal=1.15,
        memory=16,
        before=lambda: shutil.copyfile(kept, f"{path}.db"),
        left=lambda: dump_sum(path),
    )


def add_row(bench: Bench, records: int) -> Row:
    """Adding records to an empty map with one run, against postmap fed from a file."""
    path, text = bench.directory / "virtual", bench.directory / "text"
    build(path, "")
    text.write_text(virtual_text(records))
    return Row(
        ours=[bench.program("bench_add_records"), f"hash:{path}"],
        other=["/usr/sbin/postmap", "-r", "-i", f"hash:{path}"],
        goal=1.3,
        stdin=text,
        before=lambda: build(path, ""),
        left=lambda: dump_sum(path),
    )
