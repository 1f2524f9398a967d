"""How options and environment set a password, and the accounts of a mail alias."""
import functools

import pytest

import mailhost
from mailhost import auth_domains, auth_rows, start
from panel import panel_domain, panel_domain_alias, panel_mailname

DOMAIN, ALIAS = "example.com", "alias.test"
AT = f"--domain-name={DOMAIN}"
NAMES = (AT, "--mailname=anna")
PLAIN = {"ORV_PASSWORD": "secret"}
ON, OFF = 0, 1

done = functools.partial(mailhost.done, env=PLAIN)


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    panel_domain(DOMAIN)
    panel_mailname(f"anna@{DOMAIN}")
    done("--add-domain", AT)
    done("--add-mailname", *NAMES, "--disk-quota=100000")


@pytest.mark.parametrize("command", ["--add-mailbox", "--set-password"])
@pytest.mark.parametrize("option, status", [((), ON), (("--mail-domain-disabled",), OFF), (("-D",), OFF)])
def test_a_domain_that_is_off_is_registered_as_off(command, option, status):
    panel_domain_alias(DOMAIN, ALIAS)
    done(command, *NAMES, *option)
    assert auth_domains() == {DOMAIN: status, ALIAS: status}
    assert {password for password, _, _ in auth_rows().values()} == {"secret"}


@pytest.mark.parametrize("option", ["--mail-domain-disabled", "-D"])
def test_a_rename_ignores_a_domain_that_is_off(option):
    done("--set-password", *NAMES)
    done("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita", option)
    assert auth_domains() == {DOMAIN: ON} and auth_rows() == {f"anita@{DOMAIN}": ("secret", None, ON)}


@pytest.mark.parametrize("command", ["--add-mailbox", "--set-password"])
def test_an_encrypted_password_is_kept_encrypted_under_each_domain(command):
    panel_domain_alias(DOMAIN, ALIAS)
    done(command, *NAMES, env={"ORV_CRYPTED_PASSWORD": "$1$salt$hash"})
    account = (None, "$1$salt$hash", ON)
    assert auth_rows() == {f"anna@{DOMAIN}": account, f"anna@{ALIAS}": account}


def test_without_alias_domains_a_mail_alias_has_one_account():
    done("--set-password", *NAMES)
    done("--add-alias", *NAMES, "--alias=ann")
    assert auth_rows() == dict.fromkeys([f"anna@{DOMAIN}", f"ann@{DOMAIN}"], ("secret", None, ON))


def test_an_alias_domain_gets_the_mail_aliases_account():
    """The copy is not of the mailname's account under the alias domain, which does not exist here."""
    done("--set-password", *NAMES)
    panel_domain_alias(DOMAIN, ALIAS)
    done("--add-alias", *NAMES, "--alias=ann")
    assert sorted(auth_rows()) == [f"ann@{ALIAS}", f"ann@{DOMAIN}", f"anna@{DOMAIN}"]
