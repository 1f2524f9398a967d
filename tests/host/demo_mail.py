"""The panel's sequence on a real mail host: the tool's commands for a domain from its first day to its
last, each with what it changed and with mail and logins that show the effect.

demo.py runs it. Before each command the panel's own database gets the rows that the panel would have
written by then.
"""
import smtplib
import time

import clients
import demo_settings
import mailboxes
import mailhost
import panel

DOMAIN, ALIAS = "example.com", "example.net"
ANNA, BERTHA, ANITA = f"anna@{DOMAIN}", f"bertha@{DOMAIN}", f"anita@{DOMAIN}"
PASSWORD, PHRASE = "correct horse", "Nobody here by that name; try 'anna'!"
MAPS = ("virtual_domains", "virtual", "vmailbox", "aliases", "blacklists")
SETTINGS = ("smtpd_sasl_auth_enable", "smtpd_recipient_restrictions", "smtpd_client_restrictions", "mynetworks",
            "message_size_limit")


def state():
    """Everything that the commands change, as lines to compare."""
    lines = [f"{name}: {key} -> {value}" for name in MAPS for key, value in mailhost.postmap(name).items()]
    lines += [f"account: {address}{' (off)' if row[2] else ''}" for address, row in mailhost.auth_rows().items()]
    lines += [f"domain of accounts: {name}{' (off)' if status else ''}"
              for name, status in mailhost.auth_domains().items()]
    lines += [f"main.cf: {line.strip()}" for line in mailhost.run("postconf", *SETTINGS).out.splitlines()]
    for path, said in mailhost.tree(mailhost.MAILNAMES).items():
        if path.endswith((".qmail", "maildirsize")):
            content = mailhost.read(f"{mailhost.MAILNAMES}/{path}").splitlines()
            lines.append(f"{path}: {' / '.join(content if path.endswith('.qmail') else content[:1])}")
        elif said.startswith("d ") and path.count("/") < 2:
            lines.append(f"directory: {path}")
    return set(lines)


def next_second():
    """Waits for the next second. Postfix notices a changed map by its time in whole seconds, so it would
    miss a change in the second in which a daemon opened the map."""
    time.sleep(1.02 - time.time() % 1)


class Sequence:
    def __init__(self, demo):
        self.demo = demo
        self.number = 0

    def command(self, *arguments, password=None, shows=()):
        """Runs a command that must succeed in silence. The lines in shows must be among its changes."""
        next_second()
        before = state()
        env = {"ORV_PASSWORD": password} if password else None
        ended = mailhost.mailvek(*arguments, env=env)
        after = state()
        changes = sorted([f"- {line}" for line in before - after] + [f"+ {line}" for line in after - before],
                         key=lambda line: line[2:])
        shown = mailhost.shlex.join(("mailvek", *arguments))
        if password:
            shown = f"ORV_PASSWORD=... {shown}"
        holds = ended.status == 0 and ended.err == "" and all(line in changes for line in shows)
        self.demo.step(f"{shown}   -> status {ended.status}", ended.err + "\n".join(changes), holds, most=9)

    def letter(self, recipient, into, sender="clara@localhost.localdomain"):
        """Sends a letter by SMTP, which must arrive in these mailboxes."""
        self.number += 1
        body = f"Letter number {self.number}."
        mailboxes.send(sender, recipient, body=body)
        landed = []
        for address in into:
            mailhost.wait_until(lambda: any(body in letter for letter in mailboxes.letters(address)))
            landed.append(address)
        self.demo.step(f"a letter by SMTP to {recipient}", f"in the Maildir of {', '.join(landed)}", landed == into)

    def logins(self, address, password):
        imap, pop3 = mailboxes.imap_letters(address, password), mailboxes.pop3_letters(address, password)
        self.demo.step(f"{address} logs in by IMAP and POP3", f"letters: {imap} by IMAP, {pop3} by POP3",
                       imap is not None and imap == pop3 and imap > 0)

    def login(self, address, password, works):
        said = mailboxes.login_works(address, password)
        self.demo.step(f"login of {address}", "accepted" if said else "refused", said == works)

    def smtp_auth(self, address, password, works):
        try:
            mailboxes.send(address, ANNA, body="With SMTP AUTH.", login=(address, password))
            said = "accepted"
        except smtplib.SMTPAuthenticationError as error:
            said = f"refused: {error.smtp_code}"
        self.demo.step(f"SMTP AUTH as {address} with the {'right' if works else 'wrong'} password", said,
                       (said == "accepted") == works)

    def refused(self, recipient):
        try:
            mailboxes.send("clara@localhost.localdomain", recipient)
            said = "accepted"
        except smtplib.SMTPRecipientsRefused as error:
            said = "refused: " + " ".join(map(str, *error.recipients.values()))
        self.demo.step(f"a letter to {recipient}", said, said.startswith("refused: 550"))

    def returned(self, recipient, sender, saying):
        """Sends a letter that must come back to its sender with this text."""
        before = len(mailboxes.letters(sender))
        mailboxes.send(sender, recipient)
        mailhost.wait_until(lambda: len(mailboxes.letters(sender)) > before)
        text = mailboxes.letters(sender)[-1] if len(mailboxes.letters(sender)) else ""
        found = [letter for letter in mailboxes.letters(sender) if saying in letter.replace("\n    ", " ")]
        self.demo.step(f"a letter to {recipient} comes back", f'to {sender}, saying "{saying}"' if found else text,
                       bool(found))


def first_day(run):
    run.demo.heading("a domain, a mailname, its mailbox")
    panel.panel_domain(DOMAIN)
    run.command("--add-domain", f"--domain-name={DOMAIN}",
                shows=[f"+ virtual_domains: {DOMAIN} -> {DOMAIN}/", f"+ directory: {DOMAIN}"])
    panel.panel_mailname(ANNA)
    run.command("--add-mailname", f"--domain-name={DOMAIN}", "--mailname=anna", "--disk-quota=1000000",
                shows=[f"+ vmailbox: {ANNA} -> {DOMAIN}/anna/Maildir/", f"+ {DOMAIN}/anna/.qmail: | true"])
    run.command("--add-mailbox", f"--domain-name={DOMAIN}", "--mailname=anna", password=PASSWORD,
                shows=[f"+ account: {ANNA}"])
    run.letter(ANNA, into=[ANNA])
    run.logins(ANNA, PASSWORD)
    run.login(ANNA, "wrong", works=False)
    run.command("--set-mail-params", "--smtpauth", shows=["+ main.cf: smtpd_sasl_auth_enable = yes"])
    mailhost.wait_until(lambda: clients.offers("auth"))
    run.smtp_auth(ANNA, PASSWORD, works=True)
    run.smtp_auth(ANNA, "wrong", works=False)


def more_addresses(run):
    run.demo.heading("an alias domain, a mail alias, a redirect")
    panel.panel_domain_alias(DOMAIN, ALIAS)
    run.command("--add-domain-alias", f"--domain-name={DOMAIN}", f"--domain-alias-name={ALIAS}", "--set-reject",
                shows=[f"+ virtual: anna@{ALIAS} -> {ANNA}", f"+ account: anna@{ALIAS}"])
    panel.panel_mail_alias(ANNA, "ann")
    run.command("--add-alias", f"--domain-name={DOMAIN}", "--mailname=anna", "--alias=ann",
                shows=[f"+ virtual: ann@{ALIAS} -> {ANNA}", f"+ account: ann@{DOMAIN}"])
    for recipient in (f"anna@{ALIAS}", f"ann@{DOMAIN}"):
        run.letter(recipient, into=[ANNA])
    run.login(f"ann@{DOMAIN}", PASSWORD, works=True)

    panel.panel_mailname(BERTHA)
    run.command("--add-mailname", f"--domain-name={DOMAIN}", "--mailname=bertha", "--disk-quota=-1")
    run.command("--add-mailbox", f"--domain-name={DOMAIN}", "--mailname=bertha", password="another")
    run.command("--add-redirect", f"--domain-name={DOMAIN}", "--mailname=anna", f"--redirect-email={BERTHA}")
    run.letter(ANNA, into=[ANNA, BERTHA])


def unknown_addresses(run):
    run.demo.heading("mail for an unknown address: caught, bounced, rejected")
    run.command("--set-catchall", f"--domain-name={DOMAIN}", f"--email={BERTHA}",
                shows=[f"+ virtual: @{DOMAIN} -> {BERTHA}", f"+ virtual: @{ALIAS} -> {BERTHA}"])
    run.letter(f"nobody@{DOMAIN}", into=[BERTHA])
    run.letter(f"nobody@{ALIAS}", into=[BERTHA])
    run.command("--set-bounce", f"--domain-name={DOMAIN}", f"--phrase={PHRASE}")
    run.returned(f"nobody@{DOMAIN}", sender=BERTHA, saying=PHRASE)
    run.command("--set-reject", f"--domain-name={DOMAIN}")
    run.refused(f"nobody@{DOMAIN}")


def off_and_on(run):
    run.demo.heading("the domain is switched off and on")
    run.command("--turn-off-domain", f"--domain-name={DOMAIN}",
                shows=[f"- virtual_domains: {DOMAIN} -> {DOMAIN}/", f"+ domain of accounts: {DOMAIN} (off)"])
    run.login(ANNA, PASSWORD, works=False)
    run.command("--turn-on-domain", f"--domain-name={DOMAIN}",
                shows=[f"+ virtual_domains: {DOMAIN} -> {DOMAIN}/", f"- domain of accounts: {DOMAIN} (off)"])
    run.login(ANNA, PASSWORD, works=True)
    run.letter(ANNA, into=[ANNA, BERTHA])


def new_name(run):
    run.demo.heading("the mailname and its password change")
    run.command("--set-password", f"--domain-name={DOMAIN}", "--mailname=anna", password="new secret")
    run.login(ANNA, PASSWORD, works=False)
    run.logins(ANNA, "new secret")
    mailhost.panel_sql("UPDATE mail SET mail_name = 'anita' WHERE mail_name = 'anna'")
    run.command("--rename-mailname", f"--domain-name={DOMAIN}", "--old-mailname=anna", "--new-mailname=anita",
                password="new secret", shows=[f"- account: {ANNA}", f"+ account: {ANITA}"])
    run.refused(ANNA)
    run.letter(ANITA, into=[ANITA, BERTHA])
    run.letter(f"ann@{DOMAIN}", into=[ANITA, BERTHA])
    run.logins(ANITA, "new secret")


def last_day(run):
    run.demo.heading("everything goes again")
    run.command("--remove-redirect", f"--domain-name={DOMAIN}", "--mailname=anita", f"--redirect-email={BERTHA}")
    run.command("--remove-alias", f"--domain-name={DOMAIN}", "--mailname=anita", "--alias=ann")
    mailhost.panel_sql("DELETE FROM mail_aliases")
    run.command("--del-domain-alias", f"--domain-name={DOMAIN}", f"--domain-alias-name={ALIAS}")
    mailhost.panel_sql("DELETE FROM domainaliases")
    run.command("--remove-mailname", f"--domain-name={DOMAIN}", "--mailname=anita",
                shows=[f"- directory: {DOMAIN}/anita", f"- account: {ANITA}"])
    run.refused(ANITA)
    run.command("--remove-domain", f"--domain-name={DOMAIN}", shows=[f"- directory: {DOMAIN}"])
    left = sorted(line for line in state() if not line.startswith(("aliases: _orvek_bounce_", "main.cf: ")))
    run.demo.step("what is left of it all", "\n".join(left) or "nothing but the pipes of the bounce", not left)


def whole_sequence(demo):
    run = Sequence(demo)
    for chapter in (first_day, more_addresses, unknown_addresses, off_and_on, new_name):
        chapter(run)
    demo_settings.chapters(run, login=(ANITA, "new secret"))
    last_day(run)
