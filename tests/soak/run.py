#!/usr/bin/python3
"""Tries what takes too long for the tests: kills, and changes of large maps under traffic.

usage: tests/host/enter --tool PATH /usr/bin/python3 tests/soak/run.py ROW [SECONDS]

Rows: calls, moments, traffic, letters. Each needs a fresh host and ends after so many seconds, or when all is
tried. Prints what was tried and each broken promise; exits 1 when there was one.
"""
import sys
import time

import kills
import letters
import traffic

LARGE, SMALL = 100_000, 500
MOMENTS = 500
LETTERS = 5_000


def told(row, wrong):
    for line in wrong:
        print(f"  {line}".replace("\n", " / ")[:1000])
    print(f"{row}, {len(wrong)} broken promises", flush=True)
    return wrong


def benches(records):
    kills.prepare(records)
    return [kills.Bench(name) for name in kills.COMMANDS]


def calls(seconds):
    """Kills at every system call that changes something; as many of them as there is time for."""
    failed = []
    all_benches = benches(SMALL)
    until = time.monotonic() + seconds
    rows = [(bench, victim) for bench in all_benches for victim in kills.VICTIMS]
    for number, (bench, victim) in enumerate(rows):
        share = (until - time.monotonic()) / (len(rows) - number)
        tried, whole, wrong = bench.at_system_calls(victim, until=time.monotonic() + share)
        failed += told(f"{bench.name}, {victim} killed at {tried} of {whole} system calls", wrong)
    return failed


def moments(seconds):
    """Kills at random moments, of tool, child and group in turns, one command after the other."""
    all_benches = benches(LARGE)
    until, tried, kills_made, failed = time.monotonic() + seconds, 0, 0, []
    while kills_made < MOMENTS and time.monotonic() < until:
        bench = all_benches[tried % len(all_benches)]
        killed, wrong = bench.at_a_moment(kills.VICTIMS[tried // len(all_benches) % 3], tried)
        failed += wrong
        tried += 1
        kills_made += killed
        if wrong or tried % 50 == 0:
            told(f"{kills_made} kills at {tried} random moments so far", wrong)
    return told(f"{kills_made} kills at {tried} random moments on maps of {LARGE} records", failed)


def refusals(seconds):
    counted = traffic.refusals(LARGE, seconds)
    rate = counted.changes / counted.seconds
    return told(f"{counted.changes} changes, {rate:.1f} a second, on {LARGE} records; {counted.asked} valid recipients, "
                f"{len(counted.refused)} refused", counted.refused)


def deliveries(seconds):
    sent = letters.letters(LARGE, LETTERS, seconds)
    return told(f"{sent.changes} changes on {LARGE} records; {len(sent.valid)} letters to valid addresses, {sent.invalid} to "
                f"others, {sent.later} to be sent once more", sent.wrong)


ROWS = {"calls": calls, "moments": moments, "traffic": refusals, "letters": deliveries}


if __name__ == "__main__":
    sys.exit(1 if ROWS[sys.argv[1]](float(sys.argv[2]) if len(sys.argv) > 2 else 1e6) else 0)
