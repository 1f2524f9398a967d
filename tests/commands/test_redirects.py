"""--add-redirect, --remove-redirect, --add-alias, --remove-alias, --set-autoresponder,
--reset-autoresponder."""
import os

import pytest

from host_faults import read_only
from mailhost import (
    ACCOUNTS, MAILNAMES, auth_rows, auth_sql, described, done, mailvek, nothing_changes, postmap, read, start, stop,
)
from panel import add_hook, damage_hooks, hooks, panel_domain, panel_mailname, standard_addresses, without_accounts
from spies import Rule, spy

POSTMAP = "/usr/sbin/postmap"
DOMAIN, ALIAS, OTHER = "example.com", "alias.test", "other.test"
ANNA = f"anna@{DOMAIN}"
QMAIL = f"{MAILNAMES}/{DOMAIN}/anna/.qmail"
NAMES = (f"--domain-name={DOMAIN}", "--mailname=anna")
PLAIN = {"ORV_PASSWORD": "secret"}


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    panel_domain(DOMAIN, aliases=[ALIAS, OTHER])
    panel_mailname(ANNA)
    done("--add-domain", f"--domain-name={DOMAIN}")
    done("--add-mailname", *NAMES, "--disk-quota=100000")


def addresses():
    standard = standard_addresses(DOMAIN)
    return {key: value for key, value in postmap("virtual").items() if key not in standard}


# -------------------------------------------------------------------------------- redirects


def test_a_redirect_is_the_delivery_files_last_line():
    done("--add-redirect", *NAMES, "--redirect-email=bertha@example.org")
    done("--add-redirect", *NAMES, "--redirect-email=carla@example.org")
    assert read(QMAIL) == "| true\n&bertha@example.org\n&carla@example.org\n"
    assert described(QMAIL) == "f 0600 popuser:popuser"


def test_a_redirects_international_domain_is_kept_in_ascii():
    done("--add-redirect", *NAMES, "--redirect-email=bertha@müller.test")
    assert read(QMAIL) == "| true\n&bertha@xn--mller-kva.test\n"
    done("--remove-redirect", *NAMES, "--redirect-email=bertha@müller.test")
    assert read(QMAIL) == "| true\n"


def test_only_the_redirect_named_is_removed():
    for name in ("bertha", "carla"):
        done("--add-redirect", *NAMES, f"--redirect-email={name}@example.org")
    done("--remove-redirect", *NAMES, "--redirect-email=bertha@example.org")
    assert read(QMAIL) == "| true\n&carla@example.org\n"


@pytest.mark.parametrize("command", ["--add-redirect", "--remove-redirect"])
def test_a_redirect_of_a_missing_mailname_is_a_failure(command):
    ended = mailvek(command, f"--domain-name={DOMAIN}", "--mailname=absent", "--redirect-email=b@example.org")
    assert ended.status == 1 and f"unable to modify {MAILNAMES}/{DOMAIN}/absent/.qmail" in ended.err, ended


def test_a_redirect_without_its_address_is_bad_usage():
    with nothing_changes():
        ended = mailvek("--add-redirect", *NAMES)
    assert ended.status == 1 and ended.err.startswith('mandatory option "--redirect-email" is not specified\n')


def test_a_delivery_file_survives_a_read_only_disk():
    read_only(MAILNAMES)
    ended = mailvek("--add-redirect", *NAMES, "--redirect-email=b@example.org")
    assert ended.status == 1 and "unable to modify" in ended.err
    assert read(QMAIL) == "| true\n"


# ------------------------------------------------------------------------------ mail aliases


ADD_ALIAS = ("--add-alias", *NAMES, "--alias=ann")
REMOVE_ALIAS = ("--remove-alias", *NAMES, "--alias=ann")
ALIAS_ADDRESSES = [f"ann@{domain}" for domain in (ALIAS, DOMAIN, OTHER)]


def test_a_mail_alias_gets_addresses_accounts_and_hooks():
    done("--add-mailbox", *NAMES, env=PLAIN)
    add_hook(ANNA)
    done(*ADD_ALIAS)
    assert {key: value for key, value in addresses().items() if key.startswith("ann@")} == {
        address: ANNA for address in ALIAS_ADDRESSES}
    assert {key: value for key, value in auth_rows().items() if key.startswith("ann@")} == {
        address: ("secret", None, 0) for address in ALIAS_ADDRESSES}
    assert hooks() == [f"recipient/ann@{DOMAIN}", f"recipient/{ANNA}"]


def test_without_a_mailbox_a_mail_alias_has_no_accounts():
    done(*ADD_ALIAS)
    assert auth_rows() == {} and set(ALIAS_ADDRESSES) <= addresses().keys()


def test_a_removed_mail_alias_leaves_nothing():
    done("--add-mailbox", *NAMES, env=PLAIN)
    before = addresses(), auth_rows()
    add_hook(ANNA)
    done(*ADD_ALIAS)
    done(*REMOVE_ALIAS)
    assert (addresses(), auth_rows()) == before
    assert hooks() == [f"recipient/{ANNA}"]


def test_removing_a_missing_mail_alias_succeeds():
    before = addresses()
    done(*REMOVE_ALIAS)
    assert addresses() == before


def test_maps_that_cannot_be_changed_keep_hooks_and_accounts():
    done("--add-mailbox", *NAMES, env=PLAIN)
    add_hook(ANNA)
    before = auth_rows()
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n"))
    ended = mailvek(*ADD_ALIAS)
    assert ended.status == 1 and "postmap: fatal: no" in ended.err
    assert auth_rows() == before and hooks() == [f"recipient/{ANNA}"]


def test_failed_hook_clones_warn_and_the_accounts_are_made():
    done("--add-mailbox", *NAMES, env=PLAIN)
    damage_hooks()
    ended = mailvek(*ADD_ALIAS)
    warning = f"WARNING: unable to set all mail handlers for ann@{DOMAIN}\n"
    assert ended.status == 0 and ended.out.endswith(warning) and ended.err.endswith(warning), ended
    assert set(ALIAS_ADDRESSES) <= auth_rows().keys()


def test_failed_hook_removals_warn_and_the_accounts_go():
    done("--add-mailbox", *NAMES, env=PLAIN)
    done(*ADD_ALIAS)
    damage_hooks()
    ended = mailvek(*REMOVE_ALIAS)
    warning = f"WARNING: unable to properly remove all mail handlers for ann@{DOMAIN}\n"
    assert ended.status == 0 and ended.out.endswith(warning), ended
    assert not set(ALIAS_ADDRESSES) & auth_rows().keys()


def test_without_the_panels_database_a_mail_alias_gets_no_account():
    done("--add-mailbox", *NAMES, env=PLAIN)
    stop("mariadb")
    ended = mailvek(*ADD_ALIAS)
    assert ended.status == 1 and "ERROR" not in ended.out, ended
    assert addresses()[f"ann@{DOMAIN}"] == ANNA and f"ann@{ALIAS}" not in addresses()
    assert f"ann@{DOMAIN}" not in auth_rows()


def test_a_failed_clone_leaves_the_earlier_clones():
    done("--add-mailbox", *NAMES, env=PLAIN)
    auth_sql("CREATE TRIGGER refuse BEFORE INSERT ON users WHEN NEW.name = 'ann' AND NEW.dom_id = "
             f"(SELECT id FROM domains WHERE name = '{OTHER}') BEGIN SELECT RAISE(ABORT, 'refused'); END")
    ended = mailvek(*ADD_ALIAS)
    assert ended.status == 1, ended
    assert sorted(address for address in auth_rows() if address.startswith("ann@")) == [
        f"ann@{ALIAS}", f"ann@{DOMAIN}"]


def test_accounts_that_cannot_be_cloned_leave_the_addresses():
    done("--add-mailbox", *NAMES, env=PLAIN)
    os.rename(ACCOUNTS, ACCOUNTS + ".away")
    assert mailvek(*ADD_ALIAS).status == 1
    assert set(ALIAS_ADDRESSES) <= addresses().keys()


def test_failed_account_removals_fail_with_the_addresses_gone():
    done("--add-mailbox", *NAMES, env=PLAIN)
    done(*ADD_ALIAS)
    without_accounts()
    assert mailvek(*REMOVE_ALIAS).status == 1
    assert not set(ALIAS_ADDRESSES) & addresses().keys()


# ------------------------------------------------------------------------------ autoresponder


def test_an_autoresponder_is_switched_on_and_off():
    done("--set-autoresponder", *NAMES)
    assert hooks() == [f"recipient/{ANNA}"]
    done("--set-autoresponder", *NAMES)
    assert hooks() == [f"recipient/{ANNA}"]
    done("--reset-autoresponder", *NAMES)
    assert hooks() == []
    done("--reset-autoresponder", *NAMES)


def test_a_list_of_mailnames_works():
    done("--set-autoresponder", f"--domain-name={DOMAIN}", "--mailname=anna,bertha carla")
    assert hooks() == [f"recipient/{name}@{DOMAIN}" for name in ("anna", "bertha", "carla")]


@pytest.mark.parametrize("command", ["--set-autoresponder", "--reset-autoresponder"])
def test_a_failing_autoresponder_ends_with_255(command):
    ended = mailvek(command, f"--domain-name={DOMAIN}", "--mailname=" + "a" * 300)
    assert ended.status == 255 and "domain name too long" in ended.err, ended
