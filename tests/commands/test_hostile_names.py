"""Names that would mean something else in SQL, in a map's text or in a path."""
import pytest

from mailhost import MAILNAMES, auth_rows, done, mailvek, nothing_changes, postmap, read, start
from panel import add_hook, hooks, panel_domain, panel_mailname

DOMAIN, ALIAS = "example.com", "alias.test"
PLAIN = {"ORV_PASSWORD": "secret"}
QUOTED = "o'brien"
NAMES = (f"--domain-name={DOMAIN}", f"--mailname={QUOTED}")


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    panel_domain(DOMAIN, aliases=[ALIAS])
    panel_mailname(f"{QUOTED}@{DOMAIN}", aliases=["d'arcy"])
    done("--add-domain", f"--domain-name={DOMAIN}")


def refused(*arguments, name=""):
    """Runs the tool, which must refuse the bad name and change nothing."""
    with nothing_changes():
        ended = mailvek(*arguments, env=PLAIN)
    assert ended.status == 1 and "Fatal error: " in ended.err and name in ended.err, ended


def test_a_quote_in_a_mailname_works_in_every_command():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--add-mailbox", *NAMES, env=PLAIN)
    done("--set-password", *NAMES, env=PLAIN)
    assert set(auth_rows()) == {
        f"{name}@{domain}" for name in (QUOTED, "d'arcy") for domain in (DOMAIN, ALIAS)}
    done("--set-mailbox-disk-quota", *NAMES, "--disk-quota=200000")
    assert mailvek("--get-mailbox-size", *NAMES).status == 0
    done("--add-redirect", *NAMES, "--redirect-email=l'amie@example.org")
    assert "&l'amie@example.org" in read(f"{MAILNAMES}/{DOMAIN}/{QUOTED}/.qmail")
    done("--remove-redirect", *NAMES, "--redirect-email=l'amie@example.org")
    done("--add-alias", *NAMES, "--alias=d'arcy")
    assert postmap("virtual")[f"d'arcy@{ALIAS}"] == f"{QUOTED}@{DOMAIN}"
    done("--set-autoresponder", *NAMES)
    done("--reset-autoresponder", *NAMES)
    done("--remove-alias", *NAMES, "--alias=d'arcy")
    done("--remove-mailbox", *NAMES)
    done("--rename-mailname", f"--domain-name={DOMAIN}", f"--old-mailname={QUOTED}", "--new-mailname=d'or")
    done("--remove-mailname", f"--domain-name={DOMAIN}", "--mailname=d'or")
    assert auth_rows() == {}


def test_a_quote_in_a_domain_is_refused():
    name = "x' OR d.name='victim.test"
    refused("--add-domain", f"--domain-name={name}")
    refused("--set-password", f"--domain-name={name}", "--mailname=anna")
    refused("--add-domain-alias", f"--domain-name={DOMAIN}", f"--domain-alias-name={name}", "--set-reject")
    refused("--remove-domain", f"--domain-name={name}")


@pytest.mark.parametrize("name", ["ceo@victim.test x", "a b", "a/b", "../b", "a,b", "#a\n#b"])
def test_an_alias_that_is_no_local_part_is_refused(name):
    done("--add-mailname", *NAMES)
    refused("--add-alias", *NAMES, f"--alias={name}", name=name.splitlines()[0])


@pytest.mark.parametrize("name", ["a b@c.test", "a@c.test d@e.test", "|cat@c.test x", "a@c.test,d@e.test", "a@'"])
def test_an_address_that_is_more_than_one_is_refused(name):
    done("--add-mailname", *NAMES)
    with nothing_changes():
        ended = mailvek("--add-redirect", *NAMES, f"--redirect-email={name}")
        assert ended.status == 1 and "Fatal error: " in ended.err, ended
        ended = mailvek("--set-catchall", f"--domain-name={DOMAIN}", f"--email={name}")
        assert ended.status == 1 and "Fatal error: " in ended.err, ended


def add_handler(**changes):
    options = {"handler-name": "check", "handler-type": "recipient", "handler-type-name": f"anna@{DOMAIN}",
               "executable": "/bin/true", "context": "x", "hook": "before-local", "priority": "10"} | changes
    return mailvek("--add-handler", *(f"--{name}={value}" for name, value in options.items()))


@pytest.mark.parametrize("changes", [
    {"handler-name": "../../x"}, {"handler-name": "a/b"}, {"hook": "../info"}, {"hook": ".."}, {"priority": "1/2"},
    {"handler-type-name": "../../../../etc"}, {"handler-type-name": "a/b@c.test"}, {"hook": "x" * 311},
    {"handler-type-name": "a" * 320}, {"context": "x" * 311}, {"context": "a\nb"}, {"hook": "a\nb"}])
def test_a_handler_beyond_reading_back_is_not_made(changes):
    add_hook(f"bertha@{DOMAIN}")
    with nothing_changes():
        ended = add_handler(**changes)
    assert ended.status == 1 and "Invalid handler" in ended.err, ended


def test_a_long_alias_leaves_autoresponders_as_they_were():
    done("--add-mailname", *NAMES)
    done("--set-autoresponder", *NAMES)
    ended = mailvek("--add-alias", *NAMES, "--alias=" + "a" * 320)
    assert "unable to set all mail handlers" in ended.err, ended
    done("--reset-autoresponder", *NAMES)
    assert hooks() == []
