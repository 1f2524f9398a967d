"""The commands that run with faults, and the host that they run in."""
import dataclasses
import os

import mailhost
import panel
from mailhost import done, write
from spies import Rule, spy

DOMAIN, ALIAS, NEW = "example.com", "alias.test", "new.test"
AT = f"--domain-name={DOMAIN}"
ANNA = (AT, "--mailname=anna")
RENAME = ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita")
HANDLER = ("--handler-name=spam", "--handler-type=recipient", f"--handler-type-name=anna@{DOMAIN}",
           "--hook=before-local")
WHOLE = ("--executable=/bin/true", "--context=test", "--priority=20")
PLAIN = {"ORV_PASSWORD": "secret"}
OTHER = {"ORV_PASSWORD": "another"}


@dataclasses.dataclass(frozen=True)
class Command:
    """A command under test. The commands in before run first."""

    arguments: tuple
    env: dict = dataclasses.field(default_factory=dict)
    before: tuple = ()


COMMANDS = {
    "add-domain": Command(("--add-domain", f"--domain-name={NEW}")),
    "remove-domain": Command(("--remove-domain", AT)),
    "turn-off-domain": Command(("--turn-off-domain", AT)),
    "add-mailname": Command(("--add-mailname", AT, "--mailname=carl", "--disk-quota=50000")),
    "remove-mailname": Command(("--remove-mailname", *ANNA)),
    "rename-mailname": Command(RENAME),
    "rename-mailname-password": Command(RENAME, PLAIN),
    "add-mailbox": Command(("--add-mailbox", AT, "--mailname=ben"), PLAIN),
    "remove-mailbox": Command(("--remove-mailbox", *ANNA)),
    "set-password": Command(("--set-password", *ANNA), OTHER),
    "set-mailbox-disk-quota": Command(("--set-mailbox-disk-quota", *ANNA, "--disk-quota=7000")),
    "add-redirect": Command(("--add-redirect", *ANNA, "--redirect-email=b@example.org")),
    "add-alias": Command(("--add-alias", *ANNA, "--alias=annie")),
    "remove-alias": Command(("--remove-alias", *ANNA, "--alias=ann")),
    "set-autoresponder": Command(("--set-autoresponder", *ANNA)),
    "add-attachment": Command(("--add-attachment", *ANNA, "--file-name=/tmp/upload", "--attachment-file-name=b.txt")),
    "add-domain-alias": Command(("--add-domain-alias", AT, f"--domain-alias-name={NEW}", "--set-catchall",
                                 f"--email=anna@{DOMAIN}"), PLAIN),
    "rename-domain-alias": Command(("--rename-domain-alias", AT, f"--old-domain-alias-name={ALIAS}",
                                    f"--new-domain-alias-name={NEW}", "--set-reject")),
    "set-bounce": Command(("--set-bounce", AT, "--phrase=No such user")),
    "set-catchall": Command(("--set-catchall", AT, f"--email=anna@{DOMAIN}")),
    "add-badmailfrom": Command(("--add-badmailfrom", "--domain-name=bad.test")),
    "add-handler": Command(("--add-handler", *HANDLER, *WHOLE)),
    "remove-handler": Command(("--remove-handler", *HANDLER), before=(("--add-handler", *HANDLER, *WHOLE),)),
    "set-domain-key": Command(("--set-domain-key", AT, "--file-name=/tmp/key")),
    "remove-domain-key": Command(("--remove-domain-key", AT),
                                 before=(("--set-domain-key", AT, "--file-name=/tmp/key"),)),
    "set-mail-params": Command(("--set-mail-params", "--relayclient", "--smtpauth", "--popauth", "--poplock-time=20")),
    "add-whitelist": Command(("--add-whitelist", "--ip-address=10.0.0.0", "--netmask=8")),
    "stop-submission": Command(("--stop-service", "--mail-component=submission"),
                               before=(("--start-service", "--mail-component=submission"),)),
    "update-spf": Command(("--update-spf", "--spf-behavior=2", "--spf-rules=v=spf1", "--spf-exp=why")),
}


def inhabited():
    """Makes a host with a domain, its alias domain and two mailnames. One of them has everything that a
    mailname can have. Postfix and Courier are stand-ins."""
    mailhost.start("mariadb")
    for script in ("/etc/init.d/postfix", "/etc/init.d/courier-imap"):
        spy(script, Rule(exit=0))
    networks = "127.0.0.0/8, 192.0.2.0/24, 198.51.100.0/24, 203.0.113.0/24"
    mailhost.set_postconf(mynetworks=networks)
    os.makedirs("/etc/orv-spf", exist_ok=True)
    write("/tmp/upload", "a letter's attachment\n" * 3000)
    write("/tmp/key", "a key\n" * 30)

    panel.panel_domain(NEW)
    panel.panel_domain(DOMAIN, aliases=[ALIAS])
    panel.panel_mailname(f"anna@{DOMAIN}", aliases=["ann"])
    panel.panel_mailname(f"ben@{DOMAIN}")
    done("--add-domain", AT)
    done("--add-domain", "--domain-name=neighbour.test")
    for mailname in ("anna", "ben"):
        done("--add-mailname", AT, f"--mailname={mailname}", "--disk-quota=100000")
    done("--add-domain-alias", AT, f"--domain-alias-name={ALIAS}", "--set-reject")
    done("--add-alias", *ANNA, "--alias=ann")
    done("--add-mailbox", *ANNA, env=PLAIN)
    done("--set-password", *ANNA, env=PLAIN)
    done("--add-redirect", *ANNA, "--redirect-email=a@example.org")
    done("--add-attachment", *ANNA, "--file-name=/tmp/upload", "--attachment-file-name=a.txt")
    write("/tmp/upload", "another attachment\n" * 3000)  # the first one has moved into the store
    for address in (f"anna@{DOMAIN}", f"anna@{ALIAS}"):
        panel.add_hook(address)
