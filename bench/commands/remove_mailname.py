"""Removing mailnames with their accounts, records and homes."""

from _commands import DISK_SIZES, DOMAIN, SIZES, command_row, with_mailboxes  # noqa: F401  (the sizes are for run.py)

SCRIPT = r"""
ask_panel
echo "DELETE FROM users WHERE name IN ($(quoted $box $aliases))
      AND dom_id IN (SELECT id FROM domains WHERE name IN ($(quoted $domain $others)));" | accounts
postmap -d $box@$domain hash:$maps/vmailbox
for place in $domain $others; do echo $box@$place; done | postmap -d - hash:$maps/virtual
rm -r $home
grep -rlxF "$box@$domain" $info && exit 1 # it has no handlers to remove
true
"""


def row(bench, records):
    return command_row(bench, records, f"--remove-mailname --domain-name={DOMAIN} --mailname=box$i", SCRIPT,
                       before=with_mailboxes)
