"""--add-mailname, --remove-mailname, --rename-mailname, --add-mailbox, --remove-mailbox,
--get-mailbox-size, --set-password, --set-mailbox-disk-quota."""
import concurrent.futures
import os

import pytest

from mailhost import (
    ACCOUNTS, MAILNAMES, MAPS, Rule, auth_domains, auth_rows, auth_sql, calls, described, mailvek,
    nothing_changes, postmap, read, read_only, spy, start, stop, system_calls, tree, undo, wait_until, write,
)
from panel import (
    add_hook, damage_hooks, hooks, panel_domain, panel_domain_alias, panel_mail_alias, panel_mailname,
    quota_line, standard_addresses, waits_for_the_accounts, without_accounts,
)

POSTMAP = "/usr/sbin/postmap"
DOMAIN, ALIAS, OTHER = "example.com", "alias.test", "alias.example"
HOME = f"{MAILNAMES}/{DOMAIN}/anna"
ANNA = f"anna@{DOMAIN}"
NAMES = (f"--domain-name={DOMAIN}", "--mailname=anna")
PLAIN = {"ORV_PASSWORD": "secret"}
DELIVERY = "| true\n| /usr/bin/deliverquota ./Maildir\n"


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    panel_domain(DOMAIN, aliases=[ALIAS])
    panel_mailname(ANNA, aliases=["ann"])
    done("--add-domain", f"--domain-name={DOMAIN}")


def done(*arguments, env=None):
    ended = mailvek(*arguments, env=env)
    assert (ended.status, ended.out, ended.err) == (0, "", ""), ended


def failed(*arguments, saying, status=1, env=None):
    ended = mailvek(*arguments, env=env)
    assert ended.status == status and saying in ended.err, ended
    return ended


def addresses():
    """The records of virtual beside the standard addresses."""
    standard = standard_addresses(DOMAIN) | standard_addresses(ALIAS) | standard_addresses(OTHER)
    return {key: value for key, value in postmap("virtual").items() if key not in standard}


def mailname_with_a_mailbox():
    """anna and her mail alias ann, with accounts under the domain and the alias domain."""
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--add-alias", *NAMES, "--alias=ann")
    done("--add-mailbox", *NAMES, env=PLAIN)
    done("--set-password", *NAMES, env=PLAIN)


ALL_ACCOUNTS = [f"ann@{ALIAS}", f"ann@{DOMAIN}", f"anna@{ALIAS}", ANNA]


# ---------------------------------------------------------------------------- --add-mailname


def test_a_mailname_gets_its_home_its_delivery_file_and_its_records():
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
def test_a_local_part_that_is_none_is_refused_and_changes_nothing(name):
    with nothing_changes():
        ended = mailvek("--add-mailname", f"--domain-name={DOMAIN}", f"--mailname={name}")
    assert ended.status == 1 and ended.err != "", ended


def test_a_domain_that_the_panel_does_not_know_ends_it_behind_the_home():
    ended = failed("--add-mailname", "--domain-name=unknown.test", "--mailname=anna", saying="No such domain")
    assert "unable to remove quota" in ended.err
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


def test_without_the_panels_database_and_with_a_quota_the_domain_alone_gets_the_address():
    stop("mariadb")
    ended = mailvek("--add-mailname", *NAMES, "--disk-quota=50000")
    assert ended.status == 0 and "Unable to get domain aliases from database for: example.com" in ended.err, ended
    assert addresses() == {ANNA: ANNA}


def test_a_root_that_cannot_be_written_changes_nothing():
    read_only(MAILNAMES)
    failed("--add-mailname", *NAMES, saying="Read-only file system")
    assert postmap("vmailbox") == {} and addresses() == {}


# ------------------------------------------------------------------------------ --add-mailbox


def test_a_mailbox_is_delivered_to_and_has_accounts_under_all_domains():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--add-mailbox", *NAMES, env=PLAIN)
    assert read(f"{HOME}/.qmail") == DELIVERY
    assert auth_rows() == {ANNA: ("secret", None, 0), f"anna@{ALIAS}": ("secret", None, 0)}


def test_an_encrypted_password_is_kept_encrypted():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--add-mailbox", *NAMES, env={"ORV_CRYPTED_PASSWORD": "$1$salt$hash"})
    assert auth_rows()[ANNA] == (None, "$1$salt$hash", 0)


@pytest.mark.parametrize("option", ["--mail-domain-disabled", "-D"])
def test_a_mailbox_of_a_domain_that_is_off_registers_it_as_off(option):
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


def test_a_removed_mailbox_is_not_delivered_to_and_has_no_accounts():
    mailname_with_a_mailbox()
    assert sorted(auth_rows()) == ALL_ACCOUNTS
    done("--remove-mailbox", *NAMES)
    assert read(f"{HOME}/.qmail") == "| true\n"
    assert auth_rows() == {} and os.path.isdir(f"{HOME}/Maildir")
    assert ANNA in postmap("vmailbox")


def test_accounts_that_cannot_be_removed_are_a_failure_with_delivery_off():
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


def test_without_the_panels_database_the_account_of_the_domain_alone_is_set():
    mailname_with_a_mailbox()
    stop("mariadb")
    failed("--set-password", *NAMES, env={"ORV_PASSWORD": "another"},
           saying="Unable to get domain aliases for domain example.com")
    assert auth_rows()[ANNA][0] == "another" and auth_rows()[f"anna@{ALIAS}"][0] == "secret"


# ------------------------------------------------------------------------- --get-mailbox-size


def test_the_size_is_the_letters_and_the_attachments_without_a_line_end():
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


def test_the_size_of_a_mailbox_that_is_not_there_is_a_failure():
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


def test_the_quota_of_a_mailbox_that_is_not_there_is_a_failure():
    failed("--set-mailbox-disk-quota", *NAMES, "--disk-quota=50000", saying="No such file or directory")


# -------------------------------------------------------------------------- --rename-mailname


RENAME = (f"--domain-name={DOMAIN}", "--old-mailname=anna", "--new-mailname=anita")


def test_a_rename_with_the_password_moves_records_accounts_home_and_hooks():
    mailname_with_a_mailbox()
    add_hook(ANNA)
    done("--rename-mailname", *RENAME, env=PLAIN)
    # The mailbox record keeps its value, and mail aliases follow by their values.
    assert postmap("vmailbox") == {f"anita@{DOMAIN}": f"{DOMAIN}/anna/Maildir/"}
    new = f"anita@{DOMAIN}"
    assert addresses() == {new: new, f"anita@{ALIAS}": new, f"ann@{DOMAIN}": new, f"ann@{ALIAS}": new}
    assert sorted(auth_rows()) == sorted([new, f"anita@{ALIAS}", f"ann@{DOMAIN}", f"ann@{ALIAS}"])
    assert os.listdir(f"{MAILNAMES}/{DOMAIN}") == ["anita"]
    assert hooks() == [f"recipient/{new}"]


@pytest.mark.parametrize("env", [{}, {"ORV_PASSWORD": ""}])
def test_a_rename_without_the_password_removes_the_accounts_and_leaves_the_alias_domains(env):
    mailname_with_a_mailbox()
    add_hook(ANNA)
    done("--rename-mailname", *RENAME, env=env)
    new = f"anita@{DOMAIN}"
    assert addresses() == {new: new, f"anna@{ALIAS}": new, f"ann@{DOMAIN}": new, f"ann@{ALIAS}": new}
    assert sorted(auth_rows()) == [f"ann@{ALIAS}", f"ann@{DOMAIN}"]
    assert hooks() == [f"recipient/{new}"]


def test_a_rename_onto_a_mailname_that_is_there_is_taken_back():
    mailname_with_a_mailbox()
    panel_mailname(f"anita@{DOMAIN}")
    done("--add-mailname", f"--domain-name={DOMAIN}", "--mailname=anita", "--disk-quota=50000")
    before = postmap("vmailbox").keys(), os.listdir(HOME), auth_rows()
    failed("--rename-mailname", *RENAME, env=PLAIN, saying="rename")
    assert os.listdir(HOME) == before[1] and auth_rows() == before[2]


def test_a_home_that_cannot_be_renamed_restores_both_maps():
    mailname_with_a_mailbox()
    before = postmap("vmailbox"), postmap("virtual"), auth_rows()
    read_only(MAILNAMES)
    failed("--rename-mailname", *RENAME, env=PLAIN, saying="Read-only file system")
    assert (postmap("vmailbox"), postmap("virtual"), auth_rows()) == before


def test_a_second_map_that_cannot_be_changed_restores_the_first():
    mailname_with_a_mailbox()
    before = postmap("vmailbox"), postmap("virtual")
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n", having=f"hash:{MAPS}/virtual"))
    failed("--rename-mailname", *RENAME, env=PLAIN, saying="postmap: fatal: no")
    assert (postmap("vmailbox"), postmap("virtual")) == before and os.path.isdir(HOME)


def test_maps_that_cannot_be_restored_are_told_by_name():
    mailname_with_a_mailbox()
    read_only(MAILNAMES)
    # Two runs for each of the two maps, and every one behind them fails.
    spy(POSTMAP, *[Rule(times=4)], Rule(exit=1, err="postmap: fatal: no\n"))
    ended = failed("--rename-mailname", *RENAME, env=PLAIN, saying="Read-only file system")
    for title in ("Postfix Virtual Aliases Database", "Postfix Virtual Mailboxes Database"):
        assert f"CRITICAL ERROR: Unable to properly restore {title} used by Orvek.\n" in ended.err
    assert ended.err.index("Aliases Database") < ended.err.index("Mailboxes Database")


def test_without_the_panels_database_a_rename_ends_behind_the_account_of_the_domain():
    mailname_with_a_mailbox()
    stop("mariadb")
    failed("--rename-mailname", *RENAME, env=PLAIN,
           saying=f"ERROR: unable get domain aliases for domain {DOMAIN}\n")
    assert f"anita@{DOMAIN}" in auth_rows() and f"anna@{ALIAS}" in auth_rows()


def test_an_account_that_cannot_be_renamed_is_told_behind_the_alias_domains_and_keeps_the_hooks():
    mailname_with_a_mailbox()
    add_hook(ANNA)
    auth_sql("INSERT INTO users (dom_id, name, userPassword) "
             f"SELECT id, 'anita', 'taken' FROM domains WHERE name = '{DOMAIN}'")
    ended = mailvek("--rename-mailname", *RENAME, env=PLAIN)
    assert ended.status == 255, ended
    assert f"anita@{ALIAS}" in auth_rows() and f"anna@{ALIAS}" not in auth_rows()
    assert f"anita@{ALIAS}" in postmap("virtual")
    assert hooks() == [f"recipient/{ANNA}"]


def test_an_account_under_an_alias_domain_that_cannot_be_renamed_ends_it_at_once():
    mailname_with_a_mailbox()
    auth_sql("INSERT INTO users (dom_id, name, userPassword) "
             f"SELECT id, 'anita', 'taken' FROM domains WHERE name = '{ALIAS}'")
    ended = mailvek("--rename-mailname", *RENAME, env=PLAIN)
    assert ended.status == 1, ended
    assert f"anita@{DOMAIN}" in auth_rows() and f"anna@{ALIAS}" in postmap("virtual")


def test_hooks_that_cannot_be_moved_are_a_warning():
    mailname_with_a_mailbox()
    damage_hooks()
    ended = mailvek("--rename-mailname", *RENAME, env=PLAIN)
    warning = f"WARNING: unable to re-assign some of mail handlers from {ANNA} to anita@{DOMAIN}\n"
    assert ended.status == 0 and ended.out.endswith(warning) and ended.err.endswith(warning), ended


def test_a_new_name_that_is_none_is_refused_before_anything_changes():
    mailname_with_a_mailbox()
    with nothing_changes():
        ended = mailvek("--rename-mailname", f"--domain-name={DOMAIN}", "--old-mailname=anna",
                        "--new-mailname=an..ita", env=PLAIN)
    assert ended.status == 1 and "an..ita" in ended.err, ended


# -------------------------------------------------------------------------- --remove-mailname


def test_a_removed_mailname_leaves_its_mail_aliases_and_nothing_else():
    mailname_with_a_mailbox()
    add_hook(ANNA)
    add_hook(f"ann@{DOMAIN}")
    add_hook(f"other@{DOMAIN}")
    done("--remove-mailname", *NAMES)
    assert auth_rows() == {} and postmap("vmailbox") == {}
    assert addresses() == {f"ann@{DOMAIN}": ANNA, f"ann@{ALIAS}": ANNA}
    assert os.listdir(f"{MAILNAMES}/{DOMAIN}") == []
    assert hooks() == [f"recipient/other@{DOMAIN}"]


def test_the_hooks_of_a_removed_mailname_go_in_the_order_given():
    """One walk for the mailname, then its name under each alias domain, then each mail alias
    under the domain, then each of them under each alias domain."""
    panel_domain_alias(DOMAIN, OTHER)
    panel_domain_alias(DOMAIN, "third.test")
    panel_mail_alias(ANNA, "annie")
    mailname_with_a_mailbox()
    damage_hooks()
    ended = mailvek("--remove-mailname", *NAMES)
    told = [line for line in ended.err.splitlines() if line.startswith(("WARNING", "ERROR"))]
    aliases, mail_aliases = [ALIAS, OTHER, "third.test"], ["ann", "annie"]
    assert ended.status == 0
    assert told == (
        [f"WARNING: unable to remove some of mail handlers for {ANNA}"]
        + [f"ERROR: unable to remove mail handler for {address}" for address in (
            [f"anna@{alias}" for alias in aliases] + [f"{name}@{DOMAIN}" for name in mail_aliases]
            + [f"{name}@{alias}" for name in mail_aliases for alias in aliases])])


def test_accounts_that_cannot_be_removed_keep_the_mailname():
    mailname_with_a_mailbox()
    before = postmap("virtual"), postmap("vmailbox")
    without_accounts()
    assert mailvek("--remove-mailname", *NAMES).status == 1
    assert (postmap("virtual"), postmap("vmailbox")) == before and os.path.isdir(HOME)


def test_maps_that_cannot_be_changed_keep_home_and_hooks():
    mailname_with_a_mailbox()
    add_hook(ANNA)
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n"))
    failed("--remove-mailname", *NAMES, saying="postmap: fatal: no")
    assert os.path.isdir(HOME) and hooks() == [f"recipient/{ANNA}"]
    undo(POSTMAP)
    done("--remove-mailname", *NAMES)
    assert postmap("vmailbox") == {}


def test_a_home_that_cannot_be_removed_keeps_the_hooks():
    mailname_with_a_mailbox()
    add_hook(ANNA)
    read_only(MAILNAMES)
    failed("--remove-mailname", *NAMES, saying="Read-only file system")
    assert postmap("vmailbox") == {} and hooks() == [f"recipient/{ANNA}"]


def test_an_alias_list_that_cannot_be_read_is_a_failure_behind_the_removal():
    mailname_with_a_mailbox()
    spy(POSTMAP, Rule(delay=1, times=1))
    with concurrent.futures.ThreadPoolExecutor() as pool:
        removal = pool.submit(mailvek, "--remove-mailname", *NAMES)
        wait_until(lambda: calls(POSTMAP))  # the accounts are gone, the maps are next
        stop("mariadb")
        ended = removal.result()
    assert ended.status == 1, ended
    assert f"ERROR: unable get domain aliases for domain {DOMAIN}\n" in ended.err
    assert auth_rows() == {} and postmap("vmailbox") == {} and not os.path.exists(HOME)
