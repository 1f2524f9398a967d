"""The host for attackers, what does not belong to them, and whether an attack got through.

The attacker has the domain example.com, somebody else has victim.test, both with mailboxes, aliases, keys
and handlers. Root has canaries. breaches() compares everything that is not the attacker's before and
after, and searches for leaked secrets, for locks that are still held and for programs that are still
running.
"""
import contextlib
import dataclasses
import fcntl
import hashlib
import os
import pathlib
import resource
import signal
import sqlite3
import stat
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "commands"))

import mailhost  # noqa: E402
import panel  # noqa: E402
from mailhost import ACCOUNTS, MAILNAMES, MAPS, PATH, REAL, TOOL, done, run, text, write  # noqa: E402

DOMAIN, ALIAS, NEW = "example.com", "alias.test", "new.test"
VICTIM, VICTIM_ALIAS = "victim.test", "alias.victim.test"
AT = f"--domain-name={DOMAIN}"
ANNA = (AT, "--mailname=anna")
ROOT = f"{MAILNAMES}/{DOMAIN}"
HOME = f"{ROOT}/anna"
PLAIN = {"ORV_PASSWORD": "secret"}

SECRET = "the-word-that-only-root-knows"
PASSWORD_OF_BOB = "what-only-bob-knows"
CANARY = "/srv/root/canary"  # root's file, which nobody else may read
KEPT = "/srv/root/kept"  # root's directory, laid out like a home and like a Maildir
KEPT_FILES = ("a.txt", ".qmail", "maildirsize", "hook", "default", "cur/1.letter", "new/2.letter",
              "Maildir/maildirsize", "@attachments/a.txt", "anna/.qmail", "anna/Maildir/cur/3.letter")
CRON = "/etc/cron.d"
LOCKS = "/run/lock/files"
STORE = "/usr/local/orv/handlers"

SAVED = pathlib.Path("/run/mailvek/pytest/ground")
TREES = (MAILNAMES, MAPS, STORE, "/etc/domainkeys", "/etc/orv-spf", "/etc/postfix", "/etc/courier", "/etc/init.d",
         "/srv/root", "/srv/uploads")
_panel_statements = []

# A file up to this size is compared in full.
MOST_HASHED = 8 << 20


# ------------------------------------------------------------------------------- the ground


def lay():
    """Makes the ground: the first time with the tool itself, later from a copy."""
    mailhost.start("mariadb")
    if not SAVED.exists():
        make()
        save()
        return
    restore(TREES)
    mailhost.panel_sql("".join(_panel_statements))


def lay_again():
    """Restores the trees to their first state. The panel's tables and the services stay."""
    restore([tree for tree in TREES if tree != "/etc/init.d"])


def restore(trees):
    run("rm", "-rf", *trees, "/etc/planted", f"{CRON}/planted")
    ended = run("cp", "-a", "--parents", "-t", "/", *(tree.lstrip("/") for tree in trees), cwd=SAVED)
    assert ended.status == 0, ended


def save():
    SAVED.mkdir(parents=True)
    ended = run("cp", "-a", "--parents", "-t", SAVED, *TREES)
    assert ended.status == 0, ended
    ended = run("mariadb-dump", "--no-create-info", "--compact", "orv")
    assert ended.status == 0, ended
    _panel_statements[:] = ["SET FOREIGN_KEY_CHECKS=0;", ended.out]


def make():
    for script in ("/etc/init.d/postfix", "/etc/init.d/courier-imap"):
        pathlib.Path(os.path.realpath(script)).write_text("#!/bin/sh\nexit 0\n")
    services()
    canaries()
    mailhost.panel_sql("INSERT INTO misc (param, val) VALUES ('message_submission', 'true')")
    panel.panel_domain(NEW)
    panel.panel_domain(DOMAIN, aliases=[ALIAS])
    panel.panel_mailname(f"anna@{DOMAIN}", aliases=["ann"])
    panel.panel_mailname(f"ben@{DOMAIN}")
    panel.panel_domain(VICTIM, aliases=[VICTIM_ALIAS])
    panel.panel_mailname(f"bob@{VICTIM}", aliases=["bobby"])
    for domain in (DOMAIN, VICTIM):
        done("--add-domain", f"--domain-name={domain}")
    for domain, mailname in ((DOMAIN, "anna"), (DOMAIN, "ben"), (VICTIM, "bob")):
        done("--add-mailname", f"--domain-name={domain}", f"--mailname={mailname}", "--disk-quota=100000")
        password = PASSWORD_OF_BOB if mailname == "bob" else "secret"
        for verb in ("--add-mailbox", "--set-password"):
            done(verb, f"--domain-name={domain}", f"--mailname={mailname}", env={"ORV_PASSWORD": password})
    done("--add-domain-alias", AT, f"--domain-alias-name={ALIAS}", "--set-reject")
    done("--add-alias", *ANNA, "--alias=ann")
    done("--add-redirect", *ANNA, "--redirect-email=a@example.org")
    done("--add-attachment", *ANNA, "--file-name=/srv/uploads/letter", "--attachment-file-name=a.txt")
    for domain in (DOMAIN, VICTIM):
        write("/srv/uploads/key", f"the key of {domain}\n")
        done("--set-domain-key", f"--domain-name={domain}", "--file-name=/srv/uploads/key")
    write("/srv/uploads/key", "a key\n")  # the tool removes an installed key
    for address in (f"anna@{DOMAIN}", f"bob@{VICTIM}"):
        panel.add_hook(address)
    write(f"{HOME}/Maildir/cur/1.letter", "a letter\n")


SUBMISSION = "submission inet n - y - - smtpd\n"
SMTPS = "smtps inet n - y - - smtpd\n"


def services():
    """master.cf with services that the tool starts and parks, and without the one whose type it does not know."""
    lines = mailhost.read("/etc/postfix/master.cf").splitlines(True)
    write("/etc/postfix/master.cf", SUBMISSION + SMTPS + "".join(line for line in lines if not line.startswith("postlog")))


def canaries():
    write(CANARY, f"{SECRET}\n", 0o600)
    for name in (*KEPT_FILES, f"{SECRET}.txt", f"new/{SECRET}"):
        write(f"{KEPT}/{name}", f"{SECRET}\n", 0o600)
    for name in ("tmp", "Maildir/tmp", "Maildir/new", "Maildir/cur", ".Spam/cur", ".Spam/new"):
        os.makedirs(f"{KEPT}/{name}", exist_ok=True)
    os.makedirs("/etc/orv-spf", exist_ok=True)
    os.makedirs("/etc/domainkeys", exist_ok=True)
    os.makedirs("/srv/uploads", mode=0o755, exist_ok=True)
    write("/srv/uploads/letter", "a letter's attachment\n" * 100)
    write("/srv/uploads/key", "a key\n")
    os.chmod("/srv/root", 0o711)  # so that popuser is refused only at the canaries themselves


# ----------------------------------------------------------------------------- what is there


def fingerprint(path, status):
    content = ""
    if stat.S_ISREG(status.st_mode) and status.st_size <= MOST_HASHED:
        with contextlib.suppress(FileNotFoundError):
            content = hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()
    elif stat.S_ISLNK(status.st_mode):
        content = os.readlink(path)
    # A directory's time also changes when an honest command makes and removes a file in it.
    timed = not stat.S_ISDIR(status.st_mode) or path.startswith(("/srv/root", CRON))
    return (stat.filemode(status.st_mode), status.st_uid, status.st_gid, status.st_size if content else 0,
            status.st_mtime_ns if timed else 0, content)


def everything(but):
    """Everything that differs from the untouched system, and /run, /tmp, /dev/shm. Leaves out paths that
    begin with one of but."""
    found = {}
    for top, prefix in (("/run/mailvek/changes", ""), ("/run", "/run"), ("/tmp", "/tmp"), ("/dev/shm", "/dev/shm")):
        for directory, directories, files in os.walk(top):
            shown = prefix + directory[len(top):]
            directories[:] = [name for name in directories if not f"{shown}/{name}".startswith(but)]
            for name in directories + files:
                path = f"{shown}/{name}"
                if path.startswith(but):
                    continue
                with contextlib.suppress(FileNotFoundError):
                    found[path] = fingerprint(path, os.lstat(path))
    return found


def is_file(path):
    """Whether it is a regular file of less than 1 GiB with one name; not a link."""
    with contextlib.suppress(FileNotFoundError):
        status = os.lstat(path)
        return stat.S_ISREG(status.st_mode) and status.st_nlink == 1 and status.st_size < 1 << 30
    return False


_listed = {}


def listed(name):
    """What postmap prints for all records of a map. It runs once for each state of the map's file."""
    digest = hashlib.sha256(pathlib.Path(f"{MAPS}/{name}.db").read_bytes()).digest()
    if (name, digest) not in _listed:
        _listed[name, digest] = run(REAL / "usr/sbin/postmap", "-s", f"hash:{MAPS}/{name}")
    return _listed[name, digest]


def records_of_others(mine):
    """The records and accounts that belong to none of the attacker's domains."""
    found = {}
    for name in ("virtual", "virtual_domains", "vmailbox", "aliases", "blacklists", "poplock"):
        if not is_file(f"{MAPS}/{name}.db"):
            continue
        ended = listed(name)
        if ended.status != 0 or ended.err:
            found[f"{name}: damaged"] = ended.err
        for line in ended.out.split("\n"):
            key = line.split("\t", 1)[0]
            if line and not key.endswith(mine):
                found[f"{name}: {key}"] = line
    beside = [f"{ACCOUNTS}{suffix}" for suffix in ("-journal", "-wal", "-shm")]
    # SQLite itself gives what it opens beside the database to the database's owner, a second name too.
    if not all(is_file(path) and os.lstat(path).st_nlink == 1 for path in [ACCOUNTS, *filter(os.path.lexists, beside)]):
        return found
    try:
        with contextlib.closing(sqlite3.connect(f"file:{ACCOUNTS}?mode=ro", uri=True, timeout=5)) as connection:
            for row in connection.execute("SELECT u.name || '@' || d.name, u.userPassword, u.cmusaslsecretPLAIN, "
                                          "u.status FROM users u JOIN domains d ON u.dom_id = d.id"):
                if not row[0].endswith(mine):
                    found[f"account {row[0]}"] = row
            for row in connection.execute("SELECT name, status FROM domains"):
                if not row[0].endswith(mine):
                    found[f"account domain {row[0]}"] = row
    except sqlite3.Error as error:
        found["accounts: damaged"] = str(error)
    return found


def accounts_of_postfix(**more):
    """A connection of the user postfix to the accounts. He may not write them, but he owns the file."""
    os.chmod(ACCOUNTS, 0o640)
    return sqlite3.connect(ACCOUNTS, **more)


# Any command may change these: the tool's own data, which is compared by its meaning.
OURS = (LOCKS, f"{MAPS}/virtual.db", f"{MAPS}/virtual_domains.db", f"{MAPS}/vmailbox.db", f"{MAPS}/aliases.db",
        f"{MAPS}/blacklists.db", f"{MAPS}/poplock.db", ACCOUNTS)
NEVER = ("/run/mount", "/run/mailvek", "/var/lib/mysql", "/var/log/", "/run/mysqld", "/run/syslog", "/proc")


@dataclasses.dataclass
class Ended:
    status: int | None  # None: it did not end in time
    out: str
    err: str
    seconds: float

    def __str__(self):
        return f"status {self.status} after {self.seconds:.1f} s\n{self.out[-600:]}{self.err[-600:]}"


def spare_the_machine():
    """Limits the tool's memory, for the sake of the machine."""
    resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))


def start(*arguments, env=None, before=None, program=None, **more):
    environment = {"PATH": PATH, "HOME": "/root", **(env or {})}

    def prepare():
        spare_the_machine()
        if before:
            before()
    return subprocess.Popen(
        [*(program or ()), TOOL, *arguments], env=environment, cwd="/", start_new_session=True,
        preexec_fn=prepare, **{"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **more})


def ended(process, seconds):
    """Waits for a started tool. Kills it and its children when the time is over."""
    began = time.monotonic()
    try:
        out, err = process.communicate(timeout=seconds)
        status = process.returncode
    except subprocess.TimeoutExpired:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        out, err = process.communicate()
        status = None
    return Ended(status, text(out or b""), text(err or b""), time.monotonic() - began)


# A blocked tool is blocked for ever. One that is not may still be slow on a busy machine.
SECONDS = int(os.environ.get("MAILVEK_ATTACK_SECONDS", "60"))


def mailvek(*arguments, seconds=SECONDS, **more):
    return ended(start(*arguments, **more), seconds)


# ------------------------------------------------------------------------ whether it held


def left_programs():
    found = []
    for name in os.listdir("/proc"):
        if name.isdigit():
            with contextlib.suppress(OSError):
                program = os.readlink(f"/proc/{name}/exe")
                if program == TOOL or os.path.basename(program) in ("postmap", "postconf"):
                    with open(f"/proc/{name}/stat") as file:
                        if file.read().rpartition(")")[2].split()[0] != "Z":
                            found.append(program)
    return found


def held_locks():
    found = []
    names = [f"{LOCKS}/{name}" for name in os.listdir(LOCKS)] if os.path.isdir(LOCKS) else []
    for path in [*names, MAPS]:
        try:
            descriptor = os.open(path, os.O_RDONLY | os.O_NONBLOCK | os.O_NOFOLLOW)
        except OSError:
            continue
        try:
            fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            found.append(path)
        finally:
            os.close(descriptor)
    return found


def came_to_light(places, words):
    """The secrets of others that can be read at the attacker's places."""
    found = []
    for place in places:
        listed = subprocess.run(["find", place, "-type", "f", "-size", "-65536k", "-exec", "grep", "-laF", "--devices=skip",
                                 *(f"-e{word}" for word in words), "{}", "+"],
                                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=120, check=False)
        found += [f"{path} holds a secret" for path in text(listed.stdout).splitlines()]
    return found


@dataclasses.dataclass
class Before:
    paths: dict
    records: dict
    his: tuple
    domains: tuple
    secrets: set


def look(his=(MAILNAMES,), domains=(DOMAIN, ALIAS, NEW)):
    """The present state of everything that is not the attacker's."""
    but = OURS + NEVER + tuple(his)
    return Before(everything(but), records_of_others(tuple(domains)), tuple(his), tuple(domains),
                  set(came_to_light(his, (SECRET,))))


def breaches(before, how, allowed=(), secrets=(SECRET,)):
    """What an attack has reached, or nothing if it failed. allowed are beginnings of paths that the honest
    command changes too."""
    found = []
    if how.status is None:
        found.append("held up")
    elif how.status < 0:
        found.append(f"killed by signal {-how.status}")
    found += [f"still runs: {program}" for program in left_programs()]
    found += [f"still locked: {path}" for path in held_locks()]
    after = everything(OURS + NEVER + before.his)
    for path in sorted(before.paths.keys() | after.keys()):
        if before.paths.get(path) != after.get(path) and not path.startswith(tuple(allowed)):
            found.append(f"changed: {path}: {before.paths.get(path)} -> {after.get(path)}")
    records = records_of_others(before.domains)
    for name in sorted(before.records.keys() | records.keys()):
        if before.records.get(name) != records.get(name):
            found.append(f"record: {name}: {before.records.get(name)!r} -> {records.get(name)!r}")
    found += sorted(set(came_to_light(before.his, secrets)) - before.secrets)
    found += ["printed a secret" for word in secrets if word in how.out or word in how.err]
    return found


PLANTED = "a-word-that-postfix-has-planted"


def became_roots():
    """The files of root's in the directory of the maps, and the settings, that hold text of postfix's."""
    found = []
    for path in ["/etc/postfix/master.cf", *pathlib.Path(MAPS).rglob("*")]:
        if is_file(path) and os.lstat(path).st_uid == 0 and PLANTED.encode() in pathlib.Path(path).read_bytes():
            found.append(f"{path} is root's and holds postfix's text")
    return found


def littered():
    """The places where attackers leave files that the reset cannot remove itself."""
    places = [os.path.join(MAILNAMES, name) for name in os.listdir(MAILNAMES)]
    return places + [f"/srv/{name}" for name in os.listdir("/srv")] if os.path.isdir("/srv") else places
