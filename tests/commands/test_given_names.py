"""The names that commands are given: domains in another script, bad names, and names that are stored
as typed."""
import functools
import os

import pytest

import mailhost
from mailhost import (
    MAILNAMES, auth_domains, auth_rows, mailvek, nothing_changes, postmap, read, start, tree, write,
)
from panel import add_hook, hooks, panel_domain, panel_mailname

TAKES_LONG = True

TYPED, OLD_TYPED, NEW_TYPED = "müller.test", "älter.test", "köln.test"
DOMAIN, OLD, NEW = "xn--mller-kva.test", "xn--lter-koa.test", "xn--kln-sna.test"
ANNA = f"anna@{DOMAIN}"
PLAIN = {"ORV_PASSWORD": "secret"}
UPLOAD = "/root/key"
UNCONVERTIBLE = "ü" * 70 + ".test"

done = functools.partial(mailhost.done, env=PLAIN)


@pytest.fixture
def populated():
    """Makes a domain with an alias domain and keys, and a mailname with a mail alias, accounts and hooks,
    all under the ASCII forms of their names."""
    start("mariadb")
    panel_domain(DOMAIN, aliases=[OLD])
    panel_mailname(ANNA, aliases=["ann"])
    at, names = f"--domain-name={DOMAIN}", (f"--domain-name={DOMAIN}", "--mailname=anna")
    done("--add-domain", at)
    done("--add-mailname", *names, "--disk-quota=100000")
    done("--add-domain-alias", at, f"--domain-alias-name={OLD}", "--set-reject")
    done("--add-alias", *names, "--alias=ann")
    done("--set-password", *names)
    done("--set-catchall", at, f"--email={ANNA}")
    done("--add-redirect", *names, "--redirect-email=b@example.org")
    add_hook(ANNA)
    write(UPLOAD, "the key\n")
    done("--set-domain-key", f"--domain-name={DOMAIN},{OLD}", f"--file-name={UPLOAD}")
    write(UPLOAD, "another key\n")


def files(top):
    """Everything below a directory, files with their content."""
    return {f"{top}/{path}": (said, read(f"{top}/{path}") if said.startswith("f ") else "")
            for path, said in tree(top).items()}


def state():
    maps = {name: postmap(name) for name in ("virtual_domains", "virtual", "vmailbox", "aliases")}
    return maps, auth_rows(), auth_domains(), hooks(), files(MAILNAMES), files("/etc/domainkeys")


AT = f"--domain-name={TYPED}"
NAMES = (AT, "--mailname=anna")
FORWARD = "--redirect-email=b@example.org"

# Each of these changes something about the existing domain.
CHANGES = [
    ("--add-domain", AT, "--disk-quota=4000"),
    ("--remove-domain", AT),
    ("--turn-off-domain", AT),
    ("--set-domain-disk-quota", AT, "--disk-quota=5000"),
    ("--add-mailname", AT, "--mailname=bertha", "--disk-quota=100000"),
    ("--remove-mailname", *NAMES),
    ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita"),
    ("--add-mailbox", *NAMES),
    ("--remove-mailbox", *NAMES),
    ("--set-password", *NAMES),
    ("--set-mailbox-disk-quota", *NAMES, "--disk-quota=5000"),
    ("--add-redirect", *NAMES, "--redirect-email=c@köln.test"),
    ("--remove-redirect", *NAMES, FORWARD),
    ("--add-alias", *NAMES, "--alias=annie"),
    ("--remove-alias", *NAMES, "--alias=ann"),
    ("--set-autoresponder", *NAMES),
    ("--set-bounce", AT),
    ("--set-catchall", AT, "--email=c@köln.test"),
    ("--set-reject", AT),
    ("--unset-reject", AT),
    ("--add-domain-alias", AT, f"--domain-alias-name={NEW_TYPED}", "--set-bounce"),
    ("--add-domain-alias", AT, f"--domain-alias-name={NEW_TYPED}", "--set-catchall", "--email=c@köln.test"),
    ("--del-domain-alias", AT, f"--domain-alias-name={OLD_TYPED}"),
    ("--rename-domain-alias", AT, f"--old-domain-alias-name={OLD_TYPED}",
     f"--new-domain-alias-name={NEW_TYPED}", "--set-reject"),
    ("--set-domain-key", AT, f"--file-name={UPLOAD}"),
    ("--remove-domain-key", AT),
]


@pytest.mark.parametrize("arguments", CHANGES, ids=lambda arguments: arguments[0])
def test_a_domain_in_another_script_equals_its_ascii_form(populated, arguments):
    before = state()
    done(*arguments, env={"ORV_PASSWORD": "another"})
    after = state()
    assert after != before
    assert [character for character in repr(after) if not character.isascii()] == []


def test_what_is_undone_in_another_script_is_undone(populated):
    before = state()
    for arguments in (("--turn-off-domain", AT), ("--set-autoresponder", *NAMES)):
        done(*arguments)
    assert state() != before
    for arguments in (("--turn-on-domain", AT), ("--reset-autoresponder", *NAMES)):
        done(*arguments)
    assert state() == before


def test_a_mailboxs_size_is_asked_for_in_another_script(populated):
    size = mailvek("--get-mailbox-size", f"--domain-name={DOMAIN}", "--mailname=anna").out
    assert int(size) > 0
    done("--get-mailbox-size", *NAMES, out=size)


# The options of each command, each with a value that the command takes.
MAILNAME = {"domain-name": DOMAIN, "mailname": "anna"}
REDIRECT = MAILNAME | {"redirect-email": "b@example.org"}
ALIAS = MAILNAME | {"alias": "ann"}
COMMANDS = {
    "--add-domain": {"domain-name": DOMAIN, "disk-quota": "5"},
    "--remove-domain": {"domain-name": DOMAIN},
    "--turn-on-domain": {"domain-name": DOMAIN},
    "--turn-off-domain": {"domain-name": DOMAIN},
    "--set-domain-disk-quota": {"domain-name": DOMAIN, "disk-quota": "5"},
    "--add-mailname": MAILNAME,
    "--remove-mailname": MAILNAME,
    "--rename-mailname": {"domain-name": DOMAIN, "old-mailname": "anna", "new-mailname": "anita"},
    "--add-mailbox": MAILNAME,
    "--remove-mailbox": MAILNAME,
    "--get-mailbox-size": MAILNAME,
    "--set-password": MAILNAME,
    "--set-mailbox-disk-quota": MAILNAME | {"disk-quota": "5"},
    "--add-redirect": REDIRECT,
    "--remove-redirect": REDIRECT,
    "--add-alias": ALIAS,
    "--remove-alias": ALIAS,
    "--set-autoresponder": MAILNAME,
    "--reset-autoresponder": MAILNAME,
    "--set-bounce": {"domain-name": DOMAIN},
    "--set-catchall": {"domain-name": DOMAIN, "email": "b@example.org"},
    "--set-reject": {"domain-name": DOMAIN},
    "--unset-reject": {"domain-name": DOMAIN},
    "--add-domain-alias": {"domain-name": DOMAIN, "domain-alias-name": OLD},
    "--del-domain-alias": {"domain-name": DOMAIN, "domain-alias-name": OLD},
    "--rename-domain-alias": {"domain-name": DOMAIN, "old-domain-alias-name": OLD, "new-domain-alias-name": NEW},
    "--set-domain-key": {"domain-name": DOMAIN, "file-name": UPLOAD},
    "--remove-domain-key": {"domain-name": DOMAIN},
}
DOMAIN_OPTIONS = ("domain-name", "domain-alias-name", "old-domain-alias-name", "new-domain-alias-name")
LOCAL_PARTS = ("mailname", "old-mailname", "new-mailname")
CHECKED = [command for command in COMMANDS if command.endswith(("-mailname", "-mailbox"))] + [
    "--get-mailbox-size", "--set-password", "--set-mailbox-disk-quota"]


def with_options(command, **given):
    """The command with these values instead of its own. Options that it does not take are left out."""
    given = {name.replace("_", "-"): value for name, value in given.items()}
    return mailvek(command, *(f"--{name}={given.get(name, value)}" for name, value in COMMANDS[command].items()),
                   env=PLAIN)


def refused(command, text, **given):
    ended = with_options(command, **given)
    assert (ended.status, ended.out, ended.err) == (1, text, text), ended


def options_of(command, names):
    return [name for name in COMMANDS[command] if name in names]


NO_DOMAIN = "Fatal error: orvek::idn::IdnaError(Invalid length)\n"


def no_local_part(name):
    return f"Fatal error: std::invalid_argument({name})\n"


def test_each_command_refuses_a_domain_without_an_ascii_form():
    # An alias domain is removed by its own name only.
    unused = [("--del-domain-alias", "domain-name")]
    tried = [(command, option) for command in COMMANDS for option in options_of(command, DOMAIN_OPTIONS)
             if (command, option) not in unused]
    assert len(tried) == len(COMMANDS) + 3
    with nothing_changes():
        for command, option in tried:
            refused(command, NO_DOMAIN, **{option: UNCONVERTIBLE})
        for command, option in (("--add-redirect", "redirect-email"), ("--remove-redirect", "redirect-email"),
                                ("--set-catchall", "email")):
            refused(command, NO_DOMAIN, **{option: f"b@{UNCONVERTIBLE}"})


def test_each_command_refuses_an_invalid_local_part():
    assert len(CHECKED) == 8
    with nothing_changes():
        for command in CHECKED:
            for option in options_of(command, LOCAL_PARTS):
                refused(command, no_local_part("../x"), **{option: "../x"})


def test_domain_precedes_local_part_and_old_precedes_new():
    for command in CHECKED:
        bad = {option: "a..b" for option in options_of(command, LOCAL_PARTS)}
        refused(command, NO_DOMAIN, domain_name=UNCONVERTIBLE, **bad)
    refused("--rename-mailname", no_local_part("o..d"), old_mailname="o..d", new_mailname="n..w")


def test_a_leaving_alias_domain_is_not_even_converted(populated):
    done("--del-domain-alias", f"--domain-name={UNCONVERTIBLE}", f"--domain-alias-name={OLD}")
    assert OLD not in postmap("virtual")


@pytest.mark.parametrize("command", ["--set-domain-disk-quota", "--set-mailbox-disk-quota"])
def test_the_mailboxes_owner_is_looked_up_before_names(command):
    write("/etc/passwd", read("/etc/passwd").replace("\npopuser:", "\nanother:"))
    ended = with_options(command, domain_name=UNCONVERTIBLE, mailname="a..b")
    assert ended.status == 1 and "popuser" in ended.err, ended


# ------------------------------------------------------------------------------ as typed


def test_redirects_aliases_and_autoresponders_take_any_mailname(populated):
    names = (AT, "--mailname=a..b")
    home = f"{MAILNAMES}/{DOMAIN}/a..b"
    os.mkdir(home)
    write(f"{home}/.qmail", "| true\n")
    done("--add-redirect", *names, FORWARD)
    assert read(f"{home}/.qmail") == "| true\n&b@example.org\n"
    done("--remove-redirect", *names, FORWARD)
    assert read(f"{home}/.qmail") == "| true\n"
    done("--add-alias", *names, "--alias=c..d")
    assert postmap("virtual")[f"c..d@{DOMAIN}"] == f"a..b@{DOMAIN}"
    done("--remove-alias", *names, "--alias=c..d")
    assert f"c..d@{DOMAIN}" not in postmap("virtual")
    done("--set-autoresponder", *names)
    assert f"recipient/a..b@{DOMAIN}" in hooks()
    done("--reset-autoresponder", *names)
    assert f"recipient/a..b@{DOMAIN}" not in hooks()


def test_a_mail_alias_is_kept_as_typed(populated):
    done("--add-alias", *NAMES, "--alias=Ännie")
    assert auth_rows()[f"Ännie@{DOMAIN}"] == ("secret", None, 0)
    # postmap turns the capitals of keys into small letters.
    assert postmap("virtual")[f"ännie@{DOMAIN}"] == ANNA
    assert f"recipient/Ännie@{DOMAIN}" in hooks()
    done("--remove-alias", *NAMES, "--alias=Ännie")
    assert f"Ännie@{DOMAIN}" not in auth_rows() and f"ännie@{DOMAIN}" not in postmap("virtual")
    assert f"recipient/Ännie@{DOMAIN}" not in hooks()


def test_autoresponder_names_are_separated_by_commas_and_blanks():
    domains = "--domain-name=example.com,a.test b.test"
    done("--set-autoresponder", domains, "--mailname=anna,bertha carla")
    expected = sorted(f"recipient/{name}@{domain}" for name in ("anna", "bertha", "carla")
                      for domain in ("example.com", "a.test", "b.test"))
    assert hooks() == expected
    done("--reset-autoresponder", domains, "--mailname=anna carla")
    assert hooks() == [hook for hook in expected if hook.startswith("recipient/bertha@")]


# ------------------------------------------------------------- names for another language

NO_LDH = "Fatal error: orvek::idn::IdnaError(Contains non-LDH characters)\n"
SINGLE_DOMAINS = [(command, option) for command in COMMANDS for option in options_of(command, DOMAIN_OPTIONS)
                  if (command, option) != ("--del-domain-alias", "domain-name") and "-key" not in command
                  and "autoresponder" not in command]


@pytest.mark.parametrize("evil", ["a,b.test", "a b.test", "x' OR '1", 'x"y', "b/a.test", "a@b.test", "#a.test"])
def test_each_command_refuses_a_domain_with_a_separator(evil):
    with nothing_changes():
        for command, option in SINGLE_DOMAINS:
            refused(command, NO_LDH, **{option: evil})


@pytest.mark.parametrize("evil", ["a b", "a,b", "ceo@victim.test x", 'x"y', "a/b", "|id", "#a", "."])
def test_each_command_refuses_a_local_part_with_a_separator(evil):
    with nothing_changes():
        for command in CHECKED + ["--add-redirect", "--remove-redirect", "--add-alias", "--remove-alias"]:
            for option in options_of(command, (*LOCAL_PARTS, "alias")):
                refused(command, no_local_part(evil), **{option: evil})


@pytest.mark.parametrize("evil", ["|/bin/true", "|/bin/true@b.test", "a@b.test,c@d.test", "a@b.test x", "/etc/passwd",
                                  ":include:/etc/passwd", "#a@b.test", "@b.test"])
def test_an_address_is_an_address(evil):
    with nothing_changes():
        refused("--add-redirect", no_local_part(evil), redirect_email=evil)
        refused("--remove-redirect", no_local_part(evil), redirect_email=evil)
        refused("--set-catchall", no_local_part(evil), email=evil)
        ended = mailvek("--add-domain-alias", AT, f"--domain-alias-name={NEW}", "--set-catchall", f"--email={evil}")
        assert (ended.status, ended.err) == (1, no_local_part(evil)), ended


@pytest.mark.parametrize("end", ["\n| /bin/true", "\n./planted/", "\r\n|id", "\n"])
def test_an_address_with_a_line_end_is_refused(end):
    with nothing_changes():
        for command in ("--add-redirect", "--remove-redirect"):
            ended = with_options(command, redirect_email=f"b@example.org{end}")
            assert ended.status == 1 and "std::invalid_argument" in ended.err, ended


@pytest.mark.parametrize("evil", ["0.0.0.0/0 10.0.0.0", "10.0.0.0, 0.0.0.0", "/etc/passwd", "$mydestination", "!10.0.0.1"])
def test_a_network_is_one_address(evil):
    with nothing_changes():
        for command in ("--add-whitelist", "--remove-whitelist"):
            ended = mailvek(command, f"--ip-address={evil}", "--netmask=8")
            assert (ended.status, ended.err) == (1, no_local_part(evil)), ended


def test_a_zone_names_no_parameter_of_main_cf():
    with nothing_changes():
        ended = mailvek("--set-maps-protection", "--maps-zones=a.test,${mydestination}")
        assert (ended.status, ended.err) == (1, no_local_part("${mydestination}")), ended
        assert mailvek("--set-maps-protection", "--maps-zones=a.test\ninet_interfaces=all").status == 1


@pytest.mark.parametrize("sender", ["a b.test", "#a.test", "a.test\tOK", 'a"b', ""])
def test_a_refused_sender_is_one_key(sender):
    with nothing_changes():
        for command in ("--add-badmailfrom", "--remove-badmailfrom"):
            assert mailvek(command, "--domain-name", sender).status == 1


def test_refused_senders_may_be_addresses():
    for sender in ("a@b.test", "@c.test"):
        done("--add-badmailfrom", f"--domain-name={sender}")
        assert sender in postmap("blacklists")


def test_an_apostrophe_in_a_mailname_is_honest(populated):
    panel_mailname(f"o'brien@{DOMAIN}")
    names = (AT, "--mailname=o'brien")
    done("--add-mailname", *names, "--disk-quota=100000")
    done("--add-mailbox", *names)
    done("--add-redirect", *names, "--redirect-email=o'hara@example.org")
    assert auth_rows()[f"o'brien@{DOMAIN}"] == ("secret", None, 0)
