"""The verbs of the command tests: how a test runs the tool, changes a throw-away mail host and looks at it.

Everything here runs inside a host (tests/host/enter) as root, on real paths. Text is str with
undecodable bytes as surrogates. Each wait ends: a program that does not come back in time fails the
test.
"""
import contextlib
import dataclasses
import functools
import grp
import hashlib
import os
import pathlib
import pwd
import shlex
import sqlite3
import stat
import subprocess
import sys
import time

CHECKOUT = pathlib.Path(__file__).resolve().parents[2]
HOST = CHECKOUT / "tests" / "host"
sys.path.insert(0, str(HOST))

from reset import reset  # noqa: E402, F401  (one of the verbs)

TOOL = "/usr/local/orv/admin/sbin/mailvek"
MAPS = "/var/spool/postfix/orvek"
ACCOUNTS = f"{MAPS}/passwd.db"
MAILNAMES = "/var/qmail/mailnames"
BIN = pathlib.Path("/run/mailvek/bin")
REAL = pathlib.Path("/run/mailvek/real")
SPIES = pathlib.Path("/run/mailvek/spies")
NOSLEEP_JOURNAL = "/run/mailvek/nosleep"
HANGS = 300  # seconds after which a program or an event that is awaited counts as lost
PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"


def text(data):
    return data.decode("utf-8", "surrogateescape")


# ---------------------------------------------------------------------------- the tool


@dataclasses.dataclass
class Ended:
    """How a program ended. A signal's number is negative in status."""

    command: tuple
    status: int
    out: str
    err: str

    def __str__(self):
        return f"{shlex.join(map(str, self.command))[:300]} -> {self.status}\n{self.out}{self.err}"


@functools.cache
def sanitized(tool):
    """Whether the program was built with the sanitizers."""
    return b"__asan_init" in pathlib.Path(tool).read_bytes()


def run(*command, env=None, stdin=b"", timeout=HANGS, cwd="/", **more):
    """Runs a program and waits for it. Without env it gets only PATH and HOME."""
    if isinstance(stdin, str):
        stdin = os.fsencode(stdin)
    environment = {"PATH": PATH, "HOME": "/root"} if env is None else env
    done = subprocess.run(
        [os.fspath(word) for word in command], env=environment, input=stdin, timeout=timeout,
        cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False, **more,
    )
    return Ended(command, done.returncode, text(done.stdout), text(done.stderr))


def tool_environment(env=None, nosleep=False, leaks=True):
    """The environment in which the panel runs the tool, with env's variables added."""
    environment = {"PATH": PATH, "HOME": "/root", **(env or {})}
    sanitizer = []
    if nosleep:
        environment |= {"LD_PRELOAD": str(BIN / "nosleep.so"), "NOSLEEP_JOURNAL": NOSLEEP_JOURNAL}
        sanitizer.append("verify_asan_link_order=0")
    if not leaks:
        sanitizer.append("detect_leaks=0")
    if sanitizer and sanitized(TOOL):
        environment["ASAN_OPTIONS"] = ":".join(sanitizer)
    return environment


def mailvek(*arguments, env=None, stdin=b"", timeout=HANGS, nosleep=False):
    """Runs the tool as the panel does. With nosleep its sleeps take no time; see slept()."""
    return run(TOOL, *arguments, env=tool_environment(env, nosleep), stdin=stdin, timeout=timeout)


# What Postfix's own script says of a reload, where its postlog writes to more than the log.
RELOADED = "postfix/postlog: refreshing the Postfix mail system\n"


def done(*arguments, out="", **more):
    """Runs the tool, which must succeed, report nothing and print exactly out. None allows any output."""
    ended = mailvek(*arguments, **more)
    printed = ended.out.replace(RELOADED, "")
    assert (ended.status, ended.err) == (0, "") and out in (None, printed), ended
    return ended


def failed(*arguments, saying="", report=None, status=1, **more):
    """Runs the tool, which must end with this status. saying must be part of its reports; report must be
    all that it prints, on both streams."""
    ended = mailvek(*arguments, **more)
    assert ended.status == status and saying in ended.err, ended
    assert report is None or ended.err == ended.out == report, ended
    return ended


def misused(*arguments, saying="", report=None):
    """Runs the tool with bad options. It must report them as in failed(), with the command's usage after
    the report on standard output. It must change nothing and run nothing that a spy sees."""
    with nothing_changes():
        seen = spy_journal()
        ended = mailvek(*arguments)
        assert spy_journal() == seen, ended
    assert ended.status == 1 and saying in ended.err and report in (None, ended.err), ended
    assert ended.out.startswith(ended.err) and f"\nUsage: {arguments[0]} " in ended.out, ended


def spy_journal():
    """The journal of the spies so far. calls() of spies.py reads it."""
    with contextlib.suppress(FileNotFoundError):
        return (SPIES / "journal").read_text()
    return ""


def slept():
    """The sleeps that the tool asked for under nosleep: (function, seconds), in order."""
    with contextlib.suppress(FileNotFoundError):
        rows = [line.split() for line in pathlib.Path(NOSLEEP_JOURNAL).read_text().splitlines()]
        return [(name, float(seconds)) for name, seconds in rows]
    return []


def system_calls(*arguments, calls, env=None):
    """Runs the tool under strace. Returns how it ended, and a line for each of the named calls."""
    log = "/run/mailvek/system-calls"
    ended = run(
        "strace", "-f", "-qq", "-s", "4096", "-e", f"trace={calls}", "-o", log, TOOL, *arguments,
        env=tool_environment(env, leaks=False),
    )
    return ended, [line.split(maxsplit=1)[1] for line in pathlib.Path(log).read_text(errors="replace").splitlines()]


# ------------------------------------------------------------------------------- Postfix


def map_file(name):
    return name if ":" in name else f"hash:{MAPS}/{name}"


def postmap(name):
    """The records of a map, as the real postmap lists them."""
    ended = run(REAL / "usr/sbin/postmap", "-s", map_file(name))
    assert ended.status == 0, ended
    return dict(line.split("\t", 1) for line in ended.out.splitlines())


def postmap_query(name, key):
    """The value that the real postmap finds for a key, or None."""
    ended = run(REAL / "usr/sbin/postmap", "-q", key, map_file(name))
    assert ended.err == "", ended
    return ended.out.removesuffix("\n") if ended.status == 0 else None


def add_records(name, records):
    """Puts records into a map by hand."""
    lines = "".join(f"{key} {value}\n" for key, value in records.items())
    ended = run(REAL / "usr/sbin/postmap", "-i", map_file(name), stdin=lines)
    assert ended.status == 0 and ended.err == "", ended


def postconf(name):
    """A parameter of main.cf."""
    ended = run(REAL / "usr/sbin/postconf", "-h", name)
    assert ended.status == 0, ended
    return ended.out.removesuffix("\n")


def set_postconf(**parameters):
    """Changes main.cf by hand and dates it back, since Postfix's programs wait when it is new."""
    ended = run(REAL / "usr/sbin/postconf", "-e", *(f"{name}={value}" for name, value in parameters.items()))
    assert ended.status == 0, ended
    os.utime("/etc/postfix/main.cf", (time.time() - 5,) * 2)


# ----------------------------------------------------------------- accounts and the panel


def auth_sql(statement, *values):
    """Runs a statement on the account database and returns the rows."""
    with contextlib.closing(sqlite3.connect(ACCOUNTS, timeout=HANGS)) as connection, connection:
        return connection.execute(statement, values).fetchall()


def auth_domains():
    """The domains of the account database: name to status."""
    return dict(auth_sql("SELECT name, status FROM domains"))


def auth_rows():
    """The accounts: address to (plain password, encrypted password, status)."""
    rows = auth_sql(
        "SELECT u.name || '@' || d.name, u.userPassword, u.cmusaslsecretPLAIN, u.status "
        "FROM users u JOIN domains d ON u.dom_id = d.id"
    )
    return {row[0]: row[1:] for row in rows}


def panel_sql(statement):
    """Runs statements on the panel's database, which must be running. Returns the rows, NULL as None."""
    ended = run("mariadb", "--batch", "--raw", "--skip-column-names", "orv", stdin=statement)
    assert ended.status == 0, ended
    rows = [line.split("\t") for line in ended.out.splitlines()]
    return [tuple(None if value == "NULL" else value for value in row) for row in rows]


# ------------------------------------------------------------------------------- services


def service(verb, *names):
    ended = run(HOST / "service", verb, *names, env={"PATH": PATH, "HOME": "/root", "MAILVEK_HOST": "1"})
    assert verb == "status" or ended.status == 0, ended
    return ended.status == 0


def start(*names):
    """Starts services (mariadb, postfix, courier) and waits until they answer."""
    service("start", *names)


def stop(*names):
    service("stop", *names)


def runs(name):
    return service("status", name)


def system_log():
    """The system log's lines since the last reset."""
    return pathlib.Path("/var/log/syslog").read_text(errors="surrogateescape").splitlines()


def wait_until(condition, seconds=HANGS):
    """Waits until condition() is true and returns its value. Fails after the given seconds."""
    deadline = time.monotonic() + seconds
    while not (value := condition()):
        assert time.monotonic() < deadline, f"not so after {seconds} s: {condition}"
        time.sleep(0.02)
    return value


# ----------------------------------------------------------------------------------- files


def described(path):
    """A file's kind, mode and owner: "d 0750 popuser:popuser"."""
    status = os.lstat(path)
    kind = stat.filemode(status.st_mode)[0].replace("-", "f")
    if kind == "l":
        return f"l {os.readlink(path)}"
    try:
        owner = f"{pwd.getpwuid(status.st_uid).pw_name}:{grp.getgrgid(status.st_gid).gr_name}"
    except KeyError:
        owner = f"{status.st_uid}:{status.st_gid}"
    return f"{kind} {stat.S_IMODE(status.st_mode):04o} {owner}"


def tree(path):
    """Everything below a directory: relative path to described()."""
    found = {}
    for directory, directories, files in os.walk(path):
        for name in directories + files:
            full = os.path.join(directory, name)
            found[os.path.relpath(full, path)] = described(full)
    return found


def read(path):
    return text(pathlib.Path(path).read_bytes())


def write(path, content, mode=None):
    pathlib.Path(path).parent.mkdir(parents=True, exist_ok=True)
    pathlib.Path(path).write_bytes(os.fsencode(content))
    if mode is not None:
        os.chmod(path, mode)


_NOT_ON_DISK = ("/run/mailvek", "/var/lib/mysql", "/var/log/syslog", "/var/log/mail.log",
                "/var/log/mariadbd.log")


def fingerprint(path):
    status = os.lstat(path)
    content = ""
    if stat.S_ISREG(status.st_mode):
        content = hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()
    # A directory's time counts, because it shows a file that was made and removed again.
    return described(path), status.st_mtime_ns, content


def disk():
    """Every file of the host that differs from the untouched system, and all of /run, /tmp and /dev/shm,
    each with kind, mode, owner, time and content. Logs and the panel's database are left out. If two
    results are equal, nothing on disk has changed in between."""
    found = {}
    for top, prefix in (("/run/mailvek/changes", ""), ("/run", "/run"), ("/tmp", "/tmp"), ("/dev/shm", "/dev/shm")):
        for directory, directories, files in os.walk(top):
            shown = prefix + directory[len(top):]
            directories[:] = [name for name in directories if not f"{shown}/{name}".startswith(_NOT_ON_DISK)]
            for name in directories + files:
                path = f"{shown}/{name}"
                if not path.startswith(_NOT_ON_DISK):
                    found[path] = fingerprint(path) if os.path.lexists(path) else "removed"
    return found


def changed_since(before):
    """The paths that have changed since disk() returned before."""
    after = disk()
    return sorted(path for path in before.keys() | after.keys() if before.get(path) != after.get(path))


@contextlib.contextmanager
def nothing_changes():
    """Fails when the block changes anything on the disk."""
    before = disk()
    yield
    different = changed_since(before)
    assert not different, f"changed on disk: {different}"
