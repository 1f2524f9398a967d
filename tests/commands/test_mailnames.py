"""--add-mailname, --add-mailbox, --remove-mailbox, --set-password, --get-mailbox-size,
--set-mailbox-disk-quota."""
import os

import pytest

from host_faults import read_only, undo
from mailhost import (
    ACCOUNTS, MAILNAMES, MAPS, auth_domains, auth_rows, described, done, failed, mailvek, nothing_changes, postmap,
    read, stop, system_calls, tree, write,
)
from mailnames import (
    ALIAS, ALL_ACCOUNTS, ANNA, DOMAIN, HOME, NAMES, PLAIN, POSTMAP, addresses,
    domain_without_mailnames, mailname_with_a_mailbox,
)
from panel import panel_domain, panel_mailname, quota_line, waits_for_the_accounts, without_accounts
from spies import Rule, spy

DELIVERY = "| true\n| /usr/bin/deliverquota ./Maildir\n"


@pytest.fixture(autouse=True)
def panel():
    domain_without_mailnames()


# ---------------------------------------------------------------------------- --add-mailname


def test_a_mailname_gets_home_delivery_file_and_records():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    found = tree(HOME)
    assert set(found) == {
        ".qmail", "@attachments", "Maildir", "Maildir/tmp", "Maildir/new", "Maildir/cur", "Maildir/.Spam",
        "Maildir/.Spam/tmp", "Maildir/.Spam/new", "Maildir/.Spam/cur", "Maildir/maildirsize"}
    assert described(HOME) == "d 0700 popuser:popuser"
    assert {said for path, said in found.items() if said[0] == "d"} == {"d 0700 popuser:popuser"}
    assert found[".qmail"] == "f 0600 popuser:popuser"
    assert read(f"{HOME}/.qmail") == "| true\n"
    assert read(f"{HOME}/Maildir/maildirsize").startswith(quota_line(HOME, 100000))
    assert postmap("vmailbox") == {ANNA: f"{DOMAIN}/anna/Maildir/"}
    assert addresses() == {ANNA: ANNA, f"anna@{ALIAS}": ANNA}
    assert auth_rows() == {}


def test_without_a_quota_the_limit_of_the_domain_holds():
    panel_domain("second.test", quota=471100)
    panel_mailname("anna@second.test")
    done("--add-domain", "--domain-name=second.test")
    done("--add-mailname", "--domain-name=second.test", "--mailname=anna")
    assert read(f"{MAILNAMES}/second.test/anna/Maildir/maildirsize").startswith(quota_line(f"{MAILNAMES}/second.test/anna", 471100))


def test_a_mailname_that_is_there_can_be_added_again():
    done("--add-mailname", *NAMES)
    write(f"{HOME}/Maildir/new/letter", "A letter\n")
    done("--add-mailname", *NAMES)
    assert read(f"{HOME}/Maildir/new/letter") == "A letter\n"
    assert addresses() == {ANNA: ANNA, f"anna@{ALIAS}": ANNA}


@pytest.mark.parametrize("name", ["../x", "a..b", ""])
def test_an_invalid_local_part_changes_nothing(name):
    with nothing_changes():
        ended = mailvek("--add-mailname", f"--domain-name={DOMAIN}", f"--mailname={name}")
    assert ended.status == 1 and ended.err != "", ended


def test_a_domain_unknown_to_the_panel_ends_after_the_home():
    ended = failed("--add-mailname", "--domain-name=unknown.test", "--mailname=anna", saying="No such domain")
    assert "unable to remove quota" in ended.err and "No data available" in ended.err
    assert "Resource temporarily unavailable" not in ended.err
    assert os.path.isdir(f"{MAILNAMES}/unknown.test/anna/Maildir") and postmap("vmailbox") == {}


def test_maps_that_cannot_be_changed_leave_the_home():
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n"))
    failed("--add-mailname", *NAMES, "--disk-quota=50000", saying="postmap: fatal: no")
    assert os.path.isdir(f"{HOME}/Maildir") and addresses() == {}
    undo(POSTMAP)
    done("--add-mailname", *NAMES, "--disk-quota=50000")
    assert addresses() == {ANNA: ANNA, f"anna@{ALIAS}": ANNA}


def test_the_second_map_failing_leaves_the_record_of_the_first():
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n", having=f"hash:{MAPS}/virtual"))
    failed("--add-mailname", *NAMES, "--disk-quota=50000", saying="postmap: fatal: no")
    assert postmap("vmailbox") == {ANNA: f"{DOMAIN}/anna/Maildir/"} and addresses() == {}


def test_without_the_panels_database_no_quota_can_be_looked_up():
    stop("mariadb")
    ended = failed("--add-mailname", *NAMES, saying="unable to remove quota")
    assert "unable to connect to MySQL" in ended.err
    assert postmap("vmailbox") == {}


def test_without_the_panel_only_the_domain_gets_the_address():
    stop("mariadb")
    ended = mailvek("--add-mailname", *NAMES, "--disk-quota=50000")
    assert ended.status == 0 and "Unable to get domain aliases from database for: example.com" in ended.err, ended
    assert addresses() == {ANNA: ANNA}


def test_a_root_that_cannot_be_written_changes_nothing():
    read_only(MAILNAMES)
    failed("--add-mailname", *NAMES, saying="Read-only file system")
    assert postmap("vmailbox") == {} and addresses() == {}


# ------------------------------------------------------------------------------ --add-mailbox


def test_a_mailbox_has_delivery_and_accounts_under_all_domains():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--add-mailbox", *NAMES, env=PLAIN)
    assert read(f"{HOME}/.qmail") == DELIVERY
    assert auth_rows() == {ANNA: ("secret", None, 0), f"anna@{ALIAS}": ("secret", None, 0)}


def test_an_encrypted_password_is_kept_encrypted():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--add-mailbox", *NAMES, env={"ORV_CRYPTED_PASSWORD": "$1$salt$hash"})
    assert auth_rows()[ANNA] == (None, "$1$salt$hash", 0)


@pytest.mark.parametrize("option", ["--mail-domain-disabled", "-D"])
def test_a_mailbox_registers_its_switched_off_domain_as_off(option):
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--add-mailbox", *NAMES, option, env=PLAIN)
    assert auth_domains()[DOMAIN] != 0


@pytest.mark.parametrize("env", [{}, {"ORV_PASSWORD": ""}])
def test_without_a_password_the_accounts_go(env):
    mailname_with_a_mailbox()
    done("--add-mailbox", *NAMES, env=env)
    assert sorted(auth_rows()) == [f"ann@{ALIAS}", f"ann@{DOMAIN}"]


def test_accounts_that_cannot_be_set_leave_delivery_enabled():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    os.rename(ACCOUNTS, ACCOUNTS + ".away")
    assert mailvek("--add-mailbox", *NAMES, env=PLAIN).status == 1
    assert read(f"{HOME}/.qmail") == DELIVERY


def test_a_delivery_file_that_cannot_be_changed_keeps_the_accounts():
    failed("--add-mailbox", *NAMES, env=PLAIN, saying="unable to modify ")
    assert auth_rows() == {}


def test_an_account_database_that_is_locked_is_waited_for():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    ended = waits_for_the_accounts("--add-mailbox", *NAMES, env=PLAIN)
    assert ended.status == 0, ended
    assert sorted(auth_rows()) == [f"anna@{ALIAS}", ANNA]


def test_the_password_reaches_no_argument_no_environment_and_no_report():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    ended, lines = system_calls("--add-mailbox", *NAMES, calls="execve", env={"ORV_PASSWORD": "topsecret"})
    assert ended.status == 0 and len(lines) >= 1
    assert "topsecret" not in "".join(lines) and "topsecret" not in ended.out + ended.err


# --------------------------------------------------------------------------- --remove-mailbox


def test_a_removed_mailbox_has_neither_delivery_nor_accounts():
    mailname_with_a_mailbox()
    assert sorted(auth_rows()) == ALL_ACCOUNTS
    done("--remove-mailbox", *NAMES)
    assert read(f"{HOME}/.qmail") == "| true\n"
    assert auth_rows() == {} and os.path.isdir(f"{HOME}/Maildir")
    assert ANNA in postmap("vmailbox")


def test_failed_account_removals_fail_with_delivery_off():
    mailname_with_a_mailbox()
    without_accounts()
    assert mailvek("--remove-mailbox", *NAMES).status == 1
    assert read(f"{HOME}/.qmail") == "| true\n"


# ----------------------------------------------------------------------------- --set-password


def test_a_password_reaches_the_mail_aliases_under_all_domains():
    mailname_with_a_mailbox()
    done("--set-password", *NAMES, env={"ORV_PASSWORD": "another"})
    assert auth_rows() == {address: ("another", None, 0) for address in ALL_ACCOUNTS}


def test_a_plain_password_wins_over_an_encrypted_one():
    done("--set-password", *NAMES, env={"ORV_PASSWORD": "plain", "ORV_CRYPTED_PASSWORD": "crypted"})
    assert auth_rows()[ANNA] == ("plain", None, 0)


@pytest.mark.parametrize("password", ["pass'word", 'pass"word', "pass%sword", "pässwörd", "a" * 1000, "$(id)\\"])
def test_a_password_of_any_bytes_is_kept_as_it_is(password):
    done("--set-password", *NAMES, env={"ORV_PASSWORD": password})
    assert auth_rows()[ANNA][0] == password


def test_an_empty_password_removes_the_accounts():
    mailname_with_a_mailbox()
    done("--set-password", *NAMES, env={"ORV_PASSWORD": ""})
    assert auth_rows() == {}


def test_without_the_panel_only_the_domains_account_is_set():
    mailname_with_a_mailbox()
    stop("mariadb")
    failed("--set-password", *NAMES, env={"ORV_PASSWORD": "another"},
           saying="Unable to get domain aliases for domain example.com")
    assert auth_rows()[ANNA][0] == "another" and auth_rows()[f"anna@{ALIAS}"][0] == "secret"


# ------------------------------------------------------------------------- --get-mailbox-size


def test_the_size_counts_letters_and_attachments_without_line_end():
    done("--add-mailname", *NAMES, "--disk-quota=-1")
    os.remove(f"{HOME}/Maildir/maildirsize")
    write(f"{HOME}/Maildir/new/1.a.host,S=500", "x")
    write(f"{HOME}/Maildir/.Spam/cur/2.b.host,S=40:2,S", "x")
    ended = mailvek("--get-mailbox-size", *NAMES)
    attachments = os.lstat(f"{HOME}/@attachments").st_size
    assert (ended.status, ended.out, ended.err) == (0, str(540 + attachments), ""), ended


def test_the_size_in_blocks_takes_the_attachments_in_blocks():
    done("--add-mailname", *NAMES, "--disk-quota=-1")
    write(f"{HOME}/@attachments/big", "x" * 5000)
    expected = sum(os.lstat(path).st_blocks * 512 for path in (f"{HOME}/@attachments", f"{HOME}/@attachments/big"))
    ended = mailvek("--get-mailbox-size", "--in-blocks", *NAMES)
    assert (ended.status, ended.out) == (0, str(expected)), ended


def test_the_size_of_a_missing_mailbox_is_a_failure():
    ended = mailvek("--get-mailbox-size", *NAMES)
    assert ended.status == 1 and not ended.out.strip().isdigit(), ended


# -------------------------------------------------------------------- --set-mailbox-disk-quota


@pytest.mark.parametrize("quota, written", [("5000", "5000S"), ("-1", "0S"), ("0", "1S")])
def test_the_quota_of_a_mailbox_is_written(quota, written):
    done("--add-mailname", *NAMES, "--disk-quota=77")
    os.rmdir(f"{HOME}/@attachments")
    done("--set-mailbox-disk-quota", *NAMES, f"--disk-quota={quota}")
    assert read(f"{HOME}/Maildir/maildirsize").startswith(f"{written},0C\n")
    assert described(f"{HOME}/Maildir/maildirsize").endswith("popuser:popuser")


def test_the_quota_of_a_missing_mailbox_is_a_failure():
    failed("--set-mailbox-disk-quota", *NAMES, "--disk-quota=50000", saying="No such file or directory")
