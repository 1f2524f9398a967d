"""Setting passwords of mailnames and their mail aliases, under the domain and its alias domain."""

from _commands import DOMAIN, SIZES, command_row, with_mailboxes  # noqa: F401  (SIZES is for run.py)

SCRIPT = r"""
places=$(echo $domain; alias_domains)
for name in $box $(mail_aliases); do
    for place in $places; do set_account $name $place; done
done | accounts
"""


def row(bench, records):
    return command_row(bench, records, f"--set-password --domain-name={DOMAIN} --mailname=box$i", SCRIPT,
                       before=with_mailboxes)
