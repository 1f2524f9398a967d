"""The state of a host that a command may change: recording it, putting it back, comparing it.

A picture is everything on disk in the trees below. Its view is what a caller may rely on: a map is its
records, the account database is its rows, and random parts of names are left out.
"""
import contextlib
import dataclasses
import hashlib
import os
import pathlib
import re
import shutil
import sqlite3
import stat

import mailhost

TREES = (
    mailhost.MAPS, mailhost.MAILNAMES, "/etc/postfix", "/etc/courier", "/usr/local/orv/handlers",
    "/etc/domainkeys", "/etc/orv-spf", "/etc/orv", "/run/lock", "/tmp", "/dev/shm",
)
# What SQLite keeps beside the account database: changes to be undone, changes to be made, an index of those.
UNFINISHED = (f"{mailhost.ACCOUNTS}-journal", f"{mailhost.ACCOUNTS}-wal")
BESIDE_ACCOUNTS = (*UNFINISHED, f"{mailhost.ACCOUNTS}-shm")
# The host's own services write here, and the driver keeps its stand-ins and logs in SCRATCH.
ELSEWHERE = ("/var/lib/mysql", "/var/log", "/var/spool/postfix/dev")
SCRATCH = pathlib.Path("/run/mailvek/faults")


@dataclasses.dataclass(frozen=True)
class Entry:
    """A file, directory or link. Its time is kept so that it can be put back."""

    mode: int
    owner: tuple
    content: bytes = b""
    time: int = 0
    identity: tuple = ()

    def kind(self):
        return stat.S_IFMT(self.mode)

    def same(self, other):
        # Without a directory's time, which changes whenever a file in it comes or goes.
        mine, its = ((entry.mode, entry.owner, entry.content,
                      0 if stat.S_ISDIR(entry.mode) else entry.time) for entry in (self, other))
        return mine == its


def picture(last=None):
    """Everything in the trees, by path. A file that has not changed since the last picture is not read."""
    found = {}
    for tree in TREES:
        add_entry(found, tree, last or {})
        for directory, directories, files in os.walk(tree):
            for name in directories + files:
                add_entry(found, f"{directory}/{name}", last or {})
    return found


def add_entry(found, path, last):
    try:
        status = os.lstat(path)
    except FileNotFoundError:
        return
    identity = (status.st_ino, status.st_ctime_ns, status.st_size)
    if path in last and last[path].identity == identity:
        found[path] = last[path]
        return
    content = b""
    if stat.S_ISREG(status.st_mode):
        content = pathlib.Path(path).read_bytes()
    elif stat.S_ISLNK(status.st_mode):
        content = os.fsencode(os.readlink(path))
    found[path] = Entry(status.st_mode, (status.st_uid, status.st_gid), content, status.st_mtime_ns, identity)


def put_back(wanted, present):
    """Changes the disk from the picture present to the picture wanted. Returns a new picture."""
    for path in sorted(present.keys() - wanted.keys(), reverse=True):
        remove(path, present[path])
    emptied = set(files_beside_what_is_gone(wanted, present))
    for path in emptied:
        remove(path, present[path])
    for path in sorted(wanted):
        there = None if path in emptied else present.get(path)
        if there is None or not wanted[path].same(there):
            if there is not None and there.kind() != wanted[path].kind():
                remove(path, there)
            make(path, wanted[path])
    return picture(present)


def files_beside_what_is_gone(wanted, present):
    """Files of directories that lack one. All are made anew together, so that the directory lists them
    in the same order each time."""
    directories = {os.path.dirname(path) for path in wanted.keys() - present.keys()}
    for path in present.keys() & wanted.keys():
        if os.path.dirname(path) in directories and not stat.S_ISDIR(present[path].mode):
            yield path


def remove(path, entry):
    if stat.S_ISDIR(entry.mode):
        shutil.rmtree(path, ignore_errors=True)
    else:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(path)


def make(path, entry):
    if stat.S_ISDIR(entry.mode):
        os.makedirs(path, exist_ok=True)
    elif stat.S_ISLNK(entry.mode):
        with contextlib.suppress(FileNotFoundError):
            os.unlink(path)
        os.symlink(entry.content, path)
    elif stat.S_ISREG(entry.mode):
        pathlib.Path(path).write_bytes(entry.content)
    os.chown(path, *entry.owner, follow_symlinks=False)
    if not stat.S_ISLNK(entry.mode):
        os.chmod(path, stat.S_IMODE(entry.mode))
        os.utime(path, ns=(entry.time, entry.time))


def changes_elsewhere():
    """Paths outside the trees that differ from the untouched system."""
    found = set()
    for directory, directories, files in os.walk("/run/mailvek/changes"):
        shown = directory.removeprefix("/run/mailvek/changes")
        directories[:] = [name for name in directories if f"{shown}/{name}" not in TREES + ELSEWHERE]
        found |= {f"{shown}/{name}" for name in directories + files}
    return found


# ------------------------------------------------------------------------------------- views


def view(taken):
    """What counts in a picture, by path: (kind, mode, owner, content). The content of a map is its
    records, of the account database its rows, of other files their bytes. Lock files do not count."""
    found, names = {}, Names(taken)
    for path, entry in taken.items():
        if path.startswith("/run/lock/") or path in BESIDE_ACCOUNTS:
            continue
        what = content(path, entry, taken)
        if stat.S_ISLNK(entry.mode):
            what = os.fsencode(names.plain(os.fsdecode(what)))
        found[names.plain(path)] = (entry.kind(), stat.S_IMODE(entry.mode), entry.owner, what)
    return found


class Names:
    """Replaces the random parts of names. A handler's directory ends in six random characters, which
    become the handler's value once the directory is whole."""

    def __init__(self, taken):
        self.handlers = {}
        for path, entry in taken.items():
            if path.endswith("/executable"):
                self.handlers[os.path.basename(os.path.dirname(path))] = target(taken, os.path.dirname(path))

    def plain(self, path):
        path = re.sub(r"\.OrvekSaved\.\d+", ".OrvekSaved.*", path)
        if "/handlers/" not in path and "/info/" not in path:
            return path
        return re.sub(r"(?<=/)(\d+-[^/]*-)\w{6}(?=/|$)", lambda found: found[1] + self.handlers.get(found[0], "*"), path)


def target(taken, handler):
    kind = taken.get(f"{handler}/handler-type")
    value = kind and taken.get(f"{handler}/{kind.content.decode().strip()}")
    return value.content.decode().strip() if value else "*"


def content(path, entry, taken):
    if path == mailhost.ACCOUNTS:
        return rows(entry.content, {beside: taken[beside].content for beside in UNFINISHED if beside in taken})
    if stat.S_ISREG(entry.mode) and path.startswith(mailhost.MAPS) and path.endswith(".db"):
        return records(entry.content)
    return entry.content


class Damaged(Exception):
    """A map or a database that its own program cannot read."""


_read = {}  # the records or rows of a file, by the digest of its bytes


def remembered(key, read):
    if key not in _read:
        _read[key] = read()
    if isinstance(_read[key], Damaged):
        return ("damaged", str(_read[key]))
    return _read[key]


def records(data):
    """A map's records, as postmap lists them."""
    def read():
        scratch = SCRATCH / "map.db"
        scratch.write_bytes(data)
        ended = mailhost.run(mailhost.REAL / "usr/sbin/postmap", "-s", f"hash:{scratch.with_suffix('')}")
        if ended.status or ended.err:
            return Damaged(str(ended))
        return dict(line.split("\t", 1) for line in ended.out.splitlines())
    return remembered(hashlib.sha256(data).digest(), read)


def rows(data, unfinished):
    """The account database's rows, by table and key. Works on a copy, where SQLite first finishes or rolls
    back what a program that has ended left unfinished."""
    def read():
        scratch = SCRATCH / "passwd.db"
        for path in BESIDE_ACCOUNTS:
            pathlib.Path(path.replace(mailhost.ACCOUNTS, str(scratch))).unlink(missing_ok=True)
        scratch.write_bytes(data)
        for path, content_of_it in unfinished.items():
            pathlib.Path(path.replace(mailhost.ACCOUNTS, str(scratch))).write_bytes(content_of_it)
        try:
            with contextlib.closing(sqlite3.connect(scratch)) as connection:
                return read_rows(connection)
        except sqlite3.Error as error:
            return Damaged(str(error))
    return remembered((hashlib.sha256(data).digest(), *sorted(unfinished.items())), read)


def read_rows(connection):
    said = connection.execute("PRAGMA integrity_check").fetchall()
    if said != [("ok",)]:
        return Damaged(str(said))
    # By name, because the rows' numbers mean nothing.
    found = {}
    for name, *values in connection.execute("SELECT name, status FROM domains"):
        found.setdefault(f"domain {name}", []).append(values)
    for name, *values in connection.execute(
            "SELECT u.name || '@' || COALESCE(d.name, u.dom_id), u.userPassword, u.cmusaslsecretPLAIN, u.status "
            "FROM users u LEFT JOIN domains d ON u.dom_id = d.id"):
        found.setdefault(f"account {name}", []).append(values)
    return found
