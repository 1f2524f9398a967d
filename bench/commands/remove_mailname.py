"""Removing mailnames with their accounts, records and homes."""

from _commands import DOMAIN, SIZES, command_row, with_mailboxes  # noqa: F401  (SIZES is for run.py)

SCRIPT = r"""
places=$(echo $domain; alias_domains)
for name in $box $(mail_aliases); do
    for place in $places; do
        echo "DELETE FROM users WHERE name = '$name' AND dom_id = (SELECT id FROM domains WHERE name = '$place');"
    done
done | accounts
postmap -d $box@$domain hash:$maps/vmailbox
for place in $(alias_domains) $domain; do postmap -d $box@$place hash:$maps/virtual; done
rm -r $home
ls /usr/local/orv/handlers/info > /dev/null
"""


def row(bench, records):
    return command_row(bench, records, f"--remove-mailname --domain-name={DOMAIN} --mailname=box$i", SCRIPT,
                       before=with_mailboxes)
