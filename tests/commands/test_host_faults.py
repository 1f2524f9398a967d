"""The faults that tests set up are real: full disks, read-only files, held locks, a missing database.
Under nosleep sleeps take no time, and nothing_changes() notices each change."""
import os
import time

import pytest

from mailboxes import make_mailbox
from host_faults import accounts_locked, flock_held, full_disk, read_only, undo
from mailhost import (
    ACCOUNTS, MAILNAMES, MAPS, NOSLEEP_JOURNAL, auth_rows, described, nothing_changes, read, run, runs, slept,
    start, stop, tree, write,
)

SANITIZED_TOO = False  # these tests are not about the tool

ANNA = "anna@example.com"


def test_a_full_disk_refuses_content_and_keeps_what_is_there():
    make_mailbox(ANNA, "secret")
    before = tree(MAILNAMES)
    full_disk(MAILNAMES, more_files=1)
    assert {path: kind for path, kind in tree(MAILNAMES).items() if path != ".full"} == before
    assert described(MAILNAMES) == "d 0755 popuser:popuser"
    with pytest.raises(OSError, match="No space left"):
        write(f"{MAILNAMES}/one", "x" * 5000)
    with pytest.raises(OSError, match="No space left"):
        write(f"{MAILNAMES}/two", "")
    undo(MAILNAMES)
    assert tree(MAILNAMES) == before


def test_a_read_only_directory_and_file():
    read_only(MAPS)
    read_only("/etc/postfix/main.cf")
    for path in (f"{MAPS}/x", "/etc/postfix/main.cf"):
        with pytest.raises(OSError, match="Read-only"):
            write(path, "x")
    undo(MAPS)
    write(f"{MAPS}/x", "x")


def test_a_held_lock_blocks_another_process():
    path = f"{MAPS}/virtual.lock"
    with flock_held(path):
        assert run("flock", "-n", path, "true").status == 1
    assert run("flock", "-n", path, "true").status == 0


def test_a_locked_account_database_is_busy():
    with accounts_locked():
        ended = run("sqlite3", ACCOUNTS, "INSERT INTO domains (name) VALUES ('x')")
        assert ended.status != 0 and "locked" in ended.err
    assert auth_rows() == {}


def test_a_stopped_database_refuses_the_client():
    start("mariadb")
    stop("mariadb")
    assert not runs("mariadb")
    assert "connect" in run("mariadb", "-e", "SELECT 1").err


def test_without_nosleep_time_passes_and_with_it_it_does_not():
    command = ["/usr/bin/perl", "-e", "print sleep(3000), '|'; select(undef, undef, undef, 0); print $ENV{LD_PRELOAD} // 'none'"]
    started = time.monotonic()
    ended = run(*command, env={"LD_PRELOAD": "/run/mailvek/bin/nosleep.so", "NOSLEEP_JOURNAL": NOSLEEP_JOURNAL})
    assert time.monotonic() - started < 300
    assert slept() == [("sleep", 3000.0)]
    assert ended.out.endswith("|none"), "the children of the preloaded program would not sleep either"


def test_nothing_changes_notices_a_change():
    with pytest.raises(AssertionError, match="/etc/orv/orv.conf"):
        with nothing_changes():
            write("/etc/orv/orv.conf", read("/etc/orv/orv.conf"))
    with pytest.raises(AssertionError, match="/etc/orv"):
        with nothing_changes():
            write("/etc/orv/new", "")
            os.unlink("/etc/orv/new")
    with nothing_changes():
        read("/etc/orv/orv.conf")
