"""A customer's address or text stays one value, one line and one report."""
import os

import pytest

import attackers
import ground
import mailboxes
import mailhost
from customers import attacked, held, own_handler
from ground import ANNA, AT, DOMAIN, HOME


# ------------------------------------------------------------------------------------- main.cf

SETTINGS = {
    "a zone with a newline": ("--set-maps-protection", "--maps-zones=a.test\ninet_interfaces = all\nx = y"),
    "a zone with a parameter": ("--set-maps-protection", "--maps-zones=${mydestination}"),
    "a network with a newline": ("--add-whitelist", "--ip-address=10.0.0.0\nx = y", "--netmask=8"),
    "a network with a list": ("--add-whitelist", "--ip-address=0.0.0.0/0 10.0.0.0", "--netmask=8"),
    "a network that is a file": ("--add-whitelist", "--ip-address=/etc/passwd", "--netmask=8"),
    "a network with a parameter": ("--add-whitelist", "--ip-address=$mydestination", "--netmask=8"),
}


def test_a_setting_is_one_value_of_main_cf(ledger):
    for name, words in SETTINGS.items():
        how, found = attacked(*words)
        if how.status == 0 or not how.err:
            found.append("it was taken")
        ledger.tried(f"main.cf: {name}", found, how)
    ledger.close()


@pytest.mark.parametrize("zones", ["a.test permit", "permit", "a.test,permit", "a.test check_client_access hash:/tmp/x"])
def test_a_zone_is_no_restriction_of_its_own(zones):
    how = ground.mailvek("--set-maps-protection", f"--maps-zones={zones}")
    words = mailhost.postconf("smtpd_client_restrictions").replace(",", " ").split()
    zones = zones.replace(",", " ").split()
    assert how.status != 0 or [(words[words.index(zone) - 1], words.count(zone)) for zone in zones] == \
        [("reject_rbl_client", 1)] * len(zones), words


# ------------------------------------------------------------------------------------- reports

FORGED = "Nov 22 00:00:00 mailhost sshd[1]: Accepted password for root"
REPORTED = {
    "an unknown command": (f"--no-such\n{FORGED}",),
    "an option's value": ("--add-whitelist", "--ip-address=10.0.0.0", f"--netmask=x\n{FORGED}"),
    "a mailname": ("--get-mailbox-size", AT, f"--mailname=x\n{FORGED}"),
    "a mailname of a quota": ("--set-mailbox-disk-quota", AT, f"--mailname=x\n{FORGED}", "--disk-quota=1"),
    "a source": ("--add-attachment", *ANNA, f"--file-name=/x\n{FORGED}", "--attachment-file-name=y"),
    "an attachment": ("--remove-attachment", *ANNA, f"--attachment-file-name=/x\n{FORGED}"),
    "a key's source": ("--set-domain-key", AT, f"--file-name=/x\n{FORGED}"),
    "a handler": ("--remove-handler", f"--handler-name=x\n{FORGED}", "--handler-type=recipient",
                  f"--handler-type-name=anna@{DOMAIN}", "--hook=before-local"),
    "a handler's program": own_handler("--add-handler", executable=f"/x\n{FORGED}"),
    "a handler's type": own_handler("--add-handler", type=f"x\n{FORGED}"),
    "a domain": ("--remove-mailname", f"--domain-name=x.test\n{FORGED}", "--mailname=x"),
    "a listed mailname": ("--list-attachments", AT, f"--mailname=x\n{FORGED}"),
    "a component": ("--status-service", f"--mail-component=x\n{FORGED}"),
}


@pytest.mark.quick
def test_a_name_writes_no_second_line_into_a_report(ledger):
    for place, words in REPORTED.items():
        how = ground.mailvek(*words)
        lines = (how.out + how.err).replace("\r", "\n").splitlines()
        ledger.tried(f"a forged line: {place}", [line for line in lines if line.startswith(FORGED[:12])], how)
    ledger.close()


@pytest.mark.parametrize("evil", ["\x1b]0;owned\x07", "\x1b[2J", "\x9b2J"])
def test_a_name_speaks_to_no_terminal(evil):
    how = ground.mailvek("--add-attachment", *ANNA, f"--file-name=/x{evil}", "--attachment-file-name=y")
    assert "\x1b" not in how.out + how.err and "\x9b" not in how.out + how.err, repr(how.err)


@pytest.mark.quick
def test_a_files_name_writes_no_second_line_into_a_list():
    attackers.by("popuser", lambda: open(f"{HOME}/@attachments/x\t1\nforged\t999", "x").close())
    for command in (("--list-attachments", *ANNA), ("--list-attachments", "--mail-all", AT)):
        how = ground.mailvek(*command)
        assert not [line for line in how.out.splitlines() if line.startswith("forged\t")], how


# -------------------------------------------------------------------------------------- bounces

PHRASES = ("$(touch /tmp/owned)", "`touch /tmp/owned`", "'; touch /tmp/owned; '", '", "|touch /tmp/owned',
           "\\\"; touch /tmp/owned; \\\"", "x\n| touch /tmp/owned", "'\\''$(touch /tmp/owned)'\\''", "&touch /tmp/owned&",
           '\\", "|touch /tmp/owned", \\"', "\\\\\"; touch /tmp/owned #")


def test_a_bounces_text_runs_nothing():
    mailhost.run("cp", "-a", "/run/mailvek/pristine/etc/init.d/postfix", "/etc/init.d/postfix")
    for number, phrase in enumerate(PHRASES):
        how = ground.mailvek("--set-bounce", AT, f"--phrase={phrase}")
        assert how.status in (0, 1), how
        if number == 0:
            mailhost.start("postfix")
        mailhost.run(mailhost.REAL / "usr/sbin/postfix", "reload")
        try:
            mailboxes.send("a@example.org", f"nobody-{number}@{DOMAIN}")
        except OSError:
            pass
        mailhost.run(mailhost.REAL / "usr/sbin/postqueue", "-f")
    mailhost.wait_until(lambda: "empty" in mailhost.run("mailq").out, seconds=40)
    assert not os.path.exists("/tmp/owned")


# ------------------------------------------------------------------------------------ passwords


@pytest.mark.parametrize("password", ["x'); DROP TABLE users; --", "a\nb", "\x01\x02", "x" * 100_000, "é" * 100])
def test_a_password_is_a_password(password):
    before = ground.look()
    how = ground.mailvek("--set-password", *ANNA, env={"ORV_PASSWORD": password})
    found = ground.breaches(before, how)
    held(how, found, "--set-password")
    assert password not in how.out + how.err
    if how.status == 0:
        assert mailhost.auth_rows()[f"anna@{DOMAIN}"][0] == password
