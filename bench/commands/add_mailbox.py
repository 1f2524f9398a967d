"""Adding mailboxes: the delivery file, and the accounts under the domain and its alias domain."""

from _commands import ADD_MAILBOX, SIZES, command_row, with_mailnames  # noqa: F401  (SIZES is for run.py)

SCRIPT = r"""
{ cat "$home/.qmail"; echo '| /usr/bin/deliverquota ./Maildir'; } > "$home/.qmail.tmp"
chown popuser:popuser "$home/.qmail.tmp"
chmod 0600 "$home/.qmail.tmp"
mv "$home/.qmail.tmp" "$home/.qmail"
{ echo $domain; alias_domains; } | while read -r place; do set_account $box $place; done | accounts
"""


def row(bench, records):
    return command_row(bench, records, ADD_MAILBOX, SCRIPT, before=with_mailnames)
