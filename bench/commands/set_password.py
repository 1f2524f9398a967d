"""Setting passwords of mailnames and their mail aliases, under the domain and its alias domain."""

from _commands import DISK_SIZES, DOMAIN, SIZES, command_row, with_mailboxes  # noqa: F401  (the sizes are for run.py)

SCRIPT = r"""
ask_panel
set_accounts $box $aliases | accounts
"""


def row(bench, records):
    return command_row(bench, records, f"--set-password --domain-name={DOMAIN} --mailname=box$i", SCRIPT,
                       before=with_mailboxes, goal=0.70)
