"""A customer's names at their edges: very long ones, spellings of one name, options of other programs."""
import os

import pytest

import ground
import mailhost
from customers import attacked
from ground import ANNA, AT, HOME, MAILNAMES, ROOT, STORE, VICTIM

# --------------------------------------------------------------------- names of attachments

ATTACHED = ("../.qmail", "..", ".", "", "a/b", "../../ben/.qmail", f"../../../{VICTIM}/bob/.qmail", "x" * 256, "/etc/planted")


@pytest.mark.quick
def test_an_attachments_name_is_no_path(ledger):
    """An upload in the place of a delivery file would be run."""
    for name in ATTACHED:
        for verb in (("--add-attachment", *ANNA, "--file-name=/srv/uploads/letter"), ("--remove-attachment", *ANNA)):
            delivered = mailhost.read(f"{HOME}/.qmail")
            how, found = attacked(*verb, f"--attachment-file-name={name}")
            if (how.status == 0 and verb[0] == "--add-attachment") or mailhost.read(f"{HOME}/.qmail") != delivered:
                found.append("it was taken")
            ledger.tried(f"attachment {name[:20]!r}: {verb[0]}", found, how)
    ledger.close()


# ---------------------------------------------------------------------------- very long names


def of_long_names():
    """What there is of a name of many x."""
    records = [key for name in ("virtual", "vmailbox") for key in mailhost.postmap(name) if "xxx" in key]
    handlers = [path for path in mailhost.tree(STORE) if "xxx" in path]
    homes = [name for name in os.listdir(ROOT) if "xxx" in name]
    return records, handlers, homes, [name for name in mailhost.auth_rows() if "xxx" in name]


@pytest.mark.parametrize("length", [256, 300, 4000, 100_000])
@pytest.mark.parametrize("verb", ["--add-mailname", "--add-mailbox", "--rename-mailname", "--add-alias", "--set-password"])
def test_a_name_that_is_too_long_leaves_no_half(verb, length):
    name = "x" * length
    words = {"--rename-mailname": (AT, "--old-mailname=anna", f"--new-mailname={name}"),
             "--add-alias": (*ANNA, f"--alias={name}")}.get(verb, (AT, f"--mailname={name}"))
    how, found = attacked(verb, *words)
    records, handlers, homes, accounts = of_long_names()
    if how.status == 0:
        # A name may be one of the map's or the accounts' alone, which hold any length.
        assert not homes and verb in ("--add-alias", "--set-password", "--add-mailbox"), how
    else:
        assert not (records or handlers or homes or accounts), f"{how}\n{records}{handlers}{homes}{accounts}"
    assert not found, f"{how}\n{found}"


# ------------------------------------------------------------------------- spellings of a domain

SPELLINGS = ("ｖｉｃｔｉｍ.test", "victim。test", "victim．test", "victim.te\u00adst", "vic\u200btim.test", "ⅴⅰctⅰm.test")
REFUSED = ("．．", "‥", "／etc", "℀.test", "victim.test.", "a\u202e.test", "\udcff.test", "[127.0.0.1]", "*.test", "@attachments",
           "-froot", "victim.test%00", "x" * 64 + ".test", ("a" * 63 + ".") * 4 + "test", "a..test", ".test", "x--\n")


@pytest.mark.quick
def test_a_spelling_is_no_second_domain(ledger):
    for name in SPELLINGS:
        before = set(os.listdir(MAILNAMES))
        how = ground.mailvek("--add-domain", f"--domain-name={name}")
        found = ["another directory was made"] if set(os.listdir(MAILNAMES)) != before else []
        ledger.tried(f"spelling {ascii(name)}", found, how)
    ledger.close()


def test_a_name_that_is_no_domain_is_refused(ledger):
    for name in REFUSED:
        before = set(os.listdir(MAILNAMES))
        how, found = attacked("--add-domain", f"--domain-name={name}")
        if how.status == 0 or not how.err or set(os.listdir(MAILNAMES)) != before:
            found.append("it was taken")
        ledger.tried(f"no domain {ascii(name)}", found, how)
    ledger.close()


# ------------------------------------------------------------------- options of other programs

KEYS = ("-", "--", "-i", "-r", "-@x", "@", "*", "-froot")


def test_a_key_is_no_option_of_postmap(ledger):
    """Standard input stays open: a program that took the key for an option would read it."""
    for key in KEYS:
        for verb in ("--add-badmailfrom", "--remove-badmailfrom"):
            reading, writing = os.pipe()
            try:
                how, found = attacked(verb, f"--domain-name={key}", stdin=reading)
                found = [line for line in found if not line.startswith(f"record: blacklists: {key}:")]
            finally:
                os.close(reading)
                os.close(writing)
            ledger.tried(f"key {key!r}: {verb}", found, how)
    ledger.close()


NUMBERS = ("-1", "-2147483649", "9223372036854775808", "99999999999999999999999", "1e9", "0x10", "+5", " 5", "5abc", "5\n6", "")


@pytest.mark.parametrize("verb", ["--set-mailbox-disk-quota", "--set-domain-disk-quota"])
def test_a_number_out_of_bounds_harms_nothing(ledger, verb):
    words = ANNA if verb == "--set-mailbox-disk-quota" else (AT,)
    for number in NUMBERS:
        how, found = attacked(verb, *words, f"--disk-quota={number}")
        if os.path.exists(f"{HOME}/Maildir/maildirsize"):
            line = mailhost.read(f"{HOME}/Maildir/maildirsize").splitlines()[0]
            if not line.split("S")[0].isdigit():
                found.append(f"the quota is {line!r}")
        ledger.tried(f"number {number!r}: {verb}", found, how)
    ledger.close()
