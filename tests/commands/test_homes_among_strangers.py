"""Links, FIFOs and huge files that the mail user puts into a home do not lead the tool astray."""
import os
import subprocess

import pytest

from mailhost import described, done, failed, read, tree, write
from mailnames import HOME, NAMES, domain_without_mailnames

PRECIOUS = "/etc/precious"
STORE = f"{HOME}/@attachments"
REDIRECT = ("--add-redirect", *NAMES, "--redirect-email=a@example.net")
LOOP = "Too many levels of symbolic links"


@pytest.fixture(autouse=True)
def panel():
    domain_without_mailnames()
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    write(PRECIOUS, "precious\n")


def as_mail_user(*arguments):
    subprocess.run(["setpriv", "--reuid=popuser", "--regid=popuser", "--clear-groups", *arguments], check=True)


def test_a_link_at_the_delivery_file_gives_nothing_away():
    before = described(PRECIOUS)
    as_mail_user("ln", "-sf", PRECIOUS, f"{HOME}/.qmail")
    failed(*REDIRECT, saying=LOOP)
    failed("--add-mailname", *NAMES, "--disk-quota=100000", saying=LOOP)
    assert described(PRECIOUS) == before and read(PRECIOUS) == "precious\n"


def test_a_fifo_at_the_delivery_file_holds_nothing_up():
    as_mail_user("rm", f"{HOME}/.qmail")
    as_mail_user("mkfifo", f"{HOME}/.qmail")
    failed(*REDIRECT, saying="Invalid argument")
    as_mail_user("rm", f"{HOME}/.qmail")
    done(*REDIRECT)
    assert described(f"{HOME}/.qmail") == "f 0600 popuser:popuser"


def test_a_huge_delivery_file_holds_nothing_up():
    as_mail_user("truncate", "-s", "8191G", f"{HOME}/.qmail")
    failed(*REDIRECT, saying="File too large")


def test_attachments_reach_no_directory_through_a_link():
    as_mail_user("rmdir", STORE)
    as_mail_user("ln", "-s", "/etc/cron.d", STORE)
    before = tree("/etc/cron.d")
    failed("--add-attachment", *NAMES, f"--file-name={PRECIOUS}", "--attachment-file-name=job", saying=LOOP)
    failed("--remove-attachment", *NAMES, "--attachment-file-name=e2scrub_all", saying=LOOP)
    failed("--list-attachments", *NAMES, saying=LOOP)
    assert tree("/etc/cron.d") == before


def test_a_home_that_was_there_survives_a_failure():
    write(f"{HOME}/Maildir/new/letter", "A letter\n")
    as_mail_user("rm", "-r", f"{HOME}/Maildir/.Spam")
    as_mail_user("ln", "-s", "/etc", f"{HOME}/Maildir/.Spam")
    failed("--add-mailname", *NAMES, "--disk-quota=100000", saying=LOOP)
    assert read(f"{HOME}/Maildir/new/letter") == "A letter\n"
    assert described("/etc").startswith("d 0755 root:root")


def test_a_quota_is_written_through_no_link():
    as_mail_user("rm", "-r", f"{HOME}/Maildir")
    as_mail_user("ln", "-s", "/etc", f"{HOME}/Maildir")
    failed("--set-mailbox-disk-quota", *NAMES, "--disk-quota=1000", saying=LOOP)
    assert not os.path.exists("/etc/maildirsize")
