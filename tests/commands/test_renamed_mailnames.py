"""--rename-mailname, --remove-mailname."""
import concurrent.futures
import os

import pytest

from host_faults import map_held, read_only, undo
from mailhost import (
    MAILNAMES, MAPS, auth_rows, auth_sql, done, failed, mailvek, nothing_changes, postmap, stop, wait_until,
)
from mailnames import (
    ALIAS, ANNA, DOMAIN, HOME, NAMES, OTHER, PLAIN, POSTMAP, addresses, domain_without_mailnames,
    mailname_with_a_mailbox,
)
from panel import (
    add_hook, damage_hooks, hooks, panel_domain_alias, panel_mail_alias,
    without_accounts,
)
from spies import Rule, spy


@pytest.fixture(autouse=True)
def panel():
    domain_without_mailnames()


# -------------------------------------------------------------------------- --rename-mailname


RENAME = (f"--domain-name={DOMAIN}", "--old-mailname=anna", "--new-mailname=anita")


def test_a_rename_with_password_moves_records_accounts_home_hooks():
    mailname_with_a_mailbox()
    add_hook(ANNA)
    done("--rename-mailname", *RENAME, env=PLAIN)
    # The mailbox record keeps its value. The records of mail aliases get the new name as value.
    assert postmap("vmailbox") == {f"anita@{DOMAIN}": f"{DOMAIN}/anna/Maildir/"}
    new = f"anita@{DOMAIN}"
    assert addresses() == {new: new, f"anita@{ALIAS}": new, f"ann@{DOMAIN}": new, f"ann@{ALIAS}": new}
    assert sorted(auth_rows()) == sorted([new, f"anita@{ALIAS}", f"ann@{DOMAIN}", f"ann@{ALIAS}"])
    assert os.listdir(f"{MAILNAMES}/{DOMAIN}") == ["anita"]
    assert hooks() == [f"recipient/{new}"]


@pytest.mark.parametrize("env", [{}, {"ORV_PASSWORD": ""}])
def test_a_rename_without_password_removes_only_the_domains_accounts(env):
    mailname_with_a_mailbox()
    add_hook(ANNA)
    done("--rename-mailname", *RENAME, env=env)
    new = f"anita@{DOMAIN}"
    assert addresses() == {new: new, f"anna@{ALIAS}": new, f"ann@{DOMAIN}": new, f"ann@{ALIAS}": new}
    assert sorted(auth_rows()) == [f"ann@{ALIAS}", f"ann@{DOMAIN}"]
    assert hooks() == [f"recipient/{new}"]


def test_a_home_that_cannot_be_renamed_restores_both_maps():
    mailname_with_a_mailbox()
    before = postmap("vmailbox"), postmap("virtual"), auth_rows()
    read_only(MAILNAMES)
    failed("--rename-mailname", *RENAME, env=PLAIN, saying="Read-only file system")
    assert (postmap("vmailbox"), postmap("virtual"), auth_rows()) == before


def test_a_second_map_that_cannot_be_changed_restores_the_first():
    mailname_with_a_mailbox()
    before = postmap("vmailbox"), postmap("virtual")
    # Two runs rewrite the first map.
    spy(POSTMAP, Rule(times=2), Rule(exit=1, err="postmap: fatal: no\n", having=f"hash:{MAPS}/virtual"))
    failed("--rename-mailname", *RENAME, env=PLAIN, saying="postmap: fatal: no")
    assert (postmap("vmailbox"), postmap("virtual")) == before and os.path.isdir(HOME)


def test_maps_that_cannot_be_restored_are_told_by_name():
    mailname_with_a_mailbox()
    read_only(MAILNAMES)
    # Two runs for each of the two maps succeed, and every later one fails.
    spy(POSTMAP, Rule(times=4), Rule(exit=1, err="postmap: fatal: no\n"))
    ended = failed("--rename-mailname", *RENAME, env=PLAIN, saying="Read-only file system")
    for title in ("Postfix Virtual Aliases Database", "Postfix Virtual Mailboxes Database"):
        assert f"CRITICAL ERROR: Unable to properly restore {title} used by Orvek.\n" in ended.err
    assert ended.err.index("Aliases Database") < ended.err.index("Mailboxes Database")


def test_alias_domains_whose_accounts_stay_keep_their_addresses():
    mailname_with_a_mailbox()
    panel_domain_alias(DOMAIN, OTHER)
    done("--set-password", *NAMES, env=PLAIN)
    done("--add-domain-alias", f"--domain-name={DOMAIN}", f"--domain-alias-name={OTHER}", "--set-reject")
    auth_sql("INSERT INTO users (dom_id, name, userPassword) "
             f"SELECT id, 'anita', 'taken' FROM domains WHERE name = '{OTHER}'")
    assert mailvek("--rename-mailname", *RENAME, env=PLAIN).status == 1
    new = f"anita@{DOMAIN}"
    found = addresses()
    assert found[f"anita@{ALIAS}"] == found[f"anna@{OTHER}"] == new
    assert f"anna@{ALIAS}" not in found and f"anita@{OTHER}" not in found
    auth_sql("DELETE FROM users WHERE userPassword = 'taken'")
    done("--rename-mailname", *RENAME, env=PLAIN)
    assert addresses()[f"anita@{OTHER}"] == new and f"anita@{OTHER}" in auth_rows()
    assert f"anna@{OTHER}" not in addresses()


def test_addresses_that_cannot_be_taken_back_are_told():
    mailname_with_a_mailbox()
    auth_sql("INSERT INTO users (dom_id, name, userPassword) "
             f"SELECT id, 'anita', 'taken' FROM domains WHERE name = '{ALIAS}'")
    spy(POSTMAP, Rule(times=4), Rule(exit=1, err="postmap: fatal: no\n"))
    ended = mailvek("--rename-mailname", *RENAME, env=PLAIN)
    assert ended.status == 1, ended
    assert ("CRITICAL ERROR: Unable to properly restore Postfix Virtual Aliases Database used by Orvek.\n"
            in ended.err)


def test_accounts_are_renamed_in_one_transaction():
    """A change that rolls back takes the earlier one with it, and then all addresses keep the old name."""
    mailname_with_a_mailbox()
    before, accounts = addresses(), auth_rows()
    (alias,), = auth_sql("SELECT id FROM domains WHERE name = ?", ALIAS)
    auth_sql(f"CREATE TRIGGER refuse BEFORE UPDATE ON users WHEN OLD.dom_id = {alias} "
             "BEGIN SELECT RAISE(ROLLBACK, 'refused'); END")
    assert mailvek("--rename-mailname", *RENAME, env=PLAIN).status == 1
    assert auth_rows() == accounts
    assert addresses()[f"anna@{ALIAS}"] == f"anita@{DOMAIN}" and addresses().keys() - before.keys() == {f"anita@{DOMAIN}"}


def test_without_the_panel_a_rename_ends_after_the_account():
    mailname_with_a_mailbox()
    stop("mariadb")
    failed("--rename-mailname", *RENAME, env=PLAIN,
           saying=f"ERROR: unable get domain aliases for domain {DOMAIN}\n")
    assert f"anita@{DOMAIN}" in auth_rows() and f"anna@{ALIAS}" in auth_rows()


def test_a_failed_account_rename_is_told_last_and_keeps_hooks():
    mailname_with_a_mailbox()
    add_hook(ANNA)
    auth_sql("INSERT INTO users (dom_id, name, userPassword) "
             f"SELECT id, 'anita', 'taken' FROM domains WHERE name = '{DOMAIN}'")
    ended = mailvek("--rename-mailname", *RENAME, env=PLAIN)
    assert ended.status == 255, ended
    assert f"anita@{ALIAS}" in auth_rows() and f"anna@{ALIAS}" not in auth_rows()
    assert f"anita@{ALIAS}" in postmap("virtual")
    assert hooks() == [f"recipient/{ANNA}"]


def test_a_failed_alias_domain_account_rename_ends_it_immediately():
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


def test_an_invalid_new_name_changes_nothing():
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


def test_a_removed_mailnames_hooks_go_in_order():
    """The order is: the mailname, its name under each alias domain, each mail alias under the domain, each
    mail alias under each alias domain."""
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


def test_an_unreadable_alias_list_fails_after_the_removal():
    mailname_with_a_mailbox()
    with concurrent.futures.ThreadPoolExecutor() as pool:
        with map_held("virtual") as awaited:
            removal = pool.submit(mailvek, "--remove-mailname", *NAMES)
            wait_until(awaited)
            stop("mariadb")
        ended = removal.result()
    assert ended.status == 1, ended
    assert f"ERROR: unable get domain aliases for domain {DOMAIN}\n" in ended.err
    assert auth_rows() == {} and postmap("vmailbox") == {} and not os.path.exists(HOME)
