"""Adding mailboxes: the delivery file, and the accounts under the domain and its alias domain."""

from _commands import (  # noqa: F401  (the sizes are for run.py)
    ADD_MAILBOX, DISK_SIZES, SIZES, command_row, with_mailnames)

SCRIPT = r"""
ask_panel
echo '| /usr/bin/deliverquota ./Maildir' >> "$home/.qmail"
set_accounts $box | accounts
"""


def row(bench, records):
    return command_row(bench, records, ADD_MAILBOX, SCRIPT, before=with_mailnames, goal=0.70)
