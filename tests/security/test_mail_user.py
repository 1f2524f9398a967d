"""popuser owns every mailbox: what he puts in the place of a file or directory there leads nowhere."""
import os
import pwd
import time

import pytest

import attackers
import ground
import mailhost
import plants
from ground import ANNA, AT, HOME, PLAIN, ROOT

REDIRECT = ("--add-redirect", *ANNA, "--redirect-email=b@example.org")
UNREDIRECT = ("--remove-redirect", *ANNA, "--redirect-email=a@example.org")
MAILBOX = ("--add-mailbox", *ANNA)
UNMAILBOX = ("--remove-mailbox", *ANNA)
MAILNAME = ("--add-mailname", *ANNA, "--disk-quota=70000")
UNMAILNAME = ("--remove-mailname", *ANNA)
RENAME = ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita")
QUOTA = ("--set-mailbox-disk-quota", *ANNA, "--disk-quota=7000000")
DOMAIN_QUOTA = ("--set-domain-disk-quota", AT, "--disk-quota=7000000")
SIZE = ("--get-mailbox-size", *ANNA)
BLOCKS = ("--get-mailbox-size", "--in-blocks", *ANNA)
ATTACH = ("--add-attachment", *ANNA, "--file-name=/srv/uploads/letter", "--attachment-file-name=a.txt")
UNATTACH = ("--remove-attachment", *ANNA, "--attachment-file-name=a.txt")
LIST = ("--list-attachments", "--fullname", *ANNA)
LIST_ALL = ("--list-attachments", "--mail-all", "--fullname", AT)
ADD_DOMAIN = ("--add-domain", AT)
REMOVE_DOMAIN = ("--remove-domain", AT)

# A place that belongs to popuser, and the commands that use it.
FILES = {
    ".qmail": (f"{HOME}/.qmail", (REDIRECT, UNREDIRECT, MAILBOX, UNMAILBOX, MAILNAME)),
    ".qmail.tmp": (f"{HOME}/.qmail.tmp", (REDIRECT, UNREDIRECT, UNMAILBOX)),
    "maildirsize": (f"{HOME}/Maildir/maildirsize", (QUOTA, SIZE, MAILNAME, DOMAIN_QUOTA)),
    "an attachment": (f"{HOME}/@attachments/a.txt", (ATTACH, UNATTACH, LIST, LIST_ALL, QUOTA)),
    "a letter": (f"{HOME}/Maildir/cur/1.letter", (QUOTA, SIZE)),
}
DIRECTORIES = {
    "the domain's root": (ROOT, (ADD_DOMAIN, REMOVE_DOMAIN, MAILNAME, REDIRECT, QUOTA, SIZE, ATTACH, LIST_ALL)),
    "the home": (HOME, (MAILNAME, UNMAILNAME, RENAME, REDIRECT, UNREDIRECT, MAILBOX, UNMAILBOX, QUOTA, SIZE, ATTACH,
                        UNATTACH, LIST, LIST_ALL, DOMAIN_QUOTA)),
    "Maildir": (f"{HOME}/Maildir", (MAILNAME, UNMAILNAME, QUOTA, SIZE, MAILBOX)),
    "Maildir/tmp": (f"{HOME}/Maildir/tmp", (MAILNAME, QUOTA)),
    "Maildir/cur": (f"{HOME}/Maildir/cur", (MAILNAME, UNMAILNAME, QUOTA)),
    "Maildir/new": (f"{HOME}/Maildir/new", (MAILNAME, QUOTA, SIZE)),
    "a folder": (f"{HOME}/Maildir/.Spam", (MAILNAME, QUOTA)),
    "a folder's cur": (f"{HOME}/Maildir/.Spam/cur", (MAILNAME, QUOTA)),
    "@attachments": (f"{HOME}/@attachments", (MAILNAME, UNMAILNAME, ATTACH, UNATTACH, LIST, LIST_ALL, QUOTA, SIZE, BLOCKS)),
}
QUICK = {
    ("--add-redirect", ".qmail", "a link to root's file"),
    ("--add-redirect", ".qmail", "a FIFO"),
    ("--remove-redirect", ".qmail.tmp", "a FIFO"),
    ("--add-attachment", "@attachments", "a link to /etc/cron.d"),
    ("--add-attachment", "an attachment", "a link to where cron looks"),
    ("--add-mailname", "the home", "a link to root's directory"),
    ("--get-mailbox-size", "maildirsize", "a FIFO"),
    ("--add-domain", "the domain's root", "a link to a new place in /etc"),
}


# Kinds that take long to make, or that one test is enough for: only one command per place meets them,
# the first one or the one that reads most there.
READERS = {"maildirsize": SIZE, "the domain's root": REMOVE_DOMAIN, "the home": UNMAILNAME, "Maildir": UNMAILNAME,
           "@attachments": BLOCKS, "Maildir/cur": QUOTA, "a folder": QUOTA, "a folder's cur": QUOTA,
           "Maildir/tmp": QUOTA, "Maildir/new": SIZE}
FIRST = {place: commands[0] for place, (_, commands) in (FILES | DIRECTORIES).items()}
ONCE = {"a socket", "a device", "a sparse file of 8 TiB", "a line of 64 MiB", "a link to itself", "a link to /etc/cron.d",
        "a tree 20,000 deep", "30,000 names", "a file"}


def rows():
    for places, kinds in ((FILES, plants.FILE_KINDS), (DIRECTORIES, plants.DIRECTORY_KINDS)):
        for place, (path, commands) in places.items():
            for command in commands:
                in_blocks = " in blocks" if "--in-blocks" in command else ""
                yield pytest.param(place, path, kinds, command, id=f"{place}: {command[0][2:]}{in_blocks}")


def attack(ledger, name, path, kind, command):
    plants.plant(kind, path, attackers.by, "popuser")
    before = ground.look()
    how = ground.mailvek(*command, env=PLAIN)
    plants.unmount(path)
    found = ground.breaches(before, how, allowed=(ground.STORE,))
    ledger.tried(name, found, how)


@pytest.mark.parametrize(("place", "path", "kinds", "command"), rows())
def test_what_stands_in_a_place_leads_nowhere(ledger, place, path, kinds, command):
    for kind, plant in kinds.items():
        if kind in ONCE and command != READERS.get(place, FIRST[place]):
            continue
        attack(ledger, f"{place}: {kind}: {' '.join(command[:1])}", path, plant, command)
    ledger.close()


@pytest.mark.quick
def test_the_worst_of_them_lead_nowhere(ledger):
    for verb, place, kind in sorted(QUICK):
        path, commands = (FILES | DIRECTORIES)[place]
        command = next(command for command in commands if command[0] == verb)
        plant = (plants.FILE_KINDS | plants.DIRECTORY_KINDS)[kind]
        attack(ledger, f"{place}: {kind}: {verb}", path, plant, command)
    ledger.close()


# ------------------------------------------------------------------- what he holds and what grows


LEASES = {
    ".qmail": (f"{HOME}/.qmail", REDIRECT),
    ".qmail under removal": (f"{HOME}/.qmail", UNREDIRECT),
    "maildirsize": (f"{HOME}/Maildir/maildirsize", QUOTA),
    "an attachment": (f"{HOME}/@attachments/a.txt", ATTACH),
}


@pytest.mark.parametrize("place", LEASES)
def test_a_lease_that_is_not_given_up_holds_nobody_up(place):
    path, command = LEASES[place]
    attackers.by("root", lambda: os.chown(path, pwd.getpwnam("popuser").pw_uid, -1))
    with attackers.beside("popuser", attackers.held(attackers.leased(path))):
        mailhost.wait_until(lambda: os.path.exists("/tmp/held"))
        how = ground.mailvek(*command)
    assert how.status is not None, how


def growing(path):
    numbers = iter(range(10 ** 9))

    def step():
        os.close(os.open(f"{path}/{next(numbers)}", os.O_WRONLY | os.O_CREAT, 0o600))
    return attackers.over_and_over(step)


def growing_trees(path):
    numbers = iter(range(10 ** 9))

    def step():
        name = next(numbers)
        os.makedirs(f"{path}/{name}/a/b/c")
    return attackers.over_and_over(step)


GROWTH = {
    "letters under a count": (growing(f"{HOME}/Maildir/cur"), QUOTA),
    "letters under a size": (growing(f"{HOME}/Maildir/new"), SIZE),
    "folders under a count": (growing_trees(f"{HOME}/Maildir"), QUOTA),
    "attachments under a list": (growing(f"{HOME}/@attachments"), LIST),
    "attachments under a size": (growing_trees(f"{HOME}/@attachments"), SIZE),
    "homes under a list": (growing_trees(ROOT), LIST_ALL),
    "a home under its removal": (growing_trees(f"{HOME}/Maildir"), UNMAILNAME),
    "a root under its removal": (growing_trees(ROOT), REMOVE_DOMAIN),
}


@pytest.mark.parametrize("what", GROWTH)
def test_what_grows_meanwhile_does_not_delay_the_tool(what):
    growth, command = GROWTH[what]
    if command is SIZE:
        os.unlink(f"{HOME}/Maildir/maildirsize")
    before = ground.look()
    with attackers.beside("popuser", growth):
        time.sleep(0.3)
        how = ground.mailvek(*command, seconds=3 * ground.SECONDS)
    found = ground.breaches(before, how, allowed=(ground.STORE,))
    assert not found, f"{how}\n" + "\n".join(found)


def backup_name(path):
    return f"{path}.OrvekSaved.{os.stat(path).st_ino}"


def test_a_backups_name_that_is_taken_leads_nowhere(ledger):
    for kind, plant in plants.DIRECTORY_KINDS.items():
        if kind in ("a tree 20,000 deep", "30,000 names"):
            continue
        plants.plant(plant, backup_name(ROOT), attackers.by, "popuser")
        before = ground.look()
        how = ground.mailvek(*REMOVE_DOMAIN)
        ledger.tried(f"the backup's name: {kind}: --remove-domain", ground.breaches(before, how, allowed=(ground.STORE,)), how)
    ledger.close()


@pytest.mark.quick
def test_a_failed_command_removes_no_home_that_was_there():
    attackers.by("popuser", lambda: (os.rename(f"{HOME}/Maildir/new", f"{HOME}/Maildir/x"),
                                     plants.plain_file(f"{HOME}/Maildir/new")))
    letter = mailhost.read(f"{HOME}/Maildir/cur/1.letter")
    how = ground.mailvek(*MAILNAME)
    assert how.status != 0, how
    assert mailhost.read(f"{HOME}/Maildir/cur/1.letter") == letter
