"""The settings of the whole server and their effect on a running Postfix: who may relay, and which
letters and senders are refused.

demo.py runs it in the middle of demo_mail.py, when the domain has all its names.
"""
import smtplib

import clients
import mailboxes
import mailhost

ELSEWHERE = "dora@elsewhere.test"
SPAM, ZONE = "spam.test", "black.test"


def relaying(run, what, expected, login=None):
    """Sends a letter from outside to a domain that is not the server's; expected is the answer's code."""
    recipient(run, f"a letter from {clients.OUTSIDE} to {ELSEWHERE}{what}", expected, to=ELSEWHERE, login=login)


def recipient(run, shown, expected, **letter):
    seen = []

    def as_expected():  # the reload takes a moment to reach the processes that answer
        seen[:] = clients.recipient(**letter)
        return seen[0] == expected

    try:
        holds = mailhost.wait_until(as_expected)
    except AssertionError:
        holds = False
    run.demo.step(shown, f"{seen[0]} {seen[1]}", holds)


def who_may_relay(run, login):
    run.demo.heading("who may relay: users, networks of the whitelist")
    mailhost.set_postconf(default_transport="smtp",
                          mynetworks="127.0.0.0/8, 192.0.2.7/32, 203.0.113.0/26, 203.0.113.64/26")
    network = ("--ip-address=198.51.100.0", "--netmask=24")
    listed = "127.0.0.0/8, 192.0.2.7/32, 203.0.113.0/26, 203.0.113.64/26"
    run.command("--set-mail-params", "--smtpauth")
    relaying(run, "", 454)
    relaying(run, f", sent by {login[0]}", 250, login=login)
    run.command("--add-whitelist", *network, shows=[f"+ main.cf: mynetworks = {listed}, 198.51.100.0/24"])
    relaying(run, "", 250)
    run.command("--remove-whitelist", *network, shows=[f"+ main.cf: mynetworks = {listed}"])
    relaying(run, "", 454)


def a_long_letter(run, to, taken):
    try:
        mailboxes.send("clara@localhost.localdomain", to, body="long " * 1000)
        said = "accepted"
    except smtplib.SMTPSenderRefused as error:
        said = f"{error.smtp_code} {error.smtp_error.decode()}"
    run.demo.step(f"a letter of 5000 bytes to {to}", said, said.startswith("accepted" if taken else "552"))


def what_is_refused(run, to):
    run.demo.heading("which letters are refused: long ones, from bad senders, from a client on a blocklist")
    before = mailhost.postconf("message_size_limit")
    run.command("--set-max-letter-size", "--size=3000",
                shows=[f"- main.cf: message_size_limit = {before}", "+ main.cf: message_size_limit = 3000"])
    run.demo.tool("--get-max-letter-size", status=0, out="3000\n", err="")
    mailhost.wait_until(lambda: clients.offers("size") == "3000")
    a_long_letter(run, to, taken=False)
    run.command("--set-max-letter-size", f"--size={before}")
    mailhost.wait_until(lambda: clients.offers("size") == before)
    a_long_letter(run, to, taken=True)

    run.command("--add-badmailfrom", f"--domain-name={SPAM}", shows=[f"+ blacklists: {SPAM} -> REJECT"])
    recipient(run, f"a letter from carl@{SPAM}", 554, to=to, sender=f"carl@{SPAM}")
    run.command("--remove-badmailfrom", f"--domain-name={SPAM}", shows=[f"- blacklists: {SPAM} -> REJECT"])
    recipient(run, f"a letter from carl@{SPAM}", 250, to=to, sender=f"carl@{SPAM}")

    with clients.name_server({f"9.100.51.198.{ZONE}": "127.0.0.2"}):
        run.command("--set-maps-protection", f"--maps-zones={ZONE}",
                    shows=[f"+ main.cf: smtpd_client_restrictions = reject_rbl_client {ZONE}"])
        recipient(run, f"a letter from {clients.OUTSIDE}, which {ZONE} lists", 554, to=to)
        run.command("--set-maps-protection", shows=["+ main.cf: smtpd_client_restrictions ="])
        recipient(run, f"a letter from {clients.OUTSIDE}", 250, to=to)


def chapters(run, login):
    with clients.addresses():
        who_may_relay(run, login)
        what_is_refused(run, to=login[0])
