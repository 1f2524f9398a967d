"""The actions of a mailbox's user on a real mail host: sending letters by SMTP, logging in, reading
letters by IMAP and POP3 or in the Maildir. make_mailbox() makes the mailbox by hand, so that nothing
here depends on the tool. Each wait for a server ends.
"""
import contextlib
import grp
import imaplib
import os
import pathlib
import poplib
import pwd
import smtplib

from mailhost import HANGS, MAILNAMES, add_records, auth_sql, run


def make_mailbox(address, password):
    """Makes by hand the mailbox that the tool would make."""
    mailname, domain = address.split("@")
    home = pathlib.Path(MAILNAMES, domain, mailname)
    for directory in (home.parent, home, *(home / "Maildir" / name for name in ("", "tmp", "new", "cur"))):
        directory.mkdir(0o700, exist_ok=True)
        os.chown(directory, pwd.getpwnam("popuser").pw_uid, grp.getgrnam("popuser").gr_gid)
    add_records("virtual_domains", {domain: f"{domain}/"})
    add_records("virtual", {address: address})
    add_records("vmailbox", {address: f"{domain}/{mailname}/Maildir/"})
    auth_sql("INSERT OR IGNORE INTO domains (name) VALUES (?)", domain)
    auth_sql(
        "INSERT INTO users (dom_id, name, userPassword) SELECT id, ?, ? FROM domains WHERE name = ?",
        mailname, password, domain,
    )


def send(sender, recipient, body="Hello", login=None):
    """Sends a letter by SMTP, logged in as (user, password) if given. Raises what smtplib raises."""
    with smtplib.SMTP("127.0.0.1", 25, local_hostname="client.example.test", timeout=HANGS) as smtp:
        if login:
            smtp.login(*login)
        smtp.sendmail(sender, recipient, f"From: {sender}\r\nTo: {recipient}\r\nSubject: A letter\r\n\r\n{body}\r\n")


def letters(address):
    """The letters in a mailbox's Maildir, both new and seen."""
    mailname, domain = address.split("@")
    maildir = pathlib.Path(MAILNAMES, domain, mailname, "Maildir")
    return [file.read_text() for name in ("new", "cur") for file in sorted((maildir / name).iterdir())]


def login_works(address, password):
    """Whether Courier's account daemon accepts the login. Courier's servers ask the same daemon, but take
    five seconds to refuse."""
    return run("authtest", address, password).status == 0


def imap_letters(address, password):
    """Logs in by IMAP and counts the inbox; None when the login is refused."""
    with imaplib.IMAP4("127.0.0.1", timeout=HANGS) as imap:
        try:
            imap.login(address, password)
        except imaplib.IMAP4.error:
            return None
        return int(imap.select()[1][0])


def pop3_letters(address, password):
    """Logs in by POP3 and counts the inbox; None when the login is refused."""
    pop = poplib.POP3("127.0.0.1", timeout=HANGS)
    try:
        pop.user(address)
        pop.pass_(password)
        return pop.stat()[0]
    except poplib.error_proto:
        return None
    finally:
        with contextlib.suppress(poplib.error_proto, OSError):
            pop.quit()
