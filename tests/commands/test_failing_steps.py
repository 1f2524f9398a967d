"""Commands of domains and mailnames whose first, middle or last step fails: the steps before it stay
done, and the steps after it are not begun."""
import concurrent.futures
import os

import pytest

from host_faults import map_held, read_only, undo
from mailhost import (
    MAILNAMES, MAPS, add_records, auth_domains, auth_rows, auth_sql, done, failed, mailvek, panel_sql, postmap,
    read, start, stop, wait_until,
)
from panel import (
    LOCAL, add_hook, hooks, panel_domain, panel_domain_alias, panel_mailname, standard_addresses,
    waits_for_the_accounts,
)
from spies import Rule, spy

TAKES_LONG = True

POSTMAP = "/usr/sbin/postmap"
DOMAIN, ALIAS, NEW = "example.com", "alias.test", "new.test"
ANNA = f"anna@{DOMAIN}"
HOME = f"{MAILNAMES}/{DOMAIN}/anna"
AT = f"--domain-name={DOMAIN}"
NAMES = (AT, "--mailname=anna")
PLAIN = {"ORV_PASSWORD": "secret"}
MAP_NAMES = ("virtual_domains", "virtual", "vmailbox", "aliases")
ALL_ACCOUNTS = [f"ann@{ALIAS}", f"ann@{DOMAIN}", f"anna@{ALIAS}", ANNA]


@pytest.fixture(autouse=True)
def panel():
    """Makes a domain with an alias domain, and a mailname with a mail alias, accounts and hooks."""
    start("mariadb")
    panel_domain(DOMAIN, aliases=[ALIAS])
    panel_mailname(ANNA, aliases=["ann"])
    done("--add-domain", AT)
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--add-domain-alias", AT, f"--domain-alias-name={ALIAS}", "--set-reject")
    done("--add-alias", *NAMES, "--alias=ann")
    done("--add-mailbox", *NAMES, env=PLAIN)
    done("--set-password", *NAMES, env=PLAIN)
    add_hook(ANNA)


def maps():
    return {name: postmap(name) for name in MAP_NAMES}


def state():
    return maps(), auth_rows(), auth_domains(), hooks(), os.path.exists(HOME) and read(f"{HOME}/.qmail")


def map_fails(name):
    """Makes postmap fail for this map only."""
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n", having=f"hash:{MAPS}/{name}"))


def accounts_stay(event, table):
    """Makes the account database refuse to insert, update or delete rows of a table."""
    auth_sql(f"CREATE TRIGGER refuse_{event} BEFORE {event} ON {table} BEGIN SELECT RAISE(ABORT, 'refused'); END")


# --------------------------------------------------------------------------------- domains


def test_a_domain_whose_record_cannot_be_written_has_its_addresses():
    map_fails("virtual_domains")
    failed("--add-domain", f"--domain-name={NEW}", saying="postmap: fatal: no")
    assert NEW not in postmap("virtual_domains")
    assert standard_addresses(NEW).items() <= postmap("virtual").items()


def test_maps_whose_directory_cannot_be_written_stay_as_they_are():
    before = maps()
    read_only(MAPS)
    failed("--add-domain", f"--domain-name={NEW}")
    assert maps() == before and os.path.isdir(f"{MAILNAMES}/{NEW}")


def test_a_domain_stuck_in_the_second_map_left_the_first():
    map_fails("vmailbox")
    failed("--remove-domain", AT, saying="postmap: fatal: no")
    found = maps()
    assert DOMAIN not in found["virtual_domains"] and ANNA in found["vmailbox"]
    assert not [key for key in found["virtual"] if key.endswith(f"@{DOMAIN}")]
    assert not os.path.exists(f"{MAILNAMES}/{DOMAIN}") and hooks() == [f"recipient/{ANNA}"]


@pytest.mark.parametrize("command, statuses", [("--turn-off-domain", {DOMAIN: 1, ALIAS: 0}),
                                               ("--turn-on-domain", {DOMAIN: 0, ALIAS: 0})])
def test_without_the_panel_only_the_accounts_know_the_switch(command, statuses):
    before = maps(), hooks()
    stop("mariadb")
    failed(command, AT, saying=f"Unable to get aliases for domain {DOMAIN}")
    assert auth_domains() == statuses and (maps(), hooks()) == before


@pytest.mark.parametrize("command", ["--turn-off-domain", "--turn-on-domain"])
def test_the_first_map_is_switched_when_the_second_fails(command):
    if command == "--turn-on-domain":
        done("--turn-off-domain", AT)
    before = hooks()
    map_fails("virtual")
    failed(command, AT, saying="postmap: fatal: no")
    assert (DOMAIN in postmap("virtual_domains")) == (command == "--turn-on-domain")
    assert ("root@" + DOMAIN in postmap("virtual")) == (command == "--turn-off-domain")
    assert hooks() == before


@pytest.mark.parametrize("arguments", [
    ("--set-domain-disk-quota", AT, "--disk-quota=5000"), ("--set-mailbox-disk-quota", *NAMES, "--disk-quota=5000")])
def test_a_quota_that_cannot_be_written_is_a_failure(arguments):
    before = read(f"{HOME}/Maildir/maildirsize")
    read_only(MAILNAMES)
    failed(*arguments)
    assert read(f"{HOME}/Maildir/maildirsize") == before


def test_a_failed_quota_leaves_the_alias_a_domain_was():
    alias = {NEW: "1", f"anna@{NEW}": ANNA}
    add_records("virtual", alias)
    stop("mariadb")
    failed("--add-domain", f"--domain-name={NEW}", "--disk-quota=5", saying="unable to store domain quota")
    assert alias.items() <= postmap("virtual").items()


SWITCHES = [("--remove-domain", "DELETE", "remove auth record"),
            ("--turn-off-domain", "UPDATE", "disable auth records"),
            ("--turn-on-domain", "UPDATE", "enable auth records")]


@pytest.mark.parametrize("command, event, words", SWITCHES)
def test_accounts_that_stay_are_told_and_keep_the_rest(command, event, words):
    before = state()
    accounts_stay(event, "domains")
    failed(command, AT, saying=f"Unable to {words} for domain {DOMAIN}\n")
    assert state() == before


@pytest.mark.parametrize("command, event, words", SWITCHES)
def test_the_domains_accounts_change_before_an_alias_domains(command, event, words):
    if command == "--turn-on-domain":
        done("--turn-off-domain", AT)
    before, accounts = (maps(), hooks()), auth_domains()
    auth_sql(f"CREATE TRIGGER refuse BEFORE {event} ON domains WHEN OLD.name = '{ALIAS}' "
             "BEGIN SELECT RAISE(ABORT, 'refused'); END")
    failed(command, AT, saying=f"Unable to {words} for domain alias {ALIAS}\n")
    assert (maps(), hooks()) == before
    assert auth_domains()[ALIAS] == accounts[ALIAS] and auth_domains().get(DOMAIN) != accounts[DOMAIN]


# ------------------------------------------------------------------------------- mailnames


def test_a_failed_quota_query_ends_after_the_delivery_file():
    stop("mariadb")
    failed("--add-mailname", AT, "--mailname=bertha", saying="unable to remove quota")
    assert read(f"{MAILNAMES}/{DOMAIN}/bertha/.qmail") == "| true\n"
    assert f"bertha@{DOMAIN}" not in postmap("vmailbox")


def test_accounts_of_a_mailname_that_stay_keep_all_else():
    before = state()
    accounts_stay("DELETE", "users")
    failed("--remove-mailname", *NAMES, saying="refused")
    assert state() == before


def test_unreadable_mail_aliases_fail_after_removal_and_hooks():
    add_hook(f"ann@{DOMAIN}")
    with concurrent.futures.ThreadPoolExecutor() as pool:
        with map_held("virtual") as awaited:
            removal = pool.submit(mailvek, "--remove-mailname", *NAMES)
            wait_until(awaited)
            panel_sql("RENAME TABLE mail_aliases TO mail_aliases_away")
        ended = removal.result()
    report = f"ERROR: unable get mail aliases for mailname {ANNA}\n"
    assert ended.status == 1 and ended.err.endswith(report) and ended.out.endswith(report), ended
    assert auth_rows() == {} and postmap("vmailbox") == {} and not os.path.exists(HOME)
    assert hooks() == [f"recipient/ann@{DOMAIN}"]


def test_a_mailbox_keeps_its_name_when_its_record_stays():
    before = state()
    map_fails("vmailbox")
    failed("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita", env=PLAIN,
           saying="postmap: fatal: no")
    assert state() == before


def test_a_failed_rename_stands_under_the_earlier_alias_domains():
    panel_domain_alias(DOMAIN, NEW)
    done("--set-password", *NAMES, env=PLAIN)
    auth_sql("INSERT INTO users (dom_id, name, userPassword) "
             f"SELECT id, 'anita', 'taken' FROM domains WHERE name = '{NEW}'")
    failed("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita", env=PLAIN)
    assert {f"anita@{DOMAIN}", f"anita@{ALIAS}", f"anna@{NEW}"} <= auth_rows().keys()
    assert f"anita@{ALIAS}" in postmap("virtual") and f"anna@{ALIAS}" not in postmap("virtual")
    assert hooks() == [f"recipient/{ANNA}"]


def test_without_the_panel_a_mailbox_has_the_domains_account_only():
    for name in ("anna", "ann"):
        auth_sql("DELETE FROM users WHERE name = ?", name)
    stop("mariadb")
    failed("--add-mailbox", *NAMES, env=PLAIN, saying=f"Unable to get domain aliases for domain {DOMAIN}")
    assert list(auth_rows()) == [ANNA] and "deliverquota" in read(f"{HOME}/.qmail")


def test_a_delivery_file_that_cannot_be_changed_keeps_the_accounts():
    before = state()
    read_only(MAILNAMES)
    failed("--remove-mailbox", *NAMES, saying="unable to modify")
    assert state() == before


@pytest.mark.parametrize("command", ["--remove-mailbox", "--remove-mailname"])
def test_without_the_panel_only_the_domains_account_goes(command):
    before = maps(), hooks()
    stop("mariadb")
    failed(command, *NAMES)
    assert ANNA not in auth_rows() and f"anna@{ALIAS}" in auth_rows()
    assert (maps(), hooks()) == before and os.path.isdir(HOME)


def test_a_password_that_cannot_be_set_leaves_the_old_one():
    accounts_stay("UPDATE", "users")
    accounts_stay("INSERT", "users")
    failed("--set-password", *NAMES, env={"ORV_PASSWORD": "another"})
    assert auth_rows()[ANNA][0] == "secret"


def test_a_passwordless_rename_with_stuck_accounts_ends_after_the_maps():
    accounts_stay("DELETE", "users")
    failed("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita", saying="refused")
    assert f"anita@{DOMAIN}" in postmap("vmailbox") and os.path.isdir(f"{MAILNAMES}/{DOMAIN}/anita")
    assert sorted(auth_rows()) == ALL_ACCOUNTS and hooks() == [f"recipient/{ANNA}"]


@pytest.mark.parametrize("arguments", [
    ("--set-password", *NAMES), ("--remove-mailname", *NAMES), ("--remove-mailbox", *NAMES),
    ("--remove-alias", *NAMES, "--alias=ann"), ("--add-alias", *NAMES, "--alias=annie"), ("--remove-domain", AT),
    ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita"),
    ("--add-domain-alias", AT, f"--domain-alias-name={NEW}", "--set-reject"),
    ("--del-domain-alias", AT, f"--domain-alias-name={ALIAS}"),
])
def test_accounts_that_somebody_holds_for_a_while_are_waited_for(arguments):
    ended = waits_for_the_accounts(*arguments, env=PLAIN)
    assert ended.status == 0, ended


# ------------------------------------------------------------ redirects, mail aliases, answers


def test_a_redirect_that_cannot_be_removed_stays():
    done("--add-redirect", *NAMES, "--redirect-email=b@example.org")
    read_only(MAILNAMES)
    failed("--remove-redirect", *NAMES, "--redirect-email=b@example.org", saying="unable to modify")
    assert "&b@example.org\n" in read(f"{HOME}/.qmail")


def test_a_mail_alias_stuck_in_the_map_keeps_hooks_accounts():
    add_hook(f"ann@{DOMAIN}")
    before = state()
    map_fails("virtual")
    failed("--remove-alias", *NAMES, "--alias=ann", saying="postmap: fatal: no")
    assert state() == before


def test_a_mail_alias_has_hooks_though_its_accounts_fail():
    accounts_stay("INSERT", "users")
    failed("--add-alias", *NAMES, "--alias=annie", saying="refused")
    assert hooks() == [f"recipient/{ANNA}", f"recipient/annie@{DOMAIN}"]


def test_a_mail_alias_loses_its_hooks_though_accounts_stay():
    add_hook(f"ann@{DOMAIN}")
    accounts_stay("DELETE", "users")
    failed("--remove-alias", *NAMES, "--alias=ann", saying="refused")
    assert hooks() == [f"recipient/{ANNA}"] and f"ann@{DOMAIN}" in auth_rows()


def test_without_the_panel_only_the_domains_mail_alias_goes():
    stop("mariadb")
    failed("--remove-alias", *NAMES, "--alias=ann")
    assert f"ann@{DOMAIN}" not in postmap("virtual") and f"ann@{ALIAS}" in postmap("virtual")
    assert f"ann@{DOMAIN}" not in auth_rows() and f"ann@{ALIAS}" in auth_rows()


def test_an_autoresponder_whose_handler_cannot_be_stored_is_a_failure():
    before = hooks()
    read_only("/usr/local/orv/handlers")
    ended = mailvek("--set-autoresponder", *NAMES)
    assert ended.status == 255 and "Read-only file system" in ended.err, ended
    assert hooks() == before


# ----------------------------------------------------------------------- mail to unknown names


def test_a_bounce_whose_address_cannot_be_written_has_its_pipe():
    map_fails("virtual")
    failed("--set-bounce", AT, saying="postmap: fatal: no")
    assert f"_orvek_bounce_{DOMAIN}" in postmap("aliases") and f"@{DOMAIN}" not in postmap("virtual")


@pytest.mark.parametrize("arguments", [
    ("--set-catchall", AT, "--email=b@example.org"), ("--set-reject", AT), ("--unset-reject", AT)])
def test_a_catch_all_that_cannot_be_changed_stays(arguments):
    done("--set-catchall", AT, f"--email={ANNA}")
    before = maps()
    map_fails("virtual")
    failed(*arguments, saying="postmap: fatal: no")
    assert maps() == before


def test_without_the_panel_only_the_domain_changes_unknown_names():
    stop("mariadb")
    assert mailvek("--set-bounce", AT).status == 0
    assert postmap("virtual")[f"@{DOMAIN}"] == f"_orvek_bounce_{DOMAIN}@{LOCAL}"
    assert list(postmap("aliases")) == [f"_orvek_bounce_{DOMAIN}"]
    assert mailvek("--set-reject", AT).status == 0
    assert f"@{DOMAIN}" not in postmap("virtual")


# ------------------------------------------------------------------------------ alias domains


RENAME = ("--rename-domain-alias", AT, f"--old-domain-alias-name={ALIAS}", f"--new-domain-alias-name={NEW}",
          "--set-reject")


def test_an_alias_domain_stuck_in_the_map_keeps_everything():
    before = state()
    map_fails("virtual")
    failed(*RENAME, saying="postmap: fatal: no")
    assert state() == before


def test_old_accounts_that_cannot_go_stay_beside_the_new_ones():
    accounts_stay("DELETE", "domains")
    failed(*RENAME)
    assert {f"anna@{ALIAS}", f"anna@{NEW}"} <= auth_rows().keys()
    assert NEW in postmap("virtual") and ALIAS not in postmap("virtual")


def test_a_failed_catch_all_ends_it_after_the_accounts():
    # Two runs add the alias domain's names. The third, for its catch-all, fails.
    spy(POSTMAP, Rule(times=2), Rule(exit=1, err="postmap: fatal: no\n"))
    failed("--add-domain-alias", AT, f"--domain-alias-name={NEW}", "--set-catchall", f"--email={ANNA}",
           saying="postmap: fatal: no")
    undo(POSTMAP)
    assert f"anna@{NEW}" in auth_rows() and NEW in postmap("virtual") and f"@{NEW}" not in postmap("virtual")
