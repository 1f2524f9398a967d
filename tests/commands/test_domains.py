"""--add-domain, --remove-domain, --turn-on-domain, --turn-off-domain, --set-domain-disk-quota."""
import os

import pytest

from host_faults import read_only, undo
from mailhost import (
    ACCOUNTS, MAILNAMES, MAPS, auth_domains, auth_rows, auth_sql, described, done, failed, mailvek, nothing_changes,
    panel_sql, postmap, read, set_postconf, start, stop,
)
from panel import (
    add_hook, damage_hooks, hooks, panel_domain, panel_mailname, quota_line, standard_addresses,
    waits_for_the_accounts,
)
from spies import Rule, calls, spy

POSTMAP = "/usr/sbin/postmap"
DOMAIN, ALIAS, SECOND = "example.com", "alias.test", "second.test"
ENABLED = {DOMAIN: f"{DOMAIN}/"}


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    panel_domain(DOMAIN)


def add(domain=DOMAIN):
    done("--add-domain", f"--domain-name={domain}")


def quota_of(mailname, quota):
    home = f"{MAILNAMES}/{DOMAIN}/{mailname}"
    return read(f"{home}/Maildir/maildirsize").startswith(quota_line(home, quota))


def account(mailname, domain=DOMAIN):
    auth_sql("INSERT OR IGNORE INTO domains (name) VALUES (?)", domain)
    auth_sql("INSERT INTO users (dom_id, name, userPassword) SELECT id, ?, 'secret' FROM domains WHERE name = ?",
             mailname, domain)


# ------------------------------------------------------------------------------ --add-domain


def test_a_domain_gets_directory_record_and_standard_addresses():
    add()
    assert described(f"{MAILNAMES}/{DOMAIN}") == "d 0750 popuser:popuser"
    assert postmap("virtual_domains") == ENABLED
    assert postmap("virtual") == standard_addresses(DOMAIN)
    assert postmap("vmailbox") == {} and auth_domains() == {}


def test_the_maps_change_in_order_with_these_arguments():
    spy(POSTMAP)
    add()
    assert [call.argv[1:] for call in calls(POSTMAP)] == [
        ["-s", f"hash:{MAPS}/virtual"], [f"hash:{MAPS}/virtual"],
        ["-r", "-i", f"hash:{MAPS}/virtual"],
        ["-r", "-i", f"hash:{MAPS}/virtual_domains"],
        ["-r", "-i", f"hash:{MAPS}/virtual"],
    ]


def test_a_domain_that_is_there_can_be_added_again():
    add()
    add()
    assert postmap("virtual_domains") == ENABLED
    assert postmap("virtual") == standard_addresses(DOMAIN)


def test_a_domain_that_was_an_alias_stops_being_one():
    panel_domain(SECOND, aliases=[ALIAS], mailnames=["anna"])
    add(SECOND)
    done("--add-domain-alias", f"--domain-name={SECOND}", f"--domain-alias-name={ALIAS}", "--set-reject")
    assert postmap("virtual")[ALIAS] == "1"
    add(ALIAS)
    assert postmap("virtual") == standard_addresses(SECOND) | standard_addresses(ALIAS)


def test_an_internationalised_domain_is_kept_in_its_ascii_form():
    add("müller.test")
    assert postmap("virtual_domains") == {"xn--mller-kva.test": "xn--mller-kva.test/"}
    assert os.path.isdir(f"{MAILNAMES}/xn--mller-kva.test")


def test_a_quota_goes_to_mailboxes_without_their_own():
    panel_mailname(f"anna@{DOMAIN}")
    panel_mailname(f"bertha@{DOMAIN}", quota=777)
    add()
    for name in ("anna", "bertha"):
        done("--add-mailname", f"--domain-name={DOMAIN}", f"--mailname={name}", "--disk-quota=50000")
    done("--add-domain", f"--domain-name={DOMAIN}", "--disk-quota=12345")
    assert quota_of("anna", 12345) and quota_of("bertha", 50000)


def test_without_a_quota_none_is_set():
    panel_mailname(f"anna@{DOMAIN}")
    add()
    done("--add-mailname", f"--domain-name={DOMAIN}", "--mailname=anna", "--disk-quota=50000")
    stop("mariadb")  # setting a quota would ask the panel's database
    add()
    assert quota_of("anna", 50000)


def test_a_quota_without_number_changes_nothing():
    with nothing_changes():
        ended = mailvek("--add-domain", f"--domain-name={DOMAIN}", "--disk-quota=abc")
    assert ended.status == 1 and "disk-quota" in ended.err
    assert "Usage: --add-domain --domain-name=<domain> [--disk-quota=quota]" in ended.out


def test_without_a_directory_nothing_is_written_to_the_maps():
    read_only(MAILNAMES)
    failed("--add-domain", f"--domain-name={DOMAIN}", saying="Read-only file system")
    assert postmap("virtual") == postmap("virtual_domains") == {}


def test_a_failing_map_leaves_the_directory():
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n"))
    failed("--add-domain", f"--domain-name={DOMAIN}", saying="postmap: fatal: no")
    assert os.path.isdir(f"{MAILNAMES}/{DOMAIN}")
    assert postmap("virtual") == postmap("virtual_domains") == {}


def test_a_failed_quota_ends_the_command_before_the_maps():
    stop("mariadb")
    failed("--add-domain", f"--domain-name={DOMAIN}", "--disk-quota=5", saying="unable to store domain quota")
    assert os.path.isdir(f"{MAILNAMES}/{DOMAIN}")
    assert postmap("virtual") == postmap("virtual_domains") == {}


# --------------------------------------------------------------------------- --remove-domain


def populated():
    """Makes the domain with an alias domain, an account under each, a mailname and hooks."""
    panel_sql("DELETE FROM domains")
    panel_domain(DOMAIN, aliases=[ALIAS], mailnames=["anna"])
    panel_domain(SECOND)
    add()
    add(SECOND)
    done("--add-mailname", f"--domain-name={DOMAIN}", "--mailname=anna")
    account("anna")
    account("anna", ALIAS)
    account("other", SECOND)
    add_hook(f"anna@{DOMAIN}")
    add_hook(DOMAIN)
    add_hook(f"other@{SECOND}")


def test_a_removed_domain_leaves_nothing():
    populated()
    done("--remove-domain", f"--domain-name={DOMAIN}")
    assert auth_domains() == {SECOND: 0} and list(auth_rows()) == [f"other@{SECOND}"]
    assert postmap("virtual_domains") == {SECOND: f"{SECOND}/"}
    assert postmap("vmailbox") == {}
    # Records of other domains stay. So does an address under an alias that the panel has not made yet.
    assert postmap("virtual").keys() == standard_addresses(SECOND).keys()
    assert os.listdir(MAILNAMES) == [SECOND]
    assert hooks() == [f"recipient/other@{SECOND}"]


def test_a_domain_that_is_not_there_is_removed_with_success():
    done("--remove-domain", "--domain-name=absent.test")


def test_accounts_that_cannot_be_removed_keep_the_domain():
    populated()
    virtual = postmap("virtual")
    os.rename(ACCOUNTS, ACCOUNTS + ".away")
    ended = mailvek("--remove-domain", f"--domain-name={DOMAIN}")
    assert ended.status == 1, ended
    assert postmap("virtual") == virtual and postmap("virtual_domains").keys() == {DOMAIN, SECOND}
    assert os.path.isdir(f"{MAILNAMES}/{DOMAIN}/anna") and f"recipient/anna@{DOMAIN}" in hooks()


def test_without_the_panel_only_the_domains_accounts_go():
    populated()
    stop("mariadb")
    ended = mailvek("--remove-domain", f"--domain-name={DOMAIN}")
    assert ended.status == 1 and "Unable to get aliases for domain example.com" in ended.err, ended
    assert sorted(auth_domains()) == [ALIAS, SECOND]
    assert DOMAIN in postmap("virtual_domains") and os.path.isdir(f"{MAILNAMES}/{DOMAIN}/anna")


def test_a_failing_map_ends_the_removal_after_the_accounts():
    populated()
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n"))
    failed("--remove-domain", f"--domain-name={DOMAIN}", saying="postmap: fatal: no")
    assert list(auth_domains()) == [SECOND]
    assert DOMAIN in postmap("virtual_domains") and os.path.isdir(f"{MAILNAMES}/{DOMAIN}/anna")
    undo(POSTMAP)
    done("--remove-domain", f"--domain-name={DOMAIN}")
    assert list(postmap("virtual_domains")) == [SECOND]


def test_a_directory_that_cannot_be_removed_leaves_the_address_records():
    populated()
    read_only(MAILNAMES)
    report = ("Fatal error: boost::filesystem::filesystem_error(boost::filesystem::rename: Read-only file system: "
              f'"{MAILNAMES}/{DOMAIN}", "{MAILNAMES}/{DOMAIN}.OrvekSaved.')
    failed("--remove-domain", f"--domain-name={DOMAIN}", saying=report)
    assert list(postmap("virtual_domains")) == [SECOND]
    assert f"anna@{DOMAIN}" in postmap("virtual") and f"anna@{DOMAIN}" in postmap("vmailbox")
    assert f"recipient/anna@{DOMAIN}" in hooks()


def test_hooks_that_cannot_be_removed_are_a_warning():
    populated()
    damage_hooks()
    ended = mailvek("--remove-domain", f"--domain-name={DOMAIN}")
    warning = f"WARNING: unable to properly remove all mail handlers for {DOMAIN}\n"
    assert ended.status == 0 and ended.err.endswith(warning) and ended.out.endswith(warning), ended
    assert list(postmap("virtual_domains")) == [SECOND]
    assert hooks() == [f"recipient/other@{SECOND}"]


# -------------------------------------------------------- --turn-off-domain, --turn-on-domain


def test_a_domain_is_turned_off_and_on_again():
    populated()
    before = postmap("virtual")
    done("--turn-off-domain", f"--domain-name={DOMAIN}")
    assert list(postmap("virtual_domains")) == [SECOND]
    assert postmap("virtual") == {key: value for key, value in before.items()
                                  if key not in standard_addresses(DOMAIN)}
    statuses = auth_domains()
    assert statuses[DOMAIN] != 0 and statuses[ALIAS] != 0 and statuses[SECOND] == 0
    assert hooks() == [f"recipient/other@{SECOND}"]
    assert os.path.isdir(f"{MAILNAMES}/{DOMAIN}/anna")

    done("--turn-on-domain", f"--domain-name={DOMAIN}")
    assert postmap("virtual") == before
    assert postmap("virtual_domains") == ENABLED | {SECOND: f"{SECOND}/"}
    assert set(auth_domains().values()) == {0}
    assert hooks() == [f"recipient-domain/{DOMAIN}", f"recipient/anna@{DOMAIN}", f"recipient/other@{SECOND}"]


def test_a_domain_with_the_hosts_name_is_turned_on_again():
    done("--add-domain", f"--domain-name={DOMAIN}")
    done("--turn-off-domain", f"--domain-name={DOMAIN}")
    set_postconf(myhostname=DOMAIN, mydestination="localhost")
    failed("--add-domain", f"--domain-name={DOMAIN}", saying="is the mail server's own")
    done("--turn-on-domain", f"--domain-name={DOMAIN}")
    assert postmap("virtual_domains") == ENABLED
    set_postconf(mydestination=f"localhost, {DOMAIN}")
    failed("--turn-on-domain", f"--domain-name={DOMAIN}", saying="is the mail server's own")


@pytest.mark.parametrize("command", ["--turn-off-domain", "--turn-on-domain"])
def test_hooks_that_cannot_be_switched_are_passed_over_in_silence(command):
    populated()
    damage_hooks()
    ended = mailvek(command, f"--domain-name={DOMAIN}")
    assert ended.status == 0 and "WARNING" not in ended.err + ended.out, ended
    assert "Some errors was occured in mass hook operation. errors: 1" in ended.err


@pytest.mark.parametrize("command", ["--turn-off-domain", "--turn-on-domain"])
def test_accounts_that_cannot_be_switched_keep_the_maps(command):
    populated()
    before = postmap("virtual"), postmap("virtual_domains"), hooks()
    os.rename(ACCOUNTS, ACCOUNTS + ".away")
    ended = mailvek(command, f"--domain-name={DOMAIN}")
    assert ended.status == 1, ended
    assert (postmap("virtual"), postmap("virtual_domains"), hooks()) == before


@pytest.mark.parametrize("command", ["--turn-off-domain", "--turn-on-domain"])
def test_maps_that_cannot_be_changed_keep_the_hooks(command):
    populated()
    before = hooks()
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n"))
    failed(command, f"--domain-name={DOMAIN}", saying="postmap: fatal: no")
    assert hooks() == before


# ------------------------------------------------------------------- --set-domain-disk-quota


def test_a_quota_reaches_the_mailboxes_without_their_own():
    populated()
    done("--set-domain-disk-quota", f"--domain-name={DOMAIN}", "--disk-quota=20480")
    assert quota_of("anna", 20480)
    done("--set-domain-disk-quota", f"--domain-name={DOMAIN}", "--disk-quota=-1")
    assert read(f"{MAILNAMES}/{DOMAIN}/anna/Maildir/maildirsize").startswith("0S,0C\n")


def test_a_missing_quota_is_bad_usage():
    ended = mailvek("--set-domain-disk-quota", f"--domain-name={DOMAIN}")
    assert ended.status == 1, ended
    assert ended.err.startswith('mandatory option "--disk-quota" is not specified\n')
    assert "Usage: --set-domain-disk-quota --domain-name=<domain> --disk-quota=quota" in ended.out


def test_without_the_panels_database_the_quota_is_not_set():
    stop("mariadb")
    failed("--set-domain-disk-quota", f"--domain-name={DOMAIN}", "--disk-quota=5",
           saying="unable to store domain quota")


@pytest.mark.parametrize("command", ["--add-domain", "--remove-domain", "--turn-on-domain", "--turn-off-domain"])
def test_a_command_without_a_domain_is_bad_usage(command):
    with nothing_changes():
        ended = mailvek(command)
    assert ended.status == 1 and ended.err.startswith('mandatory option "--domain-name" is not specified\n')


@pytest.mark.parametrize("command", ["--add-domain", "--remove-domain", "--turn-on-domain", "--turn-off-domain",
                                     "--set-domain-disk-quota"])
def test_help_of_a_command_is_its_usage(command):
    ended = mailvek(command, "--help")
    assert ended.status == 0 and f"Usage: {command} --domain-name=<domain>" in ended.out and ended.err == ""


def test_an_account_database_that_is_locked_is_waited_for():
    populated()
    ended = waits_for_the_accounts("--turn-off-domain", f"--domain-name={DOMAIN}")
    assert ended.status == 0, ended
    assert auth_domains()[DOMAIN] == 1 and DOMAIN not in postmap("virtual_domains")
