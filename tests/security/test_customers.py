"""A panel's customer chooses names, addresses and texts, as arguments and in the panel's tables."""
import os

import pytest

import ground
import mailhost
import panel
from customers import CEO, attacked, held, own_handler
from ground import ALIAS, ANNA, AT, DOMAIN, HOME, MAILNAMES, NEW, PLAIN, STORE, VICTIM

# ------------------------------------------------------------- names that lead out of a directory

OUT = (f"../{VICTIM}/bob", f"anna/../../{VICTIM}/bob", "..", ".", "", "../../../../etc", f"../{VICTIM}")
BY_MAILNAME = {
    "add-mailname": ("--add-mailname", AT, "--mailname={}"),
    "remove-mailname": ("--remove-mailname", AT, "--mailname={}"),
    "rename-mailname": ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname={}"),
    "rename-mailname from": ("--rename-mailname", AT, "--old-mailname={}", "--new-mailname=mine"),
    "add-mailbox": ("--add-mailbox", AT, "--mailname={}"),
    "remove-mailbox": ("--remove-mailbox", AT, "--mailname={}"),
    "set-mailbox-disk-quota": ("--set-mailbox-disk-quota", AT, "--mailname={}", "--disk-quota=1"),
    "get-mailbox-size": ("--get-mailbox-size", AT, "--mailname={}"),
    "add-redirect": ("--add-redirect", AT, "--mailname={}", "--redirect-email=evil@example.org"),
    "remove-redirect": ("--remove-redirect", AT, "--mailname={}", "--redirect-email=evil@example.org"),
    "add-attachment": ("--add-attachment", AT, "--mailname={}", "--file-name=/srv/uploads/letter",
                       "--attachment-file-name=planted"),
    "remove-attachment": ("--remove-attachment", AT, "--mailname={}", "--attachment-file-name=a.txt"),
    "list-attachments": ("--list-attachments", "--fullname", AT, "--mailname={}"),
    "set-autoresponder": ("--set-autoresponder", AT, "--mailname={}"),
    "add-alias": ("--add-alias", *ANNA, "--alias={}"),
}
BY_DOMAIN = {
    "add-domain": ("--add-domain", "--domain-name={}"),
    "remove-domain": ("--remove-domain", "--domain-name={}"),
    "set-domain-disk-quota": ("--set-domain-disk-quota", "--domain-name={}", "--disk-quota=1"),
    "list-attachments": ("--list-attachments", "--mail-all", "--fullname", "--domain-name={}"),
    "add-mailname": ("--add-mailname", "--domain-name={}", "--mailname=bob"),
    "remove-mailname": ("--remove-mailname", "--domain-name={}", "--mailname=bob"),
    "add-attachment": ("--add-attachment", "--domain-name={}", "--mailname=bob", "--file-name=/srv/uploads/letter",
                       "--attachment-file-name=planted"),
    "set-domain-key": ("--set-domain-key", "--domain-name={}", "--file-name=/srv/uploads/key"),
    "remove-domain-key": ("--remove-domain-key", "--domain-name={}"),
    "add-domain-alias": ("--add-domain-alias", AT, "--domain-alias-name={}", "--set-reject"),
    "set-autoresponder": ("--set-autoresponder", "--domain-name={}", "--mailname=bob"),
}
OUT_OF_DOMAIN = (f"{DOMAIN}/../{VICTIM}", f"{VICTIM}/bob", f"./{VICTIM}", f"{VICTIM}/", "..", "../../../etc", f"{VICTIM}/.")


def filled(template, evil):
    return [word.format(evil) if "{}" in word else word for word in template]


@pytest.mark.parametrize("command", BY_MAILNAME)
def test_a_mailname_leads_out_of_no_directory(ledger, command):
    for evil in OUT:
        how, found = attacked(*filled(BY_MAILNAME[command], evil))
        ledger.tried(f"mailname {evil!r}: {command}", found, how)
    ledger.close()


@pytest.mark.parametrize("command", BY_DOMAIN)
def test_a_domain_leads_out_of_no_directory(ledger, command):
    for evil in OUT_OF_DOMAIN:
        os.makedirs(f"{MAILNAMES}/{VICTIM}/@attachments", exist_ok=True)
        how, found = attacked(*filled(BY_DOMAIN[command], evil))
        ledger.tried(f"domain {evil!r}: {command}", found, how)
    ledger.close()


# ------------------------------------------------------------------------- lines of the maps

KEYS = {
    "a blank": f"{CEO} x",
    "a tab": f"{CEO}\tx",
    "a newline": f"x@{DOMAIN} y\n{CEO} anna@{DOMAIN}\nz",
    "a newline at the end": f"{CEO} anna@{DOMAIN}\n",
    "a vertical tab": f"{CEO}\vx",
    "a form feed": f"{CEO}\fx",
    "a carriage return": f"{CEO}\rx",
    "a quoted key": f'"{CEO}" x',
    "a blank in front": f" , {CEO}",
    "a hash": f"#{CEO} x",
    "a byte of a terminal": f"{CEO} \x1b[2J",
}
BY_KEY = {
    "add-alias": ("--add-alias", *ANNA, "--alias={}"),
    "add-mailname": ("--add-mailname", AT, "--mailname={}"),
    "rename-mailname": ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname={}"),
    "add-badmailfrom": ("--add-badmailfrom", "--domain-name={}"),
    "add-domain": ("--add-domain", "--domain-name={}"),
    "add-domain-alias": ("--add-domain-alias", AT, "--domain-alias-name={}", "--set-reject"),
    "rename-domain-alias": ("--rename-domain-alias", AT, f"--old-domain-alias-name={ALIAS}",
                            "--new-domain-alias-name={}", "--set-reject"),
    "set-catchall": ("--set-catchall", AT, "--email={}"),
    "set-bounce": ("--set-bounce", "--domain-name={}", "--phrase=No"),
}
QUICK_KEYS = {("add-alias", "a blank"), ("add-alias", "a newline"), ("rename-mailname", "a newline"),
              ("add-badmailfrom", "a blank"), ("set-catchall", "a newline")}


def refused(ledger, name, words):
    how, found = attacked(*words, his=(MAILNAMES,))
    if how.status == 0 or not how.err:
        found.append("it was taken")
    ledger.tried(name, found, how)


@pytest.mark.parametrize("command", BY_KEY)
def test_a_name_is_no_line_of_a_map(ledger, command):
    for key, evil in KEYS.items():
        refused(ledger, f"{key} in a key: {command}", filled(BY_KEY[command], evil))
    ledger.close()


@pytest.mark.quick
def test_the_worst_names_are_no_lines_of_a_map(ledger):
    for command, key in sorted(QUICK_KEYS):
        refused(ledger, f"{key} in a key: {command}", filled(BY_KEY[command], KEYS[key]))
    ledger.close()


@pytest.mark.parametrize("evil", [f"{CEO} x", pytest.param(f"x\n{CEO} anna@{DOMAIN}\ny", marks=pytest.mark.quick)])
@pytest.mark.parametrize("where", ["a mail alias", "a mailname", "an alias domain"])
def test_a_name_from_the_panel_becomes_no_map_line(where, evil):
    command = ("--add-domain-alias", AT, f"--domain-alias-name={NEW}", "--set-reject")
    if where == "a mail alias":
        panel.panel_mail_alias(f"anna@{DOMAIN}", evil)
    elif where == "a mailname":
        mailhost.panel_sql("INSERT INTO mail (mail_name, dom_id) SELECT "
                           f"{panel.quoted(evil)}, id FROM domains WHERE name = '{DOMAIN}'")
    else:
        panel.panel_domain_alias(DOMAIN, evil)
        command = ("--add-alias", *ANNA, "--alias=annie")
    held(*attacked(*command), command)


OWN_NAMES = ("localhost.localdomain", "localhost", "mailhost.example.test", "LOCALHOST.localdomain",
             "localhost.localdomain.")


@pytest.mark.parametrize("command", [pytest.param("add-domain", marks=pytest.mark.quick), "add-domain-alias",
                                     "rename-domain-alias"])
def test_the_hosts_own_names_are_no_customers(ledger, command):
    for name in OWN_NAMES:
        refused(ledger, f"{name}: {command}", filled(BY_KEY[command], name))
    ledger.close()


# ---------------------------------------------------------------------------- lines of .qmail

LINES = ("a@b.test\n| /bin/sh -c id>/etc/planted", "a@b.test\n./steal/", "a@b.test\r\n|id", "\n|id", "a@b.test\n")


@pytest.mark.parametrize("evil", LINES)
@pytest.mark.parametrize("verb", ["--add-redirect", "--remove-redirect"])
def test_an_address_is_one_line_of_a_delivery_file(verb, evil):
    how, found = attacked(verb, *ANNA, f"--redirect-email={evil}")
    held(how, found, evil)
    lines = mailhost.read(f"{HOME}/.qmail").splitlines()
    assert all(line in ("| true", "| /usr/bin/deliverquota ./Maildir") or line.startswith("&") for line in lines), lines


def test_a_very_long_address_harms_no_line_beside_it():
    for verb in ("--add-redirect", "--remove-redirect"):
        how, found = attacked(verb, *ANNA, f"--redirect-email={'x' * 9000}@b.test")
        held(how, found, verb)
    assert "&a@example.org" in mailhost.read(f"{HOME}/.qmail").splitlines()


# ----------------------------------------------------------------------------------------- SQL

STATEMENTS = {
    "set-password": ("--set-password", f"--domain-name=x' UNION SELECT '{VICTIM}", "--mailname=bob"),
    "set-password by an alias": ("--set-password", f"--domain-name=x' OR d.name='{VICTIM}", "--mailname=bob"),
    "set-password by a mailname": ("--set-password", f"--domain-name={VICTIM}x",
                                   f"--mailname=x' OR d.name='{VICTIM}' OR '"),
    "remove-mailbox": ("--remove-mailbox", f"--domain-name=x' UNION SELECT '{VICTIM}", "--mailname=bob"),
    "remove-mailname": ("--remove-mailname", f"--domain-name=x' UNION SELECT '{VICTIM}", "--mailname=bob"),
    "turn-off-domain": ("--turn-off-domain", f"--domain-name=x' UNION SELECT '{VICTIM}"),
    "remove-domain": ("--remove-domain", f"--domain-name=x' UNION SELECT '{VICTIM}"),
    "set-catchall": ("--set-catchall", f"--domain-name=x' UNION SELECT '{VICTIM}", f"--email=anna@{DOMAIN}"),
    "set-bounce": ("--set-bounce", f"--domain-name=x' UNION SELECT '{VICTIM}", "--phrase=No"),
    "add-alias": ("--add-alias", f"--domain-name=x' UNION SELECT '{VICTIM}", "--mailname=bob", "--alias=ceo"),
    "add-mailname": ("--add-mailname", f"--domain-name=x' UNION SELECT '{VICTIM}", "--mailname=ceo"),
    "rename-mailname": ("--rename-mailname", f"--domain-name=x' UNION SELECT '{VICTIM}", "--old-mailname=bob",
                        "--new-mailname=mine"),
    "del-domain-alias": ("--del-domain-alias", AT, f"--domain-alias-name=x' UNION SELECT '{VICTIM}"),
    "a backslash": ("--set-password", "--domain-name=x\\", f"--mailname= UNION SELECT '{VICTIM}' -- "),
}


def by_statements(ledger, names):
    for name in names:
        how, found = attacked(*STATEMENTS[name], his=(MAILNAMES,),
                              domains=(DOMAIN, ALIAS, NEW, f"x' UNION SELECT '{VICTIM}"))
        ledger.tried(f"a quote in SQL: {name}", found, how)
    ledger.close()


def test_a_quote_reaches_no_other_customer(ledger):
    by_statements(ledger, STATEMENTS)


@pytest.mark.quick
def test_a_quote_sets_and_removes_no_other_customers_password(ledger):
    by_statements(ledger, ("set-password", "remove-mailbox"))


@pytest.mark.parametrize("evil", [f"x' UNION SELECT '{VICTIM}", f"x' OR d.name='{VICTIM}"])
def test_a_quote_in_the_panels_tables_reaches_no_other_customer(evil):
    panel.panel_domain_alias(DOMAIN, evil)
    words = ("--set-password", *ANNA)
    held(*attacked(*words, domains=(DOMAIN, ALIAS, NEW, evil)), words)


@pytest.mark.quick
def test_a_name_with_a_quote_keeps_working():
    panel.panel_mailname(f"o'brien@{DOMAIN}", aliases=["o'b"])
    for command in (("--add-mailname", AT, "--mailname=o'brien"), ("--add-mailbox", AT, "--mailname=o'brien"),
                    ("--set-password", AT, "--mailname=o'brien"), ("--get-mailbox-size", AT, "--mailname=o'brien")):
        how = ground.mailvek(*command, env=PLAIN)
        assert how.status == 0, how
    accounts = mailhost.auth_rows()
    assert f"o'brien@{DOMAIN}" in accounts and f"o'b@{DOMAIN}" in accounts, accounts


# ------------------------------------------------------------------------------------ handlers

OUTSIDE = "../../../../../etc/planted"
HANDLERS = {
    "a name that leads out": {"name": "/../../../../../etc/planted"},
    "a name with a blank line": {"name": "x\ny"},
    "a priority that leads out": {"priority": OUTSIDE},
    "a priority with a slash": {"priority": "a/b"},
    "a hook that leads out": {"hook": OUTSIDE},
    "a hook of two": {"hook": "before-local/recipient"},
    "a hook with a newline": {"hook": "before-local\nx"},
    "a value that leads out": {"type-name": f"{OUTSIDE}/x@{DOMAIN}"},
    "a value of dots": {"type-name": ".."},
    "a value with a slash": {"type-name": f"a/b@{DOMAIN}"},
    "a value with a newline": {"type-name": f"anna@{DOMAIN}\nx"},
    "a value of 320 characters": {"type-name": "x" * 308 + f"@{DOMAIN}"},
    "a context of 320 characters": {"context": "x" * 320},
    "a context with a newline": {"context": "x\ny"},
}


def test_a_handler_stays_in_its_store_and_reads_back(ledger):
    for evil, changes in HANDLERS.items():
        before = set(mailhost.tree(STORE))
        how, found = attacked(*own_handler("--add-handler", **changes),
                              allowed=(f"{STORE}/info", f"{STORE}/before-local/recipient"))
        if how.status == 0 or not how.err:
            found.append("it was taken")
        if set(mailhost.tree(STORE)) != before:
            found.append("half of it was left")
        for verb in ("--set-autoresponder", "--reset-autoresponder"):
            other = ground.mailvek(verb, f"--domain-name={VICTIM}", "--mailname=bob")
            if (other.status, other.err) != (0, ""):
                found.append(f"{verb} of another customer fails")
        ledger.tried(f"a handler: {evil}", found, how)
    ledger.close()


@pytest.mark.quick
@pytest.mark.parametrize("length", [254, 320, 4000])
def test_a_long_alias_ends_nobodys_autoresponder(length):
    alias = "x" * (length - len(f"@{DOMAIN}"))
    ground.mailvek("--add-alias", *ANNA, f"--alias={alias}")
    how = ground.mailvek("--set-autoresponder", f"--domain-name={VICTIM}", "--mailname=bob")
    assert (how.status, how.err) == (0, ""), how
    assert any("autoresponder" in name for name in mailhost.tree(f"{STORE}/before-local/recipient")), how


@pytest.mark.parametrize("evil", [OUTSIDE, "../../../../../../srv/root/kept", "a/b"])
@pytest.mark.parametrize("where", ["an alias", "a mailname of the panel's", "an autoresponder"])
def test_a_mailname_becomes_no_path_of_a_handler(where, evil):
    command = ("--add-alias", *ANNA, f"--alias={evil}")
    if where == "a mailname of the panel's":
        panel.panel_mail_alias(f"anna@{DOMAIN}", evil)
        command = ("--remove-mailname", *ANNA)
    elif where == "an autoresponder":
        command = ("--set-autoresponder", AT, f"--mailname={evil}")
    held(*attacked(*command), command)
