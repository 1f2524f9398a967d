"""Log-ins of an existing account while many runs of the tool change the account database.

The readers of the database do not wait: what finds it locked is refused. So neither a change nor another
reader may lock them out, neither Courier's account daemon nor SASL in Postfix's servers.
"""
import concurrent.futures
import imaplib
import os
import pathlib
import poplib
import smtplib
import sqlite3
import stat
import subprocess
import threading

import pytest

import mailhost
from mailboxes import make_mailbox
from mailhost import MAPS, auth_rows, auth_sql, done, set_postconf, start
from panel import panel_domain, panel_domain_alias, panel_mailname

WRITERS = 8
CHANGES_EACH = int(os.environ.get("MAILVEK_LOGIN_CHANGES", "6"))
LOGINS_EACH = 20  # of each kind, at least
ADDRESS, PASSWORD = "anna@example.com", "secret"
DATABASE = pathlib.Path(MAPS, "passwd.db")


@pytest.fixture(autouse=True)
def host():
    set_postconf(smtpd_sasl_auth_enable="yes")
    start("mariadb", "postfix", "courier")
    make_mailbox(ADDRESS, PASSWORD)
    for number in range(WRITERS):
        panel_domain(f"w{number}.test")
        panel_mailname(f"joe@w{number}.test", aliases=["j"])
        panel_domain_alias(f"w{number}.test", f"alias{number}.test")


def smtp_login(method):
    with smtplib.SMTP("127.0.0.1", 25, local_hostname="client.example.test", timeout=20) as smtp:
        smtp.ehlo()
        smtp.user, smtp.password = ADDRESS, PASSWORD
        code, text = smtp.auth(method, getattr(smtp, "auth_" + method.lower().replace("-", "_")))
        assert code == 235, (method, code, text)


def imap_login():
    with imaplib.IMAP4("127.0.0.1", timeout=20) as imap:
        imap.login(ADDRESS, PASSWORD)


def pop3_login():
    pop = poplib.POP3("127.0.0.1", timeout=20)
    pop.user(ADDRESS)
    pop.pass_(PASSWORD)
    pop.quit()


LOGINS = {
    "IMAP": imap_login,
    "POP3": pop3_login,
    "PLAIN": lambda: smtp_login("PLAIN"),
    "LOGIN": lambda: smtp_login("LOGIN"),
    "CRAM-MD5": lambda: smtp_login("CRAM-MD5"),
}


def change(number):
    """Passwords set and taken away, for a mailname with a mail alias in a domain with an alias domain."""
    names = (f"--domain-name=w{number}.test", "--mailname=joe")
    for count in range(CHANGES_EACH):
        done("--set-password", *names, env={"ORV_PASSWORD": f"new{count}"})
        if count % 3 == 2:
            done("--turn-off-domain", names[0])
            done("--turn-on-domain", names[0])


def log_in_until(ended, login):
    """How often the log-in worked, and what was said to those that it was refused to."""
    worked, refused = 0, []
    while not ended.is_set() or worked + len(refused) < LOGINS_EACH:
        try:
            login()
            worked += 1
        except (smtplib.SMTPException, imaplib.IMAP4.error, poplib.error_proto, AssertionError) as refusal:
            refused.append(str(refusal))
    return worked, refused


def set_password(**more):
    done("--set-password", "--domain-name=w0.test", "--mailname=joe", env={"ORV_PASSWORD": "new"}, **more)


def in_use():
    """The database has been changed to WAL mode, and Courier's daemon keeps it open since its first log-in."""
    set_password()
    imap_login()


def test_logins_go_on_while_accounts_change():
    in_use()
    ended = threading.Event()
    with concurrent.futures.ThreadPoolExecutor(WRITERS + len(LOGINS)) as pool:
        logins = {name: pool.submit(log_in_until, ended, login) for name, login in LOGINS.items()}
        changes = [pool.submit(change, number) for number in range(WRITERS)]
        concurrent.futures.wait(changes)
        ended.set()
        for one in changes:
            one.result()
        seen = {name: one.result() for name, one in logins.items()}
    print({name: (worked, len(refused)) for name, (worked, refused) in seen.items()})
    assert not any(refused for _, refused in seen.values()), seen
    assert all(worked >= LOGINS_EACH for worked, _ in seen.values()), seen
    passwords = {f"{name}@{domain}{number}.test": (f"new{CHANGES_EACH - 1}", None, 0)
                 for number in range(WRITERS) for name in ("joe", "j") for domain in ("w", "alias")}
    assert auth_rows() == {ADDRESS: (PASSWORD, None, 0), **passwords}


def test_log_ins_beside_each_other_are_not_refused():
    """Nobody writes."""
    in_use()
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        for one in [pool.submit(LOGINS["PLAIN"]) for _ in range(300)]:
            one.result()
    assert stat.S_IMODE(os.stat(DATABASE).st_mode) == 0o440


def test_accounts_can_log_in_while_a_change_is_being_written():
    set_password()
    writer = sqlite3.connect(DATABASE, isolation_level=None)
    writer.execute("BEGIN EXCLUSIVE")
    writer.execute("UPDATE users SET userPassword = 'not yet'")
    for login in LOGINS.values():
        login()
    writer.execute("ROLLBACK")
    writer.close()


def test_the_file_alone_is_whole_after_each_command(tmp_path):
    set_password()
    assert DATABASE.read_bytes()[18:20] == b"\2\2"
    assert os.path.getsize(f"{DATABASE}-wal") == 0
    copy = tmp_path / "passwd.db"
    copy.write_bytes(DATABASE.read_bytes())
    read = subprocess.run(["sqlite3", copy, "SELECT count(*) FROM users WHERE userPassword = 'new'"],
                          capture_output=True, text=True, check=True)
    assert read.stdout == "4\n"


def test_log_and_index_belong_to_the_databases_readers():
    set_password()
    database = os.stat(DATABASE)
    for suffix in ("-wal", "-shm"):
        info = os.stat(f"{DATABASE}{suffix}")
        assert (info.st_uid, info.st_gid) == (database.st_uid, database.st_gid)
        assert stat.S_IMODE(info.st_mode) == 0o660


def read_as_postfix():
    return subprocess.run(["setpriv", "--reuid=postfix", "--regid=postfix", "--init-groups", "sqlite3", DATABASE,
                           "SELECT userPassword FROM users WHERE name = 'anna'"], capture_output=True, text=True,
                          check=False)


@pytest.mark.parametrize("call", ["fchown", "fchmod", "linkat", "ftruncate"])
def test_a_killed_change_leaves_a_database_that_readers_can_read(call):
    """The first change, which makes the log and its index, killed before each such call."""
    old = DATABASE.read_bytes()
    killed = True
    number = 0
    while killed:
        number += 1
        for suffix in ("-wal", "-shm", "-journal"):
            pathlib.Path(f"{DATABASE}{suffix}").unlink(missing_ok=True)
        DATABASE.write_bytes(old)
        DATABASE.chmod(0o640)
        ended = mailhost.run("strace", "-qq", "-o", "/dev/null", "-e", f"trace={call}", "-e",
                             f"inject={call}:signal=KILL:when={number}", mailhost.TOOL, "--set-password",
                             "--domain-name=w0.test", "--mailname=joe", env=mailhost.tool_environment({"ORV_PASSWORD": "new"}, leaks=False))
        killed = ended.status != 0
        read = read_as_postfix()
        assert (read.stdout, read.stderr) == (PASSWORD + "\n", ""), (number, ended)
        assert number < 300, "the calls of one change do not end"
    assert number > 1, f"no {call} is called"


@pytest.mark.parametrize("mode", [0o640, 0o460])
def test_accounts_of_a_changed_database_can_log_in(mode):
    """Also of one that its owner may only read, and after a reader found no log beside it."""
    DATABASE.chmod(mode)
    set_password()
    for login in LOGINS.values():
        login()
    for suffix in ("-wal", "-shm"):
        os.unlink(f"{DATABASE}{suffix}")
    for login in LOGINS.values():
        login()
    auth_sql("SELECT 1")
    set_password()
    for login in LOGINS.values():
        login()
