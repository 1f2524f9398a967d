"""The steps of --add-domain-alias, --del-domain-alias and --rename-domain-alias, and the keys of a list
of domains: what is done when a later step fails, and which step's result counts."""
import os

import pytest

from mailhost import auth_domains, auth_rows, described, done, failed, mailvek, postmap, read, start, write
from panel import add_hook, damage_hooks, hooks, panel_domain, panel_domain_alias, panel_mailname, without_accounts

DOMAIN, ALIAS, NEW = "example.com", "alias.test", "new.test"
# A key for this name can be neither stored nor removed.
KEYLESS = "/"
ANNA = f"anna@{DOMAIN}"
AT = f"--domain-name={DOMAIN}"
ADD = ("--add-domain-alias", AT, f"--domain-alias-name={ALIAS}")
DELETE = ("--del-domain-alias", AT, f"--domain-alias-name={ALIAS}")
RENAME = ("--rename-domain-alias", AT, f"--old-domain-alias-name={ALIAS}", f"--new-domain-alias-name={NEW}")
UPLOAD = "/root/key"


@pytest.fixture(autouse=True)
def panel():
    """Makes a domain with a key, and with a mailname that has an account and a hook."""
    start("mariadb")
    panel_domain(DOMAIN)
    panel_mailname(ANNA)
    done("--add-domain", AT)
    done("--set-password", AT, "--mailname=anna", env={"ORV_PASSWORD": "secret"})
    add_hook(ANNA)
    write(UPLOAD, "the key\n")
    done("--set-domain-key", AT, f"--file-name={UPLOAD}")


def has_key(domain):
    return os.path.exists(f"/etc/domainkeys/{domain}/default")


def is_alias(domain):
    return domain in postmap("virtual")


def aliased():
    panel_domain_alias(DOMAIN, ALIAS)
    done(*ADD, "--set-reject")


# ------------------------------------------------------------------------------- alias domains


def test_an_alias_domain_has_hooks_and_key_before_accounts_fail():
    without_accounts()
    failed(*ADD, "--set-catchall", f"--email={ANNA}", saying=f"Unable to clone auth record for {ANNA}\n")
    assert is_alias(ALIAS) and has_key(ALIAS) and f"recipient/anna@{ALIAS}" in hooks()
    assert f"@{ALIAS}" not in postmap("virtual")


def test_an_alias_domain_loses_hooks_and_key_before_accounts_fail():
    aliased()
    without_accounts()
    failed(*DELETE, saying=f"Unable to remove domain {ALIAS} from auth database\n")
    assert not is_alias(ALIAS) and not has_key(ALIAS) and hooks() == [f"recipient/{ANNA}"]
    assert f"anna@{ALIAS}" in auth_rows()


def test_hooks_and_key_are_renamed_before_an_alias_domains_accounts():
    aliased()
    before = auth_rows()
    without_accounts()
    failed(*RENAME, "--set-reject", saying=f"Unable to clone auth record for {ANNA}\n")
    assert is_alias(NEW) and not is_alias(ALIAS) and has_key(NEW) and not has_key(ALIAS)
    assert hooks() == sorted([f"recipient/{ANNA}", f"recipient/anna@{NEW}"])
    assert auth_rows() == before


def test_a_renames_warning_is_on_both_streams():
    aliased()
    damage_hooks()
    ended = mailvek(*RENAME, "--set-reject")
    warning = f"WARNING: unable to properly re-assign mail handlers from {ALIAS} to {NEW}"
    for stream in (ended.out, ended.err):
        assert [line for line in stream.splitlines() if line.startswith("WARNING")] == [warning]
    assert ended.status == 0 and not has_key(ALIAS)


def test_an_empty_catch_all_address_fails_after_the_alias():
    text = ("Fatal error: orvek::mail::postfix::mailvek_commands::MissingMandatoryOption"
            '(mandatory option "--email" is not specified)\n')
    ended = failed(*ADD, "--set-catchall", "--email", "")
    assert (ended.out, ended.err) == (text, text)
    assert is_alias(ALIAS) and f"@{ALIAS}" not in postmap("virtual") and f"anna@{ALIAS}" in auth_rows()


def test_a_word_after_a_flag_is_no_phrase():
    done(*ADD, "--set-bounce", "gone away")
    assert postmap("aliases") == {f"_orvek_bounce_{ALIAS}": '"|/usr/lib64/orvek-9.0/bouncemessage"'}


def test_a_rename_misses_the_alias_before_the_address():
    aliased()
    ended = failed(*RENAME, "--set-catchall", saying="bad_any_cast")
    assert "--email" not in ended.err
    assert ALIAS not in auth_domains() and f"anna@{NEW}" in auth_rows()


# ------------------------------------------------------------------------------- lists of keys


def test_one_bad_domain_fails_but_the_others_get_keys():
    write(UPLOAD, "another key\n")
    report = f"Domain name '{KEYLESS}' cannot be stored in /etc/domainkeys\n"
    ended = failed("--set-domain-key", f"--domain-name={ALIAS},{KEYLESS},{NEW}", f"--file-name={UPLOAD}")
    assert (ended.out, ended.err) == (report, report)
    for domain in (ALIAS, NEW):
        assert read(f"/etc/domainkeys/{domain}/default") == "another key\n"
        assert described(f"/etc/domainkeys/{domain}/default") == "f 0440 root:popuser"
    assert read(UPLOAD) == "another key\n"


def test_a_missing_upload_is_told_before_any_domain():
    report = "No source file '/root/absent': No such file or directory\nSystem error 2: No such file or directory\n"
    ended = failed("--set-domain-key", f"--domain-name={KEYLESS},{ALIAS}", "--file-name=/root/absent")
    assert (ended.out, ended.err) == (report, report) and not has_key(ALIAS)


def test_one_bad_domain_fails_but_the_others_lose_keys():
    write(UPLOAD, "another key\n")
    done("--set-domain-key", f"--domain-name={ALIAS}", f"--file-name={UPLOAD}")
    failed("--remove-domain-key", f"--domain-name={DOMAIN},{KEYLESS},{ALIAS}")
    assert not has_key(DOMAIN) and not has_key(ALIAS)


def test_keys_of_domains_that_have_none_are_removed_with_success():
    done("--remove-domain-key", f"--domain-name={ALIAS},{NEW}")
    assert has_key(DOMAIN)
