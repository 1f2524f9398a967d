"""The user postfix owns the maps and the accounts: what their pages and schema say does not hold root up."""
import contextlib
import fcntl
import os
import pathlib
import pwd
import struct
import time

import pytest

import attackers
import ground
import mailhost
from ground import ACCOUNTS, ANNA, AT, MAPS, PLAIN

ALIAS = ("--add-alias", *ANNA, "--alias=annie")
RENAME = ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita")
PASSWORD = ("--set-password", *ANNA)
OFF = ("--turn-off-domain", AT)

# postmap may use 120 s of a processor, which is much more by the clock on a busy machine.
POSTMAP_SECONDS = 1800
# The same for a statement, which may use a minute.
STATEMENT_SECONDS = 900


# ------------------------------------------------------------------------------ pages of a map

PAGE = 4096
HASH_PAGE = 13


def damaged(change):
    """postfix replaces the map of the aliases by a copy in which each bucket page is changed."""
    def work():
        path = pathlib.Path(f"{MAPS}/virtual.db")
        data = bytearray(path.read_bytes())
        for start in range(PAGE, len(data), PAGE):
            if data[start + 25] == HASH_PAGE:
                change(data, start)
        path.unlink()
        path.write_bytes(data)
    attackers.by("postfix", work)


def in_a_circle(data, start):
    struct.pack_into("<I", data, start + 16, start // PAGE)  # the next page is the page itself


def beyond_the_end(data, start):
    struct.pack_into("<I", data, start + 16, 0x7fffffff)


def of_many_entries(data, start):
    struct.pack_into("<H", data, start + 20, 0xffff)


def elsewhere_in_the_page(data, start):
    for entry in range(8):
        struct.pack_into("<H", data, start + 26 + 2 * entry, 0xfff0)


PAGES = {"a circle": in_a_circle, "a page beyond the end": beyond_the_end, "65,535 entries": of_many_entries,
         "entries beyond the page": elsewhere_in_the_page}


def changed_by(command, change, seconds):
    whole = pathlib.Path(f"{MAPS}/virtual.db").read_bytes()
    before = ground.look(his=(MAPS,))
    damaged(change)
    how = ground.mailvek(*command, env=PLAIN, seconds=seconds)
    # Put back, for the records are looked at by a postmap without a limit.
    pathlib.Path(f"{MAPS}/virtual.db").write_bytes(whole)
    found = [line for line in ground.breaches(before, how, allowed=(MAPS, ground.MAILNAMES, ground.STORE))
             if not line.startswith("record: ")]
    used = sum(path.lstat().st_blocks for path in pathlib.Path(MAPS).rglob("*")) * 512
    if used > 64 << 20:
        found.append(f"{used >> 20} MiB were written")
    return how, found


def test_a_map_without_an_end_is_not_read_for_ever():
    how, found = changed_by(RENAME, in_a_circle, POSTMAP_SECONDS)
    assert not found and how.status != 0 and how.err, f"{how}\n{found}"


@pytest.mark.parametrize("pages", PAGES)
@pytest.mark.parametrize("command", [RENAME, ALIAS], ids=lambda command: command[0][2:])
def test_a_maps_pages_hold_nobody_up(pages, command):
    _, found = changed_by(command, PAGES[pages], POSTMAP_SECONDS)
    assert not found, found


# --------------------------------------------------------------------- what a database can do

# What the command does in the database, and what does so again.
EVENTS = {"--set-password": ("INSERT", "users", "INSERT INTO users (name, dom_id) VALUES (NEW.name || 'x', NEW.dom_id)"),
          "--turn-off-domain": ("UPDATE", "domains", "UPDATE domains SET status = status + 1 WHERE id = NEW.id")}
COUNTING = "SELECT 1 FROM (WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i FROM n WHERE {})"
LONG = "'" + "a" * 100_000 + "'"
DEAR = {
    "dear steps": f"({COUNTING.format('hex(zeroblob(400000)) || i = 1')})",
    "long concatenations": f"({COUNTING.format(f'{LONG} || i || {LONG} = 1')})",
    "a pattern of many stars": f"{LONG} LIKE '{'%a_' * 500}%b'",
    "a joined table": "(SELECT count(*) FROM users a, users b, users c, users d, users e, users f, "
                      "sqlite_master g, sqlite_master h, sqlite_master i, sqlite_master j)",
}


def statements_against(command):
    event, table, again = EVENTS[command]
    return {name: (f"CREATE TRIGGER evil BEFORE {event} ON {table} BEGIN SELECT {step}; END",)
            for name, step in DEAR.items()} | {
        "a trigger that starts itself": ("PRAGMA recursive_triggers=ON",
                                         f"CREATE TRIGGER evil AFTER {event} ON {table} BEGIN {again}; END"),
        "a column that is computed": (f"ALTER TABLE {table} ADD COLUMN evil AS (hex(zeroblob(1000000000)))",),
        "an index of an expression": (f"CREATE INDEX evil ON {table}(length(replace(hex(zeroblob(1000)), '0', name)))",),
    }


def with_statements(*statements):
    def work():
        with contextlib.closing(ground.accounts_of_postfix()) as connection, connection:
            for statement in statements:
                connection.execute(statement)
    return work


@pytest.mark.parametrize("command", [PASSWORD, OFF], ids=lambda command: command[0][2:])
def test_a_statement_of_postfix_holds_nobody_up(ledger, command):
    for name, statements in statements_against(command[0]).items():
        attackers.by("postfix", with_statements(*statements))
        before = ground.look(his=(MAPS,))
        how = ground.mailvek(*command, env=PLAIN, seconds=STATEMENT_SECONDS)
        # A domain that is turned off has its handlers switched off.
        found = [line for line in ground.breaches(before, how, allowed=(MAPS, "/usr/local/orv/handlers/before-local/"))
                 if not line.startswith(("record: ", "account"))]
        ledger.tried(f"{name}: {command[0]}", found, how)
    ledger.close()


# ------------------------------------------------------------------ what lies about in the maps


def test_a_db_config_of_postfix_is_not_read():
    """Berkeley DB reads settings from a file of that name in the directory it works in."""
    lines = "set_data_dir /etc/planted\nset_lg_dir /etc\nset_tmp_dir /etc\nset_cachesize 4 0 1\n"
    attackers.by("postfix", lambda: pathlib.Path(f"{MAPS}/DB_CONFIG").write_text(lines))
    for command in (ALIAS, RENAME):
        ended = mailhost.run("strace", "-f", "-qq", "-e", "trace=open,openat,access", "-o", "/run/mailvek/strace",
                             ground.TOOL, *command, cwd=MAPS)
        assert ended.status == 0, ended
        looks = [line for line in pathlib.Path("/run/mailvek/strace").read_text(errors="replace").splitlines()
                 if "DB_CONFIG" in line]
        # postmap looks for it in its room, where there is none.
        assert all("= -1 ENOENT" in line for line in looks), looks


@pytest.mark.parametrize("name", [".virtual.room-1", ".virtual.room-", ".virtual.room-\n"])
def test_a_room_of_postfix_is_left_to_him(name):
    def work():
        os.makedirs(f"{MAPS}/{name}/below")
        os.symlink(ground.KEPT, f"{MAPS}/{name}/link")
    attackers.by("postfix", work)
    before = ground.look(his=(MAPS,))
    how = ground.mailvek(*RENAME)
    assert not ground.breaches(before, how, allowed=(ground.MAILNAMES, ground.STORE)) and how.status == 0, how
    assert os.path.isdir(f"{MAPS}/{name}/below")


def test_a_hundred_thousand_rooms_hold_nobody_up():
    def work():
        for number in range(100_000):
            os.mkdir(f"{MAPS}/.virtual.room-{number}")
    attackers.by("postfix", work)
    how = ground.mailvek(*ALIAS)
    assert how.status is not None, how


def renaming_rooms():
    """Takes a room away under its name, and puts a link to root's directory in its place."""
    for name in os.listdir(MAPS):
        if name.startswith(".virtual.room-"):
            os.rename(f"{MAPS}/{name}", f"{MAPS}/taken-{time.monotonic_ns()}")
            os.symlink(ground.KEPT, f"{MAPS}/{name}")


def test_a_loop_of_renamed_rooms_leads_nowhere():
    before = ground.look(his=(MAPS,))
    with attackers.beside("postfix", attackers.over_and_over(renaming_rooms)):
        for _ in range(20):
            for command in (ALIAS, RENAME, (*RENAME[:2], "--old-mailname=anita", "--new-mailname=anna")):
                how = ground.mailvek(*command)
                assert how.status is not None, how
    found = [line for line in ground.breaches(before, how, allowed=(ground.MAILNAMES, ground.STORE))
             if not line.startswith(("record: ", "virtual: damaged"))]
    assert not found, "\n".join(found)


# ----------------------------------------------------------------------- a database that is kept

LOCKED_SECONDS = 900  # the tool itself waits for two minutes


def lock_the_index():
    """SQLite locks eight bytes of the index, whoever reads or writes."""
    index = open(f"{ACCOUNTS}-shm", "r+b")
    fcntl.lockf(index, fcntl.LOCK_EX | fcntl.LOCK_NB, 8, 120)
    pathlib.Path(f"{MAPS}/ready").touch()
    return index


@pytest.mark.parametrize("command", [PASSWORD, OFF], ids=lambda command: command[0][2:])
def test_locks_of_postfix_in_the_index_hold_nobody_up(command):
    done = ground.mailvek(*PASSWORD, env=PLAIN)
    assert done.status == 0, done
    with attackers.beside("postfix", attackers.held(lock_the_index)):
        mailhost.wait_until(lambda: os.path.exists(f"{MAPS}/ready"))
        how = ground.mailvek(*command, env=PLAIN, seconds=LOCKED_SECONDS)
    assert how.status not in (None, 0) and "lock" in how.err, how
    done = ground.mailvek(*PASSWORD, env=PLAIN)
    assert done.status == 0, done


# -------------------------------------------------------- what lies beside a database of root's

PARKED = f"{MAPS}/master.cf.disabled"
EVIL = "submission inet n n n - - spawn user=root argv=/bin/sh -c id>/etc/planted\n"
NOT_HIS = ("-wal", "-shm", "-journal")


def without_submission():
    path = "/etc/postfix/master.cf"
    mailhost.write(path, "".join(line for line in mailhost.read(path).splitlines(True) if "submission" not in line))


def take_away_the_database():
    """The next command makes an empty one, which is root's."""
    for name in [name for name in os.listdir(MAPS) if name.startswith("passwd.db")]:
        os.rename(f"{MAPS}/{name}", f"{MAPS}/his-{name}")


def plant_a_log(suffix):
    for name in [name for name in os.listdir(MAPS) if name.startswith("passwd.db-")]:
        os.unlink(f"{MAPS}/{name}")
    pathlib.Path(f"{ACCOUNTS}{suffix}").write_text(EVIL)


def breaks_in(suffix):
    """Puts what has become of the planted file where services are parked, and has one taken from there."""
    info = os.stat(f"{ACCOUNTS}{suffix}")
    attackers.by("postfix", lambda: os.rename(f"{ACCOUNTS}{suffix}", PARKED))
    ground.mailvek("--enable-message-submission")
    assert info.st_uid != 0 or "spawn" not in pathlib.Path(PARKED).read_text(errors="replace")
    assert "spawn" not in mailhost.read("/etc/postfix/master.cf")


@pytest.mark.quick
@pytest.mark.parametrize("suffix", NOT_HIS)
def test_a_log_of_postfix_does_not_become_roots(suffix):
    without_submission()
    attackers.by("postfix", take_away_the_database)
    ground.mailvek(*PASSWORD, env=PLAIN)
    assert os.stat(ACCOUNTS).st_uid == 0
    attackers.by("postfix", lambda: plant_a_log(suffix))
    ground.mailvek(*PASSWORD, env=PLAIN)
    breaks_in(suffix)


def hot_journal(page):
    """The journal of a killed writer. Rolling it back writes the page into the database."""
    nonce = 1
    check = nonce + sum(page[at] for at in range(PAGE - 200, 0, -200))
    header = b"\xd9\xd5\x05\xf9\x20\xa1\x63\xd7" + struct.pack(">5I", 1, nonce, 1, 512, PAGE)
    return header.ljust(512, b"\0") + struct.pack(">I", 1) + page + struct.pack(">I", check)


@pytest.mark.quick
def test_a_journal_of_postfix_does_not_change_roots_file():
    without_submission()
    attackers.by("postfix", take_away_the_database)
    ground.mailvek(*PASSWORD, env=PLAIN)

    def work():
        plant_a_log("-journal")
        pathlib.Path(f"{ACCOUNTS}-journal").write_bytes(hot_journal(EVIL.encode().ljust(PAGE - 1, b"#") + b"\n"))
    attackers.by("postfix", work)
    how = ground.mailvek(*PASSWORD, env=PLAIN)
    assert how.status != 0 and b"spawn" not in pathlib.Path(ACCOUNTS).read_bytes()
    breaks_in("")


@pytest.mark.parametrize("suffix", NOT_HIS)
def test_a_file_of_roots_stays_roots_beside_a_database(suffix):
    whole = "submission inet n - n - - smtpd\n"
    pathlib.Path(PARKED).write_text(whole)
    os.chmod(PARKED, 0o600)

    def work():
        plant_a_log(suffix)
        os.rename(PARKED, f"{ACCOUNTS}{suffix}")
    attackers.by("postfix", work)
    ground.mailvek(*PASSWORD, env=PLAIN)
    info = os.stat(f"{ACCOUNTS}{suffix}")
    assert (info.st_uid, info.st_mode & 0o7777) == (0, 0o600)
    assert pathlib.Path(f"{ACCOUNTS}{suffix}").read_text() == whole


@pytest.mark.quick
def test_a_lease_on_the_accounts_holds_nobody_up():
    """An open that waits for the owner's lease would wait for 45 s, and again at each opening."""
    ground.mailvek(*PASSWORD, env=PLAIN)
    os.chown(ACCOUNTS, pwd.getpwnam("postfix").pw_uid, -1)
    with attackers.beside("postfix", attackers.held(attackers.leased(ACCOUNTS))):
        mailhost.wait_until(lambda: os.path.exists("/tmp/held"))
        how = ground.mailvek(*PASSWORD, env=PLAIN)
    assert how.status != 0 and "database" in how.err, how
    how = ground.mailvek(*PASSWORD, env=PLAIN)
    assert how.status == 0, how
