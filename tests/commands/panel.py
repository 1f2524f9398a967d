"""The panel's side of a test: the rows that it writes to its own database before it starts the tool, and
the records and hooks that a domain has after the tool has set it up."""
import concurrent.futures
import os
import time

import host_faults
import mailhost

LOCAL = "localhost.localdomain"
STANDARD = ("postmaster", "mailer-daemon", "root", "anonymous", "drweb", "kluser")


def quoted(value):
    return "'" + value.replace("\\", "\\\\").replace("'", "\\'") + "'"


def panel_domain(name, aliases=(), mailnames=(), quota=None):
    """Adds a domain with its alias domains and mailnames, and the limit of its mailboxes."""
    rows = mailhost.panel_sql("SELECT COALESCE(MAX(id), 0) + 1 FROM domains")
    number = rows[0][0]
    mailhost.panel_sql(
        f"INSERT INTO domains (id, name, limits_id) VALUES ({number}, {quoted(name)}, {number});"
        + (f"INSERT INTO Limits VALUES ({number}, 'mbox_quota', {quota});" if quota is not None else ""))
    for alias in aliases:
        panel_domain_alias(name, alias)
    for mailname in mailnames:
        panel_mailname(f"{mailname}@{name}")


def panel_domain_alias(domain, alias):
    mailhost.panel_sql("INSERT INTO domainaliases (dom_id, name) "
                       f"SELECT id, {quoted(alias)} FROM domains WHERE name = {quoted(domain)}")


def panel_mailname(address, aliases=(), quota=-1):
    """Adds a mailname with its mail aliases."""
    mailname, domain = address.rsplit("@", 1)
    mailhost.panel_sql(f"INSERT INTO mail (mail_name, dom_id, mbox_quota) "
                       f"SELECT {quoted(mailname)}, id, {quota} FROM domains WHERE name = {quoted(domain)}")
    for alias in aliases:
        panel_mail_alias(address, alias)


def panel_mail_alias(address, alias):
    mailname, domain = address.rsplit("@", 1)
    mailhost.panel_sql(f"INSERT INTO mail_aliases (mn_id, alias) SELECT m.id, {quoted(alias)} FROM mail m "
                       f"JOIN domains d ON m.dom_id = d.id WHERE m.mail_name = {quoted(mailname)} "
                       f"AND d.name = {quoted(domain)}")


def standard_addresses(domain):
    """The records of virtual that each domain has."""
    return {f"{name}@{domain}": f"{name}@{LOCAL}" for name in STANDARD}


def add_hook(mailname_or_domain, template="check", kind=None):
    """Adds a handler for an address or a domain, with the tool."""
    kind = kind or ("recipient" if "@" in mailname_or_domain else "recipient-domain")
    ended = mailhost.mailvek(
        "--add-handler", f"--handler-name={template}", f"--handler-type={kind}",
        f"--handler-type-name={mailname_or_domain}", "--executable=/bin/true", "--context=test",
        "--hook=before-local", "--priority=10")
    assert ended.status == 0, ended


def hooks():
    """The active handlers, as "type/value" in sorted order."""
    found = mailhost.tree("/usr/local/orv/handlers/before-local")
    return sorted(path.rsplit("/", 1)[0] for path, said in found.items() if said.startswith("f "))


def damage_hooks():
    """Makes a handler without a type, so that each mass operation fails at its end."""
    mailhost.write("/usr/local/orv/handlers/info/10-broken-abcdef/hook", "before-local\n")


def quota_line(home, quota):
    """The first line of a home's maildirsize. The size of its attachments is deducted."""
    return f"{quota - os.lstat(f'{home}/@attachments').st_size}S,0C\n"


def without_accounts():
    """Makes every change and removal of an account or its domain fail."""
    for table in ("users", "domains"):
        for event in ("DELETE", "UPDATE", "INSERT"):
            mailhost.auth_sql(f"CREATE TRIGGER refuse_{event}_{table} BEFORE {event} ON {table} "
                              "BEGIN SELECT RAISE(ABORT, 'refused'); END")


def waits_for_the_accounts(*arguments, env=None):
    """Runs the tool while somebody holds the account database for a while. Returns how it ended."""
    with concurrent.futures.ThreadPoolExecutor() as pool:
        with host_faults.accounts_locked():
            running = pool.submit(mailhost.mailvek, *arguments, env=env)
            time.sleep(0.5)
            assert not running.done(), running.result()
        return running.result()
