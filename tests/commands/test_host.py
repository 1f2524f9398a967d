"""The mail host itself works: it is as an installer leaves it, its services are real and connected, and
its reset puts everything back. All other tests rely on this."""
import os
import pathlib
import signal
import smtplib
import socket
import subprocess

import pytest

from mailboxes import imap_letters, letters, login_works, make_mailbox, pop3_letters, send
from host_faults import full_disk, read_only
from mailhost import (
    ACCOUNTS, HANGS, HOST, MAILNAMES, MAPS, add_records, auth_domains, auth_sql, described, panel_sql, postconf, postmap,
    postmap_query, read, reset, run, runs, set_postconf, start, system_log, tree, wait_until, write,
)
from spies import Rule, calls, spy

SANITIZED_TOO = False  # these tests are not about the tool

POSTMAP = "/usr/sbin/postmap"
ANNA = "anna@example.com"


# ----------------------------------------------------------- as an installer would leave it


def test_the_panels_files_have_the_installers_owners_and_modes():
    assert {path: described(path) for path in (
        "/var/qmail/mailnames", MAPS, ACCOUNTS, "/etc/orv/orv.conf", "/etc/orv/.orv.shadow",
        "/usr/local/orv/handlers/info", "/usr/local/orv/handlers/hooks/autoresponder",
        "/usr/lib64/orvek-9.0/bouncemessage", "/var/lock/files", "/etc/courier-imap",
        f"{MAPS}/no_relay.re", f"{MAPS}/poplock.db",
    )} == {
        "/var/qmail/mailnames": "d 0755 popuser:popuser",
        MAPS: "d 0770 postfix:root",
        ACCOUNTS: "f 0640 postfix:courier",
        "/etc/orv/orv.conf": "f 0644 root:root",
        "/etc/orv/.orv.shadow": "f 0600 root:root",
        "/usr/local/orv/handlers/info": "d 0755 root:root",
        "/usr/local/orv/handlers/hooks/autoresponder": "f 0755 root:root",
        "/usr/lib64/orvek-9.0/bouncemessage": "f 0755 root:root",
        "/var/lock/files": "d 0755 root:root",
        "/etc/courier-imap": "l courier",
        f"{MAPS}/no_relay.re": "f 0644 root:root",
        f"{MAPS}/poplock.db": "f 0644 root:root",
    }


@pytest.mark.parametrize("name", ["virtual", "aliases", "virtual_domains", "vmailbox", "blacklists"])
def test_each_map_is_there_and_empty(name):
    assert os.path.exists(f"{MAPS}/{name}.db")
    assert postmap(name) == {}


def test_nothing_of_a_mail_server_runs_in_a_fresh_host():
    assert [name for name in ("mariadb", "postfix", "courier") if runs(name)] == []


def test_the_network_is_only_the_loopback():
    assert [name for _, name in socket.if_nameindex()] == ["lo"]
    assert socket.gethostname() == "mailhost.example.test"


def test_the_checkout_and_the_kernels_settings_are_read_only():
    for path in (HOST / "written", "/proc/sys/kernel/hostname", "/sys/written"):
        with pytest.raises(OSError):
            pathlib.Path(path).write_text("x")


# --------------------------------------------------------------------------- real services


def test_the_real_postmap_makes_and_asks_a_map():
    add_records("virtual", {ANNA: ANNA, "@example.com": "anna@example.org"})
    assert postmap("virtual") == {ANNA: ANNA, "@example.com": "anna@example.org"}
    assert postmap_query("virtual", ANNA) == ANNA
    assert postmap_query("virtual", "bertha@example.com") is None


def test_a_delivered_letter_is_read_by_imap_and_pop3():
    make_mailbox(ANNA, "secret")
    start("postfix", "courier")
    send("bertha@example.net", ANNA, body="Good morning")
    wait_until(lambda: letters(ANNA))
    assert "Good morning" in letters(ANNA)[0]
    assert imap_letters(ANNA, "secret") == 1
    assert pop3_letters(ANNA, "secret") == 1


def test_logins_follow_the_account_database():
    make_mailbox(ANNA, "secret")
    start("courier")
    assert imap_letters(ANNA, "wrong") is None  # Courier's servers take 5 s to refuse
    assert login_works(ANNA, "secret") and not login_works(ANNA, "wrong")
    auth_sql("UPDATE domains SET status = 1")
    assert not login_works(ANNA, "secret")
    auth_sql("UPDATE domains SET status = 0")
    assert pop3_letters(ANNA, "secret") == 0


def test_an_encrypted_password_logs_in():
    make_mailbox(ANNA, "secret")
    crypted = run("openssl", "passwd", "-1", "-salt", "abcdefgh", "other").out.strip()
    auth_sql("UPDATE users SET userPassword = NULL, cmusaslsecretPLAIN = ?", crypted)
    start("courier")
    assert imap_letters(ANNA, "other") == 0
    assert not login_works(ANNA, "secret")


def test_smtp_asks_the_account_database():
    make_mailbox(ANNA, "secret")
    set_postconf(smtpd_sasl_auth_enable="yes")
    start("postfix")
    send(ANNA, ANNA, login=(ANNA, "secret"))
    with pytest.raises(smtplib.SMTPAuthenticationError):
        send(ANNA, ANNA, login=(ANNA, "wrong"))


def test_an_unknown_recipient_and_a_blocked_sender_are_refused():
    make_mailbox(ANNA, "secret")
    add_records("blacklists", {"bad.example": "REJECT"})
    start("postfix")
    with pytest.raises(smtplib.SMTPRecipientsRefused):
        send("bertha@example.net", "nobody@example.com")
    with pytest.raises(smtplib.SMTPRecipientsRefused):
        send("x@bad.example", ANNA)


def test_a_bounce_alias_bounces_with_its_text():
    make_mailbox(ANNA, "secret")
    add_records("virtual", {"@example.com": "_orvek_bounce_example.com@localhost.localdomain"})
    add_records("aliases", {"_orvek_bounce_example.com": '"|/usr/lib64/orvek-9.0/bouncemessage Not here"'})
    start("postfix")
    send(ANNA, "nobody@example.com")
    letter = wait_until(lambda: letters(ANNA))[0]
    assert "Not here" in letter


def test_the_init_scripts_drive_the_services():
    for script, name in (("postfix", "postfix"), ("courier-imap", "courier")):
        for action, works in (("start", True), ("status", True), ("restart", True), ("reload", True), ("stop", True)):
            ended = run(f"/etc/init.d/{script}", action)
            assert ended.status == 0, ended
            if action != "stop":
                wait_until(lambda: runs(name))
        assert run(f"/etc/init.d/{script}", "status").status != 0
    assert run("/etc/init.d/courier-imap", "dance").status == 2


def test_a_service_that_is_no_service_is_refused():
    assert run(HOST / "service", "start", "sendmail", env={**os.environ}).status == 2


def test_the_panels_admin_needs_the_shadow_password():
    start("mariadb")
    password = read("/etc/orv/.orv.shadow").splitlines()[0]
    client = ["mariadb", "-u", "admin", "orv", "-e", "SELECT 1"]
    assert run(*client, f"-p{password}").status == 0
    assert run(*client, "-pwrong").status == 1


PANEL_QUERIES = [
    "SELECT m.mail_name, m.mbox_quota FROM mail m, domains d WHERE d.id = m.dom_id AND d.name='x'",
    "SELECT id FROM domains WHERE name='x'",
    "SELECT da.name FROM domainaliases da JOIN domains d WHERE da.dom_id=d.id and d.name='x'",
    "SELECT ma.alias FROM mail_aliases ma JOIN mail m, domains d WHERE ma.mn_id=m.id"
    " AND m.mail_name='x' AND m.dom_id=d.id AND d.name='x'",
    "SELECT m.mail_name FROM mail m JOIN domains d WHERE m.dom_id=d.id AND d.name='x'",
    "SELECT d.name FROM domains d JOIN domainaliases da WHERE d.id=da.dom_id AND da.name='x'",
    "SELECT val FROM misc WHERE param='x'",
    "select htype from domains where id='1'",
    'select status from domains where id="1"',
    "select val from dom_param where dom_id='1' and param='x'",
    "select r.value from DomainServices s, Parameters r where s.dom_id='1' and s.type='mail'"
    " and s.parameters_id=r.id and r.parameter='x'",
    "select l.value from domains d, Limits l where d.id='1' and d.limits_id=l.id and l.limit_name='x'",
    "select * from domains d, dns_zone z, dns_recs r where d.id='1' and d.dns_zone_id=z.id"
    " and r.dns_zone_id=z.id and ((r.type='A') or (r.type='CNAME')) and left(r.host,4)='www.'",
    "select * from subdomains where dom_id='1' and name='www'",
    "select c.email from domains d, clients c where d.cl_id=c.id and d.id='1'",
    "select c.id from domains d, clients c where d.cl_id=c.id and d.id='1'",
    "select name from domains where name='x'",
    "select dns_zone_id from domains where id='1'",
    "SELECT dom_id from domainaliases where name='x'",
    "SELECT p.value AS value FROM Parameters p, DomainServices ds WHERE p.id = ds.parameters_id"
    " AND p.parameter='x' AND ds.dom_id=1",
    "SELECT domain from badmailfrom",
    "SELECT d.id AS id, d.name AS name, (d.status || s.status) AS status, p.value AS nonExisting"
    " FROM domains d, DomainServices s, Parameters p WHERE d.id=s.dom_id AND s.type='mail'"
    " AND p.id=s.parameters_id AND p.parameter='nonexist_mail'",
    "SELECT name, status FROM domainaliases WHERE dom_id='1' AND mail='true'",
    "SELECT l.value AS value FROM domains d, Limits l WHERE d.id=1 AND d.limits_id=l.id"
    " AND l.limit_name='mbox_quota'",
    "SELECT id, mail_name, postbox, mail_group, redirect, redir_addr, mbox_quota FROM mail WHERE dom_id=1",
    "SELECT alias FROM mail_aliases WHERE mn_id=1",
    "SELECT address FROM mail_redir WHERE mn_id=1",
    "SELECT ip_address, ip_mask FROM smtp_poplocks WHERE lock_time IS NULL",
]


def test_the_panels_tables_answer_every_query_of_the_tool():
    start("mariadb")
    for query in PANEL_QUERIES:
        assert panel_sql(query) == []
    for table in ("domains", "mail", "clients"):
        assert panel_sql(f"SELECT max(id) FROM {table}") == [(None,)]


# ------------------------------------------------------------------------------------ reset


def test_reset_brings_every_file_back():
    before = os.listdir("/tmp")  # the checkout may be in it
    add_records("virtual", {ANNA: ANNA})
    os.unlink(f"{MAPS}/aliases.db")
    set_postconf(mynetworks="10.0.0.0/8", message_size_limit="1")
    auth_sql("INSERT INTO domains (name) VALUES ('example.com')")
    make_mailbox("bertha@example.org", "secret")
    write("/usr/local/orv/handlers/info/10-x-abcdef/hook", "before-local\n")
    write("/usr/local/orv/handlers/before-local/global/10-x-abcdef", "")
    write("/etc/courier-imap/imapd", "SHORTNAMES=1\n", mode=0o600)
    write("/etc/domainkeys/example.com/default", "key")
    write("/etc/orv-spf/spfrules", "rules")
    write("/var/lock/files/0123", "")
    write("/tmp/left", "")
    write("/dev/shm/left", "")
    os.unlink("/etc/orv/orv.conf")
    os.chmod("/etc/orv", 0o700)
    os.chown(MAILNAMES, 0, 0)
    os.rename("/usr/lib64/orvek-9.0", "/usr/lib64/moved")
    os.mkdir("/usr/lib64/orvek-9.0")
    run("mv", "/etc/postfix", "/etc/postfix.old")
    os.symlink("/nowhere", "/etc/postfix")
    reset()
    for top in ("/etc", "/usr/local/orv", "/usr/lib64", "/var/qmail", "/var/lib/postfix", MAPS):
        untouched = f"/run/mailvek/pristine{top}"
        assert tree(top) == tree(untouched)
        assert described(top) == described(untouched)
        assert run("diff", "-r", "--no-dereference", untouched, top, "-x", "mailvek").out == ""
    assert postconf("message_size_limit") == "10240000"
    assert postmap("virtual") == {} and auth_domains() == {} and os.listdir(MAILNAMES) == []
    assert os.listdir("/tmp") == before and os.listdir("/var/lock/files") == []


def test_reset_empties_the_panels_tables_and_brings_lost_ones_back():
    start("mariadb")
    panel_sql("INSERT INTO misc VALUES ('relay', 'open'); INSERT INTO clients (email) VALUES ('a@b.example');"
              "DROP TABLE mail; ALTER TABLE domains DROP COLUMN htype;")
    reset()
    assert runs("mariadb")
    for query in PANEL_QUERIES:
        assert panel_sql(query) == []
    panel_sql("INSERT INTO clients (email) VALUES ('a@b.example')")
    assert panel_sql("SELECT id FROM clients") == [("1",)]


def test_reset_stops_what_runs_and_undoes_mounts_and_spies():
    start("postfix", "courier")
    sleeper = subprocess.Popen(["sleep", "300"])
    read_only("/etc/orv")
    full_disk(MAILNAMES)
    spy(POSTMAP, Rule(exit=1))
    reset()
    assert sleeper.wait(timeout=HANGS) == -signal.SIGKILL
    assert not runs("postfix") and not runs("courier")
    assert run(POSTMAP, "-q", "x", f"hash:{MAPS}/virtual").err == ""
    assert calls() == []
    write("/etc/orv/written", "")
    write(f"{MAILNAMES}/written", "x" * 100000)


def test_reset_spares_the_start_of_the_database():
    # Stopping them takes seconds, the rest of a reset no time.
    start("mariadb", "postfix", "courier")
    before = run("pidof", "mariadbd").out
    reset()
    assert before.strip() and run("pidof", "mariadbd").out == before


def test_the_system_log_survives_a_reset():
    run("logger", "first")
    wait_until(lambda: any("first" in line for line in system_log()))
    reset()
    assert system_log() == []
    run("logger", "second")
    wait_until(lambda: any("second" in line for line in system_log()))
