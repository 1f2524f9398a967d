"""Counting a Maildir of 100,000 messages with their sizes in their names, against listing it."""

import os

from run import Row

MESSAGES = 100_000


def row(bench):
    maildir = bench.directory / "Maildir"
    for name in ("new", "cur", "tmp"):
        (maildir / name).mkdir(parents=True)
    for number in range(MESSAGES):
        name = f"cur/{1_700_000_000 + number}.M{number}P{number % 9999}V0I{number:016X}.mail.example.test,S={number % 9973}:2,S"
        os.close(os.open(maildir / name, os.O_WRONLY | os.O_CREAT))
    return Row(
        ours=[bench.program("bench_maildir_usage"), maildir],
        other=["/usr/bin/find", maildir, "-printf", "%f\\n"],
        goal=1.2,
        memory=8,
        times=5,
    )
