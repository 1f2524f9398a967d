"""Faults to set up in a throw-away mail host: full and read-only disks, files and accounts that
somebody else has locked. reset() undoes all of them.
"""
import contextlib
import fcntl
import hashlib
import os
import pathlib
import re
import sqlite3
import stat
import subprocess

from mailhost import ACCOUNTS, MAPS, tree


def full_disk(path, more_files=0):
    """Makes a directory a full file system of its own. Its content stays and no block is free, but
    more_files files can still be made."""
    content = sum(4096 + os.lstat(os.path.join(top, name)).st_size // 4096 * 4096
                  for top, directories, files in os.walk(path) for name in directories + files)
    nodes = 1 + len(tree(path))
    cover(path, f"size={content + 65536},nr_inodes={nodes + more_files + 1}")
    with open(os.path.join(path, ".full"), "wb", buffering=0) as file:
        with contextlib.suppress(OSError):
            while file.write(bytes(4096)):
                pass


def cover(path, options):
    """Mounts a memory file system over a directory and copies the directory's content into it."""
    status = os.stat(path)
    source = f"/run/mailvek/covered-{status.st_ino}"
    os.mkdir(source)
    subprocess.run(["mount", "--bind", path, source], check=True)
    mode = f"mode={stat.S_IMODE(status.st_mode):o},uid={status.st_uid},gid={status.st_gid}"
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"{options},{mode}", "tmpfs", path], check=True)
    subprocess.run(["cp", "-a", f"{source}/.", path], check=True)


def read_only(path):
    """Mounts a file or directory read-only over itself."""
    subprocess.run(["mount", "--bind", path, path], check=True)
    subprocess.run(["mount", "-o", "remount,bind,ro", path], check=True)


def undo(path):
    """Removes the topmost mount from a path: that of full_disk(), read_only() or spy()."""
    subprocess.run(["umount", os.path.realpath(path)], check=True)


@contextlib.contextmanager
def flock_held(path):
    """Holds an exclusive flock on a directory or a file. Makes a missing file.

    Gives a function that tells whether somebody waits for it.
    """
    descriptor = os.open(path, os.O_RDONLY if os.path.isdir(path) else os.O_RDWR | os.O_CREAT, 0o644)
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
        inode = os.fstat(descriptor).st_ino
        waiter = re.compile(rf"-> FLOCK .*:{inode} ")
        yield lambda: waiter.search(pathlib.Path("/proc/locks").read_text())
    finally:
        os.close(descriptor)


def map_held(name):
    """Holds the lock of a map: no change of it goes on. Gives the same as flock_held()."""
    digest = hashlib.md5(f"{MAPS}/{name}".encode()).hexdigest()
    os.makedirs("/var/lock/files", mode=0o700, exist_ok=True)
    return flock_held(f"/var/lock/files/{digest}")


@contextlib.contextmanager
def accounts_locked():
    """Holds the account database in an exclusive transaction."""
    with contextlib.closing(sqlite3.connect(ACCOUNTS, isolation_level=None)) as connection:
        connection.execute("BEGIN EXCLUSIVE")
        try:
            yield
        finally:
            connection.execute("ROLLBACK")
