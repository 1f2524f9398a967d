"""Counts the valid recipients that the mail server refuses while a large map changes under it."""
import dataclasses
import random
import smtplib
import threading
import time

import mailhost
from clients import addresses, session
from kills import AT, other_address, other_domains, prepare

CHANGES_A_SECOND = 10
RECIPIENTS = 150  # of a session that stays open; each waits a little
PAUSE = 0.05
CLIENTS = 2  # of each kind


@dataclasses.dataclass
class Counted:
    changes: int = 0
    asked: int = 0
    refused: list = dataclasses.field(default_factory=list)
    seconds: float = 0


def ask(smtp, records, random_, counted):
    address = other_address(random_.randrange(records))
    code, text = smtp.rcpt(address)
    counted.asked += 1
    if code != 250:
        counted.refused.append(f"{address}: {code} {text}")


def open_session(records, random_, counted, over):
    with session("127.0.0.1") as smtp:
        smtp.mail("clara@example.org")
        for _ in range(RECIPIENTS):
            if over.is_set():
                return
            ask(smtp, records, random_, counted)
            time.sleep(PAUSE)


def short_session(records, random_, counted, _over):
    with session("127.0.0.1") as smtp:
        smtp.mail("clara@example.org")
        ask(smtp, records, random_, counted)


def client(kind, seed, records, counted, over, failures):
    random_ = random.Random(seed)
    try:
        while not over.is_set():
            kind(records, random_, counted, over)
    except (OSError, smtplib.SMTPException) as e:
        failures.append(e)


def change(until, counted):
    """Adds and removes a mail alias in turns, at most so often a second."""
    began = time.monotonic()
    while time.monotonic() < until:
        verb = ("--add-alias", "--remove-alias")[counted.changes % 2]
        mailhost.done(verb, AT, "--mailname=anna", "--alias=late")
        counted.changes += 1
        time.sleep(max(0, began + counted.changes / CHANGES_A_SECOND - time.monotonic()))
    counted.seconds = time.monotonic() - began


def refusals(records, seconds):
    """What was counted in so many seconds on maps of so many records, in a fresh host."""
    prepare(records)
    mailhost.add_records("virtual_domains", {domain: f"{domain}/" for domain in other_domains(records)})
    mailhost.start("postfix")
    counted, over, failures = Counted(), threading.Event(), []
    with addresses():
        threads = [threading.Thread(target=client, args=(kind, seed, records, counted, over, failures))
                   for seed in range(CLIENTS) for kind in (open_session, short_session)]
        for thread in threads:
            thread.start()
        try:
            change(time.monotonic() + seconds, counted)
        finally:
            over.set()
            for thread in threads:
                thread.join()
    assert not failures, failures
    return counted
