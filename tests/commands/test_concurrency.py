"""Many runs of the tool at once, as when the panel works on many domains at a time.

The promise: runs that change different domains never disturb each other. Changes of single records and
rewrites wait for one another. So at the end the maps hold what the same runs would have left one after
the other, in any order. Nothing is torn, nothing is lost, and records that nobody touched are unchanged.
"""
import concurrent.futures
import glob
import itertools
import os

import pytest

from mailhost import (
    MAILNAMES, MAPS, REAL, add_records, auth_domains, auth_rows, done, map_file, panel_sql, postmap, read, run,
    start, wait_until, write,
)
from panel import LOCAL, standard_addresses

AT_ONCE = 8
DOMAINS = [f"d{number:02}.test" for number in range(40)]
MAP_NAMES = ("virtual_domains", "virtual", "vmailbox", "aliases")
BYSTANDERS = {f"box{number}@bystander.test": f"box{number}@bystander.test" for number in range(600)}


def number_of(domain):
    return DOMAINS.index(domain)


def alias_of(domain):
    return f"alias-{domain}"


def has_alias(domain):
    """Every fourth domain has an alias domain."""
    return number_of(domain) % 4 == 0


def names_of(domain):
    return [domain, alias_of(domain)] if has_alias(domain) else [domain]


@pytest.fixture(autouse=True)
def panel():
    start("mariadb")
    statements = []
    for id_, domain in enumerate(DOMAINS, 1):
        statements.append(f"INSERT INTO domains (id, name, limits_id) VALUES ({id_}, '{domain}', {id_})")
        for offset, name in enumerate(("anna", "bertha")):
            statements.append("INSERT INTO mail (id, mail_name, dom_id, mbox_quota) "
                              f"VALUES ({2 * id_ + offset}, '{name}', {id_}, -1)")
        statements.append(f"INSERT INTO mail_aliases (mn_id, alias) VALUES ({2 * id_}, 'ann')")
        if has_alias(domain):
            statements.append(f"INSERT INTO domainaliases (dom_id, name) VALUES ({id_}, '{alias_of(domain)}')")
    panel_sql("".join(f"{statement};\n" for statement in statements))


def changed(command, domain, *arguments, password=None):
    done(command, f"--domain-name={domain}", *arguments, env={"ORV_PASSWORD": password} if password else None)


def at_once(*calls):
    """Runs each function with each of its arguments, AT_ONCE at a time. Raises the first failure."""
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        running = [pool.submit(function, thing) for function, thing in calls]
        for one in concurrent.futures.as_completed(running):
            one.result()


def each(function, things):
    return [(function, thing) for thing in things]


def in_turns(*lists):
    return [one for row in itertools.zip_longest(*lists) for one in row if one]


def maps():
    """The records of all maps, each of which must open and list whole."""
    for name in MAP_NAMES:
        listed = run("postmap", "-s", map_file(name))
        assert listed.status == 0 and listed.err == "", listed
        keys = [line.split("\t")[0] for line in listed.out.splitlines()]
        assert len(keys) == len(set(keys)), f"a key twice in {name}"
        # A listing and the mail server's look-ups read the file in two different ways.
        found = run("postmap", "-q", "-", map_file(name), stdin="".join(f"{key}\n" for key in keys))
        assert sorted(found.out.splitlines()) == sorted(listed.out.splitlines()), name
    return {name: postmap(name) for name in MAP_NAMES}


def rooms():
    """The directories in which postmap works on the maps, one for each command that runs."""
    return glob.glob(f"{MAPS}/.*.room-*")


def is_rewritten(name):
    """Whether some command makes the map anew: its records are a text in a room by then."""
    return any(os.path.exists(f"{room}/{name}") for room in rooms())


def no_work_files_are_left():
    left = set(MAP_NAMES) & set(os.listdir(MAPS))
    assert not left and not rooms()


# ------------------------------------------------------------------- changes of single records


def life_of(domain):
    """The panel's commands for one existing domain. Each changes single records."""
    number = number_of(domain)
    anna, bertha = "--mailname=anna", "--mailname=bertha"
    changed("--add-mailname", domain, anna, "--disk-quota=-1")
    changed("--add-mailname", domain, bertha, "--disk-quota=-1")
    changed("--add-mailbox", domain, anna, password="first")
    changed("--add-alias", domain, anna, "--alias=ann")
    changed("--set-password", domain, anna, password=f"secret {number}")
    changed("--set-catchall", domain, f"--email=anna@{domain}")
    if number % 2:
        changed("--set-bounce", domain, f"--phrase=gone{number}")
    elif number % 3:
        changed("--set-reject", domain)
    if number % 3 == 0:
        changed("--remove-alias", domain, anna, "--alias=ann")
    changed("--add-redirect", domain, anna, f"--redirect-email=bertha@{domain}")
    if number % 2 == 0:
        changed("--remove-mailname", domain, bertha)
    if number % 4 in (0, 1):
        changed("--turn-off-domain", domain)
    if number % 4 == 0:
        changed("--turn-on-domain", domain)


def expected_maps(domains):
    """The records of the maps after life_of() for each domain."""
    expected = {name: {} for name in MAP_NAMES}
    for domain in domains:
        number = number_of(domain)
        kept = ["anna"] + (["bertha"] if number % 2 else [])
        if number % 4 != 1:
            expected["virtual_domains"][domain] = f"{domain}/"
            expected["virtual"] |= standard_addresses(domain)
        expected["vmailbox"] |= {f"{name}@{domain}": f"{domain}/{name}/Maildir/" for name in kept}
        for place in names_of(domain):
            expected["virtual"] |= {f"{name}@{place}": f"{name}@{domain}" for name in kept}
            if number % 3:
                expected["virtual"][f"ann@{place}"] = f"anna@{domain}"
            if number % 2:
                expected["virtual"][f"@{place}"] = f"_orvek_bounce_{place}@{LOCAL}"
                expected["aliases"][f"_orvek_bounce_{place}"] = f'"|/usr/lib64/orvek-9.0/bouncemessage gone{number}"'
            elif number % 3 == 0:
                expected["virtual"][f"@{place}"] = f"anna@{domain}"
    return expected


def expected_accounts(domains):
    accounts, statuses = {}, {}
    for domain in domains:
        number = number_of(domain)
        for place in names_of(domain):
            statuses[place] = int(number % 4 == 1)
            for name in ["anna"] + (["ann"] if number % 3 else []):
                accounts[f"{name}@{place}"] = (f"secret {number}", None, 0)
    return accounts, statuses


def homes():
    """The delivery file of each mailname, by address."""
    return {f"{name}@{domain}": read(f"{MAILNAMES}/{domain}/{name}/.qmail")
            for domain in os.listdir(MAILNAMES) for name in os.listdir(f"{MAILNAMES}/{domain}")}


def expected_homes():
    delivery = "| true\n| /usr/bin/deliverquota ./Maildir\n"
    expected = {f"anna@{domain}": f"{delivery}&bertha@{domain}\n" for domain in DOMAINS}
    return expected | {f"bertha@{domain}": "| true\n" for domain in DOMAINS if number_of(domain) % 2}


def domains_by_hand():
    """Makes the domains as --add-domain leaves them, without its rewrite of a map for each."""
    add_records("virtual_domains", {domain: f"{domain}/" for domain in DOMAINS})
    add_records("virtual", {key: value for domain in DOMAINS for key, value in standard_addresses(domain).items()})


def test_changes_of_forty_domains_at_once_are_all_there():
    domains_by_hand()
    at_once(*each(life_of, DOMAINS))
    assert maps() == expected_maps(DOMAINS)
    assert (auth_rows(), auth_domains()) == expected_accounts(DOMAINS)
    assert homes() == expected_homes()
    no_work_files_are_left()


LOCKS = "/root/locks"


def slowed(case, lock):
    """Installs a postmap that waits before one of its locks, by number, in runs with this first argument.
    It lists the locks that it has taken in LOCKS."""
    postmap = f"{REAL}/usr/sbin/postmap"
    write("/root/postmap", f"""#!/bin/sh
[ "$1" = {case} ] || exec {postmap} "$@"
exec strace -qq -o {LOCKS} -e trace=flock -e inject=flock:delay_enter=1000000:when={lock} {postmap} "$@"
""", mode=0o755)
    mounted = run("mount", "--bind", "/root/postmap", "/usr/sbin/postmap")
    assert mounted.status == 0, mounted


def remove_old_alias(domain):
    changed("--remove-alias", domain, "--mailname=anna", "--alias=old")


def add_during_the_removal(domain):
    # postmap has read the head of the map, has unlocked it, and is about to lock it for writing.
    wait_until(lambda: os.path.exists(LOCKS) and "LOCK_UN" in read(LOCKS))
    changed("--add-domain-alias", domain, "--domain-alias-name=new.test", "--set-reject")


def test_records_added_during_a_removal_are_kept():
    domains_by_hand()
    add_records("virtual", {"old@d01.test": "anna@d01.test"})
    names = [f"box{number}" for number in range(1000)]
    panel_sql("INSERT INTO mail (mail_name, dom_id, mbox_quota) VALUES "
              + ",".join(f"('{name}', 3, -1)" for name in names))
    slowed("-d", lock=3)
    at_once((remove_old_alias, "d01.test"), (add_during_the_removal, "d02.test"))
    virtual = maps()["virtual"]
    assert "old@d01.test" not in virtual
    assert {f"{name}@new.test" for name in names} <= virtual.keys()


# ------------------------------------------------------------------------------- rewrites


def remove_domain(domain):
    changed("--remove-domain", domain)


def rename_mailname(domain):
    changed("--rename-mailname", domain, "--old-mailname=anna", "--new-mailname=anita")


def del_domain_alias(domain):
    changed("--del-domain-alias", domain, f"--domain-alias-name={alias_of(domain)}")


REWRITES = {0: del_domain_alias, 1: remove_domain, 2: rename_mailname}


def rewritten(domain):
    """One of the three commands that rewrite maps, chosen by the domain."""
    REWRITES[number_of(domain) % 4](domain)


def young(domain):
    """Makes a domain with a mailbox, and with its alias domain if it has one."""
    changed("--add-mailname", domain, "--mailname=anna", "--disk-quota=-1")
    changed("--add-mailbox", domain, "--mailname=anna", password="secret")
    if has_alias(domain):
        changed("--add-domain-alias", domain, f"--domain-alias-name={alias_of(domain)}", "--set-reject")


def rewritten_records(domain):
    """The domain's records in virtual and vmailbox after young() and rewritten()."""
    kind = number_of(domain) % 4
    if kind == 1:
        return {}, {}
    name = "anita" if kind == 2 else "anna"
    address = f"{name}@{domain}"
    # Deliberate: a renamed mailbox keeps the value of its record.
    return {address: address} | standard_addresses(domain), {address: f"{domain}/anna/Maildir/"}


def with_bystanders(domains):
    domains_by_hand()
    for name in ("virtual", "vmailbox"):
        add_records(name, BYSTANDERS)
    at_once(*each(young, domains))


def require_rewritten(found, domains):
    for domain in domains:
        virtual, vmailbox = rewritten_records(domain)
        for name, records in (("virtual", virtual), ("vmailbox", vmailbox)):
            held = {key: value for key, value in found[name].items() if key.endswith((f"@{domain}", f"-{domain}"))}
            assert held == records, f"{domain} in {name}"
        assert (domain in found["virtual_domains"]) == (number_of(domain) % 4 != 1)


def require_bystanders(found):
    for name in ("virtual", "vmailbox"):
        held = {key: value for key, value in found[name].items() if key.endswith("@bystander.test")}
        assert held == BYSTANDERS, name


def test_concurrent_rewrites_lose_nothing():
    domains = [domain for domain in DOMAINS if number_of(domain) % 4 in REWRITES]
    with_bystanders(domains)
    at_once(*each(rewritten, domains))
    found = maps()
    require_rewritten(found, domains)
    require_bystanders(found)
    expected = {f"anna@{domain}" for domain in domains if number_of(domain) % 4 == 0}
    assert auth_rows().keys() == expected
    assert sorted(homes()) == sorted(
        expected | {f"anita@{domain}" for domain in domains if number_of(domain) % 4 == 2})
    no_work_files_are_left()


def test_changes_beside_rewrites_are_all_there_too():
    rewriting = [domain for domain in DOMAINS[20:] if number_of(domain) % 4 in REWRITES]
    with_bystanders(rewriting)
    at_once(*in_turns(each(life_of, DOMAINS[:20]), each(rewritten, rewriting)))
    found = maps()
    require_rewritten(found, rewriting)
    require_bystanders(found)
    expected = expected_maps(DOMAINS[:20])
    for name in MAP_NAMES:
        assert expected[name].items() <= found[name].items(), name
    for domain in DOMAINS[:20]:
        for place in names_of(domain):
            held = {key for key in found["virtual"] if key.endswith(f"@{place}")}
            assert held == {key for key in expected["virtual"] if key.endswith(f"@{place}")}
    assert {key: row for key, row in auth_rows().items() if key.endswith(tuple(DOMAINS[:20]))} == {
        key: row for key, row in expected_accounts(DOMAINS[:20])[0].items()}
    no_work_files_are_left()


def add_during_the_rebuild(domain):
    wait_until(lambda: is_rewritten("virtual"))
    for number in range(3):
        changed("--add-alias", domain, "--mailname=anna", f"--alias=late{number}")


def test_records_that_arrive_during_a_rewrite_wait_for_it():
    domains_by_hand()
    for name in ("virtual", "vmailbox"):
        add_records(name, BYSTANDERS)
    slowed(f"hash:{MAPS}/virtual", lock=1)
    at_once((remove_domain, "d01.test"), (add_during_the_rebuild, "d02.test"))
    found = maps()
    require_bystanders(found)
    assert {f"late{number}@d02.test" for number in range(3)} <= found["virtual"].keys()
    assert not [key for key in found["virtual"] if key.endswith("@d01.test")]
