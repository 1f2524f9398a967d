"""What the running mail server sees of the maps while they are changed."""
import os

import pytest

from clients import addresses, recipient
from mailhost import MAPS, done, postmap, start
from panel import panel_domain, panel_mailname

DOMAIN = "example.com"
AT = f"--domain-name={DOMAIN}"
NAMES = (AT, "--mailname=anna")
CHANGES = int(os.environ.get("MAILVEK_CHANGES", "8"))  # ./dev soak makes more


@pytest.fixture(autouse=True)
def mail_server():
    start("mariadb")
    panel_domain(DOMAIN)
    for name in ("anna", "anita"):
        panel_mailname(f"{name}@{DOMAIN}")
    done("--add-domain", AT)
    done("--add-mailname", *NAMES, "--disk-quota=-1")
    done("--set-reject", AT)
    # The server asks for its domains every ten seconds only, so it starts when they are there.
    start("postfix")
    with addresses():
        yield


def is_accepted(address):
    """Whether a session that begins now may send a letter to the address."""
    code, text = recipient(address)
    assert code == 250 or (code == 550 and "User unknown" in text), (code, text)
    return code == 250


def set_catchall():
    done("--set-catchall", AT, f"--email=anna@{DOMAIN}")


def set_reject():
    done("--set-reject", AT)


def add_alias():
    done("--add-alias", *NAMES, "--alias=ann")


def remove_alias():
    done("--remove-alias", *NAMES, "--alias=ann")


def rename(old, new):
    done("--rename-mailname", AT, f"--old-mailname={old}", f"--new-mailname={new}")


def rename_away():
    rename("anna", "anita")


def rename_back():
    rename("anita", "anna")


@pytest.mark.parametrize(("there", "away", "address"), [
    (set_catchall, set_reject, "nobody"), (add_alias, remove_alias, "ann"), (rename_away, rename_back, "anita"),
], ids=["a catch-all", "an alias", "a rewrite"])
def test_each_of_many_changes_is_seen_at_once(there, away, address):
    for number in range(CHANGES):
        there()
        assert is_accepted(f"{address}@{DOMAIN}"), number
        away()
        assert not is_accepted(f"{address}@{DOMAIN}"), number


def seconds_of(name):
    return int(os.stat(f"{MAPS}/{name}.db").st_mtime)


@pytest.mark.parametrize("larger", [False, True], ids=["a copy", "in place"])
def test_a_maps_time_tells_every_change(larger):
    if larger:
        os.truncate(f"{MAPS}/virtual.db", 40 << 20)
    seen = [seconds_of("virtual")]
    for change in (add_alias, remove_alias, set_catchall, rename_away, rename_back, set_reject):
        change()
        seen.append(seconds_of("virtual"))
        assert f"postmaster@{DOMAIN}" in postmap("virtual")
    assert all(later > earlier for earlier, later in zip(seen, seen[1:])), seen


def test_a_large_file_that_was_never_replaced_is_changed():
    """The host's own map, which gets another number when it gets a second name."""
    os.truncate(f"{MAPS}/aliases.db", 40 << 20)
    before = seconds_of("aliases")
    done("--set-bounce", AT, "--phrase=gone")
    assert f"_orvek_bounce_{DOMAIN}" in postmap("aliases")
    assert seconds_of("aliases") > before


def test_a_change_of_nothing_leaves_the_map_alone():
    before = os.stat(f"{MAPS}/virtual.db")
    done("--remove-alias", *NAMES, "--alias=never")
    after = os.stat(f"{MAPS}/virtual.db")
    assert (after.st_ino, after.st_mtime_ns) == (before.st_ino, before.st_mtime_ns)
