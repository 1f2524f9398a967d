"""Sends letters to addresses that exist and to some that do not while maps change. Then looks for each
letter in the mailboxes."""
import collections
import dataclasses
import pathlib
import random
import re
import smtplib
import subprocess
import threading
import time

import mailhost
from clients import addresses, session
from kills import ALIAS, AT, NEW, other_domains, prepare
from mailboxes import make_mailbox

BOXES = 20
CLIENTS = 4
LETTERS_IN_SESSION = 20
ONE_INVALID_OF = 4
TRIES = 5  # of a letter that is refused for the moment
QUEUE_SECONDS = 300
CHANGES = (
    ("--add-alias", AT, "--mailname=anna", "--alias=late"),
    ("--add-domain", f"--domain-name={NEW}"),
    ("--remove-alias", AT, "--mailname=anna", "--alias=late"),
    ("--del-domain-alias", AT, f"--domain-alias-name={ALIAS}"),
    ("--remove-domain", f"--domain-name={NEW}"),
    ("--add-domain-alias", AT, f"--domain-alias-name={ALIAS}", "--set-reject"),
)
WORD = re.compile(r"^the letter (\d+)$", re.MULTILINE)


@dataclasses.dataclass
class Sent:
    """What was sent and answered. The letters that were taken, by their numbers."""
    valid: set = dataclasses.field(default_factory=set)
    invalid: int = 0
    later: int = 0  # answers that asked for another attempt
    changes: int = 0
    wrong: list = dataclasses.field(default_factory=list)


def box_domain(number):
    return f"letters{number % BOXES}.test"


def answer_to(smtp, number, to):
    """The server's answer to the letter."""
    for command in (lambda: smtp.mail("clara@example.org"), lambda: smtp.rcpt(to)):
        code, text = command()
        if code != 250:
            smtp.rset()
            return code, text
    return smtp.data(f"From: clara@example.org\r\nTo: {to}\r\nSubject: A letter\r\n\r\nthe letter {number}\r\n")


def send(smtp, number, valid, sent):
    to = f"{'box' if valid else 'nobody'}@{box_domain(number)}"
    for _ in range(TRIES):
        code, text = answer_to(smtp, number, to)
        if not 400 <= code < 500:
            break
        sent.later += 1
        time.sleep(1)
    if valid and code == 250:
        sent.valid.add(number)
    elif not valid and code == 550:
        sent.invalid += 1
    else:
        sent.wrong.append(f"letter {number} to {to}: {code} {text}")


def client(numbers, seconds, sent):
    """Sends its letters, so many in a session, spread over the time."""
    random_ = random.Random(numbers.start)
    began = time.monotonic()
    try:
        for first in range(0, len(numbers), LETTERS_IN_SESSION):
            time.sleep(max(0, began + seconds * first / len(numbers) - time.monotonic()))
            if time.monotonic() - began > 2 * seconds:
                break
            with session("127.0.0.1") as smtp:
                for number in numbers[first:first + LETTERS_IN_SESSION]:
                    send(smtp, number, random_.randrange(ONE_INVALID_OF) > 0, sent)
    except (OSError, smtplib.SMTPException) as error:
        sent.wrong.append(f"a session ended: {error!r}")


def change_until(over, sent):
    try:
        while not over.is_set() or sent.changes < len(CHANGES):
            mailhost.done(*CHANGES[sent.changes % len(CHANGES)], out=None)
            sent.changes += 1
    except (AssertionError, subprocess.TimeoutExpired) as error:
        sent.wrong.append(f"a change failed: {error}")


def delivered():
    """How often each letter lies in the mailboxes."""
    found = collections.Counter()
    for path in pathlib.Path(mailhost.MAILNAMES).glob("letters*/box/Maildir/new/*"):
        found.update(int(number) for number in WORD.findall(path.read_text()))
    return found


def queue_is_empty():
    return "Mail queue is empty" in mailhost.run("postqueue", "-p").out


def look_into_mailboxes(sent):
    mailhost.wait_until(queue_is_empty, QUEUE_SECONDS)
    found = delivered()
    sent.wrong += [f"letter {number} is lost" for number in sorted(sent.valid - set(found))]
    sent.wrong += [f"letter {number} was delivered {count} times" for number, count in found.items() if count > 1]
    sent.wrong += [f"letter {number} was refused and delivered" for number in sorted(set(found) - sent.valid)]


def letters(records, most, seconds):
    """What became of so many letters, sent while maps of so many records change. On a machine that is too slow
    for them in twice the time, the rest is not sent."""
    prepare(records)
    mailhost.add_records("virtual_domains", {domain: f"{domain}/" for domain in other_domains(records)})
    for number in range(BOXES):
        make_mailbox(f"box@{box_domain(number)}", "secret")
    mailhost.start("postfix")
    sent, over = Sent(), threading.Event()
    with addresses():
        share = most // CLIENTS
        clients = [threading.Thread(target=client, args=(range(first, first + share), seconds, sent))
                   for first in range(0, share * CLIENTS, share)]
        changes = threading.Thread(target=change_until, args=(over, sent))
        for thread in (*clients, changes):
            thread.start()
        for thread in clients:
            thread.join()
        over.set()
        changes.join()
        look_into_mailboxes(sent)
    return sent
