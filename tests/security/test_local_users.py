"""Any local user may write to /tmp and /run/lock, lock what he can read, and name his processes."""
import ctypes
import fcntl
import os
import pathlib
import pwd
import time

import pytest

import attackers
import ground
import host_faults
import mailhost
import plants
from ground import ANNA, AT, CANARY, CRON, DOMAIN, HOME, KEPT, LOCKS, MAPS, PLAIN

REDIRECT = ("--add-redirect", *ANNA, "--redirect-email=b@example.org")
RENAME = ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita")
ATTACH = ("--add-attachment", *ANNA, "--file-name=/srv/uploads/letter", "--attachment-file-name=b.txt")
PARK = ("--stop-service", "--mail-component=smtps")
SIZE = ("--set-max-letter-size", "--size=123456")
COMMANDS = {"add-redirect": (REDIRECT, f"{HOME}/.qmail"), "rename-mailname": (RENAME, f"{MAPS}/virtual"),
            "add-attachment": (ATTACH, f"{HOME}/@attachments/b.txt"),
            "stop-service": (PARK, "/etc/postfix/master.cf")}
# A hard link cannot lead to another file system.
LOCK_KINDS = {name: kind for name, kind in plants.FILE_KINDS.items() if "hard link" not in name}
OWN = (ground.MAILNAMES, MAPS, "/etc/postfix/master.cf", ground.STORE)


def names_of_locks(command):
    """The names of the lock files of a run, which anybody can compute."""
    ground.run("rm", "-rf", LOCKS)
    ground.mailvek(*command, env=PLAIN)
    assert os.path.isdir(LOCKS), "the command takes no lock"
    names = os.listdir(LOCKS)
    ground.lay_again()
    return names


# ---------------------------------------------------------------------------------- locks


@pytest.mark.parametrize("command", COMMANDS)
def test_a_lock_directory_of_somebody_elses_is_none(ledger, command):
    """Everybody may write to /run/lock, and it is empty at boot."""
    words, _ = COMMANDS[command]
    names = names_of_locks(words)
    for kind, plant in LOCK_KINDS.items():
        ground.run("rm", "-rf", LOCKS)
        attackers.by("www-data", lambda: (os.mkdir(LOCKS, 0o755), os.chmod(LOCKS, 0o777)))
        for name in names:
            plants.plant(plant, f"{LOCKS}/{name}", attackers.by, "www-data")
        before = ground.look(his=(LOCKS,))
        how = ground.mailvek(*words, env=PLAIN)
        for name in names:
            plants.unmount(f"{LOCKS}/{name}")
        found = ground.breaches(before, how, allowed=OWN)
        if how.status == 0 or not how.err:
            found.append("a stranger's locks were taken for locks")
        ledger.tried(f"a lock directory of his: {kind}: {command}", found, how)
    ledger.close()


@pytest.mark.quick
@pytest.mark.parametrize("target", [KEPT, CRON, "/etc/planted"])
def test_a_link_is_no_lock_directory(target):
    ground.run("rm", "-rf", LOCKS)
    attackers.by("www-data", lambda: os.symlink(target, LOCKS))
    before = ground.look(his=(LOCKS,))
    how = ground.mailvek(*REDIRECT)
    found = ground.breaches(before, how, allowed=OWN)
    assert not found, f"{how}\n" + "\n".join(found)


@pytest.mark.quick
@pytest.mark.parametrize("command", COMMANDS)
def test_a_lock_that_a_local_user_holds_holds_nobody_up(command):
    words, _ = COMMANDS[command]
    names = names_of_locks(words)

    def take():
        kept = []
        for name in names:
            try:
                descriptor = os.open(f"{LOCKS}/{name}", os.O_RDONLY)
                fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
                kept.append(descriptor)
            except OSError:
                pass
        pathlib.Path("/tmp/held").touch()
        return kept
    with attackers.beside("www-data", attackers.held(take)):
        mailhost.wait_until(lambda: os.path.exists("/tmp/held"))
        how = ground.mailvek(*words, env=PLAIN)
    assert how.status == 0, how


@pytest.mark.quick
def test_the_lock_directory_that_the_tool_makes_is_roots_alone():
    ground.run("rm", "-rf", LOCKS)
    how = ground.mailvek(*REDIRECT)
    assert how.status == 0, how
    assert mailhost.described(LOCKS) == "d 0700 root:root"


@pytest.mark.parametrize("path", ["/etc/postfix/main.cf", "/etc/postfix/master.cf", "/etc/passwd", "/etc/orv/orv.conf"])
def test_a_file_held_by_a_local_user_delays_nobody(path):
    def take():
        descriptor = os.open(path, os.O_RDONLY)
        fcntl.flock(descriptor, fcntl.LOCK_EX)
        fcntl.lockf(descriptor, fcntl.LOCK_SH | fcntl.LOCK_NB)
        pathlib.Path("/tmp/held").touch()
        return descriptor
    with attackers.beside("www-data", attackers.held(take)):
        mailhost.wait_until(lambda: os.path.exists("/tmp/held"))
        for command in (SIZE, PARK, REDIRECT):
            how = ground.mailvek(*command)
            assert how.status == 0, how


# -------------------------------------------------------------------------------- processes


def named(name):
    def take():
        ctypes.CDLL(None).prctl(15, name.encode(), 0, 0, 0)
        pathlib.Path("/tmp/held").touch()
    return take


@pytest.mark.quick
@pytest.mark.parametrize("pattern", ["qmgr) S {}", "qmgr) R {}", "qmgr)\tS {}", "qmgr) S {} "])
def test_a_process_named_as_the_queue_manager_is_none(pattern):
    master = 4242  # nobody's: the pid file of a server that was killed
    mailhost.write("/var/spool/postfix/pid/master.pid", f"{master:>18}\n")
    with attackers.beside("www-data", attackers.held(named(pattern.format(master)[:15]))):
        mailhost.wait_until(lambda: os.path.exists("/tmp/held"))
        how = ground.mailvek("--status-service", "--mail-component=mta")
    assert "is running" not in how.out, how


def test_a_flood_of_processes_does_not_hide_the_status():
    def take():
        for _ in range(300):
            if os.fork() == 0:
                while True:
                    time.sleep(60)
        pathlib.Path("/tmp/held").touch()
    with attackers.beside("www-data", attackers.held(take)):
        mailhost.wait_until(lambda: os.path.exists("/tmp/held"))
        how = ground.mailvek("--status-service", "--mail-component=mta")
    assert how.status is not None, how


# ---------------------------------------------------------------------------------- uploads

SOURCES = {name: kind for name, kind in plants.FILE_KINDS.items()
           if name not in ("a link to where cron looks", "a line of 64 MiB", "a hard link to root's file")}
SOURCES["a link to a directory"] = (plants.to_kept, None)


@pytest.mark.parametrize("kind", SOURCES)
@pytest.mark.parametrize("command", ["add-attachment", "set-domain-key"])
def test_an_upload_that_is_no_file_gives_nothing_away(command, kind):
    uploads, source = "/srv/uploads", "/srv/uploads/upload"
    uid = pwd.getpwnam("www-data").pw_uid
    os.chown(uploads, uid, uid)
    plants.plant(SOURCES[kind], source, attackers.by, "www-data")
    words = {"add-attachment": ("--add-attachment", *ANNA, f"--file-name={source}", "--attachment-file-name=got"),
             "set-domain-key": ("--set-domain-key", AT, f"--file-name={source}")}[command]
    host_faults.cover(ground.MAILNAMES, "size=128m")
    before = ground.look(his=(ground.MAILNAMES, uploads))
    how = ground.mailvek(*words)
    plants.unmount(source)
    found = ground.breaches(before, how, allowed=(f"/etc/domainkeys/{DOMAIN}",))
    if ground.came_to_light(["/etc/domainkeys"], (ground.SECRET,)):
        found.append("the secret is a key now")
    host_faults.undo(ground.MAILNAMES)
    assert not found, f"{how}\n" + "\n".join(found)
    assert how.status != 0 and how.err, how


@pytest.mark.quick
@pytest.mark.parametrize("mode", [0o600, 0o640])
def test_no_attachment_prints_what_others_may_not_read(mode):
    """A caller who passes one of root's paths gets no copy that everybody can read."""
    os.chown("/srv/uploads", 33, 33)
    attackers.by("www-data", lambda: os.symlink(CANARY, "/srv/uploads/upload"))
    os.chmod(CANARY, mode)
    how = ground.mailvek("--add-attachment", *ANNA, "--file-name=/srv/uploads/upload", "--attachment-file-name=got")
    assert not ground.came_to_light([ground.MAILNAMES], (ground.SECRET,)), how


@pytest.mark.quick
@pytest.mark.parametrize("command", ["add-attachment", "set-domain-key"])
def test_an_upload_whose_directory_is_a_link_is_none(command):
    """Whoever owns the directory of an upload can put a link to one of root's in its place."""
    held = "/srv/uploads/of-www-data"
    source = f"{held}/{os.path.basename(CANARY)}"
    os.chown("/srv/uploads", 33, 33)
    attackers.by("www-data", lambda: os.symlink(os.path.dirname(CANARY), held))
    os.chmod(CANARY, 0o600)
    words = {"add-attachment": ("--add-attachment", *ANNA, f"--file-name={source}", "--attachment-file-name=got"),
             "set-domain-key": ("--set-domain-key", AT, f"--file-name={source}")}[command]
    how = ground.mailvek(*words)
    assert not ground.came_to_light([ground.MAILNAMES, "/etc/domainkeys"], (ground.SECRET,)), how
    assert how.status != 0 and "Operation not permitted" in how.err, how
    assert os.path.exists(CANARY), how
