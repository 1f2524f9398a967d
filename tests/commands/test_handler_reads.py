"""How often commands that change many addresses read the descriptors of handlers."""
import collections
import re

import pytest

from mailhost import TOOL, done, read, run, tool_environment
from mailnames import ALIAS, ANNA, DOMAIN, NAMES, OTHER, PLAIN, domain_without_mailnames, mailname_with_a_mailbox
from panel import add_hook, panel_domain_alias, panel_mail_alias

SANITIZED_TOO = False  # the sanitizers' own runtime opens files too
AT = f"--domain-name={DOMAIN}"
STORE = "/usr/local/orv/handlers/info"
LOG = "/run/mailvek/opened-files"
PARAMETER = re.compile(rf', O_RDONLY.* = \d+<({STORE}/[^/>]+/[^/>]+)>$', re.M)

COMMANDS = [
    ("--add-alias", *NAMES, "--alias=annie"),
    ("--remove-alias", *NAMES, "--alias=ann"),
    ("--rename-mailname", AT, "--old-mailname=anna", "--new-mailname=anita"),
    ("--remove-mailname", *NAMES),
    ("--add-domain-alias", AT, f"--domain-alias-name={OTHER}", "--set-reject"),
    ("--rename-domain-alias", AT, f"--old-domain-alias-name={ALIAS}", f"--new-domain-alias-name={OTHER}", "--set-reject"),
    ("--del-domain-alias", AT, f"--domain-alias-name={ALIAS}"),
    ("--turn-off-domain", AT),
    ("--remove-domain", AT),
]


@pytest.fixture(autouse=True)
def handlers():
    domain_without_mailnames()
    panel_domain_alias(DOMAIN, "third.test")
    mailname_with_a_mailbox()
    panel_mail_alias(ANNA, "annabel")
    for local_part in ("anna", "ann", "annabel", "bertha"):
        for domain in (DOMAIN, ALIAS, "third.test", "elsewhere.test"):
            add_hook(f"{local_part}@{domain}")


def readings(command):
    """How often each parameter was opened for reading. The opening with O_PATH before it reads nothing."""
    ended = run("strace", "-f", "-y", "-qq", "-e", "trace=openat,open", "-o", LOG, TOOL, *command,
                env=tool_environment(PLAIN, leaks=False))
    assert ended.status == 0, ended
    return collections.Counter(
        match[1] for match in PARAMETER.finditer(read(LOG)) if "O_PATH" not in match[0])


@pytest.mark.parametrize("command", COMMANDS, ids=lambda command: command[0])
def test_each_descriptor_is_read_once_a_run(command):
    found = readings(command)
    assert len({path.rsplit("/", 1)[0] for path in found}) >= 16
    assert {path: count for path, count in found.items() if count > 1} == {}
