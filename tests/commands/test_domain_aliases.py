"""--set-bounce, --set-catchall, --set-reject, --unset-reject, --add-domain-alias,
--del-domain-alias, --rename-domain-alias, --set-domain-key, --remove-domain-key."""
import os

import pytest

from host_faults import read_only
from mailhost import (
    ACCOUNTS, MAPS, auth_domains, auth_rows, described, done, failed, mailvek, postmap, read, start, stop, write,
)
from panel import (
    LOCAL, add_hook, damage_hooks, hooks, panel_domain, panel_domain_alias, panel_mailname,
    standard_addresses, without_accounts,
)
from spies import Rule, spy

POSTMAP = "/usr/sbin/postmap"
DOMAIN, ALIAS, NEW = "example.com", "alias.test", "new.test"
ANNA = f"anna@{DOMAIN}"
PLAIN = {"ORV_PASSWORD": "secret"}
BOUNCE = "|/usr/lib64/orvek-9.0/bouncemessage"
KEY = "/etc/domainkeys/{}/default"


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    panel_domain(DOMAIN)
    panel_mailname(ANNA, aliases=["ann"])
    done("--add-domain", f"--domain-name={DOMAIN}")


def addresses():
    standard = standard_addresses(DOMAIN)
    return {key: value for key, value in postmap("virtual").items() if key not in standard}


def bounced(domain):
    return {f"@{domain}": f"_orvek_bounce_{domain}@{LOCAL}"}


def with_two_alias_domains():
    for alias in (ALIAS, NEW):
        panel_domain_alias(DOMAIN, alias)


# --------------------------------------------------------------------- mail to unknown names


def test_each_alias_domain_has_a_bounce_pipe_and_an_address():
    with_two_alias_domains()
    done("--set-bounce", f"--domain-name={DOMAIN}", "--phrase=gone")
    assert postmap("aliases") == {f"_orvek_bounce_{name}": f'"{BOUNCE} gone"' for name in (DOMAIN, ALIAS, NEW)}
    assert addresses() == bounced(DOMAIN) | bounced(ALIAS) | bounced(NEW)


@pytest.mark.parametrize("arguments", [(), ("--phrase", "")])
def test_a_bounce_without_a_phrase_ends_in_the_program(arguments):
    done("--set-bounce", f"--domain-name={DOMAIN}", *arguments)
    assert postmap("aliases") == {f"_orvek_bounce_{DOMAIN}": f'"{BOUNCE}"'}


def test_a_phrase_of_two_lines_is_quoted_for_two_shells():
    done("--set-bounce", f"--domain-name={DOMAIN}", "--phrase=a b\nc")
    assert postmap("aliases")[f"_orvek_bounce_{DOMAIN}"] == f'"{BOUNCE} a\\\\\\ b\\\\\\ c"'


def test_a_catch_all_holds_for_the_alias_domains_too():
    with_two_alias_domains()
    done("--set-catchall", f"--domain-name={DOMAIN}", "--email=bertha@müller.test")
    assert addresses() == {f"@{name}": "bertha@xn--mller-kva.test" for name in (DOMAIN, ALIAS, NEW)}


@pytest.mark.parametrize("command", ["--set-reject", "--unset-reject"])
def test_rejecting_ends_the_catch_all_of_all_domains(command):
    with_two_alias_domains()
    done("--set-catchall", f"--domain-name={DOMAIN}", f"--email={ANNA}")
    done(command, f"--domain-name={DOMAIN}")
    assert addresses() == {}


@pytest.mark.parametrize("command", ["--set-reject", "--unset-reject"])
def test_to_reject_ends_a_bounce_and_leaves_its_pipe(command):
    done("--set-bounce", f"--domain-name={DOMAIN}", "--phrase=gone")
    done(command, f"--domain-name={DOMAIN}")
    assert addresses() == {} and f"_orvek_bounce_{DOMAIN}" in postmap("aliases")


def test_the_pipe_that_cannot_be_written_keeps_the_address_away():
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n", having=f"hash:{MAPS}/aliases"))
    failed("--set-bounce", f"--domain-name={DOMAIN}", saying="postmap: fatal: no")
    assert addresses() == {} and postmap("aliases") == {}


def test_without_the_panel_only_the_domain_gets_a_catch_all():
    with_two_alias_domains()
    stop("mariadb")
    ended = mailvek("--set-catchall", f"--domain-name={DOMAIN}", f"--email={ANNA}")
    assert ended.status == 0, ended
    assert addresses() == {f"@{DOMAIN}": ANNA}


# ------------------------------------------------------------------------- --add-domain-alias


ADD = ("--add-domain-alias", f"--domain-name={DOMAIN}", f"--domain-alias-name={ALIAS}")
ADDRESSES = {ALIAS: "1", f"anna@{ALIAS}": ANNA, f"ann@{ALIAS}": ANNA}


def populated():
    """Makes a mailname with a mail alias, accounts, a hook for it, a hook for the domain, and a key."""
    done("--add-mailname", f"--domain-name={DOMAIN}", "--mailname=anna", "--disk-quota=100000")
    done("--add-alias", f"--domain-name={DOMAIN}", "--mailname=anna", "--alias=ann")
    done("--set-password", f"--domain-name={DOMAIN}", "--mailname=anna", env=PLAIN)
    add_hook(ANNA)
    add_hook(DOMAIN)
    uploaded_key()


def aliased():
    return {key: value for key, value in addresses().items() if key.endswith(ALIAS)}


def test_an_alias_domain_carries_addresses_accounts_hooks_and_the_key():
    populated()
    done(*ADD, "--set-reject")
    assert aliased() == ADDRESSES | standard_addresses(ALIAS)
    assert sorted(address for address in auth_rows() if address.endswith(ALIAS)) == [
        f"ann@{ALIAS}", f"anna@{ALIAS}"]
    assert auth_rows()[f"anna@{ALIAS}"] == ("secret", None, 0)
    assert hooks() == sorted([f"recipient/{ANNA}", f"recipient/anna@{ALIAS}", f"recipient-domain/{DOMAIN}",
                              f"recipient-domain/{ALIAS}"])
    assert read(KEY.format(ALIAS)) == "the key\n"
    assert described(KEY.format(ALIAS)) == "f 0440 root:popuser"


def test_a_catch_all_of_an_alias_domain_is_its_own():
    done(*ADD, "--set-catchall", f"--email={ANNA}")
    assert addresses()[f"@{ALIAS}"] == ANNA and f"@{DOMAIN}" not in addresses()


def test_a_bounce_of_an_alias_domain_is_its_own():
    done(*ADD, "--set-bounce", "--phrase=gone")
    assert postmap("aliases") == {f"_orvek_bounce_{ALIAS}": f'"{BOUNCE} gone"'}
    assert addresses()[f"@{ALIAS}"] == f"_orvek_bounce_{ALIAS}@{LOCAL}" and f"@{DOMAIN}" not in addresses()


def test_a_bounce_beats_a_catch_all_which_beats_rejecting():
    done(*ADD, "--set-bounce", "--set-catchall", f"--email={ANNA}", "--set-reject")
    assert addresses()[f"@{ALIAS}"] == f"_orvek_bounce_{ALIAS}@{LOCAL}"
    done(*ADD, "--set-catchall", f"--email={ANNA}", "--set-reject")
    assert addresses()[f"@{ALIAS}"] == ANNA


def test_the_alias_is_made_though_unknown_names_lack_an_option():
    failed(*ADD, saying="Action for notexisting mail names is not specified "
                        "(--set-bounce/--set-catchall/--set-reject)")
    assert aliased() == ADDRESSES | standard_addresses(ALIAS)


def test_a_catch_all_without_an_address_fails_after_the_alias():
    ended = failed(*ADD, "--set-catchall", saying='mandatory option "--email" is not specified')
    assert "Usage:" not in ended.out
    assert aliased() == ADDRESSES | standard_addresses(ALIAS)


def test_failed_hook_clones_warn_and_the_rest_is_done():
    populated()
    damage_hooks()
    ended = mailvek(*ADD, "--set-reject")
    warning = f"WARNING: unable to clone all mail handlers for {ALIAS}\n"
    assert ended.status == 0 and ended.out.endswith(warning) and ended.err.endswith(warning), ended
    assert f"anna@{ALIAS}" in auth_rows()


def uploaded_key():
    write("/root/key", "the key\n")
    done("--set-domain-key", f"--domain-name={DOMAIN}", "--file-name=/root/key")


def test_failed_account_clones_end_it_before_the_catch_all():
    populated()
    os.rename(ACCOUNTS, ACCOUNTS + ".away")
    ended = mailvek(*ADD, "--set-catchall", f"--email={ANNA}")
    assert ended.status == 1, ended
    assert f"anna@{ALIAS}" in addresses() and f"@{ALIAS}" not in addresses()


def test_maps_that_cannot_be_changed_end_it_at_once():
    populated()
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n"))
    failed(*ADD, "--set-reject", saying="postmap: fatal: no")
    assert aliased() == {} and f"anna@{ALIAS}" not in auth_rows() and not os.path.exists(KEY.format(ALIAS))


def test_without_the_panels_database_no_alias_domain_is_marked():
    populated()
    stop("mariadb")
    assert mailvek(*ADD, "--set-reject").status == 1
    assert ALIAS not in addresses() and f"anna@{ALIAS}" not in auth_rows()


# ------------------------------------------------------------------------- --del-domain-alias


def with_an_alias_domain():
    populated()
    panel_domain_alias(DOMAIN, ALIAS)
    done(*ADD, "--set-reject")


@pytest.mark.parametrize("domain", [DOMAIN, "wrong.test"])
def test_a_removed_alias_domain_leaves_nothing(domain):
    populated()
    before = postmap("virtual"), auth_rows(), hooks()
    panel_domain_alias(DOMAIN, ALIAS)
    done(*ADD, "--set-reject")
    done("--del-domain-alias", f"--domain-name={domain}", f"--domain-alias-name={ALIAS}")
    assert (postmap("virtual"), auth_rows(), hooks()) == before
    assert not os.path.exists(KEY.format(ALIAS)) and os.path.exists(KEY.format(DOMAIN))
    assert ALIAS not in auth_domains()


def test_failed_hook_removals_warn_and_the_accounts_go():
    with_an_alias_domain()
    damage_hooks()
    ended = mailvek("--del-domain-alias", f"--domain-name={DOMAIN}", f"--domain-alias-name={ALIAS}")
    warning = f"WARNING: unable to properly remove mail handlers for {ALIAS}\n"
    assert ended.status == 0 and warning in ended.err, ended
    assert ALIAS not in auth_domains()


def test_failed_account_removals_fail_with_the_addresses_gone():
    with_an_alias_domain()
    without_accounts()
    assert mailvek("--del-domain-alias", f"--domain-name={DOMAIN}", f"--domain-alias-name={ALIAS}").status == 1
    assert aliased() == {}


def test_an_alias_domain_stuck_in_the_map_keeps_its_accounts():
    with_an_alias_domain()
    spy(POSTMAP, Rule(exit=1, err="postmap: fatal: no\n"))
    failed("--del-domain-alias", f"--domain-name={DOMAIN}", f"--domain-alias-name={ALIAS}",
           saying="postmap: fatal: no")
    assert f"anna@{ALIAS}" in auth_rows() and os.path.exists(KEY.format(ALIAS))


# ---------------------------------------------------------------------- --rename-domain-alias


RENAME = ("--rename-domain-alias", f"--domain-name={DOMAIN}", f"--old-domain-alias-name={ALIAS}",
          f"--new-domain-alias-name={NEW}")


def renamed_addresses():
    """The records of the alias domain under its new name, including the one that marks it."""
    return {NEW: "1", f"anna@{NEW}": ANNA, f"ann@{NEW}": ANNA} | standard_addresses(NEW)


def test_a_renamed_alias_domain_carries_all_it_had():
    with_an_alias_domain()
    done(*RENAME, "--set-reject")
    assert aliased() == {}
    assert {key: value for key, value in addresses().items() if key.endswith(NEW)} == renamed_addresses()
    assert sorted(address for address in auth_rows() if address.endswith(".test")) == [f"ann@{NEW}", f"anna@{NEW}"]
    assert hooks() == sorted([f"recipient/{ANNA}", f"recipient/anna@{NEW}", f"recipient-domain/{DOMAIN}",
                              f"recipient-domain/{NEW}"])
    assert read(KEY.format(NEW)) == "the key\n" and not os.path.exists(KEY.format(ALIAS))


@pytest.mark.parametrize("arguments", [("--set-bounce",), ("--set-catchall", f"--email={ANNA}")])
def test_a_rename_with_bounce_or_catch_all_fails_last(arguments):
    with_an_alias_domain()
    ended = failed(*RENAME, *arguments, saying="bad_any_cast")
    assert "Usage:" not in ended.out
    assert {key: value for key, value in addresses().items() if key.endswith(NEW)} == renamed_addresses()
    assert f"anna@{NEW}" in auth_rows() and ALIAS not in auth_domains()
    assert f"@{NEW}" not in addresses()


def test_a_rename_without_unknown_name_option_fails_when_done():
    with_an_alias_domain()
    failed(*RENAME, saying="Action for notexisting mail names is not specified")
    assert f"anna@{NEW}" in auth_rows() and f"anna@{NEW}" in addresses()


def test_a_rename_tells_of_hooks_and_goes_on():
    with_an_alias_domain()
    damage_hooks()
    ended = mailvek(*RENAME, "--set-reject")
    assert ended.status == 0, ended
    assert ended.err.endswith(f"WARNING: unable to properly re-assign mail handlers from {ALIAS} to {NEW}\n")
    assert f"anna@{NEW}" in auth_rows() and ALIAS not in auth_domains()


def test_new_accounts_that_cannot_be_made_keep_the_old_ones():
    with_an_alias_domain()
    before = auth_rows()
    stop("mariadb")
    assert mailvek(*RENAME, "--set-reject").status == 1
    assert auth_rows() == before and f"anna@{NEW}" in addresses()


# ------------------------------------------------------------------------------- domain keys


def test_each_domain_gets_a_key_and_the_upload_goes():
    write("/root/key", "the key\n")
    done("--set-domain-key", f"--domain-name={DOMAIN},{ALIAS}", "--file-name=/root/key")
    for domain in (DOMAIN, ALIAS):
        assert read(KEY.format(domain)) == "the key\n"
        assert described(KEY.format(domain)) == "f 0440 root:popuser"
        assert described(os.path.dirname(KEY.format(domain))) == "d 0755 root:root"
    assert not os.path.exists("/root/key")


def test_a_key_that_cannot_be_installed_keeps_the_upload():
    write("/root/key", "the key\n")
    os.makedirs("/etc/domainkeys", exist_ok=True)
    read_only("/etc/domainkeys")
    assert mailvek("--set-domain-key", f"--domain-name={DOMAIN}", "--file-name=/root/key").status == 1
    assert read("/root/key") == "the key\n"


def test_an_upload_that_is_not_there_is_a_failure():
    failed("--set-domain-key", f"--domain-name={DOMAIN}", "--file-name=/root/absent",
           saying="No source file '/root/absent'")


def test_keys_are_removed_for_a_list():
    write("/root/key", "the key\n")
    done("--set-domain-key", f"--domain-name={DOMAIN},{ALIAS}", "--file-name=/root/key")
    done("--remove-domain-key", f"--domain-name={DOMAIN},{ALIAS}")
    assert not os.path.exists(KEY.format(DOMAIN)) and not os.path.exists(KEY.format(ALIAS))


def test_a_key_that_cannot_be_removed_is_a_failure():
    write("/root/key", "the key\n")
    done("--set-domain-key", f"--domain-name={DOMAIN}", "--file-name=/root/key")
    read_only("/etc/domainkeys")
    assert mailvek("--remove-domain-key", f"--domain-name={DOMAIN}").status == 1
