"""The runs of postmap with which a command changes records, their order, and the order of the records
within a run."""
import pytest

from mailhost import add_records, done, mailvek, map_file, start
from panel import LOCAL, STANDARD, panel_domain, panel_mailname
from spies import calls, spy

POSTMAP = "/usr/sbin/postmap"
DOMAIN, ALIAS, OTHER, NEW = "example.com", "alias.test", "other.test", "new.test"
DOMAINS = (DOMAIN, ALIAS, OTHER)
ANNA = f"anna@{DOMAIN}"
AT = f"--domain-name={DOMAIN}"
NAMES = (AT, "--mailname=anna")
PIPE = '"|/usr/lib64/orvek-9.0/bouncemessage"'


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    panel_domain(DOMAIN, aliases=[ALIAS, OTHER])
    panel_mailname(ANNA, aliases=["ann", "annie"])
    panel_mailname(f"bertha@{DOMAIN}")


def added(name, *records):
    """A run that adds records, each a key and its value."""
    return ["-r", "-i", map_file(name)], "".join(f"{key} {value}\n" for key, value in records)


def removed(name, key):
    return ["-d", key, map_file(name)], None


def removed_together(name, *keys):
    return ["-d", "-", map_file(name)], "".join(f"{key}\n" for key in keys)


def looked_up(name, *keys):
    return ["-q", "-", map_file(name)], "".join(f"{key}\n" for key in keys)


def rewritten(name):
    return [(["-s", map_file(name)], None), ([map_file(name)], "")]


def standard(domain):
    return added("virtual", *((f"{name}@{domain}", f"{name}@{LOCAL}") for name in STANDARD))


def postmap_runs(*arguments, env=None):
    """The arguments of each run of postmap, and its standard input."""
    spy(POSTMAP)
    done(*arguments, env=env)
    return [(call.argv[1:], call.stdin) for call in calls(POSTMAP)]


# --------------------------------------------------------------------------------- domains


def test_a_domain_gets_its_addresses_twice_around_its_record():
    assert postmap_runs("--add-domain", AT) == [
        *rewritten("virtual"), standard(DOMAIN), added("virtual_domains", (DOMAIN, f"{DOMAIN}/")), standard(DOMAIN)]


def test_a_domain_is_disabled_before_its_addresses_go_together():
    assert postmap_runs("--turn-off-domain", AT) == [
        removed("virtual_domains", DOMAIN),
        removed_together("virtual", *(f"{name}@{DOMAIN}" for name in STANDARD))]


def test_an_enabled_domain_gets_its_record_before_addresses():
    assert postmap_runs("--turn-on-domain", AT) == [added("virtual_domains", (DOMAIN, f"{DOMAIN}/")), standard(DOMAIN)]


def test_a_removed_domain_leaves_domains_then_addresses_then_mailboxes():
    done("--add-domain", AT)
    assert postmap_runs("--remove-domain", AT) == [
        removed("virtual_domains", DOMAIN), *rewritten("virtual"), *rewritten("vmailbox")]


# ------------------------------------------------------------------------- mail to unknown names


def test_a_catch_all_is_one_run_for_all_domains():
    assert postmap_runs("--set-catchall", AT, "--email=b@example.org") == [
        added("virtual", *((f"@{domain}", "b@example.org") for domain in DOMAINS))]


def test_a_bounce_runs_per_pipe_and_once_for_addresses():
    pipes = [added("aliases", (f"_orvek_bounce_{domain}", PIPE)) for domain in DOMAINS]
    addresses = added("virtual", *((f"@{domain}", f"_orvek_bounce_{domain}@{LOCAL}") for domain in DOMAINS))
    assert postmap_runs("--set-bounce", AT) == [*pipes, addresses]


@pytest.mark.parametrize("command", ["--set-reject", "--unset-reject"])
def test_one_run_ends_alias_domains_catch_alls_before_the_domains(command):
    assert postmap_runs(command, AT) == [removed_together("virtual", f"@{ALIAS}", f"@{OTHER}", f"@{DOMAIN}")]


# -------------------------------------------------------------------------------- alias domains


# The mark comes first. Each mailname comes after its mail aliases.
NAMES_OF_THE_ALIAS = added("virtual", (NEW, "1"), (f"ann@{NEW}", ANNA), (f"annie@{NEW}", ANNA), (f"anna@{NEW}", ANNA),
                           (f"bertha@{NEW}", f"bertha@{DOMAIN}"))
ADD = ("--add-domain-alias", AT, f"--domain-alias-name={NEW}")


@pytest.mark.parametrize("arguments, more", [
    (("--set-reject",), []),
    (("--set-catchall", "--email=b@example.org"), [added("virtual", (f"@{NEW}", "b@example.org"))]),
    (("--set-bounce",), [added("aliases", (f"_orvek_bounce_{NEW}", PIPE)),
                         added("virtual", (f"@{NEW}", f"_orvek_bounce_{NEW}@{LOCAL}"))]),
])
def test_an_alias_domain_gets_addresses_then_names_then_the_rest(arguments, more):
    assert postmap_runs(*ADD, *arguments) == [standard(NEW), NAMES_OF_THE_ALIAS, *more]


def test_an_alias_domain_is_removed_by_one_rewrite():
    assert postmap_runs("--del-domain-alias", AT, f"--domain-alias-name={ALIAS}") == rewritten("virtual")


def test_an_alias_domain_is_renamed_without_asking_for_absent_names():
    rename = ("--rename-domain-alias", AT, f"--old-domain-alias-name={ALIAS}", f"--new-domain-alias-name={NEW}")
    assert postmap_runs(*rename, "--set-reject") == rewritten("virtual")


# ------------------------------------------------------------------------------------ mailnames


def test_a_mailname_gets_mailbox_then_addresses_in_one_run():
    assert postmap_runs("--add-mailname", *NAMES, "--disk-quota=100000") == [
        added("vmailbox", (ANNA, f"{DOMAIN}/anna/Maildir/")),
        added("virtual", *((f"anna@{domain}", ANNA) for domain in DOMAINS))]


def test_a_removed_mailname_leaves_mailbox_then_alias_domains_then_domain():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    assert postmap_runs("--remove-mailname", *NAMES) == [
        removed("vmailbox", ANNA),
        *(removed("virtual", f"anna@{domain}") for domain in (ALIAS, OTHER, DOMAIN))]


def test_a_renamed_mailname_is_one_pass_for_all_domains():
    env = {"ORV_PASSWORD": "secret"}
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    done("--set-password", *NAMES, env=env)
    rename = ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita")
    assert postmap_runs(*rename, env=env) == [*rewritten("vmailbox"), *rewritten("virtual")]


def test_a_name_whose_bytes_are_there_is_looked_up():
    done("--add-mailname", *NAMES, "--disk-quota=100000")
    add_records("virtual", {f"anita@{DOMAIN}.elsewhere": "x"})
    rename = ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita")
    assert postmap_runs(*rename) == [
        looked_up("virtual", f"anita@{DOMAIN}"), *rewritten("vmailbox"), *rewritten("virtual")]


def test_a_mail_alias_is_one_run_for_all_domains():
    assert postmap_runs("--add-alias", *NAMES, "--alias=ann") == [
        added("virtual", *((f"ann@{domain}", ANNA) for domain in DOMAINS))]


def test_a_removed_mail_alias_leaves_the_domain_first():
    assert postmap_runs("--remove-alias", *NAMES, "--alias=ann") == [
        removed("virtual", f"ann@{domain}") for domain in DOMAINS]


@pytest.mark.parametrize("arguments", [
    ("--add-mailbox", *NAMES), ("--remove-mailbox", *NAMES), ("--set-password", *NAMES),
    ("--get-mailbox-size", *NAMES), ("--set-mailbox-disk-quota", *NAMES, "--disk-quota=7"),
    ("--set-domain-disk-quota", AT, "--disk-quota=7"), ("--add-redirect", *NAMES, "--redirect-email=b@example.org"),
    ("--remove-redirect", *NAMES, "--redirect-email=b@example.org"), ("--set-autoresponder", *NAMES),
    ("--reset-autoresponder", *NAMES)], ids=lambda arguments: arguments[0])
def test_what_is_no_record_starts_no_postmap(arguments):
    for name in ("anna", "bertha"):
        done("--add-mailname", AT, f"--mailname={name}", "--disk-quota=100000")
    spy(POSTMAP)
    assert mailvek(*arguments, env={"ORV_PASSWORD": "secret"}).status == 0
    assert calls(POSTMAP) == []
