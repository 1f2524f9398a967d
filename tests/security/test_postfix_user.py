"""The user postfix owns the directory of the maps: what it puts there leads root nowhere."""
import contextlib
import fcntl
import os
import pathlib
import sqlite3
import struct

import pytest

import attackers
import ground
import mailhost
import plants
import races
from ground import ACCOUNTS, ANNA, AT, CANARY, CRON, KEPT, MAPS, PLAIN

RENAME = ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita")
REMOVE = ("--remove-domain", AT)
ALIAS = ("--add-alias", *ANNA, "--alias=annie")
BOUNCE = ("--set-bounce", AT, "--phrase=No such user")
BAD = ("--add-badmailfrom", "--domain-name=bad.example.com")
PASSWORD = ("--set-password", *ANNA)
OFF = ("--turn-off-domain", AT)
SUBMIT = ("--start-service", "--mail-component=submission")
PARK = ("--stop-service", "--mail-component=smtps")
STATUS = ("--status-service", "--mail-component=submission")
PARKED = f"{MAPS}/master.cf.disabled"

FILES = {
    "the text of virtual": (f"{MAPS}/virtual", (RENAME, REMOVE)),
    "the text of vmailbox": (f"{MAPS}/vmailbox", (RENAME,)),
    "virtual.db": (f"{MAPS}/virtual.db", (RENAME, ALIAS, REMOVE)),
    "vmailbox.db": (f"{MAPS}/vmailbox.db", (RENAME,)),
    "aliases.db": (f"{MAPS}/aliases.db", (BOUNCE,)),
    "blacklists.db": (f"{MAPS}/blacklists.db", (BAD,)),
    "virtual.db.saved": (f"{MAPS}/virtual.db.saved", (RENAME,)),
    "virtual.db.saved.tmp": (f"{MAPS}/virtual.db.saved.tmp", (RENAME,)),
    "the parking file": (PARKED, (SUBMIT, PARK, STATUS)),
    "passwd.db": (ACCOUNTS, (PASSWORD, OFF)),
    "passwd.db-journal": (f"{ACCOUNTS}-journal", (PASSWORD, OFF)),
    "passwd.db-wal": (f"{ACCOUNTS}-wal", (PASSWORD,)),
    "passwd.db-shm": (f"{ACCOUNTS}-shm", (PASSWORD,)),
}
ONCE = {"a socket", "a device", "a sparse file of 8 TiB", "a line of 64 MiB", "a link to itself", "a hard link to root's file"}
QUICK = {("virtual.db", "a link to where cron looks", "--rename-mailname"), ("passwd.db", "a FIFO", "--set-password"),
         ("the parking file", "a link to root's file", "--start-service"),
         ("the text of virtual", "a link to root's file", "--rename-mailname")}

# The paths that a command may change besides the maps.
OWN = (MAPS, "/etc/postfix/master.cf", "/usr/local/orv/handlers", ground.MAILNAMES)


def reached(before, how):
    """What the attack has reached. postfix may change its own files itself, and so their records. Changes by
    root elsewhere are breaches, and so is root's ownership of what it has planted."""
    roots = ground.became_roots()  # before root reads the accounts, which would give files away itself
    found = ground.breaches(before, how, allowed=OWN)
    return roots + [line for line in found if not line.startswith("record: ")]


LINE = f"submission inet n - n - - {ground.PLANTED}\n"


def attack(ledger, name, path, kind, command):
    plants.plant(kind, path, attackers.by, "postfix")
    before = ground.look(his=(MAPS,))
    how = ground.mailvek(*command, env=PLAIN)
    plants.unmount(path)
    found = reached(before, how)
    ledger.tried(name, found, how)


@pytest.mark.parametrize(("place", "command"), [
    pytest.param(place, command, id=f"{place}: {command[0][2:]}")
    for place, (_, commands) in FILES.items() for command in commands])
def test_what_stands_beside_the_maps_leads_nowhere(ledger, place, command):
    path, commands = FILES[place]
    for kind, plant in plants.FILE_KINDS.items():
        if kind not in ONCE or command == commands[0]:
            attack(ledger, f"{place}: {kind}: {command[0]}", path, plant, command)
    ledger.close()


@pytest.mark.quick
def test_the_worst_of_them_lead_nowhere(ledger):
    for place, kind, verb in sorted(QUICK):
        path, commands = FILES[place]
        command = next(command for command in commands if command[0] == verb)
        attack(ledger, f"{place}: {kind}: {verb}", path, plants.FILE_KINDS[kind], command)
    ledger.close()


# -------------------------------------------------------------------------- the parking file

EVIL = "submission inet n n n - - spawn user=root argv=/bin/sh -c id>/etc/planted\n"


@pytest.mark.quick
@pytest.mark.parametrize("how_given", ["as its own", "writable by all", "by a hard link"])
def test_a_parked_service_of_postfix_never_starts(how_given):
    lines = mailhost.read("/etc/postfix/master.cf")
    mailhost.write("/etc/postfix/master.cf", lines.replace(ground.SUBMISSION, ""))
    def work():
        pathlib.Path(PARKED).write_text(EVIL)
        os.chmod(PARKED, 0o666 if how_given == "writable by all" else 0o644)
        if how_given == "by a hard link":
            os.link(PARKED, f"{MAPS}/another")
    attackers.by("postfix", work)
    if how_given == "writable by all":
        os.chown(PARKED, 0, 0)
    how = ground.mailvek(*SUBMIT)
    assert "user=root" not in mailhost.read("/etc/postfix/master.cf"), how


# ---------------------------------------------------------------------------- the accounts


def other_database(path):
    """Makes root's database with the tables of the accounts."""
    mailhost.run("cp", ACCOUNTS, path)
    os.chown(path, 0, 0)
    os.chmod(path, 0o600)


@pytest.mark.quick
@pytest.mark.parametrize("kind", ["a link", "a hard link"])
@pytest.mark.parametrize("command", [PASSWORD, OFF], ids=lambda command: command[0][2:])
def test_a_database_of_roots_is_no_account_database(kind, command):
    other = "/srv/root/accounts.db"
    other_database(other)
    os.unlink(ACCOUNTS)
    if kind == "a link":
        attackers.by("postfix", lambda: os.symlink(other, ACCOUNTS))
    else:
        os.link(other, ACCOUNTS)
    before = ground.look(his=(MAPS,))
    how = ground.mailvek(*command, env={"ORV_PASSWORD": "new"})
    found = reached(before, how)
    assert not found, f"{how}\n" + "\n".join(found)


def journal(super_journal=None, pages=(), page_size=4096, initial=None):
    """Makes the journal of a killed writer, which the next writer rolls back."""
    magic = bytes.fromhex("d9d505f920a163d7")
    count = os.stat(ACCOUNTS).st_size // page_size if initial is None else initial
    made = magic + struct.pack(">IIIII", len(pages), 0, count, 512, page_size)
    made = made.ljust(512, b"\0")
    for number, page in pages:
        made += struct.pack(">I", number) + page
        made += struct.pack(">I", sum(page[i] for i in range(page_size - 200, 0, -200)) & 0xffffffff)
    if super_journal:
        name = super_journal.encode()
        made += struct.pack(">I", (1 << 30) // page_size + 1) + name
        made += struct.pack(">II", len(name), sum(name)) + magic
    return made


@pytest.mark.parametrize("named", [CANARY, f"{KEPT}/a.txt", "/etc/passwd"])
@pytest.mark.parametrize("command", [PASSWORD, OFF], ids=lambda command: command[0][2:])
def test_a_journal_removes_no_file_that_it_names(named, command):
    attackers.by("postfix", lambda: pathlib.Path(f"{ACCOUNTS}-journal").write_bytes(journal(named)))
    before = ground.look(his=(MAPS,))
    how = ground.mailvek(*command, env=PLAIN)
    found = reached(before, how)
    assert os.path.exists(named), how
    assert not found, f"{how}\n" + "\n".join(found)


def restoring(text):
    """A journal whose first page has this text."""
    page = text.encode().ljust(4096, b"#")
    return journal(pages=((1, page),), initial=1)


BESIDE = {"a log": ("-wal", LINE.encode()), "an index": ("-shm", LINE.encode()),
          "a text as the journal": ("-journal", LINE.encode()), "a journal of a page": ("-journal", restoring(LINE)),
          "a long log": ("-wal", LINE.encode().ljust(40_000, b"#"))}


@pytest.mark.quick
@pytest.mark.parametrize("beside", BESIDE)
def test_what_postfix_plants_beside_a_database_stays_its_own(beside):
    """The tool makes the database anew when it has been moved away, as root's."""
    suffix, content = BESIDE[beside]
    attackers.by("postfix", lambda: os.rename(ACCOUNTS, f"{ACCOUNTS}.aside"))
    ground.mailvek(*PASSWORD, env=PLAIN)
    before = ground.look(his=(MAPS,))

    def work():
        pathlib.Path(f"{ACCOUNTS}{suffix}").unlink(missing_ok=True)
        pathlib.Path(f"{ACCOUNTS}{suffix}").write_bytes(content)
    attackers.by("postfix", work)
    how = ground.mailvek(*PASSWORD, env=PLAIN)
    found = reached(before, how)
    assert not found, f"{how}\n{found}"


def into_wal_mode():
    """The database's own header says that -wal and -shm lie beside it."""
    os.chmod(ACCOUNTS, 0o640)
    with open(ACCOUNTS, "r+b") as file:
        file.seek(18)
        file.write(b"\2\2")


@pytest.mark.parametrize("suffix", ["-wal", "-shm"])
@pytest.mark.parametrize("target", [CANARY, f"{CRON}/planted", f"{KEPT}/default"])
def test_a_write_ahead_log_leads_nowhere(suffix, target):
    def work():
        into_wal_mode()
        pathlib.Path(f"{ACCOUNTS}{suffix}").unlink(missing_ok=True)
        os.symlink(target, f"{ACCOUNTS}{suffix}")
    attackers.by("postfix", work)
    before = ground.look(his=(MAPS,))
    how = ground.mailvek(*PASSWORD, env=PLAIN)
    found = reached(before, how)
    assert not found, f"{how}\n" + "\n".join(found)


@pytest.mark.parametrize("statement", [
    "CREATE TRIGGER evil AFTER INSERT ON users BEGIN SELECT load_extension('/tmp/evil.so'); END",
    "CREATE TRIGGER evil AFTER INSERT ON users BEGIN SELECT writefile('/etc/planted', 'x'); END",
    "CREATE TRIGGER evil AFTER INSERT ON users BEGIN SELECT fts3_tokenizer('simple', x'4141414141414141'); END",
])
def test_a_trigger_of_postfix_reaches_no_file(statement):
    def work():
        with contextlib.closing(ground.accounts_of_postfix()) as connection, connection:
            connection.execute(statement)
    attackers.by("postfix", work)
    before = ground.look(his=(MAPS,))
    how = ground.mailvek("--set-password", *ANNA, env={"ORV_PASSWORD": "new"})
    found = reached(before, how)
    assert not found, f"{how}\n" + "\n".join(found)


@pytest.mark.parametrize(("command", "event"), [(PASSWORD, "INSERT ON users"), (OFF, "UPDATE ON domains")])
def test_a_trigger_of_postfix_is_met_by_the_commands(command, event):
    """Otherwise attacks by triggers would prove nothing."""
    def work():
        with contextlib.closing(ground.accounts_of_postfix()) as connection, connection:
            connection.execute("CREATE TABLE met (event)")
            connection.execute(f"CREATE TRIGGER met AFTER {event} BEGIN INSERT INTO met VALUES ('{event}'); END")
    attackers.by("postfix", work)
    how = ground.mailvek(*command, env=PLAIN)
    with contextlib.closing(sqlite3.connect(ACCOUNTS)) as connection:
        assert connection.execute("SELECT DISTINCT event FROM met").fetchall() == [(event,)], how


def test_an_endless_trigger_does_not_hold_the_tool_up():
    def work():
        with contextlib.closing(ground.accounts_of_postfix()) as connection, connection:
            connection.execute("CREATE TRIGGER evil AFTER INSERT ON users BEGIN SELECT count(*) FROM (WITH RECURSIVE "
                               "n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i FROM n); END")
    attackers.by("postfix", work)
    how = ground.mailvek(*PASSWORD, env={"ORV_PASSWORD": "new"}, seconds=30 * ground.SECONDS)
    assert how.status not in (0, None) and how.err, how


# ------------------------------------------------------------------------------- holding up

PATIENCE = max(3 * ground.SECONDS, 20)  # the tool may wait for another program's lock, but not for ever


def flocked(path):
    def take():
        descriptor = os.open(path, os.O_RDONLY)
        fcntl.flock(descriptor, fcntl.LOCK_EX)
        pathlib.Path(f"{MAPS}/held").touch()
        return descriptor
    return take


HOLDS = {
    "the directory of the maps, alias": (flocked(MAPS), ALIAS),
    "the directory of the maps, rename": (flocked(MAPS), RENAME),
    "virtual.db, alias": (flocked(f"{MAPS}/virtual.db"), ALIAS),
    "virtual.db, rename": (flocked(f"{MAPS}/virtual.db"), RENAME),
}


@pytest.mark.parametrize("held", HOLDS)
def test_a_lock_of_postfix_does_not_hold_the_tool_up(held):
    take, command = HOLDS[held]
    if "virtual.db" in held:
        os.chown(f"{MAPS}/virtual.db", *[os.stat(ACCOUNTS).st_uid] * 2)
    with attackers.beside("postfix", attackers.held(take)):
        mailhost.wait_until(lambda: os.path.exists(f"{MAPS}/held"))
        how = ground.mailvek(*command, env=PLAIN, seconds=PATIENCE)
    assert how.status is not None, how
    if "directory" in held:  # the tool does not lock the directory
        assert how.status == 0, how
    else:
        assert how.status != 0 and how.err, how


# ------------------------------------------------------------------------------------ races

SWAPS = {
    "the text of virtual": (f"{MAPS}/virtual", RENAME),
    "virtual.db": (f"{MAPS}/virtual.db", RENAME),
    "virtual.db under an alias": (f"{MAPS}/virtual.db", ALIAS),
    "virtual.db.saved": (f"{MAPS}/virtual.db.saved", RENAME),
    "virtual.db.saved.tmp": (f"{MAPS}/virtual.db.saved.tmp", RENAME),
    "passwd.db": (ACCOUNTS, PASSWORD),
    "passwd.db-journal": (f"{ACCOUNTS}-journal", PASSWORD),
    "the parking file": (PARKED, PARK),
}


@pytest.mark.parametrize("target", [CANARY, f"{CRON}/planted"], ids=["root's file", "cron"])
@pytest.mark.parametrize("place", SWAPS)
def test_a_swap_beside_the_maps_leads_nowhere(ledger, place, target):
    path, command = SWAPS[place]

    def swap():
        def work():
            plants.aside(path)
            os.symlink(target, path)
        attackers.by("postfix", work)
    gaps = races.gaps(*command, path=path, env=PLAIN)
    assert gaps, "the command does not go there"
    ground.lay_again()
    before = ground.look(his=(MAPS,))
    for step in gaps:
        how, stopped = races.stopped_after(step, *command, attack=swap, env=PLAIN)
        if stopped:
            found = reached(before, how)
            ledger.tried(f"swapped after {step.shown}", found, how)
    ledger.close()


# A file that root copies or changes: postfix puts its own in the place, and the old one back later.
COPIED = {
    "virtual.db under an alias": (f"{MAPS}/virtual.db", ALIAS),
    "virtual.db under a rename": (f"{MAPS}/virtual.db", RENAME),
    "vmailbox.db": (f"{MAPS}/vmailbox.db", RENAME),
    "blacklists.db": (f"{MAPS}/blacklists.db", BAD),
    "aliases.db": (f"{MAPS}/aliases.db", BOUNCE),
    "passwd.db": (ACCOUNTS, PASSWORD),
}


def with_a_planted_word(path):
    """Moves root's map or accounts aside and puts a copy in the place, which has the planted word."""
    os.chown(path, 0, 0)
    os.chmod(path, 0o644)

    def work():
        copy = f"{MAPS}/planted.db"
        pathlib.Path(copy).write_bytes(pathlib.Path(path).read_bytes())
        if path == ACCOUNTS:
            with contextlib.closing(sqlite3.connect(copy)) as connection, connection:
                connection.execute("CREATE TABLE planted AS SELECT ?", (LINE,))
        else:
            added = ground.run(ground.REAL / "usr/sbin/postmap", "-i", f"hash:{MAPS}/planted", stdin=f"planted {LINE}")
            assert added.status == 0, added
        plants.aside(path)
        os.rename(copy, path)
    attackers.by("postfix", work)


@pytest.mark.parametrize("place", COPIED)
def test_a_file_of_postfix_never_becomes_roots(ledger, place):
    path, command = COPIED[place]

    def back():
        attackers.by("postfix", lambda: (os.rename(path, f"{MAPS}/planted.db"), os.rename(f"{path}.aside", path)))
    ground.lay_again()
    before = ground.look(his=(MAPS,))
    with_a_planted_word(path)
    gaps = races.gaps(*command, path=path, env=PLAIN)
    assert gaps, "the command does not go there"
    for step in gaps:
        ground.lay_again()
        with_a_planted_word(path)
        how, stopped = races.stopped_after(step, *command, attack=back, env=PLAIN)
        if stopped:
            ledger.tried(f"{place}: put back after {step.shown}", reached(before, how), how)
    ledger.close()
