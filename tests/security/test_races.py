"""popuser swaps what the tool has just checked, in every gap that a command leaves him."""
import contextlib
import glob
import os
import stat

import pytest

import attackers
import ground
import mailhost
import races
from ground import ANNA, AT, CANARY, CRON, HOME, KEPT, MAILNAMES, PLAIN, ROOT
from plants import aside

CARL = (AT, "--mailname=carl")


ASIDE = ".OrvekSaved.*"  # what is removed has this name first, with a number


def swapped(pattern, target):
    """Replaces the file by a link, as the directory's owner. The file need not be there."""
    def work():
        directory, name = os.path.split(pattern)
        for path in glob.glob(pattern) if "*" in name else [f"{found}/{name}" for found in glob.glob(directory)]:
            # What is root's as yet he cannot change.
            with contextlib.suppress(PermissionError):
                aside(path)
                os.symlink(target, path)
    attackers.by("popuser", work)


# A name that is swapped, and where the link in its place leads.
SWAPS = {
    "the domain's root": (ROOT, KEPT),
    "the home": (HOME, f"{KEPT}/anna"),
    "the new home": (f"{ROOT}/carl", KEPT),
    "Maildir": (f"{HOME}/Maildir", KEPT),
    "the new Maildir": (f"{ROOT}/carl/Maildir", KEPT),
    "Maildir/tmp": (f"{HOME}/Maildir/tmp", f"{KEPT}/tmp"),
    "Maildir/cur": (f"{HOME}/Maildir/cur", f"{KEPT}/cur"),
    "maildirsize": (f"{HOME}/Maildir/maildirsize", CANARY),
    ".qmail": (f"{HOME}/.qmail", CANARY),
    "the new .qmail": (f"{ROOT}/carl/.qmail", CANARY),
    ".qmail.tmp": (f"{HOME}/.qmail.tmp", CANARY),
    "@attachments": (f"{HOME}/@attachments", KEPT),
    "@attachments as cron": (f"{HOME}/@attachments", CRON),
    "the attachment": (f"{HOME}/@attachments/a.txt", f"{CRON}/planted"),
    "the home aside": (f"{HOME}{ASIDE}", KEPT),
    "Maildir of the home aside": (f"{HOME}{ASIDE}/Maildir", KEPT),
    "Maildir/cur of the home aside": (f"{HOME}{ASIDE}/Maildir/cur", f"{KEPT}/cur"),
    "@attachments of the home aside": (f"{HOME}{ASIDE}/@attachments", CRON),
    "the root aside": (f"{ROOT}{ASIDE}", KEPT),
    "a home of the root aside": (f"{ROOT}{ASIDE}/anna", f"{KEPT}/anna"),
    "Maildir of the root aside": (f"{ROOT}{ASIDE}/anna/Maildir", KEPT),
    "a letter of the root aside": (f"{ROOT}{ASIDE}/anna/Maildir/cur/1.letter", CANARY),
}

RACES = (
    (("--add-redirect", *ANNA, "--redirect-email=b@example.org"), ("the home", ".qmail", ".qmail.tmp", "the domain's root")),
    (("--remove-redirect", *ANNA, "--redirect-email=a@example.org"), ("the home", ".qmail", ".qmail.tmp")),
    (("--add-mailbox", *ANNA), ("the home", ".qmail")),
    (("--remove-mailbox", *ANNA), ("the home", ".qmail", ".qmail.tmp")),
    (("--add-mailname", *CARL, "--disk-quota=50000"),
     ("the domain's root", "the new home", "the new Maildir", "the new .qmail")),
    (("--add-mailname", *ANNA, "--disk-quota=50000"), ("the home", "Maildir", "@attachments", "Maildir/tmp")),
    (("--remove-mailname", *ANNA),
     ("the domain's root", "the home", "Maildir", "@attachments", "the home aside", "Maildir of the home aside",
      "Maildir/cur of the home aside", "@attachments of the home aside")),
    (("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita"), ("the domain's root", "the home")),
    (("--set-mailbox-disk-quota", *ANNA, "--disk-quota=7000000"),
     ("the home", "Maildir", "Maildir/tmp", "Maildir/cur", "maildirsize", "@attachments")),
    (("--get-mailbox-size", *ANNA), ("the home", "Maildir", "maildirsize")),
    (("--add-attachment", *ANNA, "--file-name=/srv/uploads/letter", "--attachment-file-name=a.txt"),
     ("the domain's root", "the home", "@attachments as cron", "the attachment")),
    (("--remove-attachment", *ANNA, "--attachment-file-name=a.txt"), ("the home", "@attachments")),
    (("--list-attachments", "--fullname", *ANNA), ("the home", "@attachments", "the attachment")),
    (("--list-attachments", "--mail-all", AT), ("the domain's root", "the home")),
    (("--add-domain", AT), ("the domain's root",)),
    (("--remove-domain", AT),
     ("the domain's root", "the home", "Maildir", "the root aside", "a home of the root aside", "Maildir of the root aside",
      "a letter of the root aside")),
)


def rows():
    for command, swaps in RACES:
        for swap in swaps:
            carl = " carl" if CARL[1] in command else ""
            yield pytest.param(command, *SWAPS[swap], id=f"{swap} swapped: {command[0][2:]}{carl}")


@pytest.mark.parametrize(("command", "pattern", "target"), rows())
def test_a_swap_in_any_gap_leads_nowhere(ledger, command, pattern, target):
    gaps = races.gaps(*command, path=pattern, env=PLAIN)
    assert gaps, "the command does not go there"
    ground.lay_again()
    before = ground.look()
    for step in gaps:
        how, stopped = races.stopped_after(step, *command, attack=lambda: swapped(pattern, target), env=PLAIN)
        if stopped:
            ledger.tried(f"swapped after {step.shown}", ground.breaches(before, how, allowed=(ground.STORE,)), how)
    ledger.close()


SHARED = "/srv/shared"  # everybody may write here, on the same file system


def moved_out():
    """Moves a directory that the tool is deep in, so that its ".." leads elsewhere."""
    def work():
        os.rename(f"{HOME}/Maildir" + "/d" * 50, f"{SHARED}/moved")
    attackers.by("popuser", work)


def deep_home():
    def work():
        os.makedirs(f"{HOME}/Maildir" + "/d" * 70)
        open(f"{HOME}/Maildir" + "/d" * 70 + "/file", "x").close()
    attackers.by("popuser", work)
    os.makedirs(SHARED, exist_ok=True)
    os.chmod(SHARED, 0o1777)
    os.makedirs(f"{SHARED}/of-root/below", exist_ok=True)
    mailhost.write(f"{SHARED}/of-root/below/file", "root's\n")
    mailhost.write(f"{SHARED}/file", "root's\n", 0o600)


@pytest.mark.parametrize("command", [("--remove-mailname", *ANNA), ("--remove-domain", AT),
                                     ("--get-mailbox-size", *ANNA), ("--set-mailbox-disk-quota", *ANNA, "--disk-quota=9")],
                         ids=lambda command: command[0][2:])
def test_a_directory_that_is_moved_away_takes_nothing_with_it(command):
    deep_home()
    gaps = [step for step in races.steps(*command, where=MAILNAMES) if step.call in ("openat", "openat2", "unlinkat", "chdir")]
    for step in gaps[:: max(1, len(gaps) // 40)]:
        ground.lay_again()
        ground.run("rm", "-rf", SHARED)
        deep_home()
        before = ground.look(his=(MAILNAMES, f"{SHARED}/moved"))
        how, stopped = races.stopped_after(step, *command, attack=quietly(moved_out))
        if stopped:
            found = [line for line in ground.breaches(before, how, allowed=(ground.STORE,)) if not line.startswith(f"changed: {SHARED}:")]
            assert not found, f"moved after {step.shown}\n{how}\n" + "\n".join(found)


def quietly(attack):
    """The attack, without a failure for files that have gone already."""
    def attempt():
        try:
            attack()
        except AssertionError:
            pass
    return attempt


def bits_of_others(*places):
    """Root's files there that have set-id bits or that everybody may write."""
    found = []
    for place in places:
        for directory, directories, files in os.walk(place):
            for name in directories + files:
                path = os.path.join(directory, name)
                status = os.lstat(path)
                special = status.st_mode & (stat.S_ISUID | stat.S_ISGID)
                anybodys = status.st_mode & stat.S_IWOTH and not stat.S_ISLNK(status.st_mode)
                if status.st_uid == 0 and (special or anybodys):
                    found.append(f"{path}: {stat.filemode(status.st_mode)}")
    return found


@pytest.mark.parametrize("mode", [pytest.param(0o6755, marks=pytest.mark.quick), 0o2755,
                                  pytest.param(0o1777, marks=pytest.mark.quick), 0o666])
def test_a_sources_mode_is_no_attachments_mode_at_any_time(mode):
    command = ("--add-attachment", *ANNA, "--file-name=/srv/uploads/letter", "--attachment-file-name=new.txt")
    os.chmod("/srv/uploads/letter", mode)
    seen = []
    for step in races.steps(*command, where="new.txt"):
        if os.path.lexists(f"{HOME}/@attachments/new.txt"):
            os.unlink(f"{HOME}/@attachments/new.txt")
        how, _ = races.stopped_after(step, *command, attack=lambda: seen.extend(bits_of_others(HOME)))
        assert how.status == 0, how
        seen += bits_of_others(HOME)
    assert not seen


def test_an_added_attachment_keeps_no_mode_of_the_one_before():
    path = f"{HOME}/@attachments/a.txt"
    os.chown(path, 0, 0)
    os.chmod(path, 0o4755)
    how = ground.mailvek("--add-attachment", *ANNA, "--file-name=/srv/uploads/letter", "--attachment-file-name=a.txt")
    assert how.status == 0 and not bits_of_others(HOME), how


# ----------------------------------------------------------------- races that nobody arranges


def loop_of_swaps(path, target):
    def swap():
        os.rename(path, f"{path}.aside")
        os.symlink(target, path)
        os.unlink(path)
        os.rename(f"{path}.aside", path)
    return attackers.over_and_over(swap)


LOOPS = {
    "the home": (HOME, f"{KEPT}/anna", ("--add-redirect", *ANNA, "--redirect-email=b@example.org")),
    ".qmail": (f"{HOME}/.qmail", CANARY, ("--add-redirect", *ANNA, "--redirect-email=b@example.org")),
    "Maildir": (f"{HOME}/Maildir", KEPT, ("--set-mailbox-disk-quota", *ANNA, "--disk-quota=7000000")),
    "@attachments": (f"{HOME}/@attachments", CRON,
                     ("--add-attachment", *ANNA, "--file-name=/srv/uploads/letter", "--attachment-file-name=b.txt")),
    "the domain's root": (ROOT, KEPT, ("--add-mailname", *CARL)),
    "the new home": (f"{ROOT}/carl", KEPT, ("--add-mailname", *CARL)),
}


@pytest.mark.parametrize("place", LOOPS)
def test_a_loop_of_swaps_leads_nowhere(place):
    path, target, command = LOOPS[place]
    if not os.path.lexists(path):
        ground.mailvek("--add-mailname", *CARL)
    before = ground.look()
    with attackers.beside("popuser", loop_of_swaps(path, target)):
        for _ in range(40):
            how = ground.mailvek(*command)
            assert how.status is not None, how
    found = ground.breaches(before, how, allowed=(ground.STORE,))
    assert not found, "\n".join(found)
