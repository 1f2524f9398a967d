#!/usr/bin/python3
"""Brings a throw-away mail host back to the state it was entered in.

Kills every process except the caller and its ancestors, the system log and the panel's database.
Undoes every mount since the start, spies included. Puts back every file that differs from the
untouched system, which it finds in the layer with the host's changes. Empties /run, /tmp and /dev/shm
of what a test has left. Rebuilds the panel's database when it has changed; a stopped database stays
stopped.
"""
import os
import pathlib
import shutil
import signal
import stat
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
PRISTINE = pathlib.Path("/run/mailvek/pristine")
CHANGES = pathlib.Path("/run/mailvek/changes")
DATABASE_FILES = "/var/lib/mysql"
SYSTEM_LOG_SOCKET = "/var/spool/postfix/dev/log"
DATABASE_PID = "/run/mysqld/mysqld.pid"
KEPT_BELOW_RUN = {"mailvek", "mysqld", "syslog.pid"}
KEPT_BELOW_RUN_MAILVEK = {"pristine", "changes", "real", "bin", "mounts", "pytest", "disk"}


def pid_in(path):
    try:
        return int(pathlib.Path(path).read_text())
    except (OSError, ValueError):
        return None


def parent_of(pid):
    with open(f"/proc/{pid}/stat") as file:
        return int(file.read().rpartition(")")[2].split()[1])


def kill_what_was_started():
    kept = {pid_in("/run/syslog.pid"), pid_in(DATABASE_PID), 1}
    pid = os.getpid()
    while pid > 1:
        kept.add(pid)
        pid = parent_of(pid)
    deadline = time.monotonic() + 120
    while True:
        alive = [int(name) for name in os.listdir("/proc") if name.isdigit() and int(name) not in kept]
        alive = [pid for pid in alive if not is_zombie_of_ours(pid)]
        if not alive:
            return
        for pid in alive:
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        if time.monotonic() > deadline:
            raise RuntimeError(f"processes that do not die: {alive}")
        time.sleep(0.002)


def is_zombie_of_ours(pid):
    """A dead child of the caller or its ancestors, which its parent will collect."""
    try:
        with open(f"/proc/{pid}/stat") as file:
            state, parent = file.read().rpartition(")")[2].split()[:2]
        return state == "Z" and int(parent) != 1
    except OSError:
        return True


def mounts():
    """(id, mount point) of every mount, oldest first."""
    with open("/proc/self/mountinfo") as file:
        rows = [line.split() for line in file]
    return [(row[0], row[4].encode().decode("unicode_escape")) for row in rows]


def undo_mounts():
    first = set(pathlib.Path("/run/mailvek/mounts").read_text().split())
    for number, place in reversed(mounts()):
        if number not in first:
            subprocess.run(["umount", "-l", place], check=True)


class Disk:
    """Puts back the files of the root file system."""

    def __init__(self, kept):
        self.kept = set(kept) | {place for _, place in mounts()}

    def holds_kept(self, path):
        return any(place == path or place.startswith(path + "/") for place in self.kept)

    def restore(self, path=""):
        """Restores a directory that exists in the host and in the untouched system."""
        live = set(os.listdir(path or "/"))
        pristine = set(os.listdir(f"{PRISTINE}{path}"))
        changed = set(os.listdir(f"{CHANGES}{path}"))
        for name in live - pristine:
            self.remove(f"{path}/{name}")
        for name in pristine - live:
            self.copy(f"{path}/{name}")
        for name in live & pristine & changed:
            self.restore_entry(f"{path}/{name}")
        self.copy_attributes(path or "/")

    def restore_entry(self, path):
        if path in self.kept:
            return
        was, now = os.lstat(f"{PRISTINE}{path}"), os.lstat(path)
        if stat.S_ISDIR(was.st_mode) and stat.S_ISDIR(now.st_mode) and not replaced(path):
            self.restore(path)
        elif not same(was, now) or stat.S_ISDIR(now.st_mode):
            if path.startswith("/var/log/") and stat.S_ISREG(was.st_mode) and stat.S_ISREG(now.st_mode):
                shutil.copyfile(f"{PRISTINE}{path}", path)  # in place, because the system log has it open
                self.copy_attributes(path)
            else:
                self.remove(path)
                self.copy(path)

    def remove(self, path):
        if stat.S_ISDIR(os.lstat(path).st_mode):
            if not self.holds_kept(path):
                shutil.rmtree(path)
        elif path not in self.kept:
            os.unlink(path)

    def copy(self, path):
        subprocess.run(["cp", "-a", "--", f"{PRISTINE}{path}", path], check=True)

    def copy_attributes(self, path):
        was, now = os.lstat(f"{PRISTINE}{path}"), os.lstat(path)
        if not same(was, now):
            os.chown(path, was.st_uid, was.st_gid)
            os.chmod(path, stat.S_IMODE(was.st_mode))
            os.utime(path, ns=(was.st_atime_ns, was.st_mtime_ns))


def same(was, now):
    fields = ("st_mode", "st_uid", "st_gid", "st_mtime_ns", "st_rdev")
    return all(getattr(was, field) == getattr(now, field) for field in fields) and (
        stat.S_ISDIR(was.st_mode) or was.st_size == now.st_size
    )


def replaced(path):
    """Whether the directory hides the untouched one, because it was made anew or moved there."""
    names = os.listxattr(f"{CHANGES}{path}")
    return "trusted.overlay.opaque" in names or "trusted.overlay.redirect" in names


def empty(directory, kept):
    still_mounted = {place for _, place in mounts()}
    for entry in os.scandir(directory):
        if entry.name in kept or any(place.startswith(entry.path) for place in still_mounted):
            continue
        if entry.is_dir(follow_symlinks=False):
            shutil.rmtree(entry.path)
        else:
            os.unlink(entry.path)


def sql(text, database=None):
    command = ["mariadb", "--batch", "--raw", "--skip-column-names"] + ([database] if database else [])
    return subprocess.run(command, input=text.encode(), check=True, capture_output=True, timeout=120).stdout


def reset_panel_database():
    changed = sql(
        "SELECT COUNT(*) FROM information_schema.tables "
        "WHERE table_schema = 'orv' AND (update_time IS NOT NULL OR create_time > "
        "(SELECT MIN(create_time) FROM information_schema.tables WHERE table_schema = 'orv') "
        "+ INTERVAL 60 SECOND);"
        "SELECT COUNT(*) FROM information_schema.tables WHERE table_schema = 'orv';"
    ).split()
    schema = (HERE / "panel-schema.sql").read_text()
    if changed != [b"0", str(schema.count("CREATE TABLE")).encode()]:
        sql("DROP DATABASE IF EXISTS orv; CREATE DATABASE orv CHARACTER SET utf8mb4; USE orv;" + schema)


def reset():
    if os.environ.get("MAILVEK_HOST") != "1":
        raise RuntimeError("not in a throw-away mail host")
    kill_what_was_started()
    undo_mounts()
    database_runs = pid_in(DATABASE_PID) is not None and os.path.exists(f"/proc/{pid_in(DATABASE_PID)}")
    Disk([SYSTEM_LOG_SOCKET] + ([DATABASE_FILES] if database_runs else [])).restore()
    empty("/run", KEPT_BELOW_RUN)
    empty("/run/mailvek", KEPT_BELOW_RUN_MAILVEK)
    empty("/tmp", set())
    empty("/dev/shm", set())
    subprocess.run([HERE / "run-directories"], check=True)
    if database_runs:
        reset_panel_database()


if __name__ == "__main__":
    reset()
    sys.exit(0)
